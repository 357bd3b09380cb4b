// The types of attributes: codes, names and families.
#ifndef KP_LOG_ATTRIBUTETYPE_H
#define KP_LOG_ATTRIBUTETYPE_H

#include "base/kp_export.h"

// The code of an attribute's type. Behind each code stands the C++ type of its value. The number in
// a string type's name is its size class: the longest value, in bytes (Char) or in characters
// counted as UTF-16 code units (MBChar).
enum kp_AttributeType : int {
  TypeUnknown = 0,     // no type: an unknown name
  TypeBool = 1,        // bool; counts as a signed integer
  TypeUInt1 = 2,       // unsigned char
  TypeSInt1 = 3,       // char, signed
  TypeUInt2 = 4,       // unsigned short
  TypeSInt2 = 5,       // short
  TypeUInt4 = 6,       // unsigned int
  TypeSInt4 = 7,       // int
  TypeFloat = 8,       // double
  TypeChar32 = 9,      // kp_String
  TypeChar64 = 10,     //
  TypeChar128 = 11,    //
  TypeChar256 = 12,    //
  TypeChar1K = 13,     //
  TypeChar2K = 14,     //
  TypeMBChar32 = 15,   // _kp_LOG_ustring, in the configured code page
  TypeMBChar64 = 16,   //
  TypeMBChar128 = 17,  //
  TypeMBChar256 = 18,  //
  TypeMBChar1K = 19,   //
  TypeMBChar2K = 20,   //
  TypeDate = 21,       // kp_Time
  TypeTime = 22,       // kp_Time
  TypeTimestamp = 23,  // kp_Time
  TypeGUID = 24        // kp_String
};

// A row of the table of type names.
struct _kp_LOG_attribute_type_row {
  const char* name;    // null ends a search
  unsigned char code;  // 0 in a row without a name
};

// The table of type names, process-wide and writable: rows 0 to 23 are the types in the order of
// their codes, rows 24 and 25 are empty and may be filled to add names. A search ends at the first
// row without a name, or behind row 25. Filled during start-up only.
KP_API extern _kp_LOG_attribute_type_row AttributeTypeList[26];

// The code of the first row whose name equals `name` exactly; TypeUnknown when none does, or for
// null.
KP_API kp_AttributeType _kp_LOG_get_attribute_type_code(const char* name);

// The name of the first row with code `type`, "TypeUnknown" when there is none. Static text.
KP_API const char* _kp_LOG_get_attribute_type_string(kp_AttributeType type);

// The families. A negative or unknown code belongs to none of them. That bool counts as a signed
// integer is on purpose.
KP_API bool is_string_attribute(kp_AttributeType type);            // 9 to 14, and 24
KP_API bool is_unicode_string_attribute(kp_AttributeType type);    // 15 to 20
KP_API bool is_unsigned_integer_attribute(kp_AttributeType type);  // 2, 4, 6
KP_API bool is_signed_integer_attribute(kp_AttributeType type);    // 1, 3, 5, 7
KP_API bool is_integer_attribute(kp_AttributeType type);           // 1 to 7
KP_API bool is_float_attribute(kp_AttributeType type);             // 8
KP_API bool is_time_attribute(kp_AttributeType type);              // 21 to 23

#endif
