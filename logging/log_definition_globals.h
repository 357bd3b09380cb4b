// The global attributes of each set of settings: a list that is replaced as a whole, so that it is
// read without a lock.
#ifndef KP_LOG_LOG_DEFINITION_GLOBALS_H
#define KP_LOG_LOG_DEFINITION_GLOBALS_H

#include <memory>
#include <mutex>
#include <vector>

#include "base/kp_nocopy.h"
#include "logging/log_definition.h"
#include "logging/log_definition_list.h"

// A list of global attributes as it was published, with an index of their names. Lists that follow
// each other share the attributes that stay.
class _kp_LOG_global_attributes : kp_UTIL_no_inadvertant_copies {
 public:
  using owned_entry = std::shared_ptr<_kp_LOG_attribute_entry>;

  explicit _kp_LOG_global_attributes(const std::vector<owned_entry>& owned);

  // The list that is current, null while it is empty. Valid in the calling thread until it asks
  // again or changes the list.
  static _kp_LOG_global_attributes* current() noexcept;
  // Makes the list empty.
  static void clear() noexcept;

  unsigned size() const noexcept { return static_cast<unsigned>(owned_.size()); }
  _kp_LOG_attribute_entry** entries() noexcept { return listed_->entries(); }
  _kp_LOG_attribute_entry* find(const _kp_LOG_name_key& name) const noexcept {
    return listed_->find(name);
  }

 private:
  friend class _kp_LOG_global_change;

  void take_names() noexcept;

  std::vector<owned_entry> owned_;
  _kp_LOG_listed_attributes::owner listed_;  // the same
};

// One change of the list: made beside it, seen by nobody until it is published. Other changes wait
// meanwhile. A failed allocation raises KPX_memory_alloc.
class _kp_LOG_global_change : kp_UTIL_no_inadvertant_copies {
 public:
  _kp_LOG_global_change();

  _kp_LOG_attribute_entry* find(const char* name) const noexcept;
  // As _kp_LOG_log_definition::add_global_attr_info.
  void add(const char* name, unsigned char type);
  bool remove(const _kp_LOG_attribute_entry* entry) noexcept;

  void publish();
  // The same while an error is on its way. Without memory the list stays as it was.
  void publish_what_can_be() noexcept;

 private:
  const std::lock_guard<std::mutex> hold_;
  std::vector<_kp_LOG_global_attributes::owned_entry> owned_;
};

#endif
