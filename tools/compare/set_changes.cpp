// Which event of a set was which of an earlier one, and the differences between the sets.
#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>

#include "recording/definitions/merged_set.h"
#include "recording/text/words.h"
#include "tools/compare/changes.h"

// --- Which event was which

static bool is_same_attribute(const attribute_model& a, const attribute_model& b) {
  return a.name.value == b.name.value && a.type == b.type;
}

static size_t shared_attributes(const event_model& a, const event_model& b) {
  std::unordered_set<std::string_view> names;
  for (const attribute_model& attribute : a.attributes) names.insert(attribute.name.value);
  return static_cast<size_t>(std::count_if(
      b.attributes.begin(), b.attributes.end(),
      [&](const attribute_model& other) { return names.count(other.name.value) != 0; }));
}

static bool is_identified(const event_model& a, const event_model& b) {
  return a.id.value == b.id.value && a.name.value == b.name.value;
}

// The same ID, and not everything else different.
static bool is_same_id(const event_model& a, const event_model& b) {
  const size_t most = std::max(a.attributes.size(), b.attributes.size());
  return a.id.value == b.id.value && (a.message.template_bytes == b.message.template_bytes ||
                                      2 * shared_attributes(a, b) >= most);
}

static bool is_same_name(const event_model& a, const event_model& b) {
  return a.name.value == b.name.value;
}

static bool is_same_content(const event_model& a, const event_model& b) {
  return !a.attributes.empty() && a.message.template_bytes == b.message.template_bytes &&
         std::equal(a.attributes.begin(), a.attributes.end(), b.attributes.begin(),
                    b.attributes.end(), is_same_attribute);
}

static std::string id_key(const event_model& event) {
  return std::to_string(event.id.value);
}
static std::string name_key(const event_model& event) {
  return event.name.value;
}
static std::string content_key(const event_model& event) {
  return event.message.template_bytes;
}

// A way to know an event again: a key to look it up by, and what must hold besides.
struct recognition_row {
  std::string (*key)(const event_model& event);
  bool (*is_same)(const event_model& before, const event_model& now);
};

static constexpr std::array<recognition_row, 4> recognitions = {{
    {id_key, is_identified},
    {id_key, is_same_id},
    {name_key, is_same_name},
    {content_key, is_same_content},
}};

class event_matcher {
 public:
  event_matcher(const definition_set& before, const definition_set& now)
      : before_(before), now_(now), found_(now.events.size()) {}

  std::vector<event_pair> match() {
    for (const recognition_row& recognition : recognitions) recognize(recognition);
    std::vector<event_pair> pairs;
    pairs.reserve(found_.size());
    for (size_t i = 0; i < found_.size(); ++i) pairs.push_back({found_[i], &now_.events[i]});
    for (const event_model& event : before_.events)
      if (taken_.count(&event) == 0) pairs.push_back({&event, nullptr});
    return pairs;
  }

 private:
  void recognize(const recognition_row& recognition) {
    std::unordered_multimap<std::string, const event_model*> left;
    for (const event_model& event : before_.events)
      if (taken_.count(&event) == 0) left.emplace(recognition.key(event), &event);
    for (size_t i = 0; i < found_.size() && !left.empty(); ++i)
      if (found_[i] == nullptr) take(recognition, left, i);
  }

  void take(const recognition_row& recognition,
            const std::unordered_multimap<std::string, const event_model*>& left, size_t i) {
    const event_model& event = now_.events[i];
    const auto [first, last] = left.equal_range(recognition.key(event));
    for (auto candidate = first; candidate != last && found_[i] == nullptr; ++candidate) {
      const bool is_free = taken_.count(candidate->second) == 0;
      if (is_free && recognition.is_same(*candidate->second, event)) found_[i] = candidate->second;
    }
    if (found_[i] != nullptr) taken_.insert(found_[i]);
  }

  const definition_set& before_;
  const definition_set& now_;
  std::vector<const event_model*> found_;  // for each event of the new set, what it was
  std::unordered_set<const event_model*> taken_;
};

