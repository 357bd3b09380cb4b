#include "tools/catalog/locale.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <string_view>

#include "base/kp_i18n.h"
#include "recording/files/path.h"
#include "recording/text/words.h"

static bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

static bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

static bool is_listed(const char* const* list, std::string_view code) {
  for (; *list != nullptr; ++list)
    if (code == *list) return true;
  return false;
}

static bool is_language(std::string_view code) {
  return code.size() == 2 ? is_listed(icu::Locale::getISOLanguages(), code)
                          : code.size() == 3 && std::all_of(code.begin(), code.end(), is_letter);
}

static bool is_region(std::string_view code) {
  return code.size() == 3 ? std::all_of(code.begin(), code.end(), is_digit)
                          : is_listed(icu::Locale::getISOCountries(), code);
}

// Whether it is the code of a script, as ICU writes it.
static bool is_script(const std::string& code) {
  const int32_t script = u_getPropertyValueEnum(UCHAR_SCRIPT, code.c_str());
  return script != UCHAR_INVALID_CODE &&
         code == u_getPropertyValueName(UCHAR_SCRIPT, script, U_SHORT_PROPERTY_NAME);
}

// Five to eight letters and digits, or four that begin with a digit.
static bool is_variant(std::string_view code) {
  const bool is_long_enough = code.size() == 4 ? is_digit(code.front()) : code.size() > 4;
  return is_long_enough && code.size() <= 8 &&
         std::all_of(code.begin(), code.end(), [](char c) { return is_letter(c) || is_digit(c); });
}

static bool are_variants(std::string_view codes) {
  while (!codes.empty()) {
    const size_t end = std::min(codes.find('_'), codes.size());
    if (!is_variant(codes.substr(0, end))) return false;
    codes.remove_prefix(std::min(end + 1, codes.size()));
  }
  return true;
}

// What is wrong with the pieces of a locale, "" for nothing.
static std::string problem_of(const icu::Locale& locale) {
  const std::string language = locale.getLanguage();
  const std::string script = locale.getScript();
  const std::string region = locale.getCountry();
  const std::string variant = locale.getVariant();
  if (language.empty()) return "it begins with no language";
  if (!is_language(language)) return in_quotes(language) + " is no language";
  if (!script.empty() && !is_script(script)) return in_quotes(script) + " is no script";
  if (!region.empty() && !is_region(region)) return in_quotes(region) + " is no region";
  return are_variants(variant) ? "" : in_quotes(variant) + " is no variant";
}

static bool is_name_character(char c) {
  return is_letter(c) || is_digit(c) || c == '_' || c == '-';
}

catalog_locale icu_locale(const std::string& name) {
  const size_t at_sign = std::min(name.find('@'), name.size());
  const std::string base = name.substr(0, std::min(name.find('.'), at_sign));
  if (!std::all_of(base.begin(), base.end(), is_name_character))
    return {"", "a locale is letters, digits, _ and -"};
  if (name.find('=', at_sign) != std::string::npos)
    return {"", in_quotes(name.substr(at_sign + 1)) + " is no variant"};
  const std::string locale = kp_I18N_canonical_locale(name.c_str()).get_name();
  const std::string problem = problem_of(locale.c_str());
  return problem.empty() ? catalog_locale{locale, ""} : catalog_locale{"", problem};
}

bool has_known_language(const std::string& locale) {
  return is_listed(icu::Locale::getISOLanguages(), icu::Locale(locale.c_str()).getLanguage());
}

std::string locale_of_path(const std::string& path) {
  const std::string name = place_of(path).name;
  const std::string stem = name.substr(0, name.rfind('.'));
  const size_t at_sign = std::min(stem.find('@'), stem.size());
  return stem.substr(0, std::min(stem.find('.'), at_sign)) + stem.substr(at_sign);
}

static std::string likely_script(const std::string& locale) {
  icu::Locale likely(locale.c_str());
  UErrorCode status = U_ZERO_ERROR;
  likely.addLikelySubtags(status);
  return U_SUCCESS(status) ? likely.getScript() : "";
}

std::vector<std::string> broader_locales(const std::string& locale) {
  std::vector<std::string> broader;
  const std::string script = likely_script(locale);
  for (size_t end = locale.rfind('_'); end != std::string::npos; end = locale.rfind('_', end - 1)) {
    const std::string name = locale.substr(0, end);
    if (likely_script(name) == script) broader.push_back(name);
  }
  return broader;
}
