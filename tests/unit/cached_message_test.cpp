// The cached operation: what it answers, when it renders, and the stack that rendering takes.
#include <gmock/gmock.h>
#include <pthread.h>

#include <string>

#include "kp_LOG_LogEntry.h"
#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_debug_log.h"
#include "tests/support/message_entry.h"
#include "tests/support/raised.h"

TEST(CachedMessage, AFreshEntryAnswersWithTheEmptyText) {
  message_entry entry;
  show(entry, "abc");
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
}

TEST(CachedMessage, RenderingStillFindsFaults) {
  message_entry entry("%d%NOBODY%");
  EXPECT_EQ(
      raised<KPX_logging_invalid_message_string>([&] { entry->get_readable_message(false, 0); }),
      "<KPX_logging_invalid_message_string> _kp_LOG_log_message::get_message:  unable to find "
      "attribute value for \"NOBODY\"!");
}

TEST(CachedMessage, AFaultLeavesTheEntryModified) {
  message_entry entry("%d%NOBODY%");
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(entry->get_readable_message(false, 0), KPX_logging_invalid_message_string);
  }
  char buffer[8];
  EXPECT_THROW(entry->get_readable_message(buffer, 7, false, 0),
               KPX_logging_invalid_message_string);
}

TEST(CachedMessage, TheBufferOperationAnswersFromTheCacheUntilTheEntryChanges) {
  message_entry entry;
  show(entry, "abc");
  char buffer[8] = "before";
  entry->get_readable_message(false, 0);
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), "");
  EXPECT_STREQ(buffer, "before");
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, true, 0), "abc");
  EXPECT_STREQ(buffer, "abc");
  entry->add_attrib_mbstr("MBTEXT", "xyz", true);
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), "xyz");
}

TEST(CachedMessage, AnotherIndexIsAnotherMessage) {
  ldf_entry definition = message_entry::definition("default %d%U4%");
  definition.messages = {{3, 0, "", "third %d%U4%"}};
  message_entry entry(definition);
  char buffer[32];
  entry->get_readable_message(false, 3);
  EXPECT_STREQ(entry->get_readable_message(buffer, 31, false, 3), "");
  EXPECT_STREQ(entry->get_readable_message(buffer, 31, false, 0), "default 0");
}

TEST(CachedMessage, TheBufferOperationNeverFillsTheCache) {
  message_entry entry;
  show(entry, "abc");
  char buffer[8];
  EXPECT_STREQ(entry->get_readable_message(buffer, 7, false, 0), "abc");
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
}

TEST(CachedMessage, TheHandleAnswersAsWell) {
  message_entry entry("abc %d%U4%");
  kp_LOG_LogEntry handle(17, 3);
  EXPECT_STREQ(handle.GetReadableMessage(false, 0), "");
  EXPECT_STREQ(static_cast<const char*>(handle), "");
}

// An entry whose message is `length` bytes long.
static ldf_entry of_length(size_t length) {
  return {.id = 17,
          .msg_text = std::string(length, 'x') + "%s%TEXT%",
          .attributes = {{"TEXT", TypeChar32}}};
}

TEST(CachedMessage, AMessageOf65536BytesIsTheLongest) {
  const debug_log_in_temp_folder log(1);
  message_entry entry(of_length(65535));
  EnableDebugLog(1);
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  entry.use(of_length(65536));
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  EXPECT_THAT(log.lines(), testing::Not(testing::Contains(conversion_line)));
  entry.use(of_length(65537));
  EXPECT_EQ(raised<KPX_logging_internal_error>([&] { entry->get_readable_message(false, 0); }),
            not_converted);
  EXPECT_THAT(log.lines(), testing::Contains(conversion_line));
}

TEST(CachedMessage, WithoutIcuALongerMessageIsCutInSilence) {
  message_entry entry(of_length(70000));
  kp_LOG_LogConfig::SetICUEnabled(false);
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
}

// --- When it renders ----------------------------------------------------------------------------

