#include "tools/command/set_output.h"

#include <cerrno>
#include <ostream>

#include "recording/files/whole_file.h"
#include "recording/text/words.h"
#include "tools/report/outcome.h"

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
