#include "tools/find/follow.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iterator>
#include <system_error>
#include <utility>

#include "recording/records/service.h"
#include "recording/records/values.h"
#include "recording/text/number.h"
#include "tools/find/moment.h"

// For what was there when a run that has shown all so far is to end.
static constexpr std::chrono::milliseconds patience_at_end(1000);

// Lines between two looks at whether it is to end.
static constexpr size_t lines_between_looks = 256;

followed_records::followed_records(const std::vector<std::string>& paths, const follow_rules& rules,
                                   follow_end end)
    : waiting_(paths.size()), end_(std::move(end)) {
  raise_descriptor_limit();  // a place takes a watch and a file, or several
  for (const std::string& path : paths) places_.push_back(followed_place_of(path, rules));
}

// --- Times ---

static std::chrono::nanoseconds nanoseconds_of(const std::string& fraction) {
  if (fraction.size() < 2) return {};
  std::string digits = fraction.substr(1);
  digits.resize(sizeof "123456789" - 1, '0');
  return std::chrono::nanoseconds(number_of<int64_t>(digits).value_or(0));
}

// To the nanosecond, where it was recorded so.
std::optional<followed_records::instant> followed_records::instant_of(const record_line& line) {
  const parsed_record* const record = line.too_long ? nullptr : parser_.try_parse(line.text);
  if (record == nullptr) return std::nullopt;
  record_value told;
  if (!record->origin.recorded.empty())
    told.text = record->origin.recorded;
  else if (record->time)
    told = *record->time;
  const auto time = moment_of(told);
  if (!time) return std::nullopt;
  std::string text(told.text);
  // Times that an instant does not reach are told as the last that it does.
  constexpr instant last = instant::max() - std::chrono::seconds(1);
  return std::min(time->to_time_point(), last) + nanoseconds_of(take_second_fraction(text));
}

// --- Lines ---

// One that is to end before all was shown that was there at the begin ends at once.
bool followed_records::is_time_over() {
  if (!deadline_ && ++handed_out_ % lines_between_looks != 0) return false;
  if (!deadline_ && end_.is_to_end())
    deadline_ = has_waited_ ? clock::now() + patience_at_end : clock::time_point::min();
  return deadline_ && clock::now() >= *deadline_;
}

void followed_records::fill(size_t place) {
  waiting_line& waiting = waiting_[place];
  if (waiting.is_there || waiting.is_over) return;
  waiting.is_there = places_[place]->next(waiting.line);
  waiting.is_over = !waiting.is_there;
  if (waiting.is_there && places_.size() > 1)
    waiting.time = instant_of(waiting.line).value_or(waiting.time);
}

bool followed_records::next(record_line& line) {
  if (is_time_over()) return false;
  waiting_line* first = nullptr;
  for (size_t place = 0; place < places_.size(); ++place) {
    fill(place);
    waiting_line& waiting = waiting_[place];
    if (waiting.is_there && (first == nullptr || waiting.time < first->time)) first = &waiting;
  }
  if (first == nullptr) return false;
  line = first->line;
  first->is_there = false;
  return true;
}

// --- Waiting ---

// Those that are no descriptors are left out: the system takes no more than may be open.
static int poll_descriptors(std::vector<pollfd>& watched, std::chrono::milliseconds patience) {
  std::vector<pollfd> open;
  std::ranges::copy_if(watched, std::back_inserter(open),
                       [](const pollfd& one) { return one.fd >= 0; });
  const int ready = poll(open.data(), open.size(), static_cast<int>(patience.count()));
  auto polled = open.cbegin();
  for (pollfd& one : watched)
    if (one.fd >= 0) one.revents = (polled++)->revents;
  return ready;
}

// What has come is looked for behind this.
void followed_records::wait_for_places() {
  std::chrono::milliseconds patience(deadline_ ? 0 : -1);
  watched_.clear();
  for (const auto& place : places_) {
    watched_.push_back(place->watched());
    patience = shorter_wait(place->patience(), patience);
  }
  watched_.push_back({deadline_ ? -1 : end_.descriptor, POLLIN, 0});
  watched_.push_back({end_.reader, 0, 0});
  const int ready = poll_descriptors(watched_, patience);
  if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  if (ready < 0) return;
  is_unread_ = (watched_.back().revents & (POLLERR | POLLHUP)) != 0;
  for (size_t place = 0; place < places_.size(); ++place) {
    places_[place]->look(watched_[place]);
    waiting_[place].is_over = false;
  }
}

bool followed_records::wait() {
  const bool is_last = deadline_.has_value();
  const bool has_more =
      std::ranges::any_of(places_, [](const auto& one) { return !one->at_end(); });
  if (is_last || !has_more) return false;
  has_waited_ = true;
  if (end_.is_to_end()) deadline_ = clock::now() + patience_at_end;
  wait_for_places();
  return !is_unread_;
}
