#include <gmock/gmock.h>
#include <unicode/ucnv.h>

#include <array>
#include <cstring>
#include <thread>
#include <vector>

#include "kp_LOG_LogEntry.h"
#include "kp_LOG_debug_log.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/failing.h"
#include "tests/support/message_entry.h"
#include "tests/support/raised.h"

using testing::ElementsAre;
using testing::IsEmpty;

static const char* const no_converter =
    "_kp_LOG_log_message::get_readable_message:  UnicodeConverter constructor failed!";
static const char* const no_default_converter =
    "_kp_LOG_log_message::get_readable_message:  Default UnicodeConverter constructor failed!";

static std::string converter_line(const std::string& code_page) {
  return "logging/logentry_i:N _kp_LOG_log_entry_imp::get_readable_message, UnicodeConverter "
         "construct error, codepage=" +
         code_page;
}

// --- The buffer operation -----------------------------------------------------------------------

TEST(ReadableMessage, RendersIntoTheBufferAndReturnsIt) {
  message_entry entry;
  show(entry, "Größe");
  char buffer[32];
  EXPECT_EQ(entry->get_readable_message(buffer, 31, false, 0), buffer);
  EXPECT_STREQ(buffer, "Größe");
}

TEST(ReadableMessage, IsInTheConfiguredCodePage) {
  message_entry entry;
  show(entry, "Größe");
  const code_page_setting latin("ISO-8859-1");
  entry->add_attrib_mbstr("MBTEXT",
                          "Gr\xf6\xdf"
                          "e",
                          true);
  char buffer[32];
  EXPECT_STREQ(entry->get_readable_message(buffer, 31, false, 0),
               "Gr\xf6\xdf"
               "e");
}

TEST(ReadableMessage, ATextThatFillsTheBufferIsFollowedByItsNul) {
  message_entry entry;
  show(entry, "abcdefgh");
  std::array<char, 10> buffer;
  buffer.fill('#');
  EXPECT_EQ(entry->get_readable_message(buffer.data(), 8, false, 0), buffer.data());
  EXPECT_EQ(std::string(buffer.data(), 10), std::string("abcdefgh\0#", 10));
}

TEST(ReadableMessage, ATextThatDoesNotFitIsRefused) {
  const debug_log_in_temp_folder log(1);
  message_entry entry;
  EnableDebugLog(1);
  show(entry, "abcdefghi");
  char buffer[16];
  EXPECT_EQ(
      raised<KPX_logging_internal_error>([&] { entry->get_readable_message(buffer, 8, false, 0); }),
      not_converted);
  EXPECT_THAT(log.lines(), testing::Contains(conversion_line));
}

TEST(ReadableMessage, OfASizeTheLow32BitsCount) {
  message_entry entry;
  show(entry, "abcdefgh");
  constexpr long wide = 1L << 32;
  char buffer[16];
  EXPECT_STREQ(entry->get_readable_message(buffer, wide + 8, false, 0), "abcdefgh");
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(buffer, wide + 7, false, 0); }),
            not_converted);
}

TEST(ReadableMessage, NegativeSizesAndNoBufferAreRefused) {
  message_entry entry;
  show(entry, "abc");
  char buffer[8] = "before";
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(buffer, -1, false, 0); }),
            not_converted);
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(nullptr, 8, false, 0); }),
            not_converted);
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(nullptr, 0, false, 0); }),
            not_converted);
}

TEST(ReadableMessage, AnEmptyMessageLeavesANulInABufferOfOneByte) {
  message_entry entry("no placeholder");
  char buffer[2] = {'#', '#'};
  EXPECT_STREQ(entry->get_readable_message(buffer, 0, false, 0), "");
  EXPECT_EQ(buffer[1], '#');
}

TEST(ReadableMessage, TheArgumentsReachTheChoiceOfTheTemplate) {
  ldf_entry definition = message_entry::definition("default %d%U4%");
  definition.messages = {{3, 0, "", "third %d%U4%"}};
  message_entry entry(definition);
  char buffer[32];
  EXPECT_STREQ(entry->get_readable_message(buffer, 31, false, 0), "default 0");
  EXPECT_STREQ(entry->get_readable_message(buffer, 31, false, 3), "third 0");
  EXPECT_STREQ(entry->get_readable_message(buffer, 31, true, 3), "default 0");
}

