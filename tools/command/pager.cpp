#include "tools/command/pager.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

static constexpr const char* usual_pager =
    "if command -v less >/dev/null; then exec less; else exec cat; fi";

static volatile pid_t running_pager = 0;
static struct sigaction interrupt_before;

static void wait_for_pager() {
  while (waitpid(running_pager, nullptr, 0) < 0 && errno == EINTR) {
  }
  running_pager = 0;
}

// A pager that outlived the process would go on reading from the terminal beside the shell.
static void end_with_pager(int signal_number) {
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  wait_for_pager();
  sigaction(SIGINT, &interrupt_before, nullptr);
  static_cast<void>(raise(signal_number));
}

static const char* wanted_pager() {
  for (const char* const name : {"KPLOG_PAGER", "PAGER"})
    if (const char* const command = std::getenv(name))
      return *command == '\0' || strcmp(command, "cat") == 0 ? nullptr : command;
  return usual_pager;
}

// F: a page that fits on the screen is shown at once; R: colors; X: what was shown stays there.
static void prefer_less_options() {
  setenv("LESS", "FRX", 0);
}

bool pager::start(const char* command) {
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
  std::array<char*, 4> arguments = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                                    const_cast<char*>(command), nullptr};
  prefer_less_options();
  pid_t child = 0;
  const bool is_running =
      posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  close(ends[0]);
  if (is_running) {
    running_pager = child;
    kept_output_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (isatty(STDERR_FILENO) != 0) kept_log_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(ends[1], STDOUT_FILENO);
    if (kept_log_ >= 0) dup2(ends[1], STDERR_FILENO);
  }
  close(ends[1]);
  return is_running;
}

pager::pager() {
  const char* const command = wanted_pager();
  if (command == nullptr || isatty(STDOUT_FILENO) == 0) return;
  std::cout.flush();
  if (!start(command)) return;
  struct sigaction ending {};
  ending.sa_handler = end_with_pager;
  sigaction(SIGINT, &ending, &interrupt_before);
  // Whoever leaves the pager wants no more.
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
}

pager::~pager() {
  if (kept_output_ < 0) return;
  std::cout.flush();
  dup2(kept_output_, STDOUT_FILENO);
  close(kept_output_);
  if (kept_log_ >= 0) {
    dup2(kept_log_, STDERR_FILENO);
    close(kept_log_);
  }
  wait_for_pager();
  sigaction(SIGINT, &interrupt_before, nullptr);
}
