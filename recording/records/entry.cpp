#include "recording/records/entry.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/model.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

static constexpr unsigned default_level = 3;
static constexpr const char* time_example = "a time such as \"2026-11-15T17:02:56+08:00\"";

static record_error fault_at(record_fault fault, std::string_view line, size_t offset,
                             std::string text) {
  return record_error(fault, line, record_finding{offset, std::move(text)});
}

// ---- values ----

// A value on its way into an entry. Where it fails, the record's fault is set.
struct value_step {
  kp_LOG_LogEntry& entry;
  const known_attribute& attribute;
  const record_value& value;
  std::string_view line;
  std::string& room;  // for a text with its NUL
  std::optional<record_error>& fault;

  const char* name() const { return attribute.name.c_str(); }
  const char* type() const { return short_type_name(attribute.type); }

  void fail(const std::string& reason) const {
    fault = fault_at(record_fault::value, line, value.offset,
                     in_quotes(shortened(attribute.name)) + reason);
  }
  void fail_unless(const std::string& expected) const {
    fail(std::string(" is a ") + type() + ": " + expected + ", not " + shown_record_value(value));
  }
};

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
  if (!take_text(step, "a text") || is_added<add>(step)) return;
  if (has_kept_line_breaks(step.room) && is_added<add>(step)) return;
  step.fault = record_error(
      record_fault::value, step.line,
      [&known = step.attribute, value = step.value, limit]() -> record_finding {
        return {value.offset, in_quotes(shortened(known.name)) + " is a " +
                                  short_type_name(known.type) + ": a text of at most " +
                                  std::to_string(limit) + " " + unit.name + ", not of " +
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

// Whether the time may stand there. A stored record of an entry that was given such an attribute
// has its own time there.
static bool is_own_time(const value_step& step, const kp_Time& time) {
  return step.attribute.name != own_time_attribute ||
         time.compare_time(step.entry.GetAttribTime(step.name())) == 0;
}

static void add_time(const value_step& step) {
  kp_Time time;
  if (!take_text(step, time_example)) return;
  if (!read_time(step.room.c_str(), time)) return step.fail_unless(time_example);
  if (!is_own_time(step, time))
    return step.fail(" is the entry's own time: give it as \"time\", here it is another");
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
  const std::optional<uint32_t> id = number_of<uint32_t>(event.text);
  return id ? events.find(*id) : nullptr;
}

static std::string no_event_text(const event_set& events, const record_value& event) {
  std::string text = "no event " + shown_record_value(event);
  if (event.kind != record_value_kind::text) return text;
  if (events.is_ambiguous(event.text))
    return "several events have the name " + in_quotes(shortened(event.text)) + "; give the ID";
  return text + hint_for(event.text, events.events(),
                         [](const known_event& e) { return std::string_view(e.name); });
}

// A name that the definitions know must be the event's.
bool entry_maker::has_own_name(const known_event& event, std::string_view line,
                               const record_value& name) {
  const bool is_known = events_.find(name.text) != nullptr || events_.is_ambiguous(name.text);
  if (!is_known || event.name == name.text) return true;
  error_ = fault_at(record_fault::event, line, name.offset,
                    "\"name\" is that of another event than " + std::to_string(event.id));
  return false;
}

const known_event* entry_maker::event_of(const parsed_record& record, std::string_view line) {
  const known_event* const event = find_event(events_, record.event);
  if (event == nullptr)
    error_ = record_error(record_fault::event, line,
                          [&events = events_, told = record.event]() -> record_finding {
                            return {told.offset, no_event_text(events, told)};
                          });
  else if (record.name.has_value() && !has_own_name(*event, line, *record.name))
    return nullptr;
  return event;
}

// ---- entries ----

// Successive records often have one time, and reading it takes as long as adding several values.
bool entry_maker::set_time(const parsed_record& record, std::string_view line) {
  _kp_LOG_log_entry_imp& entry = made_.entry._get_imp();
  if (!record.time.has_value()) {
    entry.set_timestamp(kp_Time(), false);
    return true;
  }
  const record_value& told = *record.time;
  if (told.text != time_text_ || time_text_.empty()) {
    time_text_.clear();
    text_.assign(told.text);
    if (text_.find('\0') != std::string::npos || !read_time(text_.c_str(), time_)) {
      error_ = fault_at(
          record_fault::value, line, told.offset,
          std::string("\"time\" is ") + time_example + ", not " + shown_record_value(told));
      return false;
    }
    time_text_ = text_;
  }
  entry.set_timestamp(time_, time_.is_GMT_time_mode());
  return true;
}

static record_error unknown_attribute(const known_event& event, const record_attribute& attribute,
                                      std::string_view line) {
  return record_error(
      record_fault::attribute, line,
      [&event, name = attribute.name, offset = attribute.offset]() -> record_finding {
        return {offset, "the event " + std::to_string(event.id) + " has no attribute " +
                            in_quotes(shortened(name)) +
                            hint_for(name, event.attributes, [](const known_attribute& a) {
                              return std::string_view(a.name);
                            })};
      });
}

bool entry_maker::add(const record_attribute& attribute, std::string_view line) {
  const known_event& event = *made_.event;
  const known_attribute* const known = event.find(attribute.name);
  if (known == nullptr) {
    error_ = unknown_attribute(event, attribute, line);
    return false;
  }
  const value_step step{made_.entry, *known, attribute.value, line, text_, error_};
  try {
    if (known->type < TypeBool || known->type > TypeGUID)
      step.fail(" is of no type that there is");
    else
      add_value[known->type](step);
  } catch (const KPX_logging_all& error) {
    step.fail(std::string(": ") + error.what());
  }
  return !error_.has_value();
}

bool entry_maker::set_header(const parsed_record& record, std::string_view line) {
  try {
    made_.entry.SetEntryID(made_.event->id);
    made_.entry.SetLogLevel(record.level.value_or(default_level));
    return set_time(record, line);
  } catch (const KPX_logging_all& error) {
    error_ = fault_at(record_fault::event, line, record.event.offset, error.what());
    return false;
  }
}

const made_entry* entry_maker::try_make(const parsed_record& record, std::string_view line) {
  error_.reset();
  const known_event* const event = event_of(record, line);
  if (event == nullptr) return nullptr;
  made_.event = event;
  made_.message_index = record.message_index;
  made_.entry.ClearAttribs();
  if (!set_header(record, line)) return nullptr;
  for (const record_attribute& attribute : record.attributes)
    if (!add(attribute, line)) return nullptr;
  return &made_;
}

const made_entry& entry_maker::make(const parsed_record& record, std::string_view line) {
  if (try_make(record, line) == nullptr) throw record_error(error());
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
