// Texts in UTF-8, character by character.
#ifndef RECORDING_TEXT_UTF8_H
#define RECORDING_TEXT_UTF8_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

struct utf8_character {
  uint32_t code_point = 0;  // of a byte that begins no valid character, the byte
  bool valid = false;       // overlong forms, surrogates and values above 10FFFF are not
  size_t offset = 0;        // in the text
  std::string_view bytes;   // in the text; one of what is not valid, none at the text's end
};

// The same as utf8_at of what is not ASCII, and of the text's end.
utf8_character utf8_decoded(std::string_view text, size_t offset);

// The character at `offset`, which is within the text or its end.
inline utf8_character utf8_at(std::string_view text, size_t offset) {
  if (offset == text.size() || static_cast<unsigned char>(text[offset]) >= 0x80)
    return utf8_decoded(text, offset);
  return {.code_point = static_cast<unsigned char>(text[offset]),
          .valid = true,
          .offset = offset,
          .bytes = text.substr(offset, 1)};
}

// The characters of a text, which outlives them: for (const utf8_character& c : utf8(text))
class utf8 {
 public:
  class iterator {
   public:
    explicit iterator(std::string_view text) : text_(text), character_(utf8_at(text, 0)) {}

    const utf8_character& operator*() const { return character_; }
    const utf8_character* operator->() const { return &character_; }
    iterator& operator++() {
      character_ = utf8_at(text_, character_.offset + character_.bytes.size());
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return character_.bytes.empty(); }

   private:
    std::string_view text_;
    utf8_character character_;
  };

  explicit utf8(std::string_view text) : text_(text) {}
  iterator begin() const { return iterator(text_); }
  static std::default_sentinel_t end() { return std::default_sentinel; }

 private:
  std::string_view text_;
};

// The offset of the first byte that is not part of a valid character; npos when there is none.
size_t utf8_first_invalid(std::string_view text);

// The number, from 1, of the first character that does not begin before the byte at `offset`.
size_t utf8_column(std::string_view text, size_t offset);

// Whether the text holds a C0 or C1 control character or DEL.
bool has_control_character(std::string_view text);

// Bytes that the character takes in UTF-8.
size_t utf8_size(uint32_t code_point);

// UTF-16 code units of a valid text.
size_t utf16_length(std::string_view text);

#endif
