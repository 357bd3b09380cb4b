#include <gmock/gmock.h>

#include <climits>
#include <cmath>

#include "kp_LOG_LogEntry.h"
#include "kp_LOG_debug_log.h"
#include "tests/support/icu_setting.h"
#include "tests/support/message_entry.h"
#include "tests/support/raised.h"

static const char* const constructor_failed =
    "<KPX_logging_internal_error> _kp_LOG_log_message::get_message:  MessageFormat constructor "
    "failed! most caused by number of attribute in message txt more than 9. (now ICU only support "
    "0-9 tags)";
static const char* const format_failed =
    "<KPX_logging_internal_error> _kp_LOG_log_message::get_message:  MessageFormat::format() "
    "failed!";

template <class Error>
static std::string refused_pattern(const std::string& text) {
  const message_entry entry(text);
  return raised<Error>([&] { entry.unicode(); });
}

// --- Values -------------------------------------------------------------------------------------

TEST(IcuMessage, TextBehindTheLastPlaceholderIsLost) {
  message_entry entry("%d%U4% files");
  entry->add_attrib_4u("U4", 12345);
  EXPECT_EQ(entry.unicode(), "12345");
}

TEST(IcuMessage, ATemplateWithoutPlaceholdersIsEmpty) {
  EXPECT_EQ(message_entry("Started").unicode(), "");
}

TEST(IcuMessage, AnEscapeLeavesThePercentSignOnly) {
  EXPECT_EQ(message_entry("100%% done").unicode(), "%");
}

TEST(IcuMessage, EveryIntegerTypeAtItsEnds) {
  const icu_locale_setting locale("en_US");
  message_entry entry("%d%U1% %d%S1% %d%U2% %d%S2% %d%U4% %u%S4%");
  entry->add_attrib_1u("U1", 255);
  entry->add_attrib_1("S1", -128);
  entry->add_attrib_2u("U2", 65535);
  entry->add_attrib_2("S2", -32768);
  entry->add_attrib_4u("U4", 4294967295U);  // read as a signed 32-bit number
  entry->add_attrib_4("S4", INT_MIN);
  EXPECT_EQ(entry.unicode(), "255 -128 65535 -32768 -1 -2147483648");
}

TEST(IcuMessage, ABoolIsZero) {
  message_entry entry("%d%BOOL%");
  entry->add_attrib_bool("BOOL", true);
  EXPECT_EQ(entry.unicode(), "0");
}

static std::string all_numbers(const char* locale_name) {
  const icu_locale_setting locale(locale_name);
  message_entry entry("%d%S4%|%f%REAL%|%C%REAL%|%P%REAL%");
  entry->add_attrib_4("S4", -1234567);
  entry->add_attrib_float8("REAL", 1234567.8915);
  return entry.unicode();
}

TEST(IcuMessage, NumbersFollowTheLocale) {
  EXPECT_EQ(all_numbers("en_US"), "-1234567|1,234,567.892|$1,234,567.89|123,456,789%");
  EXPECT_EQ(all_numbers("de_DE"), "-1234567|1.234.567,892|1.234.567,89\u00a0€|123.456.789\u00a0%");
  EXPECT_EQ(all_numbers("ja_JP"), "-1234567|1,234,567.892|￥1,234,568|123,456,789%");
}

TEST(IcuMessage, NumbersFollowTheDigitsOfTheLocale) {
  const icu_locale_setting locale("ar_EG");
  message_entry entry("%d%S4%|%f%REAL%");
  entry->add_attrib_4("S4", 90);
  entry->add_attrib_float8("REAL", 2.5);
  EXPECT_EQ(entry.unicode(), "٩٠|٢٫٥");
}

TEST(IcuMessage, TheLocaleIsThatOfTheCall) {
  message_entry entry("%f%REAL%");
  entry->add_attrib_float8("REAL", 0.5);
  for (int i = 0; i < 2; ++i) {
    const icu_locale_setting german("de_DE");
    EXPECT_EQ(entry.unicode(), "0,5");
    const icu_locale_setting english("en_US");
    EXPECT_EQ(entry.unicode(), "0.5");
  }
}

TEST(IcuMessage, CurrencyAndPercentOfIntegers) {
  const icu_locale_setting locale("en_US");
  message_entry entry("%C%S4% %P%S4%");
  entry->add_attrib_4("S4", -5);
  EXPECT_EQ(entry.unicode(), "-$5.00 -500%");
}

