#include "tools/command_compile.h"

#include <cerrno>
#include <memory>
#include <ostream>

#include "tools/atomic_file.h"
#include "tools/command_options.h"
#include "tools/definition_input.h"
#include "tools/definition_standard.h"
#include "tools/definition_writer.h"

struct compile_options {
  std::vector<std::string> sources;  // "-": standard input
  std::string output;                // "-": standard output
  std::string standard;              // the STD set of an AUX set; empty: none
  report_options report;
};

static command_outcome report(const compile_options& options, const definition_set& set,
                              const diagnostic_list& found, std::ostream& log) {
  found.write(log, set.sources, options.report.format, options.report.color);
  if (options.report.with_summary())
    log << "kplog: " << counted(found.size(), "error") << ", nothing written\n";
  return command_outcome::findings;
}

static command_outcome write_output(const compile_options& options, const definition_set& set,
                                    std::ostream& log) {
  if (!write_atomic_file(options.output, definition_file_bytes(set)))
    return write_error(log, options.report, options.output, errno);
  note_written(
      log, options.report, options.output,
      counted(set.events.size(), "event") + ", " + counted(set.globals.size(), "global attribute"));
  return command_outcome::good;
}

// Everything is checked before anything is written.
static command_outcome compile(const compile_options& options, std::ostream& log) {
  if (would_replace_input(options.output, options.sources, log) ||
      would_replace_input(options.output, {options.standard}, log))
    return command_outcome::usage;
  diagnostic_list found;
  standard_input standard;
  definition_input input;
  command_outcome outcome = standard.read(options.standard, options.report, log);
  if (outcome == command_outcome::good)
    outcome = read_definition_input(options.sources, input, found, options.report, log,
                                    standard.definitions());
  if (outcome != command_outcome::good) return outcome;
  if (input.file != nullptr) return usage_error(log, "this file is compiled already");
  return found.empty() ? write_output(options, input.set(), log)
                       : report(options, input.set(), found, log);
}

static command_action describe_compile(CLI::App& command) {
  const auto options = std::make_shared<compile_options>();
  command.add_option("SOURCE", options->sources, "Definition sources; - is standard input")
      ->required()
      ->type_name("FILE");
  command.add_option("-o,--output", options->output, "The file to write; - is standard output")
      ->required()
      ->type_name("FILE");
  add_standard_option(command, options->standard);
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) { return compile(*options, log); };
}

constexpr kplog_command_row compile_command = {
    "compile", "Compile definition sources to a file",
    "  kplog compile events.yaml -o events.ldf\n"
    "  kplog compile base.yaml network.yaml -o all.ldf     several sources, one set\n"
    "  kplog compile product.yaml --std standard.ldf -o product.ldf   an AUX set, checked beside "
    "its STD set\n"
    "  generate | kplog compile - -o - > events.ldf        standard input and output\n"
    "  kplog compile --format json events.yaml -o e.ldf    diagnostics for programs\n",
    describe_compile};
