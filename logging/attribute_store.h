// The attributes that an entry holds: names and typed values.
#ifndef KP_LOG_ATTRIBUTE_STORE_H
#define KP_LOG_ATTRIBUTE_STORE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "base/kp_nocopy.h"
#include "base/kp_string.h"
#include "logging/attr_value.h"
#include "logging/hashed_name.h"

// Room for the value of one attribute of any type, the text of a short string included.
struct _kp_LOG_value_room {
  using largest_value = _kp_LOG_datatype<kp_String, TypeChar32>;
  alignas(largest_value) unsigned char bytes[sizeof(largest_value)];
};

// Seven chains of attributes, new ones at the head. The chain of a name is its KP_text_hash modulo
// seven, which is KP_recommended_hash_size(7); names compare exactly. The first eight attributes
// live inside the store, so that adding them allocates nothing but what longer names and texts
// need; further ones in blocks of eight. An attribute stays at its address until it is removed or
// the store is cleared. Owns the names and the values. Not synchronised.
class _kp_LOG_attribute_store : kp_UTIL_no_inadvertant_copies {
 public:
  struct attribute {
    attribute(attribute* its_next, uint32_t its_hash) noexcept : next(its_next), hash(its_hash) {}

    attribute* next;                     // null: the end of its chain
    uint32_t hash;                       // of the name
    kp_String name;                      //
    _kp_LOG_type_base* value = nullptr;  // in `room`, or on the heap when it came from outside
    _kp_LOG_value_room room;
  };

  _kp_LOG_attribute_store() noexcept {}  // NOLINT: the places are left as they are
  ~_kp_LOG_attribute_store() { clear(); }

  // The chain of the names with that hash.
  static constexpr unsigned chain_of(uint32_t hash) noexcept { return hash % n_chains; }

  // Null when no attribute has that name.
  attribute* find(const _kp_LOG_hashed_name& name) noexcept {
    return find(name, chain_of(name.hash));
  }
  attribute* find(const _kp_LOG_hashed_name& name, unsigned chain) noexcept {
    for (attribute* at = chains_[chain]; at != nullptr; at = at->next)
      if (at->hash == name.hash && name == at->name) return at;
    return nullptr;
  }
  const attribute* find(const _kp_LOG_hashed_name& name) const noexcept {
    return const_cast<_kp_LOG_attribute_store*>(this)->find(name);
  }
  const attribute* find(const _kp_LOG_hashed_name& name, unsigned chain) const noexcept {
    return const_cast<_kp_LOG_attribute_store*>(this)->find(name, chain);
  }

  // What nearly every addition comes to: no attribute has the hash, the name is short, and there is
  // a place that was never taken. Then the attribute of that name, whose hash and chain are given,
  // made without a value; to give it one is the caller's, before anything else is done with the
  // store. Else null.
  [[gnu::always_inline]] attribute* insert_at_once(const kp_String& name, uint32_t hash,
                                                   unsigned chain) noexcept {
    attribute*& head = chains_[chain];
    for (const attribute* at = head; at != nullptr; at = at->next)
      if (at->hash == hash) return nullptr;
    if (next_ == end_ || !name.is_short()) return nullptr;
    attribute* const made = new (&next_++->held) attribute(head, hash);
    made->name.set_short(name);
    return head = made;
  }
  // The same of whichever name and store; the attribute that has the name already, where one has.
  // Raises KPX_memory_alloc, the store being as it was.
  attribute& find_or_insert(const kp_String& name, uint32_t hash) {
    const unsigned chain = chain_of(hash);
    attribute* const made = insert_at_once(name, hash, chain);
    return made != nullptr ? *made : find_or_insert_in(chains_[chain], name, hash);
  }
  void remove(attribute* held) noexcept;
  // Says that a name or a value may hold memory of its own, or is about to: only then clearing has
  // to destroy what stands in the places. find_or_insert() says it of names and places itself.
  void expect_memory() noexcept { may_hold_memory_ = true; }
  void clear() noexcept {
    if (may_hold_memory_) destroy_all();
    std::fill_n(chains_, n_chains, nullptr);
    next_ = inside_;
    left_ = nullptr;
  }

  // Destroys the value alone, for another one to take its place.
  static void destroy_value(attribute& held) noexcept {
    if (static_cast<void*>(held.value) != static_cast<void*>(held.room.bytes))
      delete held.value;
    else if (is_text(held.value->get_type()))
      held.value->~_kp_LOG_type_base();
    held.value = nullptr;
  }

  // Calls f(attribute&) for every attribute, chain by chain from the head of each. `f` must not
  // change the store.
  template <class F>
  void for_each(F&& f) const {
    for (attribute* head : chains_)
      for (attribute* at = head; at != nullptr;) f(*std::exchange(at, at->next));
  }
  // The same in whichever order is the quickest.
  template <class F>
  void for_each_in_any_order(F&& f) const {
    if (blocks_ != nullptr || left_ != nullptr) return for_each(f);
    for (const place *at = inside_, *const end = next_; at != end; ++at) f(at->held);
  }

 private:
  static constexpr unsigned n_chains = 7;
  static constexpr unsigned places_per_block = 8;

  // Where an attribute stands; while none does, a link in the list of those that were left.
  union place {
    place() noexcept {}   // NOLINT: left as it is
    ~place() noexcept {}  // NOLINT: its user destroys what stands there
    place* next_left;
    attribute held;
  };
  struct block {
    block* next;
    place places[places_per_block];
  };

  // Numbers and times have nothing to give back.
  static bool is_text(unsigned char code) noexcept {
    return (code >= TypeChar32 && code <= TypeMBChar2K) || code == TypeGUID;
  }
  attribute& find_or_insert_in(attribute*& head, const kp_String& name, uint32_t hash);
  void ensure_place_left();
  static void destroy(attribute& held) noexcept {
    destroy_value(held);
    held.~attribute();
  }
  void destroy_all() noexcept;

  attribute* chains_[n_chains] = {};
  place* next_ = inside_;                    // of the newest block: the first never taken
  place* end_ = inside_ + places_per_block;  // of the newest block
  place* left_ = nullptr;                    // places that attributes have left
  block* blocks_ = nullptr;                  // owned; the newest first
  bool may_hold_memory_ = false;
  place inside_[places_per_block];
};

#endif
