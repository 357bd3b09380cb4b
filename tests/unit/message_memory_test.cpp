// Rendering, with each of its allocations failing in turn.
#include <gtest/gtest.h>

#include "kp_LOG_RenderMessage.h"
#include "logging/logmsg_token.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/failing.h"
#include "tests/support/message_entry.h"

static void fill(message_entry& entry) {
  entry->add_attrib_str("TEXT", "a text that is longer than what fits inside", true);
  entry->add_attrib_mbstr("MBTEXT", "Größe", true);
  entry->add_attrib_4("S4", -5);
  entry->add_attrib_float8("REAL", 0.5);
}

static const char* const wide_template =
    "a literal text that is longer than what fits inside %s%TEXT% %s%MBTEXT% %d%S4% %f%REAL% "
    "%x%S4%";

TEST(MessageMemory, RenderingThroughIcu) {
  message_entry entry(wide_template);
  fill(entry);
  std::string text;
  EXPECT_GT(for_each_failing_new([&] { text = kp_LOG_RenderMessage(*entry); }), 5U);
  EXPECT_EQ(text, kp_LOG_RenderMessage(*entry));
}

TEST(MessageMemory, RenderingBytes) {
  message_entry entry(wide_template);
  fill(entry);
  kp_LOG_LogConfig::SetICUEnabled(false);
  std::string text;
  EXPECT_GT(for_each_failing_new([&] { text = kp_LOG_RenderMessage(*entry); }), 5U);
  EXPECT_EQ(text, kp_LOG_RenderMessage(*entry));
}

TEST(MessageMemory, RenderingIntoABuffer) {
  message_entry entry(wide_template);
  fill(entry);
  char buffer[256];
  EXPECT_GT(for_each_failing_new(
                [&] { entry->get_readable_message(buffer, sizeof buffer - 1, false, 0); }),
            5U);
  EXPECT_EQ(buffer, kp_LOG_RenderMessage(*entry));
}

TEST(MessageMemory, SplittingTemplates) {
  const kp_String bytes(wide_template);
  EXPECT_GT(for_each_failing_new([&] {
              _kp_LOG_msg_token_list list;
              _kp_LOG_log_message::_tokenize_kpString(bytes, list);
            }),
            5U);
  const icu::UnicodeString units(wide_template);
  EXPECT_GT(for_each_failing_new([&] {
              _kp_LOG_msg_token_list list;
              _kp_LOG_log_message::_tokenize_string(units, list);
            }),
            5U);
}

TEST(MessageMemory, OpeningACatalog) {
  const settings_guard settings;
  catalog_folder folder;
  folder.add_locale("root", {{"M1", "one"}});
  const std::string path = folder.path();
  EXPECT_GE(for_each_failing_new([&] { _kp_LOG_log_message::set_resource_path(path.c_str()); }),
            2U);
  EXPECT_TRUE(_kp_LOG_log_message::has_catalog());
  EXPECT_EQ(_kp_LOG_log_message::get_resource_path(), path);
}

TEST(MessageMemory, ACatalogThatFindsNoMemoryLeavesNone) {
  const settings_guard settings;
  catalog_folder folder;
  folder.add_locale("root", {{"M1", "one"}});
  const std::string path = folder.path();
  _kp_LOG_log_message::set_resource_path(path.c_str());
  {
    const failing_new fault(2);
    EXPECT_THROW(_kp_LOG_log_message::set_resource_path(path.c_str()), KPX_memory_alloc);
  }
  EXPECT_FALSE(_kp_LOG_log_message::has_catalog());
}
