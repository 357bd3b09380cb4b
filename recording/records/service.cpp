#include "recording/records/service.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

// At the end, where the time is looked at behind each piece.
static constexpr size_t last_piece = size_t{8} << 10;

bool is_socket_path(const std::string& path) {
  return !path.empty() && path.size() < sizeof(sockaddr_un::sun_path) &&
         path.find('\0') == std::string::npos;
}

// --- The socket's file ---

[[noreturn]] static void raise_service_error(const std::string& path, int error) {
  throw file_error(file_use::reading, "listen on", path, error);
}

static sockaddr_un address_of(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

static const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

static bool is_abandoned_socket(const std::string& path) {
  struct stat status {};
  if (KP_lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
  const open_descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = address_of(path);
  return connect(probe.get(), generic(address), sizeof address) != 0 && errno == ECONNREFUSED;
}

// The lock, which is gone again when the socket listens, keeps two services that start at once from
// replacing each other's socket. Nobody can connect before the socket listens, and so before its
// mode is what it is to be.
static void listen_at(int listener, const std::string& path, const lock_waiting& waiting) {
  const file_place place = place_of(path);
  if (KP_access(place.folder.c_str(), F_OK) != 0) raise_service_error(path, errno);
  folder_lock lock(place.folder, place.name, waiting);
  if (is_abandoned_socket(path)) KP_unlink(path.c_str());
  const sockaddr_un address = address_of(path);
  if (KP_bind(listener, generic(address), sizeof address) != 0) raise_service_error(path, errno);
  if (KP_chmod(path.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP) == 0 &&
      KP_listen(listener, SOMAXCONN) == 0)
    return lock.remove();
  const int error = errno;
  KP_unlink(path.c_str());
  raise_service_error(path, error);
}

static ino_t inode_at(const std::string& path) {
  struct stat status {};
  return KP_lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

void raise_descriptor_limit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  static_cast<void>(setrlimit(RLIMIT_NOFILE, &limit));  // it goes on with those it has
}

// So that there are descriptors left for the outputs.
static size_t room_for_clients() {
  static constexpr rlim_t for_others = 32;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
  return limit.rlim_cur > for_others ? limit.rlim_cur - for_others : 1;
}

record_service::record_service(std::string path, service_rules rules, open_descriptor handed_over)
    : path_(std::move(path)),
      rules_(std::move(rules)),
      client_limit_(room_for_clients()),
      client_room_(client_limit_) {
  answering_.name_of = [this](const service_client& who, const service_hello& hello,
                              std::string& refusal) { return name(who, hello, refusal); };
  answering_.tell_closed = rules_.tell_closed;
  answering_.status = rules_.status;
  if (rules_.max_user_clients == 0) rules_.max_user_clients = (client_limit_ + 1) / 2;
  listener_ = std::move(handed_over);
  if (!listener_.is_open()) begin_listening();
  wait_ = open_descriptor(epoll_create1(EPOLL_CLOEXEC));
  if (!wait_.is_open()) raise_service_error(path_, errno);
  watch_listener(true);
}

void record_service::begin_listening() {
  open_descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (listener.get() < 0) raise_service_error(path_, errno);
  listen_at(listener.get(), path_, rules_.waiting);
  inode_ = inode_at(path_);
  listener_ = std::move(listener);
}

record_service::~record_service() {
  if (inode_ && inode_at(path_) == *inode_) KP_unlink(path_.c_str());
}

// --- Clients: whom to serve ---

// Behind a look at a line that is late, of whose client there is something to be read.
static constexpr std::chrono::milliseconds first_look_again(100);

void record_service::watch(std::vector<pollfd>& descriptors) const {
  descriptors.push_back({wait_.get(), POLLIN, 0});
}

std::chrono::milliseconds record_service::patience() const {
  const client_time look = std::min(look_at_lines_, look_at_rates_);
  if (look == client_time::max()) return std::chrono::milliseconds(-1);
  const auto left = look - service_client::clock::now();
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds(0));
}

// While no client can be accepted, those that wait must not wake the service.
void record_service::watch_listener(bool is_wanted) {
  if (is_wanted == is_listener_watched_) return;
  epoll_event event{EPOLLIN, {nullptr}};
  const int operation = is_wanted ? EPOLL_CTL_ADD : EPOLL_CTL_DEL;
  if (epoll_ctl(wait_.get(), operation, listener_.get(), &event) != 0)
    raise_service_error(path_, errno);
  is_listener_watched_ = is_wanted;
}

void record_service::read(std::span<const pollfd> watched, const record_taker& take) {
  if (watched.front().revents != 0) serve_ready(take);
  if (service_client::clock::now() >= look_at_rates_) serve_waiting(take);
  if (service_client::clock::now() >= look_at_lines_) give_up_lines(take);
}

// One of a user whose others wait waits with them.
bool record_service::serve(service_client& client, uint32_t events, const record_taker& take,
                           uint64_t records) {
  if (!client.serve(events, take, memory_, {.records = records})) {
    leave(client);
    return false;
  }
  if (client.is_over_rate())
    wait_for_rate(client);
  else if (client.line_began() != client_time::max())
    look_at_lines_ = std::min(look_at_lines_, client.line_began() + rules_.idle_line);
  return true;
}

// The system hands out those that are ready in turn, so that each has a piece read before another
// has its next. A signal does not wait until all have had their turn.
void record_service::serve_ready(const record_taker& take) {
  std::array<epoll_event, 64> ready;
  const int count = epoll_wait(wait_.get(), ready.data(), ready.size(), 0);
  bool has_new = false;
  for (size_t at = 0; count > 0 && at < static_cast<size_t>(count); ++at) {
    if (rules_.waiting.is_to_end && rules_.waiting.is_to_end()) return;
    auto* const client = static_cast<service_client*>(ready[at].data.ptr);
    if (client == nullptr) {
      has_new = true;
    } else {
      service_user& user = client->user();
      const bool is_first = user.waiting.empty();
      serve(*client, ready[at].events, take,
            is_first ? user.rate.left(service_client::clock::now()) : 0);
    }
  }
  if (has_new) accept_clients();
}

// --- Clients: those that wait until they may send more ---

void record_service::wait_for_rate(service_client& client) {
  service_user& user = client.user();
  if (!client.is_waiting()) client.wait_for_rate();
  user.waiting.push_back(&client);
  look_at_rates_ =
      std::min(look_at_rates_, user.rate.when_worthwhile(service_client::clock::now()));
}

void record_service::serve_waiting(const record_taker& take) {
  look_at_rates_ = client_time::max();
  for (auto& [id, user] : users_)
    if (!user.waiting.empty()) serve_waiting(user, take);
}

// Each in turn has its part of what there is.
void record_service::serve_waiting(service_user& user, const record_taker& take) {
  for (size_t left = user.waiting.size(); left > 0; --left) {
    if (rules_.waiting.is_to_end && rules_.waiting.is_to_end()) break;
    const uint64_t records = user.rate.left(service_client::clock::now());
    if (records == 0) break;
    service_client& client = *user.waiting.front();
    user.waiting.pop_front();
    const bool is_there = serve(client, 0, take, std::max<uint64_t>(records / left, 1));
    if (is_there && !client.is_over_rate()) client.end_waiting();
  }
  if (!user.waiting.empty())
    look_at_rates_ =
        std::min(look_at_rates_, user.rate.when_worthwhile(service_client::clock::now()));
}

// --- Clients: whom to leave ---

void record_service::leave(service_client& client) {
  if (client.client() != nullptr) rules_.numbers->see(*client.client());
  if (client.is_too_bad()) ++closed_;
  --client.user().clients;
  clients_.erase(client.number());  // which takes it out of the epoll
  client_room_ = client_limit_;
  watch_listener(is_accepting());
}

// What a client has sent by now is read first: it may not be its fault that it was not.
void record_service::give_up_lines(const record_taker& take) {
  const client_time now = service_client::clock::now();
  look_at_lines_ = client_time::max();
  for (auto next = clients_.begin(); next != clients_.end();) {
    service_client& client = *(next++)->second;
    const bool is_late = client.line_began() != client_time::max() &&
                         client.line_began() + rules_.idle_line <= now &&
                         waiting_bytes(client.descriptor()) == 0;
    if (is_late) {
      ++given_up_;
      client.give_up_line(take);
      leave(client);
    } else if (client.line_began() != client_time::max()) {
      look_at_lines_ = std::min(
          look_at_lines_, std::max(client.line_began() + rules_.idle_line, now + first_look_again));
    }
  }
}

// --- Clients: those that come ---

static bool is_out_of_room(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

// Without a descriptor for one more the others are served, and the next is accepted when one has
// left.
void record_service::accept_clients() {
  while (is_accepting()) {
    open_descriptor accepted(
        accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!accepted.is_open() && errno == ECONNABORTED) continue;
    if (!accepted.is_open()) {
      if (!is_out_of_room(errno)) return;
      if (clients_.empty()) raise_service_error(path_, errno);
      client_room_ = clients_.size();
      break;
    }
    admit(std::move(accepted));
  }
  watch_listener(is_accepting());
}

static void tell_too_many(int descriptor) {
  static constexpr std::string_view text = "{\"error\":\"the user has too many connections\"}\n";
  static_cast<void>(send(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
}

// One that its user has no right to any more is closed at once: to let it wait would keep all
// others waiting.
void record_service::admit(open_descriptor accepted) {
  const record_peer peer = peer_of(accepted.get());
  const uint64_t number = ++client_count_;
  service_user& user = user_of(peer.user);
  if (user.clients >= rules_.max_user_clients) {
    ++refused_;
    return tell_too_many(accepted.get());
  }
  service_client::place place{"unix:" + path_ + "#" + std::to_string(number), number, peer, user,
                              wait_.get()};
  clients_.emplace(
      number, std::make_unique<service_client>(std::move(accepted), std::move(place), answering_));
  ++user.clients;
}

service_user& record_service::user_of(uint64_t id) {
  const service_user unknown{record_rate(rules_.max_rate, service_client::clock::now()),
                             bad_record_limit(rules_.max_bad)};
  return users_.try_emplace(id, unknown).first->second;
}

// A hello takes the name over from the connection that had it.
numbered_client* record_service::name(const service_client& who, const service_hello& hello,
                                      std::string& refusal) const {
  if (rules_.numbers == nullptr) {
    refusal = rules_.no_numbers;
    return nullptr;
  }
  try {
    numbered_client* const named = rules_.numbers->find(hello.client, who.peer().user, refusal);
    if (named != nullptr && named->hearing != nullptr)
      static_cast<service_client*>(named->hearing)->close();
    return named;
  } catch (const file_error& error) {
    refusal = error.what();
    return nullptr;
  }
}

// --- How the service is ---

service_figures record_service::figures() const {
  service_figures told{.connected = clients_.size(),
                       .accepted = client_count_,
                       .refused = refused_,
                       .given_up = given_up_,
                       .closed = closed_};
  for (const auto& [id, user] : users_) told.waiting += user.waiting.size();
  return told;
}

// None of them leaves: another may be in the middle of being served.
void record_service::answer_status() {
  accept_clients();
  for (const auto& [number, client] : clients_) client->answer_status();
}

// --- The end ---

// In turn, so that none is left out when the time is over.
void record_service::read_out(const record_taker& take, record_deadline deadline) {
  const auto has_time = [deadline] { return std::chrono::steady_clock::now() < deadline; };
  for (auto& [id, user] : users_) user.waiting.clear();  // there is no time for that
  for (const auto& [number, client] : clients_) client->stop_sending();
  for (bool is_read = true; std::exchange(is_read, false) && has_time();)
    for (auto next = clients_.begin(); next != clients_.end() && has_time();) {
      service_client& client = *(next++)->second;
      if (client.has_ended()) continue;
      is_read = true;
      if (!client.serve(0, take, memory_, {.bytes = last_piece})) leave(client);
    }
}

// What is in a socket that has been shut down for reading can still be read, and then its end;
// those who send, or want to connect, are told that nobody reads. Clients that wait to be accepted
// have sent something, too; the last accept is for those that there is no time to read.
// At a socket that was handed over those wait for the next service.
void record_service::read_last(const record_taker& take, record_deadline deadline) {
  if (!inode_) return read_out(take, deadline);
  shutdown(listener_.get(), SHUT_RD);
  uint64_t known = 0;
  do {
    known = client_count_;
    read_out(take, deadline);
    client_room_ = client_limit_;
    accept_clients();
  } while (known != client_count_ && std::chrono::steady_clock::now() < deadline);
  client_room_ = SIZE_MAX;
  accept_clients();
}

std::vector<std::string> record_service::unread() const {
  std::vector<std::string> texts;
  for (const auto& [number, client] : clients_)
    if (client->has_unread()) texts.push_back(client->unread());
  return texts;
}
