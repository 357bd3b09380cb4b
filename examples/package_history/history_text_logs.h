// Log writing: dated text logs of one message a line (docs/text-logs.md).
#ifndef PACKAGE_HISTORY_TEXT_LOGS_H
#define PACKAGE_HISTORY_TEXT_LOGS_H

#include <cstdint>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "history_day.h"

// Writes messages to the text logs of a folder, each day's to logs of its own. A day goes on in the
// log of the highest serial that is there, and begins with the serial 1 where there is none.
class history_text_logs {
 public:
  // A log does not grow beyond `max_size` bytes unless by its first message.
  history_text_logs(const std::string& folder, uintmax_t max_size);

  // Writes the message as one line: line ends and other control characters in it become blanks. The
  // line is in the kernel on return. Raises std::runtime_error for a log that cannot be opened or
  // written, which then ends where it did before.
  void append(const history_day& day, std::string_view message);

  // Takes the line appended last out of its log again. Once, and after an append.
  void take_back() noexcept;

 private:
  void open(const history_day& day, unsigned serial);
  void open_for(const history_day& day, size_t n_bytes);

  std::string folder_;
  uintmax_t max_size_;
  std::map<history_day, unsigned> serials_;  // the highest of each day

  std::ofstream log_;        // the one written to last
  history_day day_;          // its day; all 0: none yet
  std::string path_;         // its path
  uintmax_t size_ = 0;       // of the log, in bytes
  uintmax_t kept_size_ = 0;  // without the line appended last
};

// The text logs of a day.
struct history_day_logs {
  std::set<unsigned> serials;
  size_t n_lines = 0;
};

// Reads the text logs of a folder back. Raises std::runtime_error where that cannot be done.
std::map<history_day, history_day_logs> read_text_logs(const std::string& folder);

// The name of a text log, without its folder.
std::string text_log_name(const history_day& day, unsigned serial);

#endif
