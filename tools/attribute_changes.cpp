#include "tools/attribute_changes.h"

#include <algorithm>

attribute_pairs::attribute_pairs(const std::vector<attribute_model>& before,
                                 const std::vector<attribute_model>& now) {
  for (const attribute_model& is : now) added.push_back(&is);
  for (const attribute_model& was : before) {
    const auto is = std::find_if(added.begin(), added.end(), [&](const attribute_model* a) {
      return a->name.value == was.name.value;
    });
    if (is == added.end()) {
      gone.push_back(&was);
    } else {
      kept.push_back({&was, *is});
      added.erase(is);
    }
  }
}

void attribute_pairs::join(const attribute_model* was, const attribute_model* is) {
  gone.erase(std::find(gone.begin(), gone.end(), was));
  added.erase(std::find(added.begin(), added.end(), is));
  const auto place = std::find_if(kept.begin(), kept.end(),
                                  [&](const attribute_pair& pair) { return pair.before > was; });
  kept.insert(place, {was, is});
}

void attribute_report::add(change_rule rule, const attribute_model* was, const attribute_model* is,
                           const std::string& text) const {
  source_place before;
  source_place now = elsewhere;
  std::string name;
  if (was != nullptr) {
    before = was->name.place;
    name = was->name.value;
  }
  if (is != nullptr) {
    now = is->name.place;
    name = is->name.value;
  }
  changes.push_back({rule, event, before, now, what + ("\"" + name) + "\" " + text});
}

void add_attribute_changes(const attribute_pair& pair, const attribute_report& report) {
  const attribute_model& was = *pair.before;
  const attribute_model& is = *pair.now;
  const auto add = [&](change_rule rule, const std::string& text) {
    report.add(rule, &was, &is, text);
  };
  if (was.type != is.type)
    add(type_change_rule(was.type, is.type),
        std::string("was ") + short_type_name(was.type) + ", and is " + short_type_name(is.type));
  if (was.redirection.value != is.redirection.value)
    add(change_rule::redirect, "has another redirection");
  if (report.has_notes && was.note != is.note) add(change_rule::note, "has another note");
}

void add_attribute_order_change(const attribute_pairs& pairs, change_rule rule,
                                const attribute_report& report) {
  std::vector<const attribute_model*> order;
  for (const attribute_pair& pair : pairs.kept) order.push_back(pair.now);
  const attribute_model* const misplaced = first_misplaced(order);
  if (misplaced == nullptr) return;
  const auto pair = std::find_if(pairs.kept.begin(), pairs.kept.end(),
                                 [&](const attribute_pair& p) { return p.now == misplaced; });
  report.add(rule, pair->before, misplaced, "stands before others than it did");
}
