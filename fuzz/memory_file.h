// A file in memory, with a path to open it by.
#ifndef FUZZ_MEMORY_FILE_H
#define FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

class fuzz_memory_file {
 public:
  explicit fuzz_memory_file(std::string_view bytes)
      : descriptor_(memfd_create("definitions", MFD_CLOEXEC)) {
    if (write(descriptor_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
      std::abort();
  }
  fuzz_memory_file(const fuzz_memory_file&) = delete;
  fuzz_memory_file& operator=(const fuzz_memory_file&) = delete;
  ~fuzz_memory_file() { close(descriptor_); }

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

#endif