// In strict mode a message without its value cannot be rendered.
TEST(CachedMessage, ASecondCallDoesNotRenderUntilTheEntryChanges) {
  message_entry entry("%d%U4%");
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  kp_LOG_LogEntry::SetOperationMode(1);
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  entry->add_attrib_2u("U2", 1);
  EXPECT_EQ(raised<KPX_logging_attribute_not_found>([&] { entry->get_readable_message(false, 0); }),
            "<KPX_logging_attribute_not_found> Attribute U4 cannot be located.");
}

TEST(CachedMessage, OtherArgumentsRenderAndAFaultKeepsWhatTheCacheHeld) {
  ldf_entry definition = message_entry::definition("%d%NOBODY%");
  definition.selector = "U2";
  definition.messages = {{1, 7, "", "seven %d%U4%"}};
  message_entry entry(definition);
  entry->add_attrib_2u("U2", 7);
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  EXPECT_THROW(entry->get_readable_message(true, 0), KPX_logging_invalid_message_string);
  kp_LOG_LogEntry::SetOperationMode(1);
  EXPECT_STREQ(entry->get_readable_message(false, 0), "");
  char buffer[16] = "before";
  EXPECT_STREQ(entry->get_readable_message(buffer, 15, false, 0), "");
  EXPECT_STREQ(buffer, "before");
}

// --- The stack ----------------------------------------------------------------------------------

// Sanitizers make frames larger than they are.
#ifndef KP_SANITIZED
constexpr size_t stack_unit = 1024;
#else
constexpr size_t stack_unit = 16 * 1024;
#endif

static void* render_into_the_cache(void* entry) {
  const auto& imp = **static_cast<message_entry*>(entry);
  return const_cast<char*>(imp.get_readable_message(false, 0));
}

static void* render_into_a_string(void* entry) {
  return kp_LOG_RenderMessage(**static_cast<message_entry*>(entry)).empty() ? nullptr : entry;
}

// Runs `render` in a thread with that much stack. True when it comes back with a result.
static bool renders(message_entry& entry, void* (*render)(void*), size_t kib) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(pthread_attr_setstacksize(&attributes, kib * stack_unit), 0);
  pthread_t thread;
  EXPECT_EQ(pthread_create(&thread, &attributes, render, &entry), 0);
  void* result = nullptr;
  pthread_join(thread, &result);
  pthread_attr_destroy(&attributes);
  return result != nullptr;
}

TEST(RenderingStack, OfPlainTemplates) {
  message_entry entry("%s%MBTEXT% %f%REAL% %C%REAL% %P%S4% %D%STAMP% %T%STAMP% %d%U4%");
  EXPECT_TRUE(renders(entry, render_into_a_string, 64));
  EXPECT_TRUE(renders(entry, render_into_the_cache, 128));
}

static std::string nested(const std::string& open, const std::string& inside,
                          const std::string& close, int times) {
  std::string text = inside;
  for (int i = 0; i < times; ++i) text.insert(0, open).append(close);
  return text;
}

// The deepest that is allowed, of each kind of argument that nests.
static const std::string deepest_templates[] = {
    nested("{0,choice,0#", "deep", "}", 100) + " %d%U4%",
    nested("{0,choice,0#", "{1,date,full} {0,number,currency}", "}", 99) + " %d%U4% %D%STAMP%",
    nested("{0,plural,other{", "#", "}}", 50) + " %d%U4%",
    nested("{1,select,other{", "deep", "}}", 50) + " %d%U4% %s%TEXT%",
};

TEST(RenderingStack, OfTemplatesNestedAsDeepAsAllowed) {
  for (const std::string& text : deepest_templates) {
    message_entry entry(text);
    entry->add_attrib_str("TEXT", "key", true);
    EXPECT_TRUE(renders(entry, render_into_a_string, 384)) << text;
    EXPECT_TRUE(renders(entry, render_into_the_cache, 512)) << text;
  }
}
