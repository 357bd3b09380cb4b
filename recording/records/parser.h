// Records as text: one JSON object a line (docs/records.md).
#ifndef RECORDING_RECORDS_PARSER_H
#define RECORDING_RECORDS_PARSER_H

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/records/origin.h"
#include "recording/report/rules.h"

// Bytes of a line without its end.
constexpr size_t record_size_limit = size_t{1} << 20;
// The same of a line of the stored form, which says more than the record that it was made of: names
// twice, escapes of six bytes for one, the message.
constexpr size_t stored_record_size_limit = size_t{16} << 20;
constexpr std::string_view stored_record_start = "{\"version\":";

// The limit of the line that begins as `line` does.
size_t size_limit_of(std::string_view line);

// Attributes of a record: as many as an event and the global list can declare.
constexpr size_t record_attribute_limit = 510;

// Where a record's fault is, and what was found there and expected. The text may hold any character
// of the record, but never more than a part of it.
struct record_finding {
  size_t offset = 0;  // bytes of the line before it
  std::string text;
};

// Why a record is refused. Most faults of a flood are counted and never shown, and to find the
// place or a name that was meant takes longer than to read a record: that is done when it is asked
// for. Until then the line must be there, and no other record may be parsed.
class record_error : public std::exception {
 public:
  using finder = std::function<record_finding()>;

  record_error(diagnostic_rule rule, record_finding found);
  record_error(diagnostic_rule rule, const finder& find);

  diagnostic_rule rule() const { return rule_; }  // "record-syntax"_rule and its like
  size_t offset() const { return finding().offset; }
  const std::string& text() const { return finding().text; }
  const record_finding& finding() const;
  // Whether it need not be looked for.
  bool is_found() const;
  const char* what() const noexcept override;  // the code alone

 private:
  struct state;

  diagnostic_rule rule_;
  std::shared_ptr<state> state_;  // errors are copied without failing
};

enum class record_value_kind { null, boolean, integer, real, text };

// A value of a record. What it points to lives until the next record is parsed.
struct record_value {
  record_value_kind kind = record_value_kind::null;
  std::string_view text;  // a text without its quotes and escapes; else the value as it was written
  size_t offset = 0;      // bytes before it in the line
};

struct record_attribute {
  std::string_view name;
  record_value value;
  size_t offset = 0;  // of the name
};

// A record as it was written; nothing has been looked up.
struct parsed_record {
  std::optional<record_value> version;       // a text; only the stored form has it
  record_value event;                        // a text or an integer
  std::optional<record_value> name;          // a text; only the stored form has it
  std::optional<unsigned> level;             // 0 to 9
  std::optional<record_value> time;          // a text
  std::vector<record_attribute> attributes;  // in the order of the record; no name comes twice
  unsigned message_index = 0;
  std::optional<record_value> message;  // a text; only the stored form has it
  record_origin origin;                 // only the stored form has it
};

// Reads records, one after the other. One object is used by one thread at a time. Its memory is
// that of the largest record so far.
class record_parser {
 public:
  record_parser();
  ~record_parser();

  // The line is without its end. What the result points to lives until the next call. Raises
  // record_error.
  const parsed_record& parse(std::string_view line);
  // The same without raising it, which would cost several times what a record does: null, and why
  // in error(). The caller may change what was read.
  parsed_record* try_parse(std::string_view line);
  const record_error& error() const;

 private:
  struct state;
  void read(std::string_view line);

  std::unique_ptr<state> state_;
};

// The value as errors show it: a text in quotes, anything else as written; long ones are cut.
std::string shown_record_value(const record_value& value);

#endif
