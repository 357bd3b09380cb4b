// The library from its loading to its end: loaded and unloaded again and again, used by what is
// made before main and destroyed after it, and by a child process beside its parent.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "kp_LOG.h"
#include "logging/logentry_i.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

// --- Use while the process ends -----------------------------------------------------------------

// Entry type 17 with attributes "A1" to "A24" and a message that shows "A9".
static ldf_file greeting_definitions() {
  return ldf_with_every_type("hello %s%A9%");
}

// Makes an entry, copies it, renders the copy, and tells the outcome on standard error.
static void log_and_tell(const char* who) {
  try {
    kp_LOG_LogEntry entry(17, 5);
    entry.AddAttribStr("A9", who);
    const kp_LOG_LogEntry copy(entry);
    std::fprintf(stderr, "%s.", kp_LOG_RenderMessage(copy).c_str());
  } catch (const KPX_logging_all& error) {
    std::fprintf(stderr, "%s: %s.", who, error.what());
  }
}

// An object of static life. Where a test has armed it, it logs when it is destroyed, and tells what
// became of the entry that it has held meanwhile.
class entry_of_static_life {
 public:
  explicit entry_of_static_life(const char* name) : name_(name) {}
  ~entry_of_static_life() {
    if (!held_) return;
    std::fprintf(stderr, "%s held %s.", name_, held_->GetAttribStr("A9"));
    held_.reset();
    log_and_tell(name_);
  }
  void arm() {
    held_.emplace(17U, 5U);
    held_->AddAttribStr("A9", name_);
  }

 private:
  const char* name_;
  std::optional<kp_LOG_LogEntry> held_;
};

// Made before main, and with it an entry before anything was configured.
static kp_LOG_LogEntry made_before_main;
static entry_of_static_life static_object("static");

static bool logs_at_the_very_end = false;

// A thread that makes entries as long as it is not refused.
struct tireless_worker {
  static void work() {
    try {
      for (;; ++made) kp_LOG_LogEntry(17, 5).AddAttribStr("A9", "worker");
    } catch (const KPX_logging_all& error) {
      std::fprintf(stderr, "refused: %s.", error.what());
    }
    is_working = false;
  }
  static void start() {
    is_working = true;
    std::thread(work).detach();
    make_some();
  }
  // Waits until it has made some more entries, or works no more.
  static void make_some() {
    const unsigned enough = made + 100;
    while (is_working && made < enough) std::this_thread::yield();
  }

  inline static std::atomic<unsigned> made{0};
  inline static std::atomic<bool> is_working{false};
};

// Priorities up to 100 are the compiler's; this one runs behind everything else.
__attribute__((destructor(101))) static void at_the_very_end() {
  tireless_worker::make_some();
  if (logs_at_the_very_end) log_and_tell("end");
}

TEST(LifeOfTheLibrary, AnEntryMadeBeforeMainIsUsedAfterwards) {
  const loaded_definitions definitions(greeting_definitions());
  made_before_main.SetEntry(17, 5, "A9", "early", static_cast<const char*>(nullptr));
  EXPECT_EQ(kp_LOG_RenderMessage(made_before_main), "hello early");
}

