// Texts and times as the ring has them.
#ifndef RECORDER_VALUE_BYTES_H
#define RECORDER_VALUE_BYTES_H

#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/kp_string.h"
#include "kp_LOG_Recorder.h"
#include "recording/ring/event_bytes.h"

// Whether none of the bytes in the words is beyond ASCII.
constexpr bool are_ascii(uint64_t words) {
  return (words & 0x8080808080808080u) == 0;
}

// Copies fewer than 16 bytes, as two words that may overlap each other. The result has the bits of
// all of them.
[[gnu::always_inline]] inline uint64_t copy_short_text(unsigned char* to, const char* from,
                                                       size_t size) noexcept {
  const auto copy_ends = [&](auto word) -> uint64_t {
    const auto first = KP_word_at<decltype(word)>(from);
    const auto last = KP_word_at<decltype(word)>(from + size - sizeof word);
    std::memcpy(to, &first, sizeof word);
    std::memcpy(to + size - sizeof word, &last, sizeof word);
    return first | last;
  };
  if (size >= 8) return copy_ends(uint64_t{});
  if (size >= 4) return copy_ends(uint32_t{});
  if (size >= 2) return copy_ends(uint16_t{});
  return size == 1 ? copy_ends(uint8_t{}) : 0;
}

bool is_ascii(std::string_view text) noexcept;
bool is_utf8(std::string_view text) noexcept;

// The text without what is beyond that many bytes, cut between characters.
std::string_view cut_text(std::string_view text, size_t most) noexcept;

inline constexpr size_t text_head_size = sizeof(value_head) + sizeof(uint16_t);

// Whether so many bytes come to lie before the end, which `at` may be beyond.
inline bool is_room(const unsigned char* at, const unsigned char* end, size_t size) noexcept {
  return end - at > static_cast<ptrdiff_t>(size);
}

inline void put_text_head(unsigned char* at, _kp_LOG_value_label label, size_t size) noexcept {
  const auto short_size = static_cast<uint16_t>(size);
  std::memcpy(at, &label, sizeof label);
  std::memcpy(at + sizeof(value_head), &short_size, sizeof short_size);
}

// As _kp_LOG_put_text. Null where a text of 16 bytes or more is not ASCII, or does not go there
// whole.
unsigned char* put_long_ascii(unsigned char* at, unsigned char* end, _kp_LOG_value_label label,
                              const char* text, size_t size, size_t most) noexcept;
// The same of a shorter one.
[[gnu::always_inline]] inline unsigned char* put_short_ascii(unsigned char* at, unsigned char* end,
                                                             _kp_LOG_value_label label,
                                                             const char* text,
                                                             size_t size) noexcept {
  if (!is_room(at, end, text_head_size + size)) [[unlikely]]
    return nullptr;
  put_text_head(at, label, size);
  if (!are_ascii(copy_short_text(at + text_head_size, text, size))) [[unlikely]]
    return nullptr;
  return at + text_head_size + size;
}
[[gnu::always_inline]] inline unsigned char* put_ascii(unsigned char* at, unsigned char* end,
                                                       _kp_LOG_value_label label, const char* text,
                                                       size_t size, size_t most) noexcept {
  return size >= 16 ? put_long_ascii(at, end, label, text, size, most)
                    : put_short_ascii(at, end, label, text, size);
}

// As _kp_LOG_put_text, of whatever text.
unsigned char* put_any_text(unsigned char* at, unsigned char* end, _kp_LOG_value_label label,
                            const char* text, size_t size, size_t most) noexcept;

inline time_bytes bytes_of(const kp_Time& time) noexcept {
  return {time.get_year(),
          static_cast<uint8_t>(time.get_month()),
          static_cast<uint8_t>(time.get_day()),
          static_cast<uint8_t>(time.get_hour()),
          static_cast<uint8_t>(time.get_minute()),
          static_cast<uint8_t>(time.get_second()),
          time.get_zone_bias(),
          static_cast<uint8_t>(time.get_daylight_flag() != 0),
          static_cast<uint8_t>(time.is_GMT_time_mode())};
}

#endif
