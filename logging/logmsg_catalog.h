// The open message catalog, for the renderer.
#ifndef KP_LOG_LOGMSG_CATALOG_H
#define KP_LOG_LOGMSG_CATALOG_H

#include <unicode/resbund.h>

#include <cstdint>
#include <memory>

#include "logging/log_util_identity.h"

// A catalog as it was when it was opened: immutable, read by any number of threads. One that could
// not be opened has no usable table.
class logmsg_catalog {
 public:
  // Opens the bundle that is at `path` now, for the current locale. Raises KPX_memory_alloc.
  explicit logmsg_catalog(const char* path);

  bool is_open() const noexcept { return U_SUCCESS(bundle_status_); }
  bool is_missing() const noexcept { return bundle_status_ == U_MISSING_RESOURCE_ERROR; }
  // As _kp_LOG_log_message::_get_string, but the text is the bundle's own: valid as long as this
  // catalog.
  icu::UnicodeString find(const char* id) const;
  // Tells its texts from those of any other catalog.
  uint64_t identity() const noexcept { return identity_.number(); }

 private:
  UErrorCode bundle_status_ = U_ZERO_ERROR;
  UErrorCode table_status_ = U_ZERO_ERROR;
  icu::ResourceBundle bundle_;
  icu::ResourceBundle table_;  // "STRING_TABLE"
  kp_log_identity identity_;
};

// The catalog that is installed now, or null. It stays as it is for as long as the pointer is held,
// even when another thread replaces or closes the catalog meanwhile.
std::shared_ptr<const logmsg_catalog> logmsg_current_catalog();

// The identity of the catalog that is installed now; 0 for none.
uint64_t logmsg_current_catalog_identity() noexcept;

#endif
