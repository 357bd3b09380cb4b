// Segments compressed, and read again: frames of zstd, each with a check sum (docs/journal.md).
#ifndef RECORDING_FILES_COMPRESSION_H
#define RECORDING_FILES_COMPRESSION_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/descriptor.h"

// How the name of a compressed file ends.
inline constexpr std::string_view compressed_ending = ".zst";

// Bytes that are read, or compressed, at a time: some milliseconds of work.
inline constexpr size_t segment_part = size_t{1} << 20;

// Raises file_error, with the path that it was given.
class segment_compressor {
 public:
  // Writes to the open file, which must live as long; `size` bytes are to come.
  segment_compressor(int file, std::string path, uint64_t size);
  ~segment_compressor();
  segment_compressor(const segment_compressor&) = delete;
  segment_compressor& operator=(const segment_compressor&) = delete;

  void take(std::string_view bytes);
  void finish();

 private:
  struct frame;  // zstd's
  void compress(std::string_view bytes, bool is_end);

  int file_;
  std::string path_;
  std::unique_ptr<frame> frame_;
  std::vector<char> compressed_;
};

// The bytes of a segment in either form, part by part. Raises file_error, with the path that it was
// given.
class segment_reader {
 public:
  segment_reader(open_descriptor file, std::string path, bool is_compressed);
  ~segment_reader();
  segment_reader(const segment_reader&) = delete;
  segment_reader& operator=(const segment_reader&) = delete;

  // The next bytes, at most `most` of them; empty at the end. They live until the next call.
  std::string_view read(size_t most = segment_part);
  // Leaves out the next bytes of a plain segment.
  void skip(uint64_t bytes) { offset_ += bytes; }

 private:
  struct frames;  // zstd's
  std::string_view decompress(size_t most);
  void read_file();

  open_descriptor file_;
  std::string path_;
  uint64_t offset_ = 0;             // in the file
  std::string bytes_;               // read of it
  size_t taken_ = 0;                // of these
  std::unique_ptr<frames> frames_;  // null: it is plain
  std::vector<char> lines_;
};

#endif
