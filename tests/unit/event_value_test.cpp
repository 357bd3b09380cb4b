// The parameter types of generated headers, against the library itself.
#include "kp_LOG_EventValue.h"

#include <gtest/gtest.h>

#include "tests/support/ldf_bytes.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

static constexpr char name_of_text[] = "A15";
static constexpr char name_of_float[] = "A8";
using character_text = kp_LOG_EventText<TypeMBChar32, name_of_text>;
using float_number = kp_LOG_EventNumber<TypeFloat, name_of_float>;

// Sixteen times "a" and a hiragana, or more: in ISO-2022-JP each pair takes nine bytes.
static std::string escaped_text(int pairs) {
  std::string text;
  for (int i = 0; i < pairs; ++i) text += "a\x1b$B$\"\x1b(B";
  return text;
}

TEST(EventText, AViewOfMoreBytesThanMostCodePagesNeedIsStoredWhole) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("ISO-2022-JP");
  kp_LOG_LogEntry entry(17, 0);
  const std::string text = escaped_text(16);
  character_text(std::string_view(text)).add_to(entry, "A15");
  EXPECT_EQ(entry.GetAttribMBStr("A15"), text);
}

TEST(EventText, AViewThatIsTooLongIsRefusedInAnyCodePage) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("ISO-2022-JP");
  kp_LOG_LogEntry entry(17, 0);
  const std::string text = escaped_text(17);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>(
                [&] { character_text(std::string_view(text)).add_to(entry, "A15"); }),
            "A15 Attribute value is overflow under Entry ID 17 !");
}

TEST(EventNumber, ADoubleTakesIntegersOf32Bits) {
  const loaded_definitions definitions(ldf_with_every_type());
  kp_LOG_LogEntry entry(17, 0);
  const int value = -7;
  float_number(value).add_to(entry, "A8");
  EXPECT_EQ(entry.GetAttribFloat8("A8"), -7.0);
  static_assert(!std::is_constructible_v<float_number, bool>);
}
