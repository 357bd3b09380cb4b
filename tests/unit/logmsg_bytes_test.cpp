#include <gmock/gmock.h>

#include <cfenv>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>

#include "kp_LOG_LogEntry.h"
#include "tests/support/message_entry.h"
#include "tests/support/raised.h"

using testing::HasSubstr;

template <class Error>
static std::string refused_bytes(const std::string& text) {
  const message_entry entry(text);
  return raised<Error>([&] { entry.bytes(); });
}

// --- Integers -----------------------------------------------------------------------------------

TEST(ByteMessage, TextBehindThePlaceholderStays) {
  message_entry entry("%d%U4% files");
  entry->add_attrib_4u("U4", 12345);
  EXPECT_EQ(entry.bytes(), "12345 files");
}

TEST(ByteMessage, EveryIntegerTypeAtItsEnds) {
  message_entry entry("%d%U1% %d%S1% %d%U2% %d%S2% %d%U4% %d%S4%.");
  entry->add_attrib_1u("U1", 255);
  entry->add_attrib_1("S1", -128);
  entry->add_attrib_2u("U2", 65535);
  entry->add_attrib_2("S2", -32768);
  entry->add_attrib_4u("U4", 4294967295U);
  entry->add_attrib_4("S4", std::numeric_limits<int>::min());
  EXPECT_EQ(entry.bytes(), "255 -128 65535 -32768 4294967295 -2147483648.");
}

TEST(ByteMessage, TheSignComesFromTheTypeNotFromTheFormatCharacter) {
  message_entry entry("%u%S4% %d%U4%.");
  entry->add_attrib_4("S4", -1);
  entry->add_attrib_4u("U4", 4294967295U);
  EXPECT_EQ(entry.bytes(), "-1 4294967295.");
}

TEST(ByteMessage, AMissingValueIsZeroInLenientMode) {
  EXPECT_EQ(message_entry("%d%U4%|%f%REAL%|%s%TEXT%|").bytes(), "0|0.000000||");
}

TEST(ByteMessage, AMissingValueIsAnErrorInStrictMode) {
  message_entry entry("%d%U4%");
  kp_LOG_LogEntry::SetOperationMode(1);
  EXPECT_EQ(raised<KPX_logging_attribute_not_found>([&] { entry.bytes(); }),
            "<KPX_logging_attribute_not_found> Attribute U4 cannot be located.");
}

// --- Bool: the last text stands again ------------------------------------------------------------

TEST(ByteMessage, ABoolBeforeAnyFormattedTextGivesNothing) {
  message_entry entry("[%d%BOOL%]");
  entry->add_attrib_bool("BOOL", true);
  EXPECT_EQ(entry.bytes(), "[]");
}

TEST(ByteMessage, ABoolRepeatsTheTextOfThePlaceholderBeforeIt) {
  message_entry entry("%d%U4% %d%BOOL% %u%BOOL%.");
  entry->add_attrib_4u("U4", 42);
  entry->add_attrib_bool("BOOL", true);
  EXPECT_EQ(entry.bytes(), "42 42 42.");
}

TEST(ByteMessage, AStringLeavesTheBufferAlone) {
  message_entry entry("%C%S4% %s%TEXT% %d%BOOL%.");
  entry->add_attrib_4("S4", 7);
  entry->add_attrib_str("TEXT", "text", true);
  EXPECT_EQ(entry.bytes(), "$7 text $7.");
}

TEST(ByteMessage, ABoolRepeatsDatesPercentagesAndFloatingValues) {
  message_entry entry("%D%DATE%,%d%BOOL%,%P%S4%,%d%BOOL%,%f%REAL%,%d%BOOL%.");
  entry->add_attrib_time("DATE", kp_Time(2026, 11, 15, 17, 2, 56));
  entry->add_attrib_4("S4", 2);
  entry->add_attrib_float8("REAL", 0.5);
  EXPECT_EQ(entry.bytes(), "2026-11-15,2026-11-15,200%,200%,0.500000,0.500000.");
}

TEST(ByteMessage, TheBufferKeepsThirtyOneBytesOfALongerText) {
  message_entry entry("%f%REAL% %d%BOOL% %d%BOOL%");
  entry->add_attrib_float8("REAL", -1e30);
  const std::string whole = "-1000000000000000019884624838656.000000";
  const std::string kept = whole.substr(0, 31);
  EXPECT_EQ(entry.bytes(), whole + " " + kept + " " + kept);
}