TEST(IcuMessage, FloatingValuesThatAreNoNumbers) {
  const icu_locale_setting locale("en_US");
  message_entry entry("%f%REAL%");
  entry->add_attrib_float8("REAL", std::nan(""));
  EXPECT_EQ(entry.unicode(), "NaN");
  entry->add_attrib_float8("REAL", -HUGE_VAL);
  EXPECT_EQ(entry.unicode(), "-∞");
}

TEST(IcuMessage, TimesInTheLocaleAndTheZone) {
  const icu_locale_setting locale("en_US");
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting zone("UTC");
  message_entry entry("%D%STAMP% at %T%STAMP%");
  entry->add_attrib_time("STAMP", kp_Time(2026, 11, 15, 17, 2, 56));
  EXPECT_EQ(entry.unicode(), "Nov 15, 2026 at 5:02:56\u202fPM");
  const icu_locale_setting german("de_DE");
  EXPECT_EQ(entry.unicode(), "15.11.2026 at 17:02:56");
}

TEST(IcuMessage, TimestampIsTheEntrysOwn) {
  const icu_locale_setting locale("en_US");
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting zone("UTC");
  message_entry entry("%T%TIMESTAMP%");
  entry->set_timestamp(kp_Time(2026, 11, 15, 22, 30, 0, true), true);
  EXPECT_EQ(entry.unicode(), "10:30:00\u202fPM");
}

TEST(IcuMessage, StringsAreReadInTheCodePageOfTheCall) {
  message_entry entry("%s%MBTEXT%");
  entry->add_attrib_mbstr("MBTEXT", "Größe", true);
  EXPECT_EQ(entry.unicode(), "Größe");
  const code_page_setting latin("ISO-8859-1");
  EXPECT_EQ(entry.unicode(), "GrÃ¶Ã\u009fe");
}

TEST(IcuMessage, AStringInAnUnknownCodePageIsEmpty) {
  message_entry entry("<%s%TEXT%");
  entry->add_attrib_str("TEXT", "text", true);
  const code_page_setting unknown("no-such-code-page");
  EXPECT_EQ(entry.unicode(), "<");
}

TEST(IcuMessage, BracesAndApostrophesInAValueAreText) {
  message_entry entry("%s%TEXT%");
  entry->add_attrib_str("TEXT", "it's {0} '{' %d%U4%", true);
  EXPECT_EQ(entry.unicode(), "it's {0} '{' %d%U4%");
}

TEST(IcuMessage, MissingValues) {
  EXPECT_EQ(message_entry("%d%U4%|%s%TEXT%|%f%REAL%").unicode(), "0||0");
  message_entry entry("%d%U4%");
  kp_LOG_LogEntry::SetOperationMode(1);
  EXPECT_EQ(raised<KPX_logging_attribute_not_found>([&] { entry.unicode(); }),
            "<KPX_logging_attribute_not_found> Attribute U4 cannot be located.");
}

// --- The pattern --------------------------------------------------------------------------------

static std::string with_four(const std::string& text) {
  message_entry entry(text);
  entry->add_attrib_4u("U4", 4);
  entry->add_attrib_str("TEXT", "four", true);
  return entry.unicode();
}

TEST(IcuPattern, ASingleApostropheIsText) {
  EXPECT_EQ(with_four("don't %d%U4%"), "don't 4");
  EXPECT_EQ(with_four("it''s %d%U4%"), "it's 4");
}

TEST(IcuPattern, APlaceholderInApostrophesIsQuoted) {
  EXPECT_EQ(with_four("File '%s%TEXT%' %d%U4%"), "File {0} 4");
}

TEST(IcuPattern, QuotedBracesAreText) {
  EXPECT_EQ(with_four("'{'%d%U4%'}'%d%U4%"), "{4}4");
}

TEST(IcuPattern, LiteralArgumentsReadTheValuesByNumber) {
  EXPECT_EQ(with_four("{0} %d%U4%"), "4 4");
  EXPECT_EQ(with_four("{1} %d%U4% %s%TEXT%"), "four 4 four");
  EXPECT_EQ(with_four("{0,choice,0#none|1#one|1<many} %d%U4%"), "many 4");
}

TEST(IcuPattern, ANumberWithoutAValueIsShown) {
  EXPECT_EQ(with_four("{5} %d%U4%"), "{5} 4");
}

TEST(IcuPattern, APlaceholderThatShowsNothingCountsAsAnUnsetArgument) {
  EXPECT_EQ(with_four("{1} %d%U4% %x%U4%"), "0 4 ");
}

TEST(IcuPattern, AFormatCharacterWithoutAMeaningTakesNoNumber) {
  EXPECT_EQ(with_four("a%x%U4%b%d%U4%"), "ab4");
}

