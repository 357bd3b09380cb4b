// How a command ends, and what it says of it.
#ifndef TOOLS_REPORT_OUTCOME_H
#define TOOLS_REPORT_OUTCOME_H

#include <array>
#include <exception>
#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include "recording/files/file_error.h"
#include "recording/report/diagnostics.h"

// How a command ended, as its exit status.
enum class command_outcome : int {
  good = 0,
  findings = 1,
  usage = 2,
  file_error = 3,
  interrupted = 130,
  terminated = 143
};

// What an exit status means, as the help, the manual pages and docs/tools.md say it.
struct exit_status_row {
  command_outcome outcome;
  const char* brief;
  const char* meaning;

  int status() const { return static_cast<int>(outcome); }
};

constexpr auto exit_status_rows = std::to_array<exit_status_row>({
    {command_outcome::good, "good", "good"},
    {command_outcome::findings, "faults found", "the input has faults; diagnostics say which"},
    {command_outcome::usage, "wrong usage", "the command line is wrong"},
    {command_outcome::file_error, "a file cannot be read or written",
     "a file cannot be read or written, or memory ran out"},
    {command_outcome::interrupted, "SIGINT before the end of the input",
     "SIGINT came before the input of `kplog emit`, or of `kplog render --by` or `--last`, had "
     "ended"},
    {command_outcome::terminated, "SIGTERM before the end of the input",
     "SIGTERM came before the input of `kplog emit`, or of `kplog render --by` or `--last`, had "
     "ended"},
});

// How much a command says, and how.
struct report_options {
  bool quiet = false;         // only diagnostics and errors
  bool color = false;         // in diagnostics
  bool output_color = false;  // in results on standard output
  diagnostic_format format = diagnostic_format::text;

  bool with_summary() const { return !quiet && format == diagnostic_format::text; }
};

// A command line that the parser has nothing against, and that cannot be meant.
class wrong_usage : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The end of a command of which all has been said on its log.
class command_ended : public std::exception {
 public:
  explicit command_ended(command_outcome outcome) : outcome_(outcome) {}
  command_outcome outcome() const { return outcome_; }

 private:
  command_outcome outcome_;
};

// How `run` ends. What it raises, wrong_usage, file_error or command_ended, is said on `log` and is
// the outcome.
command_outcome outcome_of(const report_options& report, std::ostream& log,
                           const std::function<command_outcome()>& run);

// "kplog: TEXT", for a command line that the parser had nothing against.
command_outcome usage_error(std::ostream& log, const std::string& text);

// Raises wrong_usage where writing to `output` would replace one of `inputs`, whatever name leads
// to it. "-" and files that are not there are none.
void check_output(const std::string& output, const std::vector<std::string>& inputs);

// "kplog: cannot read PATH: REASON", or the diagnostic as JSON.
command_outcome report_file_error(std::ostream& log, const report_options& report,
                                  const file_error& error);

// "kplog: wrote PATH: WHAT", where a summary is wanted.
void note_written(std::ostream& log, const report_options& report, const std::string& path,
                  const std::string& what);

#endif
