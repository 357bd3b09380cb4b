// _kp_LOG_listed_attributes: attributes in a row, found by their names.
#ifndef KP_LOG_LOG_DEFINITION_LIST_H
#define KP_LOG_LOG_DEFINITION_LIST_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/kp_nocopy.h"
#include "kp_LOG_AttributeKey.h"
#include "logging/hashed_name.h"
#include "logging/log_definition.h"

// Up to `capacity` attributes in the order in which they were put, and an index of their names, in
// one allocation. Does not own the attributes. A look-up probes the index where the name's words
// lead to, with at most half of its slots taken, and compares one name as a rule; of attributes
// with one name it finds the first.
//
// While one thread appends, any number of others may look up: each sees the new attribute or not.
// Everything else that changes it needs it alone.
class _kp_LOG_listed_attributes : kp_UTIL_no_inadvertant_copies {
 public:
  struct destroyer {
    void operator()(_kp_LOG_listed_attributes* listed) const noexcept { destroy(listed); }
  };
  using owner = std::unique_ptr<_kp_LOG_listed_attributes, destroyer>;

  // Raises KPX_memory_alloc.
  static _kp_LOG_listed_attributes* make(unsigned capacity);
  static void destroy(_kp_LOG_listed_attributes* listed) noexcept;

  unsigned capacity() const noexcept { return capacity_; }
  unsigned size() const noexcept { return count_.load(std::memory_order_acquire); }
  _kp_LOG_attribute_entry** entries() noexcept {
    return reinterpret_cast<_kp_LOG_attribute_entry**>(this + 1);
  }
  _kp_LOG_attribute_entry* find(const _kp_LOG_name_key& name) noexcept;
  // The same for a name of up to 16 bytes.
  _kp_LOG_attribute_entry* find(const _kp_LOG_name_words& name) noexcept;

  // Puts an attribute behind the others; there is room for it.
  void append(_kp_LOG_attribute_entry* entry) noexcept;
  // Takes the attribute at `place` out; later ones move down.
  void remove(unsigned place) noexcept;
  // Behind a change of an attribute's name.
  void index_anew() noexcept;
  // Another number when a name that was found is found no longer, or finds another attribute.
  uint64_t identity() const noexcept { return identity_.number(); }

  _kp_LOG_listed_attributes* outgrown = nullptr;  // its user's: the smaller one it replaced
  bool was_renamed = false;                       // whether a text of an attribute was set

 private:
  using slot = std::atomic<uint8_t>;  // the place of an attribute from 1; 0: none

  _kp_LOG_listed_attributes(unsigned capacity, unsigned slot_bits) noexcept;

  slot* slots() noexcept { return reinterpret_cast<slot*>(entries() + capacity_); }
  // Where the look-up of a name begins.
  unsigned first_slot(uint64_t mixed) const noexcept {
    return static_cast<unsigned>(mixed >> slot_shift_);
  }
  template <class Is>
  _kp_LOG_attribute_entry* find_from(uint64_t mixed, Is&& is) noexcept;
  void index(unsigned place) noexcept;

  kp_log_identity identity_;
  const unsigned capacity_;
  const unsigned slot_mask_;        // slots, a power of two, less one
  const unsigned slot_shift_;       // 64 less their bits
  std::atomic<unsigned> count_{0};  // stored behind the attribute that it begins to count
};

// A slot that a thread reads before it is counted tells of an attribute that the thread does not
// see yet: there the look-up ends as at an empty one, because what is put behind it is newer still.
template <class Is>
[[gnu::always_inline]] inline _kp_LOG_attribute_entry* _kp_LOG_listed_attributes::find_from(
    uint64_t mixed, Is&& is) noexcept {
  const unsigned n = size();
  const slot* const all = slots();
  for (unsigned i = first_slot(mixed);; i = (i + 1) & slot_mask_) {
    const unsigned place = all[i].load(std::memory_order_relaxed) - 1U;
    if (place >= n) return nullptr;
    _kp_LOG_attribute_entry* const entry = entries()[place];
    if (is(entry->name_key_)) return entry;
  }
}

inline _kp_LOG_attribute_entry* _kp_LOG_listed_attributes::find(
    const _kp_LOG_name_key& name) noexcept {
  return find_from(name.mixed, [&](const _kp_LOG_name_key& held) { return held == name; });
}

[[gnu::always_inline]] inline _kp_LOG_attribute_entry* _kp_LOG_listed_attributes::find(
    const _kp_LOG_name_words& name) noexcept {
  return find_from(name.mixed(), [&](const _kp_LOG_name_key& held) { return held.words == name; });
}

// What a definition declares, looked up in line: every addition to an entry does it.
class _kp_LOG_declared_attributes {
 public:
  // The definition's own attribute, else the global one, else null.
  [[gnu::always_inline]] static _kp_LOG_attribute_entry* find(
      const _kp_LOG_log_definition& definition, const char* name) noexcept {
    auto* const listed = definition.attributes_.listed_.load(std::memory_order_acquire);
    const size_t length = std::strlen(name);
    if (listed != nullptr && length <= _kp_LOG_name_words::longest)
      if (auto* const own = listed->find(_kp_LOG_name_words(name, length))) return own;
    return find_long_or_global(definition, name);
  }
  static _kp_LOG_attribute_entry* find_global(const _kp_LOG_name_key& name) noexcept;
  // The own attribute at the key's number; null where another one stands there, or none.
  [[gnu::always_inline]] static const _kp_LOG_attribute_entry* at(
      const _kp_LOG_log_definition& definition, const kp_LOG_AttributeKey& key) noexcept {
    auto* const listed = definition.attributes_.listed_.load(std::memory_order_acquire);
    // No name is empty; of two attributes with one name, as renaming makes them, the first counts.
    if (listed == nullptr || key.number() >= listed->size() || key.length() == 0 ||
        listed->was_renamed)
      return nullptr;
    const _kp_LOG_attribute_entry* const entry = listed->entries()[key.number()];
    const _kp_LOG_name_key& name = entry->get_name_key();
    if (!(name.words == key.words())) return nullptr;
    // What stands between the ends of a long one, without a call, so that nothing is saved for it.
    for (size_t at = 8; at + 8 < key.length(); at += 8)
      if (KP_word_at<uint64_t>(name.text + at) != KP_word_at<uint64_t>(key.name() + at))
        return nullptr;
    return entry;
  }

 private:
  static _kp_LOG_attribute_entry* find_long_or_global(const _kp_LOG_log_definition& definition,
                                                      const char* name) noexcept;
};

#endif
