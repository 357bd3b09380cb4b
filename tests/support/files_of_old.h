// Files that have not changed for a while, for tests of what goes by their times.
#ifndef TESTS_SUPPORT_FILES_OF_OLD_H
#define TESTS_SUPPORT_FILES_OF_OLD_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>

// Comes back when the file's last change is as long ago as the library asks for: a tenth of a
// second, where the file's times have fractions.
inline void let_grow_old(const std::string& path) {
  struct stat status = {};
  do {  // a change at a full second may be one of a file whose times have no fractions
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    ASSERT_EQ(stat(path.c_str(), &status), 0);
  } while (status.st_ctim.tv_nsec == 0);
  const auto changed = std::chrono::seconds(status.st_ctim.tv_sec) +
                       std::chrono::nanoseconds(status.st_ctim.tv_nsec);
  while (std::chrono::system_clock::now().time_since_epoch() <=
         changed + std::chrono::milliseconds(101))
    std::this_thread::yield();
}

#endif
