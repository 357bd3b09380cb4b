// A line as it is put together, piece by piece: what a std::string does, at a fraction of the cost
// for each piece.
#ifndef RECORDING_TEXT_LINE_WRITER_H
#define RECORDING_TEXT_LINE_WRITER_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/kp_digits.h"
#include "base/kp_string.h"

// A text that is appended often.
class line_piece {
 public:
  explicit line_piece(std::string_view text) : bytes_(text), size_(text.size()) {
    bytes_.append(room_behind, '\0');
  }
  const char* bytes() const { return bytes_.data(); }
  size_t size() const { return size_; }

  static constexpr size_t room_behind = 32;  // so that short ones are copied as so many bytes

 private:
  std::string bytes_;
  size_t size_;
};

// Keeps its memory, which is that of the longest line so far.
class line_writer {
 public:
  std::string_view text() const { return {bytes_.get(), static_cast<size_t>(at_ - bytes_.get())}; }
  void clear() { at_ = bytes_.get(); }

  [[gnu::always_inline]] void append(std::string_view bytes) {
    constexpr size_t fewest_of_a_call = 32;
    make_room(bytes.size());
    if (bytes.size() < fewest_of_a_call)
      KP_copy_short(at_, bytes.data(), bytes.size());
    else
      std::memcpy(at_, bytes.data(), bytes.size());
    at_ += bytes.size();
  }
  // A text as the source has it, of which the size is known.
  template <size_t size>
  void append(const char (&literal)[size]) {
    make_room(size);
    std::memcpy(at_, literal, size);
    at_ += size - 1;
  }
  // Of the piece what is behind its first `skipped` bytes.
  void append(const line_piece& piece, size_t skipped = 0) {
    const size_t size = piece.size() - skipped;
    if (size > line_piece::room_behind) return append({piece.bytes() + skipped, size});
    make_room(line_piece::room_behind);
    std::memcpy(at_, piece.bytes() + skipped, line_piece::room_behind);
    at_ += size;
  }
  void append(char byte) {
    make_room(1);
    *at_++ = byte;
  }
  template <std::integral Number>
  void append_number(Number number) {
    constexpr size_t longest = 20;
    make_room(longest);
    using magnitude = std::conditional_t<sizeof number <= sizeof(uint32_t), uint32_t, uint64_t>;
    auto digits = static_cast<magnitude>(number);  // NOLINT: a signed char keeps its sign, too
    if (number < 0) {
      *at_++ = '-';
      digits = 0 - digits;
    }
    at_ = digits <= 9 ? KP_put_up_to_two(static_cast<uint32_t>(digits), at_)
                      : put_decimal(digits, at_);
  }
  // The shortest text that reads back as the number.
  void append_number(double number);

  // Where the next bytes go, for that many of them, which may be written there in any order; and
  // the first of these appended.
  char* room_for(size_t size) {
    make_room(size);
    return at_;
  }
  void take_room(size_t size) { at_ += size; }

 private:
  static char* put_decimal(uint32_t digits, char* at);
  static char* put_decimal(uint64_t digits, char* at);
  void make_room(size_t size) {
    if (static_cast<size_t>(end_ - at_) < size) [[unlikely]]
      grow(size);
  }
  void grow(size_t size);

  std::unique_ptr<char[]> bytes_ = std::make_unique<char[]>(first_size);
  char* at_ = bytes_.get();
  char* end_ = bytes_.get() + first_size;

  static constexpr size_t first_size = 1024;
};

#endif
