#include "tools/find/comparison.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "kp_LOG_LogEntry.h"
#include "recording/definitions/types.h"
#include "recording/records/lost.h"
#include "recording/records/values.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

// --- Types ---

static comparison_family family_of(kp_AttributeType type) {
  if (type == TypeBool) return comparison_family::boolean;
  if (is_integer_attribute(type)) return comparison_family::integer;
  if (is_float_attribute(type)) return comparison_family::real;
  if (is_time_attribute(type)) return comparison_family::time;
  return comparison_family::text;
}

// The value as a record would have it, were it of the family.
static record_value as_in_record(comparison_family family, const std::string& value) {
  const bool is_bool = value == "true" || value == "false";
  const bool is_integer = number_of<int64_t>(value) || number_of<uint64_t>(value);
  const bool is_real =
      number_of<double>(value).has_value() && value.find_first_of("iInN") == value.npos;
  record_value_kind kind = record_value_kind::text;
  if (family == comparison_family::boolean && is_bool) kind = record_value_kind::boolean;
  if (family == comparison_family::integer && is_integer) kind = record_value_kind::integer;
  if (family == comparison_family::real && is_real) kind = record_value_kind::real;
  return {kind, value, 0};
}

// Why the attribute does not hold the value; "" where it does. What a record may hold is asked of
// those who read them.
static std::string fault_of_number(const known_event& event, const known_attribute& attribute,
                                   const record_value& value) {
  kp_LOG_LogEntry entry;
  if (&event != &lost_event()) entry.SetEntryID(event.id);
  std::string room;
  std::optional<record_error> fault;
  lost_events lost;
  const value_step step{entry, attribute, value, room, fault};
  if (&event == &lost_event())
    set_lost_value(step, lost);
  else
    add_value(step);
  return fault.has_value() ? fault->text() : "";
}

static std::string type_text(const known_attribute& attribute) {
  return in_quotes(attribute.name) + " is a " + short_type_name(attribute.type);
}

static double real_value(std::string_view text) {
  return number_of<double>(text).value_or(0);
}

// --- Comparing ---

template <class Value>
static bool compares(comparison_operator how, const Value& held, const Value& asked) {
  switch (how) {
    case comparison_operator::equal:
      return held == asked;
    case comparison_operator::not_equal:
      return !(held == asked);
    case comparison_operator::less:
      return held < asked;
    case comparison_operator::at_most:
      return held <= asked;
    case comparison_operator::greater:
      return held > asked;
    case comparison_operator::at_least:
      return held >= asked;
    case comparison_operator::found:
      break;
  }
  return false;
}

static bool compares_reals(comparison_operator how, double held, double asked) {
  const bool are_both_none = std::isnan(held) && std::isnan(asked);
  if (are_both_none) return how == comparison_operator::equal;
  return compares(how, held, asked);
}

// Entries keep line breaks as these two characters each.
static std::string with_kept_line_breaks(std::string_view text) {
  std::string kept;
  for (const char c : text) {
    if (c == '\n')
      kept += "\\n";
    else if (c == '\r')
      kept += "\\r";
    else
      kept += c;
  }
  return kept;
}

// --- The comparison ---

attribute_comparison::attribute_comparison(const std::string& text, const event_set& events) {
  condition_reader reader(text);
  name_ = reader.name();
  operator_ = reader.operation();
  try {
    take_values(reader.value(), events);
  } catch (const std::invalid_argument& error) {
    reader.raise(error.what());
  }
}

// Calls `take` with every event that declares the attribute, and what it declares.
template <class Take>
static void for_each_declaration(const event_set& events, const std::string& name, Take take) {
  const auto look = [&](const known_event& event) {
    if (const known_attribute* const found = event.find(name)) take(event, *found);
  };
  for (const known_event& event : events.events()) look(event);
  if (events.find(lost_event().id) == &lost_event()) look(lost_event());
}

[[noreturn]] static void raise_unknown_attribute(const event_set& events, const std::string& name) {
  std::vector<std::string_view> names;
  for (const known_event& event : events.events())
    for (const known_attribute& attribute : event.attributes) names.push_back(attribute.name);
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  throw std::invalid_argument("no event has an attribute " + in_quotes(shortened(name)) +
                              nearest_name_hint(name, names));
}

void attribute_comparison::take_values(const std::string& value, const event_set& events) {
  bool is_declared = false;
  bool is_taken = false;
  std::string fault;  // the first
  for_each_declaration(events, name_, [&](const known_event& event, const known_attribute& found) {
    is_declared = true;
    try {
      take_value(event, found, value);
      is_taken = true;
    } catch (const std::invalid_argument& error) {
      if (fault.empty()) fault = error.what();
    }
  });
  if (!is_declared) raise_unknown_attribute(events, name_);
  if (!is_taken) throw std::invalid_argument(fault);
}

