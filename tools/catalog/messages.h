// The messages of a definition set as message catalogs have them.
#ifndef TOOLS_CATALOG_MESSAGES_H
#define TOOLS_CATALOG_MESSAGES_H

#include <string>
#include <vector>

#include "recording/definitions/merged_set.h"
#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"

// What a message ID stands for. Points into the set.
struct catalog_message {
  const event_model* event = nullptr;
  const message_model* message = nullptr;

  const std::string& id() const { return message->id.value; }
  bool is_raw() const { return message->raw.is_given(); }
  // What is translated: the authored text, or the raw template. Empty for a message that has its
  // texts in the catalogs alone.
  const std::string& text() const { return is_raw() ? message->raw.value : message->text.value; }
  // Whether there is something to translate.
  bool is_translatable() const { return !text().empty() || message->id.is_given(); }
  // The template for locales without a translation. That of the event's default message stands in
  // for a selector message without a text, as it does without a catalog.
  const std::string& fallback() const {
    return text().empty() ? event->message.template_bytes : message->template_bytes;
  }
};

// All messages, each ID once, and behind them those of the STD set, unless it is null, that have
// other IDs. Diagnostics for IDs that a catalog cannot hold, and for one ID with two texts.
std::vector<catalog_message> catalog_messages(const definition_set& set,
                                              const std_definitions* standard,
                                              diagnostic_list& found);

#endif
