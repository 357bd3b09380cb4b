// kplog: a process around the command line.
#include <sys/auxv.h>

#include <csignal>
#include <iostream>
#include <new>

#include "tools/command_table.h"

static command_outcome run(int argc, char** argv) {
  try {
    return kplog_command_line(KPLOG_VERSION).run(argc, argv, std::cout, std::cerr);
  } catch (const std::bad_alloc&) {
    std::cerr << "kplog: out of memory\n";
  } catch (const std::exception& error) {
    std::cerr << "kplog: " << error.what() << '\n';
  }
  return command_outcome::file_error;
}

int main(int argc, char** argv) {
  if (getauxval(AT_SECURE) != 0) {
    std::cerr << "kplog: this program does not run with raised privileges\n";
    return static_cast<int>(command_outcome::usage);
  }
  // A file that grows too large is an error of the write, not the end of the program.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  return static_cast<int>(run(argc, argv));
}
