// kp_LOG_AttributeKey: an attribute as a program knows it while it is compiled.
#ifndef KP_LOG_ATTRIBUTEKEY_H
#define KP_LOG_ATTRIBUTEKEY_H

#include <cstddef>
#include <cstdint>

#include "base/kp_hash.h"
#include "base/kp_words.h"

// What a name of up to 16 bytes is: its length and the words at its two ends, which overlap in the
// middle. Names are found where their words lead to.
struct _kp_LOG_name_words {
  static constexpr std::size_t longest = 16;

  // Of a longer name, what stands at its ends.
  constexpr _kp_LOG_name_words(const char* name, std::size_t its_length) noexcept
      : length(its_length) {
    if (length >= 8) {
      first = KP_word_at<std::uint64_t>(name);
      last = KP_word_at<std::uint64_t>(name + length - 8);
    } else if (length >= 4) {
      first = KP_word_at<std::uint32_t>(name);
      last = KP_word_at<std::uint32_t>(name + length - 4);
    } else if (length != 0) {
      first = KP_word_at<std::uint8_t>(name) |
              std::uint64_t{KP_word_at<std::uint8_t>(name + length / 2)} << 8;
      last = KP_word_at<std::uint8_t>(name + length - 1);
    }
  }

  constexpr bool operator==(const _kp_LOG_name_words& other) const noexcept {
    return first == other.first && last == other.last && length == other.length;
  }
  // A number whose upper bits all bytes of the words move.
  constexpr std::uint64_t mixed() const noexcept { return (first * 2 ^ last) * mixer; }

  static constexpr std::uint64_t mixer = 0x9E3779B97F4A7C15U;

  std::size_t length;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
};

// An attribute's name, and its number among those that its kind of event declares, from 0 in the
// order of their declaration. Attributes are added by it (kp_LOG_LogEntry) as they are by their
// names alone, with the same checks, errors and outcome, and sooner: as a constant it brings the
// name's hash and words along, and where the definition has the name at that number nothing is
// searched. A number that is not the name's in the definitions that are loaded, which may be newer
// than the program, is no error: the name counts.
//
//   static constexpr kp_LOG_AttributeKey port("PORT", 2);
//   entry.AddAttrib2u(port, 51413);
//
// The headers that "kplog header" writes use keys throughout. The name is not copied, and must live
// as long as the key. Keys never change; any thread may use one.
class kp_LOG_AttributeKey {
 public:
  // A null name counts as "", which no attribute has.
  constexpr kp_LOG_AttributeKey(const char* name, unsigned char number) noexcept
      : name_(name != nullptr ? name : ""),
        words_(name_, length_of(name_)),
        hash_(KP_text_hash(name_, words_.length)),
        number_(number) {}

  constexpr const char* name() const noexcept { return name_; }
  constexpr std::size_t length() const noexcept { return words_.length; }
  constexpr const _kp_LOG_name_words& words() const noexcept { return words_; }
  constexpr std::uint32_t hash() const noexcept { return hash_; }  // KP_text_hash of the name
  constexpr unsigned char number() const noexcept { return number_; }

 private:
  static constexpr std::size_t length_of(const char* text) noexcept {
    std::size_t length = 0;
    while (text[length] != '\0') ++length;
    return length;
  }

  const char* name_;
  _kp_LOG_name_words words_;
  std::uint32_t hash_;
  unsigned char number_;
};

#endif
