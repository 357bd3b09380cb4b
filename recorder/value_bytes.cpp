#include "recorder/value_bytes.h"

#include "recording/text/utf8.h"

bool is_ascii(std::string_view text) noexcept {
  for (; text.size() >= 8; text.remove_prefix(8))
    if ((KP_word_at<uint64_t>(text.data()) & 0x8080808080808080u) != 0) return false;
  for (const char c : text)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

bool is_utf8(std::string_view text) noexcept {
  for (const utf8_character& character : utf8(text))
    if (!character.valid) return false;
  return true;
}

std::string_view cut_text(std::string_view text, size_t most) noexcept {
  if (text.size() <= most) return text;
  size_t size = most;
  while (size != 0 && (static_cast<unsigned char>(text[size]) & 0xc0) == 0x80) --size;
  return text.substr(0, size);
}

unsigned char* put_any_text(unsigned char* at, unsigned char* end, _kp_LOG_value_label label,
                            const char* text, size_t size, size_t most) noexcept {
  const std::string_view kept = cut_text({text, size}, most);
  if (!is_room(at, end, text_head_size + kept.size()) || !is_utf8(kept)) return end;
  put_text_head(at, label, kept.size());
  kept.copy(reinterpret_cast<char*>(at + text_head_size), kept.size());
  return at + text_head_size + kept.size();
}

// Sixteen bytes at a time, the last of which overlap the ones before them: nothing behind the text
// is read.
unsigned char* put_long_ascii(unsigned char* at, unsigned char* end, _kp_LOG_value_label label,
                              const char* text, size_t size, size_t most) noexcept {
  using words [[gnu::vector_size(16)]] = uint64_t;
  if (size > most || !is_room(at, end, text_head_size + size)) return nullptr;
  put_text_head(at, label, size);
  unsigned char* const to = at + text_head_size;
  words all = {};
  const auto copy = [&](size_t from) {
    words some;
    std::memcpy(&some, text + from, sizeof some);
    std::memcpy(to + from, &some, sizeof some);
    all |= some;
  };
  const size_t last = size - sizeof(words);
  for (size_t from = 0; from < last; from += sizeof(words)) copy(from);
  copy(last);
  return are_ascii(all[0] | all[1]) ? to + size : nullptr;
}

// Apart, for the registers that it needs.
[[gnu::noinline]] static unsigned char* put_long_text(unsigned char* at, unsigned char* end,
                                                      _kp_LOG_value_label label, const char* text,
                                                      size_t size, size_t most) noexcept {
  unsigned char* const behind = put_long_ascii(at, end, label, text, size, most);
  return behind != nullptr ? behind : put_any_text(at, end, label, text, size, most);
}

unsigned char* _kp_LOG_put_text(unsigned char* at, unsigned char* end, _kp_LOG_value_label label,
                                const char* text, size_t size, size_t most) noexcept {
  if (size >= 16) return put_long_text(at, end, label, text, size, most);
  unsigned char* const behind = put_short_ascii(at, end, label, text, size);
  return behind != nullptr ? behind : put_any_text(at, end, label, text, size, most);
}

unsigned char* _kp_LOG_put_time(unsigned char* at, unsigned char* end, _kp_LOG_value_label label,
                                const kp_Time& time) noexcept {
  const time_bytes bytes = bytes_of(time);
  static constexpr size_t size = sizeof(value_head) + sizeof bytes;
  if (!is_room(at, end, size)) return end;
  std::memcpy(at, &label, sizeof label);
  std::memcpy(at + sizeof(value_head), &bytes, sizeof bytes);
  return at + size;
}
