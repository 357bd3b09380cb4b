// What it costs to record an event in the program's own process, up to the return of the call.
#include <string>

#include "bench/instructions.h"
#include "kp_LOG_EventValue.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_Recorder.h"
#include "recording/definitions/fingerprint.h"
#include "tests/support/temp_folder.h"

static uint64_t fingerprint_of_sale() {
  event_fingerprint fingerprint(event_id);
  fingerprint.add(shop_name, TypeMBChar32);
  fingerprint.add(customer_name, TypeMBChar64);
  fingerprint.add(items_name, TypeUInt4);
  fingerprint.add(price_name, TypeFloat);
  fingerprint.add(balance_name, TypeSInt4);
  return fingerprint.value();
}

// The event as "kplog header" writes it.
struct sale {
  static constexpr std::uint32_t id = event_id;
  static constexpr std::uint32_t property_flags = 1;
  static constexpr unsigned default_level = 5;
  static inline const std::uint64_t fingerprint = fingerprint_of_sale();
  struct entry : kp_LOG_LogEntry {
    entry(unsigned level, const sale&) : kp_LOG_LogEntry(event_id, level) {}
  };

  kp_LOG_EventText<TypeMBChar32, shop_name> shop;
  kp_LOG_EventText<TypeMBChar64, customer_name> customer;
  kp_LOG_EventNumber<TypeUInt4, items_name> items;
  kp_LOG_EventNumber<TypeFloat, price_name> price;
  kp_LOG_EventNumber<TypeSInt4, balance_name> balance;

  template <class Visitor>
  void each_value(Visitor&& visit) const {
    visit(0, shop);
    visit(1, customer);
    visit(2, items);
    visit(3, price);
    visit(4, balance);
  }
};

// A recorder whose ring holds all that is recorded, so that no call waits.
class recorder_in_folder {
 public:
  explicit recorder_in_folder(const std::string& settings = "")
      : recorder_({.definitions = kp_LOG_LogConfig::GetDefinitionPath(),
                   .locale = "en_US",
                   .text = folder_.file("shop"),
                   .settings = settings.empty() ? "" : folder_.write("shop.conf", settings),
                   .section = settings.empty() ? "" : "shop",
                   .ring_size = uint64_t{64} << 20}) {}

  kp_LOG_Recorder& operator*() { return recorder_; }

 private:
  const temp_folder folder_;
  kp_LOG_Recorder recorder_;
};

static kp_LOG_Recorded record_sale(kp_LOG_Recorder& log) {
  return log.Record(sale{.shop = shop_value,
                         .customer = customer_value,
                         .items = items_value,
                         .price = price_value,
                         .balance = balance_value});
}

static void count_recording(long times) {
  recorder_in_folder log;
  count_operation(times, [&] {
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
  count_operation(times, [&] {
    if (record_sale(*log) != kp_LOG_Recorded::rejected) std::abort();
  });
}

std::vector<counted_operation> recorder_operations() {
  return {{"record", count_recording},
          {"record_entry", count_recording_an_entry},
          {"record_rejected", count_rejecting}};
}
