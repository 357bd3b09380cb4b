// The example package_history, run as a program of its own.
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

// The program in a folder of its own, temporary files included, in the time zone UTC.
class history_run {
 public:
  std::string write(std::string_view name, std::string_view content) const {
    return folder_.write(name, content);
  }
  std::string file(std::string_view name) const { return folder_.file(name); }
  std::string read(std::string_view name) const { return read_whole_file(file(name)); }

  // Standard output goes to the file `out` of that folder, or to an absolute path. `before` is
  // for the shell, in front of the command.
  history_outcome operator()(const std::string& arguments, const std::string& out = "out",
                             const std::string& before = "") const {
    const std::string command = "cd '" + folder_.path() + "' && " + before +
                                " TMPDIR=\"$PWD\" TZ=UTC '" PACKAGE_HISTORY_PROGRAM "' " +
                                arguments + " >" + out + " 2>err </dev/null";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("out"), read("err")};
  }
  history_outcome tell(std::string_view content, const std::string& options = "") const {
    write("log", content);
    return (*this)(options + " log");
  }

 private:
  temp_folder folder_;
};

// Some versions of ICU write a narrow no-break space before AM and PM, others a blank.
inline std::string with_plain_blanks(std::string text) {
  const std::string narrow = "\u202F";
  for (size_t at = text.find(narrow); at != std::string::npos; at = text.find(narrow, at))
    text.replace(at, narrow.size(), " ");
  return text;
}

inline std::string history_sample() {
  return read_whole_file(PACKAGE_HISTORY_SOURCES "/sample_dpkg.log");
}

#endif
