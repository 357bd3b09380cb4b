// Advice on what one event says: its messages, and what they show.
#include <algorithm>
#include <set>
#include <string>

#include "recording/definitions/merged_set.h"
#include "recording/definitions/template.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/definitions/template_rendering.h"

#include "tools/source/advice.h"
#include "tools/source/scalar_place.h"
#include "tools/source/silences.h"

static bool has_template(const message_model& message) {
  return !message.template_bytes.empty();
}

// A message that is given by its ID alone, for the catalogs to hold.
static bool is_in_catalogs(const message_model& message) {
  return !has_template(message) && message.id.is_given();
}

static const placed<std::string>& text_of(const message_model& message) {
  return message.raw.is_given() ? message.raw : message.text;
}

class event_adviser {
 public:
  event_adviser(const advised_event& advised, advice_list& advice)
      : advised_(advised),
        event_(advised.event),
        standard_(advised.standard),
        known_(advised.set, advised.options.standard),
        selector_(known_.selector(event_)),
        advice_(advice) {
    collect(event_);
    if (standard_ != nullptr) collect(*standard_);
  }

  void advise() {
    advise_on_absence();
    advise_on_attributes();
    advise_on_selector();
    advise_on_missing_selector();
    advise_on_flags();
    for (const message_model* message : own_messages()) advise_on_message(*message);
    advise_on_unsigned();
    if (standard_ != nullptr) advise_on_standard();
  }

 private:
  void add(diagnostic_rule rule, const text_place& place, std::string text,
           const attribute_model* attribute = nullptr) {
    advice_.add({rule, place, std::move(text)}, &event_, attribute);
  }

  static std::vector<const message_model*> messages_of(const event_model& event) {
    std::vector<const message_model*> messages = {&event.message};
    for (const message_model& message : event.messages) messages.push_back(&message);
    return messages;
  }

  std::vector<const message_model*> own_messages() const { return messages_of(event_); }

  // What the messages of the event show; those of the STD event count as well.
  void collect(const event_model& event) {
    for (const message_model* message : messages_of(event)) {
      if (has_template(*message)) ++templates_;
      if (is_in_catalogs(*message)) has_catalog_texts_ = true;
      for (const template_piece& piece : scan_template(message->template_bytes))
        if (piece.shows_value()) shown_.insert(std::string(piece.text));
    }
  }

  bool is_selector(const attribute_model& attribute) const {
    return selector_ != nullptr && selector_->name.value == attribute.name.value;
  }

  // --- messages that there are not

  void advise_on_absence() {
    if (templates_ == 0 && !has_catalog_texts_ && standard_ == nullptr)
      add("no-message"_rule, event_.name.place,
          "the event has no message; a catalog may have one of the ID " +
              in_quotes(event_.message.id.value));
  }

  // Where nothing is shown at all, the messages are advised on, and not each attribute.
  void advise_on_attributes() {
    if (has_catalog_texts_ || shown_.empty()) return;
    for (const attribute_model& attribute : event_.attributes)
      if (!is_selector(attribute) && shown_.count(attribute.name.value) == 0)
        add("attribute-not-shown"_rule, attribute.name.place,
            "no message shows " + in_quotes(attribute.name.value), &attribute);
  }

  void advise_on_selector() {
    if (!event_.selector.is_given() || selector_ == nullptr) return;
    const bool has_messages =
        !event_.messages.empty() || (standard_ != nullptr && !standard_->messages.empty());
    const bool has_default =
        has_default_message(event_) || (standard_ != nullptr && has_default_message(*standard_));
    if (!has_messages)
      add("selector-values"_rule, event_.selector.place,
          in_quotes(event_.selector.value) + " selects messages, and there is none to select");
    else if (!has_default)
      add("selector-values"_rule, event_.selector.place,
          "the event has no default message to show for other values of " +
              in_quotes(event_.selector.value));
  }

  void advise_on_missing_selector() {
    if (!event_.messages.empty() && selector_ == nullptr)
      add("no-selector"_rule, event_.messages.front().place,
          "no attribute selects this message; programs show it by its index alone");
  }

  void advise_on_flags() {
    std::set<std::string_view> known;
    for (const placed<std::string>& name : event_.flag_names)
      if (!known.insert(name.value).second)
        add("flag-twice"_rule, name.place,
            "the event has the flag " + in_quotes(name.value) + " already");
  }

  static bool has_default_message(const event_model& event) {
    return has_template(event.message) || is_in_catalogs(event.message);
  }

