#include "logging/log_definition_globals.h"

#include <algorithm>
#include <utility>

#include "logging/ldf_format.h"
#include "logging/raise.h"
#include "logging/settings.h"

using global_snapshot = kp_log_snapshot<_kp_LOG_global_attributes>;

// ---- a published list ----

_kp_LOG_global_attributes::_kp_LOG_global_attributes(const std::vector<owned_entry>& owned)
    : owned_(owned), listed_(_kp_LOG_listed_attributes::make(static_cast<unsigned>(owned.size()))) {
  for (const owned_entry& entry : owned_) listed_->append(entry.get());
}

// An attribute that is renamed tells the list that took it last.
void _kp_LOG_global_attributes::take_names() noexcept {
  for (const owned_entry& entry : owned_) entry->listed_in_ = listed_.get();
}

_kp_LOG_global_attributes* _kp_LOG_global_attributes::current() noexcept {
  return kp_log_settings::current().global_attributes.get();
}

// ---- a change ----

static constinit std::mutex globals_lock;

_kp_LOG_global_change::_kp_LOG_global_change() : hold_(globals_lock) {
  const _kp_LOG_global_attributes* const now = _kp_LOG_global_attributes::current();
  if (now != nullptr) kp_log_no_bad_alloc([&] { owned_ = now->owned_; });
}

_kp_LOG_attribute_entry* _kp_LOG_global_change::find(const char* name) const noexcept {
  const _kp_LOG_name_key wanted(name);
  for (const auto& entry : owned_)
    if (wanted == entry->name_key_) return entry.get();
  return nullptr;
}

void _kp_LOG_global_change::add(const char* name, unsigned char type) {
  // The name may be that of the attribute that it replaces, which the current list keeps alive.
  if (const _kp_LOG_attribute_entry* const held = find(name != nullptr ? name : "")) remove(held);
  if (owned_.size() == kp_ldf_max_count) kp_log_raise_corrupted_definition();
  kp_log_no_bad_alloc(
      [&] { owned_.push_back(std::make_shared<_kp_LOG_attribute_entry>(name, nullptr, type)); });
}

bool _kp_LOG_global_change::remove(const _kp_LOG_attribute_entry* entry) noexcept {
  return std::erase_if(owned_, [entry](const auto& held) { return held.get() == entry; }) != 0;
}

static void publish_list(std::unique_ptr<global_snapshot::holder> next) noexcept {
  _kp_LOG_global_attributes* const list = next != nullptr ? &next->value : nullptr;
  _kp_LOG_attribute_entry** const entries = list != nullptr ? list->entries() : nullptr;
  const unsigned n = list != nullptr ? list->size() : 0;
  kp_log_settings& settings = kp_log_settings::current();
  settings.global_attributes.publish(std::move(next));
  if (!settings.is_of_process()) return;
  kp_store(_kp_LOG_log_definition::p_global_attr_entries, entries);
  kp_store(_kp_LOG_log_definition::n_global_attr_entries, static_cast<unsigned char>(n));
}

void _kp_LOG_global_attributes::clear() noexcept {
  const std::lock_guard<std::mutex> hold(globals_lock);
  publish_list(nullptr);
}

void _kp_LOG_global_change::publish() {
  std::unique_ptr<global_snapshot::holder> next;
  if (!owned_.empty())
    kp_log_no_bad_alloc([&] { next = global_snapshot::make(std::as_const(owned_)); });
  if (next != nullptr) next->value.take_names();
  publish_list(std::move(next));
}

void _kp_LOG_global_change::publish_what_can_be() noexcept {
  try {
    publish();
  } catch (const KPX_memory_alloc&) {
    return;  // the error that is on its way tells enough
  }
}
