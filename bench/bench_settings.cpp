// The road of an entry while another thread changes settings, beside the same road undisturbed.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "bench/bench_event.h"
#include "kp_LOG.h"
#include "tests/support/temp_folder.h"

// While it lives, a thread sets definitions, source and code page anew a hundred times a second,
// to what they are.
class settings_setter {
 public:
  explicit settings_setter(const std::string& source) {
    thread_ = std::thread([this, source] {
      while (!is_over_) {
        kp_LOG_LogConfig::SetDefinitionPath(bench_definition_file(1).c_str());
        kp_LOG_LogConfig::SetConfigurationSource(source.c_str(), KP_CONFIG_FILE);
        kp_LOG_LogConfig::SetCodePage("UTF-8");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    });
  }
  ~settings_setter() {
    is_over_ = true;
    thread_.join();
  }
  settings_setter(const settings_setter&) = delete;
  settings_setter& operator=(const settings_setter&) = delete;

 private:
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

// Makes, fills, filters and renders events.
static void log_events(benchmark::State& state, const std::string& source) {
  _kp_LOG_entry_filter filter;
  filter.set_section("filter");
  kp_LOG_LogConfig::SetConfigurationSource(source.c_str(), KP_CONFIG_FILE);
  for (auto _ : state) {
    kp_LOG_LogEntry entry(bench_first_id, 5);
    bench_fill(entry);
    if (!filter.check_entry(entry)) state.SkipWithError("wrong answer");
    benchmark::DoNotOptimize(kp_LOG_RenderMessage(entry));
  }
}

static std::string settings_in(const temp_folder& folder) {
  return folder.write("settings", "[filter]\nLogLevelLow=4\nLogLevelHigh=9\n\n");
}

static void settings_quiet_kplog(benchmark::State& state) {
  bench_load_definitions(1);
  const temp_folder folder;
  log_events(state, settings_in(folder));
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
}
BENCHMARK(settings_quiet_kplog);

static void settings_changing_kplog(benchmark::State& state) {
  bench_load_definitions(1);
  const temp_folder folder;
  const std::string source = settings_in(folder);
  {
    const settings_setter setter(source);
    log_events(state, source);
  }
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
}
BENCHMARK(settings_changing_kplog);
