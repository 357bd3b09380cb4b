// Looking a definition up that the table holds already.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include "bench/bench_event.h"
#include "kp_LOG.h"
#include "logging/ldf_load.h"

// Asks for the n definitions in turn, jumping about.
static void find_entry_kplog(benchmark::State& state) {
  const auto n = static_cast<unsigned>(state.range(0));
  bench_load_definitions(n);
  const _kp_LOG_log_definition_tbl* table = kp_LOG_LogConfig::GetDefinitionTable();
  constexpr unsigned stride = 37;  // prime to every n
  unsigned i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table->find_entry(bench_first_id + i));
    i = (i + stride) % n;
  }
}
BENCHMARK(find_entry_kplog)->Arg(1)->Arg(64)->Arg(128);

static void find_entry_rwlock(benchmark::State& state) {
  pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
  for (auto _ : state) {
    pthread_rwlock_rdlock(&lock);
    benchmark::ClobberMemory();
    pthread_rwlock_unlock(&lock);
  }
  pthread_rwlock_destroy(&lock);
}
BENCHMARK(find_entry_rwlock);
