#include "tools/emit/status.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <vector>

#include "recording/files/descriptor.h"
#include "recording/files/file_error.h"
#include "recording/records/service_hello.h"
#include "recording/text/escape.h"
#include "recording/text/words.h"

using nlohmann::json;

// --- Asking ---

static open_descriptor connected_to(const std::string& path) {
  open_descriptor opened(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  if (!opened.is_open() ||
      connect(opened.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw file_error(file_use::reading, "connect to", path, errno);
  return opened;
}

// What comes up to the first end of a line, or to the end. Empty where that takes too long.
static std::string line_from(int descriptor, std::chrono::steady_clock::time_point deadline) {
  static constexpr size_t most = size_t{16} << 20;
  std::string heard;
  while (heard.find('\n') == std::string::npos && heard.size() < most) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd ready{descriptor, POLLIN, 0};
    if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) == 0) return "";
    std::array<char, 4096> bytes;
    const ssize_t got = recv(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (got <= 0) break;
    heard.append(bytes.data(), static_cast<size_t>(got));
  }
  return heard.substr(0, heard.find('\n'));
}

// No service tells anything deeper, which it would take memory and time to show.
static bool is_shallow(int depth, json::parse_event_t, json&) {
  constexpr int deepest = 8;
  return depth <= deepest;
}

json ask_status(const std::string& socket_path, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  const open_descriptor service = connected_to(socket_path);
  const std::string hello = hello_line({.asks_status = true}) + '\n';
  static_cast<void>(send(service.get(), hello.data(), hello.size(), MSG_NOSIGNAL));
  const std::string line = line_from(service.get(), deadline);
  if (line.empty()) throw status_refused("the service does not answer");
  const json answer = json::parse(line, is_shallow, false);
  if (answer.is_object() && answer.contains("status") && answer["status"].is_object())
    return answer["status"];
  const bool is_error =
      answer.is_object() && answer.contains("error") && answer["error"].is_string();
  throw status_refused(is_error ? terminal_text(answer["error"].get<std::string>())
                                : "the service answers what this program does not know");
}

// --- For people ---

static std::string shown_member(const json& status, const char* key) {
  if (!status.contains(key)) return "-";
  const json& value = status.at(key);
  return terminal_text(value.is_string() ? value.get<std::string>() : value.dump());
}

static uint64_t number_in(const json& status, const char* key) {
  return status.value(key, uint64_t{0});
}

static std::string sizes_of(const json& outputs) {
  std::vector<text_row> rows = {{"output", "bytes"}};
  for (const json& output : outputs)
    rows.push_back({shown_member(output, "to"), shown_member(output, "bytes")});
  return in_columns(rows, {1});
}

static std::string events_of(const json& events) {
  std::vector<text_row> rows = {{"event", "read", "written", "rejected", "bad"}};
  for (const json& event : events) {
    const bool is_known = event.contains("event") && !event["event"].is_null();
    const std::string name = is_known ? event.value("name", std::string()) : "(not known)";
    const std::string id = is_known ? shown_member(event, "event") : "";
    rows.push_back({terminal_text(name) + (name.empty() || id.empty() ? id : " (" + id + ")"),
                    shown_member(event, "read"), shown_member(event, "written"),
                    shown_member(event, "rejected"), shown_member(event, "bad")});
  }
  return in_columns(rows, {1, 2, 3, 4});
}

static std::string records_line(const json& records) {
  return "records: " + shown_member(records, "read") + " read, " +
         shown_member(records, "written") + " written, " + shown_member(records, "rejected") +
         " rejected by the filter, " + shown_member(records, "bad") + " bad, " +
         shown_member(records, "unwritten") + " not written yet\n";
}

static std::string outputs_line(const json& status) {
  std::string line = "outputs: ";
  if (status.contains("failing"))
    line += "cannot be written since " + shown_member(status["failing"], "since") + ": " +
            shown_member(status["failing"], "text");
  else if (status.contains("last_batch"))
    line += "last written at " + shown_member(status, "last_batch");
  else
    line += "nothing was written yet";
  const uint64_t failures = number_in(status, "failures");
  return line + (failures == 0 ? "" : "; " + counted(failures, "failure") + " so far") + "\n";
}

static std::string quarantine_line(const json& quarantine) {
  if (number_in(quarantine, "kept") == 0 && number_in(quarantine, "lost") == 0) return "";
  return "quarantine: " + shown_member(quarantine, "kept") + " bad lines kept, " +
         shown_member(quarantine, "lost") + " not kept because it is full\n";
}

static std::string clients_line(const json& clients) {
  return "clients: " + shown_member(clients, "connected") + " connected, " +
         shown_member(clients, "waiting") + " of them wait for their rate; " +
         shown_member(clients, "accepted") + " so far, " + shown_member(clients, "refused") +
         " too many, " + shown_member(clients, "given_up") + " left in half a line, " +
         shown_member(clients, "closed") + " closed for bad records\n";
}

std::string status_text(const json& status) {
  std::string text = shown_member(status, "run") + ": process " + shown_member(status, "process") +
                     ", since " + shown_member(status, "began") + ", now " +
                     shown_member(status, "now") + "\n";
  if (status.contains("records")) text += records_line(status["records"]);
  text += outputs_line(status);
  if (status.contains("quarantine")) text += quarantine_line(status["quarantine"]);
  if (status.contains("clients")) text += clients_line(status["clients"]);
  if (status.contains("outputs")) text += sizes_of(status["outputs"]);
  if (status.contains("events") && !status["events"].empty()) text += events_of(status["events"]);
  return text;
}