TEST(IcuPattern, UnbalancedBracesAreRefused) {
  for (const char* text : {"{ %d%U4%", "{} %d%U4%", "{0,number %d%U4%", "{-1} %d%U4%"}) {
    EXPECT_EQ(refused_pattern<KPX_logging_internal_error>(text), constructor_failed) << text;
  }
  EXPECT_EQ(with_four("} %d%U4%"), "} 4");
}

TEST(IcuPattern, TenPlaceholdersAreRenderedAndElevenRefused) {
  std::string text = "%d%U4%";
  for (int i = 1; i < 10; ++i) text += ",%d%U4%";
  EXPECT_EQ(with_four(text), "4,4,4,4,4,4,4,4,4,4");
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>(text + ",%d%U4%"), constructor_failed);
  EXPECT_EQ(with_four(text + ",%x%U4%"), "4,4,4,4,4,4,4,4,4,4,");
}

TEST(IcuPattern, ALiteralNumberAboveNineIsRefused) {
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>("{10} %d%U4%"), constructor_failed);
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>("{0,choice,0#{12}} %d%U4%"),
            constructor_failed);
  EXPECT_EQ(with_four("{9} %d%U4%"), "{9} 4");
}

static std::string nested(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "{0,choice,0#";
  text += "deep";
  for (int i = 0; i < depth; ++i) text += "}";
  return text + " %d%U4%";
}

TEST(IcuPattern, BracesNestedAHundredDeepAreRenderedAndMoreRefused) {
  EXPECT_EQ(with_four(nested(100)), "deep 4");
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>(nested(101)), constructor_failed);
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>(nested(20000)), constructor_failed);
}

TEST(IcuPattern, QuotedClosingBracesDoNotHideTheDepth) {
  std::string text = "''";
  for (int i = 0; i < 20000; ++i) text += "{0,choice,0#'}'";
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>(text + "%d%U4%"), constructor_failed);
}

TEST(IcuPattern, ManyBracesSideBySideAreNotDeep) {
  std::string text;
  for (int i = 0; i < 300; ++i) text += "{0}";
  EXPECT_EQ(with_four(text + "%d%U4%"), std::string(301, '4'));
  EXPECT_EQ(with_four("it's " + text + "%d%U4%"), "it's " + std::string(301, '4'));
  EXPECT_EQ(with_four("''" + text + "'{'%d%U4%"), "'" + std::string(300, '4') + "{4");
}

TEST(IcuPattern, APlaceholderIsADepthOfItsOwn) {
  std::string text = "%d%U4%}";
  for (int i = 1; i < 100; ++i) text = "{0,choice,0#" + text + "}";
  EXPECT_EQ(with_four(text.substr(0, text.size() - 1) + "%d%U4%"), "44");
  EXPECT_EQ(refused_pattern<KPX_logging_internal_error>("{0,choice,0#" + text + "%d%U4%"),
            constructor_failed);
}

TEST(IcuPattern, AFormatThatFailsIsReported) {
  const debug_log_in_temp_folder log(3);
  message_entry entry("{0,number} %s%TEXT%");
  entry->add_attrib_str("TEXT", "no number", true);
  EnableDebugLog(3);
  EXPECT_EQ(raised<KPX_logging_internal_error>([&] { entry.unicode(); }), format_failed);
  EXPECT_THAT(log.lines().back(),
              testing::MatchesRegex("logging/logmsg:N _kp_LOG_log_message::get_message \\{ : "
                                    "-?[0-9]+ : 1 :  : -1 : [0-9]+ "));
}

TEST(IcuPattern, AFormatThatFailsIsSilentBelowLevelThree) {
  const debug_log_in_temp_folder log(2);
  message_entry entry("{0,number} %s%TEXT%");
  entry->add_attrib_str("TEXT", "no number", true);
  EnableDebugLog(2);
  EXPECT_EQ(raised<KPX_logging_internal_error>([&] { entry.unicode(); }), format_failed);
  EXPECT_THAT(log.lines(), testing::Not(testing::Contains(testing::HasSubstr("get_message"))));
}

// --- What is refused_pattern
// ----------------------------------------------------------------------------

TEST(IcuMessage, AnUnknownNameIsRefused) {
  EXPECT_EQ(refused_pattern<KPX_logging_invalid_message_string>("%d%NOBODY%"),
            invalid_message + "unable to find attribute value for \"NOBODY\"!");
  EXPECT_EQ(refused_pattern<KPX_logging_invalid_message_string>("%x%NOBODY%"),
            invalid_message + "unable to find attribute value for \"NOBODY\"!");
}

