// The languages of the messages.
#ifndef PACKAGE_HISTORY_LANGUAGE_H
#define PACKAGE_HISTORY_LANGUAGE_H

#include <string>
#include <string_view>

struct history_language {
  const char* name;  // as its speakers call it
  const char* locale;
};

// The first is that of the texts in package_history.yaml; the others have translations in
// messages/.
constexpr history_language history_languages[] = {
    {"English", "en_US"}, {"Deutsch", "de_DE"}, {"日本語", "ja_JP"}};

// The language of that locale, or null.
const history_language* find_history_language(std::string_view locale);

// From now on messages are rendered in this language, with the catalogs in the folder `catalogs`.
// Raises KPX_logging_missing_resource where there is no catalog.
void speak_history_language(const history_language& language, const std::string& catalogs);

#endif
