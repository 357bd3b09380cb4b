// From a definition set to the files of its translators.
#ifndef TOOLS_CATALOG_MERGE_H
#define TOOLS_CATALOG_MERGE_H

#include <string>
#include <vector>

#include "tools/catalog/messages.h"
#include "tools/catalog/po.h"

// The messages without translations: the message ID as context, the text as msgid; the event's
// note, and its attributes with their types and notes, as comments; places in the sources.
po_document extracted_messages(const std::vector<catalog_message>& messages,
                               const definition_set& set);

// The messages with the translations of `old` as far as it has them. Those made for another text
// become fuzzy, with that text beside them; so do those of a message of the same text that is no
// longer there. Translations without a message are kept at the end, as obsolete.
po_document merged_messages(const po_document& extracted, const po_document& old);

// What merge begins a new file with, for a locale.
po_document empty_translations(const std::string& locale);

#endif
