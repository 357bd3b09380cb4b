// kp_MISC_hash_tbl: the chained hash table of the library.
#ifndef KP_LOG_HASH_TBL_H
#define KP_LOG_HASH_TBL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "base/kp_exception.h"
#include "base/kp_hash.h"
#include "base/kp_nocopy.h"

// Buckets of doubly linked chains, new nodes at the head. The bucket of a key is
// KP_hash(key, bucket count); keys compare with ==. A table with no buckets is empty, and the first
// insertion sizes it. The table owns its nodes, keys and values; what a pointer value points to is
// its user's.
// Up to 7 buckets live inside the table, and nodes are allocated in blocks of about 1,000 bytes, so
// that a table of a handful of keys costs one allocation. Not synchronised.
// A failed allocation raises KPX_memory_alloc (no message) and leaves the table usable.
template <class K, class V>
class kp_MISC_hash_tbl : kp_UTIL_no_inadvertant_copies {
 public:
  struct node {
    template <class... Key>
    explicit node(V its_value, Key&&... its_key)
        : key(std::forward<Key>(its_key)...), value(std::move(its_value)) {}

    node* previous = nullptr;  // null: the head of its chain
    node* next = nullptr;      // null: the end of its chain
    K key;
    V value;
  };

  kp_MISC_hash_tbl() noexcept = default;
  explicit kp_MISC_hash_tbl(unsigned size) { set_size(size); }
  ~kp_MISC_hash_tbl() { release(); }

  // Frees every node, then makes KP_recommended_hash_size(size) empty buckets, never none. When
  // that fails the table is left empty and without buckets.
  void set_size(unsigned size);
  // Frees every node; the buckets stay.
  void clear() noexcept;

  unsigned bucket_count() const noexcept { return bucket_count_; }
  unsigned size() const noexcept { return size_; }  // nodes held

  // The node of `key`, or null. Valid until the node is removed or the table cleared.
  node* find(const K& key) noexcept {
    return find_in(bucket_of(key), [&key](const K& held) { return held == key; });
  }
  const node* find(const K& key) const noexcept {
    return const_cast<kp_MISC_hash_tbl*>(this)->find(key);
  }
  // A new node at the head of its chain; the caller has made sure that `key` is not held.
  node& insert(const K& key, V value) {
    ensure_buckets();
    return link(new_node(std::move(value), key), bucket_of(key));
  }
  void remove(node* n) noexcept;

  // For kp_String keys whose KP_text_hash the caller knows: the same table, without hashing again
  // and without a kp_String to look up by. `matches` takes a held key and says whether it is the
  // one.
  template <class Matches>
  node* find_hashed(uint32_t hash, Matches&& matches) noexcept {
    return find_in(bucket_of_hash(hash), std::forward<Matches>(matches));
  }
  template <class Matches>
  const node* find_hashed(uint32_t hash, Matches&& matches) const noexcept {
    return const_cast<kp_MISC_hash_tbl*>(this)->find_hashed(hash, std::forward<Matches>(matches));
  }
  // The key is made in its place from the arguments behind the value.
  template <class... Key>
  node& insert_hashed(uint32_t hash, V value, Key&&... key) {
    ensure_buckets();
    return link(new_node(std::move(value), std::forward<Key>(key)...), bucket_of_hash(hash));
  }

  // The first node whose key `matches` takes, bucket by bucket, or null: for a table of a few keys,
  // which are looked through faster than one is hashed.
  template <class Matches>
  const node* find_if(Matches&& matches) const noexcept {
    for (unsigned b = 0; b < bucket_count_; ++b)
      for (const node* n = buckets_[b]; n != nullptr; n = n->next)
        if (matches(n->key)) return n;
    return nullptr;
  }

  // Calls f(node&) for every node, bucket by bucket from the head of each chain. `f` must not
  // change the table.
  template <class F>
  void for_each(F&& f) const {
    for (unsigned b = 0; b < bucket_count_; ++b)
      for (node* n = buckets_[b]; n != nullptr; n = n->next) f(*n);
  }

 private:
  static constexpr unsigned inline_buckets = 7;

  unsigned bucket_of(const K& key) const noexcept {
    return bucket_count_ == 0 ? 0 : KP_hash(key, bucket_count_);
  }
  unsigned bucket_of_hash(uint32_t hash) const noexcept {
    // The size of nearly every table: a division by a constant costs a fraction of any other one.
    if (bucket_count_ == inline_buckets) return hash % inline_buckets;
    return bucket_count_ == 0 ? 0 : hash % bucket_count_;
  }
  void ensure_buckets() {
    if (bucket_count_ == 0) set_size(0);
  }
  template <class Matches>
  node* find_in(unsigned bucket, Matches&& matches) noexcept;
  // Where a node stands; while none does, a link in the list of free places.
  union place {
    place* next_free;
    alignas(node) unsigned char bytes[sizeof(node)];
  };
  static constexpr size_t places_per_block = std::max<size_t>(1, 1000 / sizeof(place));
  struct block {
    block* next;
    place places[places_per_block];
  };

