#include "recording/files/delivery_note.h"

#include <algorithm>
#include <array>
#include <utility>

#include "recording/text/check_sum.h"
#include "recording/text/number.h"

static constexpr std::string_view delivery_word = "delivery 1 ";
static constexpr std::string_view file_word = "file ";
static constexpr std::string_view bytes_word = "bytes ";
static constexpr std::string_view new_word = "new";
static constexpr std::string_view old_word = "old";

static constexpr size_t check_digits = 16;

// --- Fields ---

static std::string hexadecimal_bytes(std::string_view bytes) {
  static constexpr const char* digits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

static std::optional<std::string> bytes_of_hexadecimal(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (; !text.empty(); text.remove_prefix(2)) {
    const auto byte = number_of<uint8_t>(text.substr(0, 2), 16);
    if (!byte) return std::nullopt;
    bytes += static_cast<char>(*byte);
  }
  return bytes;
}

// A path without blanks and controls: those, and "%", as "%20".
static std::string written_path(std::string_view path) {
  std::string text;
  for (const char byte : path)
    if (static_cast<unsigned char>(byte) <= ' ' || byte == '%' || byte == '\x7f')
      text += '%' + hexadecimal_bytes({&byte, 1});
    else
      text += byte;
  return text;
}

static std::optional<std::string> read_path(std::string_view text) {
  std::string path;
  for (size_t at = 0; at < text.size(); ++at) {
    path += text[at];
    if (text[at] != '%') continue;
    const auto byte = bytes_of_hexadecimal(text.substr(at + 1, 2));
    if (!byte || byte->size() != 1 || byte->front() == '\0') return std::nullopt;
    path.back() = byte->front();
    at += 2;
  }
  return path;
}

// Takes the fields of a line, which have one blank between them, one after another.
class line_fields {
 public:
  explicit line_fields(std::string_view line) : left_(line) {}

  std::string_view next() {
    if (!has_left_) is_good_ = false;
    const size_t end = std::min(left_.find(' '), left_.size());
    const std::string_view field = left_.substr(0, end);
    has_left_ = end < left_.size();
    left_.remove_prefix(has_left_ ? end + 1 : end);
    return field;
  }
  template <class Number>
  Number number() {
    return good(number_of<Number>(next()));
  }
  std::string path() { return good(read_path(next())); }
  std::string bytes() { return good(bytes_of_hexadecimal(next())); }
  // Whether every field was there and was what it was taken for, and none is left.
  bool are_read() const { return is_good_ && !has_left_; }

 private:
  template <class Value>
  Value good(std::optional<Value> value) {
    if (!value) is_good_ = false;
    return value ? std::move(*value) : Value{};
  }

  std::string_view left_;
  bool has_left_ = true;
  bool is_good_ = true;
};

// --- Lines ---

// From the check sum of the line before on.
static uint64_t check_of(uint64_t check, std::string_view line) {
  return check_sum(line, check ^ check_sum_begin);
}

static std::string check_text(uint64_t check) {
  std::array<char, sizeof check> bytes;
  for (size_t at = 0; at < bytes.size(); ++at)
    bytes[at] = static_cast<char>(check >> (56 - 8 * at));
  return hexadecimal_bytes({bytes.data(), bytes.size()});
}

void delivery_note_lines::add_line(const std::string& line) {
  check_ = check_of(check_, line);
  ((lines_ += line) += ' ') += check_text(check_) + '\n';
}

delivery_note_lines::delivery_note_lines(const delivery& of) {
  add_line(std::string(delivery_word) + std::to_string(of.output) + ' ' + std::to_string(of.first) +
           ' ' + std::to_string(of.last) + ' ' + written_path(of.ring->identity()) + ' ' +
           written_path(of.ring_path));
}

void delivery_note_lines::add(const noted_file& file) {
  add_line(std::string(file_word) + written_path(file.name) + ' ' + std::to_string(file.device) +
           ' ' + std::to_string(file.inode) + ' ' + std::to_string(file.size) + ' ' +
           std::to_string(file.appended) + ' ' + std::string(file.is_new ? new_word : old_word));
  for (const replaced_bytes& bytes : file.replaced)
    add_line(std::string(bytes_word) + std::to_string(bytes.offset) + ' ' +
             hexadecimal_bytes(bytes.before) + ' ' + hexadecimal_bytes(bytes.after));
}

std::string delivery_note_lines::take() {
  return std::exchange(lines_, "");
}

// --- A note that was read ---

static bool read_delivery(line_fields fields, delivery_note& note) {
  note.output = fields.number<unsigned>();
  note.first = fields.number<uint64_t>();
  note.last = fields.number<uint64_t>();
  note.recorder = fields.path();
  note.ring_path = fields.path();
  return fields.are_read() && note.output < ring_start::outputs && note.first != 0 &&
         note.first <= note.last;
}

static bool read_file_line(line_fields fields, delivery_note& note) {
  noted_file file;
  file.name = fields.path();
  file.device = fields.number<dev_t>();
  file.inode = fields.number<ino_t>();
  file.size = fields.number<uint64_t>();
  file.appended = fields.number<uint64_t>();
  const std::string_view age = fields.next();
  file.is_new = age == new_word;
  note.files.push_back(std::move(file));
  return fields.are_read() && (age == new_word || age == old_word);
}

static bool read_bytes_line(line_fields fields, delivery_note& note) {
  replaced_bytes bytes;
  bytes.offset = fields.number<uint64_t>();
  bytes.before = fields.bytes();
  bytes.after = fields.bytes();
  if (!fields.are_read() || note.files.empty()) return false;
  note.files.back().replaced.push_back(std::move(bytes));
  return true;
}

// The line without its check sum, where that is right.
static std::optional<std::string_view> checked_line(std::string_view line, uint64_t& check) {
  if (line.size() <= check_digits) return std::nullopt;
  const std::string_view text = line.substr(0, line.size() - check_digits - 1);
  check = check_of(check, text);
  const bool is_right = line.substr(text.size()) == " " + check_text(check);
  return is_right ? std::optional(text) : std::nullopt;
}

static bool read_line(std::string_view line, bool is_first, delivery_note& note) {
  const auto rest = [&](std::string_view word) { return line_fields(line.substr(word.size())); };
  if (is_first) return line.starts_with(delivery_word) && read_delivery(rest(delivery_word), note);
  if (line.starts_with(file_word)) return read_file_line(rest(file_word), note);
  return line.starts_with(bytes_word) && read_bytes_line(rest(bytes_word), note);
}

static delivery_note damaged_note() {
  delivery_note note;
  note.is_sound = false;
  return note;
}

std::optional<delivery_note> delivery_note::read(const std::string& text) {
  const std::string_view word = delivery_word;
  if (text.substr(0, word.size()) != word.substr(0, text.size())) return std::nullopt;
  delivery_note note;
  uint64_t check = 0;
  for (std::string_view left = text; !left.empty();) {
    const size_t end = std::min(left.find('\n'), left.size());
    const auto line = checked_line(left.substr(0, end), check);
    const bool is_last = end + 1 >= left.size();
    if (!line || end == left.size()) {
      note.is_sound = is_last;
      break;
    }
    // A line that was written on purpose.
    if (!read_line(*line, left.data() == text.data(), note)) return damaged_note();
    left.remove_prefix(end + 1);
  }
  return note;
}
