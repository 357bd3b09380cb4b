// The configuration between threads: who waits for the process-wide lock, and look-ups of settings
// while their file is read again.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/kp_lock.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "logging/logcfg_file.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using patience_clock = std::chrono::steady_clock;

// ---- who waits ----

// The state letter that the system gives that thread: 'S' while it sleeps, as for a lock; '?' when
// it has ended.
static char thread_state(pid_t thread) {
  FILE* const stat = fopen(("/proc/self/task/" + std::to_string(thread) + "/stat").c_str(), "r");
  if (stat == nullptr) return '?';
  char told[256];
  const std::string text(told, fread(told, 1, sizeof told, stat));
  fclose(stat);
  const size_t name_end = text.rfind(") ");
  return name_end != std::string::npos && name_end + 2 < text.size() ? text[name_end + 2] : '?';
}

// An operation run in another thread while this one holds the process-wide lock.
class operation_beside_the_lock {
 public:
  explicit operation_beside_the_lock(const std::function<void()>& operation) {
    auto lock = std::make_unique<kp_THREAD_global_lock>();
    std::thread other([&] {
      thread_ = gettid();
      operation();
      released_before_the_end_ = released_.load();
      done_ = true;
    });
    wait_until_done_or_asleep();
    released_ = true;
    lock.reset();
    other.join();
  }

  // Whether the operation went to sleep and ended only when the lock was free.
  bool waited() const { return asleep_ && released_before_the_end_; }
  // Whether it ended while the lock was held.
  bool went_through() const { return !released_before_the_end_; }

 private:
  // A thread may nod off for a moment without the lock, so that only a long sleep counts.
  void wait_until_done_or_asleep() {
    const auto deadline = patience_clock::now() + std::chrono::seconds(60);
    for (int asleep_in_a_row = 0; !done_ && asleep_in_a_row < 300;) {
      const bool sleeps = thread_ != 0 && thread_state(thread_) == 'S';
      asleep_in_a_row = sleeps ? asleep_in_a_row + 1 : 0;
      if (patience_clock::now() > deadline) return;
      std::this_thread::yield();
    }
    asleep_ = !done_;
  }

  std::atomic<pid_t> thread_ = 0;
  std::atomic<bool> done_ = false;
  std::atomic<bool> released_ = false;
  bool released_before_the_end_ = false;
  bool asleep_ = false;
};

struct named_operation {
  const char* name;
  std::function<void()> operation;
};

static void expect_refused(const std::function<void()>& operation) {
  EXPECT_EQ(raised<KPX_logging_illegal_argument>(operation), "invalid argument");
}

TEST(ProcessWideLock, IsWaitedForByWhateverChangesFilesCatalogLocaleCodePageOrSource) {
  const settings_guard guard;
  const code_page_setting code_page("UTF-8");
  const temp_folder folder;
  ldf_file file;
  file.entries.push_back({17});
  const std::string definitions = folder.write("std", file.bytes());
  const named_operation operations[] = {
      {"SetDefinitionPath", [&] { kp_LOG_LogConfig::SetDefinitionPath(definitions.c_str()); }},
      {"SetDefinitionPath of null",
       [] { expect_refused([] { kp_LOG_LogConfig::SetDefinitionPath(nullptr); }); }},
      {"SetAuxDefinitionPath",
       [&] { kp_LOG_LogConfig::SetAuxDefinitionPath(definitions.c_str()); }},
      {"ClearDefinitions", [] { kp_LOG_LogConfig::ClearDefinitions(); }},
      {"SetMessageCatalogPath", [] { kp_LOG_LogConfig::SetMessageCatalogPath(nullptr); }},
      {"SetLocale", [] { kp_LOG_LogConfig::SetLocale("de_DE"); }},
      {"SetCodePage", [] { kp_LOG_LogConfig::SetCodePage("GB18030"); }},
      {"SetConfigurationSource",
       [&] { kp_LOG_LogConfig::SetConfigurationSource("missing", KP_CONFIG_FILE_OPTIONAL); }},
  };
  for (const auto& [name, operation] : operations)
    EXPECT_TRUE(operation_beside_the_lock(operation).waited()) << name;
}

TEST(ProcessWideLock, IsNotWaitedForByGetters) {
  const settings_guard guard;
  unsigned value = 0;
  const named_operation operations[] = {
      {"GetSynchronizationLevel", [] { kp_LOG_LogConfig::GetSynchronizationLevel(); }},
      {"IsEnableCountConfig", [] { kp_LOG_LogConfig::IsEnableCountConfig(); }},
      {"GetDefinitionTable", [] { kp_LOG_LogConfig::GetDefinitionTable()->find_entry(17); }},
      {"_get_configuration_ptr", [] { kp_LOG_LogConfig::_get_configuration_ptr(); }},
      {"IsICUEnabled", [] { kp_LOG_LogConfig::IsICUEnabled(); }},
      {"GetDefinitionPath", [] { kp_LOG_LogConfig::GetDefinitionPath(); }},
      {"GetAuxDefinitionPath", [] { kp_LOG_LogConfig::GetAuxDefinitionPath(); }},
      {"GetMessageCatalogPath", [] { kp_LOG_LogConfig::GetMessageCatalogPath(); }},
      {"GetLocale", [] { kp_LOG_LogConfig::GetLocale(); }},
      {"GetCodePage", [] { kp_LOG_LogConfig::GetCodePage(); }},
      {"GetConfigurationIntegerValue",
       [&] { kp_LOG_LogConfig::GetConfigurationIntegerValue("s", "A", value); }},
      {"GetActionAttrLenExceed", [] { kp_LOG_LogConfig::GetActionAttrLenExceed(); }},
  };
  for (const auto& [name, operation] : operations)
    EXPECT_TRUE(operation_beside_the_lock(operation).went_through()) << name;
}

