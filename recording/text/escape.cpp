#include "recording/text/escape.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <initializer_list>

#include "recording/text/number.h"
#include "recording/text/plain_ascii.h"

// Format characters of Arabic and a few other scripts, which are shown before the digits or letters
// that they belong to, hide nothing.
static bool is_invisible_format(UChar32 character) {
  return u_charType(character) == U_FORMAT_CHAR &&
         u_hasBinaryProperty(character, UCHAR_PREPENDED_CONCATENATION_MARK) == 0;
}

bool is_unsafe_on_terminal(uint32_t code_point) {
  constexpr uint32_t unsafe_categories = U_GC_CC_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK | U_GC_CS_MASK;
  const auto character = static_cast<UChar32>(code_point);
  return (U_MASK(u_charType(character)) & unsafe_categories) != 0 ||
         is_invisible_format(character) ||
         u_hasBinaryProperty(character, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) != 0 ||
         u_hasBinaryProperty(character, UCHAR_NONCHARACTER_CODE_POINT) != 0;
}

// What stands for a character of ASCII.
struct escape_row {
  char character;
  std::string_view escape;
};

// Appends an unsafe character, or a byte that is not UTF-8.
using escape_writer = void(std::string& out, const utf8_character& character);

// Its number of escaped characters from ' ' to '~' is n.
template <size_t n>
class escape_language {
 public:
  constexpr escape_language(std::initializer_list<escape_row> rows, escape_writer* write_out)
      : write_out_(write_out) {
    size_t n_escaped = 0;
    for (size_t printable = ' '; printable <= '~'; ++printable) is_plain_[printable] = true;
    for (const escape_row& row : rows) {
      escapes_[static_cast<unsigned char>(row.character)] = row.escape;
      is_plain_[static_cast<unsigned char>(row.character)] = false;
      if (row.character >= ' ') escaped_[n_escaped++] = row.character;
    }
  }

  [[gnu::always_inline]] void append(std::string& out, std::string_view text) const {
    std::array<char, ascii_block::size> room;
    const size_t plain = text.size() < ascii_block::size
                             ? plain_of_short(text, room.data())
                             : plain_of_long(text, [](const ascii_block&, size_t) {});
    out.append(text.substr(0, plain));
    if (plain != text.size()) append_others(out, text, plain);
  }
  // Copies what it looks at.
  [[gnu::always_inline]] void append(line_writer& out, std::string_view text) const {
    char* const room = out.room_for(std::max(text.size(), ascii_block::size));
    const auto copy = [room](const ascii_block& block, size_t at) { block.copy_to(room + at); };
    const size_t plain =
        text.size() < ascii_block::size ? plain_of_short(text, room) : plain_of_long(text, copy);
    out.take_room(plain);
    if (plain != text.size()) append_others(out, text, plain);
  }

  std::string quoted(std::string_view text) const {
    std::string out = "\"";
    append(out, text);
    return out + '"';
  }

 private:
  // How many bytes stand for themselves, up to the first block in which one does not. A short text
  // is put into the room, which has one block.
  [[gnu::always_inline]] size_t plain_of_short(std::string_view text, char* room) const {
    const ascii_block block(text.data(), text.size(), room);
    return block.is_printable_without(escaped_) ? text.size() : 0;
  }
  // Of others, each block before that is handed over, and where it begins: the last one most often
  // within the one before.
  template <class Take>
  [[gnu::always_inline]] size_t plain_of_long(std::string_view text, Take take) const {
    const size_t last = text.size() - ascii_block::size;
    for (size_t at = 0;; at = std::min(at + ascii_block::size, last)) {
      const ascii_block block(text.data() + at);
      if (!block.is_printable_without(escaped_)) return at;
      take(block, at);
      if (at == last) return text.size();
    }
  }

  // What is behind the first bytes of the text, which are plain.
  template <class Out>
  [[gnu::noinline]] void append_others(Out& out, std::string_view text, size_t plain) const {
    for (size_t i = plain; i < text.size();) {
      size_t end = i;
      while (end < text.size() && is_plain_[static_cast<unsigned char>(text[end])]) ++end;
      out.append(text.substr(i, end - i));
      i = end;
      if (i == text.size()) return;
      const utf8_character character = utf8_at(text, i);
      append(out, character);
      i += character.bytes.size();
    }
  }

  template <class Out>
  void append(Out& out, const utf8_character& character) const {
    const bool is_named = character.valid && character.code_point < escapes_.size() &&
                          !escapes_[character.code_point].empty();
    if (is_named)
      out.append(escapes_[character.code_point]);
    else if (!character.valid || is_unsafe_on_terminal(character.code_point))
      append_written_out(out, character);
    else
      out.append(character.bytes);
  }

  template <class Out>
  void append_written_out(Out& out, const utf8_character& character) const {
    std::string written;
    write_out_(written, character);
    out.append(std::string_view(written));
  }

