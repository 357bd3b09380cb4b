#include "tools/catalog/messages.h"

#include <algorithm>
#include <map>

#include "recording/text/words.h"
#include "tools/definitions/authored_text.h"
#include "tools/definitions/template_rendering.h"

// --- IDs

// ICU's keys take the characters that all code pages have in common.
static bool is_key_character(char c) {
  static constexpr std::string_view others = " \"%&'()*+,-./:;<=>?_";
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         others.find(c) != std::string_view::npos;
}

static source_place place_of_id(const catalog_message& message) {
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

// --- translations

// A placeholder as the text that it stands in shows it.
static std::string shown_placeholder(const template_piece& piece, bool is_raw,
                                     kp_AttributeType type) {
  if (is_raw) return "%" + std::string(1, piece.format) + "%" + std::string(piece.text) + "%";
  return authored_placeholder(piece, type);
}

class translation_check {
 public:
  translation_check(const catalog_message& message, const known_attributes& known,
                    std::string_view translation, std::vector<template_problem>& problems)
      : message_(message), known_(known), translation_(translation), problems_(problems) {}

  std::string run() {
    const size_t before = problems_.size();
    std::string bytes = message_.is_raw() ? raw_template() : authored_template();
    if (problems_.size() == before)
      check_rendering(rendered_template_of(*message_.event, bytes, message_renderer::icu, known_),
                      problems_);
    if (!message_.text().empty()) {
      compare_placeholders(bytes);
      compare_line_feeds();
    }
    if (problems_.size() == before && message_.is_raw())
      find_quoted_placeholders(translation_, problems_);
    return bytes;
  }

 private:
  kp_AttributeType type_of(std::string_view name) const {
    return known_.type_of(*message_.event, name);
  }

  std::string authored_template() {
    const template_attributes attributes{[&](std::string_view name) { return type_of(name); },
                                         [&] { return known_.names(*message_.event); }};
    return template_from_text(translation_, message_renderer::icu, attributes, problems_);
  }

  std::string raw_template() {
    const std::vector<template_piece> pieces = scan_template(translation_);
    check_template(
        pieces, [&](std::string_view name) { return type_of(name); }, problems_);
    find_lost_text(pieces, message_renderer::icu, problems_);
    for (const template_piece& piece : pieces)
      if (piece.kind == template_piece::kinds::literal) check_quotes(piece);
    return std::string(translation_);
  }

  // In a raw template braces and apostrophes are MessageFormat's. Braces of the source are meant.
  void check_quotes(const template_piece& literal) {
    const bool has_braces = message_.text().find_first_of("{}") != std::string::npos;
    for (size_t i = literal.text.find_first_of("{}'"); i < literal.text.size();
         i = literal.text.find_first_of("{}'", i + 1)) {
      if (literal.text[i] != '\'') {
        if (!has_braces) problem(literal.offset + i, "ICU swallows this brace; write '{' or '}'");
      } else if (literal.text.substr(i).starts_with("''")) {
        ++i;
      } else if (!has_braces && i + 1 == literal.text.size()) {
        problem(literal.offset + i, "ICU swallows this apostrophe; write two");
      }
    }
  }

  void problem(size_t offset, std::string text) {
    problems_.push_back({"catalog-quote"_rule, offset, std::move(text)});
  }

  // Placeholders as shown, each with the name of its attribute.
  using placeholder_names = std::map<std::string, std::string_view>;

  placeholder_names placeholders(std::string_view bytes) const {
    placeholder_names shown;
    for (const template_piece& piece : scan_template(bytes)) {
      if (piece.kind != template_piece::kinds::placeholder || !piece.shows_value()) continue;
      const kp_AttributeType type = type_of(piece.text);
      if (format_suits(piece.format, type))
        shown.emplace(shown_placeholder(piece, message_.is_raw(), type), piece.text);
    }
    return shown;
  }

  // What is lost is told whatever else is wrong. Beside faults of placeholders one whose name
  // is there may be the one at fault, and is left to that finding.
  void compare_placeholders(std::string_view bytes) {
    const placeholder_names wanted = placeholders(message_.message->template_bytes);
    const placeholder_names given = placeholders(bytes);
    const bool is_certain =
        std::all_of(problems_.begin(), problems_.end(),
                    [](const template_problem& found) { return leaves_placeholders(found.rule); });
    for (const auto& [placeholder, name] : wanted)
      if (given.count(placeholder) == 0 && (is_certain || !may_stand_for(name)))
        problems_.push_back({"catalog-placeholder"_rule, std::string::npos,
                             "the placeholder " + placeholder + " of the source is missing"});
    for (const auto& [placeholder, name] : given)
      if (wanted.count(placeholder) == 0 && is_certain)
        problems_.push_back({"catalog-placeholder"_rule, translation_.find(placeholder),
                             "the source has no placeholder " + placeholder});
  }

  // Whether all placeholders are read as they are meant where that is a fault.
  static bool leaves_placeholders(diagnostic_rule rule) {
    return rule == "text-attribute"_rule || rule == "catalog-quote"_rule ||
           rule == "template-lost-text"_rule;
  }

  // Whether the translation has the name where that of a placeholder stands.
  bool may_stand_for(std::string_view name) const {
    const std::string begin = (message_.is_raw() ? "%" : "{") + std::string(name);
    for (size_t at = translation_.find(begin); at != std::string_view::npos;
         at = translation_.find(begin, at + 1)) {
      const std::string_view behind = translation_.substr(at + begin.size());
      if (behind.empty() || behind.find_first_of("%{}:, \n") == 0) return true;
    }
    return false;
  }

  void compare_line_feeds() {
    const std::string_view source = message_.text();
    if (source.starts_with('\n') != translation_.starts_with('\n'))
      line_feed_problem(source.starts_with('\n'), "begins", 0);
    if (source.ends_with('\n') != translation_.ends_with('\n'))
      line_feed_problem(source.ends_with('\n'), "ends", last_character());
  }

  void line_feed_problem(bool is_lost, const std::string& verb, size_t offset) {
    problems_.push_back({"catalog-line-feed"_rule, offset,
                         "the text of the source " +
                             (is_lost ? verb + " with a line feed, and its translation does not"
                                      : "does not " + verb.substr(0, verb.size() - 1) +
                                            " with a line feed, and its translation does")});
  }

  size_t last_character() const {
    size_t at = translation_.empty() ? 0 : translation_.size() - 1;
    while (at > 0 && (static_cast<unsigned char>(translation_[at]) & 0xC0) == 0x80) --at;
    return at;
  }

  const catalog_message& message_;
  const known_attributes& known_;
  std::string_view translation_;
  std::vector<template_problem>& problems_;
};

std::string translated_template(const catalog_message& message, const known_attributes& known,
                                std::string_view translation,
                                std::vector<template_problem>& problems) {
  return translation_check(message, known, translation, problems).run();
}
