#include "tools/catalog/messages.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "recording/text/words.h"

// ICU's keys take the characters that all code pages have in common.
static bool is_key_character(char c) {
  static constexpr std::string_view others = " \"%&'()*+,-./:;<=>?_";
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         others.find(c) != std::string_view::npos;
}

static text_place place_of_id(const catalog_message& message) {
  return message.message->id.is_given() ? message.message->id.place : message.event->name.place;
}

class catalog_message_list {
 public:
  explicit catalog_message_list(diagnostic_list& found) : found_(found) {}

  void add(const definition_set& set) {
    const size_t first_of_set = messages_.size();
    for (const event_model& event : set.events) {
      add({&event, &event.message}, first_of_set);
      for (const message_model& message : event.messages) add({&event, &message}, first_of_set);
    }
  }

  std::vector<catalog_message> take() { return std::move(messages_); }

 private:
  void add(const catalog_message& message, size_t first_of_set) {
    if (message.id().empty()) return;
    const auto [first, is_new] = by_id_.emplace(message.id(), messages_.size());
    if (is_new) {
      check_id(message);
      messages_.push_back(message);
    } else if (first->second >= first_of_set) {
      check_same_text(messages_[first->second], message);
    }
  }

  void check_id(const catalog_message& message) {
    const std::string& id = message.id();
    if (!std::all_of(id.begin(), id.end(), is_key_character))
      found_.add("catalog-id"_rule, place_of_id(message),
                 "a catalog cannot hold the message ID " + in_quotes(id) +
                     ": letters of ASCII, digits, blanks and \"%&'()*+,-./:;<=>?_ can stand in it");
  }

  void check_same_text(const catalog_message& first, const catalog_message& message) {
    if (first.text() != message.text())
      found_.add("catalog-id"_rule, place_of_id(message),
                 "the message ID " + in_quotes(message.id()) + " has another text already",
                 place_of_id(first), "its text is given here first");
  }

  diagnostic_list& found_;
  std::vector<catalog_message> messages_;
  std::map<std::string, size_t, std::less<>> by_id_;
};

std::vector<catalog_message> catalog_messages(const definition_set& set,
                                              const std_definitions* standard,
                                              diagnostic_list& found) {
  catalog_message_list messages(found);
  messages.add(set);
  if (standard != nullptr) messages.add(standard->set());
  return messages.take();
}
