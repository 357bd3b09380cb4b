// The translations of one PO file, held against the messages that they are for.
#ifndef TOOLS_CATALOG_TRANSLATIONS_H
#define TOOLS_CATALOG_TRANSLATIONS_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "recording/text/code_page.h"
#include "tools/catalog/messages.h"
#include "tools/catalog/po.h"

struct catalog_translations {
  std::string file;
  // ICU's, by the header's field "Language", else by the file's name; empty when that is none.
  std::string locale;
  source_place header;
  // By message ID.
  std::map<std::string, std::string> templates;  // what a catalog can use
  std::map<std::string, source_place> places;    // of those
  std::set<std::string> fuzzy;                   // for a translator to look at
  std::map<std::string, source_place> empty;     // where a translation is wanted
  size_t obsolete = 0;
};

// Diagnostics for a locale that is none, or another one than the file is named for, translations of
// messages that are not there or have another text, or are marked as fuzzy, other placeholders or
// line feeds at the ends, what ICU would swallow, and what a code page cannot hold.
catalog_translations read_translations(const po_document& document,
                                       const std::vector<catalog_message>& messages,
                                       const known_attributes& known,
                                       const std::vector<code_page_repertoire>& code_pages,
                                       diagnostic_list& found);

// Diagnostics for each translation that an earlier file of its locale has in another way.
void find_conflicts(const std::vector<catalog_translations>& files, diagnostic_list& found);

#endif
