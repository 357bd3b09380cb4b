// The command line.
#ifndef PACKAGE_HISTORY_OPTIONS_H
#define PACKAGE_HISTORY_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "history_language.h"

// Texts are those of the command line; null: not given.
struct history_options {
  bool help = false;
  const char* path = nullptr;    // the history; null: this machine's own
  size_t n_shown = 12;           // messages printed of each language
  const char* config = nullptr;  // the configuration file
  const char* section = "package_history";
  unsigned min_level = 0;
  unsigned max_level = 9;
  const char* output = nullptr;  // the folder of logs and counts; null: a temporary one
  uintmax_t max_size = 1048576;  // of a text log, in bytes
  const history_language* log_language = &history_languages[0];
};

// A wrong command line; the text says what is wrong.
class history_usage_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

extern const char history_usage[];

// `arguments` begins with the program's name and ends with a null pointer, as those of main do.
// Raises history_usage_error.
history_options parse_history_options(char** arguments);

#endif
