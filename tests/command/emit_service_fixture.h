// kplog emit as a service, in a folder with definitions.
#ifndef TESTS_COMMAND_EMIT_SERVICE_FIXTURE_H
#define TESTS_COMMAND_EMIT_SERVICE_FIXTURE_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>

#include "tests/command/emit_fixture.h"

class EmitService : public testing::Test {
 protected:
  using words = std::vector<std::string>;

  std::unique_ptr<running_command> start(const words& arguments) {
    return std::make_unique<running_command>(folder_.path(), emit_folder::words(arguments));
  }
  // A service on "sock" that is ready; messages come out.
  std::unique_ptr<running_command> start_listening(words arguments = {"--to", "-"}) {
    arguments.insert(arguments.end(), {"--listen", "unix:sock"});
    auto service = start(arguments);
    EXPECT_TRUE(service->wait_for_err("listening on unix:sock"));
    return service;
  }
  std::unique_ptr<socket_client> client() {
    auto one = std::make_unique<socket_client>(folder_.path("sock"));
    EXPECT_TRUE(one->is_connected());
    return one;
  }
  // A FIFO with the service as its reader.
  std::unique_ptr<running_command> start_reading_fifo() {
    EXPECT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
    return start({"-q", "--to", "-", "fifo"});
  }
  // Opens the FIFO, waiting for its reader, writes, and leaves.
  void write_to_fifo(const std::string& text) const {
    const int fifo = open(folder_.path("fifo").c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fifo, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fifo);
  }

  emit_folder folder_;
};

inline command_end end_of(running_command& service, int signal = SIGTERM) {
  service.signal(signal);
  return service.wait_for_end();
}

#endif
