// String attributes: size classes, cutting on characters, escaping of line breaks, code pages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include <algorithm>

#include "logging/logentry_i.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/long_text.h"
#include "tests/support/raised.h"

using entry_t = _kp_LOG_log_entry_imp;
using testing::ElementsAre;
using testing::IsEmpty;
static const int limits[] = {32, 64, 128, 256, 1024, 2048};
static const char* const plain_names[] = {"A9", "A10", "A11", "A12", "A13", "A14"};
static const char* const multibyte_names[] = {"A15", "A16", "A17", "A18", "A19", "A20"};

static std::string in_code_page(const char16_t* unit, int times, const char* code_page) {
  icu::UnicodeString text;
  for (int i = 0; i < times; ++i) text.append(unit, -1);
  std::string bytes(20000, '\0');
  const auto room = static_cast<uint32_t>(bytes.size());
  const int32_t length = text.extract(0, text.length(), bytes.data(), room, code_page);
  bytes.resize(static_cast<size_t>(length));
  return bytes;
}

// --- Plain strings ------------------------------------------------------------------------------

TEST(EntryStrings, PlainTextsUpToTheirLimitAreStoredWhole) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (int i = 0; i < 6; ++i) {
    for (int length : {0, 1, limits[i] - 1, limits[i]}) {
      const std::string text = repeated("x", length);
      entry.add_attrib_str(plain_names[i], text.c_str(), true);
      EXPECT_EQ(entry.get_attrib_str(plain_names[i]), text);
    }
  }
}

TEST(EntryStrings, LongerPlainTextsAreRefusedAtFirst) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (int i = 0; i < 6; ++i) {
    entry.add_attrib_str(plain_names[i], "before", true);
    EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>([&] {
                entry.add_attrib_str(plain_names[i], repeated("x", limits[i] + 1).c_str(), true);
              }),
              overflow_of(plain_names[i]));
    EXPECT_STREQ(entry.get_attrib_str(plain_names[i]), "before");
  }
}

TEST(EntryStrings, LongerPlainTextsAreCutOnRequest) {
  const loaded_definitions definitions(ldf_with_every_type());
  action_on_exceed = 1;
  entry_t entry(17, 0);
  for (int i = 0; i < 6; ++i) {
    for (int length : {limits[i] + 1, 3 * limits[i], 20000}) {
      entry.add_attrib_str(plain_names[i], repeated("x", length).c_str(), true);
      EXPECT_EQ(entry.get_attrib_str(plain_names[i]), repeated("x", limits[i]));
    }
  }
}

TEST(EntryStrings, PlainTextsAreCutWithoutRegardToCharacters) {
  const loaded_definitions definitions(ldf_with_every_type());
  action_on_exceed = 1;
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", ("x" + repeated("\xC3\xA4", 20)).c_str(), true);
  EXPECT_EQ(entry.get_attrib_str("A9"), "x" + repeated("\xC3\xA4", 15) + "\xC3");
}

TEST(EntryStrings, AnyOtherActionStoresNothingOfALongText) {
  const loaded_definitions definitions(ldf_with_every_type());
  action_on_exceed = 2;
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", repeated("x", 33).c_str(), true);
  entry.add_attrib_mbstr("A15", repeated("x", 33).c_str(), true);
  EXPECT_STREQ(entry.get_attrib_str("A9"), "");
  EXPECT_STREQ(entry.get_attrib_mbstr("A15"), "");
}

TEST(EntryStrings, ANullNameOrValueIsRefusedForPlainStrings) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const std::pair<const char*, const char*> cases[] = {{nullptr, "x"}, {"", "x"}, {"A9", nullptr}};
  for (const auto& [name, value] : cases) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&, n = name, v = value] { entry.add_attrib_str(n, v, true); }),
              "invalid argument");
    EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                         "_kp_LOG_log_entry_imp::add_attrib_str, name or value "
                                         "equal NULL"));
  }
}

TEST(EntryStrings, AnUndeclaredNameIsRefusedForPlainStrings) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(
      raised<KPX_logging_invalid_attribute_name>([&] { entry.add_attrib_str("FOO", "x", true); }),
      "FOOis an invalid attibute under Entry ID 17 !");
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                       "_kp_LOG_log_entry_imp::add_attrib_str, can not find "
                                       "attribute :FOO"));
}

TEST(EntryStrings, APlainAddToAnotherTypeNamesNoEntry) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  for (const char* name : {"A6", "A8", "A15", "A20", "A21", "A24"})
    EXPECT_EQ(
        raised<KPX_logging_attribute_type_mismatch>([&] { entry.add_attrib_str(name, "x", true); }),
        "Used the wrong add method.");
  EXPECT_THAT(log.lines(), IsEmpty());
}

// --- Multibyte strings --------------------------------------------------------------------------

