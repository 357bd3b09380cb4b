// The differences between the messages of an event and those it has now.
#include <algorithm>
#include <unordered_map>

#include "tools/attribute_changes.h"
#include "tools/authored_text.h"
#include "tools/definition_changes.h"
#include "tools/known_attributes.h"

class message_comparison {
 public:
  message_comparison(const compared_set& before, const compared_set& now, const event_pair& event,
                     std::vector<definition_change>& changes)
      : has_names_(before.is_source && now.is_source),
        types_before_(before.set, before.standard),
        types_now_(now.set, now.standard),
        event_(event),
        changes_(changes) {}

  void run() {
    compare("the default message", event_.before->message, event_.now->message);
    for (const message_model& is : event_.now->messages) compare_selected(is);
    for (const message_model& was : event_.before->messages)
      if (kept_.count(&was) == 0)
        add(change_rule::message_removed, &was, nullptr, described(was) + " is gone");
    compare_order();
  }

 private:
  static std::string described(const message_model& message) {
    return "the message of index " + std::to_string(message.index.value);
  }

  void add(change_rule rule, const message_model* was, const message_model* is, std::string text) {
    changes_.push_back(
        {rule, event_, place_of(was, event_.before), place_of(is, event_.now), std::move(text)});
  }

  static source_place place_of(const message_model* message, const event_model* event) {
    if (message == nullptr) return {};
    for (const auto* text : {&message->text, &message->raw})
      if (text->is_given()) return text->place;
    return message->place.source != nullptr ? message->place : event->name.place;
  }

  // A selector message is known by its index, and else by its value, and else by its ID.
  const message_model* former(const message_model& is) const {
    const auto find = [&](auto is_it) -> const message_model* {
      const auto& all = event_.before->messages;
      const auto was = std::find_if(all.begin(), all.end(), [&](const message_model& m) {
        return kept_.count(&m) == 0 && is_it(m);
      });
      return was == all.end() ? nullptr : &*was;
    };
    const auto* was = find([&](const auto& m) { return m.index.value == is.index.value; });
    if (was == nullptr && !has_index_now(is))
      was = find([&](const auto& m) { return m.value.value == is.value.value; });
    return was;
  }

  // Whether the message's value belonged to a message that keeps its index.
  bool has_index_now(const message_model& is) const {
    const auto& all = event_.before->messages;
    const auto was = std::find_if(all.begin(), all.end(), [&](const message_model& m) {
      return m.value.value == is.value.value;
    });
    return was != all.end() &&
           std::any_of(event_.now->messages.begin(), event_.now->messages.end(),
                       [&](const message_model& m) { return m.index.value == was->index.value; });
  }

  void compare_selected(const message_model& is) {
    const message_model* const was = former(is);
    if (was == nullptr)
      return add(change_rule::message_added, nullptr, &is, described(is) + " is new");
    kept_.emplace(was, &is);
    order_.push_back(was);
    if (was->index.value != is.index.value)
      add(change_rule::message_index, was, &is,
          "the index was " + std::to_string(was->index.value) + ", and is " +
              std::to_string(is.index.value));
    if (was->value.value != is.value.value)
      add(change_rule::message_value, was, &is,
          described(is) + " was selected by " + std::to_string(was->value.value) + ", and is by " +
              std::to_string(is.value.value));
    if (has_names_ && was->name.value != is.name.value)
      add(change_rule::message_name, was, &is,
          described(is) + " had " + name_text(*was) + ", and has " + name_text(is));
    compare(described(is), *was, is);
  }

  static std::string name_text(const message_model& message) {
    return message.name.is_given() ? "the name \"" + message.name.value + "\"" : "no name";
  }

  // Of those that both have.
  void compare_order() {
    const message_model* const misplaced = first_misplaced(order_);
    if (misplaced != nullptr)
      add(change_rule::message_order, misplaced, kept_.at(misplaced),
          described(*kept_.at(misplaced)) + " stands after others than it did");
  }

  void compare(const std::string& what, const message_model& was, const message_model& is) {
    if (was.id.value != is.id.value)
      add(change_rule::message_id, &was, &is,
          what + " had the ID \"" + was.id.value + "\", and has \"" + is.id.value + "\"");
    if (was.template_bytes == is.template_bytes) return;
    const std::string text_before = shown(*event_.before, was, types_before_);
    const std::string text_now = shown(*event_.now, is, types_now_);
    if (text_before == text_now)
      return add(change_rule::message_template, &was, &is, what + " has another template");
    add(change_rule::message_text, &was, &is, what + " has another text");
    changes_.back().before_text = text_before;
    changes_.back().now_text = text_now;
  }

  // The text as people write it, where there is one, or the template.
  static std::string shown(const event_model& event, const message_model& message,
                           const known_attributes& types) {
    if (!message.raw.is_given()) return message.text.value;
    return authored_text_of(message.template_bytes,
                            [&](std::string_view name) { return types.type_of(event, name); })
        .value_or(message.template_bytes);
  }

  const bool has_names_;
  const known_attributes types_before_;
  const known_attributes types_now_;
  const event_pair& event_;
  std::vector<definition_change>& changes_;
  // Of the earlier event, with what they are now; and in the order that they have now.
  std::unordered_map<const message_model*, const message_model*> kept_;
  std::vector<const message_model*> order_;
};

void add_message_changes(const compared_set& before, const compared_set& now,
                         const event_pair& event, std::vector<definition_change>& changes) {
  message_comparison(before, now, event, changes).run();
}
