#include "base/kp_i18n.h"

#include <unicode/locid.h>
#include <unicode/uloc.h>

#include <cstring>

static constexpr char name_characters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@=;.-";

static bool is_harmless(const char* name) {
  return name[std::strspn(name, name_characters)] == '\0' && std::strstr(name, "..") == nullptr;
}

// ICU's environment locale is asked for by null.
static bool set_icu_default(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  uloc_setDefault(name, &status);
  return U_SUCCESS(status);
}

bool kp_I18N_set_locale(const kp_Locale& locale) {
  const char* const name = locale.get_name();
  if (*name == '\0') return set_icu_default(nullptr);
  // What programs know from setlocale; ICU itself reads these two from the environment only.
  if (std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0)
    return set_icu_default("en_US_POSIX");
  if (!is_harmless(name)) return false;
  // The canonical form drops a code set as in "de_DE.UTF-8"; no catalog is named with one.
  const icu::Locale canonical = icu::Locale::createCanonical(name);
  return !canonical.isBogus() && set_icu_default(canonical.getName());
}

kp_Locale kp_I18N_get_locale() {
  return kp_Locale(icu::Locale::getDefault().getName());
}
