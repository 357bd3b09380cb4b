#include "recording/records/service.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

static constexpr size_t client_piece = size_t{64} << 10;

// At the end, where the time is looked at behind each piece.
static constexpr size_t last_piece = size_t{8} << 10;

struct record_service::client {
  client(open_descriptor accepted, std::string called)
      : descriptor(std::move(accepted)),
        name(std::move(called)),
        lines(client_piece, record_size_limit) {}

  bool read(const record_taker& take, size_t most = client_piece);

  open_descriptor descriptor;
  std::string name;  // "unix:PATH#3"
  record_lines lines;
};

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
      KP_listen(listener, record_client_limit) == 0)
    return lock.remove();
  const int error = errno;
  KP_unlink(path.c_str());
  raise_service_error(path, error);
}

static ino_t inode_at(const std::string& path) {
  struct stat status {};
  return KP_lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// So that there are descriptors left for the outputs.
static size_t room_for_clients() {
  static constexpr rlim_t for_others = 32;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return record_client_limit;
  const rlim_t left = limit.rlim_cur > for_others ? limit.rlim_cur - for_others : 1;
  return static_cast<size_t>(std::min<rlim_t>(left, record_client_limit));
}

record_service::record_service(std::string path, const lock_waiting& waiting)
    : path_(std::move(path)),
      is_to_end_(waiting.is_to_end),
      client_limit_(room_for_clients()),
      client_room_(client_limit_) {
  open_descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (listener.get() < 0) raise_service_error(path_, errno);
  listen_at(listener.get(), path_, waiting);
  inode_ = inode_at(path_);
  listener_ = std::move(listener);
}

record_service::~record_service() {
  if (inode_at(path_) == inode_) KP_unlink(path_.c_str());
}

// --- Clients ---

void record_service::watch(std::vector<pollfd>& descriptors) const {
  descriptors.push_back({is_accepting() ? listener_.get() : -1, POLLIN, 0});
  for (const auto& one : clients_) descriptors.push_back({one->descriptor.get(), POLLIN, 0});
}

// False when nothing will come again.
bool record_service::client::read(const record_taker& take, size_t most) {
  const ssize_t got = lines.read_from(descriptor.get(), most);
  if (got < 0 && errno == EAGAIN) return true;
  record_line line;
  line.source = &name;
  while (lines.next(line)) take(line);
  if (got > 0) return true;
  while (lines.next_at_end(line)) take(line);
  return false;
}

// A signal does not wait until all clients have had their turn.
void record_service::read(std::span<const pollfd> watched, const record_taker& take) {
  std::vector<size_t> left;
  for (size_t i = 0; i < clients_.size() && !(is_to_end_ && is_to_end_()); ++i)
    if (watched[i + 1].revents != 0 && !clients_[i]->read(take)) left.push_back(i);
  for (; !left.empty(); left.pop_back())
    clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(left.back()));
  if (clients_.size() < watched.size() - 1) client_room_ = client_limit_;
  if (watched.front().revents != 0) accept_clients();
}

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
      return;
    }
    clients_.push_back(std::make_unique<client>(
        std::move(accepted), "unix:" + path_ + "#" + std::to_string(++client_count_)));
  }
}

// --- The end ---

// In turn, so that none is left out when the time is over.
void record_service::read_out(const record_taker& take, record_deadline deadline) {
  const auto has_time = [deadline] { return std::chrono::steady_clock::now() < deadline; };
  for (const auto& one : clients_) shutdown(one->descriptor.get(), SHUT_RD);
  while (!clients_.empty() && has_time())
    std::erase_if(clients_,
                  [&](const auto& one) { return has_time() && !one->read(take, last_piece); });
}

// What is in a socket that has been shut down for reading can still be read, and then its end;
// those who send, or want to connect, are told that nobody reads. Clients that wait to be accepted
// have sent something, too; the last accept is for those that there is no time to read.
void record_service::read_last(const record_taker& take, record_deadline deadline) {
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
  for (const auto& one : clients_)
    if (waiting_bytes(one->descriptor.get()) != 0 || one->lines.has_rest())
      texts.push_back(unread_text(one->name, one->lines.line_count()));
  return texts;
}
