// How a running service is, asked through its socket (docs/service.md).
#ifndef TOOLS_EMIT_STATUS_H
#define TOOLS_EMIT_STATUS_H

#include <chrono>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

// What the service says where it does not tell; escaped for a terminal.
class status_refused : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Asks, and waits so long for the answer: an object. Raises file_error where nobody listens at that
// path, and status_refused for any other answer, or none in time. The path is one of a socket.
nlohmann::json ask_status(const std::string& socket_path, std::chrono::milliseconds patience);

// The same for people, in lines. What the answer lacks is left out, and what is not as expected
// raises nlohmann::json::exception.
std::string status_text(const nlohmann::json& status);

#endif