  template <class... Key>
  node* new_node(V value, Key&&... key);
  void free_node(node* n) noexcept;
  void ensure_free_place();
  node& link(node* n, unsigned bucket) noexcept;
  void release() noexcept;

  unsigned bucket_count_ = 0;
  unsigned size_ = 0;
  node** buckets_ = nullptr;  // null, inline_, or an owned array of bucket_count_
  place* free_ = nullptr;     // places of the blocks where no node stands
  block* blocks_ = nullptr;   // owned; the newest first
  node* inline_[inline_buckets] = {};
};

template <class K, class V>
void kp_MISC_hash_tbl<K, V>::set_size(unsigned size) {
  release();
  const unsigned count = KP_recommended_hash_size(size);
  if (count <= inline_buckets) {
    buckets_ = inline_;
    std::fill_n(inline_, inline_buckets, nullptr);
  } else {
    buckets_ = new (std::nothrow) node*[count]();
    if (buckets_ == nullptr) KP_raise_memory_alloc();
  }
  bucket_count_ = count;
}

template <class K, class V>
void kp_MISC_hash_tbl<K, V>::clear() noexcept {
  for (unsigned b = 0; size_ != 0; ++b) {
    while (node* head = buckets_[b]) {
      buckets_[b] = head->next;
      head->~node();
      --size_;
    }
  }
  free_ = nullptr;
  while (block* newest = blocks_) {
    blocks_ = newest->next;
    delete newest;
  }
}

template <class K, class V>
void kp_MISC_hash_tbl<K, V>::remove(node* n) noexcept {
  (n->previous != nullptr ? n->previous->next : buckets_[bucket_of(n->key)]) = n->next;
  if (n->next != nullptr) n->next->previous = n->previous;
  free_node(n);
  --size_;
}

template <class K, class V>
template <class Matches>
typename kp_MISC_hash_tbl<K, V>::node* kp_MISC_hash_tbl<K, V>::find_in(unsigned bucket,
                                                                       Matches&& matches) noexcept {
  if (bucket_count_ == 0) return nullptr;
  for (node* n = buckets_[bucket]; n != nullptr; n = n->next)
    if (matches(static_cast<const K&>(n->key))) return n;
  return nullptr;
}

// Making the key may raise; the place is then free again.
template <class K, class V>
template <class... Key>
typename kp_MISC_hash_tbl<K, V>::node* kp_MISC_hash_tbl<K, V>::new_node(V value, Key&&... key) {
  ensure_free_place();
  place* const taken = free_;
  struct free_again {
    ~free_again() {
      if (is_made) return;
      where->next_free = list;
      list = where;
    }
    place*& list;
    place* const where;
    bool is_made;
  } unless_made{free_, taken, false};
  free_ = taken->next_free;
  node* const made = new (taken->bytes) node(std::move(value), std::forward<Key>(key)...);
  unless_made.is_made = true;
  return made;
}

template <class K, class V>
void kp_MISC_hash_tbl<K, V>::free_node(node* n) noexcept {
  n->~node();
  place* const left = new (static_cast<void*>(n)) place;
  left->next_free = free_;
  free_ = left;
}

template <class K, class V>
void kp_MISC_hash_tbl<K, V>::ensure_free_place() {
  if (free_ != nullptr) return;
  block* const fresh = new (std::nothrow) block;
  if (fresh == nullptr) KP_raise_memory_alloc();
  fresh->next = blocks_;
  blocks_ = fresh;
  for (place& p : fresh->places) {
    p.next_free = free_;
    free_ = &p;
  }
}

template <class K, class V>
typename kp_MISC_hash_tbl<K, V>::node& kp_MISC_hash_tbl<K, V>::link(node* n,
                                                                    unsigned bucket) noexcept {
  n->next = buckets_[bucket];
  if (n->next != nullptr) n->next->previous = n;
  buckets_[bucket] = n;
  ++size_;
  return *n;
}

template <class K, class V>
void kp_MISC_hash_tbl<K, V>::release() noexcept {
  clear();
  if (buckets_ != inline_) delete[] buckets_;
  buckets_ = nullptr;
  bucket_count_ = 0;
}

#endif
