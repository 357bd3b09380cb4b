// Any bytes as a record. A record that is read must be JSON to another parser as well, with the
// same names and values; a record that is refused as no JSON object must be none to that parser;
// every fault has a place within the line and a text of some length. A line that is read by what it
// looks like must be the same record to the parser.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "recording/records/parser.h"
#include "recording/records/stored_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

using nlohmann::json;

static void require(bool holds) {
  if (!holds) std::abort();
}

static void check_value(const record_value& value, const json& expected) {
  switch (value.kind) {
    case record_value_kind::null:
      return require(expected.is_null());
    case record_value_kind::boolean:
      return require(expected.is_boolean() && expected.dump() == value.text);
    case record_value_kind::text:
      return require(expected.is_string() && expected.get_ref<const std::string&>() == value.text);
    case record_value_kind::integer:
    case record_value_kind::real:
      return require(expected.is_number() &&
                     expected.get<double>() ==
                         std::strtod(std::string(value.text).c_str(), nullptr));
  }
}

// A number beyond those of a double is JSON, but not to the other parser.
static bool has_huge_number(const parsed_record& record) {
  const auto is_huge = [](const record_value& value) {
    return value.kind != record_value_kind::text &&
           std::isinf(std::strtod(std::string(value.text).c_str(), nullptr));
  };
  for (const record_attribute& attribute : record.attributes)
    if (is_huge(attribute.value)) return true;
  const bool is_context_read = record.origin.context.empty() || json::accept(record.origin.context);
  return !is_context_read || is_huge(record.event);
}

static void check_origin(const record_origin& origin, const json& expected) {
  const auto check_text = [&](const char* key, std::string_view text) {
    require(expected.contains(key) == !text.empty());
    if (!text.empty()) require(expected.at(key).get_ref<const std::string&>() == text);
  };
  const auto check_number = [&](const char* key, const std::optional<uint64_t>& number) {
    require(expected.contains(key) == number.has_value());
    if (number.has_value()) require(expected.at(key) == *number);
  };
  check_text("recorded", origin.recorded);
  check_text("host", origin.host);
  check_text("recorder", origin.recorder);
  check_number("pid", origin.pid);
  check_number("thread", origin.thread);
  check_number("sequence", origin.sequence);
  require(expected.contains("context") == !origin.context.empty());
  if (!origin.context.empty()) require(json::parse(origin.context) == expected.at("context"));
}

static void check_record(const parsed_record& record, std::string_view line) {
  if (has_huge_number(record)) return;
  const json expected = json::parse(line, nullptr, false);
  require(expected.is_object());
  check_value(record.event, expected.at("event"));
  if (record.level.has_value()) require(expected.at("level") == *record.level);
  if (record.time.has_value()) check_value(*record.time, expected.at("time"));
  if (record.name.has_value()) check_value(*record.name, expected.at("name"));
  check_origin(record.origin, expected);
  const json attributes = expected.value("attributes", json::object());
  require(attributes.size() == record.attributes.size());
  for (const record_attribute& attribute : record.attributes) {
    require(attribute.offset < line.size() && line[attribute.offset] == '"');
    check_value(attribute.value, attributes.at(std::string(attribute.name)));
  }
}

static void check_fault(const record_error& error, std::string_view line) {
  require(error.offset() <= line.size());
  const std::string_view text = error.text();
  require(!text.empty() && text.size() < 400);
  // The other parser passes over a byte order mark, and ends at a NUL.
  const bool is_read_differently =
      line.substr(0, 3) == "\xEF\xBB\xBF" || line.find('\0') != std::string_view::npos;
  if (error.rule() == "record-syntax"_rule && line.size() <= size_limit_of(line) &&
      !is_read_differently)
    require(!json::parse(line, nullptr, false).is_object());
}

static bool are_same(const record_value& one, const record_value& other) {
  return one.kind == other.kind && one.text == other.text && one.offset == other.offset;
}
static bool are_same(const std::optional<record_value>& one,
                     const std::optional<record_value>& other) {
  return one.has_value() == other.has_value() && (!one || are_same(*one, *other));
}
static bool are_same(const record_attribute& one, const record_attribute& other) {
  return one.name == other.name && one.offset == other.offset && are_same(one.value, other.value);
}
static bool are_same(const record_origin& one, const record_origin& other) {
  return one.recorded == other.recorded && one.host == other.host &&
         one.recorder == other.recorder && one.pid == other.pid && one.thread == other.thread &&
         one.sequence == other.sequence && one.client == other.client &&
         one.number == other.number && one.peer == other.peer && one.context == other.context;
}

static void check_same(const parsed_record& one, const parsed_record& other) {
  require(are_same(one.version, other.version) && are_same(one.event, other.event) &&
          are_same(one.name, other.name) && one.level == other.level &&
          are_same(one.time, other.time) && one.message_index == other.message_index &&
          are_same(one.message, other.message) && are_same(one.origin, other.origin));
  require(one.attributes.size() == other.attributes.size());
  for (size_t i = 0; i < one.attributes.size(); ++i)
    require(are_same(one.attributes[i], other.attributes[i]));
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static record_parser parser;             // that has read whatever came before
  static stored_line_reader stored_lines;  // likewise
  parsed_record stored;
  const std::string line(reinterpret_cast<const char*>(data), size);
  const bool is_stored = stored_lines.read(line, stored);
  try {
    const parsed_record& parsed = parser.parse(line);
    check_record(parsed, line);
    if (is_stored) check_same(stored, parsed);
  } catch (const record_error& error) {
    require(!is_stored);
    check_fault(error, line);
  }
  return 0;
}
