// The translations of PO files, held against the messages that they are for, and how far they are.
#ifndef TOOLS_CATALOG_TRANSLATIONS_H
#define TOOLS_CATALOG_TRANSLATIONS_H

#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "recording/definitions/merged_set.h"
#include "recording/text/code_page.h"
#include "tools/catalog/messages.h"
#include "tools/catalog/po.h"

struct catalog_translations {
  std::string file;
  // ICU's, by the header's field "Language", else by the file's name; empty when that is none.
  std::string locale;
  text_place header;
  // By message ID.
  std::map<std::string, std::string> templates;  // what a catalog can use
  std::map<std::string, text_place> places;      // of those
  std::set<std::string> fuzzy;                   // for a translator to look at
  std::map<std::string, text_place> empty;       // where a translation is wanted
  size_t obsolete = 0;
};

// Diagnostics for a locale that is none, or another one than the file is named for, translations of
// messages that are not there or have another text, or are marked as fuzzy, other placeholders or
// line feeds at the ends, what ICU would swallow, and what a code page cannot hold.
catalog_translations read_translations(const po_document& document,
                                       const std::vector<catalog_message>& messages,
                                       const attribute_lookup& known,
                                       const std::vector<code_page_repertoire>& code_pages,
                                       diagnostic_list& found);

// Diagnostics for each translation that an earlier file of its locale has in another way.
void find_conflicts(const std::vector<catalog_translations>& files, diagnostic_list& found);

// --- How far they are

struct translation_counts {
  size_t translated = 0;
  size_t fuzzy = 0;         // for a translator to look at; not shown
  size_t untranslated = 0;  // shown with the source's text
  size_t obsolete = 0;      // kept for messages that are gone

  // "1 translated, 0 fuzzy, 2 untranslated, 0 obsolete"
  std::string text() const;
};

// Those of one file.
translation_counts counts_of(const po_document& document);

// Those of one locale, whose translations may be in several files.
struct catalog_progress {
  std::string name;  // the locale's; the file's where its locale is none
  std::vector<std::string> files;
  translation_counts counts;

  // One JSON object on a line of its own.
  void write_json(std::ostream& out) const;
};

// Of each locale, in the order of the files. A message that a broader locale has is not
// untranslated. Diagnostics for the messages that are.
std::vector<catalog_progress> progress_of(const std::vector<catalog_message>& messages,
                                          const std::vector<catalog_translations>& translations,
                                          diagnostic_list& found);

#endif
