#include "tools/definitions/cpp_name.h"

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

#include <algorithm>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "tools/definitions/cpp_macro_names.h"

// Keywords of C++20, words that directives of the preprocessor know, and macros of common builds,
// each between blanks.
static constexpr std::string_view taken_names =
    " DEBUG FALSE NDEBUG TRUE alignas alignof and and_eq asm assert auto bitand bitor bool break "
    "case catch char char16_t char32_t char8_t class co_await co_return co_yield compl concept "
    "const const_cast consteval constexpr constinit continue decltype default defined delete do "
    "double dynamic_cast else enum explicit export extern false float for friend goto if inline "
    "int long mutable namespace new noexcept not not_eq nullptr operator or or_eq private "
    "protected public register reinterpret_cast requires return short signed sizeof static "
    "static_assert static_cast struct switch template this thread_local throw true try typedef "
    "typeid typename typeof union unsigned using virtual void volatile wchar_t while xor xor_eq ";

static bool is_taken(const std::string& identifier) {
  return taken_names.find(" " + identifier + " ") != std::string_view::npos ||
         is_system_macro(identifier);
}

// Letters that came with later versions of Unicode are not known to every compiler.
static constexpr uint8_t newest_unicode = 13;

static bool is_identifier_character(const utf8_character& character) {
  const auto code_point = static_cast<UChar32>(character.code_point);
  if (!character.valid || u_hasBinaryProperty(code_point, UCHAR_XID_CONTINUE) == 0) return false;
  UVersionInfo age;
  u_charAge(code_point, age);
  return age[0] <= newest_unicode;
}

// With every other character as "_", and never two of these in a row.
static std::string identifier_characters(std::string_view name) {
  std::string identifier;
  for (const utf8_character& character : utf8(name)) {
    if (is_identifier_character(character) && character.code_point != '_')
      identifier += character.bytes;
    else if (!identifier.ends_with('_'))
      identifier += '_';
  }
  return identifier;
}

static bool can_begin_identifier(std::string_view identifier) {
  return u_hasBinaryProperty(static_cast<UChar32>(utf8_at(identifier, 0).code_point),
                             UCHAR_XID_START) != 0;
}

// In the normalization form that identifiers have to have; as it is without memory for that.
static std::string composed(const std::string& identifier) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* const form = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) return identifier;
  std::string text;
  icu::StringByteSink<std::string> sink(&text);
  form->normalizeUTF8(0, identifier, sink, nullptr, status);
  return U_SUCCESS(status) ? text : identifier;
}

std::string cpp_identifier(std::string_view name) {
  std::string identifier = identifier_characters(name);
  if (identifier.starts_with('_')) identifier.erase(0, 1);
  if (identifier.empty() || !can_begin_identifier(identifier)) identifier.insert(0, "n");
  identifier = composed(identifier);
  if (is_taken(identifier)) identifier += '_';
  return identifier;
}

const std::string& cpp_identifiers::of(std::string_view name) {
  const auto known = by_name_.find(name);
  if (known != by_name_.end()) return known->second;
  const std::string wanted = cpp_identifier(prefix_ + std::string(name));
  std::string identifier = wanted;
  for (int number = 2; !taken_.insert(identifier).second; ++number)
    identifier = wanted + (wanted.ends_with('_') ? "" : "_") + std::to_string(number);
  return by_name_.emplace(name, identifier).first->second;
}

// "??/" is a backslash to older compilers, and looked for by newer ones.
static std::string without_trigraphs(std::string text) {
  for (size_t at = 0; (at = text.find("??", at)) != std::string::npos; at += 2)
    text.insert(at + 1, " ");
  return text;
}

static std::string comment_line(std::string_view line, std::string_view indent) {
  std::string comment = std::string(indent) + "//";
  const std::string shown = without_trigraphs(terminal_text(line));
  if (!shown.empty()) (comment += ' ') += shown;
  while (comment.ends_with(' ')) comment.pop_back();
  if (comment.ends_with('\\')) comment += " .";
  return comment + '\n';
}

std::string cpp_comment(std::string_view text, std::string_view indent) {
  std::string comment;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    comment += comment_line(text.substr(0, end), indent);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return comment;
}
