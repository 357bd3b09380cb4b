// Settings that one thread changes while others make, fill, copy, read, render and filter entries:
// what both the old and the new setting take is never refused, and nothing that is in use goes
// away.
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kp_LOG.h"
#include "logging/log_definition.h"
#include "logging/logmsg_choice.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/icu_setting.h"
#include "tests/support/loaded_definitions.h"

// --- What both settings have --------------------------------------------------------------------

static constexpr char latin_text[] = "caf\xc3\xa9";

// Entry type 17 as every file of these tests declares it; the names of further attributes, own and
// global ones, begin with `mark`.
static ldf_file definitions(const std::string& mark) {
  ldf_file file;
  file.globals = {{mark + "GLOBAL", TypeUInt4}, {"GLOBAL", TypeUInt4}};
  file.entries.push_back({.id = 17,
                          .flags = 1,
                          .msg_text = "%s%TEXT% %s%MB% %d%NUMBER%",
                          .selector = "KIND",
                          .attributes = {{mark + "OWN", TypeUInt4},
                                         {"TEXT", TypeChar32},
                                         {"MB", TypeMBChar32},
                                         {"NUMBER", TypeUInt4},
                                         {"KIND", TypeUInt1}}});
  return file;
}

// The AUX file: everything that a merge changes, the selector attribute declared anew among it.
static ldf_file additions() {
  ldf_file file;
  file.globals = {{"GLOBAL", TypeUInt4}};
  file.entries.push_back({.id = 17,
                          .msg_id = "AUX",
                          .msg_text = "%s%TEXT% %s%MB% %d%NUMBER%",
                          .selector = "KIND",
                          .attributes = {{"KIND", TypeUInt1}, {"ADDED", TypeUInt4}},
                          .messages = {{1, 1, "", "%s%TEXT% %s%MB% %d%NUMBER%"}}});
  return file;
}

static void fill(kp_LOG_LogEntry& entry) {
  entry.AddAttribStr("TEXT", "text");
  entry.AddAttribMBStr("MB", latin_text);
  entry.AddAttrib4u("NUMBER", 7);
  entry.AddAttrib1u("KIND", 1);
  entry.AddAttrib4u("GLOBAL", 8);
}

static const std::string message = std::string("text ") + latin_text + " 7";

// --- Threads that log ---------------------------------------------------------------------------

// What went wrong in any thread, each text once.
class faults_found {
 public:
  void add(const std::string& text) {
    const std::lock_guard<std::mutex> hold(lock_);
    texts_.insert(text);
  }
  std::set<std::string> texts() {
    const std::lock_guard<std::mutex> hold(lock_);
    return texts_;
  }

 private:
  std::mutex lock_;
  std::set<std::string> texts_;
};

// Runs each of the works again and again in a thread of its own, while set(0), set(1), ... run in
// this one, `rounds` of them and as many more as it takes until each work was done 30 times; what
// they found wrong. A work that raises has found its error's text.
using work = std::function<std::string()>;
static std::set<std::string> log_while_setting(const std::vector<work>& works, unsigned rounds,
                                               const std::function<void(unsigned)>& set) {
  faults_found faults;
  std::atomic<bool> is_over{false};
  std::atomic<size_t> n_well_done{0};
  std::vector<std::thread> threads;
  for (const work& each : works)
    threads.emplace_back([&faults, &is_over, &n_well_done, each] {
      for (unsigned done = 1; !is_over; ++done) {
        try {
          const std::string fault = each();
          if (!fault.empty()) faults.add(fault);
        } catch (const std::exception& error) {
          faults.add(error.what());
        }
        if (done == 30) ++n_well_done;
      }
    });
  for (unsigned round = 0; round < rounds || n_well_done != works.size(); ++round) set(round);
  is_over = true;
  for (std::thread& thread : threads) thread.join();
  return faults.texts();
}

static std::string unless(bool is_right, const std::string& what) {
  return is_right ? "" : what;
}

static std::string make_fill_copy_and_read() {
  kp_LOG_LogEntry entry(17, 5);
  fill(entry);
  const kp_LOG_LogEntry copy(entry);
  return unless(copy.GetAttrib4u("GLOBAL") == 8 && copy.GetAttrib4u("NUMBER") == 7, "read wrong");
}

// An entry that lives through all settings.
static work fill_and_read_one(const kp_LOG_LogEntry& kept) {
  return [entry = kp_LOG_LogEntry(kept)]() mutable {
    fill(entry);
    return unless(entry.GetAttrib4u("GLOBAL") == 8 && entry.GetAttrib4u("NUMBER") == 7,
                  "read wrong of a kept one");
  };
}

static work render_one(const kp_LOG_LogEntry& kept, const std::string& wanted = message) {
  return [entry = kp_LOG_LogEntry(kept), wanted] {
    const std::string rendered = kp_LOG_RenderMessage(entry);
    return unless(rendered == wanted, "rendered " + rendered);
  };
}

