// How far translations are.
#ifndef TOOLS_CATALOG_PROGRESS_H
#define TOOLS_CATALOG_PROGRESS_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/catalog/messages.h"
#include "tools/catalog/translations.h"

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
