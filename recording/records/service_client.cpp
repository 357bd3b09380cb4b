#include "recording/records/service_client.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

// Of answers that a client does not read; it is not read either then.
static constexpr size_t most_answers = size_t{64} << 10;

record_peer peer_of(int descriptor) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    throw std::system_error(errno, std::generic_category(), "getsockopt");
  return {peer.uid, static_cast<uint64_t>(peer.pid)};
}

service_client::service_client(open_descriptor accepted, place where, const answering& answers)
    : descriptor_(std::move(accepted)),
      place_(std::move(where)),
      answering_(answers),
      source_(std::make_shared<line_source>(
          line_source{.name = place_.name,
                      .peer = place_.peer,
                      .sender = place_.user.bad.is_limited() ? this : nullptr})),
      lines_(piece, record_size_limit),
      watched_(EPOLLIN) {
  epoll_event event{watched_, {this}};
  if (epoll_ctl(place_.wait, EPOLL_CTL_ADD, descriptor(), &event) != 0)
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
}

service_client::~service_client() {
  stop_hearing();
  source_->sender = nullptr;
}

// Another connection may have the name by now.
void service_client::stop_hearing() {
  if (client_ != nullptr && client_->hearing == this) client_->hearing = nullptr;
}

// --- Reading ---

// A client that does not read what it is answered is not read either.
bool service_client::is_held_up() const {
  return answers_.size() > most_answers;
}

// Lines that were held up come as soon as answers can be sent: nothing else may come.
void service_client::watch() {
  const bool is_read = !has_ended_ && !is_closing_ && !is_told_ && !is_held_up();
  const bool can_go_on = !answers_.empty() || has_lines_left_;
  const uint32_t wanted = (is_read ? EPOLLIN : 0U) | (can_go_on ? EPOLLOUT : 0U);
  if (is_waiting_ || wanted == watched_) return;
  epoll_event event{wanted, {this}};
  if (epoll_ctl(place_.wait, EPOLL_CTL_MOD, descriptor(), &event) == 0) watched_ = wanted;
}

