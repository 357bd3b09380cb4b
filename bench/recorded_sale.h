// The event of instructions.h as "kplog header" writes it, and a recorder to record it.
#ifndef BENCH_RECORDED_SALE_H
#define BENCH_RECORDED_SALE_H

#include <cstdint>
#include <string>

#include "bench/instructions.h"
#include "kp_LOG_EventValue.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_Recorder.h"
#include "recording/definitions/fingerprint.h"
#include "tests/support/temp_folder.h"

inline uint64_t fingerprint_of_sale() {
  event_fingerprint fingerprint(event_id);
  fingerprint.add(shop_name, TypeMBChar32);
  fingerprint.add(customer_name, TypeMBChar64);
  fingerprint.add(items_name, TypeUInt4);
  fingerprint.add(price_name, TypeFloat);
  fingerprint.add(balance_name, TypeSInt4);
  return fingerprint.value();
}

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
  [[gnu::always_inline]] void each_value(Visitor&& visit) const {
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
  explicit recorder_in_folder(const std::string& settings = "",
                              uint64_t ring_size = uint64_t{64} << 20)
      : recorder_({.definitions = kp_LOG_LogConfig::GetDefinitionPath(),
                   .locale = "en_US",
                   .text = folder_.file("shop"),
                   .settings = settings.empty() ? "" : folder_.write("shop.conf", settings),
                   .section = settings.empty() ? "" : "shop",
                   .ring_size = ring_size}) {}

  kp_LOG_Recorder& operator*() { return recorder_; }

 private:
  const temp_folder folder_;
  kp_LOG_Recorder recorder_;
};

// A value that the compiler does not know, as those of programs.
template <class Value>
[[gnu::always_inline]] inline Value found_at_run_time(Value value) {
  asm("" : "+rm"(value));
  return value;
}

// Where it is called, as programs have it.
[[gnu::always_inline]] inline kp_LOG_Recorded record_sale(kp_LOG_Recorder& log) {
  return log.Record(sale{.shop = found_at_run_time<const char*>(shop_value),
                         .customer = found_at_run_time<const char*>(customer_value),
                         .items = found_at_run_time(items_value),
                         .price = price_value,
                         .balance = found_at_run_time(balance_value)});
}

#endif
