// Wrappers of the C library, under the names that the product line uses. Each has the contract of
// the function it is named for; what differs is said. In builds with fault hooks, every wrapper
// that can fail asks the hook first.
#ifndef KP_CLIB_H
#define KP_CLIB_H

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/kp_export.h"
#include "base/kp_fault.h"

// ---- buffered files ----

inline FILE* KP_fopen(const char* path, const char* mode) noexcept {
  return kp_fault_strikes(kp_fault_call::fopen) ? nullptr : fopen(path, mode);
}

// Closes the stream in any case.
inline int KP_fclose(FILE* stream) noexcept {
  kp_fault_unmark(stream);
  const bool struck = kp_fault_strikes(kp_fault_call::fclose);
  const int status = fclose(stream);
  return struck ? EOF : status;
}

// A signal handler that interrupts the reading does not end it: the rest is read on from where it
// stopped. A count of less than `count` is the end of the file or a real error.
KP_API size_t KP_fread(void* buffer, size_t size, size_t count, FILE* stream) noexcept;

// The writing interrupted by a signal handler is taken up again as long as nothing has left the
// stream's buffer yet; later the C library no longer tells what has reached the file, and the
// interruption is an error like any other.
KP_API size_t KP_fwrite(const void* buffer, size_t size, size_t count, FILE* stream) noexcept;

inline int KP_fseek(FILE* stream, off_t offset, int whence) noexcept {
  return kp_fault_strikes(kp_fault_call::fseek) ? -1 : fseeko(stream, offset, whence);
}

inline off_t KP_ftell(FILE* stream) noexcept {
  return kp_fault_strikes(kp_fault_call::ftell) ? -1 : ftello(stream);
}

inline int KP_fflush(FILE* stream) noexcept {
  return kp_fault_strikes(kp_fault_call::fflush) ? EOF : fflush(stream);
}

inline int KP_getc(FILE* stream) noexcept {
  if (!kp_fault_strikes(kp_fault_call::getc)) return getc(stream);
  kp_fault_mark(stream);
  return EOF;
}

inline int KP_feof(FILE* stream) noexcept {
  return feof(stream);
}

inline int KP_ferror(FILE* stream) noexcept {
  return kp_fault_is_marked(stream) ? 1 : ferror(stream);
}

inline int KP_fileno(FILE* stream) noexcept {
  return fileno(stream);
}

// Opens a regular file for reading, without ever waiting. Null for anything else (a FIFO, a folder,
// a device) and for a file that cannot be opened.
KP_API FILE* KP_open_regular(const char* path) noexcept;

// Closes the stream that a kp_file owns; for streams whose closing cannot lose anything.
struct kp_file_closer {
  void operator()(FILE* stream) const noexcept { KP_fclose(stream); }
};
using kp_file = std::unique_ptr<FILE, kp_file_closer>;

// ---- descriptors ----

inline int KP_open(const char* path, int flags, mode_t mode = 0) noexcept {
  return kp_fault_strikes(kp_fault_call::open) ? -1 : open(path, flags, mode);
}

inline int KP_openat(int folder, const char* name, int flags, mode_t mode = 0) noexcept {
  return kp_fault_strikes(kp_fault_call::openat) ? -1 : openat(folder, name, flags, mode);
}

// Closes the descriptor in any case.
inline int KP_close(int descriptor) noexcept {
  const bool struck = kp_fault_strikes(kp_fault_call::close);
  const int error = errno;
  const int status = close(descriptor);
  if (struck) errno = error;
  return struck ? -1 : status;
}

inline ssize_t KP_read(int descriptor, void* buffer, size_t length) noexcept {
  if (!kp_fault_strikes(kp_fault_call::read)) return read(descriptor, buffer, length);
  const size_t part = kp_fault_transfer(kp_fault_call::read, length);
  return part == 0 ? -1 : read(descriptor, buffer, part);
}

KP_API ssize_t KP_write(int descriptor, const void* buffer, size_t length) noexcept;

// A reading or writing that a signal handler interrupts before it has begun is begun again.
KP_API ssize_t KP_pread(int descriptor, void* buffer, size_t length, off_t offset) noexcept;
KP_API ssize_t KP_pwrite(int descriptor, const void* buffer, size_t length, off_t offset) noexcept;

inline int KP_ftruncate(int descriptor, off_t size) noexcept {
  return kp_fault_strikes(kp_fault_call::ftruncate) ? -1 : ftruncate(descriptor, size);
}

inline int KP_fsync(int descriptor) noexcept {
  return kp_fault_strikes(kp_fault_call::fsync) ? -1 : fsync(descriptor);
}

inline int KP_fdatasync(int descriptor) noexcept {
  return kp_fault_strikes(kp_fault_call::fdatasync) ? -1 : fdatasync(descriptor);
}

inline int KP_flock(int descriptor, int operation) noexcept {
  return kp_fault_strikes(kp_fault_call::flock) ? -1 : flock(descriptor, operation);
}

inline int KP_fchmod(int descriptor, mode_t mode) noexcept {
  return kp_fault_strikes(kp_fault_call::fchmod) ? -1 : fchmod(descriptor, mode);
}

inline int KP_fstat(int descriptor, struct stat* status) noexcept {
  return kp_fault_strikes(kp_fault_call::fstat) ? -1 : fstat(descriptor, status);
}

// ---- paths, folders, environment ----