TEST(EntryStrings, MultibyteTextsAreMeasuredInCharacters) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  entry_t entry(17, 0);
  for (int i = 0; i < 6; ++i) {
    for (int length : {0, 1, limits[i] - 1, limits[i]}) {
      const std::string text = repeated("\xE6\xBC\xA2", length);
      entry.add_attrib_mbstr(multibyte_names[i], text.c_str(), true);
      EXPECT_EQ(entry.get_attrib_mbstr(multibyte_names[i]), text);
    }
  }
}

TEST(EntryStrings, LongerMultibyteTextsAreRefusedAtFirst) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  entry_t entry(17, 0);
  for (int i = 0; i < 6; ++i) {
    entry.add_attrib_mbstr(multibyte_names[i], "before", true);
    const std::string text = repeated("\xC3\xA4", limits[i] + 1);
    EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>(
                  [&] { entry.add_attrib_mbstr(multibyte_names[i], text.c_str(), true); }),
              overflow_of(multibyte_names[i]));
    EXPECT_STREQ(entry.get_attrib_mbstr(multibyte_names[i]), "before");
  }
}

TEST(EntryStrings, LongerMultibyteTextsAreCutToWholeCharacters) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  action_on_exceed = 1;
  entry_t entry(17, 0);
  for (int i = 0; i < 6; ++i) {
    entry.add_attrib_mbstr(multibyte_names[i], repeated("\xC3\xA4", limits[i] + 1).c_str(), true);
    EXPECT_EQ(entry.get_attrib_mbstr(multibyte_names[i]), repeated("\xC3\xA4", limits[i]));
  }
}

TEST(EntryStrings, CharactersBeyondTheBasicPlaneCountTwice) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  entry_t entry(17, 0);
  const std::string sixteen = repeated("\xF0\x9F\x98\x80", 16);
  entry.add_attrib_mbstr("A15", sixteen.c_str(), true);
  EXPECT_EQ(entry.get_attrib_mbstr("A15"), sixteen);
  EXPECT_THROW(entry.add_attrib_mbstr("A15", (sixteen + "x").c_str(), true),
               KPX_logging_invalid_attribute_value);
}

// The limit counts code units, so it may lie between the halves of a pair.
TEST(EntryStrings, ACutBetweenSurrogatesFallsBeforeThePair) {
  const loaded_definitions definitions(ldf_with_every_type());
  action_on_exceed = 1;
  entry_t entry(17, 0);
  for (const auto& [name, x, pair] : {std::tuple("UTF-8", "x", "\xF0\x9F\x98\x80"),
                                      std::tuple("GB18030", "x", "\x94\x39\xFC\x36")}) {
    const code_page_setting code_page(name);
    entry.add_attrib_mbstr("A15", (x + repeated(pair, 16)).c_str(), true);
    EXPECT_EQ(entry.get_attrib_mbstr("A15"), x + repeated(pair, 15));
    entry.add_attrib_mbstr("A15", repeated(pair, 17).c_str(), true);
    EXPECT_EQ(entry.get_attrib_mbstr("A15"), repeated(pair, 16));
  }
}

// Once with characters that are decoded and once with plain ones.
TEST(EntryStrings, AMultibyteTextOfGibibytesIsCutLikeAnyOther) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("UTF-8");
  action_on_exceed = 1;
  entry_t entry(17, 0);
  const long_text decoded("\xC3\xA4", size_t{600} << 20);
  entry.add_attrib_mbstr("A15", decoded.c_str(), true);
  EXPECT_EQ(entry.get_attrib_mbstr("A15"), repeated("\xC3\xA4", 32));
  const long_text plain("ab", (size_t{2} << 30) + 6);
  entry.add_attrib_mbstr("A20", plain.c_str(), true);
  EXPECT_EQ(entry.get_attrib_mbstr("A20"), repeated("ab", 1024));
  action_on_exceed = 0;
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>(
                [&] { entry.add_attrib_mbstr("A15", decoded.c_str(), true); }),
            overflow_of("A15"));
}

TEST(EntryStrings, WithoutIcuMultibyteTextsAreMeasuredInBytes) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("no-such-code-page");
  kp_LOG_LogConfig::SetICUEnabled(false);
  entry_t entry(17, 0);
  entry.add_attrib_mbstr("A15", repeated("\xC3\xA4", 16).c_str(), true);
  EXPECT_THROW(entry.add_attrib_mbstr("A15", repeated("\xC3\xA4", 17).c_str(), true),
               KPX_logging_invalid_attribute_value);
  action_on_exceed = 1;
  entry.add_attrib_mbstr("A15", ("x" + repeated("\xC3\xA4", 17)).c_str(), true);
  EXPECT_EQ(entry.get_attrib_mbstr("A15"), "x" + repeated("\xC3\xA4", 15) + "\xC3");
}

