// Attribute names with what look-ups need of them, computed once.
#ifndef KP_LOG_HASHED_NAME_H
#define KP_LOG_HASHED_NAME_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/kp_hash.h"
#include "base/kp_string.h"

// What a name of up to 16 bytes is: its length and the words at its two ends, which overlap in the
// middle. Names are found where their words lead to.
struct _kp_LOG_name_words {
  static constexpr size_t longest = 16;

  // Of a longer name, what stands at its ends.
  _kp_LOG_name_words(const char* name, size_t its_length) noexcept : length(its_length) {
    if (length >= 8) {
      first = word_at<uint64_t>(name);
      last = word_at<uint64_t>(name + length - 8);
    } else if (length >= 4) {
      first = word_at<uint32_t>(name);
      last = word_at<uint32_t>(name + length - 4);
    } else if (length != 0) {
      first = word_at<uint8_t>(name) | word_at<uint8_t>(name + length / 2) << 8;
      last = word_at<uint8_t>(name + length - 1);
    }
  }

  bool operator==(const _kp_LOG_name_words& other) const noexcept {
    return first == other.first && last == other.last && length == other.length;
  }
  // A number whose upper bits all bytes of the words move.
  uint64_t mixed() const noexcept { return (first * 2 ^ last) * mixer; }

  static constexpr uint64_t mixer = 0x9E3779B97F4A7C15U;

  size_t length;
  uint64_t first = 0;
  uint64_t last = 0;

 private:
  template <class Word>
  static uint64_t word_at(const char* bytes) noexcept {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
  }
};

// A name of any length, as it is looked up. The text belongs to the caller and outlives this
// object.
struct _kp_LOG_name_key {
  explicit _kp_LOG_name_key(const char* name) noexcept
      : _kp_LOG_name_key(name, std::strlen(name)) {}
  _kp_LOG_name_key(const char* name, size_t length) noexcept
      : text(name), words(name, length), mixed(words.mixed()) {
    // As much of a long one as tells it from any other that people write.
    for (size_t at = 8; at + 8 < std::min<size_t>(length, 256) && length > words.longest; at += 8)
      mixed = (mixed ^ _kp_LOG_name_words(name + at, 8).first) * words.mixer;
  }

  size_t length() const noexcept { return words.length; }
  bool operator==(const _kp_LOG_name_key& other) const noexcept {
    return words == other.words &&
           (length() <= words.longest || std::memcmp(text, other.text, length()) == 0);
  }

  const char* text;
  _kp_LOG_name_words words;
  uint64_t mixed;  // of the words, and of what lies between those of a longer name
};

// A name with its KP_text_hash, by which entries keep their attributes. The text belongs to the
// caller and outlives this object.
struct _kp_LOG_hashed_name {
  explicit _kp_LOG_hashed_name(const char* name) noexcept
      : text(name), length(std::strlen(name)), hash(KP_text_hash(name, length)) {}
  // `known_hash` is the KP_text_hash of `name`.
  _kp_LOG_hashed_name(const kp_String& name, uint32_t known_hash) noexcept
      : text(name.c_str()), length(name.length()), hash(known_hash) {}

  bool operator==(const kp_String& other) const noexcept {
    return other.length() == length && KP_are_same_bytes(other.c_str(), text, length);
  }

  const char* text;
  size_t length;  // may be more than a kp_String holds; such a name equals none
  uint32_t hash;
};

#endif
