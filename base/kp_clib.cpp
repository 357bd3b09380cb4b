#include "base/kp_clib.h"

#include <fcntl.h>
#include <stdio_ext.h>

#include <cerrno>
#include <limits>

// ---- reading and writing through signals ----

static bool is_interrupted(FILE* stream) noexcept {
  return errno == EINTR && KP_ferror(stream) != 0;
}

static void clear_error(FILE* stream) noexcept {
  kp_fault_unmark(stream);
  clearerr(stream);
}

// False, with errno set, when size * count is no number of bytes.
static bool total_bytes(size_t size, size_t count, size_t& bytes) noexcept {
  const bool fits = !__builtin_mul_overflow(size, count, &bytes);
  if (!fits) errno = EOVERFLOW;
  return fits;
}

static size_t fread_once(char* buffer, size_t bytes, FILE* stream) noexcept {
  if (!kp_fault_strikes(kp_fault_call::fread)) return fread(buffer, 1, bytes, stream);
  const int error = errno;
  const size_t done = fread(buffer, 1, kp_fault_transfer(kp_fault_call::fread, bytes), stream);
  kp_fault_mark(stream);
  errno = error;
  return done;
}

static size_t fwrite_once(const char* buffer, size_t bytes, FILE* stream) noexcept {
  if (!kp_fault_strikes(kp_fault_call::fwrite)) return fwrite(buffer, 1, bytes, stream);
  const int error = errno;
  const size_t done = fwrite(buffer, 1, kp_fault_transfer(kp_fault_call::fwrite, bytes), stream);
  kp_fault_mark(stream);
  errno = error;
  return done;
}

size_t KP_fread(void* buffer, size_t size, size_t count, FILE* stream) noexcept {
  size_t bytes = 0;
  if (!total_bytes(size, count, bytes) || bytes == 0) return 0;
  size_t done = 0;
  for (;;) {
    done += fread_once(static_cast<char*>(buffer) + done, bytes - done, stream);
    if (done == bytes || !is_interrupted(stream)) return done / size;
    clear_error(stream);
  }
}

size_t KP_fwrite(const void* buffer, size_t size, size_t count, FILE* stream) noexcept {
  size_t bytes = 0;
  if (!total_bytes(size, count, bytes) || bytes == 0) return 0;
  const size_t pending = __fpending(stream);
  for (;;) {
    const size_t done = fwrite_once(static_cast<const char*>(buffer), bytes, stream);
    const bool untouched = done == 0 && __fpending(stream) == pending;
    if (!untouched || !is_interrupted(stream)) return done / size;
    clear_error(stream);
  }
}

ssize_t KP_write(int descriptor, const void* buffer, size_t length) noexcept {
  if (!kp_fault_strikes(kp_fault_call::write)) return write(descriptor, buffer, length);
  const size_t part = kp_fault_transfer(kp_fault_call::write, length);
  return part == 0 ? -1 : write(descriptor, buffer, part);
}

// transfer(length), begun again after a signal; a struck call transfers only what its plan allows.
template <class Transfer>
static ssize_t through_signals(kp_fault_call call, size_t length, Transfer transfer) noexcept {
  ssize_t done = 0;
  do {
    const bool struck = kp_fault_strikes(call);
    const size_t part = struck ? kp_fault_transfer(call, length) : length;
    done = struck && part == 0 ? -1 : transfer(part);
  } while (done < 0 && errno == EINTR);
  return done;
}

ssize_t KP_pread(int descriptor, void* buffer, size_t length, off_t offset) noexcept {
  return through_signals(kp_fault_call::pread, length,
                         [=](size_t part) { return pread(descriptor, buffer, part, offset); });
}

ssize_t KP_pwrite(int descriptor, const void* buffer, size_t length, off_t offset) noexcept {
  return through_signals(kp_fault_call::pwrite, length,
                         [=](size_t part) { return pwrite(descriptor, buffer, part, offset); });
}

// ---- opening ----

// A descriptor that is closed unless it is handed on.
class kp_descriptor {
 public:
  explicit kp_descriptor(int number) noexcept : number_(number) {}
  kp_descriptor(const kp_descriptor&) = delete;
  kp_descriptor& operator=(const kp_descriptor&) = delete;
  ~kp_descriptor() {
    if (number_ >= 0) close(number_);
  }

  int get() const noexcept { return number_; }
  void hand_on() noexcept { number_ = -1; }

 private:
  int number_;
};

static int open_for_reading(const char* path) noexcept {
  if (kp_fault_strikes(kp_fault_call::open)) return -1;
  return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
}

static FILE* stream_on(int descriptor) noexcept {
  return kp_fault_strikes(kp_fault_call::fdopen) ? nullptr : fdopen(descriptor, "rb");
}

FILE* KP_open_regular(const char* path) noexcept {
  if (path == nullptr) return nullptr;
  kp_descriptor descriptor(open_for_reading(path));
  if (descriptor.get() < 0) return nullptr;
  struct stat status = {};
  if (KP_fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  FILE* const stream = stream_on(descriptor.get());
  if (stream != nullptr) descriptor.hand_on();
  return stream;
}

// ---- texts ----

static constexpr unsigned no_digit = 16;

static unsigned digit_value(char c) noexcept {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10;
  return no_digit;
}

static uint32_t leading_number(const char* text, unsigned base) noexcept {
  constexpr uint32_t largest = std::numeric_limits<uint32_t>::max();
  uint64_t number = 0;
  for (; digit_value(*text) < base; ++text) {
    number = number * base + digit_value(*text);
    if (number > largest) return largest;
  }
  return static_cast<uint32_t>(number);
}

uint32_t KP_strto4u(const char* text) noexcept {
  return text != nullptr ? leading_number(text, 10) : 0;
}

uint32_t KP_hexto4u(const char* text) noexcept {
  if (text == nullptr) return 0;
  const bool prefixed = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  return leading_number(prefixed ? text + 2 : text, 16);
}

// ---- assertions ----

static const char* or_null(const char* text) noexcept {
  return text != nullptr ? text : "(null)";
}

void KP_assertion_violation(const char* expression, const char* file, int line) noexcept {
  const int error = errno;
  static_cast<void>(
      fprintf(stderr, "%s:%d: assertion failed: %s\n", or_null(file), line, or_null(expression)));
  errno = error;
}