TEST(EntryStrings, AnUnknownCodePageIsRefused) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("no-such-code-page");
  entry_t entry(17, 0);
  for (const char* text : {"", "short", "\xC3\xA4"}) {
    EXPECT_EQ(
        raised<KPX_logging_illegal_argument>([&] { entry.add_attrib_mbstr("A15", text, true); }),
        "invalid argument");
    EXPECT_FALSE(entry._holds("A15"));
  }
}

TEST(EntryStrings, WithoutACodePageIcusDefaultIsUsed) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("");
  entry_t entry(17, 0);
  entry.add_attrib_mbstr("A15", repeated("x", 32).c_str(), true);
  EXPECT_THROW(entry.add_attrib_mbstr("A15", repeated("x", 33).c_str(), true),
               KPX_logging_invalid_attribute_value);
}

TEST(EntryStrings, ANullNameOrValueIsRefusedForMultibyteStrings) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  const std::pair<const char*, const char*> cases[] = {{nullptr, "x"}, {"", "x"}, {"A15", nullptr}};
  for (const auto& [name, value] : cases)
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&, n = name, v = value] { entry.add_attrib_mbstr(n, v, true); }),
              "invalid argument");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EntryStrings, AnUndeclaredNameIsRefusedForMultibyteStrings) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(
      raised<KPX_logging_invalid_attribute_name>([&] { entry.add_attrib_mbstr("FOO", "x", true); }),
      "FOOis an invalid attibute under Entry ID 17 !");
  EXPECT_THAT(log.lines(), ElementsAre("logging/logentry_i:N "
                                       "_kp_LOG_log_entry_imp::add_attrib_mbstr, can not find "
                                       "attribute :FOO"));
}

TEST(EntryStrings, AMultibyteAddToAnotherTypeNamesTheEntry) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  const debug_log_in_temp_folder log(1);
  for (const char* name : {"A6", "A8", "A9", "A14", "A21", "A24"})
    EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(
                  [&] { entry.add_attrib_mbstr(name, "x", true); }),
              "Used the wrong add method under Entry ID 17 !");
  EXPECT_THAT(log.lines(), IsEmpty());
}

struct wide_text {
  const char* code_page;
  const char16_t* character;
};

// 2048 characters take up to 9216 bytes, more than the work buffers hold.
TEST(EntryStrings, TheWidestTextsOfEveryCodePageStayWithinTheWorkBuffers) {
  const loaded_definitions definitions(ldf_with_every_type());
  const wide_text cases[] = {{"UTF-8", u"\u6F22"},
                             {"GB18030", u"\u0E01"},
                             {"ISO-2022-JP", u"a\u6F22"},
                             {"Shift_JIS", u"\u6F22"},
                             {"IBM-1047", u"a"}};
  for (const wide_text& wide : cases) {
    const code_page_setting code_page(wide.code_page);
    const int per_time = icu::UnicodeString(wide.character).length();
    const std::string whole = in_code_page(wide.character, 2048 / per_time, wide.code_page);
    const std::string over = in_code_page(wide.character, 2048 / per_time + 1, wide.code_page);
    entry_t entry(17, 0);
    action_on_exceed = 1;
    for (const std::string& text : {whole, over}) {
      entry.add_attrib_mbstr("A20", text.c_str(), true);
      const std::string stored = entry.get_attrib_mbstr("A20");
      EXPECT_EQ(stored, whole.substr(0, stored.size())) << wide.code_page;
      EXPECT_GE(stored.size(), std::min<size_t>(whole.size(), 8095) - 8) << wide.code_page;
      EXPECT_LE(stored.size(), 8095U) << wide.code_page;
    }
  }
}

TEST(EntryStrings, ATextThatTheWorkBufferCannotHoldEndsInAWholeCharacter) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("GB18030");
  action_on_exceed = 1;
  entry_t entry(17, 0);
  entry.add_attrib_mbstr("A20", in_code_page(u"\u0E01", 2049, "GB18030").c_str(), true);
  EXPECT_EQ(std::string(entry.get_attrib_mbstr("A20")), in_code_page(u"\u0E01", 2023, "GB18030"));
}

