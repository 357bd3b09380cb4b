// JSON of one object on a line: what is written to JetStream beside records, and read again.
#ifndef ENGINES_NATS_JSON_H
#define ENGINES_NATS_JSON_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "recording/text/json_text.h"

// A member that is a text of any bytes: "KEY":"TEXT"; what is not UTF-8 becomes "KEY%":"%FF".
void write_any_text(json_text& json, std::string_view key, std::string_view text);

// An object that was read. Members that are missing, or of another type, are nothing.
class nats_json {
 public:
  explicit nats_json(std::string_view json);  // what is no object has no members
  ~nats_json();
  nats_json(const nats_json&) = delete;
  nats_json& operator=(const nats_json&) = delete;

  std::optional<std::string> text(std::string_view key) const;
  std::optional<std::string> any_text(std::string_view key) const;  // as write_any_text has it
  std::optional<uint64_t> number(std::string_view key) const;
  std::optional<int64_t> signed_number(std::string_view key) const;
  std::optional<uint64_t> digest(std::string_view key) const;  // 16 hexadecimal digits
  bool is_true(std::string_view key) const;
  // A member of a member.
  std::optional<std::string> text(std::string_view key, std::string_view inner) const;
  std::optional<uint64_t> number(std::string_view key, std::string_view inner) const;

 private:
  struct parsed;

  std::unique_ptr<parsed> parsed_;
};

#endif
