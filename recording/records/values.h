// Values of attributes: out of records into entries, and out of entries into the stored form.
#ifndef RECORDING_RECORDS_VALUES_H
#define RECORDING_RECORDS_VALUES_H

#include <optional>
#include <string>
#include <string_view>

#include "kp_LOG_LogEntry.h"
#include "recording/records/event_set.h"
#include "recording/records/lost.h"
#include "recording/records/parser.h"
#include "recording/text/line_writer.h"

class _kp_LOG_type_base;

// A value on its way into an entry. Where it fails, the record's fault is set.
struct value_step {
  kp_LOG_LogEntry& entry;
  const known_attribute& attribute;
  const record_value& value;
  std::string& room;  // for a text with its NUL
  std::optional<record_error>& fault;

  const char* name() const { return attribute.name.c_str(); }

  void fail(const std::string& reason) const;
  // For a value that its type does not hold.
  void fail_unless(const std::string& expected) const;
};

// Adds the value by the operation of its type.
void add_value(const value_step& step);

// Sets what kplog.lost says in the attribute; its entry is given nothing.
void set_lost_value(const value_step& step, lost_events& lost);

// Appends a value of one type, as JSON. Null for a type of which entries hold no values.
using value_writer = void(line_writer& line, const _kp_LOG_type_base& held);
value_writer* value_writer_of(unsigned char type);

// A Float that JSON has no number for, as records write it: "NaN", "Infinity", "-Infinity". Null
// for any other.
const char* special_float_text(double value);

// A time as records have it. The offset of "Z" is 0.
inline constexpr char record_time_example[] = "a time such as \"2026-11-15T17:02:56+08:00\"";
bool read_record_time(const char* text, kp_Time& time);

// Takes a fraction of a second out of such a text, with its dot and up to nine digits; "" where
// there is none.
std::string take_second_fraction(std::string& time);

#endif