std::vector<event_pair> pair_events(const definition_set& before, const definition_set& now) {
  return event_matcher(before, now).match();
}

// --- What records call events: by the ID of their default message (docs/records.md)

// The names of a set's events, together with those of the STD set that it adds to, if any.
class record_names {
 public:
  record_names(const definition_set& set, const std_definitions* standard);

  // Empty for an ID that the sets do not have, and for an event without a name.
  const std::string& of(uint32_t id) const;
  // What sources call the events of that name.
  const std::vector<std::string>& owners(const std::string& name) const;

 private:
  void add(const event_model& event);

  std::unordered_map<uint32_t, std::string> names_;
  std::unordered_map<std::string, std::vector<std::string>> owners_;
};

record_names::record_names(const definition_set& set, const std_definitions* standard) {
  if (standard == nullptr) {
    for (const event_model& event : set.events) add(event);
  } else {
    for (const event_model& event : merged_set(standard->set(), set).events) add(event);
  }
}

void record_names::add(const event_model& event) {
  const std::string& name = event.message.id.value;
  names_.emplace(event.id.value, name);
  if (!name.empty()) owners_[name].push_back(event.name.value);
}

const std::string& record_names::of(uint32_t id) const {
  static const std::string none;
  const auto name = names_.find(id);
  return name == names_.end() ? none : name->second;
}

const std::vector<std::string>& record_names::owners(const std::string& name) const {
  static const std::vector<std::string> nobody;
  const auto owners = owners_.find(name);
  return owners == owners_.end() ? nobody : owners->second;
}

// --- The sets

// The IDs of each range that none of `others` holds, in ranges with the places of those they are
// of.
static std::vector<id_range> ids_outside(const std::vector<id_range>& ranges,
                                         std::vector<id_range> others) {
  std::sort(others.begin(), others.end(),
            [](const id_range& a, const id_range& b) { return a.first < b.first; });
  std::vector<id_range> outside;
  for (const id_range& range : ranges) {
    uint64_t next = range.first;  // all before it are dealt with
    for (const id_range& other : others) {
      if (other.last < next) continue;
      if (other.first > range.last) break;
      if (other.first > next)
        outside.push_back({static_cast<uint32_t>(next), other.first - 1, range.place});
      next = uint64_t{other.last} + 1;
    }
    if (next <= range.last)
      outside.push_back({static_cast<uint32_t>(next), range.last, range.place});
  }
  return outside;
}

class definition_comparison {
 public:
  definition_comparison(const compared_set& before, const compared_set& now)
      : before_(before),
        now_(now),
        names_before_(before.set, before.standard),
        names_now_(now.set, now.standard),
        pairs_(pair_events(before.set, now.set)) {}

  std::vector<definition_change> run() {
    compare_log_versions();
    if (before_.is_source && now_.is_source) {
      compare_flags();
      compare_retired_ids();
      compare_id_ranges();
    }
    compare_globals();
    compare_event_order();
    for (const event_pair& pair : pairs_) compare_events(pair);
    return std::move(changes_);
  }

 private:
  void compare_log_versions() {
    const placed<std::string>& was = before_.set.log_version;
    const placed<std::string>& is = now_.set.log_version;
    if (was.value != is.value)
      changes_.push_back(
          {"log-version"_change,
           {},
           was.place,
           is.place,
           "the log version was " + in_quotes(was.value) + ", and is " + in_quotes(is.value),
           {is.value, was.value}});
  }

  void compare_flags() {
    for (const auto& [name, bits] : before_.set.flags) compare_flag(name, bits);
    for (const auto& [name, bits] : now_.set.flags)
      if (before_.set.flags.count(name) == 0)
        changes_.push_back({"flag-added"_change,
                            {},
                            {},
                            bits.place,
                            "the flag " + in_quotes(name) + " is new",
                            {name}});
  }

