// Threads of different settings at once, while those of the process change.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kp_LOG.h"
#include "logging/own_settings.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/icu_setting.h"
#include "tests/support/loaded_definitions.h"

using settings_scope = kp_log_own_settings::scope;

// A set of settings, and what the same work comes to by it.
struct kind_of_settings {
  const char* mark;
  unsigned shared_type;
  const char* locale;
  const char* code_page;
  const char* text;     // "café"
  const char* message;  // of the catalog
  const char* highest_level;
};

static constexpr kind_of_settings kinds[] = {
    {"A", TypeUInt4, "de_DE", "ISO-8859-1", "caf\xe9", "A caf\xe9 1.234,5 15.11.2026", "5"},
    {"B", TypeFloat, "en_US", "UTF-8", "caf\xc3\xa9", "B caf\xc3\xa9 1,234.5 Nov 15, 2026", "3"}};

class OwnSettingsOfThreads : public testing::Test {
 protected:
  OwnSettingsOfThreads() {
    for (size_t i = 0; i < std::size(kinds); ++i)
      catalogs_[i].add_locale(
          "root", {{"M17", std::string(kinds[i].mark) + " %s%TEXT% %f%REAL% %D%STAMP%"}});
  }

  std::string file_of(const kind_of_settings& kind) const {
    ldf_file file;
    const std::string mark = kind.mark;
    file.globals = {{mark + "_GLOBAL", TypeUInt4}};
    file.entries.push_back({.id = 17,
                            .flags = 1,
                            .msg_id = "M17",
                            .msg_text = "%s%TEXT%",
                            .attributes = {{"SHARED", kind.shared_type},
                                           {"TEXT", TypeMBChar32},
                                           {"REAL", TypeFloat},
                                           {"STAMP", TypeTimestamp}}});
    return folder_.write(mark + ".ldf", file.bytes());
  }

  // In the current settings.
  void set(size_t number) const {
    const kind_of_settings& kind = kinds[number];
    kp_LOG_LogConfig::SetDefinitionPath(file_of(kind).c_str());
    kp_LOG_LogConfig::SetLocale(kind.locale);
    kp_LOG_LogConfig::SetCodePage(kind.code_page);
    kp_LOG_LogConfig::SetMessageCatalogPath(catalogs_[number].path().c_str());
    const std::string source =
        folder_.write(std::string(kind.mark) + ".cfg",
                      std::string("[s]\nLogLevelHigh=") + kind.highest_level + "\n\n");
    kp_LOG_LogConfig::SetConfigurationSource(source.c_str(), KP_CONFIG_FILE);
  }

  // What is wrong with an entry that is made, filled, copied, filtered and rendered by that kind of
  // settings; "" where nothing is.
  std::string fault_of(size_t number) const {
    const kind_of_settings& kind = kinds[number];
    kp_LOG_LogEntry made(17, 4);
    made.AddAttribMBStr("TEXT", kind.text);
    made.AddAttribFloat8("REAL", 1234.5);
    made.AddAttribTime("STAMP", some_time());
    made.AddAttrib4u((std::string(kind.mark) + "_GLOBAL").c_str(), 7);
    if (kind.shared_type == TypeFloat)
      made.AddAttribFloat8("SHARED", 0.5);
    else
      made.AddAttrib4u("SHARED", 5);
    const kp_LOG_LogEntry entry(made);
    const std::string message = kp_LOG_RenderMessage(entry);
    if (message != kind.message) return "rendered " + message;
    if (filter_.accepts(4, 1) != (*kind.highest_level == '5')) return "filtered wrong";
    if (std::string(kind.locale) != kp_LOG_LogConfig::GetLocale().get_name()) return "locale";
    return "";
  }

  _kp_LOG_entry_filter shared_filter() const {
    _kp_LOG_entry_filter filter;
    filter.set_section("s");
    return filter;
  }

  const settings_guard settings_;
  const code_page_setting code_page_{""};
  const environment_value zone_{"TZ", "UTC"};
  const icu_zone_setting icu_zone_{"UTC"};
  const temp_folder folder_;
  const _kp_LOG_entry_filter filter_ = shared_filter();
  catalog_folder catalogs_[std::size(kinds)];
};

// What the work found in `rounds` rounds, the first fault.
static std::string first_fault(unsigned rounds, const std::function<std::string()>& work) {
  for (unsigned round = 0; round < rounds; ++round) {
    try {
      const std::string fault = work();
      if (!fault.empty()) return fault;
    } catch (const std::exception& error) {
      return error.what();
    }
  }
  return "";
}

TEST_F(OwnSettingsOfThreads, EachGoesByItsOwn) {
  set(0);
  kp_log_own_settings own[2];
  std::string faults[4];
  std::vector<std::thread> threads;
  for (size_t i = 0; i < std::size(faults); ++i)
    threads.emplace_back([&, i] {
      const settings_scope here(own[i % 2]);
      if (i < 2) set(i);
      while (kp_LOG_LogConfig::_get_configuration_ptr() == nullptr) std::this_thread::yield();
      faults[i] = first_fault(200, [&] { return fault_of(i % 2); });
    });
  EXPECT_EQ(first_fault(200, [&] { return fault_of(0); }), "");
  for (std::thread& thread : threads) thread.join();
  for (const std::string& fault : faults) EXPECT_EQ(fault, "");
  EXPECT_EQ(fault_of(0), "");
}

TEST_F(OwnSettingsOfThreads, WhileThoseOfTheProcessChange) {
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set(1);
    EXPECT_EQ(fault_of(1), "");  // reads its file, which the process then writes again
  }
  std::atomic<bool> is_over{false};
  std::string fault;
  std::thread thread([&] {
    const settings_scope here(own);
    fault = first_fault(300, [&] { return fault_of(1); });
    is_over = true;
  });
  for (unsigned round = 0; !is_over; ++round) {
    set(round % 2);
    kp_LOG_LogConfig::SetICUEnabled(round % 3 != 0);
    kp_LOG_LogConfig::SetActionAttrLenExceed(round % 2);
    kp_LOG_LogConfig::ClearDefinitions();
    kp_LOG_LogConfig::SetICUEnabled(true);
    kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
  }
  thread.join();
  EXPECT_EQ(fault, "");
}

TEST_F(OwnSettingsOfThreads, EntriesCross) {
  auto own = std::make_unique<kp_log_own_settings>();
  std::vector<std::unique_ptr<kp_LOG_LogEntry>> made;
  {
    const settings_scope here(*own);
    set(1);
  }
  std::thread maker([&] {
    const settings_scope here(*own);
    for (unsigned i = 0; i < 300; ++i) {
      made.push_back(std::make_unique<kp_LOG_LogEntry>(17, 4));
      made.back()->AddAttribFloat8("SHARED", i);
    }
  });
  maker.join();
  own.reset();
  std::thread([&] {
    for (size_t i = 0; i < made.size(); i += 2) made[i].reset();
  }).join();
  EXPECT_EQ(made[299]->GetAttribFloat8("SHARED"), 299.0);
  made.clear();
}
