#include "tests/engines/support/cut_line.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

static constexpr int step = 5;  // milliseconds between looks at what it is told

static void reset_at_close(const open_descriptor& socket) {
  const linger at_once{.l_onoff = 1, .l_linger = 0};
  setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

// Both ways of a connection. What one side has ended the other one hears as an end, too.
struct cut_line::connection {
  struct side {
    open_descriptor socket;
    std::string bytes;  // that the other side is to get
    bool has_ended = false;
  };

  side client;
  side server;

  static void read(side& from) {
    std::array<char, 65'536> bytes;
    const ssize_t size = recv(from.socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (size > 0) from.bytes.append(bytes.data(), static_cast<size_t>(size));
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) from.has_ended = true;
  }
  static void write(side& from, const side& to) {
    if (from.bytes.empty()) return;
    const ssize_t size =
        send(to.socket.get(), from.bytes.data(), from.bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size > 0) from.bytes.erase(0, static_cast<size_t>(size));
    if (size < 0 && errno != EAGAIN && errno != EINTR) from.has_ended = true;
  }
  bool is_over() const {
    return (client.has_ended && client.bytes.empty()) || (server.has_ended && server.bytes.empty());
  }
};

cut_line::cut_line(uint16_t server) : server_(server), listener_(SOCK_NONBLOCK) {
  listener_.listen();
  carrier_ = std::thread([this] { carry(); });
}

cut_line::~cut_line() {
  is_to_end_ = true;
  carrier_.join();
}

void cut_line::carry() {
  while (!is_to_end_) {
    if (state_ == line_state::held) {
      poll(nullptr, 0, step);
      continue;
    }
    take_new();
    if (state_ == line_state::cut) {
      for (const auto& one : connections_) {
        reset_at_close(one->client.socket);
        reset_at_close(one->server.socket);
      }
      connections_.clear();
    }
    carry_all(step);
    std::erase_if(connections_, [](const auto& one) { return one->is_over(); });
  }
}

void cut_line::take_new() {
  open_descriptor client(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!client.is_open()) return;
  reset_at_close(client);
  if (state_ == line_state::cut) return;
  open_descriptor server = loopback_connection(server_);
  if (!server.is_open()) return;
  connections_.push_back(std::make_unique<connection>());
  connections_.back()->client.socket = std::move(client);
  connections_.back()->server.socket = std::move(server);
}

// What is not taken by one side is not read from the other.
void cut_line::carry_all(int patience) {
  std::vector<pollfd> watched = {{listener_.get(), POLLIN, 0}};
  const auto watch = [&watched](const connection::side& from, const connection::side& to) {
    short events = 0;
    if (from.bytes.empty() && !from.has_ended) events |= POLLIN;
    if (!to.bytes.empty()) events |= POLLOUT;
    watched.push_back({events == 0 ? -1 : from.socket.get(), events, 0});
  };
  for (const auto& one : connections_) {
    watch(one->client, one->server);
    watch(one->server, one->client);
  }
  if (poll(watched.data(), watched.size(), patience) <= 0) return;
  for (const auto& one : connections_)
    for (const auto& [from, to] :
         {std::pair(&one->client, &one->server), std::pair(&one->server, &one->client)}) {
      if (from->bytes.empty() && !from->has_ended) connection::read(*from);
      connection::write(*from, *to);
    }
}
