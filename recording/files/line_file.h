// A file of lines that several processes append to.
#ifndef RECORDING_FILES_LINE_FILE_H
#define RECORDING_FILES_LINE_FILE_H

#include <string>

#include "recording/files/shared_file.h"

class line_file {
 public:
  // Cuts off what a process that died, or a power cut, left behind the last line of the file. It is
  // not made yet. Raises file_error.
  line_file(std::string folder, std::string name, append_rules rules);

  // Appends the lines under the file's lock, and empties the text. Raises file_error: both are then
  // as they were.
  void append(std::string& lines, bool synced);

 private:
  std::string folder_;
  std::string name_;
  append_rules rules_;
};

#endif
