#include "logging/logmsg_catalog.h"

#include <memory>
#include <mutex>
#include <utility>

#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/logmsg.h"
#include "logging/logmsg_catalog_path.h"
#include "logging/raise.h"
#include "logging/settings_locale.h"

static constexpr char catalog_source[] = "logging/logmsg";

// --- An open catalog ---

logmsg_catalog::logmsg_catalog(const char* path)
    : bundle_(logmsg_catalog_path_for_icu(path).c_str(), kp_log_current_locale(), bundle_status_),
      table_(bundle_.get("STRING_TABLE", table_status_)) {}

static icu::UnicodeString string_in(const icu::ResourceBundle& table, const char* id) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString text = table.getStringEx(id, status);
  if (U_FAILURE(status)) {
    kp_log_raise<KPX_logging_missing_resource>(
        "<KPX_logging_missing_resource> Unable to retrieve the string from the string table.");
  }
  return text;
}

// A table that could not be had at the opening is asked for again: there may be memory by now.
icu::UnicodeString logmsg_catalog::find(const char* id) const {
  if (U_SUCCESS(table_status_)) return string_in(table_, id);
  UErrorCode status = U_ZERO_ERROR;
  const icu::ResourceBundle table = bundle_.get("STRING_TABLE", status);
  if (U_FAILURE(status)) {
    kp_log_raise<KPX_logging_missing_resource>(
        "< KPX_logging_missing_resource> Unable to access the string table resource.");
  }
  return string_in(table, id);
}

// --- The installed catalog and its path ---

static constinit std::mutex catalog_lock;  // a leaf: held for pointer copies only

std::shared_ptr<const logmsg_catalog> logmsg_current_catalog() {
  const std::lock_guard<std::mutex> hold(catalog_lock);
  return kp_log_settings::current().catalog.value;
}

// The old catalog is closed outside the lock, unless a renderer still holds it.
static void install_catalog(std::shared_ptr<const logmsg_catalog> catalog) {
  kp_log_settings& settings = kp_log_settings::current();
  const std::lock_guard<std::mutex> hold(catalog_lock);
  settings.catalog_identity.store(catalog != nullptr ? catalog->identity() : 0,
                                  std::memory_order_release);
  settings.catalog.value.swap(catalog);
}

uint64_t logmsg_current_catalog_identity() noexcept {
  return kp_log_settings::current().catalog_identity.load(std::memory_order_acquire);
}

static void require_open(const logmsg_catalog& catalog, const char* path) {
  if (catalog.is_open()) return;
  if (catalog.is_missing()) {
    kp_log_raise<KPX_logging_missing_resource>(
        {"<KPX_logging_missing_resource> Unable to locate resource bundle \"", path, "\"."},
        kp_log_told(
            "%s:%d _kp_LOG_log_message::set_resource_path Unable to locate resource bundle %s!\n",
            catalog_source, __LINE__, path));
  }
  kp_log_raise<KPX_logging_missing_resource>(
      {"<KPX_logging_missing_resource> Unable to access resource bundle \"", path, "\"."},
      kp_log_told(
          "%s:%d _kp_LOG_log_message::set_resource_path Unable to access resource bundle %s!\n",
          catalog_source, __LINE__, path));
}

static void close_catalog() {
  install_catalog(nullptr);
  kp_log_settings::current().catalog_path.set("");
  LogDebugMessage(2, "%s:%d _kp_LOG_log_message::set_resource_path set resource_path=\"\"!\n",
                  catalog_source, __LINE__);
}

// Replaces the catalog in one step, so that a renderer finds the old one or the new one. Without
// memory for the new one there is none.
static std::shared_ptr<const logmsg_catalog> replace_catalog(const char* path) {
  std::shared_ptr<const logmsg_catalog> catalog;
  try {
    catalog = kp_log_no_bad_alloc([=] { return std::make_shared<const logmsg_catalog>(path); });
  } catch (const KPX_memory_alloc&) {
    install_catalog(nullptr);
    throw;
  }
  install_catalog(catalog);
  return catalog;
}

void _kp_LOG_log_message::set_resource_path(const char* path) {
  if (path == nullptr) {
    close_catalog();
    return;
  }
  kp_log_settings::current().catalog_path.set(path);
  require_open(*replace_catalog(get_resource_path()), get_resource_path());
}

const char* _kp_LOG_log_message::get_resource_path() {
  return kp_log_settings::current().catalog_path.get();
}

bool _kp_LOG_log_message::has_catalog() {
  return logmsg_current_catalog() != nullptr;
}

icu::UnicodeString _kp_LOG_log_message::_get_string(const char* id) {
  const auto catalog = logmsg_current_catalog();
  if (!catalog) {
    kp_log_raise<KPX_logging_missing_resource>(
        "< KPX_logging_missing_resource> Unable to access the string table resource.");
  }
  const icu::UnicodeString text = catalog->find(id);
  icu::UnicodeString copy(text);  // the catalog's own text may go away with the catalog
  return copy;
}
