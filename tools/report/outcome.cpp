#include "tools/report/outcome.h"

#include <sys/stat.h>

#include <ostream>
#include <system_error>

#include "recording/files/path.h"
#include "recording/text/terminal_text.h"

command_outcome usage_error(std::ostream& log, const std::string& text) {
  log << "kplog: " << terminal_text(text) << '\n';
  return command_outcome::usage;
}

static bool is_same_file(const std::string& a, const std::string& b) {
  struct stat of_a = {};
  struct stat of_b = {};
  return stat(a.c_str(), &of_a) == 0 && stat(b.c_str(), &of_b) == 0 && S_ISREG(of_a.st_mode) &&
         of_a.st_dev == of_b.st_dev && of_a.st_ino == of_b.st_ino;
}

bool would_replace_input(const std::string& output, const std::vector<std::string>& inputs,
                         std::ostream& log) {
  if (output == "-") return false;
  for (const std::string& input : inputs) {
    if (input == "-" || !is_same_file(output, input)) continue;
    usage_error(log, "the output would replace the input " + input);
    return true;
  }
  return false;
}

static command_outcome file_error(std::ostream& log, const report_options& report,
                                  diagnostic_rule rule, const std::string& what,
                                  const std::string& name, int error) {
  const source_text file = source_text::unopened(name);
  diagnostic_list found;
  found.add(rule, {&file, 0, 0},
            "cannot " + what + " " + name + ": " + std::generic_category().message(error));
  found.write(log, {&file}, report.format, report.color);
  return command_outcome::file_error;
}

command_outcome read_error(std::ostream& log, const report_options& report, const std::string& path,
                           int error) {
  return file_error(log, report, diagnostic_rule::unreadable, "read", input_name(path), error);
}

command_outcome write_error(std::ostream& log, const report_options& report,
                            const std::string& path, int error) {
  return file_error(log, report, diagnostic_rule::unwritable, "write", output_name(path), error);
}

void note_written(std::ostream& log, const report_options& report, const std::string& path,
                  const std::string& what) {
  if (report.with_summary())
    log << "kplog: wrote " << terminal_text(output_name(path)) << ": " << what << '\n';
}
