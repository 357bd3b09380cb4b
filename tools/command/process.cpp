#include "tools/command/process.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <new>

#include "base/kp_exception.h"
#include "recording/report/standard_error.h"
#include "tools/command/command_line.h"
#include "tools/command/icu_zone.h"
#include "tools/report/outcome.h"

static command_outcome run(int argc, char** argv) {
  standard_error log(STDERR_FILENO);
  log.tie(&std::cout);
  try {
    return kplog_command_line(KPLOG_VERSION).run(argc, argv, std::cout, log);
  } catch (const std::bad_alloc&) {
    log << "kplog: out of memory\n";
  } catch (const KPX_memory_alloc&) {
    log << "kplog: out of memory\n";
  } catch (const std::exception& error) {
    log << "kplog: " << error.what() << '\n';
  }
  return command_outcome::file_error;
}

// One of the three descriptors that is closed would be that of the next file opened, and messages
// would go into a log. Something stands in for it that can neither be read nor written to.
static void hold_standard_descriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
    if (fcntl(descriptor, F_GETFD) < 0)
      static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

int run_process(int argc, char** argv, std::span<const engine_row> engines) {
  use_engines(engines);
  hold_standard_descriptors();
  if (getauxval(AT_SECURE) != 0) {
    std::cerr << "kplog: this program does not run with raised privileges\n";
    return static_cast<int>(command_outcome::usage);
  }
  // A file that grows too large is an error of the write, not the end of the program.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  use_zone_of_c_library();
  return static_cast<int>(run(argc, argv));
}
