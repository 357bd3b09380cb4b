#include "kp_LOG_RenderMessage.h"

#include <gmock/gmock.h>

#include "kp_LOG_LogEntry.h"
#include "kp_LOG_debug_log.h"
#include "tests/support/message_entry.h"
#include "tests/support/raised.h"

TEST(RenderMessage, GivesTheTextOfTheHandleAndOfItsImplementation) {
  const message_entry definitions("user %s%TEXT%");
  kp_LOG_LogEntry entry(17, 3);
  entry.AddAttribStr("TEXT", "alice");
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "user alice");
  EXPECT_EQ(kp_LOG_RenderMessage(entry._get_imp()), "user alice");
}

TEST(RenderMessage, TakesTheSameArgumentsAsTheOtherOperations) {
  ldf_entry definition = message_entry::definition("default %d%U4%");
  definition.messages = {{3, 0, "", "third %d%U4%"}};
  message_entry entry(definition);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "default 0");
  EXPECT_EQ(kp_LOG_RenderMessage(*entry, false, 3), "third 0");
  EXPECT_EQ(kp_LOG_RenderMessage(*entry, true, 3), "default 0");
}

TEST(RenderMessage, NeitherReadsNorWritesTheCache) {
  message_entry entry("abc %d%U4%");
  entry->get_readable_message(false, 0);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "abc 0");
  char buffer[16];
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "");
  entry->add_attrib_4u("U4", 7);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "abc 7");
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "abc 7");
}

TEST(RenderMessage, HasNoLimitOfLength) {
  message_entry entry(ldf_entry{.id = 17,
                                .msg_text = std::string(200000, 'x') + "%s%TEXT%",
                                .attributes = {{"TEXT", TypeChar32}}});
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), std::string(200000, 'x'));
  kp_LOG_LogConfig::SetICUEnabled(false);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), std::string(200000, 'x'));
}

// The same two characters in each code page, or its substitutes.
struct coded_text {
  const char* code_page;
  std::string bytes;
};

static const coded_text coded_texts[] = {
    {"UTF-8", "\xe6\x97\xa5\xe6\x9c\xac"},
    {"Shift_JIS", "\x93\xfa\x96\x7b"},
    {"GB18030", "\xc8\xd5\xb1\xbe"},
    {"ISO-2022-JP", "\x1b$BF|K\\\x1b(B"},
    {"ISO-8859-1", "\x1a\x1a"},
};

TEST(RenderMessage, IsInTheCodePageThatIsConfiguredNow) {
  for (const coded_text& text : coded_texts) {
    message_entry entry("%s%MBTEXT%");
    const code_page_setting setting(text.code_page);
    entry->add_attrib_mbstr("MBTEXT", text.bytes.c_str(), true);
    EXPECT_EQ(kp_LOG_RenderMessage(*entry), text.bytes) << text.code_page;
  }
}

TEST(RenderMessage, WritesEbcdic) {
  message_entry entry("%s%MBTEXT%");
  const code_page_setting setting("IBM-1047");
  entry->add_attrib_mbstr("MBTEXT", "\xc8\x85\x93\x93\x96", true);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "\xc8\x85\x93\x93\x96");
}

TEST(RenderMessage, OfAnUnknownCodePageIsRefused) {
  const debug_log_in_temp_folder log(1);
  message_entry entry("%d%U4%");
  const code_page_setting unknown("no-such-code-page");
  EnableDebugLog(1);
  EXPECT_EQ(raised<KPX_logging_internal_error>([&] { kp_LOG_RenderMessage(*entry); }),
            "_kp_LOG_log_message::get_readable_message:  UnicodeConverter constructor failed!");
  EXPECT_THAT(log.lines(),
              testing::ElementsAre("logging/logentry_i:N _kp_LOG_log_entry_imp::get_readable_"
                                   "message, UnicodeConverter construct error, "
                                   "codepage=no-such-code-page"));
}

TEST(RenderMessage, NeitherMakesNorUsesTheProcessWideConverter) {
  message_entry entry("%s%MBTEXT%");
  entry->add_attrib_mbstr("MBTEXT", "Größe", true);
  char buffer[16];
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "Größe");
  const code_page_setting latin("ISO-8859-1");
  entry->add_attrib_mbstr("MBTEXT",
                          "Gr\xf6\xdf"
                          "e",
                          true);
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0),
               "Gr\xf6\xdf"
               "e");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  entry->add_attrib_mbstr("MBTEXT", "Größe", true);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "Größe");
}

TEST(RenderMessage, WithoutIcuGivesTheBytesAsRendered) {
  message_entry entry("%s%MBTEXT% end");
  kp_LOG_LogConfig::SetICUEnabled(false);
  const code_page_setting unknown("no-such-code-page");
  entry->add_attrib_mbstr("MBTEXT", "\xff\xfe", true);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "\xff\xfe end");
}

TEST(RenderMessage, HonoursTheSwitch) {
  const environment_value off("_KP_DISABLE_READABLE_MSG", "");
  message_entry entry("%d%NOBODY%");
  EXPECT_EQ(kp_LOG_RenderMessage(*entry),
            "kp_LOG_LogEntry::GetMessage:  this method is not yet supported.");
}

TEST(RenderMessage, OfAnEntryWithoutADefinitionIsRefused) {
  const settings_guard settings;
  const kp_LOG_LogEntry entry;
  for (const bool icu : {true, false}) {
    kp_LOG_LogConfig::SetICUEnabled(icu);
    EXPECT_EQ(raised<KPX_logging_misc>([&] { kp_LOG_RenderMessage(entry); }),
              "_kp_LOG_log_entry_imp::_get_attribute_internal(): entry not initialized");
  }
}
