// What the command line of `kplog emit` asks for.
#ifndef TOOLS_COMMAND_EMIT_OPTIONS_H
#define TOOLS_COMMAND_EMIT_OPTIONS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/records/event_set.h"
#include "tools/command/options.h"
#include "tools/emit/filter.h"
#include "tools/report/outcome.h"

constexpr std::string_view quarantine_prefix = "quarantine=";
constexpr std::string_view listen_prefix = "unix:";

struct emit_options {
  std::vector<std::string> records;  // files, "-": standard input; none: that, or the socket alone
  event_set_options events;
  std::string code_page;  // of text; empty: UTF-8
  filter_settings filter;
  // The outputs.
  std::vector<std::string> sinks;
  std::string count;              // DIR/NAME; empty: nothing is counted
  std::string on_error = "skip";  // "stop", "skip", "quarantine=FILE"
  bool acknowledges = false;
  bool synced = false;

  std::string listen;  // "unix:PATH"; empty: no socket
  report_options report;

  std::optional<std::string> quarantine() const;  // its file
  std::string socket_path() const;                // empty: no socket
  bool writes_standard_output() const;
};

void add_emit_options(CLI::App& command, emit_options& options);

// Fills in what is not said. Raises wrong_usage.
void complete(emit_options& options);

#endif
