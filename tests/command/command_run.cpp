#include "tests/command/command_run.h"

#include <sys/wait.h>

#include <cstdlib>

#include "tests/support/temp_folder.h"

static std::string shell_quoted(const std::string& text) {
  return "'" + text + "'";
}

static int exit_status(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
}

command_result run_kplog(const std::string& folder, const std::string& arguments,
                         const std::string& before) {
  const temp_folder results;
  const std::string out = results.file("out");
  const std::string err = results.file("err");
  const std::string command = "cd " + shell_quoted(folder) + " && { " + before +
                              shell_quoted(KPLOG_COMMAND) + " " + arguments + " ; } >" +
                              shell_quoted(out) + " 2>" + shell_quoted(err);
  const int status =
      std::system(command.c_str());  // NOLINT(cert-env33-c): a test of the command line
  return {exit_status(status), read_whole_file(out), read_whole_file(err)};
}

std::string test_data_folder() {
  return KPLOG_TEST_DATA;
}
