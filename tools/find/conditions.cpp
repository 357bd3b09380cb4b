#include "tools/find/conditions.h"

#include <algorithm>
#include <stdexcept>

#include "recording/records/entry.h"
#include "recording/records/stored_start.h"
#include "recording/records/values.h"
#include "recording/text/number.h"
#include "recording/text/words.h"
#include "tools/find/condition_text.h"
#include "tools/find/name_pattern.h"

// --- What is asked ---

level_range level_range_of(const std::string& text) {
  constexpr std::string_view between = "..";
  const level_range all;
  const size_t at = text.find(between);
  const std::string low = text.substr(0, at);
  const std::string high = at == text.npos ? low : text.substr(at + between.size());
  const auto level = [](const std::string& told, unsigned otherwise) {
    return told.empty() ? otherwise : number_of<unsigned>(told);
  };
  const auto lowest = level(low, all.lowest);
  const auto highest = level(high, all.highest);
  const bool is_told = !low.empty() || !high.empty();
  if (!is_told || !lowest || !highest || *highest > all.highest || *lowest > *highest)
    throw std::invalid_argument(in_quotes(shortened(text)) +
                                " is no level, and no range of levels such as 0..3");
  return {*lowest, *highest};
}

std::vector<std::string> names_between_commas(const std::string& option, const std::string& text) {
  std::vector<std::string> parts;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    parts.push_back(text.substr(at, end - at));
    if (parts.back().empty()) throw std::invalid_argument(option + ": a name is empty");
    at = end + 1;
  }
  return parts;
}

[[noreturn]] static void raise_unknown_event(const event_set& events, const std::string& name) {
  std::vector<std::string_view> names;
  for (const known_event& event : events.events()) names.push_back(event.name);
  throw std::invalid_argument("--event: no event " + in_quotes(shortened(name)) +
                              nearest_name_hint(name, names));
}

// A pattern, or an ID, may be that of events that the definitions have no more.
record_conditions::name_choice record_conditions::choice_of_events(const std::string& text,
                                                                   const event_set& events) {
  name_choice choice;
  for (const std::string& part : names_between_commas("--event", text)) {
    if (const auto id = number_of<uint32_t>(part)) choice.ids.push_back(*id);
    const bool is_known = events.find(part) != nullptr || events.is_ambiguous(part);
    if (!is_known && !is_name_pattern(part) && !number_of<uint32_t>(part))
      raise_unknown_event(events, part);
    choice.patterns.push_back(part);
  }
  return choice;
}

static std::vector<text_expression> expressions_of(const std::vector<std::string>& grep) {
  try {
    return {grep.begin(), grep.end()};
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(std::string("--grep: ") + error.what());
  }
}

record_conditions::group record_conditions::read_group(const condition_group& from,
                                                       const event_set& events) {
  group read;
  for (const std::string& text : from.events) read.events.push_back(choice_of_events(text, events));
  for (const std::string& text : from.where)
    if (context_comparison::is_one(text))
      read.contexts.emplace_back(text);
    else
      read.where.emplace_back(text, events);
  read.grep = expressions_of(from.grep);
  return read;
}

static void require_readable_comparison(const std::string& text) {
  if (context_comparison::is_one(text)) {
    const context_comparison comparison(text);
    return;
  }
  condition_reader reader(text);
  reader.name();
  const comparison_operator operation = reader.operation();
  const std::string value = reader.value();
  if (operation != comparison_operator::found) return;
  try {
    const text_expression expression(value);
  } catch (const std::invalid_argument& error) {
    reader.raise(error.what());
  }
}

void require_readable(const find_options& options) {
  for (const condition_group& group : options.groups) {
    for (const std::string& events : group.events) names_between_commas("--event", events);
    for (const std::string& condition : group.where) require_readable_comparison(condition);
    expressions_of(group.grep);
  }
}

std::optional<kp_Time> told_moment_of(const char* option, const std::optional<std::string>& text,
                                      moment_edge edge, std::chrono::system_clock::time_point now) {
  if (!text) return std::nullopt;
  try {
    return moment_of(*text, edge, now);
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(std::string(option) + ": " + error.what());
  }
}

record_conditions::record_conditions(const find_options& options, const event_set& events,
                                     std::chrono::system_clock::time_point now, bool are_of_several)
    : events_(events),
      levels_(options.levels),
      since_(told_moment_of("--since", options.since, moment_edge::first, now)),
      until_(told_moment_of("--until", options.until, moment_edge::last, now)),
      pid_(options.pid),
      now_(now) {
  for (const condition_group& from : options.groups) {
    try {
      groups_.push_back(read_group(from, events));
    } catch (const std::invalid_argument& error) {
      if (!are_of_several) throw;
      groups_.emplace_back().fault = error.what();
    }
  }
  if (options.host) hosts_.patterns = names_between_commas("--host", *options.host);
  if (since_) since_seconds_ = seconds_of(*since_);
  if (until_) until_seconds_ = seconds_of(*until_);
  if (since_ && until_ && since_->compare_time(*until_) > 0)
    throw std::invalid_argument("--until lies before --since");
}

