// A debug line that is filtered out.
#include <benchmark/benchmark.h>

#include "bench/peers/empty_function.h"
#include "kp_LOG.h"

static void debug_line_kplog(benchmark::State& state) {
  EnableDebugLog(0);
  for (auto _ : state) LogDebugMessage(1, "%s:%d a line that nobody reads\n", "bench", __LINE__);
}
BENCHMARK(debug_line_kplog);

static void debug_line_empty_function(benchmark::State& state) {
  for (auto _ : state) peer_empty_function();
}
BENCHMARK(debug_line_empty_function);

static void debug_line_empty_line(benchmark::State& state) {
  for (auto _ : state) peer_empty_line(1, "%s:%d a line that nobody reads\n", "bench", __LINE__);
}
BENCHMARK(debug_line_empty_line);
