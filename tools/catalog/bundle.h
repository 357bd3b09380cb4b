// Message catalogs: ICU resource bundles with a table "STRING_TABLE", one for each locale.
#ifndef TOOLS_CATALOG_BUNDLE_H
#define TOOLS_CATALOG_BUNDLE_H

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/catalog/messages.h"
#include "tools/catalog/translations.h"

struct catalog_bundle {
  std::string locale;
  std::map<std::string, std::string> templates;  // by message ID
};

// The bundle "root" with the sources' templates, and one for each locale. ICU does not look for a
// missing key of a table in other locales, so every bundle has all messages: what a locale lacks it
// takes from the locales that it is a part of ("de" for "de_AT"), and at last from the sources.
std::vector<catalog_bundle> catalog_bundles(const std::vector<catalog_message>& messages,
                                            const std::vector<catalog_translations>& translations);

// What went wrong with the files in a folder of bundles, which is named beside it.
class bundle_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Writes LOCALE.res of each bundle into the folder, which is made when it is not there. All are
// compiled, with ICU's genrb, before the first one is written; each appears whole or not at all.
// Raises bundle_error.
void write_bundles(const std::string& folder, const std::vector<catalog_bundle>& bundles);

#endif
