// Whether an entry is to be written: by the filter's own fields, and by a configuration source.
#include <benchmark/benchmark.h>

#include "bench/bench_event.h"
#include "bench/peers/boost_filter.h"
#include "bench/peers/map_filter.h"
#include "bench/peers/spdlog_filter.h"
#include "kp_LOG.h"
#include "tests/support/temp_folder.h"

constexpr unsigned rejected_level = 2;
constexpr unsigned accepted_level = 5;
constexpr unsigned lowest_level = 4;

static const char* const filter_settings =
    "[filter]\nDebugEnabled=0\nLogLevelLow=4\nLogLevelHigh=9\nPropertyMask=0x1\n[]\n\n";

// Whether a check of the benchmark's event at that level answers as it must.
static void check_entries(benchmark::State& state, unsigned level, bool configured) {
  bench_load_definitions(1);
  const temp_folder folder;
  if (configured)
    kp_LOG_LogConfig::SetConfigurationSource(folder.write("f.cfg", filter_settings).c_str(),
                                             KP_CONFIG_FILE);
  _kp_LOG_entry_filter filter;
  filter.set_section("filter");
  filter.set_filter_log_level(lowest_level, 9);
  kp_LOG_LogEntry entry(bench_first_id, level);
  if (filter.check_entry(entry) != (level >= lowest_level)) state.SkipWithError("wrong answer");
  for (auto _ : state) {
    benchmark::DoNotOptimize(entry);
    benchmark::DoNotOptimize(filter.check_entry(entry));
  }
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
}

static void filter_rejects_kplog(benchmark::State& state) {
  check_entries(state, rejected_level, false);
}
BENCHMARK(filter_rejects_kplog);

static void filter_accepts_kplog(benchmark::State& state) {
  check_entries(state, accepted_level, false);
}
BENCHMARK(filter_accepts_kplog);

static void filter_configured_kplog(benchmark::State& state) {
  check_entries(state, accepted_level, true);
}
BENCHMARK(filter_configured_kplog);

// One look-up of the four that the configured check makes.
static void filter_key_kplog(benchmark::State& state) {
  const temp_folder folder;
  kp_LOG_LogConfig::SetConfigurationSource(folder.write("f.cfg", filter_settings).c_str(),
                                           KP_CONFIG_FILE);
  unsigned value = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        kp_LOG_LogConfig::GetConfigurationIntegerValue("filter", "LogLevelHigh", value));
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
}
BENCHMARK(filter_key_kplog);

static void filter_key_unordered_map(benchmark::State& state) {
  const peer_settings settings = peer_filter_settings();
  unsigned value = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(peer_find(settings, "filter", "LogLevelHigh", value));
}
BENCHMARK(filter_key_unordered_map);

static void filter_configured_unordered_map(benchmark::State& state) {
  const peer_settings settings = peer_filter_settings();
  if (!peer_check(settings, "filter", accepted_level, 0x1)) state.SkipWithError("wrong answer");
  for (auto _ : state)
    benchmark::DoNotOptimize(peer_check(settings, "filter", accepted_level, 0x1));
}
BENCHMARK(filter_configured_unordered_map);

static void filter_rejects_spdlog(benchmark::State& state) {
  const peer_spdlog_logger logger;
  for (auto _ : state) logger.log_below_level();
}
BENCHMARK(filter_rejects_spdlog);

static void filter_accepts_spdlog(benchmark::State& state) {
  const peer_spdlog_logger logger;
  for (auto _ : state) logger.log_above_level();
}
BENCHMARK(filter_accepts_spdlog);

static void filter_rejects_boost(benchmark::State& state) {
  const peer_boost_filter filter;
  for (auto _ : state) benchmark::DoNotOptimize(filter.passes(rejected_level));
}
BENCHMARK(filter_rejects_boost);

static void filter_accepts_boost(benchmark::State& state) {
  const peer_boost_filter filter;
  if (!filter.passes(accepted_level)) state.SkipWithError("wrong answer");
  for (auto _ : state) benchmark::DoNotOptimize(filter.passes(accepted_level));
}
BENCHMARK(filter_accepts_boost);
