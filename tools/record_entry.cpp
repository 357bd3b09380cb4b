#include "tools/record_entry.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "tools/definition_model.h"
#include "tools/nearest_name.h"
#include "tools/utf8_text.h"

static constexpr unsigned default_level = 3;
static constexpr const char* time_example = "a time such as \"2026-11-15T17:02:56+08:00\"";

[[noreturn]] static void raise(record_fault fault, std::string_view line, size_t offset,
                               const std::string& text) {
  throw record_error(fault, line, {offset, text});
}

// ---- values ----

// A value on its way into an entry.
struct value_step {
  kp_LOG_LogEntry& entry;
  const known_attribute& attribute;
  const record_value& value;
  std::string_view line;
  std::string& room;  // for a text with its NUL

  const char* name() const { return attribute.name.c_str(); }
  const char* type() const { return short_type_name(attribute.type); }

  [[noreturn]] void fail(const std::string& reason) const {
    raise(record_fault::value, line, value.offset, quoted_record_text(attribute.name) + reason);
  }
  [[noreturn]] void fail_unless(const std::string& expected) const {
    fail(std::string(" is a ") + type() + ": " + expected + ", not " + shown_record_value(value));
  }
};

static void add_bool(const value_step& step) {
  if (step.value.kind != record_value_kind::boolean) step.fail_unless("true or false");
  step.entry.AddAttribBool(step.name(), step.value.text == "true");
}

template <class Number>
static Number integer_of(const value_step& step) {
  using limits = std::numeric_limits<Number>;
  const std::string_view text = step.value.text == "-0" ? "0" : step.value.text;
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number);
  if (step.value.kind != record_value_kind::integer || error != std::errc() || behind != end)
    step.fail_unless("a whole number from " + std::to_string(limits::min()) + " to " +
                     std::to_string(limits::max()));
  return number;
}

template <class Number, auto add>
static void add_integer(const value_step& step) {
  (step.entry.*add)(step.name(), integer_of<Number>(step));
}

