// A descriptor that closes itself.
#ifndef RECORDING_FILES_DESCRIPTOR_H
#define RECORDING_FILES_DESCRIPTOR_H

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

class open_descriptor {
 public:
  explicit open_descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  open_descriptor(open_descriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  open_descriptor& operator=(open_descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~open_descriptor() {
    if (is_open()) close(descriptor_);
  }

  bool is_open() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }  // the caller closes it

 private:
  int descriptor_;  // -1: none
};

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
    if (fstat(descriptor, &status) != 0) return false;
    device = status.st_dev;
    inode = status.st_ino;
    return true;
  }
};

#endif
