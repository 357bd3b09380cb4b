#include "recording/definitions/template.h"

#include <algorithm>
#include <array>
#include <string>

#include "logging/logentry_i.h"
#include "recording/definitions/types.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

bool is_any_string_attribute(kp_AttributeType type) {
  return is_string_attribute(type) || is_unicode_string_attribute(type);
}

bool is_number_attribute(kp_AttributeType type) {
  return is_integer_attribute(type) || is_float_attribute(type);
}

static bool is_date(kp_AttributeType type) {
  return type == TypeDate;
}

static bool is_time_of_day(kp_AttributeType type) {
  return type == TypeTime;
}

static bool is_never(kp_AttributeType) {
  return false;
}

const std::array<template_format, 8> template_formats = {{
    {'s', nullptr, is_any_string_attribute, is_any_string_attribute},
    {'d', nullptr, is_integer_attribute, is_integer_attribute},
    {'u', nullptr, is_integer_attribute, is_never},
    {'f', nullptr, is_float_attribute, is_float_attribute},
    {'C', "currency", is_number_attribute, is_never},
    {'P', "percent", is_number_attribute, is_never},
    {'D', "date", is_time_attribute, is_date},
    {'T', "time", is_time_attribute, is_time_of_day},
}};

const template_format* find_format(char character) {
  const auto* row = std::find_if(template_formats.begin(), template_formats.end(),
                                 [&](const auto& r) { return r.character == character; });
  return row == template_formats.end() ? nullptr : row;
}

bool template_piece::shows_value() const {
  return kind == kinds::placeholder && find_format(format) != nullptr;
}

bool format_suits(char format, kp_AttributeType type) {
  const template_format* const row = find_format(format);
  return row != nullptr && row->suits(type);
}

bool suits_formats_of(kp_AttributeType before, kp_AttributeType now) {
  return std::all_of(template_formats.begin(), template_formats.end(),
                     [&](const auto& row) { return !row.suits(before) || row.suits(now); });
}

// A template is read as both tokenizers of the library read one that is sound.
class template_scanner {
 public:
  explicit template_scanner(std::string_view bytes) : bytes_(bytes) {}

  std::vector<template_piece> scan() {
    while (at_ < bytes_.size()) scan_piece();
    return std::move(pieces_);
  }

 private:
  void scan_piece() {
    const size_t percent = std::min(bytes_.find('%', at_), bytes_.size());
    if (percent != at_) return add(template_piece::kinds::literal, percent - at_);
    if (at_ + 1 == bytes_.size()) return fault("a percent sign at the end");
    if (bytes_[at_ + 1] == '%') return add(template_piece::kinds::percent, 2);
    scan_placeholder();
  }

  void add(template_piece::kinds kind, size_t size) {
    pieces_.push_back({kind, at_, bytes_.substr(at_, size)});
    at_ += size;
  }

  void fault(const char* why) {
    pieces_.push_back({template_piece::kinds::fault, at_, why});
    at_ = bytes_.size();
  }

  bool is_percent(size_t at) const { return at < bytes_.size() && bytes_[at] == '%'; }

  // Between the format character and the name there may be anything; it has no effect.
  void scan_placeholder() {
    const char format = bytes_[at_ + 1];
    if (static_cast<unsigned char>(format) >= 0x80)
      return fault("a format character that is not ASCII");
    const size_t before_name = bytes_.find('%', at_ + 2);
    if (before_name == std::string_view::npos || before_name + 1 == bytes_.size())
      return fault("a placeholder without a name");
    if (is_percent(before_name + 1)) return fault("a placeholder with \"%%\" before its name");
    const size_t end = bytes_.find('%', before_name + 1);
    if (end == std::string_view::npos) return fault("a placeholder whose name does not end");
    if (is_percent(end + 1)) return fault("a placeholder with \"%%\" behind its name");
    const std::string_view name = bytes_.substr(before_name + 1, end - before_name - 1);
    pieces_.push_back({template_piece::kinds::placeholder, at_, name, format});
    at_ = end + 1;
  }

  std::string_view bytes_;
  std::vector<template_piece> pieces_;
  size_t at_ = 0;
};

std::vector<template_piece> scan_template(std::string_view bytes) {
  return template_scanner(bytes).scan();
}

bool is_shown_as_mbchar(std::string_view name) {
  kp_AttributeType type = TypeUnknown;
  return is_default_info_fields(std::string(name).c_str(), type) &&
         is_unicode_string_attribute(type);
}

