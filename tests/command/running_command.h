// The kplog command while it runs: what it is sent, what it says, signals, and how it ends.
#ifndef TESTS_COMMAND_RUNNING_COMMAND_H
#define TESTS_COMMAND_RUNNING_COMMAND_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

// Whether the memory of a command is its own, and not that of AddressSanitizer.
#ifdef KP_SANITIZED
constexpr bool is_memory_its_own = false;
#else
constexpr bool is_memory_its_own = true;
#endif

// How a command ended.
struct command_end {
  int status = -1;          // as in command_result
  long peak_kilobytes = 0;  // of memory
  std::string out;          // what it said and nobody has read
  std::string err;
};

// What the standard error of a command is: a pipe, a terminal, or one that its standard output is,
// too, and that is then read as its error; or one of these that has no room left, of full stops.
enum class command_err { pipe, terminal, shared_terminal, full_pipe, full_terminal };

// "kplog ARGUMENTS" in `folder`, with pipes at its standard input and output; behind `before`, a
// command of the shell, if there is one. Reads fail the test
// and give "" when nothing comes in a minute. A command that is still there at the end of the scope
// is killed.
class running_command {
 public:
  running_command(const std::string& folder, const std::vector<std::string>& arguments,
                  command_err err = command_err::pipe, const std::string& before = "");
  ~running_command();
  running_command(const running_command&) = delete;
  running_command& operator=(const running_command&) = delete;

  pid_t id() const { return id_; }
  // False when the command does not read any more.
  bool send(std::string_view text) const;
  void end_input();
  std::string out_line();  // the next one, without its end; "" at the end of the output
  std::string err_line();
  std::string err_so_far();  // all that nobody has read yet; waits for nothing
  // Reads lines of standard error up to one that holds the text.
  bool wait_for_err(const std::string& text);
  void signal(int number) const;
  command_end wait_for_end();  // its input stays open
  command_end wait();          // ends the input first

 private:
  // A pipe's reading end and what came through it.
  struct stream {
    int descriptor = -1;
    std::string bytes;

    bool read_more();
    std::string line();
  };

  pid_t id_ = -1;
  int input_ = -1;
  stream out_;
  stream err_;
};

// A stream socket connected to the path, on which somebody listens.
class socket_client {
 public:
  explicit socket_client(const std::string& path);
  ~socket_client() { leave(); }
  socket_client(const socket_client&) = delete;
  socket_client& operator=(const socket_client&) = delete;

  bool is_connected() const { return descriptor_ >= 0; }
  bool send(std::string_view text) const;
  void end_sending() const;  // and go on hearing
  // The next line of what it is answered, without its end; "" when there is none any more. Fails
  // the test where nothing comes in a minute.
  std::string line();
  void leave();

 private:
  int descriptor_ = -1;
  std::string heard_;  // not yet read
};

#endif
