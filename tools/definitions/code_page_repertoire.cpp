#include "tools/definitions/code_page_repertoire.h"

#include <unicode/ucnv.h>

#include "recording/text/utf8.h"

struct code_page_converter_closer {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};

bool is_known_code_page(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  const char* const canonical = ucnv_getAlias(name.c_str(), 0, &status);
  return U_SUCCESS(status) && canonical != nullptr;
}

code_page_repertoire::code_page_repertoire(std::string name) : name_(std::move(name)) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UConverter, code_page_converter_closer> converter(
      ucnv_open(name_.c_str(), &status));
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
