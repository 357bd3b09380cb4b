// The least that a call can cost.
#ifndef BENCH_PEERS_EMPTY_FUNCTION_H
#define BENCH_PEERS_EMPTY_FUNCTION_H

// Does nothing, in a source file of its own, so that the call is really made.
__attribute__((noinline)) void peer_empty_function();

#endif
