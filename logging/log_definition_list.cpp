#include <algorithm>
#include <new>

#include "logging/ldf_format.h"
#include "logging/log_definition.h"
#include "logging/raise.h"

// The arrays of a list, in one allocation: this header, the attributes, their hashes.
struct _kp_LOG_attribute_list::block {
  block(unsigned its_capacity, block* its_outgrown) noexcept
      : capacity(its_capacity), outgrown(its_outgrown) {}

  static block* make(unsigned capacity, block* outgrown);
  static void destroy(block* b) noexcept;

  _kp_LOG_attribute_entry** entries() noexcept {
    return reinterpret_cast<_kp_LOG_attribute_entry**>(this + 1);
  }
  unsigned* hashes() noexcept { return reinterpret_cast<unsigned*>(entries() + capacity); }
  unsigned size() const noexcept { return count.load(std::memory_order_acquire); }
  void put(unsigned i, _kp_LOG_attribute_entry* entry) noexcept {
    entries()[i] = entry;
    hashes()[i] = entry->name_hash_;
    entry->listed_hash_ = &hashes()[i];
  }

  const unsigned capacity;
  std::atomic<unsigned> count{0};  // stored behind the attribute that it begins to count
  block* outgrown;                 // the smaller block that this one replaced, or null
};

_kp_LOG_attribute_list::block* _kp_LOG_attribute_list::block::make(unsigned capacity,
                                                                   block* outgrown) {
  const size_t element = sizeof(void*) + sizeof(unsigned);  // an attribute, its hash
  void* const room = ::operator new(sizeof(block) + capacity * element, std::nothrow);
  if (room == nullptr) kp_log_raise_alloc();
  return new (room) block(capacity, outgrown);
}

void _kp_LOG_attribute_list::block::destroy(block* b) noexcept {
  b->~block();
  ::operator delete(b);
}

unsigned char _kp_LOG_attribute_list::size() const noexcept {
  const block* const b = block_.load(std::memory_order_acquire);
  return b != nullptr ? static_cast<unsigned char>(b->size()) : 0;
}

_kp_LOG_attribute_entry** _kp_LOG_attribute_list::entries() const noexcept {
  block* const b = block_.load(std::memory_order_acquire);
  return b != nullptr && b->size() != 0 ? b->entries() : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_attribute_list::at(unsigned char i) const noexcept {
  block* const b = block_.load(std::memory_order_acquire);
  return b != nullptr && i < b->size() ? b->entries()[i] : nullptr;
}

_kp_LOG_attribute_entry* _kp_LOG_attribute_list::find(
    const _kp_LOG_hashed_name& name) const noexcept {
  block* const b = block_.load(std::memory_order_acquire);
  if (b == nullptr) return nullptr;
  const unsigned n = b->size();
  const unsigned* const hashes = b->hashes();
  for (unsigned i = 0; i < n; ++i)
    if (hashes[i] == name.hash && name == b->entries()[i]->name_) return b->entries()[i];
  return nullptr;
}

void _kp_LOG_attribute_list::reserve(unsigned count) {
  block* const old = block_.load(std::memory_order_relaxed);
  const unsigned capacity = std::min(count, kp_ldf_max_count);
  if (capacity <= (old != nullptr ? old->capacity : 0)) return;
  block* const grown = block::make(capacity, old);
  const unsigned n = old != nullptr ? old->size() : 0;
  for (unsigned i = 0; i < n; ++i) grown->put(i, old->entries()[i]);
  grown->count.store(n, std::memory_order_relaxed);
  block_.store(grown, std::memory_order_release);
}

void _kp_LOG_attribute_list::append(std::unique_ptr<_kp_LOG_attribute_entry>&& entry) {
  const unsigned n = size();
  if (n == kp_ldf_max_count) kp_log_raise_corrupted_definition();
  const block* const old = block_.load(std::memory_order_relaxed);
  if (old == nullptr || n == old->capacity) reserve(std::max(2 * n, 8U));
  block* const b = block_.load(std::memory_order_relaxed);
  b->put(n, entry.release());
  b->count.store(n + 1, std::memory_order_release);
}

std::unique_ptr<_kp_LOG_attribute_entry> _kp_LOG_attribute_list::take(
    const _kp_LOG_attribute_entry* entry) noexcept {
  block* const b = block_.load(std::memory_order_relaxed);
  if (b == nullptr) return nullptr;
  _kp_LOG_attribute_entry** const end = b->entries() + b->size();
  _kp_LOG_attribute_entry** const place = std::find(b->entries(), end, entry);
  if (place == end) return nullptr;
  std::unique_ptr<_kp_LOG_attribute_entry> taken(*place);
  taken->listed_hash_ = nullptr;
  const auto last = static_cast<unsigned>(end - b->entries()) - 1;
  for (auto i = static_cast<unsigned>(place - b->entries()); i < last; ++i)
    b->put(i, b->entries()[i + 1]);
  b->count.store(last, std::memory_order_release);
  return taken;
}

void _kp_LOG_attribute_list::clear() noexcept {
  block* b = block_.exchange(nullptr, std::memory_order_acq_rel);
  const unsigned n = b != nullptr ? b->size() : 0;
  for (unsigned i = 0; i < n; ++i) delete b->entries()[i];
  while (b != nullptr) {
    block* const outgrown = b->outgrown;
    block::destroy(b);
    b = outgrown;
  }
}

void _kp_LOG_attribute_list::exchange(_kp_LOG_attribute_list& other) noexcept {
  block* const others = other.block_.load(std::memory_order_relaxed);
  other.block_.store(block_.exchange(others, std::memory_order_acq_rel), std::memory_order_relaxed);
}
