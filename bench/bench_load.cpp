// Loading a file of 1,000 definitions: as the library does it, where a definition is read when it
// is first asked for, and with every one of them asked for.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/bench_event.h"
#include "bench/peers/yaml_definitions.h"
#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "tests/support/temp_folder.h"

constexpr unsigned n_definitions = 1000;

static void load_kplog(benchmark::State& state) {
  const std::string& path = bench_definition_file(n_definitions);
  for (auto _ : state) kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
}
BENCHMARK(load_kplog);

static void load_all_kplog(benchmark::State& state) {
  const std::string& path = bench_definition_file(n_definitions);
  const _kp_LOG_log_definition_tbl* table = kp_LOG_LogConfig::GetDefinitionTable();
  for (auto _ : state) {
    kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
    for (unsigned i = 0; i < n_definitions; ++i)
      benchmark::DoNotOptimize(table->find_entry(bench_first_id + i));
  }
}
BENCHMARK(load_all_kplog);

static std::string bytes_of(const std::string& path) {
  std::string bytes;
  FILE* file = std::fopen(path.c_str(), "rb");
  char buffer[4096];
  while (const size_t n = std::fread(buffer, 1, sizeof buffer, file)) bytes.append(buffer, n);
  std::fclose(file);
  return bytes;
}

// The bytes alone, which nothing that loads the file can undercut.
static void load_fread(benchmark::State& state) {
  const std::string& path = bench_definition_file(n_definitions);
  for (auto _ : state) benchmark::DoNotOptimize(bytes_of(path));
}
BENCHMARK(load_fread);

static std::string yaml_definitions() {
  std::string yaml;
  for (unsigned i = 0; i < n_definitions; ++i)
    yaml += std::to_string(bench_first_id + i) + ":\n  message_id: EVENT." + std::to_string(i) +
            "\n  message: \"" + bench_template +
            "\"\n  attributes: {USER_NAME: 9, HOST_NAME: 9, PORT: 4, LOAD: 8, BALANCE: 7}\n";
  return yaml;
}

static void load_all_yaml(benchmark::State& state) {
  const temp_folder folder;
  const std::string path = folder.write("events.yaml", yaml_definitions());
  if (peer_load_yaml(path).size() != n_definitions) {
    state.SkipWithError("not all definitions were read");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(peer_load_yaml(path));
}
BENCHMARK(load_all_yaml);
