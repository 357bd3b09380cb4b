// The least that a call can cost.
#ifndef BENCH_PEERS_EMPTY_FUNCTION_H
#define BENCH_PEERS_EMPTY_FUNCTION_H

// Do nothing, in a source file of their own, so that the calls are really made.
__attribute__((noinline)) void peer_empty_function();
// Takes arguments as LogDebugMessage does.
__attribute__((noinline, format(printf, 2, 3))) void peer_empty_line(unsigned level,
                                                                     const char* format, ...);

#endif