inline int KP_stat(const char* path, struct stat* status) noexcept {
  return kp_fault_strikes(kp_fault_call::stat) ? -1 : stat(path, status);
}

inline int KP_lstat(const char* path, struct stat* status) noexcept {
  return kp_fault_strikes(kp_fault_call::lstat) ? -1 : lstat(path, status);
}

inline int KP_fstatat(int folder, const char* name, struct stat* status, int flags) noexcept {
  return kp_fault_strikes(kp_fault_call::fstatat) ? -1 : fstatat(folder, name, status, flags);
}

inline ssize_t KP_readlink(const char* path, char* buffer, size_t size) noexcept {
  return kp_fault_strikes(kp_fault_call::readlink) ? -1 : readlink(path, buffer, size);
}

inline int KP_chmod(const char* path, mode_t mode) noexcept {
  return kp_fault_strikes(kp_fault_call::chmod) ? -1 : chmod(path, mode);
}

inline int KP_rename(const char* path, const char* to) noexcept {
  return kp_fault_strikes(kp_fault_call::rename) ? -1 : rename(path, to);
}

// Within a folder. To the fault hooks it is a rename.
inline int KP_renameat(int folder, const char* name, const char* to) noexcept {
  return kp_fault_strikes(kp_fault_call::rename) ? -1 : renameat(folder, name, folder, to);
}

inline int KP_unlink(const char* path) noexcept {
  return kp_fault_strikes(kp_fault_call::unlink) ? -1 : unlink(path);
}

inline int KP_unlinkat(int folder, const char* name, int flags) noexcept {
  return kp_fault_strikes(kp_fault_call::unlinkat) ? -1 : unlinkat(folder, name, flags);
}

inline int KP_mkostemp(char* path, int flags) noexcept {
  return kp_fault_strikes(kp_fault_call::mkostemp) ? -1 : mkostemp(path, flags);
}

inline char* KP_mkdtemp(char* path) noexcept {
  return kp_fault_strikes(kp_fault_call::mkdtemp) ? nullptr : mkdtemp(path);
}

inline int KP_mkdir(const char* path, mode_t mode) noexcept {
  return kp_fault_strikes(kp_fault_call::mkdir) ? -1 : mkdir(path, mode);
}

inline DIR* KP_fdopendir(int descriptor) noexcept {
  return kp_fault_strikes(kp_fault_call::fdopendir) ? nullptr : fdopendir(descriptor);
}

// Null at the end, with errno as it was, and for a failure.
inline dirent* KP_readdir(DIR* folder) noexcept {
  return kp_fault_strikes(kp_fault_call::readdir) ? nullptr : readdir(folder);
}

inline int KP_access(const char* path, int mode) noexcept {
  return kp_fault_strikes(kp_fault_call::access) ? -1 : access(path, mode);
}

inline char* KP_getcwd(char* buffer, size_t size) noexcept {
  return kp_fault_strikes(kp_fault_call::getcwd) ? nullptr : getcwd(buffer, size);
}

// Null in a program that runs with more rights than its user has, whatever the environment holds.
inline char* KP_getenv(const char* name) noexcept {
  return secure_getenv(name);
}

// ---- sockets ----

inline int KP_bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  return kp_fault_strikes(kp_fault_call::bind) ? -1 : bind(descriptor, address, size);
}

inline int KP_listen(int descriptor, int backlog) noexcept {
  return kp_fault_strikes(kp_fault_call::listen) ? -1 : listen(descriptor, backlog);
}

// ---- what happens to files ----

inline int KP_inotify_init1(int flags) noexcept {
  return kp_fault_strikes(kp_fault_call::inotify_init1) ? -1 : inotify_init1(flags);
}

// ---- texts ----

inline size_t KP_strlen(const char* text) noexcept {
  return strlen(text);
}
inline int KP_strcmp(const char* a, const char* b) noexcept {
  return strcmp(a, b);
}

// The number that the decimal digits at the start of `text` tell, up to the first other character:
// 0 when there are none (null included), 4294967295 when it does not fit.
KP_API uint32_t KP_strto4u(const char* text) noexcept;

// The same in base 16, behind an optional "0x" or "0X".
KP_API uint32_t KP_hexto4u(const char* text) noexcept;

// ---- time ----

inline time_t KP_time(time_t* result) noexcept {
  return time(result);
}

inline struct tm* KP_localtime_r(const time_t* moment, struct tm* result) noexcept {
  return kp_fault_strikes(kp_fault_call::localtime_r) ? nullptr : localtime_r(moment, result);
}

inline time_t KP_mktime(struct tm* broken_down) noexcept {
  return kp_fault_strikes(kp_fault_call::mktime) ? -1 : mktime(broken_down);
}

// The attribute has the compiler check the formats of the callers instead of this one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
[[gnu::format(strftime, 3, 0)]] inline size_t KP_strftime(char* buffer, size_t size,
                                                          const char* format,
                                                          const struct tm* moment) noexcept {
  return kp_fault_strikes(kp_fault_call::strftime) ? 0 : strftime(buffer, size, format, moment);
}
#pragma GCC diagnostic pop

// ---- assertions ----

// Reports a broken assumption as one line on standard error, "file:line: assertion failed:
// expression", and returns. Keeps errno.
KP_API void KP_assertion_violation(const char* expression, const char* file, int line) noexcept;

#endif