TEST(ReadableMessage, FailuresOfRenderingPassThrough) {
  message_entry entry("%d%NOBODY%");
  char buffer[32];
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>(
                [&] { entry->get_readable_message(buffer, 31, false, 0); }),
            "<KPX_logging_invalid_message_string> _kp_LOG_log_message::get_message:  unable to "
            "find attribute value for \"NOBODY\"!");
}

TEST(ReadableMessage, AnEntryWithoutADefinitionIsRefused) {
  const settings_guard settings;
  const _kp_LOG_log_entry_imp entry;
  char buffer[8];
  for (const bool icu : {true, false}) {
    kp_LOG_LogConfig::SetICUEnabled(icu);
    EXPECT_EQ(raised<KPX_logging_misc>([&] { entry.get_readable_message(buffer, 7, false, 0); }),
              "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
  }
}

// --- Without ICU --------------------------------------------------------------------------------

static std::string shown_in(const message_entry&, message_entry& entry, long size) {
  std::string buffer(12, '#');
  entry->get_readable_message(buffer.data(), size, false, 0);
  return buffer;
}

TEST(ReadableMessageWithoutIcu, IsCutToTheBufferAndFilledWithNuls) {
  message_entry entry;
  kp_LOG_LogConfig::SetICUEnabled(false);
  show(entry, "abcdefghij");
  EXPECT_EQ(shown_in(entry, entry, 8), std::string("abcdefg\0####", 12));
  EXPECT_EQ(shown_in(entry, entry, 12), std::string("abcdefghij\0\0", 12));
  EXPECT_EQ(shown_in(entry, entry, 11), std::string("abcdefghij\0#", 12));
  EXPECT_EQ(shown_in(entry, entry, 1), std::string("\0###########", 12));
}

TEST(ReadableMessageWithoutIcu, NothingIsWrittenWithoutRoom) {
  message_entry entry;
  kp_LOG_LogConfig::SetICUEnabled(false);
  show(entry, "abc");
  EXPECT_EQ(shown_in(entry, entry, 0), std::string(12, '#'));
  EXPECT_EQ(shown_in(entry, entry, -5), std::string(12, '#'));
  EXPECT_EQ(entry->get_readable_message(nullptr, 8, false, 0), nullptr);
}

TEST(ReadableMessageWithoutIcu, NoCodePageIsUsed) {
  message_entry entry;
  kp_LOG_LogConfig::SetICUEnabled(false);
  const code_page_setting unknown("no-such-code-page");
  show(entry,
       "Gr\xf6\xdf"
       "e");
  char buffer[16];
  EXPECT_STREQ(entry->get_readable_message(buffer, 16, false, 0),
               "Gr\xf6\xdf"
               "e");
}

// --- The switch ---------------------------------------------------------------------------------

static const char* const disabled =
    "kp_LOG_LogEntry::GetMessage:  this method is not yet supported.";

TEST(DisabledMessages, ASetVariableOfAnyValueDisablesRendering) {
  const environment_value off("_KP_DISABLE_READABLE_MSG", "");
  message_entry entry("%d%NOBODY%");
  char buffer[8] = "before";
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), disabled);
  EXPECT_STREQ(buffer, "before");
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
}

TEST(DisabledMessages, OfAHandleAreEmptyAndOfItsEntryTheFixedText) {
  const environment_value off("_KP_DISABLE_READABLE_MSG", "1");
  const loaded_definitions definitions(ldf_with_every_type("text"));
  const kp_LOG_LogEntry entry(17, 0);
  char buffer[8] = "before";
  EXPECT_STREQ(entry._get_imp().get_readable_message(buffer, 7, true, 0), disabled);
  EXPECT_STREQ(buffer, "before");
  EXPECT_STREQ(entry.GetReadableMessage(true, 0), "");
  EXPECT_STREQ(static_cast<const char*>(entry), "");
}

