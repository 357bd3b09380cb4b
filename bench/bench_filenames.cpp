// Building and recognising the name of a text log.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>

#include "bench/peers/scanned_name.h"
#include "kp_LOG.h"

static const char* const log_prefix = "app";
static const char* const log_folder = "/var/log/app";
static const char* const log_name = "app.20261115.0012";

static void filename_make_kplog(benchmark::State& state) {
  for (auto _ : state) {
    const std::unique_ptr<char[]> name(
        make_text_log_filename(log_prefix, 2026, 11, 15, 12, log_folder));
    benchmark::DoNotOptimize(name.get());
  }
}
BENCHMARK(filename_make_kplog);

static void filename_make_fmt(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(
        fmt::format("{}/{}.{:04}{:02}{:02}.{:04}", log_folder, log_prefix, 2026, 11, 15, 12));
}
BENCHMARK(filename_make_fmt);

static void filename_recognise_kplog(benchmark::State& state) {
  unsigned short numbers[4];
  for (auto _ : state)
    benchmark::DoNotOptimize(is_a_valid_text_log(log_name, log_prefix, &numbers[0], &numbers[1],
                                                 &numbers[2], &numbers[3]));
}
BENCHMARK(filename_recognise_kplog);

static void filename_recognise_sscanf(benchmark::State& state) {
  unsigned short numbers[4];
  for (auto _ : state) benchmark::DoNotOptimize(peer_scan_log_name(log_name, log_prefix, numbers));
}
BENCHMARK(filename_recognise_sscanf);
