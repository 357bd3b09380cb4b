#include "recording/records/parser.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <utility>

#include "logging/logentry_i.h"
#include "recording/records/context.h"
#include "recording/records/scalar.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

namespace ondemand = simdjson::ondemand;

// ---- faults ----

size_t size_limit_of(std::string_view line) {
  return line.starts_with(stored_record_start) ? stored_record_size_limit : record_size_limit;
}

struct record_error::state {
  record_finding found;
  finder find;  // empty: it is found
};

record_error::record_error(diagnostic_rule rule, record_finding found)
    : rule_(rule), state_(std::make_shared<state>()) {
  state_->found = std::move(found);
}

record_error::record_error(diagnostic_rule rule, const finder& find)
    : rule_(rule), state_(std::make_shared<state>()) {
  state_->find = find;
}

const record_finding& record_error::finding() const {
  if (state_->find) state_->found = std::exchange(state_->find, nullptr)();
  return state_->found;
}

bool record_error::is_found() const {
  return !state_->find;
}

const char* record_error::what() const noexcept {
  return rule_->code;
}

// ---- places and shown texts ----

std::string shown_record_value(const record_value& value) {
  return value.kind == record_value_kind::text ? in_quotes(shortened(value.text))
                                               : shortened(value.text);
}

// ---- what is no record at all ----

// The part of the parser's text that tells the fault: without its own name for it, the place,
// and the token, which may be long.
static std::string reason_in(std::string_view text) {
  const size_t column = text.find(": ", text.find("column"));
  if (column != std::string_view::npos) text.remove_prefix(column + 2);
  const size_t token = text.find("; last read: '");
  if (token == std::string_view::npos) return std::string(text);
  const size_t expected = text.rfind("'; expected ");
  constexpr size_t most = 80;  // the token may hold the same words
  const bool says_expected =
      expected != std::string_view::npos && expected > token && text.size() - expected <= most;
  return std::string(text.substr(0, token)) +
         std::string(says_expected ? text.substr(expected + 1) : std::string_view());
}

static std::string reason_of(const nlohmann::json::exception& error) {
  constexpr int number_overflow = 406;  // the parser's own number for it
  if (error.id == number_overflow) return "a number beyond those of a Float";
  const std::string reason = reason_in(error.what());
  return reason.ends_with("expected end of input") ? "text behind the record" : reason;
}

// Takes every value and keeps none; remembers the first fault.
class syntax_finder : public nlohmann::json_sax<nlohmann::json> {
 public:
  size_t offset = 0;   // of the fault
  std::string reason;  // empty: there is none

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(size_t position, const std::string&,
                   const nlohmann::json::exception& error) override {
    offset = position == 0 ? 0 : position - 1;
    reason = reason_of(error);
    return false;
  }
};

// What keeps the line from being a record at all, with the exact place.
static record_finding first_syntax_fault(std::string_view line) {
  const size_t invalid = utf8_first_invalid(line);
  if (invalid != std::string_view::npos)
    return {invalid, "a record is UTF-8, and the byte " +
                         hexadecimal(static_cast<unsigned char>(line[invalid]), 2) + " is not"};
  const size_t first = line.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {0, "a record is an object, not an empty line"};
  syntax_finder finder;
  nlohmann::json::sax_parse(line, &finder);
  // The parser takes a NUL for the line's end.
  const size_t nul = line.find('\0');
  if (nul != std::string_view::npos && (finder.reason.empty() || finder.offset >= nul))
    return {nul, "a NUL, which a record cannot hold"};
  if (!finder.reason.empty()) return {finder.offset, finder.reason};
  return {first, "a record is one JSON object"};
}

// Why a line could not be read as a JSON object.
static record_error record_syntax_error(std::string_view line) {
  return record_error("record-syntax"_rule, [line] { return first_syntax_fault(line); });
}

// ---- the record ----

// Reads the keys of one record.
class record_reader {
 public:
  // `buffer` holds the bytes of `line`, in which places are told; `context` is room for that.
  record_reader(std::string_view line, const char* buffer, parsed_record& record,
                line_writer& context)
      : line_(line), buffer_(buffer), record_(record), context_(context) {}

