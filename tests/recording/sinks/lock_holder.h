// Another process, as far as locks can tell, that holds the lock of what is at a path.
#ifndef TESTS_RECORDING_SINKS_LOCK_HOLDER_H
#define TESTS_RECORDING_SINKS_LOCK_HOLDER_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <string>

#include "recording/files/descriptor.h"

class lock_holder {
 public:
  explicit lock_holder(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(flock(file_.get(), LOCK_EX), 0) << path;
  }
  void leave() { file_ = open_descriptor(); }

 private:
  open_descriptor file_;
};

#endif
