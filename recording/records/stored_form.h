// The stored form of entries: one JSON object a line (docs/records.md).
#ifndef RECORDING_RECORDS_STORED_FORM_H
#define RECORDING_RECORDS_STORED_FORM_H

#include <string>
#include <string_view>

#include "recording/records/entry.h"

class stored_form {
 public:
  explicit stored_form(const std::string& set_version);

  // Appends the entry, without an end of line.
  void append(std::string& line, const sink_entry& entry) const;

  // Raises record_error where the line of the entry, which was made of `record`, would be longer
  // than lines are read again. Few records cost more than a look at their size.
  void require_readable(const sink_entry& entry, std::string_view record) const;

 private:
  size_t most_bytes(const sink_entry& entry, std::string_view record) const;

  std::string start_;  // of every line
};

#endif
