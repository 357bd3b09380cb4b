#include "recording/ring/event_bytes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "base/kp_digits.h"
#include "kp_LOG_AttributeType.h"
#include "logging/logentry_i.h"
#include "recording/definitions/fingerprint.h"

uint32_t folded_fingerprint(const known_event& event) {
  event_fingerprint fingerprint(event.id);
  for (const known_attribute& attribute : event.attributes)
    fingerprint.add(attribute.name, attribute.type);
  return static_cast<uint32_t>(fingerprint.value() ^ (fingerprint.value() >> 32));
}

event_reader::event_reader(const event_set& events) {
  for (const known_event& event : events.events()) {
    prepared_event& prepared = prepared_[event.id];
    prepared.event = &event;
    prepared.fingerprint = folded_fingerprint(event);
    for (const known_attribute& attribute : event.attributes)
      prepared.keys.emplace_back(
          attribute.name.c_str(),
          static_cast<unsigned char>(std::min<size_t>(prepared.keys.size(), UINT8_MAX)));
  }
}

const event_reader::prepared_event* event_reader::find(uint32_t id) {
  if (last_ != nullptr && last_->event->id == id) return last_;
  const auto found = prepared_.find(id);
  if (found == prepared_.end()) return nullptr;
  return last_ = &found->second;
}

// ---- values ----

template <class Value>
static bool take(std::string_view& bytes, Value& value) {
  if (bytes.size() < sizeof value) return false;
  std::memcpy(&value, bytes.data(), sizeof value);
  bytes.remove_prefix(sizeof value);
  return true;
}

template <class Value, auto add>
static bool add_number(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key,
                       std::string_view& bytes) {
  Value value{};
  if (!take(bytes, value)) return false;
  (entry.*add)(key, value);
  return true;
}

static bool add_bool(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key,
                     std::string_view& bytes) {
  uint8_t value = 0;
  if (!take(bytes, value) || value > 1) return false;
  entry.AddKeyedBool(key, value == 1);
  return true;
}

static bool take_text(std::string_view& bytes, line_writer& text) {
  uint16_t size = 0;
  if (!take(bytes, size) || bytes.size() < size) return false;
  text.clear();
  text.append(bytes.substr(0, size));
  text.append('\0');
  bytes.remove_prefix(size);
  return true;
}

static kp_Time time_of(const time_bytes& told) {
  kp_Time time(told.year, told.month, told.day, told.hour, told.minute, told.second,
               told.is_gmt != 0);
  time.set_zone_bias(told.zone_bias);
  time.set_daylight_flag(told.daylight);
  return time;
}

static bool add_time(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key,
                     std::string_view& bytes) {
  time_bytes told;
  if (!take(bytes, told)) return false;
  entry.AddKeyedTime(key, time_of(told));
  return true;
}

bool event_reader::add_value(const kp_LOG_AttributeKey& key, uint8_t type,
                             std::string_view& bytes) {
  using handle = kp_LOG_LogEntry;
  handle& entry = made_.entry;
  switch (type) {
    case TypeBool:
      return add_bool(entry, key, bytes);
    case TypeUInt1:
      return add_number<unsigned char, &handle::AddKeyed1u>(entry, key, bytes);
    case TypeSInt1:
      return add_number<char, &handle::AddKeyed1>(entry, key, bytes);
    case TypeUInt2:
      return add_number<unsigned short, &handle::AddKeyed2u>(entry, key, bytes);
    case TypeSInt2:
      return add_number<short, &handle::AddKeyed2>(entry, key, bytes);
    case TypeUInt4:
      return add_number<unsigned, &handle::AddKeyed4u>(entry, key, bytes);
    case TypeSInt4:
      return add_number<int, &handle::AddKeyed4>(entry, key, bytes);
    case TypeFloat:
      return add_number<double, &handle::AddKeyedFloat8>(entry, key, bytes);
    case TypeDate:
    case TypeTime:
    case TypeTimestamp:
      return add_time(entry, key, bytes);
    default:
      break;
  }
  if (!take_text(bytes, text_)) return false;
  if (type >= TypeMBChar32 && type <= TypeMBChar2K)
    entry.AddKeyedMBStr(key, text_.text().data());
  else if (type >= TypeChar32 && type <= TypeChar2K)
    entry.AddKeyedStr(key, text_.text().data());
  else
    return false;
  return true;
}

