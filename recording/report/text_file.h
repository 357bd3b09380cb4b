// A file in memory, and places in it: a source, a compiled file, a PO file, a line of records.
#ifndef RECORDING_REPORT_TEXT_FILE_H
#define RECORDING_REPORT_TEXT_FILE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

constexpr size_t source_size_limit = size_t{16} << 20;  // bytes; larger sources are refused

class text_file {
 public:
  // `name` is what diagnostics call the file. A byte order mark at the start is left out.
  text_file(std::string name, std::string bytes);
  // A file that is no text. It has one line, so that the bytes of its places are offsets.
  static text_file binary(std::string name, std::string bytes);
  // One line, numbered from 0, of a text that is not held as a whole.
  static text_file one_line(std::string name, std::string bytes, size_t number);
  // A file of which nothing is known but its name. It has no places within it.
  static text_file unopened(std::string name);

  const std::string& name() const { return name_; }
  bool is_binary() const { return kind_ == kinds::binary; }
  bool is_unopened() const { return kind_ == kinds::unopened; }
  std::string_view bytes() const { return bytes_; }
  bool had_byte_order_mark() const { return had_byte_order_mark_; }
  size_t line_count() const { return line_starts_.size(); }
  // A line, numbered from 0, without its line ending; empty behind the last line.
  std::string_view line(size_t number) const;
  // Where a line begins; the end of the text behind the last line.
  size_t line_start(size_t number) const;
  // The line in which a byte of the text stands.
  size_t line_at(size_t offset) const;

 private:
  enum class kinds { text, binary, unopened };

  text_file(kinds kind, std::string name, std::string bytes);

  std::string name_;
  std::string bytes_;
  bool had_byte_order_mark_ = false;
  std::vector<size_t> line_starts_ = {0};
  size_t first_line_ = 0;  // number of the line with which the bytes begin
  kinds kind_ = kinds::text;
};

// A place in a file. Its line and column are worked out when people are to see them.
struct text_place {
  const text_file* source = nullptr;  // not owned; null: no place is known
  size_t at = 0;                      // bytes before it

  size_t offset() const;  // into the file's bytes, never behind their end
  size_t line() const;    // from 0
  size_t byte() const;    // within the line, from 0
  size_t column() const;  // from 1, in characters
};

#endif
