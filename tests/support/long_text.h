// Texts of gigabytes that take a mebibyte of memory.
#ifndef TESTS_SUPPORT_LONG_TEXT_H
#define TESTS_SUPPORT_LONG_TEXT_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string_view>

// The text `unit` again and again, `length` bytes in all, and a NUL behind them. The length of
// `unit` is a power of two of at most a mebibyte. One block of memory stands at every place of it.
class long_text {
 public:
  long_text(std::string_view unit, size_t length) : size_(length / block * block + 2 * block) {
    const int file = memfd_create("long_text", MFD_CLOEXEC);
    EXPECT_EQ(ftruncate(file, block), 0);
    char* const room = map(nullptr, size_, -1);
    for (size_t at = 0; at + block <= length; at += block) map(room + at, block, file);
    if (length >= block) repeat(unit, room, block);
    repeat(unit, room + length / block * block, length % block);
    close(file);
    text_ = room;
  }
  ~long_text() { munmap(text_, size_); }
  long_text(const long_text&) = delete;
  long_text& operator=(const long_text&) = delete;

  const char* c_str() const { return text_; }

 private:
  static constexpr size_t block = 1 << 20;

  static char* map(char* at, size_t size, int file) {
    const int flags =
        file < 0 ? MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE : MAP_SHARED | MAP_FIXED;
    void* const mapped = mmap(at, size, PROT_READ | PROT_WRITE, flags, file, 0);
    EXPECT_NE(mapped, MAP_FAILED);
    return static_cast<char*>(mapped);
  }
  static void repeat(std::string_view unit, char* to, size_t length) {
    for (size_t i = 0; i < length; ++i) to[i] = unit[i % unit.size()];
  }

  size_t size_;  // of the mapping
  char* text_ = nullptr;
};

inline std::string repeated(std::string_view text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

#endif
