// An event with five attributes, made and filled.
#include <benchmark/benchmark.h>

#include <unordered_map>

#include "bench/bench_event.h"
#include "bench/bench_peer_event.h"
#include "kp_LOG.h"

static void entry_make_kplog(benchmark::State& state) {
  bench_load_definitions(1);
  for (auto _ : state) {
    kp_LOG_LogEntry entry(bench_first_id, 5);
    bench_fill(entry);
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(entry_make_kplog);

// An event of the peers finds the declarations of its ID as well.
template <template <class> class Map>
static void make_peer_events(benchmark::State& state) {
  const std::unordered_map<unsigned, typename peer_event<Map>::declarations> events = {
      {bench_first_id, bench_declarations<Map>()}};
  for (auto _ : state) {
    peer_event<Map> event(events.at(bench_first_id));
    bench_fill(event);
    benchmark::DoNotOptimize(event);
  }
}

static void entry_make_unordered_map(benchmark::State& state) {
  make_peer_events<peer_std_map>(state);
}
BENCHMARK(entry_make_unordered_map);

static void entry_make_flat_hash_map(benchmark::State& state) {
  make_peer_events<peer_absl_map>(state);
}
BENCHMARK(entry_make_flat_hash_map);
