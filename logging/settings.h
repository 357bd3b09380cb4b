// The settings that what a thread does goes by.
#ifndef KP_LOG_SETTINGS_H
#define KP_LOG_SETTINGS_H

#include <unicode/uversion.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "logging/log_util_kept_text.h"
#include "logging/log_util_never_destroyed.h"
#include "logging/log_util_snapshot.h"

U_NAMESPACE_BEGIN
class Locale;
U_NAMESPACE_END
class _kp_LOG_file_configuration;
class _kp_LOG_global_attributes;
class _kp_LOG_log_definition_tbl;
class icu_text_kept_code_page;
class logmsg_catalog;

// Where those are that programs see, of the process's set, as variables.
struct kp_log_setting_variables {
  bool* is_icu_enabled;
  unsigned* action_on_exceed;
  unsigned* operation_mode;
  unsigned* log_major_version;
  unsigned* log_minor_version;
};

// One set of settings: the process's, or one of its own (own_settings.h). Any thread may read and
// set any of them; how, stands in docs/architecture.md. A set is destroyed by whoever owns it, the
// process's never.
struct kp_log_settings : kp_log_setting_variables {
  // Those of the calling thread: the process's, unless it stands in the scope of others.
  static kp_log_settings& current() noexcept { return *current_; }
  static kp_log_settings of_process;
  bool is_of_process() const noexcept { return this == &of_process; }

  constexpr kp_log_settings(const kp_log_setting_variables& variables,
                            icu_text_kept_code_page& its_output_code_page,
                            _kp_LOG_log_definition_tbl* its_definitions) noexcept
      : kp_log_setting_variables(variables),
        definitions(its_definitions),
        output_code_page(its_output_code_page) {}

  std::atomic<_kp_LOG_log_definition_tbl*> definitions;  // null: not made yet
  kp_log_text_setting definition_path;
  kp_log_text_setting aux_definition_path;
  kp_log_snapshot<_kp_LOG_global_attributes> global_attributes;

  kp_log_text_setting code_page;
  // What an empty name of a code page stands for; a kept text. Null: ICU's default converter.
  std::atomic<const char*> default_code_page{nullptr};
  // The code page, once it is known to make no more units than bytes. Code pages that are set are
  // kept texts, so that one address stands for one name.
  std::atomic<const char*> bytewise_code_page{nullptr};
  icu_text_kept_code_page& output_code_page;  // of messages that are rendered into a buffer
  // Kept to the end of the process; null: ICU's default one, whichever that is.
  std::atomic<const icu::Locale*> locale{nullptr};

  kp_log_text_setting catalog_path;
  std::atomic<uint64_t> catalog_identity{0};  // 0: there is none
  kp_log_never_destroyed<std::shared_ptr<const logmsg_catalog>> catalog;

  kp_log_snapshot<_kp_LOG_file_configuration> configuration;
  int synchronization_level = 2;  // KP_SYNC_THREAD
  bool is_count_config_enabled = false;

 private:
  friend class kp_log_own_settings;

  // Looked at by every operation: this model spares the call that finds the variable of a shared
  // library, and takes 8 bytes of the room that the system keeps for that.
  [[gnu::tls_model(
      "initial-exec")]] inline static constinit thread_local kp_log_settings* current_ =
      &of_process;
};

#endif
