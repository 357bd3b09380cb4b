// All that a record was read to say, as one text.
#ifndef TESTS_RECORDING_RECORDS_TOLD_RECORD_H
#define TESTS_RECORDING_RECORDS_TOLD_RECORD_H

#include <optional>
#include <sstream>
#include <string>

#include "recording/records/parser.h"

inline std::string told(const record_value& value) {
  return std::to_string(static_cast<int>(value.kind)) + " '" + std::string(value.text) + "' " +
         std::to_string(value.offset) + "\n";
}
inline std::string told(const std::optional<record_value>& value) {
  return value ? told(*value) : "-\n";
}
template <class Number>
inline std::string told(const std::optional<Number>& number) {
  return number ? std::to_string(*number) + "\n" : "-\n";
}

// All of it.
inline std::string told(const parsed_record& record) {
  std::ostringstream all;
  all << told(record.version) << told(record.event) << told(record.name) << told(record.level)
      << told(record.time) << record.message_index << '\n'
      << told(record.message);
  for (const record_attribute& attribute : record.attributes)
    all << attribute.name << ' ' << attribute.offset << ' ' << told(attribute.value);
  const record_origin& origin = record.origin;
  all << origin.recorded << '\n'
      << origin.host << '\n'
      << origin.recorder << '\n'
      << told(origin.pid) << told(origin.thread) << told(origin.sequence) << origin.client << '\n'
      << told(origin.number) << origin.context << '\n';
  if (origin.peer) all << origin.peer->user << ' ' << origin.peer->process << '\n';
  return all.str();
}

#endif
