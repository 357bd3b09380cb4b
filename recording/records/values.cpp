#include "recording/records/values.h"

#include <array>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>

#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/types.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

void value_step::fail(const std::string& reason) const {
  fault = record_error("record-value"_rule,
                       record_finding{value.offset, in_quotes(shortened(attribute.name)) + reason});
}

void value_step::fail_unless(const std::string& expected) const {
  fail(std::string(" is a ") + short_type_name(attribute.type) + ": " + expected + ", not " +
       shown_record_value(value));
}

// ---- into entries ----

static void add_bool(const value_step& step) {
  if (step.value.kind != record_value_kind::boolean) return step.fail_unless("true or false");
  step.entry.AddAttribBool(step.name(), step.value.text == "true");
}

template <class Number>
static std::optional<Number> integer_of(const value_step& step) {
  using limits = std::numeric_limits<Number>;
  const std::string_view text = step.value.text == "-0" ? "0" : step.value.text;
  const std::optional<Number> number = number_of<Number>(text);
  if (step.value.kind == record_value_kind::integer && number) return number;
  step.fail_unless("a whole number from " + std::to_string(limits::min()) + " to " +
                   std::to_string(limits::max()));
  return std::nullopt;
}

template <class Number, auto add>
static void add_integer(const value_step& step) {
  const std::optional<Number> number = integer_of<Number>(step);
  if (number.has_value()) (step.entry.*add)(step.name(), *number);
}

static void add_signed_byte(const value_step& step) {
  const std::optional<signed char> number = integer_of<signed char>(step);
  if (number.has_value()) step.entry.AddAttrib1(step.name(), static_cast<char>(*number));
}

static constexpr struct {
  const char* text;
  double value;
} special_floats[] = {{"NaN", std::numeric_limits<double>::quiet_NaN()},
                      {"Infinity", std::numeric_limits<double>::infinity()},
                      {"-Infinity", -std::numeric_limits<double>::infinity()}};

const char* special_float_text(double value) {
  for (const auto& special : special_floats)
    if (value == special.value || (std::isnan(value) && std::isnan(special.value)))
      return special.text;
  return nullptr;
}

static std::optional<double> special_float_of(const value_step& step) {
  for (const auto& special : special_floats)
    if (step.value.kind == record_value_kind::text && step.value.text == special.text)
      return special.value;
  step.fail_unless("a number, \"NaN\", \"Infinity\" or \"-Infinity\"");
  return std::nullopt;
}

static std::optional<double> float_of(const value_step& step) {
  const record_value_kind kind = step.value.kind;
  if (kind != record_value_kind::integer && kind != record_value_kind::real)
    return special_float_of(step);
  const std::optional<double> number = number_of<double>(step.value.text);
  if (number && !std::isinf(*number)) return number;
  step.fail_unless("0 or a number from 4.9e-324 to 1.7976931348623157e308 of either sign");
  return std::nullopt;
}

static void add_float(const value_step& step) {
  const std::optional<double> number = float_of(step);
  if (number.has_value()) step.entry.AddAttribFloat8(step.name(), *number);
}

// Puts the text with its NUL into the step's room.
static bool take_text(const value_step& step, const char* expected) {
  const bool is_text = step.value.kind == record_value_kind::text;
  if (is_text && step.value.text.find('\0') == std::string_view::npos) {
    step.room.assign(step.value.text);
    return true;
  }
  step.fail_unless(is_text ? "a text without NUL" : expected);
  return false;
}

// The library keeps line breaks as the two characters \n and \r, and measures a text before it
// writes them so. A text that is too long with them may be one that it kept: that is measured as
// what it was, by the library's own rule, in one pass.
static bool has_kept_line_breaks(std::string& text) {
  std::string measured(text.size(), '\0');
  _kp_LOG_log_entry_imp::filter_string(text.c_str(), measured.data(),
                                       static_cast<int>(text.size() + 1), false);
  measured.resize(std::strlen(measured.c_str()));
  const bool had_some = measured.size() != text.size();
  text = std::move(measured);
  return had_some;
}

template <auto add>
static bool is_added(const value_step& step) {
  try {
    (step.entry.*add)(step.name(), step.room.c_str());
    return true;
  } catch (const KPX_logging_invalid_attribute_value&) {
    return false;
  }
}

// What a size class counts.
static size_t units_of(std::string_view text, text_unit unit) {
  return unit == text_unit::byte ? text.size() : utf16_length(text);
}

static void refuse_longer_text(const value_step& step) {
  step.fault = record_error(
      "record-value"_rule, [&known = step.attribute, value = step.value]() -> record_finding {
        const attribute_type& type = *find_type(known.type);
        return {value.offset, in_quotes(shortened(known.name)) + " is a " +
                                  short_type_name(known.type) + ": a text of at most " +
                                  std::to_string(type.longest) +
                                  (type.unit == text_unit::byte ? " bytes" : " characters") +
                                  ", not of " + std::to_string(units_of(value.text, type.unit))};
      });
}

template <auto add>
static void add_text(const value_step& step) {
  if (!take_text(step, "a text") || is_added<add>(step)) return;
  if (has_kept_line_breaks(step.room) && is_added<add>(step)) return;
  refuse_longer_text(step);
}

// The library keeps the offset of this machine beside a "Z", and tells such a time in that zone, on
// another day.
bool read_record_time(const char* text, kp_Time& time) {
  if (!time.set_to_string_value(text)) return false;
  if (!time.is_GMT_time_mode()) return true;
  time.set_zone_bias(0);
  time.set_daylight_flag(0);
  return true;
}

