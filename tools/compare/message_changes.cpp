// The differences between the messages of an event and those it has now.
#include <algorithm>
#include <unordered_map>

#include "recording/definitions/merged_set.h"
#include "recording/definitions/template.h"
#include "recording/text/words.h"
#include "tools/compare/changes.h"
#include "tools/definitions/authored_text.h"

text_place message_place(const message_model& message, const event_model& event) {
  for (const auto* text : {&message.text, &message.raw})
    if (text->is_given()) return text->place;
  return message.place.source != nullptr ? message.place : event.name.place;
}

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
    compare_text("the default message", event_.before->message, event_.now->message);
    for (const message_model& is : event_.now->messages) compare_selected(is);
    for (const message_model& was : event_.before->messages)
      if (kept_.count(&was) == 0)
        add("message-removed"_change, &was, nullptr, described(was) + " is gone");
    compare_order();
  }

 private:
  static std::string described(const message_model& message) {
    return message.index.is_given() ? "the message of index " + std::to_string(message.index.value)
                                    : "the default message";
  }

  void add(change_rule rule, const message_model* was, const message_model* is, std::string text) {
    changes_.push_back({rule, event_, place_of(was, event_.before), place_of(is, event_.now),
                        std::move(text), names_of(was, is)});
  }

  static text_place place_of(const message_model* message, const event_model* event) {
    return message == nullptr ? text_place() : message_place(*message, *event);
  }

  // A message is known by its ID, or its index; the default message without an ID by its event.
  std::vector<std::string> names_of(const message_model* was, const message_model* is) const {
    std::vector<std::string> names;
    for (const message_model* message : {is, was}) {
      if (message == nullptr) continue;
      if (!message->id.value.empty()) names.push_back(message->id.value);
      if (message->index.is_given()) names.push_back(std::to_string(message->index.value));
    }
    if (names.empty()) names = {event_.now->name.value, event_.before->name.value};
    return names;
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
    if (was == nullptr) return add("message-added"_change, nullptr, &is, described(is) + " is new");
    kept_.emplace(was, &is);
    order_.push_back(was);
    if (was->index.value != is.index.value)
      add("message-index"_change, was, &is,
          "the index was " + std::to_string(was->index.value) + ", and is " +
              std::to_string(is.index.value));
    if (was->value.value != is.value.value)
      add("message-value"_change, was, &is,
          described(is) + " was selected by " + std::to_string(was->value.value) + ", and is by " +
              std::to_string(is.value.value));
    if (has_names_ && was->name.value != is.name.value)
      add("message-name"_change, was, &is,
          described(is) + " had " + name_text(*was) + ", and has " + name_text(is));
    if (was->id.value != is.id.value)
      add(says_the_same(*was, is) && !had_other_text(is.id.value, is) ? "message-id"_change
                                                                      : "message-repointed"_change,
          was, &is,
          described(is) + " had the ID " + in_quotes(was->id.value) + ", and has " +
              in_quotes(is.id.value));
    compare_text(described(is), *was, is);
  }

  // Not known of messages whose text is in catalogs.
  bool says_the_same(const message_model& was, const message_model& is) const {
    return !was.template_bytes.empty() && text_before(was) == text_now(is);
  }

  // Whether a message of the earlier event had that ID, by which catalogs know its text, and says
  // something else.
  bool had_other_text(const std::string& id, const message_model& is) const {
    const auto is_other = [&](const message_model& was) {
      return was.id.value == id && text_before(was) != text_now(is);
    };
    const auto& all = event_.before->messages;
    return !id.empty() &&
           (is_other(event_.before->message) || std::any_of(all.begin(), all.end(), is_other));
  }

  static std::string name_text(const message_model& message) {
    return message.name.is_given() ? "the name " + in_quotes(message.name.value) : "no name";
  }

  // Of those that both have.
  void compare_order() {
    const message_model* const misplaced = first_misplaced(order_);
    if (misplaced != nullptr)
      add("message-order"_change, misplaced, kept_.at(misplaced),
          described(*kept_.at(misplaced)) + " stands after others than it did");
  }

  void compare_text(const std::string& what, const message_model& was, const message_model& is) {
    const std::string before = text_before(was);
    const std::string now = text_now(is);
    if (before != now) return report_text(what, was, is, before, now);
    if (was.template_bytes.empty())
      compare_catalog_text(what, was, is);
    else if (!compare_formats(what, was, is) && was.template_bytes != is.template_bytes)
      add("message-template"_change, &was, &is, what + " has another template");
  }

  void report_text(const std::string& what, const message_model& was, const message_model& is,
                   const std::string& before, const std::string& now) {
    const message_model* const other = was.id.value == is.id.value ? former_of_text(now) : nullptr;
    if (other == nullptr)
      add("message-text"_change, &was, &is, what + " has another text");
    else
      add("message-repointed"_change, &was, &is, what + " has the text of " + described(*other));
    changes_.back().before_text = before;
    changes_.back().now_text = now;
  }

  // The earlier message that said this; null when none did.
  const message_model* former_of_text(const std::string& text) {
    const event_model& event = *event_.before;
    if (texts_before_.empty()) {
      texts_before_.emplace(text_before(event.message), &event.message);
      for (const message_model& message : event.messages)
        texts_before_.emplace(text_before(message), &message);
    }
    const auto former = texts_before_.find(text);
    return text.empty() || former == texts_before_.end() ? nullptr : former->second;
  }

  // Translations have the placeholders of the template that they were made of. False when they suit
  // the attributes as before.
  bool compare_formats(const std::string& what, const message_model& was, const message_model& is) {
    bool is_found = false;
    for (const template_piece& piece : scan_template(was.template_bytes)) {
      const kp_AttributeType type = types_now_.type_of(*event_.now, piece.text);
      if (!piece.shows_value() || format_suits(piece.format, type) ||
          !format_suits(piece.format, types_before_.type_of(*event_.before, piece.text)))
        continue;
      report_format(what + " shows", was, is, piece.text, type);
      is_found = true;
    }
    return is_found;
  }

  // What is in the catalogs may show every attribute.
  void compare_catalog_text(const std::string& what, const message_model& was,
                            const message_model& is) {
    if (!was.id.is_given() || was.id.value.empty()) return;  // it has no text at all
    for (const std::string_view name : types_before_.names(*event_.before)) {
      const kp_AttributeType type = types_now_.type_of(*event_.now, name);
      if (!suits_formats_of(types_before_.type_of(*event_.before, name), type))
        report_format(what + " is in the catalogs, and may show", was, is, name, type);
    }
  }

  void report_format(const std::string& what, const message_model& was, const message_model& is,
                     std::string_view name, kp_AttributeType type) {
    add("message-format"_change, &was, &is,
        what + " " + in_quotes(name) + ", which is " +
            (type == TypeUnknown ? "gone" : std::string("a ") + short_type_name(type) + " now"));
  }

  std::string text_before(const message_model& message) const {
    return shown(*event_.before, message, types_before_);
  }
  std::string text_now(const message_model& message) const {
    return shown(*event_.now, message, types_now_);
  }

  // The text as people write it, where there is one, or the template.
  static std::string shown(const event_model& event, const message_model& message,
                           const attribute_lookup& types) {
    if (!message.raw.is_given()) return message.text.value;
    return authored_text_of(message.template_bytes,
                            [&](std::string_view name) { return types.type_of(event, name); })
        .value_or(message.template_bytes);
  }

  const bool has_names_;
  const attribute_lookup types_before_;
  const attribute_lookup types_now_;
  const event_pair& event_;
  std::vector<definition_change>& changes_;
  // Of the earlier event, with what they are now; and in the order that they have now.
  std::unordered_map<const message_model*, const message_model*> kept_;
  std::vector<const message_model*> order_;
  // By what they say; filled when it is first asked.
  std::unordered_map<std::string, const message_model*> texts_before_;
};

void add_message_changes(const compared_set& before, const compared_set& now,
                         const event_pair& event, std::vector<definition_change>& changes) {
  message_comparison(before, now, event, changes).run();
}