static work filter_one(const kp_LOG_LogEntry& kept) {
  return [entry = kp_LOG_LogEntry(kept)] {
    _kp_LOG_entry_filter filter;
    filter.set_section("s");
    return unless(filter.check_entry(entry), "filtered out");
  };
}

class SettingsWhileThreadsLog : public testing::Test {
 protected:
  SettingsWhileThreadsLog() : kept_(17, 5) { fill(kept_); }

  std::string path_of(const char* name, const ldf_file& file) const {
    return folder_.write(name, file.bytes());
  }
  std::vector<work> all_works() const {
    return {make_fill_copy_and_read, fill_and_read_one(kept_), render_one(kept_),
            filter_one(kept_)};
  }
  // Expects that all works find nothing wrong meanwhile.
  void expect_undisturbed(unsigned rounds, const std::function<void(unsigned)>& set) const {
    EXPECT_EQ(log_while_setting(all_works(), rounds, set), std::set<std::string>());
  }

  const temp_folder folder_;
  const environment_value zone_{"TZ", "UTC"};
  const loaded_definitions loaded_{definitions("A_")};
  const code_page_setting code_page_{"UTF-8"};
  const icu_locale_setting locale_{"en_US"};
  kp_LOG_LogEntry kept_;
};

// --- Definitions --------------------------------------------------------------------------------

TEST_F(SettingsWhileThreadsLog, TheDefinitionPath) {
  const std::string paths[] = {path_of("a", definitions("A_")), path_of("b", definitions("B_"))};
  expect_undisturbed(
      300, [&](unsigned round) { kp_LOG_LogConfig::SetDefinitionPath(paths[round % 2].c_str()); });
}

TEST_F(SettingsWhileThreadsLog, TheAuxDefinitionPath) {
  const std::string standard = path_of("std", definitions("A_"));
  const std::string aux = path_of("aux", additions());
  expect_undisturbed(200, [&](unsigned) {
    kp_LOG_LogConfig::SetDefinitionPath(standard.c_str());
    kp_LOG_LogConfig::SetAuxDefinitionPath(aux.c_str());
  });
}

// The default message of the one and the selector of the other would choose a third text.
TEST_F(SettingsWhileThreadsLog, TheMessagesThatAnAuxFileBrings) {
  const auto definition_of = [](const char* text, bool has_selector) {
    auto made = std::make_unique<_kp_LOG_log_definition>();
    made->set_default_msg_text(text);
    made->add_attr_info("KIND", TypeUInt1, has_selector, nullptr);
    if (has_selector) made->add_selector_msg(0, 1, nullptr, "selected");
    return made;
  };
  const _kp_LOG_definition_ref used(definition_of("plain", false).release());
  auto* const merged = const_cast<_kp_LOG_log_definition*>(used.get());
  const work choose = [this, used] {
    for (int i = 0; i < 1000; ++i) {
      const char* const text = logmsg_choose(kept_._get_imp(), used.get(), false, 0).text;
      if (*text != 'p' && *text != 's') return std::string("chosen ") + text;
    }
    return std::string();
  };
  EXPECT_EQ(log_while_setting({choose, choose}, 20000,
                              [&](unsigned round) {
                                merged->replace_content(round % 2 == 0
                                                            ? definition_of("default", true)
                                                            : definition_of("plain", false));
                              }),
            std::set<std::string>());
}

// What an entry has of its own stays while there are no definitions; a global attribute may be
// unknown then, and new entries are refused.
TEST_F(SettingsWhileThreadsLog, ClearedDefinitions) {
  const std::string standard = path_of("std", definitions("A_"));
  const work fill_kept = [entry = kp_LOG_LogEntry(kept_)]() mutable {
    entry.AddAttribStr("TEXT", "text");
    entry.AddAttribMBStr("MB", latin_text);
    try {
      entry.AddAttrib4u("GLOBAL", 8);
    } catch (const KPX_logging_invalid_attribute_name&) {
      return std::string();
    }
    return unless(entry.GetAttrib4u("GLOBAL") == 8, "read wrong of a kept one");
  };
  const work make = [] {
    try {
      return make_fill_copy_and_read();
    } catch (const KPX_logging_entry_type_not_found&) {
      return std::string();
    } catch (const KPX_logging_invalid_attribute_name&) {
      return std::string();
    }
  };
  EXPECT_EQ(log_while_setting({fill_kept, make, render_one(kept_), filter_one(kept_)}, 300,
                              [&](unsigned round) {
                                if (round % 2 == 0) return kp_LOG_LogConfig::ClearDefinitions();
                                kp_LOG_LogConfig::SetDefinitionPath(standard.c_str());
                              }),
            std::set<std::string>());
}

