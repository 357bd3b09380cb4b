#include "logging/settings_locale.h"

#include <map>
#include <mutex>
#include <string>

#include "logging/raise.h"

// One copy of each different locale is kept to the end of the process. Null for a name that ICU
// refuses.
static const icu::Locale* kept_locale(const char* name) {
  static constinit std::mutex lock;                              // a leaf
  static auto& all = *new std::map<std::string, icu::Locale>();  // by ICU's name
  const icu::Locale wanted(name);
  if (wanted.isBogus()) return nullptr;
  const std::lock_guard<std::mutex> hold(lock);
  const icu::Locale& kept = all.try_emplace(wanted.getName(), wanted).first->second;
  if (kept.isBogus()) {  // without memory for a long name
    all.erase(wanted.getName());
    kp_log_raise_alloc();
  }
  return &kept;
}

bool kp_log_set_locale(const kp_Locale& locale) {
  kp_log_settings& settings = kp_log_settings::current();
  if (settings.is_of_process()) return kp_I18N_set_locale(locale);
  return kp_log_no_bad_alloc([&] {
    const kp_Locale usable = kp_I18N_usable_locale(locale);
    if (*usable.get_name() == '\0') return false;
    const icu::Locale* const kept = kept_locale(usable.get_name());
    if (kept != nullptr) settings.locale.store(kept, std::memory_order_release);
    return kept != nullptr;
  });
}
