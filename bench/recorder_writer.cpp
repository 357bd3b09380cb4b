// How many records a second of one core the recorder's thread brings out of the ring into its
// outputs, and whether its memory grows.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kp_LOG.h"
#include "kp_LOG_Recorder.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

static constexpr char usage[] =
    "usage: kplog_recorder_writer [RUNS]           records a second, beside their goals\n"
    "       kplog_recorder_writer --memory EVENTS  memory while so many events are recorded\n";

[[noreturn]] static void fail(const std::string& text) {
  std::fprintf(stderr, "kplog_recorder_writer: %s\n", text.c_str());
  std::exit(1);
}

// --- The events: five attributes, and a message that shows all of them --------------------------

static constexpr unsigned n_kinds = 8, first_id = 2001;

static std::string write_definitions(const temp_folder& folder) {
  ldf_file file;
  for (unsigned i = 0; i < n_kinds; ++i)
    file.entries.push_back(
        {.id = first_id + i,
         .flags = 0x1,
         .msg_id = "EVENT." + std::to_string(i),
         .msg_text = "%s%SHOP% sold %u%ITEMS% to %s%CUSTOMER% at %f%PRICE%, balance %d%BALANCE%",
         .attributes = {{"SHOP", TypeMBChar32},
                        {"CUSTOMER", TypeMBChar64},
                        {"ITEMS", TypeUInt4},
                        {"PRICE", TypeFloat},
                        {"BALANCE", TypeSInt4}}});
  return folder.write("events.ldf", file.bytes());
}

// As many different ones as tell more than one value over and over.
static std::vector<kp_LOG_LogEntry> made_entries() {
  std::vector<kp_LOG_LogEntry> entries;
  for (unsigned i = 0; i < 1000; ++i) {
    kp_LOG_LogEntry& entry = entries.emplace_back(first_id + i % n_kinds, i % 10);
    entry.AddAttribMBStr("SHOP", i % 3 == 0 ? "north" : "south-west");
    entry.AddAttribMBStr("CUSTOMER", ("customer" + std::to_string(i * 7919 % 10007)).c_str());
    entry.AddAttrib4u("ITEMS", i * 2654435761U % 100000);
    entry.AddAttribFloat8("PRICE", i * 37 % 10000 / 1000.0);
    entry.AddAttrib4("BALANCE", 3000 - static_cast<int>(i * 31 % 6000));
  }
  return entries;
}

// --- A recorder ---------------------------------------------------------------------------------

struct outputs {
  bool text = false, json = false, count = false;
};

class measured_recorder {
 public:
  explicit measured_recorder(const outputs& to) : recorder_(options(folder_, to)) {}

  void record(const std::vector<kp_LOG_LogEntry>& entries, long times) {
    for (long i = 0; i < times; ++i)
      if (recorder_.Record(entries[static_cast<size_t>(i) % entries.size()]) !=
          kp_LOG_Recorded::recorded)
        fail("an event was not recorded");
    if (!recorder_.Flush(std::chrono::minutes(10))) fail("what was recorded is not in the outputs");
  }
  const temp_folder& folder() const { return folder_; }

 private:
  // No log is full within a run, and whoever records waits for room in the ring.
  static kp_LOG_RecorderOptions options(const temp_folder& folder, const outputs& to) {
    kp_LOG_RecorderOptions options;
    options.definitions = kp_LOG_LogConfig::GetDefinitionPath();
    options.locale = "en_US";
    if (to.text) options.text = folder.file("shop");
    if (to.text) options.max_size = uint64_t{64} << 30;
    if (to.json) options.json = folder.file("shop.jsonl");
    if (to.count) options.count = folder.file("shop-count");
    options.ring_size = uint64_t{64} << 20;
    options.wait = std::chrono::minutes(1);
    return options;
  }

  const temp_folder folder_;
  kp_LOG_Recorder recorder_;
};

// --- Records a second ---------------------------------------------------------------------------

static double seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Of the processor, that all other threads than this one took so far. The recorder's is the only
// other one.
static double seconds_of_others() {
  return seconds(CLOCK_PROCESS_CPUTIME_ID) - seconds(CLOCK_THREAD_CPUTIME_ID);
}

