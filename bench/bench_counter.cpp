// Counting entries in a file: one key again and again, and 1,000 keys in no order.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "bench/peers/record_counts.h"
#include "bench/peers/sqlite_counts.h"
#include "kp_LOG.h"
#include "tests/support/temp_folder.h"

constexpr int n_keys = 1000;

static std::vector<int> shuffled_keys() {
  std::vector<int> keys(n_keys);
  for (int i = 0; i < n_keys; ++i) keys[static_cast<size_t>(i)] = i + 1;
  std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
  return keys;
}

// Times count(key) over the keys in turn, after each has been counted once.
template <class Count>
static void count_keys(benchmark::State& state, const std::vector<int>& keys, Count count) {
  for (int key = 1; key <= n_keys; ++key)
    if (!count(key)) state.SkipWithError("not counted");
  size_t i = 0;
  for (auto _ : state) {
    if (!count(keys[i])) state.SkipWithError("not counted");
    i = i + 1 == keys.size() ? 0 : i + 1;
  }
}

static const std::vector<int> last_key = {n_keys};

class kplog_counts {
 public:
  kplog_counts() { counter_.OpenEntryCounterFile(folder_.path().c_str(), "counts"); }
  bool operator()(int key) { return counter_.IncreaseCount(2026, 11, 15, key) == 0; }

 private:
  temp_folder folder_;
  _kp_LOG_EntryCounter counter_;
};

template <class Counts>
static void count_one_key(benchmark::State& state) {
  Counts counts;
  count_keys(state, last_key, [&](int key) { return counts(key); });
}

template <class Counts>
static void count_many_keys(benchmark::State& state) {
  Counts counts;
  count_keys(state, shuffled_keys(), [&](int key) { return counts(key); });
}

static void counter_one_kplog(benchmark::State& state) {
  count_one_key<kplog_counts>(state);
}
BENCHMARK(counter_one_kplog);

static void counter_one_pread_pwrite(benchmark::State& state) {
  count_one_key<peer_record_at_hand>(state);
}
BENCHMARK(counter_one_pread_pwrite);

static void counter_one_sqlite(benchmark::State& state) {
  count_one_key<peer_sqlite_counts>(state);
}
BENCHMARK(counter_one_sqlite);

static void counter_many_kplog(benchmark::State& state) {
  count_many_keys<kplog_counts>(state);
}
BENCHMARK(counter_many_kplog);

static void counter_many_record_by_record(benchmark::State& state) {
  count_many_keys<peer_record_search>(state);
}
BENCHMARK(counter_many_record_by_record);

static void counter_many_fread(benchmark::State& state) {
  count_many_keys<peer_stream_search>(state);
}
BENCHMARK(counter_many_fread);

static void counter_many_sqlite(benchmark::State& state) {
  count_many_keys<peer_sqlite_counts>(state);
}
BENCHMARK(counter_many_sqlite);
