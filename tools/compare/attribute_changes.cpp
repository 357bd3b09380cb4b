#include "tools/compare/attribute_changes.h"

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

definition_change& attribute_report::add(change_rule rule, const attribute_model* was,
                                         const attribute_model* is, const std::string& text) const {
  source_place before;
  source_place now = elsewhere;
  std::vector<std::string> names;
  if (is != nullptr) {
    now = is->name.place;
    names.push_back(is->name.value);
  }
  if (was != nullptr) {
    before = was->name.place;
    names.push_back(was->name.value);
  }
  std::string whole_text = what + ("\"" + names.front()) + "\" " + text;
  changes.push_back({rule, event, before, now, std::move(whole_text), std::move(names)});
  return changes.back();
}

void add_type_change(kp_AttributeType type_before, const attribute_model& is,
                     const attribute_model* was, const attribute_report& report) {
  if (type_before == is.type) return;
  report.add(
      type_change_rule(type_before, is.type), was, &is,
      std::string("was ") + short_type_name(type_before) + ", and is " + short_type_name(is.type));
}

void add_attribute_changes(const attribute_pair& pair, const attribute_report& report) {
  const attribute_model& was = *pair.before;
  const attribute_model& is = *pair.now;
  add_type_change(was.type, is, &was, report);
  if (was.redirection.value != is.redirection.value)
    report.add(change_rule::redirect, &was, &is, "has another redirection");
  if (!report.has_notes || was.note == is.note) return;
  definition_change& change = report.add(change_rule::note, &was, &is, "has another note");
  change.before_text = was.note;
  change.now_text = is.note;
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
