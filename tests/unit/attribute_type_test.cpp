#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <set>
#include <string>

#include "kp_LOG_AttributeType.h"

static const char* const names_by_code[] = {
    "TypeBool",     "TypeUInt1",     "TypeSInt1",     "TypeUInt2",    "TypeSInt2",
    "TypeUInt4",    "TypeSInt4",     "TypeFloat",     "TypeChar32",   "TypeChar64",
    "TypeChar128",  "TypeChar256",   "TypeChar1K",    "TypeChar2K",   "TypeMBChar32",
    "TypeMBChar64", "TypeMBChar128", "TypeMBChar256", "TypeMBChar1K", "TypeMBChar2K",
    "TypeDate",     "TypeTime",      "TypeTimestamp", "TypeGUID"};

static kp_AttributeType code_of(int number) {
  return static_cast<kp_AttributeType>(number);
}

// The rows that may be filled, put back at the end of the scope.
class type_table_guard {
 public:
  ~type_table_guard() { AttributeTypeList[24] = AttributeTypeList[25] = {nullptr, 0}; }
};

// The codes from -300 to 600 and at the ends of the range for which `predicate` is true.
static std::set<int> codes_with(bool (*predicate)(kp_AttributeType)) {
  std::set<int> codes;
  for (int code = -300; code <= 600; ++code)
    if (predicate(code_of(code))) codes.insert(code);
  EXPECT_FALSE(predicate(code_of(INT32_MIN)));
  EXPECT_FALSE(predicate(code_of(INT32_MAX)));
  return codes;
}

TEST(AttributeTypes, TableHoldsTheTypesInTheOrderOfTheirCodes) {
  ASSERT_EQ(std::size(AttributeTypeList), 26U);
  for (size_t i = 0; i < 24; ++i) {
    EXPECT_STREQ(AttributeTypeList[i].name, names_by_code[i]);
    EXPECT_EQ(AttributeTypeList[i].code, i + 1);
  }
  for (size_t i = 24; i < 26; ++i) {
    EXPECT_EQ(AttributeTypeList[i].name, nullptr);
    EXPECT_EQ(AttributeTypeList[i].code, 0);
  }
}

TEST(AttributeTypes, EveryNameHasItsCodeAndEveryCodeItsName) {
  for (int code = 1; code <= 24; ++code) {
    EXPECT_EQ(_kp_LOG_get_attribute_type_code(names_by_code[code - 1]), code);
    EXPECT_STREQ(_kp_LOG_get_attribute_type_string(code_of(code)), names_by_code[code - 1]);
  }
}

TEST(AttributeTypes, GuidIsTheLastCode) {
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeGUID"), 24);
}

TEST(AttributeTypes, OtherNamesHaveCodeZero) {
  for (const char* name : {"typeguid", "", " TypeGUID", "TypeGUID ", "Type", "TypeUnknown"})
    EXPECT_EQ(_kp_LOG_get_attribute_type_code(name), TypeUnknown) << name;
  EXPECT_EQ(_kp_LOG_get_attribute_type_code(nullptr), TypeUnknown);
}

TEST(AttributeTypes, OtherCodesAreNamedUnknown) {
  for (const int code : {0, 25, -1, 255, 256, 257, 256 + 24, INT32_MAX, INT32_MIN})
    EXPECT_STREQ(_kp_LOG_get_attribute_type_string(code_of(code)), "TypeUnknown") << code;
}

TEST(AttributeTypes, AFilledRowAddsAName) {
  const type_table_guard guard;
  AttributeTypeList[24] = {"TypeOwn", 30};
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeOwn"), 30);
  EXPECT_STREQ(_kp_LOG_get_attribute_type_string(code_of(30)), "TypeOwn");
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeOther"), TypeUnknown);
}

TEST(AttributeTypes, ASearchEndsAtTheFirstRowWithoutAName) {
  const type_table_guard guard;
  AttributeTypeList[25] = {"TypeOwn", 30};
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeOwn"), TypeUnknown);
  EXPECT_STREQ(_kp_LOG_get_attribute_type_string(code_of(30)), "TypeUnknown");
}

TEST(AttributeTypes, ASearchEndsBehindTheLastRowOfAFullTable) {
  const type_table_guard guard;
  AttributeTypeList[24] = {"TypeOwn", 30};
  AttributeTypeList[25] = {"TypeMine", 31};
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeMine"), 31);
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeOther"), TypeUnknown);
  EXPECT_STREQ(_kp_LOG_get_attribute_type_string(code_of(99)), "TypeUnknown");
}

TEST(AttributeTypes, TheFirstOfTwoRowsWins) {
  const type_table_guard guard;
  AttributeTypeList[24] = {"TypeBool", 30};
  AttributeTypeList[25] = {"TypeTruth", 1};
  EXPECT_EQ(_kp_LOG_get_attribute_type_code("TypeBool"), TypeBool);
  EXPECT_STREQ(_kp_LOG_get_attribute_type_string(TypeBool), "TypeBool");
}

TEST(AttributeFamilies, HoldExactlyTheirCodes) {
  using codes = std::set<int>;
  EXPECT_EQ(codes_with(is_string_attribute), (codes{9, 10, 11, 12, 13, 14, 24}));
  EXPECT_EQ(codes_with(is_unicode_string_attribute), (codes{15, 16, 17, 18, 19, 20}));
  EXPECT_EQ(codes_with(is_unsigned_integer_attribute), (codes{2, 4, 6}));
  EXPECT_EQ(codes_with(is_signed_integer_attribute), (codes{1, 3, 5, 7}));
  EXPECT_EQ(codes_with(is_integer_attribute), (codes{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(codes_with(is_float_attribute), (codes{8}));
  EXPECT_EQ(codes_with(is_time_attribute), (codes{21, 22, 23}));
}
