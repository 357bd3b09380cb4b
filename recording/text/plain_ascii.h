// Runs of ASCII, eight bytes at a time.
#ifndef RECORDING_TEXT_PLAIN_ASCII_H
#define RECORDING_TEXT_PLAIN_ASCII_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/kp_string.h"

// Eight bytes of a text.
class ascii_word {
 public:
  static constexpr size_t size = sizeof(uint64_t);

  explicit ascii_word(const char* bytes) { std::memcpy(&word_, bytes, size); }
  // Fewer bytes, and blanks for the others.
  ascii_word(const char* bytes, size_t length) : word_(eight_of(' ')) {
    std::array<char, size> padded;
    std::memcpy(padded.data(), &word_, size);
    KP_copy_short(padded.data(), bytes, length);
    std::memcpy(&word_, padded.data(), size);
  }

  // Whether all are between ' ' and '~', and none is a character of which `others` has all eight
  // bytes. High bits tell: they stay clear when 1 is added, and are set when 60 is added, or 7F to
  // what differs from another character.
  template <size_t n>
  [[gnu::always_inline]] bool is_printable_without(const std::array<uint64_t, n>& others) const {
    return is_printable_without(others, std::make_index_sequence<n>());
  }
  bool is_printable() const { return is_printable_without(std::array<uint64_t, 0>()); }

  static constexpr uint64_t eight_of(char character) {
    return ones * static_cast<unsigned char>(character);
  }

 private:
  template <class Words, size_t... i>
  [[gnu::always_inline]] bool is_printable_without([[maybe_unused]] const Words& others,
                                                   std::index_sequence<i...>) const {
    const uint64_t reached =
        (word_ + ones * 0x60) & (~uint64_t{0} & ... & ((word_ ^ others[i]) + ones * 0x7F));
    return ((word_ | (word_ + ones)) & high_bits) == 0 && (reached & high_bits) == high_bits;
  }

  static constexpr uint64_t ones = 0x0101010101010101;
  static constexpr uint64_t high_bits = ones * 0x80;

  uint64_t word_ = 0;
};

#endif
