// The translations of one PO file, held against the messages that they are for.
#ifndef TOOLS_CATALOG_TRANSLATIONS_H
#define TOOLS_CATALOG_TRANSLATIONS_H

#include <map>
#include <string>
#include <vector>

#include "tools/catalog_messages.h"
#include "tools/code_page_repertoire.h"
#include "tools/po_file.h"

struct catalog_translations {
  std::string file;
  // ICU's, by the header's field "Language", else by the file's name; empty when that is none.
  std::string locale;
  std::map<std::string, std::string> templates;  // by message ID: what a catalog can use
  size_t fuzzy = 0;                              // for a translator to look at
  size_t untranslated = 0;                       // the messages without a translation
};

// Diagnostics for a locale that is none, translations of messages that are not there or have
// another text, other placeholders, what ICU would swallow, and what a code page cannot hold.
catalog_translations read_translations(const po_document& document,
                                       const std::vector<catalog_message>& messages,
                                       const known_attributes& known,
                                       const std::vector<code_page_repertoire>& code_pages,
                                       diagnostic_list& found);

#endif