static double measured_seconds(const outputs& to, const std::vector<kp_LOG_LogEntry>& entries,
                               long times) {
  measured_recorder log(to);
  log.record(entries, 2000);
  const double before = seconds_of_others();
  log.record(entries, times);
  return seconds_of_others() - before;
}

struct measured_outputs {
  const char* name;
  outputs to;
  double goal;  // records a second
};

static constexpr std::array<measured_outputs, 3> all_outputs = {
    {{"a text log", {.text = true}, 500'000},
     {"the stored form", {.json = true}, 600'000},
     {"both and the counter", {true, true, true}, 350'000}}};
static constexpr std::array<long, 3> sizes = {10'000, 100'000, 1'000'000};

// The quickest of the runs counts. They take turns, so that a busy moment of the machine does not
// fall on one row alone.
static void print_rates(const std::vector<kp_LOG_LogEntry>& entries, long runs) {
  std::array<std::array<double, sizes.size()>, all_outputs.size()> rates{};
  for (long run = 0; run < runs; ++run)
    for (size_t i = 0; i < all_outputs.size(); ++i)
      for (size_t k = 0; k < sizes.size(); ++k) {
        const double taken = measured_seconds(all_outputs[i].to, entries, sizes[k]);
        rates[i][k] = std::max(rates[i][k], static_cast<double>(sizes[k]) / taken);
      }
  std::printf("%-28s%12s%16s%12s\n", "the recorder's writer, into", "records", "records/s", "goal");
  for (size_t i = 0; i < all_outputs.size(); ++i)
    for (size_t k = 0; k < sizes.size(); ++k)
      std::printf("%-28s%12ld%16.0f%12.0f  %s\n", all_outputs[i].name, sizes[k], rates[i][k],
                  all_outputs[i].goal, rates[i][k] >= all_outputs[i].goal ? "met" : "NOT MET");
}

// --- Memory -------------------------------------------------------------------------------------

// KiB in memory of all that is mapped, but for the ring.
static long memory_beside_the_ring() {
  std::ifstream maps("/proc/self/smaps");
  long sum = 0;
  bool is_ring = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::string word;
    long size = 0;
    if (!(words >> word)) continue;
    if (word.back() != ':')
      is_ring = line.find(".ring.") != std::string::npos;
    else if (word == "Rss:" && !is_ring && words >> size)
      sum += size;
  }
  return sum;
}

// Logs that are removed are begun anew: ten million lines need no room on the disk.
static int print_memory(const std::vector<kp_LOG_LogEntry>& entries, long events) {
  static constexpr int parts = 10;
  static constexpr long allowed_growth = 256;  // KiB
  measured_recorder log({true, true, true});
  long first = 0, last = 0;
  for (int part = 1; part <= parts; ++part) {
    log.record(entries, events / parts);
    last = memory_beside_the_ring();
    if (part == 1) first = last;
    std::printf("%12ld events  %8ld KiB beside the ring\n", part * (events / parts), last);
    std::fflush(stdout);
    unlink(log.folder().file("shop.jsonl").c_str());
    for (const auto& file : std::filesystem::directory_iterator(log.folder().path()))
      if (file.path().filename().string().starts_with("shop.2")) std::filesystem::remove(file);
  }
  const bool has_grown = last > first + allowed_growth;
  std::printf("grown by %ld KiB since the first tenth: %s\n", last - first,
              has_grown ? "NOT MET" : "met");
  return has_grown ? 1 : 0;
}

// One core, as the goals have it.
static void stay_on_one_core() {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &cores);
  sched_setaffinity(0, sizeof cores, &cores);
}

int main(int argc, char** argv) {
  const bool is_memory = argc == 3 && std::string_view(argv[1]) == "--memory";
  const long number = argc > 1 ? std::atol(argv[argc - 1]) : 5;
  if ((argc > 2 && !is_memory) || number < (is_memory ? 10 : 1)) {
    std::fputs(usage, stderr);
    return 2;
  }
  const temp_folder folder;
  kp_LOG_LogConfig::SetLocale("en_US");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetDefinitionPath(write_definitions(folder).c_str());
  const std::vector<kp_LOG_LogEntry> entries = made_entries();
  if (is_memory) return print_memory(entries, number);
  stay_on_one_core();
  print_rates(entries, number);
  return 0;
}
