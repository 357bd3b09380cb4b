#include "engines/nats/record_filter.h"

#include <algorithm>

#include "recording/text/number.h"
#include "tools/find/name_pattern.h"

// Each takes a subscription, and the engine reads its index for it.
static constexpr size_t most_subjects = 24;
static constexpr unsigned top_level = 9;

nats_record_filter::nats_record_filter(const nats_subjects& subjects, const archive_query& query)
    : subjects_(subjects),
      hosts_(query.hosts),
      lowest_level_(query.lowest_level),
      highest_level_(query.highest_level) {
  if (!query.groups.empty()) events_.emplace();
  for (const asked_group& group : query.groups) {
    if (!group.events) {
      events_.reset();
      return;
    }
    events_->insert(group.events->begin(), group.events->end());
  }
}

bool nats_record_filter::has_patterns() const {
  return std::ranges::any_of(hosts_, is_name_pattern);
}

std::vector<std::string> nats_record_filter::subjects() const {
  // A token each: of what may be anything "*" alone.
  std::vector<std::string> hosts;
  if (!has_patterns())
    for (const std::string& host : hosts_) hosts.push_back(nats_token(host));
  std::vector<std::string> events;
  if (events_) {
    for (const uint32_t event : *events_) events.push_back(std::to_string(event));
    events.emplace_back("-");
  }
  std::vector<std::string> levels;
  if (lowest_level_ > 0 || highest_level_ < top_level) {
    for (unsigned level = lowest_level_; level <= highest_level_; ++level)
      levels.push_back(std::to_string(level));
    levels.emplace_back("-");
  }
  const auto count = [](const auto& tokens) { return std::max<size_t>(tokens.size(), 1); };
  if (count(hosts) * count(events) * count(levels) > most_subjects) levels.clear();
  if (count(hosts) * count(events) > most_subjects) events.clear();
  if (count(hosts) > most_subjects) hosts.clear();
  for (auto* const tokens : {&hosts, &events, &levels})
    if (tokens->empty()) tokens->emplace_back("*");
  std::vector<std::string> made;
  for (const std::string& host : hosts)
    for (const std::string& event : events)
      for (const std::string& level : levels)
        made.push_back(subjects_.records_of(host, event, level));
  return made;
}

std::string nats_record_filter::subject() const {
  const bool is_one_host = hosts_.size() == 1 && !has_patterns();
  return subjects_.records_of(is_one_host ? nats_token(hosts_.front()) : "*", "*", "*");
}

bool nats_record_filter::may_fit(std::string_view subject) const {
  const size_t level_at = subject.rfind('.') + 1;
  const auto level = number_of<unsigned>(subject.substr(level_at));
  if (level && (*level < lowest_level_ || *level > highest_level_)) return false;
  if (!events_ || level_at == 0) return true;
  const std::string_view before = subject.substr(0, level_at - 1);
  const auto event = number_of<uint32_t>(before.substr(before.rfind('.') + 1));
  return !event || events_->contains(*event);
}

bool nats_record_filter::is_host(std::string_view host) const {
  return hosts_.empty() || std::ranges::any_of(hosts_, [host](const std::string& pattern) {
           return fits_name_pattern(host, pattern);
         });
}
