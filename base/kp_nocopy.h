// kp_UTIL_no_inadvertant_copies: base of classes that own texts, streams or other objects.
#ifndef KP_NOCOPY_H
#define KP_NOCOPY_H

#include "base/kp_export.h"

class KP_API kp_UTIL_no_inadvertant_copies {
 public:
  kp_UTIL_no_inadvertant_copies(const kp_UTIL_no_inadvertant_copies&) = delete;
  kp_UTIL_no_inadvertant_copies& operator=(const kp_UTIL_no_inadvertant_copies&) = delete;

 protected:
  kp_UTIL_no_inadvertant_copies() = default;
  ~kp_UTIL_no_inadvertant_copies() = default;
};

#endif
