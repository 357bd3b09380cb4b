#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "base/kp_lock.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "logging/logcfg_file.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/failing.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;
using testing::IsEmpty;

// What the settings are before anybody sets them, taken down before main.
struct settings_at_start {
  kp_SynchronizationLevelType level = kp_LOG_LogConfig::GetSynchronizationLevel();
  bool count = kp_LOG_LogConfig::IsEnableCountConfig();
  bool icu = kp_LOG_LogConfig::IsICUEnabled();
  int action = kp_LOG_LogConfig::GetActionAttrLenExceed();
  const char* definition_path = kp_LOG_LogConfig::GetDefinitionPath();
  const char* aux_definition_path = kp_LOG_LogConfig::GetAuxDefinitionPath();
  const char* catalog_path = kp_LOG_LogConfig::GetMessageCatalogPath();
  const char* code_page = kp_LOG_LogConfig::GetCodePage();
  const void* source = kp_LOG_LogConfig::_get_configuration_ptr();
  const void* table = kp_LOG_LogConfig::GetDefinitionTable();
};

static const settings_at_start at_start;

static std::optional<unsigned> configured(const char* section, const char* key) {
  unsigned value = 4711;
  if (kp_LOG_LogConfig::GetConfigurationIntegerValue(section, key, value)) return value;
  EXPECT_EQ(value, 4711U) << "a failed look-up changed the value";
  return std::nullopt;
}

TEST(Configuration, StartsWithItsDefaults) {
  EXPECT_EQ(at_start.level, KP_SYNC_THREAD);
  EXPECT_FALSE(at_start.count);
  EXPECT_TRUE(at_start.icu);
  EXPECT_EQ(at_start.action, 0);
  EXPECT_STREQ(at_start.definition_path, "");
  EXPECT_STREQ(at_start.aux_definition_path, "");
  EXPECT_STREQ(at_start.catalog_path, "");
  EXPECT_STREQ(at_start.code_page, "");
  EXPECT_EQ(at_start.source, nullptr);
}

TEST(Configuration, HasOneDefinitionTableFromTheStart) {
  ASSERT_NE(at_start.table, nullptr);
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionTable(), at_start.table);
}

// --- Flags and numbers ---

TEST(SynchronizationLevel, ZeroToFourAreStored) {
  for (int level = 0; level <= 4; ++level) {
    kp_LOG_LogConfig::SetSynchronizationLevel(static_cast<kp_SynchronizationLevelType>(level));
    EXPECT_EQ(kp_LOG_LogConfig::GetSynchronizationLevel(), level);
  }
  kp_LOG_LogConfig::SetSynchronizationLevel(KP_SYNC_THREAD);
}

TEST(SynchronizationLevel, OtherValuesAreIgnored) {
  for (const int level : {5, 6, 255, -1, INT_MAX, INT_MIN}) {
    kp_LOG_LogConfig::SetSynchronizationLevel(static_cast<kp_SynchronizationLevelType>(level));
    EXPECT_EQ(kp_LOG_LogConfig::GetSynchronizationLevel(), KP_SYNC_THREAD) << level;
  }
}

TEST(CountConfig, IsSwitchedOnAndOff) {
  kp_LOG_LogConfig::EnableCountConfig(true);
  EXPECT_TRUE(kp_LOG_LogConfig::IsEnableCountConfig());
  kp_LOG_LogConfig::EnableCountConfig(false);
  EXPECT_FALSE(kp_LOG_LogConfig::IsEnableCountConfig());
}

TEST(IcuSwitch, IsStoredAndLogged) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  kp_LOG_LogConfig::SetICUEnabled(false);
  EXPECT_FALSE(kp_LOG_LogConfig::IsICUEnabled());
  EXPECT_FALSE(b_is_icu_enabled);
  kp_LOG_LogConfig::SetICUEnabled(true);
  EXPECT_TRUE(kp_LOG_LogConfig::IsICUEnabled());
  const std::string line = "logging/logcfg:N kp_LOG_LogConfig::SetICUEnabled, ok!";
  EXPECT_THAT(log.lines(), ElementsAre(line, line));
}

TEST(ActionOnExceededLength, ZeroAndOneAreStored) {
  const settings_guard guard;
  kp_LOG_LogConfig::SetActionAttrLenExceed(1);
  EXPECT_EQ(kp_LOG_LogConfig::GetActionAttrLenExceed(), 1);
  EXPECT_EQ(action_on_exceed, 1U);
  kp_LOG_LogConfig::SetActionAttrLenExceed(0);
  EXPECT_EQ(kp_LOG_LogConfig::GetActionAttrLenExceed(), 0);
}

