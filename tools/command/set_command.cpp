#include "tools/command/set_command.h"

#include <cerrno>
#include <ostream>

#include "recording/files/whole_file.h"
#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/compiled/verify.h"
#include "tools/report/outcome.h"

void add_standard_option(CLI::App& command, std::string& path) {
  add_text_option(command,
                  {"--std", "FILE", "The STD set, compiled or a source, that this AUX set adds to"},
                  path);
}

command_outcome standard_input::read(const std::string& path, const report_options& report,
                                     std::ostream& log) {
  if (path.empty()) return command_outcome::good;
  if (path == "-") return usage_error(log, "the STD set is read from a file");
  diagnostic_list found;
  const command_outcome outcome = read_definition_input({path}, input_, found, report, log);
  if (outcome != command_outcome::good) return outcome;
  if (input_.file != nullptr) check_definition_file(*input_.file, nullptr, found);
  definitions_.emplace(input_.set());
  const size_t errors = found.count(rule_severity::error);
  if (errors == 0) return command_outcome::good;
  found.write(log, input_.set().sources, report.format, report.color);
  if (report.with_summary())
    log << "kplog: " << counted(errors, "error") << " in the STD set " << terminal_text(path)
        << '\n';
  return command_outcome::findings;
}

static command_outcome report_definitions(const definition_output_options& options,
                                          const definition_set& set, const diagnostic_list& found,
                                          std::ostream& log) {
  found.write(log, set.sources, options.report.format, options.report.color);
  const size_t errors = found.count(rule_severity::error);
  if (errors == 0) return command_outcome::good;
  if (options.report.with_summary())
    log << "kplog: " << counted(errors, "error") << ", nothing written\n";
  return command_outcome::findings;
}

command_outcome read_definitions_to_output(const definition_output_options& options,
                                           standard_input& standard, definition_input& input,
                                           std::ostream& log) {
  if (would_replace_input(options.output, options.inputs, log) ||
      would_replace_input(options.output, {options.standard}, log))
    return command_outcome::usage;
  diagnostic_list found;
  command_outcome outcome = standard.read(options.standard, options.report, log);
  if (outcome == command_outcome::good)
    outcome = read_definition_input(options.inputs, input, found, options.report, log,
                                    standard.definitions());
  if (outcome != command_outcome::good) return outcome;
  if (input.file != nullptr && !options.takes_compiled)
    return usage_error(
        log, input.file->source.name() + " is compiled already, and a source is expected");
  return report_definitions(options, input.set(), found, log);
}

command_outcome write_definition_output(const definition_output_options& options,
                                        const std::string& bytes, const std::string& what,
                                        std::ostream& log) {
  if (!write_atomic_file(options.output, bytes))
    return write_error(log, options.report, options.output, errno);
  note_written(log, options.report, options.output, what);
  return command_outcome::good;
}
