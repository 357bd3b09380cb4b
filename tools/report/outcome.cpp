#include "tools/report/outcome.h"

#include <sys/stat.h>

#include <ostream>

#include "base/kp_clib.h"
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

void check_output(const std::string& output, const std::vector<std::string>& inputs) {
  if (output == "-") return;
  for (const std::string& input : inputs)
    if (input != "-" && is_same_file(output, input))
      throw wrong_usage("the output would replace the input " + input);
}

command_outcome report_file_error(std::ostream& log, const report_options& report,
                                  const file_error& error) {
  const text_file file = text_file::unopened(error.name());
  const bool is_read = error.use() == file_use::reading;
  diagnostic_list found;
  found.add(is_read ? "unreadable"_rule : "unwritable"_rule, {&file, 0}, error.what());
  found.write(log, {&file}, report.format, report.color);
  return command_outcome::file_error;
}

command_outcome outcome_of(const report_options& report, std::ostream& log,
                           const std::function<command_outcome()>& run) {
  try {
    return run();
  } catch (const command_ended& end) {
    return end.outcome();
  } catch (const wrong_usage& error) {
    return usage_error(log, error.what());
  } catch (const file_error& error) {
    return report_file_error(log, report, error);
  }
}

void note_written(std::ostream& log, const report_options& report, const std::string& path,
                  const std::string& what) {
  if (report.with_summary())
    log << "kplog: wrote " << terminal_text(output_name(path)) << ": " << what << '\n';
}