std::string take_second_fraction(std::string& time) {
  constexpr size_t behind_second = sizeof "2026-11-15T17:02:56" - 1;
  constexpr size_t most = sizeof ".123456789" - 1;
  if (time.size() <= behind_second || time[behind_second] != '.') return "";
  const size_t end = time.find_first_not_of("0123456789", behind_second + 1);
  const size_t size = std::min(end, time.size()) - behind_second;
  if (size == 1 || size > most) return "";
  std::string fraction = time.substr(behind_second, size);
  time.erase(behind_second, size);
  return fraction;
}

// Whether the time may stand there. A stored record of an entry that was given such an attribute
// has its own time there.
static bool is_own_time(const value_step& step, const kp_Time& time) {
  return step.attribute.name != own_time_attribute ||
         time.compare_time(step.entry.GetAttribTime(step.name())) == 0;
}

static void add_time(const value_step& step) {
  kp_Time time;
  if (!take_text(step, record_time_example)) return;
  if (!read_record_time(step.room.c_str(), time)) return step.fail_unless(record_time_example);
  if (!is_own_time(step, time))
    return step.fail(" is the entry's own time: give it as \"time\", here it is another");
  step.entry.AddAttribTime(step.name(), time);
}

static void refuse_guid(const value_step& step) {
  step.fail(" is a GUID, and entries cannot be given one");
}

// ---- out of entries ----

static void append_value(line_writer& line, bool value) {
  if (value)
    line.append("true");
  else
    line.append("false");
}

template <std::integral Number>
static void append_value(line_writer& line, Number value) {
  line.append_number(value);
}
static void append_value(line_writer& line, char value) {
  line.append_number(static_cast<signed char>(value));
}

// Many readers of JSON take -0 for an integer, which has no sign then.
static void append_value(line_writer& line, double value) {
  if (!std::isfinite(value))
    append_json_text(line, special_float_text(value));
  else if (value == 0 && std::signbit(value))
    line.append("-0.0");
  else
    line.append_number(value);
}

template <class Text>
requires std::same_as<Text, kp_String> || std::same_as<Text, _kp_LOG_ustring>
static void append_value(line_writer& line, const Text& value) {
  append_json_text(line, {value.c_str(), value.length()});
}

static void append_value(line_writer& line, const kp_Time& value) {
  std::array<char, 64> text;
  value.print_out(text.data(), static_cast<unsigned>(text.size()));
  append_json_text(line, text.data());
}

// A value is read as what its type code says that it is.
template <class Value>
static void append_held(line_writer& line, const _kp_LOG_type_base& held) {
  append_value(line, static_cast<const _kp_LOG_value_holder<Value>&>(held).value);
}

// ---- by type ----

// How values of a type go both ways.
struct value_ways {
  void (*add)(const value_step&);
  value_writer* append;  // null: none is ever held
};

template <class Number, void (kp_LOG_LogEntry::*Add)(const char*, Number)>
static constexpr value_ways integer_ways = {add_integer<Number, Add>, append_held<Number>};

static constexpr value_ways string_ways = {add_text<&kp_LOG_LogEntry::AddAttribStr>,
                                           append_held<kp_String>};
static constexpr value_ways mbstring_ways = {add_text<&kp_LOG_LogEntry::AddAttribMBStr>,
                                             append_held<_kp_LOG_ustring>};
static constexpr value_ways time_ways = {add_time, append_held<kp_Time>};

struct value_row {
  kp_AttributeType code;
  value_ways ways;
};

static constexpr value_row value_rows[] = {
    {TypeBool, {add_bool, append_held<bool>}},
    {TypeUInt1, integer_ways<unsigned char, &kp_LOG_LogEntry::AddAttrib1u>},
    {TypeSInt1, {add_signed_byte, append_held<char>}},
    {TypeUInt2, integer_ways<unsigned short, &kp_LOG_LogEntry::AddAttrib2u>},
    {TypeSInt2, integer_ways<short, &kp_LOG_LogEntry::AddAttrib2>},
    {TypeUInt4, integer_ways<unsigned, &kp_LOG_LogEntry::AddAttrib4u>},
    {TypeSInt4, integer_ways<int, &kp_LOG_LogEntry::AddAttrib4>},
    {TypeFloat, {add_float, append_held<double>}},
    {TypeChar32, string_ways},
    {TypeChar64, string_ways},
    {TypeChar128, string_ways},
    {TypeChar256, string_ways},
    {TypeChar1K, string_ways},
    {TypeChar2K, string_ways},
    {TypeMBChar32, mbstring_ways},
    {TypeMBChar64, mbstring_ways},
    {TypeMBChar128, mbstring_ways},
    {TypeMBChar256, mbstring_ways},
    {TypeMBChar1K, mbstring_ways},
    {TypeMBChar2K, mbstring_ways},
    {TypeDate, time_ways},
    {TypeTime, time_ways},
    {TypeTimestamp, time_ways},
    {TypeGUID, {refuse_guid, nullptr}},  // a string type without an operation that adds one
};
static_assert(has_each_type(value_rows));

void add_value(const value_step& step) {
  if (const value_row* const row = row_of_type(value_rows, step.attribute.type))
    row->ways.add(step);
  else
    step.fail(" is of no type that there is");
}

void set_lost_value(const value_step& step, lost_events& lost) {
  if (step.attribute.name == lost_count_attribute) {
    lost.count = integer_of<uint32_t>(step).value_or(0);
    return;
  }
  if (!take_text(step, "a text")) return;
  const attribute_type& type = *find_type(step.attribute.type);
  if (units_of(step.room, type.unit) > type.longest) return refuse_longer_text(step);
  lost.reason = step.room;
}

value_writer* value_writer_of(unsigned char type) {
  const value_row* const row = row_of_type(value_rows, type);
  return row != nullptr ? row->ways.append : nullptr;
}
