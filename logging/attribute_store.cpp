#include "logging/attribute_store.h"

#include <new>
#include <utility>

#include "logging/raise.h"

void _kp_LOG_attribute_store::ensure_place_left() {
  if (left_ != nullptr) return;
  if (next_ == end_) {
    block* const fresh = new (std::nothrow) block;
    if (fresh == nullptr) kp_log_raise_alloc();
    fresh->next = std::exchange(blocks_, fresh);
    next_ = fresh->places;
    end_ = fresh->places + places_per_block;
  }
  left_ = next_++;
  left_->next_left = nullptr;
}

// Copying the name may raise: the place is taken behind that.
_kp_LOG_attribute_store::attribute& _kp_LOG_attribute_store::find_or_insert_in(
    attribute*& head, const kp_String& name, uint32_t hash) {
  for (attribute* at = head; at != nullptr; at = at->next)
    if (at->hash == hash && at->name == name) return *at;
  kp_String copy(name);
  expect_memory();
  ensure_place_left();
  place* const taken = std::exchange(left_, left_->next_left);
  head = new (&taken->held) attribute(head, hash);
  head->name = std::move(copy);
  return *head;
}

void _kp_LOG_attribute_store::remove(attribute* held) noexcept {
  attribute** at = &chains_[chain_of(held->hash)];
  while (*at != held) at = &(*at)->next;
  *at = held->next;
  destroy(*held);
  auto* const left = reinterpret_cast<place*>(held);
  left->next_left = left_;
  left_ = left;
}

void _kp_LOG_attribute_store::destroy_all() noexcept {
  for_each([](attribute& held) { destroy(held); });
  while (blocks_ != nullptr) delete std::exchange(blocks_, blocks_->next);
  end_ = inside_ + places_per_block;
  may_hold_memory_ = false;
}
