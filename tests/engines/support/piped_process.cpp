#include "tests/engines/support/piped_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "tests/support/temp_folder.h"

piped_process::piped_process(const std::vector<std::string>& words, const std::string& err_path)
    : err_path_(err_path) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  int in[2] = {-1, -1}, out[2] = {-1, -1};
  EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
  const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  id_ = fork();
  if (id_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err, 2);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  EXPECT_GT(id_, 0);
  for (const int theirs : {in[0], out[1], err}) close(theirs);
  input_ = in[1];
  output_ = out[0];
}

void piped_process::end() {
  if (id_ <= 0) return;
  kill(id_, SIGKILL);
  waitpid(id_, nullptr, 0);
  close(input_);
  close(output_);
  id_ = -1;
}

bool piped_process::is_alive() const {
  siginfo_t state{};
  return waitid(P_PID, static_cast<id_t>(id_), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         state.si_pid == 0;
}

void piped_process::send(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t written = write(input_, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    ASSERT_GT(written, 0) << read_whole_file(err_path_);
    text.remove_prefix(static_cast<size_t>(written));
  }
}

std::string piped_process::line() {
  constexpr int patience = 120000;
  while (bytes_.find('\n') == std::string::npos) {
    pollfd waiting{output_, POLLIN, 0};
    const bool has_come = poll(&waiting, 1, patience) == 1;
    EXPECT_TRUE(has_come) << "nothing came; " << read_whole_file(err_path_);
    std::array<char, 65536> piece{};
    const ssize_t got = has_come ? read(output_, piece.data(), piece.size()) : 0;
    if (got <= 0) {
      ADD_FAILURE() << "it ended; " << read_whole_file(err_path_);
      return "";
    }
    bytes_.append(piece.data(), static_cast<size_t>(got));
  }
  const size_t end = bytes_.find('\n');
  std::string first = bytes_.substr(0, end);
  bytes_.erase(0, end + 1);
  return first;
}
