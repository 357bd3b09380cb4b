// Any number of pieces of bytes in the order of their keys: what does not fit into some memory
// waits in a temporary file.
#ifndef ENGINES_NATS_PIECE_SORTER_H
#define ENGINES_NATS_PIECE_SORTER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "recording/files/descriptor.h"

// Raises file_error of the temporary file, which is in TMPDIR, or in /tmp.
class piece_sorter {
 public:
  explicit piece_sorter(size_t memory = size_t{16} << 20);  // bytes, about
  ~piece_sorter();
  piece_sorter(const piece_sorter&) = delete;
  piece_sorter& operator=(const piece_sorter&) = delete;

  void add(std::string_view key, std::string_view bytes);
  // The next piece, by the bytes of its key; of those with one key any. Nothing is added behind the
  // first call. What it hands out lives until the next call. False behind the last.
  bool next(std::string_view& key, std::string_view& bytes);

 private:
  struct pool_piece {
    size_t offset = 0;  // in the pool: key, and bytes behind it
    size_t key = 0;     // bytes of it
    size_t size = 0;
  };
  struct sorted_run {  // in the file, in order
    uint64_t begin = 0;
    uint64_t end = 0;
  };
  class run_reader;

  std::string_view key_of(const pool_piece& piece) const;
  std::string_view bytes_of(const pool_piece& piece) const;
  void sort();
  void write_run();
  void append(std::string_view bytes);
  void flush();
  void begin_reading();
  bool next_of_memory(std::string_view& key, std::string_view& bytes);
  bool next_of_file(std::string_view& key, std::string_view& bytes);

  size_t memory_;
  std::string pool_;
  std::vector<pool_piece> pieces_;
  size_t taken_ = 0;  // of the pieces
  open_descriptor file_;
  std::string path_;  // that the file had
  std::string unwritten_;
  uint64_t file_size_ = 0;  // with what is unwritten
  std::string last_key_;    // of the last run
  std::vector<sorted_run> runs_;
  bool is_reading_ = false;
  std::vector<std::unique_ptr<run_reader>> readers_;  // a heap by their keys
  std::string key_;
  std::string bytes_;
};

#endif