TEST(IcuMessage, TheTypeMustSuitTheFormatCharacter) {
  for (const char* text : {"%s%U4%", "%d%REAL%", "%u%TEXT%", "%f%U4%", "%C%TEXT%", "%P%STAMP%",
                           "%D%U4%", "%T%MBTEXT%"}) {
    const std::string name = std::string(text).substr(3, std::string(text).size() - 4);
    EXPECT_EQ(refused_pattern<KPX_logging_invalid_message_string>(text),
              invalid_message + "invalid format specifier for attribute \"" + name + "\"!");
  }
}

TEST(IcuMessage, PlaceholdersAreCheckedBeforeThePattern) {
  EXPECT_EQ(refused_pattern<KPX_logging_invalid_message_string>("{ %d%NOBODY%"),
            invalid_message + "unable to find attribute value for \"NOBODY\"!");
}

TEST(IcuMessage, AFormatWithoutANameIsReportedAndRefused) {
  testing::internal::CaptureStderr();
  const std::string lone = refused_pattern<KPX_logging_invalid_message_string>("50%");
  const std::string literal = refused_pattern<KPX_logging_invalid_message_string>("Port %d");
  const std::string nothing = refused_pattern<KPX_logging_invalid_message_string>("%d%PORT");
  const std::string report = testing::internal::GetCapturedStderr();
  EXPECT_EQ(lone, invalid_message + "unable to find attribute value for \"50%\"!");
  EXPECT_EQ(literal, invalid_message + "unable to find attribute value for \"Port %\"!");
  EXPECT_EQ(nothing, invalid_message + "unable to find attribute value for \"\"!");
  EXPECT_THAT(report, testing::HasSubstr("p_token->get_type() == _KP_ARG_SPECIFIER_TOKEN"));
}

TEST(IcuMessage, AnEntryWithoutADefinitionIsRefused) {
  const _kp_LOG_log_entry_imp entry;
  EXPECT_EQ(
      raised<KPX_logging_misc>([&] { _kp_LOG_log_message::get_message(entry, nullptr, false, 0); }),
      "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
}

TEST(IcuMessage, TemplatesInTurnAreNotMixedUp) {
  message_entry entry;
  for (int i = 0; i < 300; ++i) {
    const std::string number = std::to_string(i);
    entry.use_template("template " + number + " %d%U4%");
    entry->add_attrib_4u("U4", static_cast<unsigned>(i));
    ASSERT_EQ(entry.unicode(), "template " + number + " " + number);
  }
}

// --- What is kept of a template -----------------------------------------------------------------

// "X" of that type, shown as a string.
static ldf_entry with_type(unsigned type) {
  return {.id = 17, .msg_text = "%s%X%", .attributes = {{"X", type}}};
}

TEST(MessagePlans, TheTypeIsThatOfTheDefinitionNow) {
  message_entry entry(with_type(TypeChar32));
  entry->add_attrib_str("X", "plain", true);
  EXPECT_EQ(entry.unicode() + entry.bytes(), "plainplain");
  entry.use(with_type(TypeMBChar32));
  entry->add_attrib_mbstr("X", "Größe", true);
  EXPECT_EQ(entry.unicode() + entry.bytes(), "GrößeGröße");
  entry.use(with_type(TypeUInt4));
  const std::string text = invalid_message + "invalid format specifier for attribute \"X\"!";
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>([&] { entry.unicode(); }), text);
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>([&] { entry.bytes(); }), text);
}

TEST(MessagePlans, TemplatesTooLongToBeKeptInTurn) {
  const icu_locale_setting locale("en_US");
  const std::string filling(20000, 'x');
  message_entry entry;
  for (int i = 0; i < 3; ++i) {
    entry.use_template(filling + "%d%S4%,%s%TEXT%");
    entry->add_attrib_4("S4", -7);
    entry->add_attrib_str("TEXT", "text", true);
    EXPECT_EQ(entry.unicode(), filling + "-7,text");
    EXPECT_EQ(entry.bytes(), filling + "-7,text");
    entry.use_template(filling + "%f%REAL%,%P%REAL%,%u%U2%");
    entry->add_attrib_float8("REAL", 0.5);
    entry->add_attrib_2u("U2", 9);
    EXPECT_EQ(entry.unicode(), filling + "0.5,50%,9");
    EXPECT_EQ(entry.bytes(), filling + "0.500000,50.000000%,9");
    EXPECT_EQ(entry.unicode(), filling + "0.5,50%,9");
  }
}
