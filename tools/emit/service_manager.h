// The service manager that started the process, where one did (systemd: sd_notify, sd_listen_fds).
#ifndef TOOLS_EMIT_SERVICE_MANAGER_H
#define TOOLS_EMIT_SERVICE_MANAGER_H

#include <chrono>
#include <string>

#include "recording/files/descriptor.h"

// Tells it how the service is. Nothing happens where nobody listens, and nothing waits for who does
// not read.
class service_manager {
 public:
  // What it is told that the service does, while it serves and when it stops.
  struct words {
    std::string serving;
    std::string stopping;
  };
  explicit service_manager(words told);

  // From here on it serves; also behind reloading().
  void ready();
  void reloading();
  void stopping();

  // Tells its watchdog that the service is alive, when it is time.
  void look();
  // How long until then; negative: it has none.
  std::chrono::milliseconds patience() const;

 private:
  using clock = std::chrono::steady_clock;

  words words_;
  std::chrono::microseconds interval_{0};  // between two words to the watchdog; 0: none
  clock::time_point next_;
};

// The listening socket that the manager handed over for that path; not open where it handed over
// none. Raises file_error where the sockets that it did hand over are of other paths.
open_descriptor handed_over_socket(const std::string& path);

// Whether standard error goes to a journal, which takes "<3>" and its like in front of a line for
// how grave that is.
bool does_journal_read_standard_error();

#endif
