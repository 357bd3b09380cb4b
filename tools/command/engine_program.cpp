#include "tools/command/engine_program.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "recording/files/file_error.h"
#include "recording/files/whole_file.h"
#include "recording/text/words.h"
#include "tools/report/outcome.h"
#include "tools/ship/address.h"

static constexpr size_t longest_command_line = size_t{16} << 20;

// The words of this process's command line.
static std::vector<std::string> own_words() {
  std::vector<std::string> words;
  const std::string line = read_file("/proc/self/cmdline", longest_command_line);
  for (size_t begin = 0; begin < line.size();) {
    const size_t end = std::min(line.find('\0', begin), line.size());
    words.push_back(line.substr(begin, end - begin));
    begin = end + 1;
  }
  return words;
}

[[noreturn]] static void become_kplog_ship() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::string program = (self.parent_path() / "kplog-ship").string();
  std::vector<std::string> words = own_words();
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execv(program.c_str(), arguments.data());
  throw file_error(
      file_use::reading, "run", program,
      std::string(strerror(errno)) + "; what reaches engines comes with the package kplog-ship");
}

static const engine_row& checked(const engine_row& engine, const std::string& address) {
  try {
    if (engine.check != nullptr) engine.check(address);
  } catch (const engine_error& error) {
    throw wrong_usage(error.what());
  }
  return engine;
}

const engine_row& engine_at(const std::string& address) {
  if (engines().empty()) become_kplog_ship();
  std::string known;
  for (const engine_row& engine : engines()) {
    if (engine.scheme == scheme_of(address)) return checked(engine, address);
    known += (known.empty() ? "" : ", ") + std::string(engine.scheme) + "://";
  }
  throw wrong_usage(in_quotes(address) + " is no address of an engine; these begin with " + known);
}