  void read(ondemand::document& document) {
    if (document.type() != ondemand::json_type::object) raise_syntax();
    for (ondemand::field field : document.get_object()) read_field(field);
    const char* behind = nullptr;
    if (document.current_location().get(behind) == simdjson::SUCCESS)
      raise("record-syntax"_rule, offset_of(behind), "text behind the record");
    if ((seen_ & bit_of(key_of("event"))) == 0)
      raise("record-key"_rule, line_.find('{'), "the record has no \"event\"");
  }

  [[noreturn]] void raise_syntax() const { throw record_syntax_error(line_); }

 private:
  // The keys of a record and, of its stored form, those that follow from the definitions.
  struct key_row {
    std::string_view name;
    void (record_reader::*read)(ondemand::value);
  };
  static const std::array<key_row, 20> keys;

  static size_t key_of(std::string_view name) {
    return static_cast<size_t>(
        std::find_if(keys.begin(), keys.end(), [&](const auto& k) { return k.name == name; }) -
        keys.begin());
  }
  static unsigned bit_of(size_t key) { return 1U << key; }

  [[noreturn]] void raise(diagnostic_rule rule, size_t offset, const std::string& text) const {
    throw record_error(rule, {offset, text});
  }
  [[noreturn]] void raise_wrong(const char* expected, const record_value& found) const {
    raise("record-key"_rule, found.offset,
          std::string(expected) + ", not " + shown_record_value(found));
  }

  size_t offset_of(const char* at) const { return static_cast<size_t>(at - buffer_); }
  size_t offset_of(ondemand::field& field) const { return offset_of(field.key().raw() - 1); }

  void read_field(ondemand::field& field) {
    const size_t offset = offset_of(field);
    const std::string_view name = field.unescaped_key();
    const size_t key = key_of(name);
    if (key == keys.size()) raise_unknown_key(name, offset);
    if ((seen_ & bit_of(key)) != 0)
      raise("record-key"_rule, offset, "the key " + in_quotes(shortened(name)) + " comes twice");
    seen_ |= bit_of(key);
    (this->*keys[key].read)(field.value());
  }

  [[noreturn]] void raise_unknown_key(std::string_view name, size_t offset) const {
    throw record_error("record-key"_rule, [name, offset]() -> record_finding {
      std::vector<std::string_view> names;
      names.reserve(keys.size());
      for (const key_row& row : keys) names.push_back(row.name);
      return {offset, "unknown key " + in_quotes(shortened(name)) + nearest_name_hint(name, names)};
    });
  }

  // A scalar; `expected` says what stands here, for an object or an array.
  record_value scalar(ondemand::value value, const char* expected) {
    const std::string_view token = without_blanks_behind(value.raw_json_token());
    const size_t offset = offset_of(token.data());
    if (token.empty()) raise_syntax();
    if (token.front() == '"') return {record_value_kind::text, value.get_string(), offset};
    if (token.front() == '{' || token.front() == '[')
      raise("record-key"_rule, offset,
            std::string(expected) + ", not an " + (token.front() == '{' ? "object" : "array"));
    const std::optional<record_value_kind> kind = scalar_kind(token);
    if (!kind.has_value()) raise_syntax();
    return {*kind, token, offset};
  }

  record_value text(ondemand::value value, const char* expected) {
    const record_value found = scalar(value, expected);
    if (found.kind != record_value_kind::text) raise_wrong(expected, found);
    return found;
  }

  template <class Number>
  Number number(ondemand::value value, Number most, const char* expected) {
    const record_value found = scalar(value, expected);
    const auto result = number_of<Number>(found.text);
    if (found.kind != record_value_kind::integer || !result || *result > most)
      raise_wrong(expected, found);
    return *result;
  }

  ondemand::object object(ondemand::value value, const char* expected) {
    if (value.type() != ondemand::json_type::object) raise_wrong(expected, scalar(value, expected));
    return value.get_object();
  }

  void read_event(ondemand::value value) {
    constexpr const char* expected = "\"event\" is a name or an ID";
    record_.event = scalar(value, expected);
    if (record_.event.kind != record_value_kind::text &&
        record_.event.kind != record_value_kind::integer)
      raise_wrong(expected, record_.event);
  }

  void read_name(ondemand::value value) { record_.name = text(value, "\"name\" is a text"); }

  void read_level(ondemand::value value) {
    static_assert(LOG_LEVEL_HIGH == 9);
    record_.level =
        number<unsigned>(value, LOG_LEVEL_HIGH, "\"level\" is a whole number from 0 to 9");
  }

