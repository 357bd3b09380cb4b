// A tracepoint of LTTng-UST with the five values of the event of instructions.h.
#ifndef BENCH_PEERS_TRACEPOINT_H
#define BENCH_PEERS_TRACEPOINT_H

#include <cstdint>

#ifdef KPLOG_BENCH_TRACEPOINT
inline constexpr bool has_peer_tracepoint = true;
#else
inline constexpr bool has_peer_tracepoint = false;
#endif

// Does nothing where the program was built without LTTng-UST.
[[gnu::noinline]] void peer_tracepoint(const char* shop, const char* customer, uint32_t items,
                                       double price, int32_t balance);

#endif