  // --- one message

  void advise_on_message(const message_model& message) {
    if (!has_template(message)) return;
    const std::vector<template_piece> pieces = scan_template(message.template_bytes);
    const bool ends_in_fault =
        !pieces.empty() && pieces.back().kind == template_piece::kinds::fault;
    if (!ends_in_fault) advise_on_values(message, pieces);
    advise_on_size(message, pieces);
    for (const code_page_repertoire* code_page : advised_.code_pages)
      advise_on_code_page(message, *code_page);
    if (message.raw.is_given()) advise_on_raw_template(message, pieces);
  }

  void advise_on_values(const message_model& message, const std::vector<template_piece>& pieces) {
    const bool shows_some =
        std::any_of(pieces.begin(), pieces.end(), [](const auto& p) { return p.shows_value(); });
    const bool has_values =
        std::any_of(event_.attributes.begin(), event_.attributes.end(),
                    [&](const auto& attribute) { return !is_selector(attribute); });
    if (!shows_some && has_values)
      add("message-without-values"_rule, text_of(message).place,
          "the message shows none of the event's attributes");
  }

  // ICU's renderer shows integers as signed numbers of 32 bits. One finding for each attribute.
  void advise_on_unsigned() {
    if (event_.renderer == message_renderer::bytes) return;
    std::set<std::string_view> known;
    for (const message_model* message : own_messages())
      for (const template_piece& piece : scan_template(message->template_bytes))
        if (piece.shows_value() && known_.type_of(event_, piece.text) == TypeUInt4 &&
            known.insert(known_.declared(event_, piece.text)->name.value).second)
          advise_on_unsigned(*message, piece.text);
  }

  void advise_on_unsigned(const message_model& message, std::string_view name) {
    const attribute_model* const own = find_attribute(event_.attributes, name);
    add("unsigned-shown"_rule, own == nullptr ? text_of(message).place : own->name.place,
        "messages show " + in_quotes(name) +
            " as a negative number from 2147483648 on; a Float shows such values",
        own);
  }

  void advise_on_size(const message_model& message, const std::vector<template_piece>& pieces) {
    const size_t size = largest_rendered_size(
        pieces, [&](std::string_view name) { return known_.type_of(event_, name); });
    if (size > rendered_size_limit)
      add("message-size"_rule, text_of(message).place,
          "the message may take " + std::to_string(size) + " bytes, and the library renders " +
              std::to_string(rendered_size_limit));
  }

  void advise_on_code_page(const message_model& message, const code_page_repertoire& code_page) {
    const placed<std::string>& text = text_of(message);
    const size_t missing = code_page.first_missing(text.value);
    if (missing == std::string_view::npos) return;
    add("code-page"_rule, place_in_scalar(text.place, text.value, missing),
        "the code page " + code_page.name() + " has no " +
            in_quotes(utf8_at(text.value, missing).bytes));
  }

  void advise_on_raw_template(const message_model& message,
                              const std::vector<template_piece>& pieces) {
    std::vector<template_problem> problems;
    find_lost_text(pieces, event_.renderer, problems);
    if (event_.renderer != message_renderer::bytes)
      find_quoted_placeholders(message.raw.value, problems);
    for (template_problem& problem : problems)
      add(problem.rule, place_in_scalar(message.raw.place, message.raw.value, problem.offset),
          std::move(problem.text));
  }

  // --- what the STD event overrides

  void advise_on_standard() {
    if (!event_.flag_names.empty() && standard_->flags != 0 && standard_->flags != event_.flags)
      add("std-no-effect"_rule, event_.flag_names.front().place,
          "the STD event has property flags, and keeps them");
    if (is_in_catalogs(event_.message))
      add("std-no-effect"_rule, event_.message.id.place,
          "an ID replaces that of the STD event only together with a text");
    if (!event_.second_word.is_given() && standard_->second_word.value != 0)
      add("std-no-effect"_rule, event_.id.place,
          "the second word of the STD event, " + std::to_string(standard_->second_word.value) +
              ", becomes 0; give it here as well");
  }

  const advised_event& advised_;
  const event_model& event_;
  const event_model* const standard_;
  const attribute_lookup known_;
  const attribute_model* const selector_;
  advice_list& advice_;
  std::set<std::string> shown_;
  size_t templates_ = 0;
  bool has_catalog_texts_ = false;
};

void add_event_advice(const advised_event& advised, advice_list& advice) {
  event_adviser(advised, advice).advise();
}