TEST(ActionOnExceededLength, OtherValuesAreRefused) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(9);
  kp_LOG_LogConfig::SetActionAttrLenExceed(1);
  for (const int action : {-1, 2, 256, INT_MAX, INT_MIN}) {
    EXPECT_EQ(raised<KPX_logging_illegal_argument>(
                  [&] { kp_LOG_LogConfig::SetActionAttrLenExceed(action); }),
              "The action when attribute exceeds limitation is invalid!\n");
    EXPECT_EQ(kp_LOG_LogConfig::GetActionAttrLenExceed(), 1);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

// --- Messages ---

TEST(MessageCatalogPath, IsStoredAndLogged) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  catalog_folder catalog;
  catalog.add_locale("root", {{"ID", "text"}});
  kp_LOG_LogConfig::SetMessageCatalogPath(catalog.path().c_str());
  EXPECT_EQ(kp_LOG_LogConfig::GetMessageCatalogPath(), catalog.path());
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetMessageCatalogPath, path=" +
                          catalog.path() + "!"));
}

TEST(MessageCatalogPath, OfNullClosesTheCatalog) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
  EXPECT_STREQ(kp_LOG_LogConfig::GetMessageCatalogPath(), "");
  EXPECT_THAT(
      log.lines(),
      ElementsAre("logging/logmsg:N _kp_LOG_log_message::set_resource_path set resource_path=\"\"!",
                  "logging/logcfg:N kp_LOG_LogConfig::SetMessageCatalogPath, path=(NULL)!"));
}

TEST(MessageCatalogPath, IsIgnoredAndHiddenWhileIcuIsDisabled) {
  const settings_guard guard;
  catalog_folder catalog;
  catalog.add_locale("root", {{"ID", "text"}});
  kp_LOG_LogConfig::SetMessageCatalogPath(catalog.path().c_str());
  kp_LOG_LogConfig::SetICUEnabled(false);
  const debug_log_in_temp_folder log(9);
  kp_LOG_LogConfig::SetMessageCatalogPath("/nowhere/at/all");
  EXPECT_STREQ(kp_LOG_LogConfig::GetMessageCatalogPath(), "");
  EXPECT_THAT(log.lines(), IsEmpty());
  kp_LOG_LogConfig::SetICUEnabled(true);
  EXPECT_EQ(kp_LOG_LogConfig::GetMessageCatalogPath(), catalog.path());
}

TEST(MessageCatalogPath, OfAMissingCatalogRaisesAndWritesNoLineOfSuccess) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  const std::string path = log.folder().file("missing");
  EXPECT_THROW(kp_LOG_LogConfig::SetMessageCatalogPath(path.c_str()), KPX_logging_missing_resource);
  for (const std::string& line : log.lines())
    EXPECT_EQ(line.find("SetMessageCatalogPath"), std::string::npos) << line;
}

TEST(Locale, IsTheOneOfTheBaseLibrary) {
  const settings_guard guard;
  kp_LOG_LogConfig::SetLocale("de_DE");
  EXPECT_STREQ(kp_LOG_LogConfig::GetLocale().get_name(), "de_DE");
  EXPECT_EQ(kp_I18N_get_locale(), kp_Locale("de_DE"));
}

TEST(Locale, ThatIsNoLocaleNameIsRefused) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(9);
  kp_LOG_LogConfig::SetLocale("de_DE");
  for (const char* name : {"../../etc", "de/DE", "a b"})
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] { kp_LOG_LogConfig::SetLocale(name); }),
              "invalid argument");
  EXPECT_STREQ(kp_LOG_LogConfig::GetLocale().get_name(), "de_DE");
  EXPECT_THAT(log.lines(), IsEmpty());
}

// The code page, put back at the end of the scope.
class code_page_guard {
 public:
  ~code_page_guard() { kp_LOG_LogConfig::SetCodePage(before_.c_str()); }

 private:
  std::string before_ = kp_LOG_LogConfig::GetCodePage();
};

TEST(CodePage, IsStoredUncheckedAndLogged) {
  const code_page_guard guard;
  const debug_log_in_temp_folder log(2);
  kp_LOG_LogConfig::SetCodePage("no such code page");
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "no such code page");
  EXPECT_THAT(
      log.lines(),
      ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetCodePage codepage==no such code page!"));
}

TEST(CodePage, OfNullIsRefusedWithALine) {
  const code_page_guard guard;
  const debug_log_in_temp_folder log(1);
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  EXPECT_EQ(raised<KPX_logging_illegal_argument>([] { kp_LOG_LogConfig::SetCodePage(nullptr); }),
            "invalid argument");
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "UTF-8");
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetCodePage codepage==0!"));
}

