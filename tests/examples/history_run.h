// The example package_history, run from outside.
#ifndef TESTS_EXAMPLES_HISTORY_RUN_H
#define TESTS_EXAMPLES_HISTORY_RUN_H

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/support/temp_folder.h"

struct history_outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// The program and the demonstration in a folder of their own, in the time zone UTC.
class history_run {
 public:
  std::string write(std::string_view name, std::string_view content) const {
    return folder_.write(name, content);
  }
  std::string file(std::string_view name) const { return folder_.file(name); }
  std::string read(std::string_view name) const { return read_whole_file(file(name)); }

  // The program that makes records. Its standard output goes to the file `out` of that folder, or
  // to an absolute path.
  history_outcome records(const std::string& arguments, const std::string& out = "out") const {
    return run("'" PACKAGE_HISTORY_PROGRAM "' " + arguments, out);
  }
  history_outcome records_of(std::string_view content) const {
    write("log", content);
    return records("log");
  }

  // The whole demonstration.
  history_outcome demo(const std::string& arguments) const {
    return run(
        "'" PACKAGE_HISTORY_SOURCES "/demo' --build '" PACKAGE_HISTORY_BUILD "' " + arguments,
        "out");
  }

 private:
  history_outcome run(const std::string& command, const std::string& out) const {
    const std::string line =
        "cd '" + folder_.path() + "' && TZ=UTC " + command + " >" + out + " 2>err </dev/null";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("out"), read("err")};
  }

  temp_folder folder_;
};

inline std::string history_sample() {
  return read_whole_file(PACKAGE_HISTORY_SOURCES "/sample_dpkg.log");
}

#endif
