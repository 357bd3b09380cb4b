// The stored form of entries: one JSON object a line (docs/records.md).
#ifndef TOOLS_STORED_FORM_H
#define TOOLS_STORED_FORM_H

#include <string>
#include <string_view>

#include "tools/record_sink.h"

class stored_form {
 public:
  static constexpr std::string_view line_start = "{\"version\":";

  explicit stored_form(const std::string& set_version);

  // Appends the entry, without an end of line.
  void append(std::string& line, const sink_entry& entry) const;

 private:
  std::string start_;  // of every line
};

#endif
