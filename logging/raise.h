// How the library raises its errors, and how it touches its exported plain variables.
#ifndef KP_RAISE_H
#define KP_RAISE_H

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "base/kp_exception.h"
#include "base/kp_string.h"
#include "kp_LOG_errors.h"

// A line of level 1 in the debug log, or none: the last argument of what raises an error, which it
// tells about before the error is made.
struct kp_log_told {
  kp_log_told() = default;
  [[gnu::format(printf, 2, 3)]] explicit kp_log_told(const char* format, ...) noexcept;
};

// Raises Error with that text.
template <class Error>
[[noreturn]] inline void kp_log_raise(const char* text, kp_log_told = {}) {
  throw Error(text, 0);
}

// Raises Error with the pieces as one text; a null piece counts as "". Raises KPX_memory_alloc
// instead when there is no memory for the text.
template <class Error>
[[noreturn]] inline void kp_log_raise(std::initializer_list<const char*> pieces, kp_log_told = {}) {
  kp_String text;
  for (const char* piece : pieces) text.append(piece);
  throw Error(text.c_str(), 0);
}

[[noreturn]] inline void kp_log_raise_invalid_argument(kp_log_told = {}) {
  kp_log_raise<KPX_logging_illegal_argument>("invalid argument");
}

// A record of a definition file is not the one it should be, or holds more than it may.
[[noreturn]] inline void kp_log_raise_corrupted_definition() {
  kp_log_raise<KPX_logging_invalid_definition>(
      "<KPX_logging_invalid_definition> The definition file is corrupted.");
}

// A definition file that was opened cannot be read.
[[noreturn]] inline void kp_log_raise_unreadable_definition(kp_log_told = {}) {
  kp_log_raise<KPX_logging_invalid_definition>(
      "<KPX_logging_invalid_definition> Unable to access definition file successfully.");
}

// Raises KPX_memory_alloc, which carries no text.
[[noreturn]] inline void kp_log_raise_alloc() {
  KP_raise_memory_alloc();
}

// A text's length as a kp_String takes it. A text that is too long for any counts as a failed
// allocation: cut to 32 bits its length would be another text's.
inline unsigned kp_log_string_length(size_t length) {
  if (length >= std::numeric_limits<unsigned>::max()) kp_log_raise_alloc();
  return static_cast<unsigned>(length);
}

// The result of f(); what the standard library raises for a failed allocation becomes
// KPX_memory_alloc. Public entries that use standard containers or strings run inside it.
template <class F>
inline decltype(auto) kp_log_no_bad_alloc(F&& f) {
  try {
    return std::forward<F>(f)();
  } catch (const std::bad_alloc&) {
    kp_log_raise_alloc();
  } catch (const std::length_error&) {
    kp_log_raise_alloc();
  }
}

// Exported process-wide variables are plain integers and flags that any thread may read while
// another one sets them. Inside the library they are touched through these two only.
template <class T>
inline T kp_load(T& variable) noexcept {
  return std::atomic_ref<T>(variable).load(std::memory_order_relaxed);
}

template <class T>
inline void kp_store(T& variable, std::type_identity_t<T> value) noexcept {
  std::atomic_ref<T>(variable).store(value, std::memory_order_relaxed);
}

#endif