TEST(ByteMessage, NothingIsRememberedFromOneMessageToTheNext) {
  message_entry entry("%d%U4%");
  entry->add_attrib_4u("U4", 99);
  EXPECT_EQ(entry.bytes(), "99");
  entry.use_template("<%d%BOOL%>");
  EXPECT_EQ(entry.bytes(), "<>");
}

// --- Floating values ----------------------------------------------------------------------------

static std::string printed(double value) {
  char text[400];
  std::snprintf(text, sizeof text, "%f", value);
  return text;
}

TEST(ByteMessage, FloatingValuesReadAsTheCLibraryPrintsThem) {
  message_entry entry("%f%REAL%");
  for (const double value : {0.0, -0.0, 0.625, 1e-7, -2.5, 0.0000005, 1e24, DBL_MAX, -DBL_MAX,
                             DBL_MIN, 5e-324, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    entry->add_attrib_float8("REAL", value);
    EXPECT_EQ(entry.bytes(), printed(value));
  }
}

TEST(ByteMessage, RandomFloatingValuesReadAsTheCLibraryPrintsThem) {
  message_entry entry("%f%REAL%");
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    double value = 0;
    const uint64_t bits = random();
    std::memcpy(&value, &bits, sizeof value);
    if (i % 2 == 0) value = static_cast<double>(static_cast<int64_t>(bits)) / 1e13;
    entry->add_attrib_float8("REAL", value);
    ASSERT_EQ(entry.bytes(), printed(value));
  }
}

TEST(ByteMessage, TheRoundingModeIsTheCLibrarys) {
  message_entry entry("%f%REAL%");
  entry->add_attrib_float8("REAL", 0.00000012);
  std::fesetround(FE_UPWARD);
  const std::string text = entry.bytes();
  const std::string expected = printed(0.00000012);
  std::fesetround(FE_TONEAREST);
  EXPECT_EQ(text, expected);
}

// A locale with a comma, made for this test.
class comma_locale {
 public:
  comma_locale() : path_("LOCPATH", folder_.path().c_str()) {
    const std::string make =
        "localedef -i de_DE -f UTF-8 '" + folder_.file("de_DE.UTF-8") + "' >/dev/null 2>&1";
    made_ = std::system(make.c_str()) == 0 && std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
  }
  ~comma_locale() { std::setlocale(LC_NUMERIC, "C"); }
  bool made() const { return made_; }

 private:
  temp_folder folder_;
  environment_value path_;
  bool made_ = false;
};

TEST(ByteMessage, TheRadixCharacterIsTheCLibrarys) {
  const comma_locale comma;
  ASSERT_TRUE(comma.made());
  message_entry entry("%f%REAL% %C%REAL% %P%REAL%.");
  entry->add_attrib_float8("REAL", 0.25);
  EXPECT_EQ(entry.bytes(), "0,250000 $0,250000 25,000000%.");
}

// --- Currency and percent -----------------------------------------------------------------------

TEST(ByteMessage, CurrencyDropsTheSignOfAnInteger) {
  message_entry entry("%C%S4%");
  entry->add_attrib_4("S4", -5);
  EXPECT_EQ(entry.bytes(), "$5");
  entry->add_attrib_4("S4", std::numeric_limits<int>::min());
  EXPECT_EQ(entry.bytes(), "$2147483648");
}

TEST(ByteMessage, CurrencyOfAnUnsignedValueAboveTheSignedRangeIsItsComplement) {
  message_entry entry("%C%U4%");
  entry->add_attrib_4u("U4", 4294967295U);
  EXPECT_EQ(entry.bytes(), "$1");
}

TEST(ByteMessage, CurrencyDropsTheSignOfAFloatingValue) {
  message_entry entry("%C%REAL%");
  entry->add_attrib_float8("REAL", -12.5);
  EXPECT_EQ(entry.bytes(), "$12.500000");
}

TEST(ByteMessage, PercentOfAFloatingValue) {
  message_entry entry("%P%REAL%");
  entry->add_attrib_float8("REAL", 0.25);
  EXPECT_EQ(entry.bytes(), "25.000000%");
}