TEST(CodePage, IsACopyAndMayBeSetToItself) {
  const code_page_guard guard;
  std::string name = "UTF-8";
  kp_LOG_LogConfig::SetCodePage(name.c_str());
  name = "other";
  kp_LOG_LogConfig::SetCodePage(kp_LOG_LogConfig::GetCodePage());
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "UTF-8");
}

TEST(CodePage, ThatWasGotStaysReadableWhateverIsSetSince) {
  const code_page_guard guard;
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  const char* const got = kp_LOG_LogConfig::GetCodePage();
  kp_LOG_LogConfig::SetCodePage("Shift_JIS");
  EXPECT_STREQ(got, "UTF-8");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  EXPECT_EQ(kp_LOG_LogConfig::GetCodePage(), got);
}

TEST(CodePage, WithoutMemoryStaysAsItWas) {
  const code_page_guard guard;
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  EXPECT_EQ(for_each_failing_new([] { kp_LOG_LogConfig::SetCodePage("GB18030"); },
                                 [](const std::exception_ptr& outcome) {
                                   expect_memory_alloc(outcome);
                                   EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "UTF-8");
                                 }),
            1U);
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "GB18030");
}

// --- Configuration source ---

TEST(ConfigurationSource, GivesTheValuesOfItsFile) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[global]\nA=1\n[s]\nB=0x10\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  EXPECT_NE(kp_LOG_LogConfig::_get_configuration_ptr(), nullptr);
  EXPECT_EQ(configured("s", "A"), 1U);
  EXPECT_EQ(configured("s", "B"), 16U);
  EXPECT_EQ(configured("s", "C"), std::nullopt);
}

TEST(ConfigurationSource, OfAMissingFileIsRefusedUnlessItIsOptional) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(1);
  for (const int type : {0, 2, 17, -1})
    EXPECT_EQ(raised<KPX_logging_illegal_argument>([&] {
                kp_LOG_LogConfig::SetConfigurationSource(
                    "missing", static_cast<kp_ConfigurationSourceType>(type));
              }),
              "invalid argument");
  EXPECT_EQ(kp_LOG_LogConfig::_get_configuration_ptr(), nullptr);
  const std::string line =
      "logging/logcfg:N kp_LOG_LogConfig::SetConfigurationSource, invalid argument!";
  EXPECT_THAT(log.lines(), ElementsAre(line, line, line, line));
}

TEST(ConfigurationSource, OfAMissingOptionalFileHasNoValues) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(9);
  kp_LOG_LogConfig::SetConfigurationSource("missing", KP_CONFIG_FILE_OPTIONAL);
  EXPECT_NE(kp_LOG_LogConfig::_get_configuration_ptr(), nullptr);
  EXPECT_EQ(configured("s", "A"), std::nullopt);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ConfigurationSource, WhateverItsTypeIsAFile) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[s]\nA=1\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(),
                                           static_cast<kp_ConfigurationSourceType>(17));
  EXPECT_EQ(configured("s", "A"), 1U);
}

TEST(ConfigurationSource, ThatIsRefusedLeavesTheEarlierOne) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[s]\nA=1\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  const std::string missing = folder.file("missing");
  EXPECT_THROW(kp_LOG_LogConfig::SetConfigurationSource(missing.c_str(), KP_CONFIG_FILE),
               KPX_logging_illegal_argument);
  EXPECT_EQ(configured("s", "A"), 1U);
}

TEST(ConfigurationSource, OfNullIsNone) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[s]\nA=1\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  EXPECT_EQ(configured("s", "A"), 1U);
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
  EXPECT_EQ(kp_LOG_LogConfig::_get_configuration_ptr(), nullptr);
  EXPECT_EQ(configured("s", "A"), std::nullopt);
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE_OPTIONAL);
  EXPECT_EQ(configured("s", "A"), std::nullopt);
}

TEST(ConfigurationSource, OfARelativePathIsTheFileThatItNamedWhenItWasSet) {
  const settings_guard guard;
  const temp_folder folder;
  const temp_folder elsewhere;
  folder.write("settings", "[s]\nA=1\n\n");
  elsewhere.write("settings", "[s]\nA=2\n\n");
  {
    const working_folder here(folder.path());
    kp_LOG_LogConfig::SetConfigurationSource("settings", KP_CONFIG_FILE);
  }
  const working_folder there(elsewhere.path());
  EXPECT_EQ(configured("s", "A"), 1U);
}

TEST(ConfigurationSource, IsTheSameForAThreadUntilThatAsksAgain) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string first = folder.write("first", "[s]\nA=1\n\n");
  const std::string second = folder.write("second", "[s]\nA=2\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(first.c_str(), KP_CONFIG_FILE);
  const _kp_LOG_configuration* const mine = kp_LOG_LogConfig::_get_configuration_ptr();
  std::thread([&] {
    kp_LOG_LogConfig::SetConfigurationSource(second.c_str(), KP_CONFIG_FILE);
  }).join();
  unsigned value = 0;
  EXPECT_TRUE(mine->get_integer_value("s", "A", value));  // read now, by who still has it
  EXPECT_EQ(value, 1U);
  EXPECT_EQ(configured("s", "A"), 2U);
  EXPECT_NE(kp_LOG_LogConfig::_get_configuration_ptr(), mine);
}

