// The differences between an event and what it is now, its messages apart.
#include <algorithm>

#include "tools/definition_changes.h"
#include "tools/definition_std.h"
#include "tools/terminal_text.h"

static std::string quoted_name(const std::string& name) {
  return "\"" + name + "\"";
}

class event_comparison {
 public:
  event_comparison(const compared_set& before, const compared_set& now, const event_pair& event,
                   std::vector<definition_change>& changes)
      : has_names_(before.is_source && now.is_source),
        event_(event),
        was_(*event.before),
        is_(*event.now),
        changes_(changes) {}

  void run() {
    compare_header();
    compare_attributes();
    if (was_.selector.value != is_.selector.value)
      add(change_rule::selector, was_.selector.place, is_.selector.place,
          "messages were selected by " + selector_text(was_) + ", and are by " +
              selector_text(is_));
  }

 private:
  void add(change_rule rule, const source_place& before, const source_place& now,
           std::string text) {
    changes_.push_back(
        {rule, event_, before, now.source != nullptr ? now : is_.name.place, std::move(text)});
  }

  static std::string selector_text(const event_model& event) {
    return event.selector.is_given() ? quoted_name(event.selector.value) : "none";
  }

  template <class T>
  static std::string was_and_is(const std::string& what, const T& was, const T& is) {
    return what + " was " + was + ", and is " + is;
  }

  void compare_header() {
    if (has_names_ && was_.name.value != is_.name.value)
      add(change_rule::event_renamed, was_.name.place, is_.name.place,
          was_and_is("the name", quoted_name(was_.name.value), quoted_name(is_.name.value)));
    if (was_.id.value != is_.id.value)
      add(change_rule::event_id, was_.id.place, is_.id.place,
          was_and_is("the ID", std::to_string(was_.id.value), std::to_string(is_.id.value)));
    if (was_.flags != is_.flags)
      add(change_rule::event_flags, was_.name.place, is_.name.place,
          "the property flags were 0x" + hexadecimal(was_.flags, 8) + ", and are 0x" +
              hexadecimal(is_.flags, 8));
    if (was_.second_word.value != is_.second_word.value)
      add(change_rule::second_word, was_.second_word.place, is_.second_word.place,
          was_and_is("the second word", std::to_string(was_.second_word.value),
                     std::to_string(is_.second_word.value)));
    if (has_names_ && was_.note != is_.note)
      add(change_rule::note, was_.name.place, is_.name.place, "the event has another note");
  }

  // --- attributes

  void compare_attributes() {
    std::vector<const attribute_model*> gone = missing_in(was_.attributes, is_.attributes);
    std::vector<const attribute_model*> added = missing_in(is_.attributes, was_.attributes);
    find_renamed(gone, added);
    for (const attribute_model* attribute : gone)
      add(change_rule::attribute_removed, attribute->name.place, {},
          named(*attribute) + " is gone");
    for (const attribute_model* attribute : added)
      add(change_rule::attribute_added, {}, attribute->name.place, named(*attribute) + " is new");
    for (const attribute_model& was : was_.attributes) {
      const attribute_model* const is = find_attribute(is_.attributes, was.name.value);
      if (is != nullptr) compare_attribute(was, *is);
    }
    compare_order();
  }

  static std::string named(const attribute_model& attribute) {
    return "the attribute " + quoted_name(attribute.name.value);
  }

  static std::vector<const attribute_model*> missing_in(const std::vector<attribute_model>& list,
                                                        const std::vector<attribute_model>& other) {
    std::vector<const attribute_model*> missing;
    for (const attribute_model& attribute : list)
      if (find_attribute(other, attribute.name.value) == nullptr) missing.push_back(&attribute);
    return missing;
  }

  static size_t position(const std::vector<attribute_model>& list, const attribute_model* of) {
    return static_cast<size_t>(of - list.data());
  }

  // One that is gone and one that is new are one attribute when they have one type, and one place
  // in the list or no rivals.
  void find_renamed(std::vector<const attribute_model*>& gone,
                    std::vector<const attribute_model*>& added) {
    const bool are_alone = gone.size() == 1 && added.size() == 1;
    const auto is_renamed = [&](const attribute_model* was) {
      const auto is = std::find_if(added.begin(), added.end(), [&](const attribute_model* a) {
        return a->type == was->type &&
               (are_alone || position(was_.attributes, was) == position(is_.attributes, a));
      });
      if (is == added.end()) return false;
      report_renamed(*was, **is);
      added.erase(is);
      return true;
    };
    gone.erase(std::remove_if(gone.begin(), gone.end(), is_renamed), gone.end());
  }

  void report_renamed(const attribute_model& was, const attribute_model& is) {
    add(change_rule::attribute_renamed, was.name.place, is.name.place,
        named(was) + " has the name " + quoted_name(is.name.value) + " now");
    compare_attribute(was, is);
  }

  void compare_attribute(const attribute_model& was, const attribute_model& is) {
    if (was.type != is.type)
      add(type_change_rule(was.type, is.type), was.name.place, is.name.place,
          was_and_is(named(is), std::string(short_type_name(was.type)),
                     std::string(short_type_name(is.type))));
    if (was.redirection.value != is.redirection.value)
      add(change_rule::redirect, was.name.place, is.name.place,
          named(is) + " has another redirection");
    if (has_names_ && was.note != is.note)
      add(change_rule::note, was.name.place, is.name.place, named(is) + " has another note");
  }

  // Of those that both have.
  void compare_order() {
    std::vector<const attribute_model*> order;
    for (const attribute_model& was : was_.attributes) {
      const attribute_model* const is = find_attribute(is_.attributes, was.name.value);
      if (is != nullptr) order.push_back(is);
    }
    const auto misplaced = std::is_sorted_until(order.begin(), order.end());
    if (misplaced != order.end())
      add(change_rule::attribute_order, was_.name.place, (*misplaced)->name.place,
          named(**misplaced) + " stands before others than it did");
  }

  const bool has_names_;
  const event_pair& event_;
  const event_model& was_;
  const event_model& is_;
  std::vector<definition_change>& changes_;
};

void add_event_changes(const compared_set& before, const compared_set& now, const event_pair& event,
                       std::vector<definition_change>& changes) {
  event_comparison(before, now, event, changes).run();
  add_message_changes(before.set, now.set, event, changes);
}
