#include "engines/nats/json.h"

#include <simdjson.h>

#include "engines/nats/subject.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"

void write_any_text(json_text& json, std::string_view key, std::string_view text) {
  if (utf8_first_invalid(text) == std::string_view::npos) {
    json.key(key).text(text);
    return;
  }
  std::string bytes;
  for (const char c : text) bytes += '%' + hexadecimal(static_cast<unsigned char>(c), 2);
  json.key(std::string(key) + '%').text(bytes);
}

struct nats_json::parsed {
  simdjson::dom::parser parser;
  simdjson::dom::object object;
  bool is_object = false;

  template <class Value>
  std::optional<Value> member(std::string_view key) const {
    Value value{};
    if (!is_object || object[key].get(value) != simdjson::SUCCESS) return std::nullopt;
    return value;
  }
};

nats_json::nats_json(std::string_view json) : parsed_(std::make_unique<parsed>()) {
  const auto error = parsed_->parser.parse(json.data(), json.size()).get(parsed_->object);
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  parsed_->is_object = error == simdjson::SUCCESS;
}

nats_json::~nats_json() = default;

std::optional<std::string> nats_json::text(std::string_view key) const {
  const auto value = parsed_->member<std::string_view>(key);
  return value ? std::optional<std::string>(*value) : std::nullopt;
}

std::optional<std::string> nats_json::any_text(std::string_view key) const {
  if (auto value = text(key)) return value;
  std::optional<std::string> bytes = text(std::string(key) + '%');
  return bytes ? nats_token_text(*bytes) : std::nullopt;
}

std::optional<uint64_t> nats_json::number(std::string_view key) const {
  return parsed_->member<uint64_t>(key);
}

std::optional<int64_t> nats_json::signed_number(std::string_view key) const {
  return parsed_->member<int64_t>(key);
}

std::optional<uint64_t> nats_json::digest(std::string_view key) const {
  const auto value = parsed_->member<std::string_view>(key);
  return value ? number_of<uint64_t>(*value, 16) : std::nullopt;
}

bool nats_json::is_true(std::string_view key) const {
  return parsed_->member<bool>(key).value_or(false);
}

std::optional<std::string> nats_json::text(std::string_view key, std::string_view inner) const {
  const auto object = parsed_->member<simdjson::dom::object>(key);
  std::string_view value;
  if (!object || (*object)[inner].get(value) != simdjson::SUCCESS) return std::nullopt;
  return std::string(value);
}

std::optional<uint64_t> nats_json::number(std::string_view key, std::string_view inner) const {
  const auto object = parsed_->member<simdjson::dom::object>(key);
  uint64_t value = 0;
  if (!object || (*object)[inner].get(value) != simdjson::SUCCESS) return std::nullopt;
  return value;
}