static void add_signed_byte(const value_step& step) {
  step.entry.AddAttrib1(step.name(), static_cast<char>(integer_of<signed char>(step)));
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

static double special_float_of(const value_step& step) {
  for (const auto& special : special_floats)
    if (step.value.kind == record_value_kind::text && step.value.text == special.text)
      return special.value;
  step.fail_unless("a number, \"NaN\", \"Infinity\" or \"-Infinity\"");
}

static double float_of(const value_step& step) {
  const record_value_kind kind = step.value.kind;
  if (kind != record_value_kind::integer && kind != record_value_kind::real)
    return special_float_of(step);
  const std::string_view text = step.value.text;
  double number = 0;
  const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
  if (error != std::errc() || std::isinf(number))
    step.fail_unless("0 or a number from 4.9e-324 to 1.7976931348623157e308 of either sign");
  return number;
}

static void add_float(const value_step& step) {
  step.entry.AddAttribFloat8(step.name(), float_of(step));
}

// The text with its NUL, in the step's room.
static const char* text_of(const value_step& step, const std::string& expected) {
  if (step.value.kind != record_value_kind::text) step.fail_unless(expected);
  if (step.value.text.find('\0') != std::string_view::npos) step.fail_unless("a text without NUL");
  step.room.assign(step.value.text);
  return step.room.c_str();
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
struct text_unit {
  const char* name;
  kp_AttributeType first;  // the smallest class
  size_t (*count)(std::string_view text);
};

static constexpr text_unit byte_unit = {"bytes", TypeChar32,
                                        [](std::string_view text) { return text.size(); }};
static constexpr text_unit character_unit = {"characters", TypeMBChar32, utf16_length};

template <auto add, const text_unit& unit>
static void add_text(const value_step& step) {
  static constexpr std::array<unsigned, 6> limits = {32, 64, 128, 256, 1024, 2048};
  const unsigned limit = limits[static_cast<size_t>(step.attribute.type - unit.first)];
  text_of(step, "a text");
  if (is_added<add>(step)) return;
  if (has_kept_line_breaks(step.room) && is_added<add>(step)) return;
  throw record_error(record_fault::value, step.line,
                     [&known = step.attribute, value = step.value, limit]() -> record_finding {
                       return {value.offset, quoted_record_text(known.name) + " is a " +
                                                 short_type_name(known.type) +
                                                 ": a text of at most " + std::to_string(limit) +
                                                 " " + unit.name + ", not of " +
                                                 std::to_string(unit.count(value.text))};
                     });
}

// "Z" is the offset 0. The library keeps the offset of this machine beside it, and tells such a
// time in that zone, on another day.
static bool read_time(const char* text, kp_Time& time) {
  if (!time.set_to_string_value(text)) return false;
  if (!time.is_GMT_time_mode()) return true;
  time.set_zone_bias(0);
  time.set_daylight_flag(0);
  return true;
}

static void add_time(const value_step& step) {
  kp_Time time;
  if (!read_time(text_of(step, time_example), time)) step.fail_unless(time_example);
  step.entry.AddAttribTime(step.name(), time);
}

static void refuse_guid(const value_step& step) {
  step.fail(" is a GUID, and entries cannot be given one");
}

// How values of each type are added, by the type's code.
static constexpr auto add_string = add_text<&kp_LOG_LogEntry::AddAttribStr, byte_unit>;
static constexpr auto add_mbstring = add_text<&kp_LOG_LogEntry::AddAttribMBStr, character_unit>;
static constexpr void (*add_value[])(const value_step&) = {
    nullptr,
    add_bool,
    add_integer<unsigned char, &kp_LOG_LogEntry::AddAttrib1u>,
    add_signed_byte,
    add_integer<unsigned short, &kp_LOG_LogEntry::AddAttrib2u>,
    add_integer<short, &kp_LOG_LogEntry::AddAttrib2>,
    add_integer<unsigned, &kp_LOG_LogEntry::AddAttrib4u>,
    add_integer<int, &kp_LOG_LogEntry::AddAttrib4>,
    add_float,
    add_string,
    add_string,
    add_string,
    add_string,
    add_string,
    add_string,
    add_mbstring,
    add_mbstring,
    add_mbstring,
    add_mbstring,
    add_mbstring,
    add_mbstring,
    add_time,
    add_time,
    add_time,
    refuse_guid,
};
static_assert(std::size(add_value) == TypeGUID + 1);

// ---- events ----

template <class Names, class Of>
static std::string hint_for(std::string_view name, const Names& known, Of name_of) {
  constexpr size_t most = 512;  // more take too long for an error
  if (known.size() > most) return "";
  std::vector<std::string_view> names;
  names.reserve(known.size());
  for (const auto& one : known) names.push_back(name_of(one));
  return nearest_name_hint(name, names);
}

const known_event* find_event(const event_set& events, const record_value& event) {
  if (event.kind == record_value_kind::text) return events.find(event.text);
  uint32_t id = 0;
  const char* const end = event.text.data() + event.text.size();
  const auto [behind, error] = std::from_chars(event.text.data(), end, id);
  return error == std::errc() && behind == end ? events.find(id) : nullptr;
}

static std::string no_event_text(const event_set& events, const record_value& event) {
  std::string text = "no event " + shown_record_value(event);
  if (event.kind != record_value_kind::text) return text;
  if (events.is_ambiguous(event.text))
    return "several events have the name " + quoted_record_text(event.text) + "; give the ID";
  return text + hint_for(event.text, events.events(),
                         [](const known_event& e) { return std::string_view(e.name); });
}

// A name that the definitions know must be the event's.
static void check_name(const event_set& events, const known_event& event, std::string_view line,
                       const record_value& name) {
  const bool is_known = events.find(name.text) != nullptr || events.is_ambiguous(name.text);
  if (is_known && event.name != name.text)
    raise(record_fault::event, line, name.offset,
          "\"name\" is that of another event than " + std::to_string(event.id));
}

const known_event& entry_maker::event_of(const parsed_record& record, std::string_view line) const {
  const known_event* const event = find_event(events_, record.event);
  if (event == nullptr)
    throw record_error(record_fault::event, line,
                       [&events = events_, told = record.event]() -> record_finding {
                         return {told.offset, no_event_text(events, told)};
                       });
  if (record.name.has_value()) check_name(events_, *event, line, *record.name);
  return *event;
}

// ---- entries ----

// Successive records often have one time, and reading it takes as long as adding several values.
void entry_maker::set_time(const parsed_record& record, std::string_view line) {
  _kp_LOG_log_entry_imp& entry = made_.entry._get_imp();
  if (!record.time.has_value()) return entry.set_timestamp(kp_Time(), false);
  const record_value& told = *record.time;
  if (told.text != time_text_ || time_text_.empty()) {
    time_text_.clear();
    text_.assign(told.text);
    if (text_.find('\0') != std::string::npos || !read_time(text_.c_str(), time_))
      raise(record_fault::value, line, told.offset,
            std::string("\"time\" is ") + time_example + ", not " + shown_record_value(told));
    time_text_ = text_;
  }
  entry.set_timestamp(time_, time_.is_GMT_time_mode());
}

void entry_maker::add(const record_attribute& attribute, std::string_view line) {
  const known_event& event = *made_.event;
  const known_attribute* const known = event.find(attribute.name);
  if (known == nullptr)
    throw record_error(
        record_fault::attribute, line,
        [&event, name = attribute.name, offset = attribute.offset]() -> record_finding {
          return {offset, "the event " + std::to_string(event.id) + " has no attribute " +
                              quoted_record_text(name) +
                              hint_for(name, event.attributes, [](const known_attribute& a) {
                                return std::string_view(a.name);
                              })};
        });
  const value_step step{made_.entry, *known, attribute.value, line, text_};
  if (known->type < TypeBool || known->type > TypeGUID) step.fail(" is of no type that there is");
  try {
    add_value[known->type](step);
  } catch (const KPX_logging_all& error) {
    step.fail(std::string(": ") + error.what());
  }
}

const made_entry& entry_maker::make(const parsed_record& record, std::string_view line) {
  made_.event = &event_of(record, line);
  made_.message_index = record.message_index;
  made_.entry.ClearAttribs();
  try {
    made_.entry.SetEntryID(made_.event->id);
    made_.entry.SetLogLevel(record.level.value_or(default_level));
    set_time(record, line);
  } catch (const KPX_logging_all& error) {
    raise(record_fault::event, line, record.event.offset, error.what());
  }
  for (const record_attribute& attribute : record.attributes) add(attribute, line);
  return made_;
}

// A catalog has no message without an ID, either.
static entry_text rendered(const made_entry& made) {
  try {
    return {kp_LOG_RenderMessage(made.entry, false, made.message_index)};
  } catch (const KPX_logging_missing_resource&) {
  } catch (const KPX_logging_invalid_definition&) {
  }
  return {kp_LOG_RenderDefinitionMessage(made.entry, false, made.message_index), true};
}

entry_text entry_message(const made_entry& made) {
  try {
    return rendered(made);
  } catch (const KPX_logging_all& error) {
    throw record_error(record_fault::message, "", {0, error.what()});
  }
}
