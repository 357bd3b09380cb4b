#include "tools/definition_changes.h"

#include <algorithm>
#include <unordered_map>

#include "tools/definition_std.h"

static std::string in_quotes(const std::string& text) {
  return "\"" + text + "\"";
}

class definition_comparison {
 public:
  definition_comparison(const compared_set& before, const compared_set& now)
      : before_(before), now_(now), pairs_(pair_events(before.set, now.set)) {}

  std::vector<definition_change> run() {
    compare_log_versions();
    if (before_.is_source && now_.is_source) {
      compare_flags();
      compare_retired_ids();
    }
    compare_globals();
    for (const event_pair& pair : pairs_) compare_events(pair);
    return std::move(changes_);
  }

 private:
  void compare_log_versions() {
    const placed<std::string>& was = before_.set.log_version;
    const placed<std::string>& is = now_.set.log_version;
    if (was.value != is.value)
      changes_.push_back(
          {change_rule::log_version,
           {},
           was.place,
           is.place,
           "the log version was " + in_quotes(was.value) + ", and is " + in_quotes(is.value)});
  }

  void compare_flags() {
    for (const auto& [name, bits] : before_.set.flags) compare_flag(name, bits);
    for (const auto& [name, bits] : now_.set.flags)
      if (before_.set.flags.count(name) == 0)
        changes_.push_back({change_rule::flag_added,
                            {},
                            {},
                            bits.place,
                            "the flag " + in_quotes(name) + " is new"});
  }

  void compare_flag(const std::string& name, const placed<uint32_t>& was) {
    const auto is = now_.set.flags.find(name);
    if (is == now_.set.flags.end())
      changes_.push_back({change_rule::flag_removed,
                          {},
                          was.place,
                          {},
                          "the flag " + in_quotes(name) + " is gone"});
    else if (is->second.value != was.value)
      changes_.push_back({change_rule::flag_value,
                          {},
                          was.place,
                          is->second.place,
                          "the flag " + in_quotes(name) + " has another value"});
  }

  // By the first ID of a range that has lost some; IDs of events are found with the events.
  void compare_retired_ids() {
    for (const id_range& range : before_.set.retired) {
      uint64_t id = range.first;
      for (const id_range* covered = retired_now(id); covered != nullptr && id <= range.last;
           covered = retired_now(id))
        id = uint64_t{covered->last} + 1;
      if (id <= range.last)
        changes_.push_back({change_rule::retired_removed,
                            {},
                            range.place,
                            {},
                            "the ID " + std::to_string(id) + " is not retired any more"});
    }
  }

  const id_range* retired_now(uint64_t id) const {
    const auto& retired = now_.set.retired;
    const auto range = std::find_if(retired.begin(), retired.end(), [&](const id_range& r) {
      return id <= r.last && r.holds(static_cast<uint32_t>(id));
    });
    return range == retired.end() ? nullptr : &*range;
  }

  void compare_globals() {
    for (const attribute_model& was : before_.set.globals) compare_global(was);
    for (const attribute_model& is : now_.set.globals)
      if (find_attribute(before_.set.globals, is.name.value) == nullptr)
        changes_.push_back({change_rule::global_added,
                            {},
                            {},
                            is.name.place,
                            "the global attribute " + in_quotes(is.name.value) + " is new"});
  }

  void compare_global(const attribute_model& was) {
    const std::string what = "the global attribute " + in_quotes(was.name.value);
    const attribute_model* const is = find_attribute(now_.set.globals, was.name.value);
    if (is == nullptr)
      changes_.push_back({change_rule::global_removed, {}, was.name.place, {}, what + " is gone"});
    else if (is->type != was.type)
      changes_.push_back(
          {type_change_rule(was.type, is->type),
           {},
           was.name.place,
           is->name.place,
           what + " was " + short_type_name(was.type) + ", and is " + short_type_name(is->type)});
  }

  void compare_events(const event_pair& pair) {
    if (pair.now == nullptr) return report_removed(pair);
    report_reused_id(pair);
    if (pair.before == nullptr)
      changes_.push_back(
          {change_rule::event_added, pair, {}, pair.now->name.place, "the event is new"});
    else
      add_event_changes(before_, now_, pair, changes_);
  }

  void report_removed(const event_pair& pair) {
    const auto& retired = now_.set.retired;
    const bool is_retired = std::any_of(retired.begin(), retired.end(), [&](const id_range& r) {
      return r.holds(pair.before->id.value);
    });
    changes_.push_back({change_rule::event_removed,
                        pair,
                        pair.before->name.place,
                        {},
                        is_retired || !now_.is_source ? "the event is gone"
                                                      : "the event is gone, and its ID is not "
                                                        "retired"});
  }

  void report_reused_id(const event_pair& pair) {
    const uint32_t id = pair.now->id.value;
    const std::string what = "the ID " + std::to_string(id);
    const event_model* const former = event_before(id);
    if (former != nullptr && former != pair.before)
      changes_.push_back({change_rule::id_reused, pair, former->id.place, pair.now->id.place,
                          what + " was that of " + in_quotes(former->name.value)});
    if (former != nullptr) return;
    for (const id_range& range : before_.set.retired)
      if (range.holds(id))
        changes_.push_back(
            {change_rule::id_reused, pair, range.place, pair.now->id.place, what + " was retired"});
  }

  const event_model* event_before(uint32_t id) {
    if (events_before_.empty())
      for (const event_model& event : before_.set.events)
        events_before_.emplace(event.id.value, &event);
    const auto event = events_before_.find(id);
    return event == events_before_.end() ? nullptr : event->second;
  }

  const compared_set& before_;
  const compared_set& now_;
  const std::vector<event_pair> pairs_;
  std::unordered_map<uint32_t, const event_model*> events_before_;  // by their IDs
  std::vector<definition_change> changes_;
};

std::vector<definition_change> definition_changes(const compared_set& before,
                                                  const compared_set& now) {
  return definition_comparison(before, now).run();
}

// Strings of one kind differ in their size class alone, and their codes are in its order.
change_rule type_change_rule(kp_AttributeType before, kp_AttributeType now) {
  const bool are_strings = before != TypeGUID && now != TypeGUID && is_string_attribute(before) &&
                           is_string_attribute(now);
  const bool are_unicode = is_unicode_string_attribute(before) && is_unicode_string_attribute(now);
  if (!are_strings && !are_unicode) return change_rule::attribute_type;
  return now > before ? change_rule::attribute_widened : change_rule::attribute_narrowed;
}
