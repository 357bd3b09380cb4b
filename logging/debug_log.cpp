#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "base/kp_clib.h"
#include "kp_LOG_debug_log.h"
#include "logging/raise.h"

unsigned debug_log_level = 0;

// A line of this level is written whatever the debug level is; the highest one there is.
static constexpr unsigned always_written_level = 9;
// Lines up to this size are built on the stack.
static constexpr size_t stack_line_room = 1024;

// The debug log as a descriptor, or -1 when it cannot be opened or is neither a regular file nor a
// character device, such as the terminal behind a link to standard error. Never waits, not even for
// the other end of a pipe that somebody has put in its place.
static int open_debug_log() {
  const int file =
      open("zel_debug.log", O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
  if (file < 0) return -1;
  struct stat status;
  if (KP_fstat(file, &status) == 0 && (S_ISREG(status.st_mode) || S_ISCHR(status.st_mode)))
    return file;
  close(file);
  return -1;
}

// A broken-down time and its text, as the calling thread told it last: lines of one second share
// it.
struct debug_log_second {
  bool is(const struct tm& time) const noexcept {
    return second == time.tm_sec && minute == time.tm_min && hour == time.tm_hour &&
           day == time.tm_mday && month == time.tm_mon && year == time.tm_year;
  }
  void tell(const struct tm& time) {
    const size_t length = KP_strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &time);
    text[length] = '\0';
    second = time.tm_sec;
    minute = time.tm_min;
    hour = time.tm_hour;
    day = length != 0 ? time.tm_mday : 0;
    month = time.tm_mon;
    year = time.tm_year;
  }

  int second = 0, minute = 0, hour = 0, day = 0, month = 0, year = 0;  // as in a tm; no day is 0
  char text[20] = "";
};

// The local time as "YYYY/MM/DD HH:MM:SS"; "" when it cannot be told.
static const char* local_time_text() {
  static constinit thread_local debug_log_second last;
  const time_t now = KP_time(nullptr);
  struct tm local;
  if (KP_localtime_r(&now, &local) == nullptr) return "";
  if (!last.is(local)) last.tell(local);
  return last.text;
}

// Room for a prefix: a time, what stands around it, and two numbers.
static constexpr size_t prefix_room = 64;

// Prints the prefix of a line and returns its end.
static char* print_prefix(char* line) {
  char* const end = line + prefix_room;
  line = stpcpy(line, local_time_text());
  line = std::to_chars(stpcpy(line, "(pid="), end, static_cast<int>(getpid())).ptr;
  line = std::to_chars(stpcpy(line, ")(tid="), end, static_cast<int>(pthread_self())).ptr;
  return stpcpy(line, "):");
}

// One write for the whole line, so that lines of several threads and processes stay apart. Nobody
// is told of a failure.
static void write_line(const char* line, size_t length) {
  const int file = open_debug_log();
  if (file < 0) return;
  const ssize_t written = KP_write(file, line, length);
  static_cast<void>(written);
  close(file);
}

// A line too long for the stack: builds it again on the heap. Without memory for that, writes the
// part that is in `line`.
__attribute__((format(printf, 5, 0))) static void write_long_line(const char* line, size_t prefix,
                                                                  size_t size, size_t length,
                                                                  const char* format,
                                                                  va_list args) {
  const std::unique_ptr<char[]> whole(new (std::nothrow) char[length + 1]);
  if (whole == nullptr) return write_line(line, size - 1);
  memcpy(whole.get(), line, prefix);
  if (vsnprintf(whole.get() + prefix, length + 1 - prefix, format, args) >= 0)
    write_line(whole.get(), length);
  else
    write_line(whole.get(), strnlen(whole.get(), length));
}

// A line whose format fails midway, as for a wide character that the locale lacks: writes what was
// formatted before. Without memory for that, the part of it that is in `line`.
__attribute__((format(printf, 4, 0))) static void write_failed_line(const char* line, size_t prefix,
                                                                    size_t size, const char* format,
                                                                    va_list args) {
  char* whole = nullptr;
  size_t length = 0;
  FILE* const stream = open_memstream(&whole, &length);
  if (stream == nullptr) return write_line(line, strnlen(line, size - 1));
  static_cast<void>(fwrite(line, 1, prefix, stream));
  static_cast<void>(vfprintf(stream, format, args));
  static_cast<void>(fclose(stream));
  const std::unique_ptr<char, decltype(&free)> owner(whole, &free);
  if (whole != nullptr) write_line(whole, length);
}

// Apart from LogDebugMessage, so that a line that is filtered out does not pay for its frame.
__attribute__((noinline, format(printf, 1, 0))) static void append_line(const char* format,
                                                                        va_list args) {
  const int errno_of_caller = errno;
  char line[stack_line_room];
  const auto prefix = static_cast<size_t>(print_prefix(line) - line);

  va_list args_again;
  va_copy(args_again, args);
  const int text = vsnprintf(line + prefix, sizeof line - prefix, format, args);
  const size_t length = prefix + (text > 0 ? static_cast<size_t>(text) : 0);
  if (text < 0)
    write_failed_line(line, prefix, sizeof line, format, args_again);
  else if (length < sizeof line)
    write_line(line, length);
  else
    write_long_line(line, prefix, sizeof line, length, format, args_again);
  va_end(args_again);
  errno = errno_of_caller;
}

static bool is_written(unsigned level) {
  const unsigned enabled = kp_load(debug_log_level);
  return (enabled != 0 && level <= enabled) || level == always_written_level;
}

kp_log_told::kp_log_told(const char* format, ...) noexcept {
  if (!is_written(1)) return;
  va_list args;
  va_start(args, format);
  append_line(format, args);
  va_end(args);
}

// Without a guard of its frame, which holds no buffer and would be paid for by every filtered line.
__attribute__((no_stack_protector)) void LogDebugMessage(unsigned level, const char* format, ...) {
  if (!is_written(level)) return;
  va_list args;
  va_start(args, format);
  append_line(format, args);
  va_end(args);
}

void EnableDebugLog(int level) {
  const unsigned wanted = static_cast<unsigned>(level);
  if (wanted <= always_written_level) kp_store(debug_log_level, wanted);
}

unsigned GetDebugLogLevel() {
  return kp_load(debug_log_level);
}

const char* GetZELVersion() {
  return "1.1.1.0000";
}
