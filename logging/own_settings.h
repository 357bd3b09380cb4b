// Settings beside those of the process, for a part of a program that is to log undisturbed.
#ifndef KP_LOG_OWN_SETTINGS_H
#define KP_LOG_OWN_SETTINGS_H

#include <memory>

#include "base/kp_export.h"
#include "base/kp_nocopy.h"

struct kp_log_settings;

// Sets what an empty name of a code page stands for, and with it what texts of definitions are in,
// for what the calling thread goes by; null, as at first: ICU's default converter. Raises
// KPX_memory_alloc.
KP_API void kp_log_set_default_code_page(const char* name);

// A set of all that kp_LOG_LogConfig sets and tells, global attributes, operation mode and log
// version among it, at first as in a process that has set nothing. Threads that stand in its scope
// go by it; the settings of the process are as if those threads did nothing.
//
// Entries belong to nobody: one that was made in a scope may be used, and destroyed, anywhere and
// also when these settings are gone, and goes by its definition and the settings of whoever uses
// it. What a definition table, a catalog or a configuration source hands out by pointer is not to
// be used any more when the settings are gone; texts of getters are.
class KP_API kp_log_own_settings : kp_UTIL_no_inadvertant_copies {
 public:
  // Raises KPX_memory_alloc.
  kp_log_own_settings();
  // Nobody stands in its scope any more.
  ~kp_log_own_settings();

  // While it lives, everything that the calling thread does with kp_LOG_LogConfig, entries, filters
  // and messages goes by these settings. Scopes nest, also those of the same settings; any number
  // of threads may stand in one at a time. Ended by the thread that began it, the last one first.
  class KP_API scope : kp_UTIL_no_inadvertant_copies {
   public:
    explicit scope(kp_log_own_settings& own) noexcept;
    ~scope();

   private:
    kp_log_settings* const before_;
  };

 private:
  struct parts;
  const std::unique_ptr<parts> parts_;
};

#endif
