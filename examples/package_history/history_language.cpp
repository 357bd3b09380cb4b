#include "history_language.h"

#include <algorithm>
#include <iterator>

#include "kp_LOG.h"

const history_language* find_history_language(std::string_view locale) {
  const auto* found =
      std::find_if(std::begin(history_languages), std::end(history_languages),
                   [locale](const history_language& row) { return row.locale == locale; });
  return found == std::end(history_languages) ? nullptr : found;
}

void speak_history_language(const history_language& language, const std::string& catalogs) {
  // In this order: a catalog is opened for the locale that is set.
  kp_LOG_LogConfig::SetLocale(language.locale);
  kp_LOG_LogConfig::SetMessageCatalogPath(catalogs.c_str());
}
