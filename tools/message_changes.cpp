// The differences between the messages of an event and those it has now.
#include <algorithm>
#include <unordered_set>

#include "tools/authored_text.h"
#include "tools/definition_changes.h"
#include "tools/known_attributes.h"

class message_comparison {
 public:
  message_comparison(const definition_set& before, const definition_set& now,
                     const event_pair& event, std::vector<definition_change>& changes)
      : types_before_(before, nullptr),
        types_now_(now, nullptr),
        event_(event),
        changes_(changes) {}

  void run() {
    compare("the default message", event_.before->message, event_.now->message);
    for (const message_model& is : event_.now->messages) compare_selected(is);
    for (const message_model& was : event_.before->messages)
      if (kept_.count(&was) == 0)
        add(change_rule::message_removed, &was, nullptr, described(was) + " is gone");
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
    kept_.insert(was);
    if (was->index.value != is.index.value)
      add(change_rule::message_index, was, &is,
          "the index was " + std::to_string(was->index.value) + ", and is " +
              std::to_string(is.index.value));
    if (was->value.value != is.value.value)
      add(change_rule::message_value, was, &is,
          described(is) + " was selected by " + std::to_string(was->value.value) + ", and is by " +
              std::to_string(is.value.value));
    compare(described(is), *was, is);
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

  const known_attributes types_before_;
  const known_attributes types_now_;
  const event_pair& event_;
  std::vector<definition_change>& changes_;
  std::unordered_set<const message_model*> kept_;  // of the earlier event
};

void add_message_changes(const definition_set& before, const definition_set& now,
                         const event_pair& event, std::vector<definition_change>& changes) {
  message_comparison(before, now, event, changes).run();
}
