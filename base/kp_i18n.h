// The current locale of the product line (libkpintl).
#ifndef KP_I18N_H
#define KP_I18N_H

#include <cstring>

#include "base/kp_export.h"
#include "base/kp_string.h"

// A locale name such as "de_DE". A value; the name is kept as given and checked only when it is
// set.
class KP_API kp_Locale {
 public:
  kp_Locale() = default;                                  // the empty name
  kp_Locale(const char* name) : name_(name) {}            // a copy; null counts as empty
  const char* get_name() const { return name_.c_str(); }  // valid as long as this object

 private:
  kp_String name_;
};

inline bool operator==(const kp_Locale& a, const kp_Locale& b) {
  return std::strcmp(a.get_name(), b.get_name()) == 0;
}
inline bool operator!=(const kp_Locale& a, const kp_Locale& b) {
  return !(a == b);
}

// What ICU calls a locale that is named LANGUAGE_SCRIPT_REGION.CODESET@MODIFIER, all but the
// language optional, also with hyphens. "C" and "POSIX", with whatever code set, are en_US_POSIX.
// The code set is dropped, and so is the modifier "euro"; the name of a script becomes one
// ("sr_RS@latin": "sr_Latn_RS"), any other modifier a variant. A variant comes with a region, the
// language's likeliest one where none is given ("ca@valencia": "ca_ES_VALENCIA"). Names with
// keywords ("de@collation=phonebook") are ICU's own. Empty for a name that ICU cannot read; whether
// there is such a language or region does not matter.
KP_API kp_Locale kp_I18N_canonical_locale(const kp_Locale& locale);

// The canonical name of the locale that `locale` stands for when it is set: for the empty name that
// of the environment, as ICU reads it. Empty for a name with anything but letters, digits and
// "_@=;.-", with "..", or that ICU cannot read: ICU would take such a name as part of a path.
KP_API kp_Locale kp_I18N_usable_locale(const kp_Locale& locale);

// Makes `locale`, by its canonical name, ICU's default locale, so that catalogs opened from now on
// and the formats of numbers, dates and times follow it. The empty name stands for the
// environment's locale.
// Returns false, changing nothing, for a name that is not usable, or that ICU refuses.
KP_API bool kp_I18N_set_locale(const kp_Locale& locale);

// ICU's default locale.
KP_API kp_Locale kp_I18N_get_locale();

#endif
