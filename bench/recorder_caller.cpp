// What recording an event costs the thread that does it, in time, beside what others take to hand
// over the same five values: bursts that the queue holds, by the processor time of the calling
// threads.
//
//   kplog_recorder_caller OPERATION THREADS    nanoseconds an event, the median of the bursts
//   kplog_recorder_caller --operations         those that it was built with
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <algorithm>
#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/peers/tracepoint.h"
#include "bench/recorded_sale.h"
#include "tests/support/ldf_bytes.h"

static constexpr long events_of_a_burst = 4000;  // of each thread
static constexpr int bursts = 40, bursts_to_warm_up = 10;

// What a thread does for an event, and what is done behind a burst, until the queue is empty.
struct handing_over {
  std::function<void(long events)> hand_over;
  std::function<void()> rest;
};

static long long processor_time() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

static double median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

static double time_of_an_event(const handing_over& operation, int threads) {
  std::vector<double> times;
  std::mutex mutex;
  int burst = 0;
  std::barrier begin(threads);
  std::barrier end(threads, [&]() noexcept {
    operation.rest();
    ++burst;
  });
  const auto run = [&] {
    while (burst < bursts) {
      begin.arrive_and_wait();
      const bool counts = burst >= bursts_to_warm_up;
      const long long before = processor_time();
      operation.hand_over(events_of_a_burst);
      const long long taken = processor_time() - before;
      if (counts) {
        const std::lock_guard hold(mutex);
        times.push_back(static_cast<double>(taken) / events_of_a_burst);
      }
      end.arrive_and_wait();
    }
  };
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) all.emplace_back(run);
  for (std::thread& thread : all) thread.join();
  return median(times);
}

// --- The recorder -------------------------------------------------------------------------------

// One kind of event will do: the recorder looks it up by its fingerprint.
static std::string definitions_in(const temp_folder& folder) {
  ldf_file file;
  file.entries.push_back({.id = event_id,
                          .flags = 0x1,
                          .msg_id = "SALE",
                          .msg_text = "%s%SHOP% sold %u%ITEMS% to %s%CUSTOMER%",
                          .attributes = {{shop_name, TypeMBChar32},
                                         {customer_name, TypeMBChar64},
                                         {items_name, TypeUInt4},
                                         {price_name, TypeFloat},
                                         {balance_name, TypeSInt4}}});
  return folder.write("sale.ldf", file.bytes());
}

static double time_recording(int threads) {
  const temp_folder folder;
  kp_LOG_LogConfig::SetDefinitionPath(definitions_in(folder).c_str());
  recorder_in_folder log("", kp_LOG_RecorderOptions().ring_size);
  const auto record = [&](long events) {
    for (long i = 0; i < events; ++i)
      if (record_sale(*log) != kp_LOG_Recorded::recorded) std::abort();
  };
  const auto rest = [&] {
    if (!(*log).Flush(std::chrono::seconds(60))) std::abort();
  };
  return time_of_an_event({record, rest}, threads);
}

// --- Peers --------------------------------------------------------------------------------------

static double time_tracepoints(int threads) {
  const auto trace = [](long events) {
    for (long i = 0; i < events; ++i)
      peer_tracepoint(shop_value, customer_value, items_value, price_value, balance_value);
  };
  const auto rest = [] { std::this_thread::sleep_for(std::chrono::milliseconds(30)); };
  return time_of_an_event({trace, rest}, threads);
}

static double time_spdlog(int threads) {
  const temp_folder folder;
  const auto queue = std::make_shared<spdlog::details::thread_pool>(65536, 1);
  const auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(folder.file("shop.log"));
  const auto logger = std::make_shared<spdlog::async_logger>("shop", sink, queue);
  const auto log = [&](long events) {
    for (long i = 0; i < events; ++i)
      logger->info("{} sold {} to {} at {}, balance {}", std::string_view(shop_value), items_value,
                   std::string_view(customer_value), price_value, balance_value);
  };
  const auto rest = [&] {
    while (queue->queue_size() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  return time_of_an_event({log, rest}, threads);
}

// --- The program --------------------------------------------------------------------------------

int main(int argc, char** argv) {
  const std::string_view operation = argc > 1 ? argv[1] : "";
  if (argc == 2 && operation == "--operations") {
    std::printf("record spdlog%s\n", has_peer_tracepoint ? " tracepoint" : "");
    return 0;
  }
  const int threads = argc == 3 ? std::atoi(argv[2]) : 0;
  if (threads < 1 || threads > 64) return 2;
  if (operation == "record")
    std::printf("%.1f\n", time_recording(threads));
  else if (operation == "spdlog")
    std::printf("%.1f\n", time_spdlog(threads));
  else if (operation == "tracepoint" && has_peer_tracepoint)
    std::printf("%.1f\n", time_tracepoints(threads));
  else
    return 2;
  return 0;
}