  void compare_flag(const std::string& name, const placed<uint32_t>& was) {
    const auto is = now_.set.flags.find(name);
    if (is == now_.set.flags.end())
      changes_.push_back({"flag-removed"_change,
                          {},
                          was.place,
                          {},
                          "the flag " + in_quotes(name) + " is gone",
                          {name}});
    else if (is->second.value != was.value)
      changes_.push_back({"flag-value"_change,
                          {},
                          was.place,
                          is->second.place,
                          "the flag " + in_quotes(name) + " has another value",
                          {name}});
  }

  void compare_retired_ids() {
    const std::vector<id_range>& was = before_.set.retired;
    const std::vector<id_range>& is = now_.set.retired;
    for (const id_range& lost : ids_outside(was, is))
      add_range_change("retired-removed"_change, lost.place, {}, lost,
                       ids_text(lost, "is", "are") + " not retired any more");
    for (const id_range& gained : ids_outside(is, was))
      add_range_change("retired-added"_change, {}, gained.place, gained,
                       ids_text(gained, "is", "are") + " retired now");
  }

  void compare_id_ranges() {
    const std::vector<id_range>& was = before_.set.id_ranges;
    const std::vector<id_range>& is = now_.set.id_ranges;
    for (const id_range& lost : ids_outside(was, is))
      add_range_change("ids-removed"_change, lost.place, {}, lost,
                       ids_text(lost, "lies", "lie") + " in no range any more");
    for (const id_range& gained : ids_outside(is, was))
      add_range_change("ids-added"_change, {}, gained.place, gained,
                       ids_text(gained, "lies", "lie") + " in a range now");
  }

  // "7", "7-9"
  static std::string ids_name(const id_range& range) {
    const std::string first = std::to_string(range.first);
    return range.first == range.last ? first : first + "-" + std::to_string(range.last);
  }

  static std::string ids_text(const id_range& range, const char* one, const char* many) {
    return range.first == range.last ? "the ID " + ids_name(range) + " " + one
                                     : "the IDs " + ids_name(range) + " " + many;
  }

  void add_range_change(change_rule rule, const text_place& was, const text_place& is,
                        const id_range& range, std::string text) {
    changes_.push_back({rule, {}, was, is, std::move(text), {ids_name(range)}});
  }

  void compare_globals() {
    const attribute_report report = {
        "the global attribute ", {}, before_.is_source && now_.is_source, {}, changes_};
    const attribute_pairs pairs(before_.set.globals, now_.set.globals);
    for (const attribute_model* was : pairs.gone)
      report.add("global-removed"_change, was, nullptr, "is gone");
    for (const attribute_pair& pair : pairs.kept) add_attribute_changes(pair, report);
    for (const attribute_model* is : pairs.added)
      report.add("global-added"_change, nullptr, is, "is new");
    for (const attribute_model* is : pairs.added) add_replaced_global(*is, report);
    add_attribute_order_change(pairs, "global-order"_change, report);
  }

  // A global attribute takes the place of that of the STD set.
  void add_replaced_global(const attribute_model& is, const attribute_report& report) const {
    if (before_.standard == nullptr) return;
    const attribute_model* const was =
        find_attribute(before_.standard->set().globals, is.name.value);
    if (was != nullptr) add_type_change(was->type, is, nullptr, report);
  }

  // Of the events that both have.
  void compare_event_order() {
    std::vector<const event_model*> order;
    for (const event_pair& pair : pairs_)
      if (pair.before != nullptr && pair.now != nullptr) order.push_back(pair.before);
    const event_model* const misplaced = first_misplaced(order);
    const auto pair = std::find_if(pairs_.begin(), pairs_.end(), [&](const event_pair& p) {
      return misplaced != nullptr && p.before == misplaced;
    });
    if (pair == pairs_.end()) return;
    changes_.push_back(
        {"event-order"_change,
         {},
         pair->before->name.place,
         pair->now->name.place,
         "the event " + in_quotes(pair->now->name.value) + " stands after others than it did",
         {pair->now->name.value, pair->before->name.value}});
  }

