// What it costs to record an event in the program's own process, up to the return of the call.
#include <cstdlib>

#include "bench/instructions.h"
#include "bench/recorded_sale.h"

static void count_recording(long times) {
  recorder_in_folder log;
  count_operation(
      times, [&]() __attribute__((always_inline)) {
        if (record_sale(*log) != kp_LOG_Recorded::recorded) std::abort();
      });
}

static void count_recording_an_entry(long times) {
  recorder_in_folder log;
  kp_LOG_LogEntry entry(event_id, 5);
  entry.AddAttribMBStr(shop_name, shop_value);
  entry.AddAttribMBStr(customer_name, customer_value);
  entry.AddAttrib4u(items_name, items_value);
  entry.AddAttribFloat8(price_name, price_value);
  entry.AddAttrib4(balance_name, balance_value);
  count_operation(times, [&] {
    if ((*log).Record(entry) != kp_LOG_Recorded::recorded) std::abort();
  });
}

static void count_rejecting(long times) {
  recorder_in_folder log("[shop]\nLogLevelHigh = 2\n\n");
  count_operation(
      times, [&]() __attribute__((always_inline)) {
        if (record_sale(*log) != kp_LOG_Recorded::rejected) std::abort();
      });
}

std::vector<counted_operation> recorder_operations() {
  return {{"record", count_recording},
          {"record_entry", count_recording_an_entry},
          {"record_rejected", count_rejecting}};
}