  std::array<std::string_view, 128> escapes_ = {};  // empty: none
  std::array<bool, 256> is_plain_ = {};             // by the byte: stands for itself
  std::array<char, n> escaped_ = {};                // those from ' ' to '~'
  escape_writer* write_out_;
};

// ---- for programs ----

static constexpr uint32_t replacement_character = 0xFFFD;

static uint32_t code_point_of(const utf8_character& character) {
  return character.valid ? character.code_point : replacement_character;
}

static void append_unit(std::string& out, uint32_t unit) {
  (out += "\\u") += hexadecimal(unit, 4);
}

static void append_long_escape(std::string& out, uint32_t code_point) {
  (out += "\\U") += hexadecimal(code_point, 8);
}

static void write_out_in_json(std::string& out, const utf8_character& character) {
  const uint32_t code_point = code_point_of(character);
  if (code_point < 0x10000) return append_unit(out, code_point);
  append_unit(out, U16_LEAD(code_point));
  append_unit(out, U16_TRAIL(code_point));
}

static void write_out_in_yaml(std::string& out, const utf8_character& character) {
  const uint32_t code_point = code_point_of(character);
  if (code_point < 0x100)
    (out += "\\x") += hexadecimal(code_point, 2);
  else if (code_point < 0x10000)
    append_unit(out, code_point);
  else
    append_long_escape(out, code_point);
}

static void write_out_in_genrb(std::string& out, const utf8_character& character) {
  const uint32_t code_point = code_point_of(character);
  if (code_point < 0x10000)
    append_unit(out, code_point);
  else
    append_long_escape(out, code_point);
}

// Octal escapes end after three digits, whatever follows.
static void write_out_in_cpp(std::string& out, const utf8_character& character) {
  for (const char byte : character.bytes) {
    out += '\\';
    for (int shift = 6; shift >= 0; shift -= 3)
      out += static_cast<char>('0' + (static_cast<unsigned char>(byte) >> shift) % 8);
  }
}

static void write_out_in_po(std::string& out, const utf8_character& character) {
  if (character.valid && character.code_point < 0x80)
    write_out_in_cpp(out, character);
  else
    out += character.bytes;
}

static constexpr escape_language<2> json_language(
    {{'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}},
    write_out_in_json);

static constexpr escape_language<2> yaml_language(
    {{'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\t', "\\t"}}, write_out_in_yaml);

// Question marks, of which two begin a trigraph.
static constexpr escape_language<3> cpp_language({{'"', "\\\""}, {'\\', "\\\\"}, {'?', "\\?"}},
                                                 write_out_in_cpp);

static constexpr escape_language<2> po_language(
    {{'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}}, write_out_in_po);

static constexpr escape_language<2> genrb_language(
    {{'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}},
    write_out_in_genrb);

void append_json_text(std::string& json, std::string_view text) {
  json += '"';
  json_language.append(json, text);
  json += '"';
}

void append_json_text(line_writer& json, std::string_view text) {
  json.append('"');
  json_language.append(json, text);
  json.append('"');
}

std::string json_string(std::string_view text) {
  return json_language.quoted(text);
}
std::string yaml_quoted(std::string_view text) {
  return yaml_language.quoted(text);
}
std::string cpp_literal(std::string_view text) {
  return cpp_language.quoted(text);
}
std::string po_quoted(std::string_view text) {
  return po_language.quoted(text);
}
std::string genrb_quoted(std::string_view text) {
  return genrb_language.quoted(text);
}

// ---- for people ----

std::string written_out(const utf8_character& character) {
  const uint32_t code_point = character.code_point;
  const bool is_byte = !character.valid || code_point < 0x80;
  return is_byte ? "\\x" + hexadecimal(code_point, 2) : "\\u{" + hexadecimal(code_point, 4) + "}";
}

static void write_out_for_people(std::string& out, const utf8_character& character) {
  out += written_out(character);
}

static constexpr escape_language<0> terminal_language({{'\t', " "}}, write_out_for_people);
static constexpr escape_language<0> log_language({{'\t', "\t"}}, write_out_for_people);
static constexpr escape_language<3> xml_language(
    {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'\t', " "}}, write_out_for_people);

template <class Language>
static std::string written_in(const Language& language, std::string_view text) {
  std::string written;
  language.append(written, text);
  return written;
}

std::string terminal_text(std::string_view text) {
  return written_in(terminal_language, text);
}
std::string xml_text(std::string_view text) {
  return written_in(xml_language, text);
}
void append_log_text(std::string& line, std::string_view text) {
  log_language.append(line, text);
}
void append_log_text(line_writer& line, std::string_view text) {
  log_language.append(line, text);
}

static size_t cells(uint32_t code_point) {
  if (code_point < 0x300) return 1;
  const UChar32 character = static_cast<UChar32>(code_point);
  const int8_t category = u_charType(character);
  if (category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK) return 0;
  const int width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

size_t terminal_width(std::string_view escaped) {
  size_t width = 0;
  for (const utf8_character& character : utf8(escaped)) width += cells(character.code_point);
  return width;
}
