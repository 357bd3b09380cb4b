// A run of kplog emit: what the command line asks for, and the run itself.
#ifndef TOOLS_COMMAND_EMIT_RUN_H
#define TOOLS_COMMAND_EMIT_RUN_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/records/event_set.h"
#include "recording/records/service.h"
#include "tools/command/emit_limits.h"
#include "tools/emit/filter.h"
#include "tools/emit/pipeline.h"
#include "tools/report/outcome.h"

inline constexpr std::string_view listen_prefix = "unix:";

struct emit_options {
  std::vector<std::string> records;  // files, "-": standard input; none: that, or the socket alone
  event_set_options events;
  std::string code_page;  // of text; empty: UTF-8
  filter_settings filter;
  // The outputs.
  std::vector<std::string> sinks;
  std::string count;              // DIR/NAME; empty: nothing is counted
  std::string on_error = "skip";  // "stop", "skip", "quarantine=FILE"
  std::string on_failure;         // "wait", "stop"; empty: a service waits
  bool acknowledges = false;
  bool synced = false;
  std::string metrics;            // a file; empty: none
  std::optional<size_t> threads;  // that make entries; nothing: as many as there are processors for

  std::string listen;  // "unix:PATH"; empty: no socket
  service_rules service;
  emit_limits limits;
  report_options report;

  std::optional<quarantine_file> quarantine() const { return quarantine_of(on_error); }
  std::string socket_path() const;  // empty: no socket
  // The file of the clients' numbers, beside the first output; empty: no client is acknowledged to.
  std::string numbers_path() const;
  std::string no_numbers() const;  // why there are none
  bool writes_standard_output() const;
  bool waits_for_outputs() const {
    return on_failure.empty() ? !listen.empty() : on_failure == "wait";
  }
};

// Whether the sink is standard output.
bool is_standard_output(const std::string& sink);

// Reads all that the options name, and writes it; to the end, or until a signal ends it. What goes
// wrong is told on standard error. The options are complete and have been checked.
command_outcome run_emit(const emit_options& options);

#endif