// One that has left would be told of at once, whatever is watched for.
void service_client::wait_for_rate() {
  if (epoll_ctl(place_.wait, EPOLL_CTL_DEL, descriptor(), nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  is_waiting_ = true;
}

void service_client::end_waiting() {
  epoll_event event{watched_, {this}};
  if (epoll_ctl(place_.wait, EPOLL_CTL_ADD, descriptor(), &event) != 0)
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  is_waiting_ = false;
  watch();
}

// What was held up, or waited, is handed over as soon as it may be, and before more is read.
bool service_client::serve(uint32_t events, const record_taker& take, std::vector<char>& memory,
                           share may_take_now) {
  records_left_ = may_take_now.records;
  const uint64_t lines_before = lines_.line_count();
  if (!answers_.empty()) send_answers();
  if (lines_.has_rest()) hand_over(take, false);
  const bool is_gone = (events & (EPOLLHUP | EPOLLERR)) != 0;
  if (!has_ended_ && may_take()) {
    lines_.exchange_memory(memory);
    has_ended_ = !read(take, may_take_now.bytes);
    lines_.exchange_memory(memory);
    if (!answers_.empty()) send_answers();
  } else if (has_ended_ && is_gone) {
    return false;
  }
  note_line_begin(lines_before);
  if (is_told_) watch();
  if (is_told_) return !answers_.empty() && !is_gone;
  if (client_ == nullptr) return !has_ended_ && !is_closing_;
  close_when_done();
  watch();
  return !is_closing_;
}

record_line service_client::blank_line() {
  record_line line;
  line.source = source_;
  return line;
}

// False when nothing will come again.
bool service_client::read(const record_taker& take, size_t most) {
  const ssize_t got = lines_.read_from(descriptor(), most);
  const bool is_over = got == 0 || (got < 0 && errno != EAGAIN);
  hand_over(take, is_over);
  return !is_over;
}

// Whole lines that are held up, or wait, are no fault of the client.
void service_client::note_line_begin(uint64_t lines_before) {
  if (!lines_.is_inside_line() || is_told_ || is_held_up() || is_over_rate())
    line_began_ = clock::time_point::max();
  else if (line_began_ == clock::time_point::max() || lines_.line_count() != lines_before)
    line_began_ = clock::now();
}

// Half a line is a record of a client that says nothing alone: any other sends it again.
void service_client::hand_over(const record_taker& take, bool at_end) {
  record_line line = blank_line();
  while (may_take() && lines_.next(line)) hand_over(line, take);
  while (at_end && client_ == nullptr && may_take() && lines_.next_at_end(line))
    hand_over(line, take);
  has_lines_left_ = !may_take() && lines_.has_rest();
}

void service_client::hand_over(record_line& line, const record_taker& take) {
  if (!std::exchange(has_begun_, true) && is_hello(line.text)) return greet(line.text);
  if (client_ != nullptr) {
    const uint64_t number = next_number_++;
    if (number <= client_->taken) return;
    client_->taken = number;
    line.client = client_;
    line.client_number = number;
  }
  --records_left_;
  place_.user.rate.take();
  take(line);
}

// What was handed over behind that line is not taken: a client that has a name sends it again.
// Where another connection has the name by now, it left that out as taken, and so it is.
void service_client::hear_bad(const record_line& line) {
  bad_record_limit& bad = place_.user.bad;
  if (bad.count(clock::now())) return;
  if (line.client != nullptr && line.client->hearing != this) return;
  source_->is_closed = true;
  if (line.client != nullptr) line.client->taken = line.client_number;
  if (bad.is_just_over())
    answering_.tell_closed(place_.name + " is closed: the user " +
                           std::to_string(place_.peer.user) +
                           " has sent too many bad records in a minute");
  refuse("more bad records in a minute than this service takes");
}

void service_client::give_up_line(const record_taker& take) {
  record_line line = blank_line();
  line.is_given_up = true;
  while (client_ == nullptr && lines_.next_at_end(line)) take(line);
}

void service_client::stop_sending() const {
  shutdown(descriptor(), SHUT_RD);
}

bool service_client::has_unread() const {
  return client_ == nullptr && !is_told_ && (waiting_bytes(descriptor()) != 0 || lines_.has_rest());
}

// --- Answering ---

void service_client::greet(std::string_view line) {
  try {
    const service_hello hello = read_hello(line);
    std::string refusal;
    if (hello.asks_status) return tell_status();
    client_ = answering_.name_of(*this, hello, refusal);
    if (client_ == nullptr) return refuse(refusal);
    client_->hearing = this;
    next_number_ = hello.first.value_or(client_->written + 1);
    answer(acknowledgement_line(client_->written));
  } catch (const std::invalid_argument& error) {
    refuse(error.what());
  }
}

void service_client::tell_status() {
  is_told_ = true;
  answer(status_line(answering_.status()));
  send_answers();
}

// The line stays to be read, and is answered once.
void service_client::answer_status() {
  if (is_told_ && !answers_.empty()) send_answers();
  if (has_begun_ || is_told_ || lines_.has_rest()) return;
  static constexpr size_t most = 256;  // bytes of such a hello
  std::array<char, most> bytes;
  const ssize_t got = recv(descriptor(), bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
  if (got <= 0) return;
  const std::string_view sent(bytes.data(), static_cast<size_t>(got));
  const size_t end = sent.find('\n');
  if (end == std::string_view::npos || !is_hello(sent.substr(0, end))) return;
  try {
    if (read_hello(sent.substr(0, end)).asks_status) tell_status();
  } catch (const std::invalid_argument&) {
    // It is told when it is read.
  }
  if (is_told_ && answers_.empty()) shutdown(descriptor(), SHUT_RDWR);
}

void service_client::refuse(const std::string& text) {
  answer(error_line(text));
  send_answers();
  close();
}

void service_client::close() {
  stop_hearing();
  is_closing_ = true;
  answers_.clear();
  shutdown(descriptor(), SHUT_RDWR);  // which is an event: it is to be closed
}

void service_client::answer(const std::string& line) {
  answers_ += line;
}

// One that does not hear any more may have sent records all the same.
void service_client::send_answers() {
  const ssize_t sent =
      send(descriptor(), answers_.data(), answers_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent >= 0)
    answers_.erase(0, static_cast<size_t>(sent));
  else if (errno != EAGAIN && errno != EINTR)
    answers_.clear();
}

// It has sent all, and was told that all is written.
void service_client::close_when_done() {
  if (has_ended_ && !is_closing_ && answers_.empty() && client_->taken == client_->written) close();
}

void service_client::hear_refused(uint64_t number, const char* code, const std::string& text) {
  answer(refusal_line(number, code, text));
}

void service_client::hear_written() {
  answer(acknowledgement_line(client_->written));
  send_answers();
  close_when_done();
  if (!is_closing_) watch();
}