TEST(ByteMessage, PercentOfAnIntegerWrapsAtThirtyTwoBits) {
  message_entry entry("%P%S4%");
  entry->add_attrib_4("S4", -3);
  EXPECT_EQ(entry.bytes(), "-300%");
  entry->add_attrib_4("S4", 30000000);
  EXPECT_EQ(entry.bytes(), "-1294967296%");
}

TEST(ByteMessage, CurrencyAndPercentOfABoolAreThoseOfZero) {
  message_entry entry("%C%BOOL% %P%BOOL%.");
  entry->add_attrib_bool("BOOL", true);
  EXPECT_EQ(entry.bytes(), "$0 0%.");
}

// --- Strings ------------------------------------------------------------------------------------

TEST(ByteMessage, StringsOfBothKinds) {
  message_entry entry("%s%TEXT% and %s%MBTEXT%.");
  entry->add_attrib_str("TEXT", "plain", true);
  entry->add_attrib_mbstr("MBTEXT", "Straße", true);
  EXPECT_EQ(entry.bytes(), "plain and Straße.");
}

TEST(ByteMessage, AStringOfTwoThousandBytesIsWhole) {
  message_entry entry("%s%TEXT%");
  const std::string text(2048, 'x');
  entry->add_attrib_str("TEXT", text.c_str(), true);
  EXPECT_EQ(entry.bytes(), text);
}

TEST(ByteMessage, PercentSignsAndBracesInAValueAreText) {
  message_entry entry("%s%TEXT%");
  entry->add_attrib_str("TEXT", "100%d%U4% {0} %n", true);
  EXPECT_EQ(entry.bytes(), "100%d%U4% {0} %n");
}

TEST(ByteMessage, AGuidSuitsTheFormatButHasNoStringGetter) {
  message_entry entry("%s%GUID%");
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>([&] { entry.bytes(); }),
            "Use the wrong get method under Entry ID 17 !");
}

// --- Times --------------------------------------------------------------------------------------

TEST(ByteMessage, DatesAndTimesOfEveryTimeType) {
  message_entry entry("%D%DATE% %T%TIME% %D%STAMP% %T%STAMP%.");
  entry->add_attrib_time("DATE", kp_Time(2026, 11, 15, 1, 2, 3));
  entry->add_attrib_time("TIME", kp_Time(2026, 11, 15, 17, 2, 56));
  entry->add_attrib_time("STAMP", kp_Time(1999, 1, 2, 3, 4, 5));
  EXPECT_EQ(entry.bytes(), "2026-11-15 17:02:56 1999-01-02 03:04:05.");
}

TEST(ByteMessage, TimestampIsTheEntrysOwnInLocalTime) {
  const environment_value zone("TZ", "XYZ-3");
  message_entry entry("%D%TIMESTAMP% %T%TIMESTAMP%.");
  entry->set_timestamp(kp_Time(2026, 11, 15, 22, 30, 0, true), true);
  EXPECT_EQ(entry.bytes(), "2026-11-16 01:30:00.");
}

TEST(ByteMessage, ADefaultInformationFieldIsKnownAndThenNotDeclared) {
  message_entry entry("%s%PRODUCT_ID%");
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&] { entry.bytes(); }),
            "PRODUCT_IDis an invalid attibute under Entry ID 17 !");
}

// --- What has no meaning, and what is refused_bytes
// ---------------------------------------------------

TEST(ByteMessage, AFormatCharacterWithoutAMeaningShowsNothing) {
  message_entry entry("a%x%U4%b%d%U4%c");
  entry->add_attrib_4u("U4", 3);
  EXPECT_EQ(entry.bytes(), "ab3c");
}

TEST(ByteMessage, AMisspeltNameBehindAFormatCharacterWithoutAMeaningIsFound) {
  EXPECT_EQ(refused_bytes<KPX_logging_invalid_message_string>("%x%U5%"),
            invalid_message + "unable to find attribute value for \"U5\"!");
}

TEST(ByteMessage, AnUnknownNameIsRefused) {
  EXPECT_EQ(refused_bytes<KPX_logging_invalid_message_string>("%d%NOBODY%"),
            invalid_message + "unable to find attribute value for \"NOBODY\"!");
}

