#include <atomic>
#include <climits>
#include <mutex>
#include <new>
#include <string>

#include "base/kp_clib.h"
#include "base/kp_lock.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "logging/logcfg_file.h"
#include "logging/logmsg.h"
#include "logging/raise.h"
#include "logging/settings_locale.h"

// ---- the definition table ----

// The process's stands in storage of its own and is never destroyed, nor emptied at the end of the
// process: what still logs then, be it another thread, is not refused. A program that closes the
// library leaves it loaded (it is linked so), so that there is no other end.
[[gnu::noinline]] static _kp_LOG_log_definition_tbl& made_definition_table() {
  alignas(
      _kp_LOG_log_definition_tbl) static unsigned char storage[sizeof(_kp_LOG_log_definition_tbl)];
  static auto* const table = new (storage) _kp_LOG_log_definition_tbl;
  kp_log_settings::of_process.definitions.store(table, std::memory_order_release);
  return *table;
}

static _kp_LOG_log_definition_tbl& definition_table() {
  auto* const table = kp_log_settings::current().definitions.load(std::memory_order_acquire);
  return table != nullptr ? *table : made_definition_table();
}

// ---- flags and numbers ----

bool b_is_icu_enabled = true;
unsigned action_on_exceed = 0;

void kp_LOG_LogConfig::SetSynchronizationLevel(kp_SynchronizationLevelType level) {
  if (static_cast<unsigned>(level) < 5)
    kp_store(kp_log_settings::current().synchronization_level, level);
}

kp_SynchronizationLevelType kp_LOG_LogConfig::GetSynchronizationLevel() {
  return static_cast<kp_SynchronizationLevelType>(
      kp_load(kp_log_settings::current().synchronization_level));
}

void kp_LOG_LogConfig::EnableCountConfig(bool enable) {
  kp_store(kp_log_settings::current().is_count_config_enabled, enable);
}

bool kp_LOG_LogConfig::IsEnableCountConfig() {
  return kp_load(kp_log_settings::current().is_count_config_enabled);
}

void kp_LOG_LogConfig::SetICUEnabled(bool enable) {
  kp_store(*kp_log_settings::current().is_icu_enabled, enable);
  LogDebugMessage(2, "%s:%d kp_LOG_LogConfig::SetICUEnabled, ok!\n", "logging/logcfg", __LINE__);
}

bool kp_LOG_LogConfig::IsICUEnabled() {
  return kp_load(*kp_log_settings::current().is_icu_enabled);
}

void kp_LOG_LogConfig::SetActionAttrLenExceed(int action) {
  if (action != 0 && action != 1)
    kp_log_raise<KPX_logging_illegal_argument>(
        "The action when attribute exceeds limitation is invalid!\n");
  kp_store(*kp_log_settings::current().action_on_exceed, static_cast<unsigned>(action));
}

int kp_LOG_LogConfig::GetActionAttrLenExceed() {
  return static_cast<int>(kp_load(*kp_log_settings::current().action_on_exceed));
}

// ---- definitions ----

_kp_LOG_log_definition_tbl* kp_LOG_LogConfig::GetDefinitionTable() {
  return &definition_table();
}

void kp_LOG_LogConfig::ClearDefinitions() {
  const kp_THREAD_global_lock lock;
  definition_table().clear();
  _kp_LOG_log_definition::clear_global_attr_info();
  LogDebugMessage(2, "%s:%d kp_LOG_LogConfig::ClearDefinitions, ok!\n", "logging/logcfg", __LINE__);
}

void kp_LOG_LogConfig::SetDefinitionPath(const char* path) {
  const kp_THREAD_global_lock lock;
  if (path == nullptr) {
    kp_log_raise_invalid_argument(kp_log_told(
        "%s:%d kp_LOG_LogConfig::SetDefinitionPath, path==0!\n", "logging/logcfg", __LINE__));
  }
  kp_log_text_setting& definition_path = kp_log_settings::current().definition_path;
  definition_path.set(path);
  definition_table().set_precompiled_definition_file_path(definition_path.get());
  LogDebugMessage(2, "%s:%d kp_LOG_LogConfig::SetDefinitionPath, path=%s!\n", "logging/logcfg",
                  __LINE__, definition_path.get());
}

const char* kp_LOG_LogConfig::GetDefinitionPath() {
  return kp_log_settings::current().definition_path.get();
}

