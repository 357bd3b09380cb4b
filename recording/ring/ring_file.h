// A ring as a file that is mapped: made by a recorder, or found behind one that died.
#ifndef RECORDING_RING_RING_FILE_H
#define RECORDING_RING_RING_FILE_H

#include <memory>
#include <string>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/ring/ring_format.h"
#include "recording/ring/ring_info.h"

// Its owner holds a lock on the file that the system takes back when the process ends, however it
// ends, and that children of fork do not have. The file has mode 0600, and is allocated whole.
class ring_file {
 public:
  // The smallest and the largest ring, in bytes.
  static constexpr uint64_t least_size = uint64_t{512} << 10;
  static constexpr uint64_t most_size = uint64_t{4} << 30;

  // Makes "STEM.ring.…" with that many bytes of blocks. Raises file_error: also where the disk has
  // no room for all of it.
  static std::unique_ptr<ring_file> make(const std::string& stem, uint64_t size,
                                         const ring_info& info);
  // Takes a ring whose owner is gone. Null where it has an owner, this process included, and where
  // the file is gone meanwhile. Raises file_error for what is no ring, a copy of one, and the ring
  // of another user.
  static std::unique_ptr<ring_file> take(const std::string& path, bool& has_owner);
  // The paths of all rings of the stem, those of living owners included, by name. Raises file_error
  // where the folder cannot be read.
  static std::vector<std::string> paths_of(const std::string& stem);

  ~ring_file();
  ring_file(const ring_file&) = delete;
  ring_file& operator=(const ring_file&) = delete;

  const std::string& path() const { return path_; }
  const ring_info& info() const { return info_; }
  std::string identity() const { return std::string(head().start.identity()); }
  ring_head& head() const { return *reinterpret_cast<ring_head*>(memory_); }
  uint32_t blocks() const { return blocks_; }
  block_head& block(uint32_t number) const {
    return *reinterpret_cast<block_head*>(memory_ + ring_head_size + number * ring_block_size);
  }

  // Takes the file away. The ring stays mapped.
  void remove();
  // Leaves the file, if it is there yet, to whoever takes it. Memory stays where the ring was, for
  // those who look there yet, and holds nothing.
  void let_go() noexcept;

 private:
  ring_file(std::string path, open_descriptor file)
      : path_(std::move(path)), file_(std::move(file)) {}
  void finish(uint64_t size, const std::string& identity, const ring_info& info,
              const std::string& unfinished);
  void map(size_t size);
  void set_up(const std::string& identity, const ring_info& info);
  void read_head(size_t size);

  std::string path_;
  open_descriptor file_;
  unsigned char* memory_ = nullptr;
  size_t size_ = 0;  // that is mapped
  uint32_t blocks_ = 0;
  ring_info info_;
};

#endif