std::vector<std::string> record_conditions::group_faults() const {
  std::vector<std::string> faults;
  for (const group& one : groups_) faults.push_back(one.fault);
  return faults;
}

// --- Records ---

bool record_conditions::name_choice::fits(std::string_view name) const {
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string& pattern) { return fits_name_pattern(name, pattern); });
}

bool record_conditions::name_choice::fits_id(uint32_t id) const {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// An event that is not known is the one that the record says.
bool record_conditions::name_choice::fits(const parsed_record& record,
                                          const known_event* event) const {
  if (event != nullptr) return fits_id(event->id) || fits(event->name);
  if (record.event.kind == record_value_kind::text) return fits(record.event.text);
  const auto id = number_of<uint32_t>(record.event.text);
  return (id && fits_id(*id)) || (record.name.has_value() && fits(record.name->text));
}

bool record_conditions::group::fits(const parsed_record& record, const known_event* event) const {
  return fault.empty() &&
         std::all_of(events.begin(), events.end(),
                     [&](const name_choice& choice) { return choice.fits(record, event); }) &&
         std::all_of(where.begin(), where.end(),
                     [&](const auto& comparison) { return comparison.holds(record, event); }) &&
         std::all_of(contexts.begin(), contexts.end(),
                     [&](const auto& comparison) { return comparison.holds(record); });
}

// --- Segments ---

bool record_conditions::name_choice::may_fit(uint32_t id, std::string_view json_name,
                                             const known_event* event) const {
  if (event != nullptr) return fits_id(event->id) || fits(event->name);
  const bool has_escapes = json_name.find('\\') != std::string_view::npos;
  return fits_id(id) || has_escapes || fits(json_name);
}

bool record_conditions::group::may_fit(const segment_index& segment, const event_set& set) const {
  return fault.empty() &&
         std::any_of(segment.events.begin(), segment.events.end(), [&](const auto& one) {
           const uint32_t id = one.first.first;
           const std::string& name = one.first.second;
           const known_event* const event = set.find(id);
           return std::all_of(events.begin(), events.end(), [&](const name_choice& choice) {
             return choice.may_fit(id, name, event);
           });
         });
}

// Behind the times that an index can tell there may be others.
bool record_conditions::may_fit(const segment_index& segment) const {
  if (segment.others != 0) return true;
  if (segment.records == 0) return false;
  const bool is_before = since_ && segment.last < last_told_instant &&
                         kp_Time::in_GMT(segment.last).compare_time(*since_) < 0;
  const bool is_behind = until_ && segment.first > first_told_instant &&
                         kp_Time::in_GMT(segment.first).compare_time(*until_) > 0;
  if (is_before || is_behind) return false;
  return groups_.empty() || std::any_of(groups_.begin(), groups_.end(), [&](const group& one) {
           return one.may_fit(segment, events_);
         });
}

// --- Records that fit ---

bool record_conditions::fits_time(const parsed_record& record) {
  if (!since_ && !until_) return true;
  const std::string_view told = record.time ? record.time->text : std::string_view();
  if (!time_text_.empty() && told == time_text_) return is_time_fitting_;
  time_text_ = told;
  if (const auto seconds = day_.seconds_of(told)) {
    is_time_fitting_ = *seconds >= since_seconds_ && *seconds <= until_seconds_;
    return is_time_fitting_;
  }
  const auto time = record.time ? moment_of(*record.time) : now_;
  is_time_fitting_ = time.has_value() && (!since_ || time->compare_time(*since_) >= 0) &&
                     (!until_ || time->compare_time(*until_) <= 0);
  if (record.time && time) day_.learn(told, *time);
  return is_time_fitting_;
}

bool record_conditions::fits_all(const parsed_record& record) {
  const unsigned level = record.level.value_or(default_record_level);
  if (levels_ && (level < levels_->lowest || level > levels_->highest)) return false;
  if (pid_ && record.origin.pid != pid_) return false;
  const std::string_view host = record.origin.host;
  if (!hosts_.patterns.empty() && (host.empty() || !hosts_.fits(host))) return false;
  return fits_time(record);
}

bool record_conditions::fit(const parsed_record& record) {
  if (!fits_all(record)) return false;
  if (groups_.empty()) return true;
  const known_event* const event = find_event(events_, record.event);
  bool is_any_fitting = false;
  for (group& one : groups_) {
    one.is_fitting = one.fits(record, event);
    is_any_fitting |= one.is_fitting;
  }
  return is_any_fitting;
}

bool record_conditions::ask_for_messages() const {
  return std::any_of(groups_.begin(), groups_.end(),
                     [](const group& one) { return !one.grep.empty(); });
}

bool record_conditions::fit_message(std::string_view message) const {
  const auto fits = [&](const group& one) {
    return one.is_fitting &&
           std::all_of(one.grep.begin(), one.grep.end(),
                       [&](const auto& expression) { return expression.is_found_in(message); });
  };
  return groups_.empty() || std::any_of(groups_.begin(), groups_.end(), fits);
}