std::string unknown_attribute_text(std::string_view name) {
  const std::string quoted = in_quotes(name);
  return is_shown_as_mbchar(name) ? quoted + " is shown where it is declared as an MBChar type only"
                                  : "no attribute " + quoted + " here";
}

bool is_name_for_icu(std::string_view name) {
  return name.size() <= 2 * utf16_length(name) + 1;
}

template_problem eleventh_placeholder(size_t offset) {
  return {"text-too-many"_rule, offset,
          "ICU takes ten placeholders in a message, and this is the eleventh"};
}

template_problem long_name(size_t offset) {
  return {"text-name"_rule, offset, "this name is too long in UTF-8 for ICU's renderer"};
}

std::optional<template_problem> unshown_type_problem(kp_AttributeType type, size_t offset) {
  if (type == TypeBool)
    return {{"text-bool"_rule, offset, "a Bool is 0 in every message; use a UInt1"}};
  if (type == TypeGUID)
    return {{"text-guid"_rule, offset, "no message can show a GUID; use a Char64"}};
  return std::nullopt;
}

static void check_placeholder(const template_piece& piece, const attribute_type_of& type_of,
                              std::vector<template_problem>& problems) {
  const template_format* const format = find_format(piece.format);
  const kp_AttributeType type = type_of(piece.text);
  // The library looks a name up also where it shows nothing of it.
  if (type == TypeUnknown)
    return problems.push_back(
        {"template-attribute"_rule, piece.offset, unknown_attribute_text(piece.text)});
  if (format == nullptr) return;
  if (!format->suits(type))
    return problems.push_back({"template-attribute"_rule, piece.offset,
                               std::string("the format %") + piece.format + " does not suit " +
                                   in_quotes(piece.text) + ", a " + short_type_name(type)});
  if (const auto unshown = unshown_type_problem(type, piece.offset)) problems.push_back(*unshown);
}

void check_template(const std::vector<template_piece>& pieces, const attribute_type_of& type_of,
                    std::vector<template_problem>& problems) {
  for (const template_piece& piece : pieces) {
    if (piece.kind == template_piece::kinds::fault)
      problems.push_back(
          {"template-syntax"_rule, piece.offset, "the template has " + std::string(piece.text)});
    if (piece.kind == template_piece::kinds::placeholder)
      check_placeholder(piece, type_of, problems);
  }
}

// The blank that keeps "%%" apart from a placeholder is meant to be dropped.
static bool is_lost(const template_piece& piece, const template_piece* next,
                    message_renderer renderer) {
  if (piece.kind != template_piece::kinds::literal) return false;
  if (next == nullptr) return renderer != message_renderer::bytes;
  return next->kind == template_piece::kinds::percent && piece.text != " ";
}

void find_lost_text(const std::vector<template_piece>& pieces, message_renderer renderer,
                    std::vector<template_problem>& problems) {
  for (size_t i = 0; i < pieces.size(); ++i) {
    const template_piece* const next = i + 1 < pieces.size() ? &pieces[i + 1] : nullptr;
    if (is_lost(pieces[i], next, renderer))
      problems.push_back({"template-lost-text"_rule, pieces[i].offset,
                          next == nullptr ? "ICU's renderer drops the text from here on"
                                          : "the renderers drop this text before \"%%\""});
  }
}

// Bytes of the longest values. A line end in a string becomes two characters.
static size_t largest_value_size(kp_AttributeType type) {
  constexpr size_t float_size = 512;  // 1e308 with all its digits and separators
  constexpr size_t time_size = 128;
  constexpr size_t other_size = 64;
  constexpr size_t bytes_per_byte = 2;
  constexpr size_t bytes_per_utf16_unit = 3;
  const attribute_type* const row = find_type(static_cast<uint32_t>(type));
  if (row != nullptr && row->unit != text_unit::none)
    return row->longest * (row->unit == text_unit::byte ? bytes_per_byte : bytes_per_utf16_unit);
  if (is_float_attribute(type)) return float_size;
  return is_time_attribute(type) ? time_size : other_size;
}

size_t largest_rendered_size(const std::vector<template_piece>& pieces,
                             const attribute_type_of& type_of) {
  size_t size = 0;
  for (const template_piece& piece : pieces) {
    if (piece.kind == template_piece::kinds::literal) size += piece.text.size();
    if (piece.kind == template_piece::kinds::percent) ++size;
    if (piece.shows_value()) size += largest_value_size(type_of(piece.text));
  }
  return size;
}
