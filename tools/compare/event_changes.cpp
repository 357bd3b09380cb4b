// The differences between an event and what it is now, and between attributes; messages apart.
#include <algorithm>

#include "recording/definitions/merged_set.h"
#include "recording/text/number.h"
#include "recording/text/words.h"
#include "tools/compare/changes.h"

// --- Attributes

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
  text_place before;
  text_place now = elsewhere;
  std::vector<std::string> names;
  if (is != nullptr) {
    now = is->name.place;
    names.push_back(is->name.value);
  }
  if (was != nullptr) {
    before = was->name.place;
    names.push_back(was->name.value);
  }
  std::string whole_text = what + in_quotes(names.front()) + " " + text;
  changes.push_back({rule, event, before, now, std::move(whole_text), std::move(names)});
  return changes.back();
}

// The rule of an attribute that has another type now. Strings of one kind differ in their size
// class alone, and their codes are in its order.
static change_rule type_change_rule(kp_AttributeType before, kp_AttributeType now) {
  const bool are_strings = before != TypeGUID && now != TypeGUID && is_string_attribute(before) &&
                           is_string_attribute(now);
  const bool are_unicode = is_unicode_string_attribute(before) && is_unicode_string_attribute(now);
  if (!are_strings && !are_unicode) return "attribute-type"_change;
  return now > before ? "attribute-widened"_change : "attribute-narrowed"_change;
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
    report.add("redirect"_change, &was, &is, "has another redirection");
  if (!report.has_notes || was.note == is.note) return;
  definition_change& change = report.add("note"_change, &was, &is, "has another note");
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

// --- An event

class event_comparison {
 public:
  event_comparison(const compared_set& before, const compared_set& now, const event_pair& event,
                   std::vector<definition_change>& changes)
      : has_names_(before.is_source && now.is_source),
        types_before_(before.set, before.standard),
        event_(event),
        was_(*event.before),
        is_(*event.now),
        changes_(changes) {}

  void run() {
    compare_header();
    compare_attributes();
    if (was_.selector.value != is_.selector.value) compare_selectors();
  }

 private:
  definition_change& add(change_rule rule, const text_place& before, const text_place& now,
                         std::string text) {
    changes_.push_back({rule,
                        event_,
                        before,
                        now.source != nullptr ? now : is_.name.place,
                        std::move(text),
                        {is_.name.value, was_.name.value}});
    return changes_.back();
  }

  void compare_selectors() {
    definition_change& change = add(
        "selector"_change, was_.selector.place, is_.selector.place,
        "messages were selected by " + selector_text(was_) + ", and are by " + selector_text(is_));
    change.names.clear();
    for (const event_model* event : {&is_, &was_})
      if (event->selector.is_given()) change.names.push_back(event->selector.value);
  }

  static std::string selector_text(const event_model& event) {
    return event.selector.is_given() ? in_quotes(event.selector.value) : "none";
  }

  template <class T>
  static std::string was_and_is(const std::string& what, const T& was, const T& is) {
    return what + " was " + was + ", and is " + is;
  }

  void compare_header() {
    if (has_names_ && was_.name.value != is_.name.value)
      add("event-renamed"_change, was_.name.place, is_.name.place,
          was_and_is("the name", in_quotes(was_.name.value), in_quotes(is_.name.value)));
    if (was_.id.value != is_.id.value)
      add("event-id"_change, was_.id.place, is_.id.place,
          was_and_is("the ID", std::to_string(was_.id.value), std::to_string(is_.id.value)));
    if (was_.flags != is_.flags)
      add("event-flags"_change, was_.name.place, is_.name.place,
          "the property flags were 0x" + hexadecimal(was_.flags, 8) + ", and are 0x" +
              hexadecimal(is_.flags, 8));
    if (was_.second_word.value != is_.second_word.value)
      add("second-word"_change, was_.second_word.place, is_.second_word.place,
          was_and_is("the second word", std::to_string(was_.second_word.value),
                     std::to_string(is_.second_word.value)));
    if (!has_names_ || was_.note == is_.note) return;
    definition_change& change =
        add("note"_change, was_.name.place, is_.name.place, "the event has another note");
    change.before_text = was_.note;
    change.now_text = is_.note;
  }

  // --- attributes

  void compare_attributes() {
    const attribute_report report = {"the attribute ", event_, has_names_, is_.name.place,
                                     changes_};
    attribute_pairs pairs(was_.attributes, is_.attributes);
    join_renamed(pairs);
    for (const attribute_pair& pair : pairs.kept)
      if (pair.before->name.value != pair.now->name.value) report_renamed(pair);
    for (const attribute_model* was : pairs.gone)
      report.add("attribute-removed"_change, was, nullptr, "is gone");
    for (const attribute_model* is : pairs.added)
      report.add("attribute-added"_change, nullptr, is, "is new");
    for (const attribute_model* is : pairs.added) compare_hidden(*is, report);
    for (const attribute_pair& pair : pairs.kept) add_attribute_changes(pair, report);
    add_attribute_order_change(pairs, "attribute-order"_change, report);
  }

  // An attribute of the event hides one of its name that is valid for every event.
  void compare_hidden(const attribute_model& is, const attribute_report& report) const {
    const kp_AttributeType type = types_before_.declared_type(was_, is.name.value);
    if (type != TypeUnknown) add_type_change(type, is, nullptr, report);
  }

  // One that is gone and one that is new are one attribute when they have one type, and one place
  // in the list or no rivals.
  void join_renamed(attribute_pairs& pairs) const {
    const bool are_alone = pairs.gone.size() == 1 && pairs.added.size() == 1;
    const std::vector<const attribute_model*> gone = pairs.gone;
    for (const attribute_model* was : gone) {
      const auto is = std::find_if(pairs.added.begin(), pairs.added.end(), [&](const auto* a) {
        return a->type == was->type &&
               (are_alone || was - was_.attributes.data() == a - is_.attributes.data());
      });
      if (is != pairs.added.end()) pairs.join(was, *is);
    }
  }

  void report_renamed(const attribute_pair& pair) {
    add("attribute-renamed"_change, pair.before->name.place, pair.now->name.place,
        "the attribute " + in_quotes(pair.before->name.value) + " has the name " +
            in_quotes(pair.now->name.value) + " now")
        .names = {pair.now->name.value, pair.before->name.value};
  }

  const bool has_names_;
  const attribute_lookup types_before_;
  const event_pair& event_;
  const event_model& was_;
  const event_model& is_;
  std::vector<definition_change>& changes_;
};

void add_event_changes(const compared_set& before, const compared_set& now, const event_pair& event,
                       std::vector<definition_change>& changes) {
  event_comparison(before, now, event, changes).run();
  add_message_changes(before, now, event, changes);
}
