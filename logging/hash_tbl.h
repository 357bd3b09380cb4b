// kp_MISC_hash_tbl: the chained hash table of the library.
#ifndef KP_LOG_HASH_TBL_H
#define KP_LOG_HASH_TBL_H

#include <cstddef>
#include <new>
#include <utility>

#include "base/kp_exception.h"
#include "base/kp_hash.h"
#include "base/kp_nocopy.h"

// The default extra room of a node: none.
struct kp_MISC_no_room {};

// Buckets of doubly linked chains, new nodes at the head. The bucket of a key is
// KP_hash(key, bucket count); keys compare with ==. A table with no buckets is empty, and the first
// insertion sizes it. The table owns its nodes, keys and values; what a pointer value points to is
// its user's. `Room` is a user's extra field of every node, default-constructed with it.
// Not synchronised. A failed allocation raises KPX_memory_alloc (no message).
template <class K, class V, class Room = kp_MISC_no_room>
class kp_MISC_hash_tbl : kp_UTIL_no_inadvertant_copies {
 public:
  struct node {
    node* previous;  // null: the head of its chain
    node* next;      // null: the end of its chain
    K key;
    V value;
    [[no_unique_address]] Room room;
  };

  kp_MISC_hash_tbl() noexcept = default;
  explicit kp_MISC_hash_tbl(unsigned size) { set_size(size); }
  ~kp_MISC_hash_tbl();

  // Frees every node, then allocates KP_recommended_hash_size(size) empty buckets. When that fails
  // the table is left without buckets.
  void set_size(unsigned size);
  // Frees every node; the buckets stay.
  void clear() noexcept;

  unsigned bucket_count() const noexcept { return bucket_count_; }
  unsigned size() const noexcept { return size_; }  // nodes held

  // The node of `key`, or null. Valid until the node is removed or the table cleared.
  node* find(const K& key) noexcept { return find_in(bucket_of(key), key); }
  const node* find(const K& key) const noexcept {
    return const_cast<kp_MISC_hash_tbl*>(this)->find(key);
  }
  // A new node at the head of its chain; the caller has made sure that `key` is not held.
  node& insert(const K& key, V value);
  void remove(node* n) noexcept;

  // Calls f(node&) for every node, bucket by bucket from the head of each chain. `f` must not change
  // the table.
  template <class F>
  void for_each(F&& f) const {
    for (unsigned b = 0; b < bucket_count_; ++b)
      for (node* n = buckets_[b]; n != nullptr; n = n->next) f(*n);
  }

 private:
  unsigned bucket_of(const K& key) const noexcept {
    return bucket_count_ == 0 ? 0 : KP_hash(key, bucket_count_);
  }
  node* find_in(unsigned bucket, const K& key) noexcept;

  static constexpr unsigned inline_buckets = 7;

  unsigned bucket_count_ = 0;
  unsigned size_ = 0;
  node** buckets_ = nullptr;  // null, inline_, or an owned array of bucket_count_
  node* inline_[inline_buckets] = {};
};

#endif
