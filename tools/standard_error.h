// What commands say, on standard error.
#ifndef TOOLS_STANDARD_ERROR_H
#define TOOLS_STANDARD_ERROR_H

#include <ostream>
#include <streambuf>
#include <string>

// Gathers text until it is flushed, and writes it by one call, so that other processes with the
// same standard error do not write into it. What cannot be written is kept, 64 KiB at most, and
// tried again at the next flush; when that works, one line tells what was late and what is lost.
class standard_error_buffer : public std::streambuf {
 public:
  explicit standard_error_buffer(int descriptor) : descriptor_(descriptor) {}

  // Writes what is there, and waits a second for room if need be.
  void finish();

 protected:
  int overflow(int character) override;
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int sync() override;

 private:
  bool is_written();
  void keep_what_fits();
  std::string lack() const;

  int descriptor_;
  std::string text_;       // not written yet
  bool is_json_ = false;   // the form of what is written
  int error_ = 0;          // of the write that failed first; 0: none did since the last good one
  size_t lost_lines_ = 0;  // since then
};

// A stream that stays good whatever its descriptor takes.
class standard_error : public std::ostream {
 public:
  explicit standard_error(int descriptor) : std::ostream(nullptr), buffer_(descriptor) {
    rdbuf(&buffer_);
  }
  ~standard_error() override { buffer_.finish(); }
  standard_error(const standard_error&) = delete;
  standard_error& operator=(const standard_error&) = delete;

 private:
  standard_error_buffer buffer_;
};

#endif
