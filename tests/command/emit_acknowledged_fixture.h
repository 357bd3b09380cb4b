// Clients of a service that are acknowledged to.
#ifndef TESTS_COMMAND_EMIT_ACKNOWLEDGED_FIXTURE_H
#define TESTS_COMMAND_EMIT_ACKNOWLEDGED_FIXTURE_H

#include <chrono>
#include <map>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/command/emit_service_fixture.h"

inline const std::string hello_of_a = R"({"kplog":1,"client":"a"})"
                                      "\n";

class EmitAcknowledged : public EmitService {
 protected:
  std::unique_ptr<running_command> start_service(const words& more = {}) {
    words arguments = {"-q", "--to", "text:shop", "--to", "json:stored", "--count", "shop"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.insert(arguments.end(), {"--listen", "unix:sock"});
    return start(arguments);
  }
  // A client that has said hello, once the service listens; `acknowledged` is what it heard.
  std::unique_ptr<socket_client> greet(const std::string& hello, const std::string& acknowledged) {
    auto one = std::make_unique<socket_client>(folder_.path("sock"));
    for (int tries = 0; !one->is_connected() && tries < 30000; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      one = std::make_unique<socket_client>(folder_.path("sock"));
    }
    EXPECT_TRUE(one->send(hello));
    EXPECT_EQ(one->line(), acknowledged);
    return one;
  }
  // The numbers that the stored form has, of each client, as they stand there.
  std::map<std::string, std::vector<uint64_t>> numbers() const {
    std::map<std::string, std::vector<uint64_t>> all;
    std::istringstream lines(folder_.text("stored"));
    for (std::string line; std::getline(lines, line);) {
      const size_t name = line.find(R"("client":")") + 10;
      const size_t number = line.find(R"("number":)", name) + 9;
      all[line.substr(name, line.find('"', name) - name)].push_back(
          std::stoull(line.substr(number)));
    }
    return all;
  }
};

inline void hear_up_to(socket_client& client, const std::string& last) {
  while (client.line() != last) ASSERT_FALSE(testing::Test::HasFailure());
}

inline std::vector<uint64_t> up_to(uint64_t last) {
  std::vector<uint64_t> numbers(last);
  std::iota(numbers.begin(), numbers.end(), uint64_t{1});
  return numbers;
}

#endif
