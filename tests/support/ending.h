// Processes that end in the middle of what they do.
#ifndef TESTS_SUPPORT_ENDING_H
#define TESTS_SUPPORT_ENDING_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "base/kp_fault_end.h"

// Only in builds with fault hooks: a test that uses it stands between #ifdef KP_FAULTS and #endif.
#ifdef KP_FAULTS

// Runs `op` in a process of its own, which ends as if it were killed where it is to make its n-th
// call of the C library. False when it came to its end before that.
inline bool ends_at_call(unsigned n, const std::function<void()>& op) {
  const pid_t child = fork();
  if (child == 0) {
    kp_fault_end_at(n);
    op();
    kp_fault_end_at(0);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  const bool is_ended = WIFEXITED(status) && WEXITSTATUS(status) == kp_fault_end_status;
  EXPECT_TRUE(is_ended || status == 0) << status;
  return is_ended;
}

#endif

#endif