TEST(LifeOfTheLibrary, ExitHandlersLogWhetherTheyStoodBeforeTheFirstUseOrNot) {
  const temp_folder folder;
  const std::string path = folder.write("std.ldf", greeting_definitions().bytes());
  EXPECT_EXIT(
      {
        std::atexit([] { log_and_tell("first"); });
        kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
        log_and_tell("main");
        std::atexit([] { log_and_tell("last"); });
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^hello main\\.hello last\\.hello first\\.$");
}

TEST(LifeOfTheLibrary, StaticObjectsLogWhileTheyAreDestroyed) {
  const loaded_definitions definitions(greeting_definitions());
  EXPECT_EXIT(
      {
        static_object.arm();
        static entry_of_static_life local("local");
        local.arm();
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      "^local held local\\.hello local\\.static held static\\.hello static\\.$");
}

TEST(LifeOfTheLibrary, AtTheVeryEndOfTheProcessEntriesAreStillMade) {
  const loaded_definitions definitions(greeting_definitions());
  EXPECT_EXIT(
      {
        logs_at_the_very_end = true;
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^hello end\\.$");
}

TEST(LifeOfTheLibrary, AProcessMayEndWithEntriesThatAreNeverDestroyed) {
  const loaded_definitions definitions(greeting_definitions());
  EXPECT_EXIT(
      {
        static const auto* const kept = new kp_LOG_LogEntry(17, 5);
        std::fprintf(stderr, "%u", kept->GetEntryID());
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^17$");
}

// --- The end of a thread ------------------------------------------------------------------------

// Logs in the destructor of a thread's object, in whichever order that comes to what the library
// keeps for the thread.
struct logs_at_the_end_of_its_thread {
  ~logs_at_the_end_of_its_thread() {
    kp_LOG_LogEntry entry(17, 5);
    entry.AddAttribStr("A9", "thread");
    if (kp_LOG_RenderMessage(entry) == "hello thread") ++logged;
  }
  static void of_key(void* object) { delete static_cast<logs_at_the_end_of_its_thread*>(object); }

  inline static std::atomic<unsigned> logged{0};
};

// Runs `threads` threads one after the other, each with f().
template <class F>
static void one_after_the_other(unsigned threads, F f) {
  for (unsigned i = 0; i < threads; ++i) std::thread(f).join();
}

// What the heap holds more after 300 such threads than after 20.
template <class F>
static size_t heap_growth_of_threads(F f) {
  mallopt(M_ARENA_MAX, 1);  // the only one that is told about
  one_after_the_other(20, f);
  const size_t before = mallinfo2().uordblks;
  one_after_the_other(300, f);
  const size_t after = mallinfo2().uordblks;
  return after > before ? after - before : 0;
}

TEST(LifeOfTheLibrary, AThreadThatLogsWhileItEndsLeaksNothing) {
  const loaded_definitions definitions(greeting_definitions());
  const auto as_thread_local = [] {
    static thread_local logs_at_the_end_of_its_thread last;
    static_cast<void>(&last);
    kp_LOG_RenderMessage(kp_LOG_LogEntry(17, 5), true);
  };
  EXPECT_LT(heap_growth_of_threads(as_thread_local), 300U * 32);
  EXPECT_EQ(logs_at_the_end_of_its_thread::logged, 320U);
}

TEST(LifeOfTheLibrary, AThreadWhoseOwnKeyLogsWhileItEndsLeaksNothing) {
  const loaded_definitions definitions(greeting_definitions());
  pthread_key_t key = {};
  ASSERT_EQ(pthread_key_create(&key, logs_at_the_end_of_its_thread::of_key), 0);
  const auto under_a_key = [key] { pthread_setspecific(key, new logs_at_the_end_of_its_thread); };
  logs_at_the_end_of_its_thread::logged = 0;
  EXPECT_LT(heap_growth_of_threads(under_a_key), 300U * 32);
  EXPECT_EQ(logs_at_the_end_of_its_thread::logged, 320U);
  pthread_key_delete(key);
}

TEST(LifeOfTheLibrary, AThreadThatStillLogsWhileTheProcessEndsIsNotRefused) {
  const loaded_definitions definitions(greeting_definitions());
  EXPECT_EXIT(
      {
        tireless_worker::start();
        logs_at_the_very_end = true;
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^hello end\\.$");
}

// --- Loading and unloading ----------------------------------------------------------------------

// Loads the plugin, and with it the shared library; logs through it in a thread that ends before
// both are closed. Returns the message.
static std::string log_through_plugin(const std::string& definition_file) {
  void* const plugin = dlopen(KPLOG_LIFE_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) return dlerror();
  const auto log =
      reinterpret_cast<void (*)(const char*, char*, unsigned)>(dlsym(plugin, "plugin_log"));
  char message[64] = "";
  std::thread(log, definition_file.c_str(), message, sizeof message).join();
  return dlclose(plugin) == 0 ? message : dlerror();
}

TEST(LifeOfTheLibrary, APluginThatLogsIsLoadedAndUnloadedHundredsOfTimes) {
  const temp_folder folder;
  const std::string path = folder.write("std.ldf", greeting_definitions().bytes());
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  for (unsigned i = 0; i < 10; ++i) ASSERT_EQ(log_through_plugin(path), "hello plugin");
  const size_t heap_before = mallinfo2().uordblks;
  const auto descriptors_before = descriptors();
  for (unsigned i = 0; i < 300; ++i) ASSERT_EQ(log_through_plugin(path), "hello plugin");
  EXPECT_LE(descriptors(), descriptors_before + 1);
  EXPECT_LT(mallinfo2().uordblks, heap_before + 300 * 32);
}

TEST(LifeOfTheLibrary, OnceLoadedItStaysLoaded) {
  const temp_folder folder;
  const std::string path = folder.write("std.ldf", greeting_definitions().bytes());
  ASSERT_EQ(log_through_plugin(path), "hello plugin");
  EXPECT_NE(dlopen("libkplog.so.1", RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// --- A child process ----------------------------------------------------------------------------

static constexpr unsigned n_types = 200;

// Entry types 0 to n_types - 1, each with an attribute that has `prefix` and its ID as its name.
static ldf_file numbered_definitions(const std::string& prefix) {
  ldf_file file;
  for (unsigned id = 0; id < n_types; ++id)
    file.entries.push_back({.id = id,
                            .msg_text = prefix + " %d%" + prefix + std::to_string(id) + "%",
                            .attributes = {{prefix + std::to_string(id), TypeUInt4}}});
  return file;
}

// Makes and renders entries of all types, more than the cache holds; how many are not as they
// should be.
static unsigned count_wrong_entries(const std::string& prefix) {
  unsigned wrong = 0;
  for (unsigned id = 0; id < n_types; ++id) {
    kp_LOG_LogEntry entry(id, id % 10);
    entry.AddAttrib4u((prefix + std::to_string(id)).c_str(), id);
    const kp_LOG_LogEntry copy(entry);
    if (kp_LOG_RenderMessage(copy) != prefix + " " + std::to_string(id)) ++wrong;
  }
  return wrong;
}

// Runs f() in a child process while running it here too; whether both returned 0. The child ends
// without handlers and destructors, which are the parent's.
template <class F>
static bool is_zero_in_child_and_parent(F&& f) {
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    try {
      _exit(f(true) == 0 ? 0 : 1);
    } catch (...) {
      _exit(2);
    }
  }
  const bool good_here = f(false) == 0;
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0 && good_here;
}

TEST(LifeOfTheLibrary, AChildProcessMakesEntriesWhileItsParentDoes) {
  const loaded_definitions definitions(numbered_definitions("STD"));
  EXPECT_TRUE(is_zero_in_child_and_parent([](bool) {
    unsigned wrong = 0;
    for (unsigned round = 0; round < 5; ++round) wrong += count_wrong_entries("STD");
    return wrong;
  }));
}

TEST(LifeOfTheLibrary, AChildProcessLoadsDefinitionsOfItsOwn) {
  const loaded_definitions definitions(numbered_definitions("STD"));
  const temp_folder folder;
  const std::string own = folder.write("own.ldf", numbered_definitions("OWN").bytes());
  const auto load_and_count = [&](bool is_child) {
    unsigned wrong = 0;
    for (unsigned round = 0; round < 5; ++round) {
      if (is_child) kp_LOG_LogConfig::SetDefinitionPath(own.c_str());
      wrong += count_wrong_entries(is_child ? "OWN" : "STD");
    }
    return wrong;
  };
  EXPECT_TRUE(is_zero_in_child_and_parent(load_and_count));
  EXPECT_EQ(count_wrong_entries("STD"), 0U);
}

TEST(LifeOfTheLibrary, AnEntryMadeBeforeTheForkIsUsedByBoth) {
  const loaded_definitions definitions(greeting_definitions());
  kp_LOG_LogEntry entry(17, 5);
  entry.AddAttribStr("A9", "both");
  EXPECT_TRUE(is_zero_in_child_and_parent([&](bool is_child) {
    if (is_child) kp_LOG_LogConfig::ClearDefinitions();
    const bool is_same = kp_LOG_RenderMessage(entry) == "hello both";
    entry.AddAttribStr("A9", is_child ? "child" : "parent");
    return is_same ? 0 : 1;
  }));
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "hello parent");
}
