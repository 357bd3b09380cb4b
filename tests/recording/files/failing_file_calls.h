// Operations on files of which each call fails in turn; and a full disk.
#ifndef TESTS_RECORDING_FILES_FAILING_FILE_CALLS_H
#define TESTS_RECORDING_FILES_FAILING_FILE_CALLS_H

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>

#include "recording/files/file_error.h"
#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"

// A limit of the size of files, which stands for a full disk, for a scope.
class small_disk {
 public:
  explicit small_disk(rlim_t bytes) : signal_before_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const struct rlimit limit = {bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~small_disk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_before_);
  }
  small_disk(const small_disk&) = delete;
  small_disk& operator=(const small_disk&) = delete;

 private:
  struct rlimit before_ {};
  void (*signal_before_)(int);
};

#ifdef KP_FAULTS

struct named_file_call {
  kp_fault_call call;
  const char* name;
};

inline constexpr named_file_call file_calls[] = {
    {kp_fault_call::open, "open"},         {kp_fault_call::openat, "openat"},
    {kp_fault_call::close, "close"},       {kp_fault_call::read, "read"},
    {kp_fault_call::write, "write"},       {kp_fault_call::pread, "pread"},
    {kp_fault_call::pwrite, "pwrite"},     {kp_fault_call::ftruncate, "ftruncate"},
    {kp_fault_call::fsync, "fsync"},       {kp_fault_call::fdatasync, "fdatasync"},
    {kp_fault_call::flock, "flock"},       {kp_fault_call::fchmod, "fchmod"},
    {kp_fault_call::stat, "stat"},         {kp_fault_call::lstat, "lstat"},
    {kp_fault_call::fstat, "fstat"},       {kp_fault_call::fstatat, "fstatat"},
    {kp_fault_call::readlink, "readlink"}, {kp_fault_call::rename, "rename"},
    {kp_fault_call::unlink, "unlink"},     {kp_fault_call::unlinkat, "unlinkat"},
    {kp_fault_call::mkostemp, "mkostemp"}, {kp_fault_call::fdopendir, "fdopendir"},
    {kp_fault_call::readdir, "readdir"},
};

// The text of the file_error; empty when nothing was raised.
inline std::string text_of(const std::exception_ptr& outcome, file_use use = file_use::writing) {
  try {
    if (outcome != nullptr) std::rethrow_exception(outcome);
  } catch (const file_error& error) {
    EXPECT_EQ(error.use(), use);
    return error.what();
  } catch (...) {
    ADD_FAILURE() << "an error other than file_error was raised";
  }
  return "";
}

// Runs `op` with each of its file calls failing in turn, of which `times` fail in a row, and then
// `check(text)` with the text of the file_error that was raised, empty when there was none. No run
// leaves a descriptor more open. Returns "CALL: TEXT" for all texts.
template <class Op, class Check>
std::set<std::string> for_each_failing_file_call(unsigned times, Op op, Check check) {
  std::set<std::string> texts;
  for (const named_file_call& of : file_calls) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, of.name);
    size_t before = open_descriptors();
    for_each_failing([&](unsigned n) { return failing(of.call, n, EIO, times); }, op,
                     [&](const std::exception_ptr& outcome) {
                       const std::string text = text_of(outcome);
                       EXPECT_LE(open_descriptors(), before) << text;
                       if (!text.empty()) texts.insert(std::string(of.name) + ": " + text);
                       check(text);
                       before = open_descriptors();
                     });
    check("");
  }
  return texts;
}

#endif

#endif
