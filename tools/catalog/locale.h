// Locales as translators' tools name them, and as ICU does.
#ifndef TOOLS_CATALOG_LOCALE_H
#define TOOLS_CATALOG_LOCALE_H

#include <string>
#include <vector>

struct catalog_locale {
  std::string name;     // ICU's, which the bundle is called by; empty when there is none
  std::string problem;  // why there is none, to stand behind "no locale: "
};

// What ICU calls a locale, as kp_I18N_canonical_locale has it, without keywords. Scripts, regions
// and languages of two letters are those that ICU knows; any three letters may be a language.
catalog_locale icu_locale(const std::string& name);

// Whether ICU knows the language that a locale of icu_locale's begins with.
bool has_known_language(const std::string& locale);

// The locale that a PO file's name is made of, as the name has it, without a code set: "sr@latin"
// for "po/sr.UTF-8@latin.po".
std::string locale_of_path(const std::string& path);

// The locales that this one of ICU's is a part of, the nearest first: "de_AT" and "de" for
// "de_AT_1996". Not those that are written in another script.
std::vector<std::string> broader_locales(const std::string& locale);

#endif
