#include "tools/emit/sender.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "recording/text/escape.h"
#include "recording/text/words.h"

static constexpr int pause_between_tries = 100;  // milliseconds
static constexpr size_t sent_piece = size_t{64} << 10;

record_sending::record_sending(std::string socket_path, std::string client, record_input& input,
                               emit_signals& signals, bad_taker take_bad)
    : socket_path_(std::move(socket_path)),
      hello_{.client = std::move(client)},
      input_(input),
      signals_(signals),
      take_bad_(std::move(take_bad)) {}

bool record_sending::run() {
  while (signals_.ending() == 0) {
    if (was_greeted_ && is_done()) return require_own_numbers();
    if (!socket_.is_open()) connect();
    if (socket_.is_open()) wait_and_serve();
  }
  return false;
}

// Another input has been sent by that name, or the service is none.
bool record_sending::require_own_numbers() const {
  if (had_ <= read_) return true;
  throw sender_refused("it has acknowledged " + counted(had_, "record") +
                       " of this client, and the input has " + std::to_string(read_));
}

// --- The connection ---

void record_sending::connect() {
  socket_ = open_descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket_.is_open()) throw std::system_error(errno, std::generic_category(), "socket");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socket_path_.c_str(), socket_path_.size() + 1);
  const bool is_connected =
      ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (is_connected) return greet();
  lose_connection();
  pause();
}

// A signal ends it.
void record_sending::pause() const {
  pollfd waiting{signals_.descriptor(), POLLIN, 0};
  poll(&waiting, 1, pause_between_tries);
}

void record_sending::lose_connection() {
  socket_ = open_descriptor();
  is_greeted_ = false;
}

// What was sent before and not acknowledged is sent again, by the same numbers.
void record_sending::greet() {
  if (was_greeted_) hello_.first = acknowledged_ + 1;
  piece_ = hello_line(hello_) + '\n';
  unsent_ = 0;
  heard_.clear();
}

void record_sending::wait_and_serve() {
  const bool has_more = !piece_.empty() || (is_greeted_ && unsent_ < lines_.size());
  const short to_socket = static_cast<short>(POLLIN | (has_more ? POLLOUT : 0));
  std::vector<pollfd> watched = {{signals_.descriptor(), POLLIN, 0}, {socket_.get(), to_socket, 0}};
  const bool reads = was_greeted_ && has_room();
  if (reads) input_.watch(watched);
  if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "poll");
  if (watched[0].revents != 0) static_cast<void>(signals_.take());
  if (reads)
    input_.read(std::span(watched).subspan(2), [this](const record_line& line) { take(line); });
  if ((watched[1].revents & ~POLLOUT) != 0) hear();
  if (socket_.is_open() && (watched[1].revents & POLLOUT) != 0) send_piece();
}

// --- Records ---

// The service counts lines as this does: those of blanks are left out, and a line that is too long
// is one for it, too.
void record_sending::take(const record_line& line) {
  if (++read_ <= acknowledged_) {
    ++left_out_;
    return;
  }
  std::string text(line.text);
  if (line.too_long || text.size() > record_size_limit) {
    text.resize(std::max(text.size(), record_size_limit + 1), ' ');
    text.resize(record_size_limit + 1);
  }
  lines_.push_back(std::move(text) + '\n');
  held_bytes_ += lines_.back().size();
}

void record_sending::fill_piece() {
  while (is_greeted_ && piece_.size() < sent_piece && unsent_ < lines_.size())
    piece_ += lines_[unsent_++];
  sent_ = std::max(sent_, acknowledged_ + unsent_);
}

void record_sending::send_piece() {
  fill_piece();
  const ssize_t sent =
      send(socket_.get(), piece_.data(), piece_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent >= 0)
    piece_.erase(0, static_cast<size_t>(sent));
  else if (errno != EAGAIN && errno != EINTR)
    hear();  // it may have said why before it left
}

// --- Answers ---

void record_sending::hear() {
  std::array<char, 4096> bytes;
  const ssize_t got = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (got <= 0) {
    lose_connection();
    return pause();
  }
  heard_.append(bytes.data(), static_cast<size_t>(got));
  for (size_t end = heard_.find('\n'); end != std::string::npos; end = heard_.find('\n')) {
    const std::string line = heard_.substr(0, end);
    heard_.erase(0, end + 1);
    answer(line);
  }
}

void record_sending::answer(std::string_view line) {
  const auto answer = read_answer(line);
  if (!answer) throw sender_refused("the service answers what this program does not know");
  if (answer->acknowledged) {
    if (!was_greeted_) sent_ = had_ = *answer->acknowledged;
    if (*answer->acknowledged > sent_)
      throw sender_refused("the service acknowledges more than it was sent");
    if (!std::exchange(is_greeted_, true) && was_greeted_) send_as_told(*answer->acknowledged);
    was_greeted_ = true;
    forget_up_to(*answer->acknowledged);
  } else if (answer->bad) {
    if (*answer->bad > refused_) take_bad_(*answer->bad, *answer);
    refused_ = std::max(refused_, *answer->bad);
  } else {
    throw sender_refused(terminal_text(answer->text));
  }
}

// The hello said which number the next line has. Where the service has more by now, as it died
// before it could say so, it drops these, but it has to be sent them.
void record_sending::send_as_told(uint64_t acknowledged) {
  while (acknowledged_ + unsent_ < acknowledged) piece_ += lines_[unsent_++];
}

// One that had forgotten its client may tell less than before.
void record_sending::forget_up_to(uint64_t number) {
  for (; acknowledged_ < number && !lines_.empty(); ++acknowledged_) {
    held_bytes_ -= lines_.front().size();
    lines_.pop_front();
    unsent_ -= std::min<size_t>(unsent_, 1);
  }
  acknowledged_ = std::max(acknowledged_, number);
}
