// The lines of a file that is compressed.
#ifndef RECORDING_JOURNAL_COMPRESSED_LINES_H
#define RECORDING_JOURNAL_COMPRESSED_LINES_H

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "recording/files/compression.h"
#include "recording/files/file_error.h"
#include "recording/records/growing_file.h"

class compressed_lines {
 public:
  // Those behind that position.
  compressed_lines(open_descriptor file, const std::string& path, line_position from = {})
      : reader_(std::move(file), path, true), skipped_(from.offset), lines_(piece) {
    lines_.count_from(from.lines);
  }

  // The next one, the last also without an end; valid until the next call. False at the end. Raises
  // file_error.
  bool next(record_line& line) {
    while (!lines_.next(line)) {
      std::string_view bytes = read();
      if (bytes.empty()) return lines_.next_at_end(line);
      const auto left_out = std::min<uint64_t>(skipped_, bytes.size());
      skipped_ -= left_out;
      lines_.add(bytes.substr(left_out));
    }
    return true;
  }

 private:
  static constexpr size_t piece = size_t{256} << 10;

  std::string_view read() {
    try {
      return reader_.read(piece);
    } catch (const file_error& error) {
      throw file_error(file_use::reading, error.what());
    }
  }

  segment_reader reader_;
  uint64_t skipped_;  // bytes that are still to be
  record_lines lines_;
};

#endif
