#include "logging/log_definition_list.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <new>
#include <utility>

#include "logging/ldf_format.h"
#include "logging/raise.h"

// ---- attributes in a row ----

static_assert(kp_ldf_max_count <= 0xFF);  // a place from 1 fits into a byte

_kp_LOG_listed_attributes::_kp_LOG_listed_attributes(unsigned capacity, unsigned slot_bits) noexcept
    : capacity_(capacity), slot_mask_((1U << slot_bits) - 1), slot_shift_(64 - slot_bits) {
  std::uninitialized_value_construct_n(slots(), slot_mask_ + 1);
}

_kp_LOG_listed_attributes* _kp_LOG_listed_attributes::make(unsigned capacity) {
  const auto slot_bits = static_cast<unsigned>(std::bit_width(std::max(2 * capacity, 8U) - 1));
  const size_t bytes =
      sizeof(_kp_LOG_listed_attributes) + capacity * sizeof(void*) + (sizeof(slot) << slot_bits);
  void* const room = ::operator new(bytes, std::nothrow);
  if (room == nullptr) kp_log_raise_alloc();
  return new (room) _kp_LOG_listed_attributes(capacity, slot_bits);
}

void _kp_LOG_listed_attributes::destroy(_kp_LOG_listed_attributes* listed) noexcept {
  listed->~_kp_LOG_listed_attributes();
  ::operator delete(listed);
}

void _kp_LOG_listed_attributes::index(unsigned place) noexcept {
  unsigned i = first_slot(entries()[place]->name_key_.mixed);
  while (slots()[i].load(std::memory_order_relaxed) != 0) i = (i + 1) & slot_mask_;
  slots()[i].store(static_cast<uint8_t>(place + 1), std::memory_order_relaxed);
}

void _kp_LOG_listed_attributes::append(_kp_LOG_attribute_entry* entry) noexcept {
  const unsigned place = count_.load(std::memory_order_relaxed);
  entries()[place] = entry;
  index(place);
  count_.store(place + 1, std::memory_order_release);
}

void _kp_LOG_listed_attributes::remove(unsigned place) noexcept {
  _kp_LOG_attribute_entry** const end = entries() + size();
  std::copy(entries() + place + 1, end, entries() + place);
  count_.store(size() - 1, std::memory_order_release);
  index_anew();
}

void _kp_LOG_listed_attributes::index_anew() noexcept {
  identity_.renew();
  for (unsigned i = 0; i <= slot_mask_; ++i) slots()[i].store(0, std::memory_order_relaxed);
  const unsigned n = size();
  for (unsigned place = 0; place < n; ++place) index(place);
}

// ---- a list that owns them ----

unsigned char _kp_LOG_attribute_list::size() const noexcept {
  const _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_acquire);
  return listed != nullptr ? static_cast<unsigned char>(listed->size()) : 0;
}

uint64_t _kp_LOG_attribute_list::identity() const noexcept {
  const _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_acquire);
  return listed != nullptr ? listed->identity() : 0;
}

_kp_LOG_attribute_entry** _kp_LOG_attribute_list::entries() const noexcept {
  _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_acquire);
  return listed != nullptr && listed->size() != 0 ? listed->entries() : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_attribute_list::at(unsigned char i) const noexcept {
  _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_acquire);
  return listed != nullptr && i < listed->size() ? listed->entries()[i] : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_attribute_list::find(const _kp_LOG_name_key& name) const noexcept {
  _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_acquire);
  return listed != nullptr ? listed->find(name) : nullptr;
}

void _kp_LOG_attribute_list::reserve(unsigned count) {
  _kp_LOG_listed_attributes* const old = listed_.load(std::memory_order_relaxed);
  const unsigned capacity = std::min(count, kp_ldf_max_count);
  if (capacity <= (old != nullptr ? old->capacity() : 0)) return;
  _kp_LOG_listed_attributes* const grown = _kp_LOG_listed_attributes::make(capacity);
  grown->outgrown = old;
  grown->was_renamed = old != nullptr && old->was_renamed;
  const unsigned n = old != nullptr ? old->size() : 0;
  for (unsigned i = 0; i < n; ++i) put(*grown, old->entries()[i]);
  listed_.store(grown, std::memory_order_release);
}

void _kp_LOG_attribute_list::put(_kp_LOG_listed_attributes& listed,
                                 _kp_LOG_attribute_entry* entry) noexcept {
  entry->listed_in_ = &listed;
  listed.append(entry);
}

void _kp_LOG_attribute_list::append(std::unique_ptr<_kp_LOG_attribute_entry>&& entry) {
  const unsigned n = size();
  if (n == kp_ldf_max_count) kp_log_raise_corrupted_definition();
  const _kp_LOG_listed_attributes* const old = listed_.load(std::memory_order_relaxed);
  if (old == nullptr || n == old->capacity()) reserve(std::max(2 * n, 8U));
  put(*listed_.load(std::memory_order_relaxed), entry.release());
}

std::unique_ptr<_kp_LOG_attribute_entry> _kp_LOG_attribute_list::take(
    const _kp_LOG_attribute_entry* entry) noexcept {
  _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_relaxed);
  if (listed == nullptr) return nullptr;
  _kp_LOG_attribute_entry** const first = listed->entries();
  _kp_LOG_attribute_entry** const place = std::find(first, first + listed->size(), entry);
  if (place == first + listed->size()) return nullptr;
  std::unique_ptr<_kp_LOG_attribute_entry> taken(*place);
  taken->listed_in_ = nullptr;
  listed->remove(static_cast<unsigned>(place - first));
  return taken;
}

void _kp_LOG_attribute_list::clear() noexcept {
  _kp_LOG_listed_attributes* listed = listed_.exchange(nullptr, std::memory_order_acq_rel);
  const unsigned n = listed != nullptr ? listed->size() : 0;
  for (unsigned i = 0; i < n; ++i) delete listed->entries()[i];
  while (listed != nullptr)
    _kp_LOG_listed_attributes::destroy(std::exchange(listed, listed->outgrown));
}

void _kp_LOG_attribute_list::exchange(_kp_LOG_attribute_list& other) noexcept {
  _kp_LOG_listed_attributes* const others = other.listed_.load(std::memory_order_relaxed);
  other.listed_.store(listed_.exchange(others, std::memory_order_acq_rel),
                      std::memory_order_relaxed);
}

bool _kp_LOG_attribute_list::was_renamed() const noexcept {
  const _kp_LOG_listed_attributes* const listed = listed_.load(std::memory_order_acquire);
  return listed != nullptr && listed->was_renamed;
}
