#include "tools/command/standard_option.h"

#include <ostream>

#include "recording/text/terminal_text.h"
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