TEST(ByteMessage, TheTypeMustSuitTheFormatCharacter) {
  for (const char* text : {"%s%U4%", "%d%REAL%", "%u%TEXT%", "%f%U4%", "%C%TEXT%", "%P%STAMP%",
                           "%D%U4%", "%T%MBTEXT%"}) {
    const std::string name = std::string(text).substr(3, std::string(text).size() - 4);
    EXPECT_EQ(refused_bytes<KPX_logging_invalid_message_string>(text),
              invalid_message + "invalid format specifier for attribute \"" + name + "\"!");
  }
}

TEST(ByteMessage, TheTypeIsCheckedBeforeTheValueIsRead) {
  message_entry entry("%f%U4%");
  kp_LOG_LogEntry::SetOperationMode(1);
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>([&] { entry.bytes(); }),
            invalid_message + "invalid format specifier for attribute \"U4\"!");
}

TEST(ByteMessage, ElevenPlaceholdersAreRendered) {
  std::string text;
  for (int i = 0; i < 11; ++i) text += "%d%U4%,";
  message_entry entry(text);
  entry->add_attrib_4u("U4", 1);
  EXPECT_EQ(entry.bytes(), "1,1,1,1,1,1,1,1,1,1,1,");
}

static std::string reported(const message_entry& entry, std::string& error) {
  testing::internal::CaptureStderr();
  error = raised<KPX_logging_invalid_message_string>([&] { entry.bytes(); });
  return testing::internal::GetCapturedStderr();
}

static size_t count_of(const std::string& part, const std::string& text) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

static const std::string assertion = "p_token->get_type() == _KP_ARG_SPECIFIER_TOKEN";

TEST(ByteMessage, AFormatFollowedByTextIsReportedAndTheTextTakenAsAName) {
  std::string error;
  const std::string report = reported(message_entry("%dPORT"), error);
  EXPECT_EQ(count_of(assertion, report), 1U);
  EXPECT_THAT(report, HasSubstr("logging/logmsg"));
  EXPECT_EQ(error, invalid_message + "unable to find attribute value for \"%dPORT\"!");
}

TEST(ByteMessage, AFormatAtTheEndIsReportedAndHasAnEmptyName) {
  std::string error;
  const std::string report = reported(message_entry("abc%d%"), error);
  EXPECT_EQ(count_of(assertion, report), 1U);
  EXPECT_EQ(error, invalid_message + "unable to find attribute value for \"\"!");
}

TEST(ByteMessage, AFormatFollowedByAnEscapeHasAnEmptyName) {
  std::string error;
  const std::string report = reported(message_entry("%d%%A%B%"), error);
  EXPECT_EQ(count_of(assertion, report), 1U);
  EXPECT_EQ(error, invalid_message + "unable to find attribute value for \"\"!");
}

TEST(ByteMessage, ALonePercentSignIsRefusedEachTime) {
  const message_entry entry("50%");
  EXPECT_EQ(raised<KPX_index_out_of_bounds>([&] { entry.bytes(); }), "(null)");
  EXPECT_EQ(raised<KPX_index_out_of_bounds>([&] { entry.bytes(); }), "(null)");
}

TEST(ByteMessage, AnEscapeShowsNothing) {
  EXPECT_EQ(message_entry("100%% done").bytes(), " done");
}

TEST(ByteMessage, AnEntryWithoutADefinitionIsRefused) {
  const _kp_LOG_log_entry_imp entry;
  EXPECT_EQ(raised<KPX_logging_misc>(
                [&] { _kp_LOG_log_message::get_kpString_message(entry, nullptr, false, 0); }),
            "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
}

TEST(ByteMessage, TemplatesInTurnAreNotMixedUp) {
  message_entry entry("one %d%U4%");
  for (int i = 0; i < 300; ++i) {
    const std::string text = "template " + std::to_string(i) + " %d%U4%.";
    entry.use_template(text);
    entry->add_attrib_4u("U4", static_cast<unsigned>(i));
    ASSERT_EQ(entry.bytes(), "template " + std::to_string(i) + " " + std::to_string(i) + ".");
  }
}

TEST(ByteMessage, ATemplateOfAHundredThousandEscapesIsRendered) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "%%";
  EXPECT_EQ(message_entry(text + "end").bytes(), "end");
}
