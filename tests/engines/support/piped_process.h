// A server of a test: a process that is told what to do, and tells what came.
#ifndef TESTS_ENGINES_SUPPORT_PIPED_PROCESS_H
#define TESTS_ENGINES_SUPPORT_PIPED_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Has pipes at its standard input and output; its standard error goes to a file. It is killed at
// the end of the scope, and when the process dies that started it.
class piped_process {
 public:
  piped_process(const std::vector<std::string>& words, const std::string& err_path);
  ~piped_process() { end(); }
  piped_process(const piped_process&) = delete;
  piped_process& operator=(const piped_process&) = delete;

  pid_t id() const { return id_; }
  void send(std::string_view text) const;
  // The next line of its output, without its end. Fails the test, and is empty, where none comes
  // in two minutes, or where the process ends.
  std::string line();
  bool is_alive() const;
  void end();  // kills it, and waits for its end

 private:
  pid_t id_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string err_path_;
  std::string bytes_;  // of the output, not yet read
};

// Whether it comes to hold within two minutes.
template <class Condition>
bool comes_true(const Condition& holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

#endif