TEST_F(SettingsWhileThreadsLog, DeclaredAttributes) {
  std::atomic<unsigned> n_new{0};
  std::vector<work> works = all_works();
  works.emplace_back([&] {
    kp_LOG_LogEntry::AddAttributeDefinition(17, ("T" + std::to_string(n_new++ % 80)).c_str(),
                                            TypeUInt4);
    return std::string();
  });
  EXPECT_EQ(log_while_setting(
                works, 80,
                [&](unsigned round) {
                  const std::string name = "D" + std::to_string(round % 80);
                  kp_LOG_LogEntry::AddAttributeDefinition(17, name.c_str(), TypeUInt4);
                  kp_LOG_LogEntry::AddAttributeDefinition(0, ("G" + name).c_str(), TypeUInt4);
                }),
            std::set<std::string>());
  kept_.AddAttrib4u("D79", 1);
  kept_.AddAttrib4u("GD79", 1);
}

// --- Messages -----------------------------------------------------------------------------------

// Read in one code page and written in the other, the text would be a third one.
TEST_F(SettingsWhileThreadsLog, TheCodePage) {
  expect_undisturbed(3000, [](unsigned round) {
    kp_LOG_LogConfig::SetCodePage(round % 2 == 0 ? "ISO-8859-1" : "UTF-8");
  });
}

TEST_F(SettingsWhileThreadsLog, TheLocale) {
  expect_undisturbed(1000, [](unsigned round) {
    kp_LOG_LogConfig::SetLocale(round % 2 == 0 ? "de_DE" : "en_US");
  });
}

TEST_F(SettingsWhileThreadsLog, TheMessageCatalogPath) {
  catalog_folder catalog;
  catalog.add_locale("root", {{"", "%s%TEXT% %s%MB% %d%NUMBER%"}});
  const std::string path = catalog.path();
  const work ask = [path] {
    const std::string now = kp_LOG_LogConfig::GetMessageCatalogPath();
    return unless(now.empty() || now == path, "told " + now);
  };
  EXPECT_EQ(log_while_setting(
                {make_fill_copy_and_read, fill_and_read_one(kept_), filter_one(kept_), ask}, 100,
                [&](unsigned round) {
                  kp_LOG_LogConfig::SetMessageCatalogPath(round % 2 == 0 ? path.c_str() : nullptr);
                }),
            std::set<std::string>());
}

TEST_F(SettingsWhileThreadsLog, TheSwitchOfIcu) {
  expect_undisturbed(3000, [](unsigned round) { kp_LOG_LogConfig::SetICUEnabled(round % 2 != 0); });
}

// --- Flags and numbers --------------------------------------------------------------------------

TEST_F(SettingsWhileThreadsLog, TheActionOnLongTextsTheOperationModeAndTheOtherNumbers) {
  std::vector<work> works = all_works();
  works.emplace_back([entry = kp_LOG_LogEntry(kept_)]() mutable {
    const std::string cut(32, 'x');
    try {
      entry.AddAttribStr("TEXT", (cut + "more").c_str());
    } catch (const KPX_logging_invalid_attribute_value&) {
      return std::string();
    }
    return unless(entry.GetAttribStr("TEXT") == cut, "cut wrong");
  });
  EXPECT_EQ(log_while_setting(works, 3000,
                              [](unsigned round) {
                                kp_LOG_LogConfig::SetActionAttrLenExceed(round % 2);
                                kp_LOG_LogEntry::SetOperationMode(1 + round % 2);
                                kp_LOG_LogConfig::EnableCountConfig(round % 2 == 0);
                                kp_LOG_LogConfig::SetSynchronizationLevel(
                                    round % 2 == 0 ? KP_SYNC_ENTRY : KP_SYNC_THREAD);
                              }),
            std::set<std::string>());
}

// --- The configuration source -------------------------------------------------------------------

static work look_up_a_key() {
  return [] {
    unsigned value = 0;
    const bool is_found = kp_LOG_LogConfig::GetConfigurationIntegerValue("s", "A", value);
    return unless(is_found && (value == 1 || value == 2), "found " + std::to_string(value));
  };
}

TEST_F(SettingsWhileThreadsLog, TheConfigurationSource) {
  const std::string paths[] = {folder_.write("1", "[s]\nA=1\nLogLevelHigh=5\n\n"),
                               folder_.write("2", "[s]\nA=2\nPropertyMask=3\n\n")};
  kp_LOG_LogConfig::SetConfigurationSource(paths[0].c_str(), KP_CONFIG_FILE);
  std::vector<work> works = all_works();
  works.push_back(look_up_a_key());
  EXPECT_EQ(log_while_setting(works, 500,
                              [&](unsigned round) {
                                kp_LOG_LogConfig::SetConfigurationSource(paths[round % 2].c_str(),
                                                                         KP_CONFIG_FILE);
                              }),
            std::set<std::string>());
}

TEST_F(SettingsWhileThreadsLog, ASourceThatComesAndGoes) {
  const std::string path = folder_.write("1", "[s]\nA=1\nLogLevelHigh=5\n\n");
  expect_undisturbed(1000, [&](unsigned round) {
    kp_LOG_LogConfig::SetConfigurationSource(round % 2 == 0 ? path.c_str() : nullptr,
                                             KP_CONFIG_FILE);
  });
}
