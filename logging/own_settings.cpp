#include "logging/own_settings.h"

#include <utility>

#include "kp_LOG_LogConfig.h"
#include "logging/icu_text.h"
#include "logging/ldf_load.h"
#include "logging/log_definition_globals.h"
#include "logging/logcfg_file.h"
#include "logging/logentry_i.h"
#include "logging/logmsg_catalog.h"
#include "logging/raise.h"
#include "logging/settings_locale.h"

// ---- the process's ----

static constinit icu_text_kept_code_page output_code_page_of_process;

constinit kp_log_settings kp_log_settings::of_process(
    {&b_is_icu_enabled, &::action_on_exceed, &_kp_LOG_log_entry_imp::global_operation_mode,
     &_kp_LOG_log_entry_imp::log_major_version, &_kp_LOG_log_entry_imp::log_minor_version},
    output_code_page_of_process, nullptr);

void kp_log_set_default_code_page(const char* name) {
  kp_log_settings::current().default_code_page = name == nullptr ? nullptr : kp_log_kept_text(name);
}

// ---- others ----

struct kp_log_own_settings::parts {
  bool is_icu_enabled = true;
  unsigned action_on_exceed = 0;
  unsigned operation_mode = 2;
  unsigned log_major_version = 0;
  unsigned log_minor_version = 0;
  icu_text_kept_code_page output_code_page;
  _kp_LOG_log_definition_tbl definitions;
  kp_log_settings settings{
      {&is_icu_enabled, &action_on_exceed, &operation_mode, &log_major_version, &log_minor_version},
      output_code_page,
      &definitions};
};

kp_log_own_settings::kp_log_own_settings()
    : parts_(kp_log_no_bad_alloc([] { return std::make_unique<parts>(); })) {
  const scope here(*this);
  if (!kp_log_set_locale("")) static_cast<void>(kp_log_set_locale("en_US_POSIX"));
}

kp_log_own_settings::~kp_log_own_settings() {
  kp_log_settings& settings = parts_->settings;
  settings.global_attributes.publish(nullptr);
  settings.configuration.publish(nullptr);
  settings.catalog.value.reset();
}

kp_log_own_settings::scope::scope(kp_log_own_settings& own) noexcept
    : before_(std::exchange(kp_log_settings::current_, &own.parts_->settings)) {}

kp_log_own_settings::scope::~scope() {
  kp_log_settings::current_ = before_;
}