// Texts that are stored without being decoded are the same ones as those that are.
TEST(EntryStrings, LengthsAreThoseOfTheDecodedTextInEveryCodePage) {
  const loaded_definitions definitions(ldf_with_every_type());
  const std::string texts[] = {repeated("a", 32),
                               repeated("a", 33),
                               repeated("\x80", 32),
                               repeated("\x80", 33),
                               repeated("\xC3\xA4", 32),
                               repeated("\xC3", 17) + repeated("b", 16),
                               "\x1B(B" + repeated("a", 30),
                               "\x1B$B" + repeated("4A", 20),
                               repeated("\xE3\x81", 20),
                               repeated("~{4A~}", 9)};
  for (const char* name : {"UTF-8", "US-ASCII", "ISO-8859-1", "windows-1252", "Shift_JIS",
                           "ISO-2022-JP", "GB18030", "HZ", "IBM-1047", "UTF-7"}) {
    const code_page_setting code_page(name);
    for (const std::string& text : texts) {
      entry_t entry(17, 0);
      const bool fits = icu::UnicodeString(text.c_str(), name).length() <= 32;
      if (fits)
        EXPECT_NO_THROW(entry.add_attrib_mbstr("A15", text.c_str(), true)) << name;
      else
        EXPECT_THROW(entry.add_attrib_mbstr("A15", text.c_str(), true),
                     KPX_logging_invalid_attribute_value)
            << name;
    }
  }
}

// --- Texts as they are stored -------------------------------------------------------------------

TEST(EntryStrings, LineBreaksAreStoredEscaped) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", "a\nb\r\n", true);
  entry.add_attrib_mbstr("A15", "a\nb\r\n", true);
  EXPECT_STREQ(entry.get_attrib_str("A9"), "a\\nb\\r\\n");
  EXPECT_STREQ(entry.get_attrib_mbstr("A15"), "a\\nb\\r\\n");
}

TEST(EntryStrings, EscapedLineBreaksAreStoredUnescapedOnRequest) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", "a\\nb\\r\\x\n", false);
  entry.add_attrib_mbstr("A15", "a\\nb\\r\\x\n", false);
  EXPECT_STREQ(entry.get_attrib_str("A9"), "a\nb\r\\x\n");
  EXPECT_STREQ(entry.get_attrib_mbstr("A15"), "a\nb\r\\x\n");
}

TEST(EntryStrings, TheLimitIsMeasuredBeforeEscaping) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", repeated("\n", 32).c_str(), true);
  EXPECT_EQ(entry.get_attrib_str("A9"), repeated("\\n", 32));
  entry.add_attrib_str("A14", repeated("\n", 2048).c_str(), true);
  EXPECT_EQ(entry.get_attrib_str("A14"), repeated("\\n", 2048));
}

TEST(EntryStrings, ACutTextIsEscapedAfterwards) {
  const loaded_definitions definitions(ldf_with_every_type());
  action_on_exceed = 1;
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", repeated("\n", 40).c_str(), true);
  entry.add_attrib_mbstr("A15", repeated("\r", 40).c_str(), true);
  EXPECT_EQ(entry.get_attrib_str("A9"), repeated("\\n", 32));
  EXPECT_EQ(entry.get_attrib_mbstr("A15"), repeated("\\r", 32));
}

// A byte that only switches a window counts no characters, so a text of any length may be within
// its limit.
TEST(EntryStrings, AVeryLongTextOfFewCharactersEndsWithTheWorkBuffer) {
  const loaded_definitions definitions(ldf_with_every_type());
  const code_page_setting code_page("SCSU");
  entry_t entry(17, 0);
  const std::string text = repeated("\x12", 20000);
  entry.add_attrib_mbstr("A15", text.c_str(), true);
  EXPECT_EQ(entry.get_attrib_mbstr("A15"), text.substr(0, 8095));
  entry.add_attrib_mbstr("A15", text.c_str(), false);
  EXPECT_EQ(entry.get_attrib_mbstr("A15"), text.substr(0, 8095));
}

TEST(EntryStrings, AnAttributeMayBeAddedFromItsOwnText) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  for (int length : {5, 2048}) {
    const std::string text = repeated("x", length);
    entry.add_attrib_str("A14", text.c_str(), true);
    entry.add_attrib_str("A14", entry.get_attrib_str("A14"), true);
    EXPECT_EQ(entry.get_attrib_str("A14"), text);
    entry.add_attrib_str("A14", entry.get_attrib_str("A14") + 2, true);
    EXPECT_EQ(entry.get_attrib_str("A14"), text.substr(2));
    entry.add_attrib_mbstr("A20", text.c_str(), true);
    entry.add_attrib_mbstr("A20", entry.get_attrib_mbstr("A20") + 2, true);
    EXPECT_EQ(entry.get_attrib_mbstr("A20"), text.substr(2));
  }
}

TEST(EntryStrings, AnAttributesOwnTextMayBeItsName) {
  const loaded_definitions definitions(ldf_with_every_type());
  entry_t entry(17, 0);
  entry.add_attrib_str("A9", "A9", true);
  entry.add_attrib_str(entry.get_attrib_str("A9"), "new", true);
  EXPECT_STREQ(entry.get_attrib_str("A9"), "new");
  entry.add_attrib_str("A9", "A9", true);
  EXPECT_TRUE(entry.remove_attrib(entry.get_attrib_str("A9")));
  EXPECT_FALSE(entry._holds("A9"));
}
