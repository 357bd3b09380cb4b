// An event set from definition files made for a test, and records read and made against it.
#ifndef TESTS_RECORDING_RECORDS_RECORD_EVENTS_H
#define TESTS_RECORDING_RECORDS_RECORD_EVENTS_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "logging/own_settings.h"
#include "recording/records/entry.h"
#include "recording/text/utf8.h"
#include "tests/support/loaded_definitions.h"

// "KEY COLUMN: text" of a refused record.
inline std::string shown_fault(const record_error& error, std::string_view line) {
  return std::string(error.what()) + " " + std::to_string(utf8_column(line, error.offset())) +
         ": " + error.text();
}

// Puts back the process-wide settings that an event set changes.
class event_set_settings {
 public:
  event_set_settings() : code_page_(kp_LOG_LogConfig::GetCodePage()) {}
  ~event_set_settings() { kp_log_set_default_code_page(nullptr); }

 private:
  settings_guard settings_;
  code_page_setting code_page_;
};

// The events of a standard file and, when it has entries, of another one that adds to it.
class record_events {
 public:
  explicit record_events(const ldf_file& standard, const ldf_file& aux = {}) {
    event_set_options options;
    options.definitions = folder_.write("std.ldf", standard.bytes());
    if (!aux.entries.empty()) options.aux = folder_.write("aux.ldf", aux.bytes());
    events_ = std::make_unique<event_set>(options);
    maker_ = std::make_unique<entry_maker>(*events_);
  }

  const event_set& events() const { return *events_; }

  // Valid until the next record.
  const made_entry& make(const std::string& line) {
    line_ = line;
    return maker_->make(parser_.parse(line_));
  }

  // The fault of a record; "" when it has none.
  std::string fault_in(const std::string& line) {
    try {
      make(line);
    } catch (const record_error& error) {
      return shown_fault(error, line);
    }
    return "";
  }

 private:
  event_set_settings settings_;
  temp_folder folder_;
  std::unique_ptr<event_set> events_;
  std::unique_ptr<entry_maker> maker_;
  record_parser parser_;
  std::string line_;
};

#endif
