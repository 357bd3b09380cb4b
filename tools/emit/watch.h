// The metrics file of a run: what the run tells of itself, for monitoring to read.
#ifndef TOOLS_EMIT_WATCH_H
#define TOOLS_EMIT_WATCH_H

#include <chrono>
#include <functional>
#include <string>

#include "tools/emit/run_report.h"

class metrics_file {
 public:
  using clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds interval = std::chrono::seconds(1);

  // Writes it at once. Without a path nothing is written, here and below. Raises file_error.
  metrics_file(std::string path, std::function<std::string()> text, emit_report& report);

  // Something may have changed: written, if it was not within a second; else patience tells when
  // to look again. What cannot be written is told once, and tried again.
  void look(clock::time_point now = clock::now());
  // How long nothing has to be looked at; negative: as long as nothing happens.
  std::chrono::milliseconds patience(clock::time_point now = clock::now()) const;
  // Writes what the run has come to.
  void end();

 private:
  void write(clock::time_point now);

  std::string path_;
  std::function<std::string()> text_;
  emit_report& report_;
  std::string written_;     // what the file says
  clock::time_point next_;  // not before that
  bool is_due_ = false;     // then
  std::string trouble_;     // that was told; empty: none
};

#endif
