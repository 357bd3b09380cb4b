// The table of types, held against what the library does with each.
#include "recording/definitions/types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"

TEST(Types, EachOfTheLibraryHasARow) {
  size_t named = 0;
  for (const _kp_LOG_attribute_type_row& row : AttributeTypeList) {
    if (row.name == nullptr) continue;
    const attribute_type* const type = find_type(row.code);
    ASSERT_NE(type, nullptr) << row.name;
    EXPECT_EQ(type->code, row.code);
    EXPECT_EQ("Type" + std::string(short_type_name(type->code)), row.name);
    ++named;
  }
  EXPECT_EQ(named, std::size(attribute_types));
  EXPECT_EQ(last_type_code, named);
}

TEST(Types, ACodeThatIsNoneHasNoRow) {
  for (const uint32_t code : {0U, last_type_code + 1, 255U, 256U, 0xFFFFFFFFU})
    EXPECT_EQ(find_type(code), nullptr) << code;
}

// Whether an entry takes a text of that many characters of ASCII.
static bool is_taken(const attribute_type& type, size_t length) {
  auto* const definition = new _kp_LOG_log_definition();
  const _kp_LOG_definition_ref ref(definition);
  definition->add_attr_info("A", static_cast<unsigned char>(type.code), false, nullptr);
  _kp_LOG_log_entry_imp entry(ref);
  const std::string text(length, 'x');
  try {
    if (type.unit == text_unit::byte)
      entry.add_attrib_str("A", text.c_str(), false);
    else
      entry.add_attrib_mbstr("A", text.c_str(), false);
    return true;
  } catch (const KPX_logging_invalid_attribute_value&) {
    return false;
  }
}

TEST(Types, StringsTakeTextsUpToTheirSizeClass) {
  for (const attribute_type& type : attribute_types) {
    SCOPED_TRACE(short_type_name(type.code));
    EXPECT_EQ(type.unit == text_unit::character, is_unicode_string_attribute(type.code));
    EXPECT_EQ(type.unit == text_unit::byte,
              is_string_attribute(type.code) && type.code != TypeGUID);
    if (type.unit == text_unit::none) continue;
    EXPECT_TRUE(is_taken(type, type.longest));
    EXPECT_FALSE(is_taken(type, size_t{type.longest} + 1));
  }
}

TEST(Types, IntegersWithoutASignSelectMessages) {
  for (const attribute_type& type : attribute_types) {
    EXPECT_EQ(is_selecting_type(type.code), is_unsigned_integer_attribute(type.code))
        << short_type_name(type.code);
    EXPECT_EQ(type.number != nullptr,
              is_integer_attribute(type.code) || is_float_attribute(type.code));
  }
  EXPECT_FALSE(is_selecting_type(TypeUnknown));
}
