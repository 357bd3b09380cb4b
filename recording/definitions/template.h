// Templates as they stand in definition files, cut into what the renderers see in them.
#ifndef RECORDING_DEFINITIONS_TEMPLATE_H
#define RECORDING_DEFINITIONS_TEMPLATE_H

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kp_LOG_AttributeType.h"
#include "recording/report/rules.h"

// The renderers that must show the authored text.
enum class message_renderer { icu, bytes, both };

struct template_problem {
  diagnostic_rule rule;
  size_t offset;  // in bytes, into the authored text
  std::string text;
};

struct template_piece {
  enum class kinds {
    literal,      // text
    percent,      // "%%"
    placeholder,  // a format character and a name
    fault  // what is no complete placeholder; the last piece, as nothing is certain behind it
  };
  kinds kind = kinds::literal;
  size_t offset = 0;           // in the template
  std::string_view text = {};  // of a literal; the name of a placeholder; why a fault is one
  char format = '\0';          // of a placeholder

  // Whether it is a placeholder that shows a value: other format characters show nothing.
  bool shows_value() const;
};

std::vector<template_piece> scan_template(std::string_view bytes);

// A format character with a meaning.
struct template_format {
  char character;
  const char* word;  // by which a text chooses it, "{NAME:currency}"; null: by the type alone
  bool (*suits)(kp_AttributeType);       // whether it shows values of the type
  bool (*is_default)(kp_AttributeType);  // whether a text that chooses none means this one
};

bool is_number_attribute(kp_AttributeType type);
bool is_any_string_attribute(kp_AttributeType type);

extern const std::array<template_format, 8> template_formats;
const template_format* find_format(char character);  // null: it shows nothing

// Whether a format character shows values of the type; TypeUnknown is shown by none.
bool format_suits(char format, kp_AttributeType type);

// Whether all format characters that show values of `before` show those of `now`.
bool suits_formats_of(kp_AttributeType before, kp_AttributeType now);

using attribute_type_of = std::function<kp_AttributeType(std::string_view name)>;

// Whether it is one of the fields that the library takes for MBChar types, however they are
// declared: "PRODUCT_ID", "COMPONENT_ID", "VERSION_ID", "COMPONENT_VERSION_ID".
bool is_shown_as_mbchar(std::string_view name);

// What is wrong with a name that stands for nothing that can be shown.
std::string unknown_attribute_text(std::string_view name);

// What ICU's renderer takes: ten placeholders, and names of at most two bytes for each UTF-16 unit
// and one more.
constexpr size_t icu_argument_limit = 10;
bool is_name_for_icu(std::string_view name);
template_problem eleventh_placeholder(size_t offset);
template_problem long_name(size_t offset);

// What is wrong with showing a value of that type, nothing for a type that renderers show.
std::optional<template_problem> unshown_type_problem(kp_AttributeType type, size_t offset);

// Adds what every renderer refuses, or shows as something else: incomplete placeholders, names that
// `type_of` does not know, and attributes that the format character does not suit.
void check_template(const std::vector<template_piece>& pieces, const attribute_type_of& type_of,
                    std::vector<template_problem>& problems);

// Adds the texts that the renderer drops: those directly before "%%" and, for ICU, one at the end.
void find_lost_text(const std::vector<template_piece>& pieces, message_renderer renderer,
                    std::vector<template_problem>& problems);

constexpr size_t rendered_size_limit = 65536;  // bytes; the library's buffer for a message

// How long a message may become: the bytes, in UTF-8, of the template's text and of the largest
// values of its attributes.
size_t largest_rendered_size(const std::vector<template_piece>& pieces,
                             const attribute_type_of& type_of);

#endif
