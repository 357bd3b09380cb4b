#include "tools/command_compile.h"

#include <cerrno>
#include <deque>
#include <memory>
#include <ostream>

#include "tools/atomic_file.h"
#include "tools/command_options.h"
#include "tools/definition_check.h"
#include "tools/definition_source.h"
#include "tools/definition_writer.h"
#include "tools/terminal_text.h"

struct compile_options {
  std::vector<std::string> sources;  // "-": standard input
  std::string output;                // "-": standard output
  report_options report;
};

static bool read_sources(const compile_options& options, std::deque<source_text>& sources,
                         std::ostream& log) {
  bool good = true;
  for (const std::string& path : options.sources) {
    std::string bytes;
    if (read_source_bytes(path, bytes)) {
      sources.emplace_back(path == "-" ? "<stdin>" : path, std::move(bytes));
      continue;
    }
    read_error(log, path, errno);
    good = false;
  }
  return good;
}

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
    return write_error(log, options.output, errno);
  if (options.report.with_summary())
    log << "kplog: wrote " << terminal_text(options.output) << ": "
        << counted(set.events.size(), "event") << ", "
        << counted(set.globals.size(), "global attribute") << '\n';
  return command_outcome::good;
}

// Everything is checked before anything is written.
static command_outcome compile(const compile_options& options, std::ostream& log) {
  if (reads_standard_input_twice(options.sources))
    return usage_error(log, "standard input can be read once");
  std::deque<source_text> sources;
  if (!read_sources(options, sources, log)) return command_outcome::file_error;
  definition_set set;
  diagnostic_list found;
  for (const source_text& source : sources) read_definition_source(source, set, found);
  complete_definition_set(set, found);
  return found.empty() ? write_output(options, set, log) : report(options, set, found, log);
}

static command_action describe_compile(CLI::App& command) {
  const auto options = std::make_shared<compile_options>();
  command.add_option("SOURCE", options->sources, "Definition sources; - is standard input")
      ->required()
      ->type_name("FILE");
  command.add_option("-o,--output", options->output, "The file to write; - is standard output")
      ->required()
      ->type_name("FILE");
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) { return compile(*options, log); };
}

constexpr kplog_command_row compile_command = {
    "compile", "Compile definition sources to a file",
    "  kplog compile events.yaml -o events.ldf\n"
    "  kplog compile base.yaml network.yaml -o all.ldf     several sources, one set\n"
    "  generate | kplog compile - -o - > events.ldf        standard input and output\n"
    "  kplog compile --format json events.yaml -o e.ldf    diagnostics for programs\n",
    describe_compile};
