#include "recording/records/service_hello.h"

#include <simdjson.h>

#include <new>
#include <stdexcept>

#include "recording/files/client_numbers.h"
#include "recording/text/json_text.h"

// The members of a line that is an object; false of any other. They live as long as the parser.
// Raises std::bad_alloc: what there was no memory to read is not wrong.
static bool read_members_of_line(std::string_view line, simdjson::dom::parser& parser,
                                 simdjson::dom::object& members) {
  const simdjson::error_code error = parser.parse(line.data(), line.size()).get(members);
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  return error == simdjson::SUCCESS;
}

// --- The first line ---

static std::string_view without_blanks_before(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return text;
}

bool is_hello(std::string_view line) {
  line = without_blanks_before(line);
  return line.starts_with('{') && without_blanks_before(line.substr(1)).starts_with("\"kplog\"");
}

[[noreturn]] static void refuse_hello(const char* text) {
  throw std::invalid_argument(text);
}

static std::string read_client(const simdjson::dom::element& value) {
  const auto name = value.get_string();
  if (name.error() != simdjson::SUCCESS || name.value_unsafe().empty() ||
      name.value_unsafe().size() > client_numbers::longest_name ||
      name.value_unsafe().find('\0') != std::string_view::npos)
    refuse_hello("\"client\" is a text of 1 to 255 bytes, without a NUL");
  return std::string(name.value_unsafe());
}

static bool read_status(const simdjson::dom::element& value) {
  if (!value.is_bool() || !value.get_bool().value_unsafe()) refuse_hello("\"status\" is true");
  return true;
}

static uint64_t read_first(const simdjson::dom::element& value) {
  const auto first = value.get_uint64();
  if (first.error() != simdjson::SUCCESS || first.value_unsafe() == 0 ||
      first.value_unsafe() >= record_number_limit)
    refuse_hello("\"first\" is a whole number from 1 to 4611686018427387903");
  return first.value_unsafe();
}

service_hello read_hello(std::string_view line) {
  static constexpr const char* form =
      "a hello is {\"kplog\":1,\"client\":\"NAME\"}, and may tell \"first\"";
  simdjson::dom::parser parser;
  simdjson::dom::object members;
  if (!read_members_of_line(line, parser, members)) refuse_hello(form);
  service_hello hello;
  bool is_spoken = false;
  for (const auto& [key, value] : members) {
    if (key == "kplog")
      is_spoken = value.is_uint64() && value.get_uint64().value_unsafe() == 1;
    else if (key == "client" && hello.client.empty())
      hello.client = read_client(value);
    else if (key == "first" && !hello.first)
      hello.first = read_first(value);
    else if (key == "status" && !hello.asks_status)
      hello.asks_status = read_status(value);
    else
      refuse_hello(form);
  }
  if (!is_spoken) refuse_hello("this service speaks version 1: {\"kplog\":1,...}");
  const bool is_client = !hello.client.empty();
  if (is_client == hello.asks_status || (hello.first && !is_client)) refuse_hello(form);
  return hello;
}

std::string hello_line(const service_hello& hello) {
  std::string line;
  json_text json(line);
  json.begin_object().key("kplog").number(1);
  if (hello.asks_status)
    json.key("status").written("true");
  else
    json.key("client").text(hello.client);
  if (hello.first) json.key("first").number(*hello.first);
  json.end_object();
  return line;
}

// --- Answers ---

std::string acknowledgement_line(uint64_t number) {
  return "{\"ack\":" + std::to_string(number) + "}\n";
}

std::string refusal_line(uint64_t number, const char* code, const std::string& text) {
  std::string line;
  json_text json(line);
  json.begin_object().key("bad").number(number).key("code").text(code).key("text").text(text);
  json.end_object();
  return line + '\n';
}

std::string error_line(const std::string& text) {
  std::string line;
  json_text json(line);
  json.begin_object().key("error").text(text).end_object();
  return line + '\n';
}

std::string status_line(const std::string& status) {
  std::string line;
  json_text json(line);
  json.begin_object().key("status").written(status).end_object();
  return line + '\n';
}

std::optional<service_answer> read_answer(std::string_view line) {
  simdjson::dom::parser parser;
  simdjson::dom::object members;
  if (!read_members_of_line(line, parser, members)) return std::nullopt;
  service_answer answer;
  uint64_t number = 0;
  std::string_view text;
  if (members["ack"].get(number) == simdjson::SUCCESS) {
    answer.acknowledged = number;
    return answer;
  }
  if (members["error"].get(text) == simdjson::SUCCESS) {
    answer.text = text;
    return answer;
  }
  if (members["bad"].get(number) != simdjson::SUCCESS) return std::nullopt;
  answer.bad = number;
  if (members["code"].get(text) == simdjson::SUCCESS) answer.code = text;
  if (members["text"].get(text) == simdjson::SUCCESS) answer.text = text;
  return answer;
}
