#include <cstring>
#include <iterator>

#include "kp_LOG_AttributeType.h"

_kp_LOG_attribute_type_row AttributeTypeList[26] = {
    {"TypeBool", TypeBool},           {"TypeUInt1", TypeUInt1},
    {"TypeSInt1", TypeSInt1},         {"TypeUInt2", TypeUInt2},
    {"TypeSInt2", TypeSInt2},         {"TypeUInt4", TypeUInt4},
    {"TypeSInt4", TypeSInt4},         {"TypeFloat", TypeFloat},
    {"TypeChar32", TypeChar32},       {"TypeChar64", TypeChar64},
    {"TypeChar128", TypeChar128},     {"TypeChar256", TypeChar256},
    {"TypeChar1K", TypeChar1K},       {"TypeChar2K", TypeChar2K},
    {"TypeMBChar32", TypeMBChar32},   {"TypeMBChar64", TypeMBChar64},
    {"TypeMBChar128", TypeMBChar128}, {"TypeMBChar256", TypeMBChar256},
    {"TypeMBChar1K", TypeMBChar1K},   {"TypeMBChar2K", TypeMBChar2K},
    {"TypeDate", TypeDate},           {"TypeTime", TypeTime},
    {"TypeTimestamp", TypeTimestamp}, {"TypeGUID", TypeGUID},
    {nullptr, TypeUnknown},           {nullptr, TypeUnknown}};

// The first row that `matches` before the first one without a name; null when there is none.
template <class Matches>
static const _kp_LOG_attribute_type_row* find_row(Matches&& matches) {
  for (const _kp_LOG_attribute_type_row& row : AttributeTypeList) {
    if (row.name == nullptr) return nullptr;
    if (matches(row)) return &row;
  }
  return nullptr;
}

kp_AttributeType _kp_LOG_get_attribute_type_code(const char* name) {
  if (name == nullptr) return TypeUnknown;
  const auto* row = find_row([name](const auto& r) { return std::strcmp(r.name, name) == 0; });
  return row != nullptr ? static_cast<kp_AttributeType>(row->code) : TypeUnknown;
}

const char* _kp_LOG_get_attribute_type_string(kp_AttributeType type) {
  const auto* row = find_row([type](const auto& r) { return r.code == static_cast<int>(type); });
  return row != nullptr ? row->name : "TypeUnknown";
}

bool is_string_attribute(kp_AttributeType type) {
  return (type >= TypeChar32 && type <= TypeChar2K) || type == TypeGUID;
}

bool is_unicode_string_attribute(kp_AttributeType type) {
  return type >= TypeMBChar32 && type <= TypeMBChar2K;
}

bool is_unsigned_integer_attribute(kp_AttributeType type) {
  return type == TypeUInt1 || type == TypeUInt2 || type == TypeUInt4;
}

bool is_signed_integer_attribute(kp_AttributeType type) {
  return type == TypeBool || type == TypeSInt1 || type == TypeSInt2 || type == TypeSInt4;
}

bool is_integer_attribute(kp_AttributeType type) {
  return is_unsigned_integer_attribute(type) || is_signed_integer_attribute(type);
}

bool is_float_attribute(kp_AttributeType type) {
  return type == TypeFloat;
}

bool is_time_attribute(kp_AttributeType type) {
  return type >= TypeDate && type <= TypeTimestamp;
}
