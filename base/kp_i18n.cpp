#include "base/kp_i18n.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

static constexpr char name_characters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@=;.-";

static bool is_harmless(const char* name) {
  return name[std::strspn(name, name_characters)] == '\0' && std::strstr(name, "..") == nullptr;
}

// --- The canonical name ---

// Room for a locale's name; ICU leaves a longer one without its NUL, and reports it.
using locale_buffer = std::array<char, ULOC_FULLNAME_CAPACITY>;
using locale_function = int32_t (*)(const char*, char*, int32_t, UErrorCode*);

// What a function of ICU's makes of a locale; "" when it fails.
static std::string by_icu(locale_function function, const std::string& locale) {
  locale_buffer buffer{};
  UErrorCode status = U_ZERO_ERROR;
  function(locale.c_str(), buffer.data(), static_cast<int32_t>(buffer.size()), &status);
  const bool good = U_SUCCESS(status) && status != U_STRING_NOT_TERMINATED_WARNING;
  return good ? buffer.data() : "";
}

// The code of a script by its code or its name, "" for none.
static std::string script_code(const std::string& name) {
  const int32_t script = u_getPropertyValueEnum(UCHAR_SCRIPT, name.c_str());
  const char* const code =
      script == UCHAR_INVALID_CODE
          ? nullptr
          : u_getPropertyValueName(UCHAR_SCRIPT, script, U_SHORT_PROPERTY_NAME);
  return code == nullptr ? "" : code;
}

static std::string upper_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return text;
}

static std::string likely_region(const std::string& language_and_script) {
  return by_icu(uloc_getCountry, by_icu(uloc_addLikelySubtags, language_and_script));
}

// The variants of a locale, one after the other; ICU's reading of the environment makes variants of
// modifiers.
struct locale_variants {
  std::string script;  // of the variant that is the name of one
  std::string others;

  explicit locale_variants(const std::string& codes) {
    for (size_t begin = 0; begin < codes.size();) {
      const size_t end = std::min(codes.find('_', begin), codes.size());
      take(codes.substr(begin, end - begin));
      begin = end + 1;
    }
  }

  void take(const std::string& variant) {
    const std::string of_script = script_code(variant);
    if (!of_script.empty())
      script = of_script;
    else if (variant != "EURO")
      others += (others.empty() ? "" : "_") + variant;
  }
};

static std::string with_pieces_in_place(const std::string& locale, const std::string& modifier) {
  std::string codes = by_icu(uloc_getVariant, locale);
  if (!modifier.empty()) codes += (codes.empty() ? "" : "_") + upper_case(modifier);
  const locale_variants variants(codes);
  std::string name = by_icu(uloc_getLanguage, locale);
  const std::string script =
      variants.script.empty() ? by_icu(uloc_getScript, locale) : variants.script;
  if (!script.empty()) name += "_" + script;
  std::string region = by_icu(uloc_getCountry, locale);
  if (region.empty() && !variants.others.empty()) region = likely_region(name);
  if (!region.empty()) name += "_" + region;
  if (!variants.others.empty()) name += (region.empty() ? "__" : "_") + variants.others;
  return name.size() < ULOC_FULLNAME_CAPACITY ? name : "";
}

static std::string canonical_name(const std::string& name) {
  const size_t at_sign = std::min(name.find('@'), name.size());
  const std::string base = name.substr(0, std::min(name.find('.'), at_sign));
  // What programs know from setlocale; ICU itself reads these two from the environment only.
  if (base == "C" || base == "POSIX") return "en_US_POSIX";
  // Keywords are ICU's own notation.
  if (name.find('=', at_sign) != std::string::npos) return by_icu(uloc_canonicalize, name);
  std::string locale = by_icu(uloc_canonicalize, base);
  const std::string modifier = at_sign < name.size() ? name.substr(at_sign + 1) : "";
  const bool is_whole = modifier.empty() && by_icu(uloc_getVariant, locale).empty();
  if (is_whole || by_icu(uloc_getLanguage, locale).empty()) return locale;
  return with_pieces_in_place(locale, modifier);
}

kp_Locale kp_I18N_canonical_locale(const kp_Locale& locale) {
  return kp_Locale(canonical_name(locale.get_name()).c_str());
}

// --- Locales that may be set ---

// What the environment names, as ICU reads it when it is first used; ICU does not tell it later.
static const char* environment_locale() {
  const auto is_none = [](const char* name) {
    return name == nullptr || std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0;
  };
  const char* name = std::setlocale(LC_MESSAGES, nullptr);
  if (is_none(name)) {
    name = nullptr;
    for (const char* const variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
      if (name == nullptr) name = std::getenv(variable);
  }
  return is_none(name) ? "en_US_POSIX" : name;
}

kp_Locale kp_I18N_usable_locale(const kp_Locale& locale) {
  const char* const name = *locale.get_name() != '\0' ? locale.get_name() : environment_locale();
  return is_harmless(name) ? kp_I18N_canonical_locale(name) : kp_Locale();
}

// --- The current locale ---

// ICU's environment locale is asked for by null.
static bool set_icu_default(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  uloc_setDefault(name, &status);
  return U_SUCCESS(status);
}

static bool set_environment_locale() {
  if (!set_icu_default(nullptr)) return false;
  const std::string canonical = canonical_name(kp_I18N_get_locale().get_name());
  return canonical.empty() || set_icu_default(canonical.c_str());
}

bool kp_I18N_set_locale(const kp_Locale& locale) {
  const char* const name = locale.get_name();
  if (*name == '\0') return set_environment_locale();
  const kp_Locale usable = kp_I18N_usable_locale(locale);
  return *usable.get_name() != '\0' && set_icu_default(usable.get_name());
}

kp_Locale kp_I18N_get_locale() {
  return kp_Locale(icu::Locale::getDefault().getName());
}