  void compare_events(const event_pair& pair) {
    if (pair.now == nullptr) return report_removed(pair);
    report_reused_id(pair);
    if (pair.before == nullptr)
      changes_.push_back({"event-added"_change,
                          pair,
                          {},
                          pair.now->name.place,
                          "the event is new",
                          {pair.now->name.value}});
    else
      add_event_changes(before_, now_, pair, changes_);
    compare_names(pair);
  }

  // What records called the event, or the STD event that a new one adds to; empty when nothing.
  std::string name_before(const event_pair& pair) {
    if (pair.before != nullptr) return names_before_.of(pair.before->id.value);
    const uint32_t id = pair.now->id.value;
    return event_before(id) == nullptr ? names_before_.of(id) : "";
  }

  // Adds another ID of the default message, by what it breaks.
  void compare_names(const event_pair& pair) {
    const std::string was = name_before(pair);
    const std::string& is = names_now_.of(pair.now->id.value);
    if (was != is && !was.empty())
      add_name_change("default-id"_change, pair,
                      "the default message had the ID " + in_quotes(was) +
                          ", by which records name the event, and has " + in_quotes(is));
    else if (pair.before != nullptr && pair.before->message.id.value != pair.now->message.id.value)
      add_name_change("message-id"_change, pair,
                      "the default message had the ID " + in_quotes(pair.before->message.id.value) +
                          ", and has " + in_quotes(pair.now->message.id.value));
    const std::vector<std::string>& owners = names_before_.owners(is);
    if (was != is && owners.size() == 1 && names_now_.owners(is).size() > 1)
      add_name_change("default-id-shared"_change, pair,
                      "the default message has the ID " + in_quotes(is) +
                          ", by which records name " + in_quotes(owners.front()));
  }

  void add_name_change(change_rule rule, const event_pair& pair, std::string text) {
    text_place before;
    std::vector<std::string> names;
    for (const event_model* event : {pair.now, pair.before})
      if (event != nullptr && !event->message.id.value.empty())
        names.push_back(event->message.id.value);
    names.push_back(pair.now->name.value);
    if (pair.before != nullptr) before = message_place(pair.before->message, *pair.before);
    changes_.push_back({rule, pair, before, message_place(pair.now->message, *pair.now),
                        std::move(text), std::move(names)});
  }

  void report_removed(const event_pair& pair) {
    const auto& retired = now_.set.retired;
    const bool is_retired = std::any_of(retired.begin(), retired.end(), [&](const id_range& r) {
      return r.holds(pair.before->id.value);
    });
    changes_.push_back({"event-removed"_change,
                        pair,
                        pair.before->name.place,
                        {},
                        is_retired || !now_.is_source ? "the event is gone"
                                                      : "the event is gone, and its ID is not "
                                                        "retired",
                        {pair.before->name.value}});
  }

  void report_reused_id(const event_pair& pair) {
    const uint32_t id = pair.now->id.value;
    const std::string what = "the ID " + std::to_string(id);
    const event_model* const former = event_before(id);
    if (former != nullptr && former != pair.before)
      changes_.push_back({"id-reused"_change,
                          pair,
                          former->id.place,
                          pair.now->id.place,
                          what + " was that of " + in_quotes(former->name.value),
                          {pair.now->name.value}});
    if (former != nullptr) return;
    for (const id_range& range : before_.set.retired)
      if (range.holds(id))
        changes_.push_back({"id-reused"_change,
                            pair,
                            range.place,
                            pair.now->id.place,
                            what + " was retired",
                            {pair.now->name.value}});
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
  const record_names names_before_;
  const record_names names_now_;
  const std::vector<event_pair> pairs_;
  std::unordered_map<uint32_t, const event_model*> events_before_;  // by their IDs
  std::vector<definition_change> changes_;
};

std::vector<definition_change> definition_changes(const compared_set& before,
                                                  const compared_set& now) {
  return definition_comparison(before, now).run();
}
