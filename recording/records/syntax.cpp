#include "recording/records/syntax.h"

#include <nlohmann/json.hpp>

#include "recording/records/parser.h"
#include "recording/text/terminal_text.h"
#include "recording/text/utf8.h"

void require_record_size(std::string_view line) {
  const size_t limit = size_limit_of(line);
  if (line.size() > limit)
    throw record_error(record_fault::syntax, line,
                       {limit, "a record has at most " + std::to_string(limit) +
                                   " bytes, and this has " + std::to_string(line.size())});
}

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

record_error record_syntax_error(std::string_view line) {
  return record_error(record_fault::syntax, line, [line] { return first_syntax_fault(line); });
}
