// What the types of attributes are beside their codes and names, which kp_LOG_AttributeType.h has:
// a row for each. How values come out of records, and how they are stored, is a row of
// recording/records/values.cpp, as records stand a floor above definitions.
#ifndef RECORDING_DEFINITIONS_TYPES_H
#define RECORDING_DEFINITIONS_TYPES_H

#include <cstdint>

#include "kp_LOG_AttributeType.h"

// What the size class of a string type counts: bytes, or characters as UTF-16 code units.
enum class text_unit { none, byte, character };

struct attribute_type {
  kp_AttributeType code;
  text_unit unit = text_unit::none;  // of strings
  uint32_t longest = 0;              // text, in units
  uint32_t largest_selector = 0;     // the largest value that selects a message; 0: none does
  const char* number = nullptr;      // the C++ type of a number, as generated headers have it
};

inline constexpr attribute_type attribute_types[] = {
    {.code = TypeBool, .number = "bool"},
    {.code = TypeUInt1, .largest_selector = 0xFF, .number = "::std::uint8_t"},
    {.code = TypeSInt1, .number = "::std::int8_t"},
    {.code = TypeUInt2, .largest_selector = 0xFFFF, .number = "::std::uint16_t"},
    {.code = TypeSInt2, .number = "::std::int16_t"},
    {.code = TypeUInt4, .largest_selector = 0xFFFFFFFF, .number = "::std::uint32_t"},
    {.code = TypeSInt4, .number = "::std::int32_t"},
    {.code = TypeFloat, .number = "double"},
    {.code = TypeChar32, .unit = text_unit::byte, .longest = 32},
    {.code = TypeChar64, .unit = text_unit::byte, .longest = 64},
    {.code = TypeChar128, .unit = text_unit::byte, .longest = 128},
    {.code = TypeChar256, .unit = text_unit::byte, .longest = 256},
    {.code = TypeChar1K, .unit = text_unit::byte, .longest = 1024},
    {.code = TypeChar2K, .unit = text_unit::byte, .longest = 2048},
    {.code = TypeMBChar32, .unit = text_unit::character, .longest = 32},
    {.code = TypeMBChar64, .unit = text_unit::character, .longest = 64},
    {.code = TypeMBChar128, .unit = text_unit::character, .longest = 128},
    {.code = TypeMBChar256, .unit = text_unit::character, .longest = 256},
    {.code = TypeMBChar1K, .unit = text_unit::character, .longest = 1024},
    {.code = TypeMBChar2K, .unit = text_unit::character, .longest = 2048},
    {.code = TypeDate},
    {.code = TypeTime},
    {.code = TypeTimestamp},
    {.code = TypeGUID},
};

// Whether a table has a row for each type, in the order of the codes.
template <class Row, size_t n>
constexpr bool has_each_type(const Row (&rows)[n]) {
  for (size_t i = 0; i < n; ++i)
    if (static_cast<size_t>(rows[i].code) != i + 1) return false;
  return n == sizeof attribute_types / sizeof *attribute_types;
}
static_assert(has_each_type(attribute_types));

constexpr uint32_t last_type_code = sizeof attribute_types / sizeof *attribute_types;

// The row of a code; null for one that is no type.
template <class Row, size_t n>
constexpr const Row* row_of_type(const Row (&rows)[n], int64_t code) {
  return code >= 1 && code <= int64_t{n} ? &rows[code - 1] : nullptr;
}
constexpr const attribute_type* find_type(int64_t code) {
  return row_of_type(attribute_types, code);
}

inline bool is_selecting_type(kp_AttributeType type) {
  const attribute_type* const row = find_type(type);
  return row != nullptr && row->largest_selector != 0;
}
inline constexpr char selecting_types_text[] =
    "an attribute of type UInt1, UInt2 or UInt4 selects a message";

// The name of a type as sources write it, without "Type" before it.
inline const char* short_type_name(kp_AttributeType type) {
  return _kp_LOG_get_attribute_type_string(type) + sizeof "Type" - 1;
}

#endif
