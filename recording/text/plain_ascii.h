// Runs of ASCII, sixteen bytes at a time.
#ifndef RECORDING_TEXT_PLAIN_ASCII_H
#define RECORDING_TEXT_PLAIN_ASCII_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/kp_string.h"

// Sixteen bytes of a text.
class ascii_block {
 public:
  static constexpr size_t size = 16;

  [[gnu::always_inline]] explicit ascii_block(const char* bytes) {
    std::memcpy(&bytes_, bytes, size);
  }
  // Fewer bytes, and blanks for the others, put together in that room of sixteen.
  [[gnu::always_inline]] ascii_block(const char* bytes, size_t length, char* room)
      : bytes_(all(' ')) {
    copy_to(room);
    KP_copy_short(room, bytes, length);
    std::memcpy(&bytes_, room, size);
  }

  void copy_to(char* to) const { std::memcpy(to, &bytes_, size); }

  // Whether all are between ' ' and '~', and none is one of the others.
  template <size_t n>
  [[gnu::always_inline]] bool is_printable_without(const std::array<char, n>& others) const {
    return is_printable_without(others, std::make_index_sequence<n>());
  }
  bool is_printable() const { return is_printable_without(std::array<char, 0>()); }

 private:
  using signed_bytes [[gnu::vector_size(size)]] = signed char;  // above '\x7F' they are negative
  using words [[gnu::vector_size(size)]] = uint64_t;

  static constexpr signed_bytes all(char byte) {
    return signed_bytes{} + static_cast<signed char>(byte);
  }

  template <size_t... i>
  [[gnu::always_inline]] bool is_printable_without(
      [[maybe_unused]] const std::array<char, sizeof...(i)>& others,
      std::index_sequence<i...>) const {
    const auto odd =
        (((all(' ') > bytes_) | (bytes_ == all('\x7F'))) | ... | (bytes_ == all(others[i])));
    const auto in_words = reinterpret_cast<words>(odd);
    return (in_words[0] | in_words[1]) == 0;
  }

  signed_bytes bytes_;
};

#endif