  void read_time(ondemand::value value) { record_.time = text(value, "\"time\" is a text"); }

  void read_message_index(ondemand::value value) {
    record_.message_index =
        number(value, UINT32_MAX, "\"message_index\" is a whole number from 0 to 4294967295");
  }

  void read_version(ondemand::value value) {
    record_.version = text(value, "\"version\" is a text");
  }
  void read_message(ondemand::value value) {
    record_.message = text(value, "\"message\" is a text");
  }
  void read_message_from(ondemand::value value) { text(value, "\"message_from\" is a text"); }

  void read_recorded(ondemand::value value) {
    const std::string expected = std::string("\"recorded\" is ") + record_origin_time_example;
    const record_value found = text(value, expected.c_str());
    if (!is_record_origin_time(found.text))
      raise("record-value"_rule, found.offset, expected + ", not " + shown_record_value(found));
    record_.origin.recorded = found.text;
  }

  // An empty one would tell nothing.
  std::string_view text_of_origin(ondemand::value value, const char* expected) {
    const record_value found = text(value, expected);
    if (found.text.empty()) raise_wrong(expected, found);
    return found.text;
  }

  void read_host(ondemand::value value) {
    record_.origin.host = text_of_origin(value, "\"host\" is a text of at least one character");
  }
  void read_recorder(ondemand::value value) {
    record_.origin.recorder =
        text_of_origin(value, "\"recorder\" is a text of at least one character");
  }

  void read_pid(ondemand::value value) {
    record_.origin.pid =
        number(value, UINT64_MAX, "\"pid\" is a whole number from 0 to 18446744073709551615");
  }
  void read_thread(ondemand::value value) {
    record_.origin.thread =
        number(value, UINT64_MAX, "\"thread\" is a whole number from 0 to 18446744073709551615");
  }
  void read_sequence(ondemand::value value) {
    record_.origin.sequence =
        number(value, UINT64_MAX, "\"sequence\" is a whole number from 0 to 18446744073709551615");
  }

  void read_client(ondemand::value value) {
    record_.origin.client = text_of_origin(value, "\"client\" is a text of at least one character");
  }
  void read_number(ondemand::value value) {
    record_.origin.number =
        number(value, UINT64_MAX, "\"number\" is a whole number from 0 to 18446744073709551615");
  }

  void read_peer(ondemand::value value) {
    constexpr const char* expected = "\"peer\" is an object of a \"user\" and a \"process\"";
    const size_t offset = offset_of(std::string_view(value.raw_json_token()).data());
    std::optional<uint64_t> user, process;
    for (ondemand::field field : object(value, expected)) {
      const std::string_view name = field.unescaped_key();
      std::optional<uint64_t>& told = name == "user" ? user : process;
      if ((name != "user" && name != "process") || told) raise("record-key"_rule, offset, expected);
      told = number(field.value(), UINT64_MAX, expected);
    }
    if (!user || !process) raise("record-key"_rule, offset, expected);
    record_.origin.peer = {*user, *process};
  }

  void read_context(ondemand::value value) {
    const std::string_view token = std::string_view(value.raw_json_token());
    const size_t offset = offset_of(token.data());
    const std::string expected = "\"context\" is an object";
    if (token.starts_with('[')) raise("record-context"_rule, offset, expected + ", not an array");
    if (!token.starts_with('{'))
      raise("record-context"_rule, offset,
            expected + ", not " + shown_record_value(scalar(value, expected.c_str())));
    const char* const fault = append_record_context(value.get_object(), context_);
    if (fault != nullptr) raise("record-context"_rule, offset, fault);
    record_.origin.context = context_.text();
  }

  void read_types(ondemand::value value) {
    for (ondemand::field field : object(value, "\"types\" is an object"))
      text(field.value(), "a type is a text");
  }

  void read_attributes(ondemand::value value) {
    for (ondemand::field field : object(value, "\"attributes\" is an object"))
      read_attribute(field);
  }

