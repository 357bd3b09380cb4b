// session: what a client asks, from the first request to the last, and the events of that.
#ifndef SESSION_H
#define SESSION_H

#include <algorithm>
#include <array>
#include <asio/ip/tcp.hpp>
#include <map>
#include <sstream>
#include <stop_token>

#include "key_store.h"
#include "kp_LOG_Recorder.h"

inline std::string text_of(const asio::ip::tcp::endpoint& endpoint) {
  return endpoint.address().to_string() + ':' + std::to_string(endpoint.port());
}

class session {
 public:
  using socket = asio::ip::tcp::socket;

  session(socket client, key_store& store, kp_LOG_Recorder& log)
      : client_(std::move(client)), store_(store), log_(log) {
    std::error_code error;  // of one that has left already
    address_ = text_of(client_.socket().remote_endpoint(error));
  }

  // Until the client leaves, or is sent away. Events are recorded before requests are answered:
  // what a client was told is in the logs, whatever becomes of the server.
  void serve(const std::stop_token& stop) {
    log_.Record(events::CLIENT_CAME{.CLIENT = address_});
    const std::stop_callback send_away(
        stop, [this] { shutdown(client_.socket().native_handle(), SHUT_RDWR); });
    const events::END end = answer_requests();
    log_.Record(events::CLIENT_LEFT{.CLIENT = address_,
                                    .REQUESTS = requests_,
                                    .END = stop.stop_requested() ? events::END::stopped : end});
  }

 private:
  events::END answer_requests() {
    std::array<char, 4096> line;
    while (client_.getline(line.data(), line.size()), !client_.error()) {
      if (std::string_view(line.data()) == "QUIT") return events::END::quit;
      ++requests_;
      const auto size = static_cast<std::size_t>(client_.gcount());
      client_ << (client_.fail() ? refuse_line() : answer({line.data(), size - 1})) << std::endl;
    }
    return client_.error() == asio::error::eof ? events::END::closed : events::END::failed;
  }

  // One that is too long: its rest is passed over.
  std::string refuse_line() {
    client_.clear();
    client_.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    return refuse(events::REASON::too_long, "too long");
  }

  std::string answer(const std::string& line) {
    static const std::map<std::string, std::string (session::*)(const std::string&, std::string)>
        commands = {{"SET", &session::set},
                    {"GET", &session::get},
                    {"DEL", &session::remove},
                    {"INCR", &session::increment},
                    {"EXPIRE", &session::expire}};
    std::istringstream words(line);
    std::string command, key, value;
    std::getline(words >> command >> key >> std::ws, value);
    if (command == "STATS") return statistics();
    const auto found = commands.find(command);
    if (found == commands.end()) return refuse(events::REASON::unknown, "no such command");
    if (!is_key(key)) return refuse(events::REASON::no_key, "keys have 1 to 64 visible characters");
    return (this->*found->second)(key, std::move(value));
  }

  static bool is_key(const std::string& text) {
    return !text.empty() && text.size() <= 64 &&
           std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
  }

  static std::string name_of(events::LOOKUP lookup) {
    if (lookup == events::LOOKUP::found) return "OK";
    return lookup == events::LOOKUP::missing ? "MISSING" : "EXPIRED";
  }

  std::string set(const std::string& key, std::string value) {
    const auto size = static_cast<std::int32_t>(value.size());
    const events::OUTCOME outcome = store_.set(key, std::move(value));
    log_.Record(events::KEY_SET{.CLIENT = address_, .KEY = key, .SIZE = size, .OUTCOME = outcome});
    return outcome == events::OUTCOME::created ? "CREATED" : "REPLACED";
  }

  std::string get(const std::string& key, std::string) {
    const auto [lookup, value] = store_.get(key);
    log_.Record(events::KEY_READ{.CLIENT = address_, .KEY = key, .LOOKUP = lookup});
    return lookup == events::LOOKUP::found ? "VALUE " + value : name_of(lookup);
  }

  std::string remove(const std::string& key, std::string) {
    const events::LOOKUP lookup = store_.remove(key);
    log_.Record(events::KEY_DELETED{.CLIENT = address_, .KEY = key, .LOOKUP = lookup});
    return name_of(lookup);
  }

  std::string increment(const std::string& key, std::string) {
    const auto number = store_.increment(key);
    if (!number) return refuse(events::REASON::no_number, "no number, or the greatest");
    log_.Record(events::KEY_COUNTED{.CLIENT = address_, .KEY = key, .NUMBER = *number});
    return "NUMBER " + std::to_string(*number);
  }

  std::string expire(const std::string& key, std::string value) {
    const auto seconds = number_of(value);
    if (!seconds) return refuse(events::REASON::no_number, "no number of seconds");
    const events::LOOKUP lookup = store_.expire(key, std::chrono::seconds(*seconds));
    log_.Record(
        events::KEY_EXPIRES{.CLIENT = address_, .KEY = key, .SECONDS = *seconds, .LOOKUP = lookup});
    return name_of(lookup);
  }

  std::string statistics() {
    const std::int32_t keys = store_.size();
    log_.Record(events::STATISTICS_ASKED{.CLIENT = address_, .KEYS = keys});
    return "KEYS " + std::to_string(keys);
  }

  std::string refuse(events::REASON reason, const std::string& text) {
    log_.Record(events::REQUEST_REFUSED{.CLIENT = address_, .REASON = reason});
    return "ERROR " + text;
  }

  asio::ip::tcp::iostream client_;
  std::string address_;
  key_store& store_;
  kp_LOG_Recorder& log_;
  std::int32_t requests_ = 0;
};

#endif
