// The kplog command, run as a person would.
#ifndef TESTS_COMMAND_COMMAND_RUN_H
#define TESTS_COMMAND_COMMAND_RUN_H

#include <string>

struct command_result {
  int status = -1;  // the exit status; 128 and the signal's number when a signal ended it
  std::string out;
  std::string err;
};

// Runs "kplog ARGUMENTS" through the shell in `folder`, with `before` in front of it ("umask 077 &&
// ").
command_result run_kplog(const std::string& folder, const std::string& arguments,
                         const std::string& before = "");

// The folder of the test sources.
std::string test_data_folder();

#endif
