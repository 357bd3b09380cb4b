// The locale of the current settings.
#ifndef KP_LOG_SETTINGS_LOCALE_H
#define KP_LOG_SETTINGS_LOCALE_H

#include <unicode/locid.h>

#include "base/kp_i18n.h"
#include "logging/settings.h"

// Readable to the end of the process. Equal locales of one set of settings have one address, which
// no other locale has.
inline const icu::Locale& kp_log_current_locale() {
  const icu::Locale* const own = kp_log_settings::current().locale.load(std::memory_order_acquire);
  return own != nullptr ? *own : icu::Locale::getDefault();
}

// As kp_I18N_set_locale, for the current settings. Raises KPX_memory_alloc.
bool kp_log_set_locale(const kp_Locale& locale);

#endif
