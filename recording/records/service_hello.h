// How a client of a service asks for acknowledgements (docs/service.md).
#ifndef RECORDING_RECORDS_SERVICE_HELLO_H
#define RECORDING_RECORDS_SERVICE_HELLO_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// {"kplog":1,"client":"NAME","first":7}
struct service_hello {
  std::string client = {};  // 1 to 255 bytes
  std::optional<uint64_t> first =
      {};                    // the number of the next line; nothing: the one behind the last
  bool asks_status = false;  // {"kplog":1,"status":true}: that alone, and nothing is sent
};

// Numbers of records are below it.
constexpr uint64_t record_number_limit = uint64_t{1} << 62;

// Whether a client's first line is meant to be one: no record begins like it.
bool is_hello(std::string_view line);
// Raises std::invalid_argument, with what is wrong, and std::bad_alloc.
service_hello read_hello(std::string_view line);
// The line, without its end.
std::string hello_line(const service_hello& hello);

// What a service answers, each a line with its end.
std::string acknowledgement_line(uint64_t number);
std::string refusal_line(uint64_t number, const char* code, const std::string& text);
std::string error_line(const std::string& text);
// Of what the service tells of itself, an object of JSON.
std::string status_line(const std::string& status);

// The same read: one of these three.
struct service_answer {
  std::optional<uint64_t> acknowledged;
  std::optional<uint64_t> bad;
  std::string code, text;  // of a bad record; the text of an error, too
};

// Nothing for what is none of them. Raises std::bad_alloc.
std::optional<service_answer> read_answer(std::string_view line);

#endif
