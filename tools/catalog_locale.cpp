#include "tools/catalog_locale.h"

#include <unicode/uchar.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <array>
#include <string_view>

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
  return code.size() == 2 ? is_listed(uloc_getISOLanguages(), code)
                          : code.size() == 3 && std::all_of(code.begin(), code.end(), is_letter);
}

static bool is_region(std::string_view code) {
  return code.size() == 3 ? std::all_of(code.begin(), code.end(), is_digit)
                          : is_listed(uloc_getISOCountries(), code);
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

static std::string upper_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return text;
}

// The pieces of a locale's name, as ICU takes it apart.
struct locale_pieces {
  std::string language;
  std::string script;
  std::string region;
  std::string variant;

  explicit locale_pieces(const std::string& locale)
      : language(by_icu(uloc_getLanguage, locale)),
        script(by_icu(uloc_getScript, locale)),
        region(by_icu(uloc_getCountry, locale)),
        variant(by_icu(uloc_getVariant, locale)) {}

  void add_modifier(const std::string& modifier) {
    const std::string of_script = script_code(modifier);
    if (!of_script.empty())
      script = of_script;
    else if (modifier != "euro")
      variant += (variant.empty() ? "" : "_") + upper_case(modifier);
  }

  // What is wrong with them, "" for nothing.
  std::string problem() const {
    if (language.empty()) return "it begins with no language";
    if (!is_language(language)) return "\"" + language + "\" is no language";
    if (!script.empty() && script_code(script) != script) return "\"" + script + "\" is no script";
    if (!region.empty() && !is_region(region)) return "\"" + region + "\" is no region";
    return are_variants(variant) ? "" : "\"" + variant + "\" is no variant";
  }

  std::string name() const {
    std::string name = language;
    for (const std::string* piece : {&script, &region, &variant})
      if (!piece->empty()) name += "_" + *piece;
    return name;
  }
};

static std::string likely_region(const std::string& locale) {
  return by_icu(uloc_getCountry, by_icu(uloc_addLikelySubtags, locale));
}

catalog_locale icu_locale(const std::string& name) {
  const size_t at_sign = std::min(name.find('@'), name.size());
  const std::string base = name.substr(0, std::min(name.find('.'), at_sign));
  const auto is_in_names = [](char c) {
    return is_letter(c) || is_digit(c) || c == '_' || c == '-';
  };
  if (!std::all_of(base.begin(), base.end(), is_in_names))
    return {"", "a locale is letters, digits, _ and -"};
  locale_pieces pieces(by_icu(uloc_canonicalize, base));
  if (at_sign < name.size()) pieces.add_modifier(name.substr(at_sign + 1));
  const std::string problem = pieces.problem();
  if (!problem.empty()) return {"", problem};
  if (!pieces.variant.empty() && pieces.region.empty()) pieces.region = likely_region(base);
  return {pieces.name(), ""};
}

static std::string likely_script(const std::string& locale) {
  return by_icu(uloc_getScript, by_icu(uloc_addLikelySubtags, locale));
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