void kp_LOG_LogConfig::SetAuxDefinitionPath(const char* path) {
  if (path == nullptr) {
    kp_log_raise_invalid_argument(kp_log_told(
        "%s:%d kp_LOG_LogConfig::SetAuxDefinitionPath path==0\n", "logging/logcfg", __LINE__));
  }
  const kp_THREAD_global_lock lock;
  kp_log_text_setting& aux_definition_path = kp_log_settings::current().aux_definition_path;
  aux_definition_path.set(path);
  definition_table().set_precompiled_aux_definition_file_path(aux_definition_path.get());
  LogDebugMessage(2, "%s:%d kp_LOG_LogConfig::SetAuxDefinitionPath, path=%s!\n", "logging/logcfg",
                  __LINE__, aux_definition_path.get());
}

const char* kp_LOG_LogConfig::GetAuxDefinitionPath() {
  return kp_log_settings::current().aux_definition_path.get();
}

// ---- messages ----

void kp_LOG_LogConfig::SetMessageCatalogPath(const char* path) {
  if (!IsICUEnabled()) return;
  const kp_THREAD_global_lock lock;
  _kp_LOG_log_message::set_resource_path(path);
  LogDebugMessage(2, "%s:%d kp_LOG_LogConfig::SetMessageCatalogPath, path=%s!\n", "logging/logcfg",
                  __LINE__, path != nullptr ? _kp_LOG_log_message::get_resource_path() : "(NULL)");
}

const char* kp_LOG_LogConfig::GetMessageCatalogPath() {
  return IsICUEnabled() ? _kp_LOG_log_message::get_resource_path() : "";
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value is what callers are built against.
void kp_LOG_LogConfig::SetLocale(kp_Locale locale) {
  const kp_THREAD_global_lock lock;
  if (!kp_log_set_locale(locale)) kp_log_raise_invalid_argument();
}

kp_Locale kp_LOG_LogConfig::GetLocale() {
  return kp_Locale(kp_log_current_locale().getName());
}

void kp_LOG_LogConfig::SetCodePage(const char* codepage) {
  if (codepage == nullptr) {
    kp_log_raise_invalid_argument(kp_log_told("%s:%d kp_LOG_LogConfig::SetCodePage codepage==0!\n",
                                              "logging/logcfg", __LINE__));
  }
  const kp_THREAD_global_lock lock;
  kp_log_text_setting& code_page = kp_log_settings::current().code_page;
  code_page.set(codepage);
  LogDebugMessage(2, "%s:%d kp_LOG_LogConfig::SetCodePage codepage==%s!\n", "logging/logcfg",
                  __LINE__, code_page.get());
}

const char* kp_LOG_LogConfig::GetCodePage() {
  return kp_log_settings::current().code_page.get();
}

// ---- configuration source ----

// Makes the file at `path`, or none for null, the current source. The one before it is retired
// first, so that it neither takes the resetting of bCfgReaded for a reason to read its file again
// nor announces as read what its successor has not read.
static void replace_source(const char* path) {
  static constinit std::mutex replacing;
  const std::lock_guard<std::mutex> hold(replacing);
  kp_log_settings& settings = kp_log_settings::current();
  auto& source = settings.configuration;
  if (_kp_LOG_file_configuration* const before = source.get()) before->retire();
  if (path != nullptr)
    source.publish(source.make(path, settings.is_of_process()));
  else
    source.publish(nullptr);
  kp_logcfg_generation.fetch_add(1, std::memory_order_release);
}

static bool exists(const char* path) {
  struct stat status;
  return KP_stat(path, &status) == 0;
}

// The path as it means from anywhere: a relative one begins in the working folder of now, as long
// as that has a name.
static std::string from_anywhere(const char* path) {
  char folder[PATH_MAX];
  if (*path == '/' || *path == '\0' || KP_getcwd(folder, sizeof folder) == nullptr) return path;
  return std::string(folder) + "/" + path;
}

void kp_LOG_LogConfig::SetConfigurationSource(const char* path, kp_ConfigurationSourceType type) {
  if (path == nullptr) {
    replace_source(nullptr);
    return;
  }
  if (type != KP_CONFIG_FILE_OPTIONAL && !exists(path)) {
    kp_log_raise_invalid_argument(
        kp_log_told("%s:%d kp_LOG_LogConfig::SetConfigurationSource, invalid argument!\n",
                    "logging/logcfg", __LINE__));
  }
  const kp_THREAD_global_lock lock;
  kp_log_no_bad_alloc([path] { replace_source(from_anywhere(path).c_str()); });
}

_kp_LOG_configuration* kp_LOG_LogConfig::_get_configuration_ptr() {
  return kp_log_settings::current().configuration.get();
}

bool kp_LOG_LogConfig::GetConfigurationIntegerValue(const char* section, const char* key,
                                                    unsigned& value) {
  if (section == nullptr || key == nullptr) kp_log_raise_invalid_argument();
  const _kp_LOG_configuration* source = _get_configuration_ptr();
  return source != nullptr && source->get_integer_value(section, key, value);
}
