// A descriptor that closes itself.
#ifndef TOOLS_OPEN_DESCRIPTOR_H
#define TOOLS_OPEN_DESCRIPTOR_H

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

#endif
