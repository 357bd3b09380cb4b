// Threads that render their own entries at the same time give what one thread gives.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kp_LOG_RenderMessage.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/icu_setting.h"
#include "tests/support/message_entry.h"

static const char* const templates[] = {
    "user %s%MBTEXT% on port %d%U2%", "%f%REAL% of %d%S4%",       "%D%STAMP% %T%STAMP%",
    "'quoted' {0} %s%TEXT% %C%REAL%", "%P%REAL%|%u%U4%|%s%TEXT%", "%d%BOOL% %% done %s%MBTEXT%"};

// One kind of entry for each template, IDs from 100.
static ldf_file definitions() {
  ldf_file file{.globals = ldf_builtin_fields()};
  unsigned id = 100;
  for (const char* text : templates) {
    ldf_entry entry = message_entry::definition(text);
    entry.id = id++;
    entry.msg_id = "M" + std::to_string(entry.id);
    file.entries.push_back(entry);
  }
  return file;
}

static std::string message_number(unsigned n) {
  _kp_LOG_log_entry_imp entry(100 + n % static_cast<unsigned>(std::size(templates)), 5);
  entry.add_attrib_mbstr("MBTEXT", ("\x93\xfa\x96\x7b " + std::to_string(n)).c_str(), true);
  entry.add_attrib_str("TEXT", ("text " + std::to_string(n)).c_str(), true);
  entry.add_attrib_2u("U2", static_cast<unsigned short>(n));
  entry.add_attrib_4("S4", static_cast<int>(n) - 500);
  entry.add_attrib_4u("U4", n * 7);
  entry.add_attrib_bool("BOOL", n % 2 == 0);
  entry.add_attrib_float8("REAL", n / 8.0);
  entry.add_attrib_time("STAMP", kp_Time(2026, 1 + static_cast<int>(n % 12), 15, 17, 2, 56));
  char buffer[256];
  return kp_LOG_RenderMessage(entry) + "\n" +
         entry.get_readable_message(buffer, sizeof buffer - 1, false, 0);
}

static std::vector<std::string> messages(unsigned count) {
  std::vector<std::string> result;
  for (unsigned n = 0; n < count; ++n) result.push_back(message_number(n));
  return result;
}

static void in_threads(unsigned count, const std::function<void()>& work) {
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < count; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
}

constexpr unsigned messages_per_thread = 600;

// The zone is named in the environment: without that the C library allocates in every mktime, under
// a lock of its own that ThreadSanitizer does not see.
static void expect_the_same_in_eight_threads() {
  const environment_value zone("TZ", "UTC");
  const std::vector<std::string> alone = messages(messages_per_thread);
  std::atomic<unsigned> different{0};
  in_threads(8, [&] {
    if (messages(messages_per_thread) != alone) ++different;
  });
  EXPECT_EQ(different.load(), 0U);
}

class RenderThreads : public testing::TestWithParam<const char*> {};

TEST_P(RenderThreads, GiveTheTextOfASingleThread) {
  const loaded_definitions loaded(definitions());
  const code_page_setting setting(GetParam());
  expect_the_same_in_eight_threads();
}

INSTANTIATE_TEST_SUITE_P(CodePages, RenderThreads,
                         testing::Values("Shift_JIS", "UTF-8", "GB18030", "ISO-2022-JP"));

TEST(RenderThreadsWithoutIcu, GiveTheTextOfASingleThread) {
  const loaded_definitions loaded(definitions());
  kp_LOG_LogConfig::SetICUEnabled(false);
  expect_the_same_in_eight_threads();
}

// A catalog may be replaced while others render: each message comes from one of the two.
TEST(RenderThreadsAndCatalogs, ReplacingTheCatalogIsSafe) {
  const loaded_definitions loaded(definitions());
  const code_page_setting setting("UTF-8");
  catalog_folder one;
  catalog_folder two;
  one.add_locale("root", {{"M100", "one %d%U2%"}});
  two.add_locale("root", {{"M100", "two %d%U2%"}});
  kp_LOG_LogConfig::SetMessageCatalogPath(one.path().c_str());
  std::atomic<bool> done{false};
  std::thread replacer([&] {
    for (bool first = false; !done; first = !first) {
      kp_LOG_LogConfig::SetMessageCatalogPath((first ? one : two).path().c_str());
    }
  });
  std::atomic<unsigned> strange{0};
  in_threads(4, [&strange] {
    _kp_LOG_log_entry_imp entry(100, 5);
    for (int i = 0; i < 2000; ++i) {
      const std::string text = kp_LOG_RenderMessage(entry);
      if (text != "one 0" && text != "two 0") ++strange;
    }
  });
  done = true;
  replacer.join();
  EXPECT_EQ(strange.load(), 0U);
}

// The locale and the time zone may change while others render: each message has one of each.
static std::string message_of_both() {
  _kp_LOG_log_entry_imp entry(100, 5);
  entry.add_attrib_float8("REAL", 0.5);
  entry.add_attrib_time("STAMP", kp_Time(2026, 1, 2, 3, 4, 5));
  return kp_LOG_RenderMessage(entry);
}

static void set_zone(const char* id) {
  icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(id));
}

TEST(RenderThreadsAndSettings, ChangingTheLocaleAndTheZoneIsSafe) {
  const environment_value tz("TZ", "UTC");
  ldf_file file{.globals = ldf_builtin_fields()};
  file.entries = {message_entry::definition("%f%REAL% %T%STAMP%")};
  file.entries[0].id = 100;
  const loaded_definitions loaded(file);
  const code_page_setting setting("UTF-8");
  const icu_locale_setting locale("de_DE");
  const icu_zone_setting zone("UTC");
  std::atomic<bool> done{false};
  std::thread changer([&done] {
    while (!done) {
      const icu_locale_setting french("fr_CH");
      set_zone("Asia/Tokyo");
      const icu_locale_setting english("en_GB");
      set_zone("UTC");
    }
  });
  std::atomic<unsigned> strange{0};
  in_threads(4, [&strange] {
    const std::set<std::string> known = {"0,5 03:04:05", "0,5 12:04:05", "0.5 03:04:05",
                                         "0.5 12:04:05"};
    for (int i = 0; i < 500; ++i) strange += known.count(message_of_both()) == 0 ? 1 : 0;
  });
  done = true;
  changer.join();
  EXPECT_EQ(strange.load(), 0U);
  EXPECT_EQ(message_of_both(), "0,5 03:04:05");
}