  void read_attribute(ondemand::field& field) {
    const size_t offset = offset_of(field);
    const std::string_view name = field.unescaped_key();
    std::vector<record_attribute>& held = record_.attributes;
    if (is_held(name))
      raise("record-key"_rule, offset,
            "the attribute " + in_quotes(shortened(name)) + " comes twice");
    if (held.size() == record_attribute_limit)
      raise("record-key"_rule, offset,
            "a record has at most " + std::to_string(record_attribute_limit) + " attributes");
    held.push_back(
        {name, scalar(field.value(), "a value is a text, a number, true or false"), offset});
  }

  // Few names are compared one by one, which takes no memory; more of them are looked up, because
  // they may be as long as the record allows.
  bool is_held(std::string_view name) {
    constexpr size_t few = 16;
    const std::vector<record_attribute>& held = record_.attributes;
    if (held.size() < few)
      return std::any_of(held.begin(), held.end(), [&](const auto& a) { return a.name == name; });
    if (names_.empty())
      for (const record_attribute& attribute : held) names_.insert(attribute.name);
    return !names_.insert(name).second;
  }

  std::string_view line_;
  const char* buffer_;
  parsed_record& record_;
  line_writer& context_;
  std::unordered_set<std::string_view> names_;  // of the attributes, where they are many
  unsigned seen_ = 0;                           // bits of the keys so far
};

const std::array<record_reader::key_row, 20> record_reader::keys = {{
    {"event", &record_reader::read_event},
    {"level", &record_reader::read_level},
    {"time", &record_reader::read_time},
    {"attributes", &record_reader::read_attributes},
    {"message_index", &record_reader::read_message_index},
    {"version", &record_reader::read_version},
    {"name", &record_reader::read_name},
    {"types", &record_reader::read_types},
    {"message", &record_reader::read_message},
    {"message_from", &record_reader::read_message_from},
    {"recorded", &record_reader::read_recorded},
    {"host", &record_reader::read_host},
    {"recorder", &record_reader::read_recorder},
    {"pid", &record_reader::read_pid},
    {"thread", &record_reader::read_thread},
    {"sequence", &record_reader::read_sequence},
    {"client", &record_reader::read_client},
    {"number", &record_reader::read_number},
    {"peer", &record_reader::read_peer},
    {"context", &record_reader::read_context},
}};

struct record_parser::state {
  ondemand::parser parser;
  std::vector<char> buffer;  // the line, and the padding that the parser reads over
  parsed_record record;
  line_writer context;  // of the record
  std::optional<record_error> error;
};

record_parser::record_parser() : state_(std::make_unique<state>()) {}
record_parser::~record_parser() = default;

// Copies the line into the buffer, with zeros behind it.
static void fill(std::vector<char>& buffer, std::string_view line) {
  const size_t needed = line.size() + simdjson::SIMDJSON_PADDING;
  if (buffer.size() < needed) buffer.resize(needed);
  std::copy(line.begin(), line.end(), buffer.begin());
  std::memset(buffer.data() + line.size(), 0, simdjson::SIMDJSON_PADDING);
}

static void clear(parsed_record& record) {
  record.event = {};
  record.name.reset();
  record.level.reset();
  record.time.reset();
  record.attributes.clear();
  record.message_index = 0;
  record.version.reset();
  record.message.reset();
  record.origin = {};
}

const parsed_record& record_parser::parse(std::string_view line) {
  if (try_parse(line) == nullptr) throw record_error(error());
  return state_->record;
}

const record_error& record_parser::error() const {
  return *state_->error;
}

parsed_record* record_parser::try_parse(std::string_view line) {
  try {
    read(line);
    return &state_->record;
  } catch (const record_error& error) {
    state_->error = error;
  } catch (const simdjson::simdjson_error& error) {
    if (error.error() == simdjson::MEMALLOC) throw std::bad_alloc();
    state_->error = record_syntax_error(line);
  }
  return nullptr;
}

void record_parser::read(std::string_view line) {
  const size_t limit = size_limit_of(line);
  if (line.size() > limit)
    throw record_error("record-syntax"_rule,
                       {limit, "a record has at most " + std::to_string(limit) +
                                   " bytes, and this has " + std::to_string(line.size())});
  fill(state_->buffer, line);
  clear(state_->record);
  state_->context.clear();
  record_reader reader(line, state_->buffer.data(), state_->record, state_->context);
  ondemand::document document = state_->parser.iterate(
      simdjson::padded_string_view(state_->buffer.data(), line.size(), state_->buffer.size()));
  reader.read(document);
}
