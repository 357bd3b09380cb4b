#include "tools/command/set_command.h"

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

void standard_input::read(const std::string& path, const report_options& report,
                          std::ostream& log) {
  if (path.empty()) return;
  if (path == "-") throw wrong_usage("the STD set is read from a file");
  diagnostic_list found;
  read_definition_input({path}, input_, found, report, log);
  if (input_.file != nullptr) verify_definition_file(*input_.file, nullptr, found);
  definitions_.emplace(input_.set());
  const size_t errors = found.count(rule_severity::error);
  if (errors == 0) return;
  found.write(log, input_.set().sources, report.format, report.color);
  if (report.with_summary())
    log << "kplog: " << counted(errors, "error") << " in the STD set " << terminal_text(path)
        << '\n';
  throw command_ended(command_outcome::findings);
}

void read_definitions_to_output(const definition_output_options& options, standard_input& standard,
                                definition_input& input, std::ostream& log) {
  check_output(options.output, options.inputs);
  check_output(options.output, {options.standard});
  diagnostic_list found;
  standard.read(options.standard, options.report, log);
  read_definition_input(options.inputs, input, found, options.report, log, standard.definitions());
  if (input.file != nullptr && !options.takes_compiled)
    throw wrong_usage(input.file->source.name() + " is compiled already, and a source is expected");
  found.write(log, input.set().sources, options.report.format, options.report.color);
  const size_t errors = found.count(rule_severity::error);
  if (errors == 0) return;
  if (options.report.with_summary())
    log << "kplog: " << counted(errors, "error") << ", nothing written\n";
  throw command_ended(command_outcome::findings);
}

command_outcome write_definition_output(const definition_output_options& options,
                                        const std::string& bytes, const std::string& what,
                                        std::ostream& log) {
  write_whole_file(options.output, bytes);
  note_written(log, options.report, options.output, what);
  return command_outcome::good;
}
