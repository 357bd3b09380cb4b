#include "recording/text/code_page.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ustring.h>

#include <array>
#include <cstdint>
#include <stdexcept>

#include "recording/text/escape.h"
#include "recording/text/plain_ascii.h"
#include "recording/text/utf8.h"

struct code_page_closer {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using code_page_converter = std::unique_ptr<UConverter, code_page_closer>;

static code_page_converter open_code_page(const std::string& name, UErrorCode& status) {
  return code_page_converter(ucnv_open(name.c_str(), &status));
}

// --- Characters ---

bool is_known_code_page(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  const char* const canonical = ucnv_getAlias(name.c_str(), 0, &status);
  return U_SUCCESS(status) && canonical != nullptr;
}

code_page_repertoire::code_page_repertoire(std::string name) : name_(std::move(name)) {
  UErrorCode status = U_ZERO_ERROR;
  const code_page_converter converter = open_code_page(name_, status);
  if (U_FAILURE(status)) return;
  std::unique_ptr<USet, set_closer> characters(uset_openEmpty());
  ucnv_getUnicodeSet(converter.get(), characters.get(), UCNV_ROUNDTRIP_SET, &status);
  if (U_SUCCESS(status)) characters_ = std::move(characters);
}

size_t code_page_repertoire::first_missing(std::string_view text) const {
  for (const utf8_character& character : utf8(text))
    if (uset_contains(characters_.get(), static_cast<UChar32>(character.code_point)) == 0)
      return character.offset;
  return std::string_view::npos;
}

// --- Plain text ---

static constexpr bool is_plain_ascii(char byte) {
  return (byte >= ' ' && byte <= '~') || byte == '\t';
}

// The offset of the first byte at `offset` or behind it that is not plain.
static size_t skip_plain(std::string_view text, size_t offset) {
  while (text.size() - offset >= ascii_block::size &&
         ascii_block(text.data() + offset).is_printable())
    offset += ascii_block::size;
  while (offset < text.size() && is_plain_ascii(text[offset])) ++offset;
  return offset;
}

// --- Lines ---

struct log_code_page::converter {
  code_page_converter handle;
  bool keeps_ascii = false;  // plain ASCII is written as it is
  std::u16string units;      // of a line

  // Appends the units in the code page, in its initial state before and behind them.
  void append(std::string& out);
  void reset();
};

// Called by ICU for what the code page lacks: writes \u{N} in its place. What tells only of a
// reset or of the end is no character.
static void write_missing(const void*, UConverterFromUnicodeArgs* arguments, const UChar*, int32_t,
                          UChar32 code_point, UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;
  const std::string escape = written_out(
      {.code_point = static_cast<uint32_t>(code_point), .valid = true, .offset = 0, .bytes = {}});
  const std::u16string units(escape.begin(), escape.end());
  *status = U_ZERO_ERROR;
  const UChar* source = units.data();
  ucnv_cbFromUWriteUChars(arguments, &source, source + units.size(), 0, status);
}

// ICU's reset leaves a converter of compound text in the character set of the text before: it is
// opened anew.
void log_code_page::converter::reset() {
  ucnv_resetFromUnicode(handle.get());
  if (ucnv_getType(handle.get()) != UCNV_COMPOUND_TEXT) return;
  UErrorCode status = U_ZERO_ERROR;
  UConverterFromUCallback action = nullptr;
  const void* context = nullptr;
  ucnv_getFromUCallBack(handle.get(), &action, &context);
  handle = open_code_page(ucnv_getName(handle.get(), &status), status);
  ucnv_setFromUCallBack(handle.get(), action, context, nullptr, nullptr, &status);
  if (U_FAILURE(status))
    throw std::runtime_error(std::string("ICU cannot open a converter: ") + u_errorName(status));
}

void log_code_page::converter::append(std::string& out) {
  const UChar* source = units.data();
  const UChar* const source_end = source + units.size();
  UErrorCode status = U_BUFFER_OVERFLOW_ERROR;
  reset();
  while (status == U_BUFFER_OVERFLOW_ERROR) {
    std::array<char, 4096> block;
    char* target = block.data();
    status = U_ZERO_ERROR;
    ucnv_fromUnicode(handle.get(), &target, block.data() + block.size(), &source, source_end,
                     nullptr, true, &status);
    out.append(block.data(), static_cast<size_t>(target - block.data()));
  }
  if (U_FAILURE(status))
    throw std::runtime_error(std::string("ICU cannot convert a line: ") + u_errorName(status));
}

// Characters whose UTF-16 form has a byte 0A, between some that make a code page of several modes
// write UTF-16.
static std::u16string units_with_byte_0a() {
  std::u16string units = u"\u6F22\u5B57";
  for (char16_t i = 0; i < 0x100; ++i) {
    const bool is_surrogate = i >= 0xD8 && i <= 0xDF;
    units += static_cast<char16_t>(0x0A00 + i);
    if (!is_surrogate && i > 0) units += static_cast<char16_t>(i * 0x100 + 0x0A);
    units += u"\u6F22\u5B57";
  }
  return units;
}

// The bytes of the units in the code page.
static std::string bytes_of(log_code_page::converter& converter, std::u16string units) {
  std::string bytes;
  converter.units = std::move(units);
  converter.append(bytes);
  return bytes;
}

static bool set_action_on_missing(UConverter* handle, UConverterFromUCallback action) {
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setFromUCallBack(handle, action, nullptr, nullptr, nullptr, &status);
  return U_SUCCESS(status) != 0;
}

// Whether the code page has all that an escape is written with, so that writing one ends.
static bool has_ascii(log_code_page::converter& converter) {
  std::string ascii = "\t";
  for (char byte = ' '; byte <= '~'; ++byte) ascii += byte;
  if (!set_action_on_missing(converter.handle.get(), UCNV_FROM_U_CALLBACK_STOP)) return false;
  try {
    converter.keeps_ascii = bytes_of(converter, {ascii.begin(), ascii.end()}) == ascii;
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

static std::unique_ptr<log_code_page::converter> open_converter(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  auto made = std::make_unique<log_code_page::converter>();
  made->handle = open_code_page(name, status);
  if (U_FAILURE(status))
    throw std::invalid_argument("the code page " + terminal_text(name) + " is not known to ICU");
  return made;
}

log_code_page::log_code_page(const std::string& name) {
  if (name.empty()) return;
  std::unique_ptr<converter> made = open_converter(name);
  if (ucnv_getType(made->handle.get()) == UCNV_UTF8) return;
  if (!has_ascii(*made) || !set_action_on_missing(made->handle.get(), write_missing))
    throw std::invalid_argument("the code page " + terminal_text(name) +
                                " lacks characters of ASCII");
  if (bytes_of(*made, u"\n") != "\n" ||
      bytes_of(*made, units_with_byte_0a()).find('\n') != std::string::npos)
    throw std::invalid_argument("in the code page " + terminal_text(name) +
                                " the byte 0A is not the end of a line");
  converter_ = std::move(made);
}

log_code_page::~log_code_page() = default;

void log_code_page::append(std::string& out, std::string_view line) {
  if (converter_ == nullptr || (converter_->keeps_ascii && skip_plain(line, 0) == line.size())) {
    out += line;
    return;
  }
  std::u16string& units = converter_->units;
  units.resize(line.size());
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(units.data(), static_cast<int32_t>(units.size()), &length, line.data(),
                       static_cast<int32_t>(line.size()), 0xFFFD, nullptr, &status);
  units.resize(static_cast<size_t>(length));
  converter_->append(out);
}
