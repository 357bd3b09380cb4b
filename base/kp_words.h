// Bytes that are read as words, wherever they stand.
#ifndef KP_WORDS_H
#define KP_WORDS_H

#include <cstddef>
#include <cstring>

// The word that stands at `bytes`, which need not be aligned: one load. Also while compiling.
template <class Word>
[[gnu::always_inline]] constexpr Word KP_word_at(const char* bytes) noexcept {
  Word word = 0;
  if (!__builtin_is_constant_evaluated()) {
    std::memcpy(&word, bytes, sizeof word);
    return word;
  }
  for (std::size_t i = 0; i < sizeof word; ++i) {
    const bool is_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    const std::size_t place = is_little ? i : sizeof word - 1 - i;
    word = static_cast<Word>(word | Word{static_cast<unsigned char>(bytes[i])} << 8 * place);
  }
  return word;
}

#endif
