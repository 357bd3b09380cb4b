// What the files of the entry share: its errors, and the classes of typed values.
#ifndef KP_LOG_LOGENTRY_I_PRIVATE_H
#define KP_LOG_LOGENTRY_I_PRIVATE_H

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "kp_LOG_errors.h"
#include "logging/log_definition_list.h"
#include "logging/logentry_i.h"
#include "logging/raise.h"

// The name by which debug lines tell where they come from.
constexpr char kp_log_entry_source[] = "logging/logentry_i";

// --- Errors -------------------------------------------------------------------------------------

// Raises Error with `head`, `text` and the entry's ID as one text.
template <class Error>
[[noreturn]] void kp_log_raise_under_id(const char* head, const char* text, unsigned entry_id,
                                        kp_log_told = {}) {
  char digits[16];
  my_itoa(digits, static_cast<int>(entry_id));
  kp_log_raise<Error>({head, text, " under Entry ID ", digits, " !"});
}

[[noreturn]] inline void kp_log_raise_undeclared(const char* name, unsigned entry_id,
                                                 kp_log_told = {}) {
  kp_log_raise_under_id<KPX_logging_invalid_attribute_name>(name, "is an invalid attibute",
                                                            entry_id);
}

[[noreturn]] void kp_log_raise_without_definition();

inline bool kp_log_is_blank(const char* text) {
  return text == nullptr || *text == '\0';
}

inline void kp_log_require_name(const char* name) {
  if (kp_log_is_blank(name)) kp_log_raise_invalid_argument();
}

// --- Classes of values --------------------------------------------------------------------------

// The class of the values of one type code.
template <class T, unsigned char code>
struct _kp_LOG_value_class {
  using value_type = T;
  using datatype = _kp_LOG_datatype<T, code>;
};

// Calls f(_kp_LOG_value_class<...>()) for the class of that code; false when there is none.
template <class F>
[[gnu::always_inline]] inline bool kp_log_with_class(unsigned char code, F&& f) {
#define KP_LOG_CALL_WITH_CLASS(type, T) \
  case type:                            \
    f(_kp_LOG_value_class<T, type>());  \
    return true;
  switch (code) {
    KP_LOG_EACH_ATTRIBUTE_TYPE(KP_LOG_CALL_WITH_CLASS)
    default:
      return false;
  }
#undef KP_LOG_CALL_WITH_CLASS
}

// Makes the value of that code, of its C++ type T, in `room` of the parts. The code must be one of
// T's.
template <class T, class... Parts>
[[gnu::always_inline]] inline _kp_LOG_type_base* kp_log_make_value(_kp_LOG_value_room& room,
                                                                   unsigned char code,
                                                                   Parts&&... parts) noexcept {
  _kp_LOG_type_base* made = nullptr;
  kp_log_with_class(code, [&](auto value_class) {
    using datatype = typename decltype(value_class)::datatype;
    static_assert(sizeof(datatype) <= sizeof(room.bytes));
    static_assert(alignof(datatype) <= alignof(_kp_LOG_value_room));
    if constexpr (std::is_same_v<typename decltype(value_class)::value_type, T>)
      made = new (room.bytes) datatype(std::in_place, std::forward<Parts>(parts)...);
  });
  return made;
}

// The value inside; T is the C++ type behind its code.
template <class T>
const T& kp_log_value_in(const _kp_LOG_type_base& held) noexcept {
  return static_cast<const _kp_LOG_value_holder<T>&>(held).value;
}

template <class T>
T& kp_log_value_in(_kp_LOG_type_base& held) noexcept {
  return static_cast<_kp_LOG_value_holder<T>&>(held).value;
}

// --- Looking up ---------------------------------------------------------------------------------

[[gnu::always_inline]] inline const _kp_LOG_attribute_entry* _kp_LOG_log_entry_imp::_declared(
    const char* name) const {
  if (!definition_) kp_log_raise_without_definition();
  return _kp_LOG_declared_attributes::find(*definition_.get(), name);
}

[[gnu::always_inline]] inline const _kp_LOG_attribute_entry* _kp_LOG_log_entry_imp::_declared_at(
    const kp_LOG_AttributeKey& key) const noexcept {
  return definition_ ? _kp_LOG_declared_attributes::at(*definition_.get(), key) : nullptr;
}

// --- Storing ------------------------------------------------------------------------------------

[[gnu::always_inline]] inline _kp_LOG_log_entry_imp::held_attribute*
_kp_LOG_log_entry_imp::_inserted(const _kp_LOG_attribute_entry& declared) noexcept {
  return attributes_.insert_at_once(declared.get_name_string(), declared.get_name_hash(),
                                    declared.get_name_chain());
}

// `value` is complete before the store is touched, and moves in: after the place is there nothing
// fails. Out of line, so that nothing is saved for it on the way of _store_number.
template <class T>
[[gnu::noinline]] void _kp_LOG_log_entry_imp::_store(const _kp_LOG_attribute_entry& declared,
                                                     unsigned char code, T value) {
  static_assert(std::is_nothrow_move_constructible_v<T> && std::is_nothrow_move_assignable_v<T>);
  modified_ = true;
  if constexpr (!std::is_trivially_destructible_v<T>) attributes_.expect_memory();
  held_attribute& held =
      attributes_.find_or_insert(declared.get_name_string(), declared.get_name_hash());
  if (held.value != nullptr && held.value->get_type() == code) {
    kp_log_value_in<T>(*held.value) = std::move(value);
    return;
  }
  if (held.value != nullptr) _kp_LOG_attribute_store::destroy_value(held);
  held.value = kp_log_make_value<T>(held.room, code, std::move(value));
}

template <class T>
[[gnu::always_inline]] inline void _kp_LOG_log_entry_imp::_store_number(
    const _kp_LOG_attribute_entry& declared, unsigned char code, T value) {
  held_attribute* const fresh = _inserted(declared);
  if (fresh == nullptr) return _store(declared, code, value);
  modified_ = true;
  fresh->value = kp_log_make_value<T>(fresh->room, code, value);
}

#endif
