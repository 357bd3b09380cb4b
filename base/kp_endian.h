// Numbers as files keep them: most significant byte first, at any address.
#ifndef KP_ENDIAN_H
#define KP_ENDIAN_H

#include <endian.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

// Turns a number from the machine's byte order into that of files, and back.
template <class T>
inline T KP_to_or_from_big_endian(T number) noexcept {
  static_assert(std::is_unsigned_v<T> && (sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4));
  if constexpr (sizeof(T) == 4) return htobe32(number);
  if constexpr (sizeof(T) == 2) return htobe16(number);
  return number;
}

// The number of sizeof(T) bytes at `bytes`.
template <class T>
inline T KP_get_big_endian(const void* bytes) noexcept {
  T number = 0;
  std::memcpy(&number, bytes, sizeof number);
  return KP_to_or_from_big_endian(number);
}

// Writes the sizeof(T) bytes of the number.
template <class T>
inline void KP_put_big_endian(void* bytes, T number) noexcept {
  number = KP_to_or_from_big_endian(number);
  std::memcpy(bytes, &number, sizeof number);
}

#endif