TEST(DisabledMessages, TheVariableIsReadOnce) {
  message_entry entry;
  show(entry, "abc");
  char buffer[8];
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), "abc");
  const environment_value off("_KP_DISABLE_READABLE_MSG", "1");
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), "abc");
}

TEST(DisabledMessages, StayDisabledWhenTheVariableGoesAway) {
  message_entry entry;
  show(entry, "abc");
  char buffer[8];
  {
    const environment_value off("_KP_DISABLE_READABLE_MSG", "1");
    EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), disabled);
  }
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), disabled);
}

// --- The output converter -----------------------------------------------------------------------

TEST(OutputConverter, IsThatOfTheFirstRendering) {
  message_entry entry;
  show(entry, "Größe");
  char buffer[16];
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "Größe");
  const code_page_setting latin("ISO-8859-1");
  entry->add_attrib_mbstr("MBTEXT",
                          "Gr\xf6\xdf"
                          "e",
                          true);
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "Größe");
}

TEST(OutputConverter, IsNotMadeByARenderingThatFailsBefore) {
  message_entry entry("%d%NOBODY%");
  char buffer[16];
  EXPECT_THROW(entry->get_readable_message(buffer, 15, false, 0),
               KPX_logging_invalid_message_string);
  const code_page_setting latin("ISO-8859-1");
  show(entry, "Gr\xf6\xdf");
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "Gr\xf6\xdf");
}

TEST(OutputConverter, OfAnUnknownCodePageFailsAndStays) {
  const debug_log_in_temp_folder log(1);
  message_entry entry("no text");
  char buffer[16];
  {
    const code_page_setting unknown("no-such-code-page");
    EnableDebugLog(1);
    EXPECT_EQ(raised<KPX_logging_internal_error>(
                  [&] { entry->get_readable_message(buffer, 15, false, 0); }),
              no_converter);
  }
  EXPECT_THAT(log.lines(), ElementsAre(converter_line("no-such-code-page")));
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(buffer, 15, false, 0); }),
            not_converted);
  EXPECT_THAT(log.lines(), ElementsAre(converter_line("no-such-code-page"), conversion_line));
}

TEST(OutputConverter, WithoutACodePageIsIcusDefault) {
  ASSERT_STREQ(ucnv_getDefaultName(), "UTF-8");
  message_entry entry;
  const code_page_setting none("");
  show(entry, "Größe");
  char buffer[16];
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "Größe");
}

static std::string refused_without_memory(message_entry& entry) {
  const failing_icu no_memory(1, from_then_on);
  char buffer[16];
  return raised<KPX_logging_internal_error>(
      [&] { entry->get_readable_message(buffer, 15, false, 0); });
}

TEST(OutputConverter, AnUnusableDefaultIsNotKept) {
  const debug_log_in_temp_folder log(1);
  message_entry entry("no placeholder");
  const code_page_setting none("");
  entry.unicode();  // opens what rendering itself needs
  EnableDebugLog(1);
  EXPECT_EQ(refused_without_memory(entry), no_default_converter);
  EXPECT_THAT(log.lines(), ElementsAre(converter_line("")));
  char buffer[16];
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "");
}

TEST(OutputConverter, ThatFoundNoMemoryStaysAsWell) {
  message_entry entry("no placeholder");
  entry.unicode();  // opens what rendering itself needs
  const code_page_setting setting("windows-1252");
  EXPECT_EQ(refused_without_memory(entry), no_converter);
  char buffer[16];
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(buffer, 15, false, 0); }),
            not_converted);
}

TEST(OutputConverter, ManyFirstRenderingsAtOnceAgree) {
  message_entry definitions("%s%MBTEXT%");
  std::vector<std::string> texts(8);
  std::vector<std::thread> threads;
  for (std::string& text : texts) {
    threads.emplace_back([&text] {
      _kp_LOG_log_entry_imp entry(17, 5);
      entry.add_attrib_mbstr("MBTEXT", "Größe", true);
      char buffer[16];
      text = entry.get_readable_message(buffer, 15, false, 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(texts, testing::Each("Größe"));
}