bool event_reader::add_values(std::string_view bytes) {
  value_head value;
  while (!bytes.empty()) {
    if (!take(bytes, value) || value.number >= last_->keys.size() ||
        last_->event->attributes[value.number].type != value.type ||
        !add_value(last_->keys[value.number], value.type, bytes))
      return false;
  }
  return true;
}

// ---- the head ----

// Events often have the second in common, and to ask for the system's zone, as making a kp_Time
// does, takes as long as reading an event.
void event_reader::tell_time() {
  static constexpr uint64_t second = 1'000'000'000;
  static constexpr size_t fraction_at = 19;
  const uint64_t now = head_.time / second;
  if (now != told_second_ || head_.zone.bias != recorded_time_.get_zone_bias() ||
      head_.zone.daylight != recorded_time_.get_daylight_flag()) {
    told_second_ = UINT64_MAX;
    const std::chrono::sys_seconds told(std::chrono::seconds(now) -
                                        std::chrono::minutes(head_.zone.bias) +
                                        std::chrono::minutes(head_.zone.daylight != 0 ? 60 : 0));
    const auto day = std::chrono::floor<std::chrono::days>(told);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(told - day);
    recorded_time_ = kp_Time(int(date.year()), int(unsigned(date.month())),
                             int(unsigned(date.day())), int(clock.hours().count()),
                             int(clock.minutes().count()), int(clock.seconds().count()));
    recorded_time_.set_zone_bias(head_.zone.bias);
    recorded_time_.set_daylight_flag(head_.zone.daylight);
    std::array<char, 64> text;
    recorded_time_.print_out(text.data(), static_cast<unsigned>(text.size()));
    recorded_ = text.data();
    recorded_.insert(fraction_at, ".000000000");
    told_second_ = now;
  }
  const auto fraction = static_cast<uint32_t>(head_.time - now * second);
  char* const digits = recorded_.data() + fraction_at + 1;
  *digits = static_cast<char>('0' + fraction / 100'000'000);
  KP_put_four(fraction % 10'000, KP_put_four(fraction / 10'000 % 10'000, digits + 1));
}

bool event_reader::take_own_time(std::string_view& bytes) {
  time_bytes told;
  if (!take(bytes, told)) return false;
  if (!own_bytes_ || std::memcmp(&told, &*own_bytes_, sizeof told) != 0) {
    own_time_ = time_of(told);
    own_bytes_ = told;
  }
  return true;
}

void event_reader::set_header() {
  made_.message_index = head_.message_index;
  made_.entry.ClearAttribs();
  if (made_.event != last_->event) {
    made_.event = nullptr;
    made_.entry.SetEntryID(head_.event);
    made_.event = last_->event;
  }
  made_.entry.SetLogLevel(head_.level);
  made_.entry._get_imp().set_timestamp(time(), time().is_GMT_time_mode());
}

std::string_view loss_reason(uint32_t kind) {
  static constexpr std::array<std::string_view, ring_loss_kinds> reasons = {
      "", "", "full", "name", "value", "too large", "memory", "closed"};
  return kind < reasons.size() ? reasons[kind] : "";
}

bool event_reader::make_lost(std::string_view bytes) {
  lost_bytes lost{};
  if (!take(bytes, lost)) return false;
  make_lost_entry(made_, lost.count, loss_reason(lost.kind), head_.level);
  return true;
}

event_reader::outcome event_reader::read(std::string_view bytes) {
  if (!take(bytes, head_) || head_.kind > kind_lost) return outcome::damaged;
  tell_time();
  has_own_time_ = head_.kind == kind_own_time;
  if (head_.kind == kind_lost) return make_lost(bytes) ? outcome::made : outcome::damaged;
  const prepared_event* const known = find(head_.event);
  if (known == nullptr || known->fingerprint != head_.fingerprint)
    return outcome::another_definition;
  if (has_own_time_ && !take_own_time(bytes)) return outcome::damaged;
  set_header();
  return add_values(bytes) ? outcome::made : outcome::damaged;
}
