#include "tools/compare/pairs.h"

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>

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