// Half of a filter's keys from the old file and half from the new one would be neither setting.
TEST(ConfigurationSource, ThatIsReplacedAnswersWhoHasItAsItWasReadWhateverBecomesOfItsFile) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[s]\nA=1\n\n");
  const auto replaced_by_another_thread = [&path] {
    std::thread([&] {
      kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE_OPTIONAL);
    }).join();
  };
  const auto value_of = [](const _kp_LOG_configuration& source) {
    unsigned value = 0;
    return source.get_integer_value("s", "A", value) ? value : 0;
  };
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  EXPECT_EQ(configured("s", "A"), 1U);
  const _kp_LOG_configuration& changed = *kp_LOG_LogConfig::_get_configuration_ptr();
  folder.write("settings", "[s]\nA=2\n\n");
  const auto an_hour = std::chrono::hours(1);
  std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) - an_hour);
  replaced_by_another_thread();
  EXPECT_EQ(value_of(changed), 1U);
  EXPECT_EQ(configured("s", "A"), 2U);
  const _kp_LOG_configuration& removed = *kp_LOG_LogConfig::_get_configuration_ptr();
  std::filesystem::remove(path);
  replaced_by_another_thread();
  EXPECT_EQ(value_of(removed), 2U);
  EXPECT_EQ(configured("s", "A"), std::nullopt);
}

TEST(ConfigurationSource, SetAgainReadsTheFileAgain) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[s]\nA=1\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  EXPECT_EQ(configured("s", "A"), 1U);
  folder.write("settings", "[s]\nA=2\n\n");
  EXPECT_EQ(configured("s", "A"), 1U);
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  EXPECT_EQ(configured("s", "A"), 2U);
}

TEST(ConfigurationSource, WithoutMemoryLeavesTheEarlierOne) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string first = folder.write("first", "[s]\nA=1\n\n");
  const std::string second = folder.write("second", "[s]\nA=2\n\n");
  kp_LOG_LogConfig::SetConfigurationSource(first.c_str(), KP_CONFIG_FILE);
  const unsigned failures = for_each_failing_new(
      [&] { kp_LOG_LogConfig::SetConfigurationSource(second.c_str(), KP_CONFIG_FILE); },
      [](const std::exception_ptr& outcome) {
        expect_memory_alloc(outcome);
        EXPECT_EQ(configured("s", "A"), 1U);
      });
  EXPECT_GE(failures, 1U);
  EXPECT_EQ(configured("s", "A"), 2U);
}

TEST(ConfigurationValue, OfANullSectionOrKeyIsRefused) {
  const debug_log_in_temp_folder log(9);
  unsigned value = 4711;
  const auto get = [&](const char* section, const char* key) {
    return raised<KPX_logging_illegal_argument>(
        [&] { kp_LOG_LogConfig::GetConfigurationIntegerValue(section, key, value); });
  };
  EXPECT_EQ(get(nullptr, "A"), "invalid argument");
  EXPECT_EQ(get("s", nullptr), "invalid argument");
  EXPECT_EQ(get(nullptr, nullptr), "invalid argument");
  EXPECT_EQ(value, 4711U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ConfigurationValue, WithoutASourceIsNone) {
  const settings_guard guard;
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
  EXPECT_EQ(configured("s", "A"), std::nullopt);
}

TEST(ConfigurationValue, IsSeenByThreadsThatReadItFirstAtOnce) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = folder.write("settings", "[s]\nA=1\n\n");
  for (int round = 0; round < 20; ++round) {
    kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) readers.emplace_back([] { EXPECT_EQ(configured("s", "A"), 1U); });
    for (std::thread& reader : readers) reader.join();
  }
}

// --- The lock, and the debug level ---

TEST(Configuration, MayBeChangedByAThreadThatHoldsTheProcessWideLock) {
  const settings_guard guard;
  const code_page_guard code_page;
  const kp_THREAD_global_lock lock;
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetLocale("de_DE");
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "UTF-8");
}

TEST(Configuration, ChangesAreNotLoggedAtLevelOne) {
  const settings_guard guard;
  const code_page_guard code_page;
  const debug_log_in_temp_folder log(1);
  kp_LOG_LogConfig::SetICUEnabled(true);
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(log.folder(), "std", {17}).c_str());
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_FALSE(std::filesystem::exists("zel_debug.log"));
}
