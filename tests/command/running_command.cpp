#include "tests/command/running_command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

static constexpr int patience = 60000;  // milliseconds

// A pipe whose ends no other command inherits.
struct command_pipe {
  explicit command_pipe(command_err kind = command_err::pipe) {
    const bool is_full = kind == command_err::full_pipe || kind == command_err::full_terminal;
    if (kind == command_err::pipe || kind == command_err::full_pipe)
      make_pipe();
    else
      make_terminal();
    if (is_full) fill();
  }
  void fill() const {
    EXPECT_EQ(fcntl(writing, F_SETFL, O_NONBLOCK), 0);
    while (write(writing, ".", 1) == 1) {
    }
    EXPECT_EQ(fcntl(writing, F_SETFL, 0), 0);
  }
  void make_pipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    reading = ends[0];
    writing = ends[1];
  }
  void make_terminal() {
    reading = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(reading), 0);
    EXPECT_EQ(unlockpt(reading), 0);
    writing = open(ptsname(reading), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(writing, 0);
  }
  int reading = -1;
  int writing = -1;
};

static pid_t spawn(const std::string& folder, const std::vector<std::string>& arguments,
                   const std::array<int, 3>& descriptors, const std::string& before) {
  std::vector<std::string> words = {KPLOG_COMMAND};
  if (!before.empty()) words = {"/bin/sh", "-c", before + " && exec \"$@\"", "sh", KPLOG_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  for (int number = 0; number < 3; ++number)
    posix_spawn_file_actions_adddup2(&actions, descriptors[static_cast<size_t>(number)], number);
  pid_t id = -1;
  EXPECT_EQ(posix_spawn(&id, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  return id;
}

running_command::running_command(const std::string& folder,
                                 const std::vector<std::string>& arguments, command_err err_kind,
                                 const std::string& before) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a command that has ended is seen by send
  const command_pipe in;
  const command_pipe out;
  const command_pipe err(err_kind);
  const bool is_shared = err_kind == command_err::shared_terminal;
  id_ = spawn(folder, arguments, {in.reading, is_shared ? err.writing : out.writing, err.writing},
              before);
  for (const int theirs : {in.reading, out.writing, err.writing}) close(theirs);
  input_ = in.writing;
  out_.descriptor = out.reading;
  err_.descriptor = err.reading;
}

running_command::~running_command() {
  if (id_ > 0) {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  for (const int ours : {input_, out_.descriptor, err_.descriptor})
    if (ours >= 0) close(ours);
}

static bool write_to(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool running_command::send(std::string_view text) const {
  return write_to(input_, text);
}

void running_command::end_input() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

// False at the end of the stream.
bool running_command::stream::read_more() {
  pollfd waiting{descriptor, POLLIN, 0};
  if (poll(&waiting, 1, patience) != 1) {
    ADD_FAILURE() << "nothing came in a minute";
    return false;
  }
  std::array<char, 65536> buffer{};
  const ssize_t got = read(descriptor, buffer.data(), buffer.size());
  if (got > 0) bytes.append(buffer.data(), static_cast<size_t>(got));
  return got > 0;
}

std::string running_command::stream::line() {
  size_t end = bytes.find('\n');
  while (end == std::string::npos) {
    if (!read_more()) return "";
    end = bytes.find('\n');
  }
  std::string line = bytes.substr(0, end);
  bytes.erase(0, end + 1);
  return line;
}

std::string running_command::out_line() {
  return out_.line();
}

std::string running_command::err_line() {
  return err_.line();
}

std::string running_command::err_so_far() {
  pollfd waiting{err_.descriptor, POLLIN, 0};
  while (poll(&waiting, 1, 0) == 1 && err_.read_more()) {
  }
  return std::exchange(err_.bytes, "");
}

bool running_command::wait_for_err(const std::string& text) {
  for (std::string line = err_line(); !line.empty(); line = err_line())
    if (line.find(text) != std::string::npos) return true;
  return false;
}

void running_command::signal(int number) const {
  kill(id_, number);
}

// Reads both outputs as they come, so that neither keeps the command waiting.
command_end running_command::wait_for_end() {
  std::array<pollfd, 2> waiting = {{{out_.descriptor, POLLIN, 0}, {err_.descriptor, POLLIN, 0}}};
  while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
    if (poll(waiting.data(), waiting.size(), patience) < 1) {
      ADD_FAILURE() << "the command did not end in a minute";
      kill(id_, SIGKILL);
    }
    if (waiting[0].revents != 0 && !out_.read_more()) waiting[0].fd = -1;
    if (waiting[1].revents != 0 && !err_.read_more()) waiting[1].fd = -1;
  }
  int status = 0;
  rusage usage{};
  EXPECT_EQ(wait4(id_, &status, 0, &usage), id_);
  id_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), usage.ru_maxrss,
          std::exchange(out_.bytes, ""), std::exchange(err_.bytes, "")};
}

socket_client::socket_client(const std::string& path) {
  descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    leave();
}

bool socket_client::send(std::string_view text) const {
  return write_to(descriptor_, text);
}

void socket_client::end_sending() const {
  shutdown(descriptor_, SHUT_WR);
}

std::string socket_client::line() {
  while (heard_.find('\n') == std::string::npos) {
    pollfd waiting{descriptor_, POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, patience), 1) << "nothing came";
    std::array<char, 4096> piece;
    const ssize_t got = waiting.revents == 0 ? 0 : recv(descriptor_, piece.data(), piece.size(), 0);
    if (got <= 0) return std::exchange(heard_, "");
    heard_.append(piece.data(), static_cast<size_t>(got));
  }
  std::string first = heard_.substr(0, heard_.find('\n'));
  heard_.erase(0, first.size() + 1);
  return first;
}

void socket_client::leave() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
}

command_end running_command::wait() {
  end_input();
  return wait_for_end();
}
