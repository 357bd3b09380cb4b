#include "recording/records/stored_form.h"

#include <array>
#include <charconv>
#include <cmath>

#include "kp_LOG_errors.h"
#include "recording/definitions/model.h"
#include "recording/text/escape.h"

// --- Values ---

template <class Number>
static void append_number(std::string& json, Number number) {
  std::array<char, 32> digits;
  const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  json.append(digits.data(), end);
}

static void append_value(std::string& json, bool value) {
  json += value ? "true" : "false";
}
static void append_value(std::string& json, unsigned value) {
  append_number(json, value);
}
static void append_value(std::string& json, int value) {
  append_number(json, value);
}
static void append_value(std::string& json, unsigned char value) {
  append_number(json, unsigned{value});
}
static void append_value(std::string& json, char value) {
  append_number(json, int{static_cast<signed char>(value)});
}
static void append_value(std::string& json, unsigned short value) {
  append_number(json, unsigned{value});
}
static void append_value(std::string& json, short value) {
  append_number(json, int{value});
}

// Many readers of JSON take -0 for an integer, which has no sign then.
static void append_value(std::string& json, double value) {
  if (const char* const special = special_float_text(value))
    append_json_text(json, special);
  else if (value == 0 && std::signbit(value))
    json += "-0.0";
  else
    append_number(json, value);
}

static void append_value(std::string& json, const char* value) {
  append_json_text(json, value);
}

static void append_value(std::string& json, const kp_Time& value) {
  std::array<char, 64> text;
  value.print_out(text.data(), static_cast<unsigned>(text.size()));
  append_json_text(json, text.data());
}

// --- Attributes ---

// Reads a value of one C++ type by the getter of that type, and appends it; false when the entry
// does not hold the attribute. It holds none of those that the library has forgotten, as it does
// what the STD file says of an event of both files, in large sets.
template <class Value, bool (kp_LOG_LogEntry::*Get)(const char*, Value&) const>
static bool append_held(std::string& json, const kp_LOG_LogEntry& entry, const char* name) {
  Value value{};
  try {
    if (!(entry.*Get)(name, value)) return false;
  } catch (const KPX_logging_invalid_attribute_name&) {
    return false;
  }
  append_value(json, value);
  return true;
}

using append_attribute = bool (*)(std::string&, const kp_LOG_LogEntry&, const char*);

// How values of a type are read; null for a type that entries cannot hold: GUID is a string type
// without an operation that adds one.
static append_attribute reader_of(kp_AttributeType type) {
  using entry = kp_LOG_LogEntry;
  if (type == TypeGUID) return nullptr;
  if (is_string_attribute(type)) return append_held<const char*, &entry::GetAttribStr>;
  if (is_unicode_string_attribute(type)) return append_held<const char*, &entry::GetAttribMBStr>;
  if (is_time_attribute(type)) return append_held<kp_Time, &entry::GetAttribTime>;
  switch (type) {
    case TypeBool:
      return append_held<bool, &entry::GetAttribBool>;
    case TypeUInt1:
      return append_held<unsigned char, &entry::GetAttrib1u>;
    case TypeSInt1:
      return append_held<char, &entry::GetAttrib1>;
    case TypeUInt2:
      return append_held<unsigned short, &entry::GetAttrib2u>;
    case TypeSInt2:
      return append_held<short, &entry::GetAttrib2>;
    case TypeUInt4:
      return append_held<unsigned, &entry::GetAttrib4u>;
    case TypeSInt4:
      return append_held<int, &entry::GetAttrib4>;
    case TypeFloat:
      return append_held<double, &entry::GetAttribFloat8>;
    default:
      return nullptr;
  }
}

// Appends "NAME":VALUE and, to `types`, "NAME":"TYPE", with commas in front, when the attribute is
// held.
static void append_member(std::string& json, std::string& types, const made_entry& made,
                          const known_attribute& attribute) {
  const append_attribute append = reader_of(attribute.type);
  const size_t before = json.size();
  json += ',';
  append_json_text(json, attribute.name);
  const std::string member_name = json.substr(before) + ':';
  json += ':';
  if (append == nullptr || !append(json, made.entry, attribute.name.c_str())) {
    json.resize(before);
    return;
  }
  types += member_name;
  append_json_text(types, short_type_name(attribute.type));
}

static void append_object(std::string& json, const char* key, std::string_view members) {
  json += key;
  json += '{';
  json += members.substr(members.empty() ? 0 : 1);
  json += '}';
}

static void append_attributes(std::string& json, const made_entry& made) {
  std::string members;
  std::string types;
  if (made.event != nullptr)
    for (const known_attribute& attribute : made.event->attributes)
      append_member(members, types, made, attribute);
  append_object(json, ",\"attributes\":", members);
  append_object(json, ",\"types\":", types);
}

// --- The whole ---

stored_form::stored_form(const std::string& set_version) : start_(stored_record_start) {
  append_json_text(start_, set_version);
  start_ += ",\"event\":";
}

void stored_form::append(std::string& line, const sink_entry& entry) const {
  const made_entry& made = entry.made;
  line += start_;
  append_value(line, made.entry.GetEntryID());
  if (made.event != nullptr && !made.event->name.empty()) {
    line += ",\"name\":";
    append_json_text(line, made.event->name);
  }
  line += ",\"level\":";
  append_value(line, made.entry.GetLogLevel());
  line += ",\"time\":";
  append_value(line, entry.time);
  append_attributes(line, made);
  line += ",\"message_index\":";
  append_value(line, made.message_index);
  line += ",\"message\":";
  append_json_text(line, entry.message);
  if (entry.is_message_from_definition) line += ",\"message_from\":\"definition\"";
  line += '}';
}

// Bytes that the line can have at most. An escape is six bytes for one, and names stand there
// twice; what does not come from the record and the message is small.
size_t stored_form::most_bytes(const sink_entry& entry, std::string_view record) const {
  constexpr size_t escape = 6;
  constexpr size_t others = size_t{64} << 10;
  const size_t name = entry.made.event == nullptr ? 0 : entry.made.event->name.size();
  return start_.size() + 2 * escape * record.size() + escape * (entry.message.size() + name) +
         others;
}

void stored_form::require_readable(const sink_entry& entry, std::string_view record) const {
  if (most_bytes(entry, record) <= stored_record_size_limit) return;
  std::string line;
  append(line, entry);
  if (line.size() > stored_record_size_limit)
    throw record_error(
        record_fault::message, record,
        {0, "its stored form would have " + std::to_string(line.size()) + " bytes, and at most " +
                std::to_string(stored_record_size_limit) + " are read again"});
}
