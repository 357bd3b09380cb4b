#include "tools/report/outcome.h"

#include <sys/stat.h>

#include <ostream>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/text/escape.h"

command_outcome usage_error(std::ostream& log, const std::string& text) {
  log << "kplog: " << terminal_text(text) << '\n';
  return command_outcome::usage;
}

static bool is_same_file(const std::string& a, const std::string& b) {
  struct stat of_a = {};
  struct stat of_b = {};
  return KP_stat(a.c_str(), &of_a) == 0 && KP_stat(b.c_str(), &of_b) == 0 &&
         S_ISREG(of_a.st_mode) && of_a.st_dev == of_b.st_dev && of_a.st_ino == of_b.st_ino;
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

static command_outcome tell(std::ostream& log, const report_options& report, diagnostic_rule rule,
                            const std::string& name, const file_error& error) {
  const source_text file = source_text::unopened(name);
  diagnostic_list found;
  found.add(rule, {&file, 0}, error.what());
  found.write(log, {&file}, report.format, report.color);
  return command_outcome::file_error;
}

command_outcome read_error(std::ostream& log, const report_options& report, const std::string& path,
                           int error) {
  const std::string name = input_name(path);
  return tell(log, report, "unreadable"_rule, name,
              file_error(file_use::reading, "read", name, error));
}

command_outcome write_error(std::ostream& log, const report_options& report,
                            const std::string& path, int error) {
  const std::string name = output_name(path);
  return tell(log, report, "unwritable"_rule, name,
              file_error(file_use::writing, "write", name, error));
}

void note_written(std::ostream& log, const report_options& report, const std::string& path,
                  const std::string& what) {
  if (report.with_summary())
    log << "kplog: wrote " << terminal_text(output_name(path)) << ": " << what << '\n';
}
