// Attempts in which allocations of ICU fail, each in a process of its own.
#ifndef TESTS_SUPPORT_ICU_FAULTS_H
#define TESTS_SUPPORT_ICU_FAULTS_H

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

enum class fault_outcome { none_left, sound, unsound, ended_by_icu };

// ICU does not check each of its allocations, so the attempt is made in a process of its own.
inline fault_outcome in_a_child(const std::function<fault_outcome()>& attempt) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    std::signal(SIGSEGV, SIG_DFL);
    std::signal(SIGABRT, SIG_DFL);
    alarm(10);  // ICU may wait for ever for a lock of its own
    _exit(static_cast<int>(attempt()));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? static_cast<fault_outcome>(WEXITSTATUS(status))
                           : fault_outcome::ended_by_icu;
}

// AddressSanitizer makes each fork slow.
#ifdef KP_SANITIZED
constexpr unsigned fault_step = 7;
#else
constexpr unsigned fault_step = 1;
#endif

#endif