TEST(ProcessWideLock, IsNotWaitedForBySettersOfFlagsAndNumbers) {
  const settings_guard guard;
  const named_operation operations[] = {
      {"SetSynchronizationLevel",
       [] { kp_LOG_LogConfig::SetSynchronizationLevel(KP_SYNC_THREAD); }},
      {"EnableCountConfig", [] { kp_LOG_LogConfig::EnableCountConfig(false); }},
      {"SetActionAttrLenExceed", [] { kp_LOG_LogConfig::SetActionAttrLenExceed(0); }},
      {"SetICUEnabled", [] { kp_LOG_LogConfig::SetICUEnabled(false); }},
      {"SetMessageCatalogPath without ICU",
       [] { kp_LOG_LogConfig::SetMessageCatalogPath("/nowhere"); }},
  };
  for (const auto& [name, operation] : operations)
    EXPECT_TRUE(operation_beside_the_lock(operation).went_through()) << name;
}

TEST(ProcessWideLock, IsNotWaitedForWhereTheSourceIsTakenAwayOrTheArgumentIsRefused) {
  const settings_guard guard;
  const named_operation operations[] = {
      {"SetConfigurationSource of null",
       [] { kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE); }},
      {"SetConfigurationSource of a missing file",
       [] {
         expect_refused(
             [] { kp_LOG_LogConfig::SetConfigurationSource("missing", KP_CONFIG_FILE); });
       }},
      {"SetAuxDefinitionPath of null",
       [] { expect_refused([] { kp_LOG_LogConfig::SetAuxDefinitionPath(nullptr); }); }},
      {"SetCodePage of null",
       [] { expect_refused([] { kp_LOG_LogConfig::SetCodePage(nullptr); }); }},
  };
  for (const auto& [name, operation] : operations)
    EXPECT_TRUE(operation_beside_the_lock(operation).went_through()) << name;
}

// ---- look-ups while a file is read again ----

// A settings file that is replaced in one step, each time with a new modification time.
class replaced_settings {
 public:
  explicit replaced_settings(unsigned value) : path_(folder_.file("settings")) { replace(value); }

  // Keys 0 to 19 of section s get that value.
  void replace(unsigned value) {
    std::string content = "[s]\n";
    for (int key = 0; key < 20; ++key)
      content += std::to_string(key) + "=" + std::to_string(value) + "\n";
    const std::string next = folder_.write("next", content + "\n");
    std::filesystem::last_write_time(
        next, std::filesystem::file_time_type::clock::now() + std::chrono::seconds(++replaced_));
    std::filesystem::rename(next, path_);
  }
  const char* path() const { return path_.c_str(); }

 private:
  temp_folder folder_;
  std::string path_;
  int replaced_ = 0;
};

TEST(SettingsThreads, LookUpsSeeOneWholeTableWhileTheFileIsReadAgain) {
  constexpr unsigned rounds = 200;
  replaced_settings settings(1);
  const _kp_LOG_file_configuration source(settings.path());
  std::atomic<bool> over = false;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> readers;
  for (int t = 0; t < 3; ++t)
    readers.emplace_back([&, last = 0U]() mutable {
      while (!over) {
        unsigned value = 0;
        if (!source.get_integer_value("s", "19", value) || value < last) ++wrong;
        last = value;
      }
    });
  for (unsigned round = 2; round <= rounds; ++round) {
    settings.replace(round);
    const _kp_LOG_file_configuration resets_the_flag("elsewhere");
    unsigned value = 0;
    if (!source.get_integer_value("s", "0", value)) ++wrong;
  }
  over = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
}

TEST(SettingsThreads, ASourceThatAnotherOneAnnouncesIsEmptyOrWhole) {
  const replaced_settings settings(7);
  for (int round = 0; round < 100; ++round) {
    const _kp_LOG_file_configuration first(settings.path());
    const _kp_LOG_file_configuration second(settings.path());
    constexpr int threads = 4;
    std::barrier start(threads);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> readers;
    for (int t = 0; t < threads; ++t)
      readers.emplace_back([&, &source = t == 0 ? first : second] {
        start.arrive_and_wait();
        for (const char* key : {"0", "10", "19"}) {
          unsigned value = 7;
          source.get_integer_value("s", key, value);
          if (value != 7) ++wrong;
        }
      });
    for (std::thread& reader : readers) reader.join();
    ASSERT_EQ(wrong, 0);
  }
}
