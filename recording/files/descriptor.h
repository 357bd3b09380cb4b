// Descriptors: one that closes itself, and what is written to one.
#ifndef RECORDING_FILES_DESCRIPTOR_H
#define RECORDING_FILES_DESCRIPTOR_H

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "base/kp_clib.h"

class open_descriptor {
 public:
  explicit open_descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  open_descriptor(open_descriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  open_descriptor& operator=(open_descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  // Keeps errno.
  ~open_descriptor() {
    if (!is_open()) return;
    const int error = errno;
    close(descriptor_);
    errno = error;
  }

  bool is_open() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }  // the caller closes it

 private:
  int descriptor_;  // -1: none
};

// Writes all bytes, through signals; waits where the descriptor takes no more at the moment. False,
// with errno, where that fails; what was not written is then left in `bytes`.
bool write_all(int descriptor, std::string_view& bytes);

// The same from an offset of a file on.
bool write_all_at(int descriptor, std::string_view bytes, off_t offset);

// The bytes from the offset on: `size` of them, or fewer at the end of the file. Raises the error
// of a file to be written.
std::string read_part(int descriptor, uintmax_t offset, size_t size, const char* action,
                      const std::string& path);

// What the errors of standard output call it; no path of a file that is written is that.
inline constexpr const char* standard_output_name = "standard output";

// Writes the text to standard output and empties it; where that is a file, to the disk itself when
// `synced`. Waits where it does not take more at the moment. Raises file_error; what was not
// written stays in the text.
void write_standard_output(std::string& text, bool synced);

// Which file an open descriptor is of.
struct file_identity {
  dev_t device = 0;
  ino_t inode = 0;

  bool is_of(const struct stat& status) const {
    return status.st_dev == device && status.st_ino == inode;
  }
  // False where the system does not tell.
  bool take(int descriptor) {
    struct stat status {};
    if (KP_fstat(descriptor, &status) != 0) return false;
    device = status.st_dev;
    inode = status.st_ino;
    return true;
  }
};

#endif