void attribute_comparison::take_value(const known_event& event, const known_attribute& attribute,
                                      const std::string& value) {
  const comparison_family family = family_of(attribute.type);
  if (family == comparison_family::text) {
    text_ = value;
    if (operator_ == comparison_operator::found && !expression_) expression_.emplace(value);
    return;
  }
  if (operator_ == comparison_operator::found)
    throw std::invalid_argument(type_text(attribute) + ", and ~ is for texts");
  if (family == comparison_family::time) {
    kp_Time time;
    if (value.find('\0') != value.npos || !read_record_time(value.c_str(), time))
      throw std::invalid_argument(type_text(attribute) + ": " + record_time_example + ", not " +
                                  in_quotes(shortened(value)));
    time_ = time;
    return;
  }
  const record_value asked = as_in_record(family, value);
  const std::string fault = fault_of_number(event, attribute, asked);
  if (!fault.empty()) throw std::invalid_argument(fault);
  if (family == comparison_family::integer) integer_ = number_of<int64_t>(value);
  if (family == comparison_family::real) real_ = real_value(value);
  if (family != comparison_family::boolean) return;
  if (operator_ != comparison_operator::equal && operator_ != comparison_operator::not_equal)
    throw std::invalid_argument(type_text(attribute) + ", which is compared by = and !=");
  boolean_ = value == "true";
}

comparison_family attribute_comparison::family_of_unknown(const record_value& value) const {
  switch (value.kind) {
    case record_value_kind::null:
      return comparison_family::none;
    case record_value_kind::boolean:
      return comparison_family::boolean;
    case record_value_kind::integer:
      return integer_.has_value() ? comparison_family::integer : comparison_family::real;
    case record_value_kind::real:
      return comparison_family::real;
    case record_value_kind::text:
      break;
  }
  return text_.has_value() ? comparison_family::text : comparison_family::time;
}

// A Float that JSON has no number for, as records tell it.
static bool is_special_float(const record_value& value) {
  const std::optional<double> number = number_of<double>(value.text);
  const char* const told = number ? special_float_text(*number) : nullptr;
  return told != nullptr && value.text == told;
}

// Whether values of the family are written like this.
static bool suits(comparison_family family, const record_value& value) {
  switch (family) {
    case comparison_family::none:
      return false;
    case comparison_family::boolean:
      return value.kind == record_value_kind::boolean;
    case comparison_family::integer:
      return value.kind == record_value_kind::integer;
    case comparison_family::real:
      return value.kind == record_value_kind::integer || value.kind == record_value_kind::real ||
             (value.kind == record_value_kind::text && is_special_float(value));
    case comparison_family::text:
    case comparison_family::time:
      return value.kind == record_value_kind::text;
  }
  return false;
}

bool attribute_comparison::holds_time(const record_value& value) const {
  kp_Time held;
  const std::string text(value.text);
  if (text.find('\0') != text.npos || !read_record_time(text.c_str(), held)) return false;
  return compares(operator_, held.compare_time(*time_), 0);
}

// Of an attribute that holds whole numbers now, a record of another version may have others.
bool attribute_comparison::holds_real(const record_value& value) const {
  if (real_) return compares_reals(operator_, real_value(value.text), *real_);
  return integer_ && compares(operator_, real_value(value.text), static_cast<double>(*integer_));
}

bool attribute_comparison::holds_as(comparison_family family, const record_value& value) const {
  switch (family) {
    case comparison_family::boolean:
      return boolean_.has_value() && compares(operator_, value.text == "true", *boolean_);
    case comparison_family::integer: {
      const auto held = number_of<int64_t>(value.text);
      return held ? integer_.has_value() && compares(operator_, *held, *integer_)
                  : holds_real(value);
    }
    case comparison_family::real:
      return holds_real(value);
    case comparison_family::time:
      return time_.has_value() && holds_time(value);
    case comparison_family::text: {
      if (!text_.has_value()) return false;
      std::string kept;
      std::string_view held = value.text;
      if (held.find_first_of("\n\r") != held.npos) held = kept = with_kept_line_breaks(held);
      return expression_.has_value() ? expression_->is_found_in(held)
                                     : compares(operator_, held, std::string_view(*text_));
    }
    case comparison_family::none:
      break;
  }
  return false;
}

bool attribute_comparison::holds(const parsed_record& record, const known_event* event) const {
  const auto held = std::find_if(record.attributes.begin(), record.attributes.end(),
                                 [this](const auto& a) { return a.name == name_; });
  if (held == record.attributes.end()) return false;
  const known_attribute* const declared = event == nullptr ? nullptr : event->find(name_);
  const comparison_family family =
      declared == nullptr ? comparison_family::none : family_of(declared->type);
  return holds_as(suits(family, held->value) ? family : family_of_unknown(held->value),
                  held->value);
}
