// Settings of their own: what is set and done in their scope, and what that leaves alone.
#include "logging/own_settings.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "logging/logcfg_file.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/failing.h"
#include "tests/support/icu_setting.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"

using settings_scope = kp_log_own_settings::scope;

// --- What settings tell -------------------------------------------------------------------------

static std::string global_names() {
  std::string names;
  unsigned char count = 0;
  const char* name = nullptr;
  unsigned char type = 0;
  try {
    for (;; ++count) {
      _kp_LOG_log_definition::get_global_attr_info_by_index(count, name, type);
      names += std::string(name) + " ";
    }
  } catch (const kp_EXCEPTION_base&) {
    return names;
  }
}

static std::string configured() {
  unsigned value = 0;
  const bool is_found = kp_LOG_LogConfig::GetConfigurationIntegerValue("s", "A", value);
  return is_found ? std::to_string(value) : "none";
}

// All that there is to ask.
static std::vector<std::string> told() {
  unsigned major = 0;
  unsigned minor = 0;
  kp_LOG_LogEntry::GetLogVersion(major, minor);
  return {std::to_string(kp_LOG_LogConfig::GetSynchronizationLevel()),
          kp_LOG_LogConfig::IsEnableCountConfig() ? "counts" : "does not count",
          kp_LOG_LogConfig::IsICUEnabled() ? "ICU" : "bytes",
          std::to_string(kp_LOG_LogConfig::GetActionAttrLenExceed()),
          kp_LOG_LogConfig::GetDefinitionPath(),
          kp_LOG_LogConfig::GetAuxDefinitionPath(),
          kp_LOG_LogConfig::GetMessageCatalogPath(),
          _kp_LOG_log_message::has_catalog() ? "catalog" : "no catalog",
          kp_LOG_LogConfig::GetLocale().get_name(),
          kp_LOG_LogConfig::GetCodePage(),
          kp_LOG_LogConfig::_get_configuration_ptr() != nullptr ? "source" : "no source",
          configured(),
          global_names(),
          std::to_string(major) + "." + std::to_string(minor)};
}

// What programs see of the process's without asking.
static std::vector<std::string> seen() {
  return {
      std::to_string(b_is_icu_enabled),
      std::to_string(action_on_exceed),
      std::to_string(_kp_LOG_log_entry_imp::global_operation_mode),
      std::to_string(_kp_LOG_log_entry_imp::log_major_version),
      std::to_string(_kp_LOG_log_entry_imp::log_minor_version),
      std::to_string(_kp_LOG_log_definition::n_global_attr_entries),
      std::to_string(reinterpret_cast<uintptr_t>(_kp_LOG_log_definition::p_global_attr_entries)),
      icu::Locale::getDefault().getName()};
}

// --- Two sets -----------------------------------------------------------------------------------

// One kind of entry, whose name of its own, type of "SHARED" and message differ with `mark`.
static ldf_file definitions(const std::string& mark, unsigned type) {
  ldf_file file;
  file.log_version = mark == "A" ? "3.1" : "4.2";
  file.globals = {{mark + "_GLOBAL", TypeUInt4}};
  file.entries.push_back({.id = 17,
                          .flags = 1,
                          .msg_id = "M17",
                          .msg_text = mark + " %s%TEXT% %f%REAL% %D%STAMP%",
                          .attributes = {{mark + "_OWN", TypeUInt4},
                                         {"SHARED", type},
                                         {"TEXT", TypeMBChar32},
                                         {"REAL", TypeFloat},
                                         {"STAMP", TypeTimestamp}}});
  return file;
}

class OwnSettings : public testing::Test {
 protected:
  OwnSettings() {
    catalog_a_.add_locale("root", {{"M17", "root A %s%TEXT%"}});
    catalog_a_.add_locale("de", {{"M17", "deutsch A %s%TEXT% %f%REAL%"}});
    catalog_b_.add_locale("root", {{"M17", "root B %s%TEXT%"}});
    catalog_b_.add_locale("fr", {{"M17",
                                  "fran\xc3\xa7"
                                  "ais B %s%TEXT% %f%REAL%"}});
    set(*this, "A", TypeUInt4, "de_DE", "ISO-8859-1");
  }

  // Sets everything that there is to set in the current settings.
  static void set(const OwnSettings& files, const std::string& mark, unsigned type,
                  const char* locale, const char* code_page) {
    kp_LOG_LogConfig::SetSynchronizationLevel(mark == "A" ? KP_SYNC_ENTRY : KP_SYNC_SYSTEM);
    kp_LOG_LogConfig::EnableCountConfig(mark == "A");
    kp_LOG_LogConfig::SetActionAttrLenExceed(mark == "A" ? 1 : 0);
    kp_LOG_LogEntry::SetOperationMode(mark == "A" ? 2 : 1);
    kp_LOG_LogConfig::SetDefinitionPath(
        files.folder_.write(mark + ".ldf", definitions(mark, type).bytes()).c_str());
    ldf_file aux;
    aux.entries.push_back({.id = 18, .attributes = {{mark + "_AUX", TypeUInt4}}});
    kp_LOG_LogConfig::SetAuxDefinitionPath(
        files.folder_.write(mark + "_aux.ldf", aux.bytes()).c_str());
    kp_LOG_LogConfig::SetLocale(locale);
    kp_LOG_LogConfig::SetCodePage(code_page);
    kp_LOG_LogConfig::SetConfigurationSource(
        files.folder_
            .write(mark + ".cfg",
                   mark == "A" ? "[s]\nA=1\nLogLevelHigh=5\n\n" : "[s]\nA=2\nLogLevelHigh=3\n\n")
            .c_str(),
        KP_CONFIG_FILE);
    kp_LOG_LogConfig::SetMessageCatalogPath(
        (mark == "A" ? files.catalog_a_ : files.catalog_b_).path().c_str());
  }
  void set_b() const { set(*this, "B", TypeFloat, "fr_FR", "UTF-8"); }

  static kp_LOG_LogEntry filled(const char* text) {
    kp_LOG_LogEntry entry(17, 4);
    entry.AddAttribMBStr("TEXT", text);
    entry.AddAttribFloat8("REAL", 1234567.5);
    entry.AddAttribTime("STAMP", some_time());
    return entry;
  }

  const settings_guard settings_;
  const code_page_setting code_page_{""};
  const environment_value zone_{"TZ", "UTC"};
  const temp_folder folder_;
  catalog_folder catalog_a_;
  catalog_folder catalog_b_;
};

// "café" in the code pages of A and of B.
static constexpr char latin[] = "caf\xe9";
static constexpr char utf8[] = "caf\xc3\xa9";

static const std::string message_a = "deutsch A caf\xe9 1.234.567,5";
static const std::string message_b =
    "fran\xc3\xa7"
    "ais B caf\xc3\xa9 1\xe2\x80\xaf"
    "234\xe2\x80\xaf"
    "567,5";

TEST_F(OwnSettings, AtFirstTellWhatAProcessTellsThatHasSetNothing) {
  kp_log_own_settings own;
  const settings_scope here(own);
  EXPECT_EQ(told(), (std::vector<std::string>{std::to_string(KP_SYNC_THREAD), "does not count",
                                              "ICU", "0", "", "", "", "no catalog",
                                              kp_I18N_usable_locale("").get_name(), "", "no source",
                                              "none", "", "0.0"}));
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionTable()->find_entry(17), nullptr);
  EXPECT_EQ(raised<KPX_logging_entry_type_not_found>([] { kp_LOG_LogEntry(17, 1); }),
            "Entry id argument is invalid");
}

TEST_F(OwnSettings, LeaveThoseOfTheProcessAlone) {
  const auto* const table = kp_LOG_LogConfig::GetDefinitionTable();
  EXPECT_EQ(kp_LOG_RenderMessage(filled(latin)), message_a);
  const auto told_before = told();
  const auto seen_before = seen();
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
    kp_LOG_LogEntry::AddAttributeDefinition(0, "LATER", TypeUInt4);
    kp_LOG_LogEntry::AddAttributeDefinition(17, "MORE", TypeUInt4);
    EXPECT_EQ(kp_LOG_RenderMessage(filled(utf8)), message_b);
    const auto told_here = told();
    for (size_t i = 0; i < told_here.size(); ++i)
      EXPECT_TRUE(told_here[i] != told_before[i] || told_here[i] == "ICU" ||
                  told_here[i] == "catalog" || told_here[i] == "source")
          << told_here[i];
    EXPECT_NE(kp_LOG_LogConfig::GetDefinitionTable(), table);
    EXPECT_EQ(seen(), seen_before);
    kp_LOG_LogConfig::SetICUEnabled(false);
    EXPECT_EQ(seen(), seen_before);
  }
  EXPECT_EQ(told(), told_before);
  EXPECT_EQ(seen(), seen_before);
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionTable(), table);
  EXPECT_EQ(kp_LOG_RenderMessage(filled(latin)), message_a);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>(
                [] { kp_LOG_LogEntry(17, 1).AddAttrib4u("MORE", 1); }),
            "MOREis an invalid attibute under Entry ID 17 !");
}

TEST_F(OwnSettings, AreLeftAloneByThoseOfTheProcess) {
  kp_log_own_settings own;
  std::vector<std::string> told_before;
  {
    const settings_scope here(own);
    set_b();
    told_before = told();
  }
  kp_LOG_LogConfig::ClearDefinitions();
  kp_LOG_LogConfig::SetLocale("ja_JP");
  kp_LOG_LogConfig::SetCodePage("US-ASCII");
  kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
  kp_LOG_LogConfig::SetICUEnabled(false);
  const settings_scope here(own);
  EXPECT_EQ(told(), told_before);
  EXPECT_EQ(kp_LOG_RenderMessage(filled(utf8)), message_b);
}

TEST_F(OwnSettings, AreKeptBetweenScopesAndTakeTurns) {
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
  }
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(kp_LOG_RenderMessage(filled(latin)), message_a);
    const settings_scope here(own);
    EXPECT_EQ(kp_LOG_RenderMessage(filled(utf8)), message_b);
  }
}

TEST_F(OwnSettings, Nest) {
  kp_log_own_settings outer;
  kp_log_own_settings inner;
  const settings_scope in_outer(outer);
  kp_LOG_LogConfig::SetCodePage("outer");
  {
    const settings_scope in_inner(inner);
    kp_LOG_LogConfig::SetCodePage("inner");
    {
      const settings_scope in_outer_again(outer);
      EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "outer");
      const settings_scope and_again(outer);
      EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "outer");
    }
    EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "inner");
  }
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "outer");
}

TEST_F(OwnSettings, AnErrorEndsTheScope) {
  kp_log_own_settings own;
  EXPECT_THROW(
      {
        const settings_scope here(own);
        set_b();
        kp_LOG_LogConfig::SetLocale("../fr");
      },
      KPX_logging_illegal_argument);
  EXPECT_EQ(kp_LOG_RenderMessage(filled(latin)), message_a);
  const settings_scope here(own);
  EXPECT_STREQ(kp_LOG_LogConfig::GetLocale().get_name(), "fr_FR");
}

// --- Entries ------------------------------------------------------------------------------------

TEST_F(OwnSettings, AnEntryOutlivesTheScopeAndTheSettings) {
  std::optional<kp_LOG_LogEntry> kept;
  std::unique_ptr<kp_LOG_LogEntry> of_process = std::make_unique<kp_LOG_LogEntry>(filled(latin));
  {
    kp_log_own_settings own;
    const settings_scope here(own);
    set_b();
    kept = filled(utf8);
    kept->AddAttribFloat8("SHARED", 0.25);
    of_process.reset();
  }
  EXPECT_EQ(kept->GetAttribFloat8("SHARED"), 0.25);
  kept->AddAttrib4u("B_OWN", 7);
  EXPECT_EQ(kept->GetAttrib4u("B_OWN"), 7U);
  // By its definition, and the catalog, locale and code page of here.
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  EXPECT_EQ(kp_LOG_RenderMessage(*kept), "deutsch A caf\xc3\xa9 1.234.567,5");
  EXPECT_EQ(kp_LOG_RenderDefinitionMessage(*kept), "B caf\xc3\xa9 1.234.567,5 15.11.2026");
  kept.reset();
}

TEST_F(OwnSettings, AnEntryIsCopiedByTheDefinitionsOfHere) {
  kp_log_own_settings own;
  std::optional<kp_LOG_LogEntry> kept;
  {
    const settings_scope here(own);
    set_b();
    kept = filled(utf8);
  }
  kp_LOG_LogEntry copy(*kept);
  copy.AddAttrib4u("A_OWN", 1);
  EXPECT_EQ(copy.GetAttrib4u("A_OWN"), 1U);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&] { copy.AddAttrib4u("B_OWN", 1); }),
            "B_OWNis an invalid attibute under Entry ID 17 !");
}

TEST_F(OwnSettings, GlobalAttributesAreThoseOfHere) {
  kp_log_own_settings own;
  kp_LOG_LogEntry entry = filled(latin);
  entry.AddAttrib4u("A_GLOBAL", 1);
  const settings_scope here(own);
  set_b();
  entry.AddAttrib4u("B_GLOBAL", 1);
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>([&] { entry.AddAttrib4u("A_GLOBAL", 1); }),
            "A_GLOBALis an invalid attibute under Entry ID 17 !");
}

TEST_F(OwnSettings, LongTextsAndMissingAttributes) {
  kp_log_own_settings own;
  const std::string text(33, 'x');
  const auto add = [&] { filled(latin).AddAttribMBStr("TEXT", text.c_str()); };
  const auto ask = [] {
    kp_LOG_LogEntry entry(17, 4);
    return entry.GetAttribFloat8("REAL");
  };
  EXPECT_NO_THROW(add());
  EXPECT_EQ(ask(), 0.0);
  {
    const settings_scope here(own);
    set_b();
    EXPECT_THROW(filled(utf8).AddAttribMBStr("TEXT", text.c_str()),
                 KPX_logging_invalid_attribute_value);
    EXPECT_THROW(ask(), KPX_logging_attribute_not_found);
  }
  EXPECT_NO_THROW(add());
  EXPECT_EQ(ask(), 0.0);
}

TEST_F(OwnSettings, TheLogVersion) {
  EXPECT_EQ(kp_LOG_LogEntry::GetLogMajorVersion(), 0U);
  static_cast<void>(filled(latin));
  const auto seen_before = seen();
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
    static_cast<void>(filled(utf8));
    EXPECT_EQ(kp_LOG_LogEntry::GetLogMajorVersion(), 4U);
    EXPECT_EQ(kp_LOG_LogEntry::GetLogMinorVersion(), 2U);
    _kp_LOG_log_entry_imp::set_log_version(9, 9);
    EXPECT_EQ(kp_LOG_LogEntry::GetLogMajorVersion(), 9U);
  }
  EXPECT_EQ(seen(), seen_before);
  EXPECT_EQ(kp_LOG_LogEntry::GetLogMajorVersion(), 3U);
}

// --- Messages -----------------------------------------------------------------------------------

static std::string in_a_buffer(const kp_LOG_LogEntry& entry) {
  char buffer[200];
  return entry._get_imp().get_readable_message(buffer, sizeof buffer - 1, false, 0);
}

// The code page of the first message in a buffer stays that of all.
TEST_F(OwnSettings, TheCodePageOfBuffersIsChosenByEachSet) {
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
    EXPECT_EQ(in_a_buffer(filled(utf8)), message_b);
    kp_LOG_LogConfig::SetCodePage("ISO-8859-1");
    EXPECT_EQ(in_a_buffer(filled(latin)), message_b);
  }
  kp_LOG_LogConfig::SetCodePage("UTF-16BE");
  {
    const settings_scope here(own);
    EXPECT_EQ(in_a_buffer(filled(latin)), message_b);
  }
  kp_LOG_LogConfig::SetCodePage("ISO-8859-1");
  EXPECT_EQ(in_a_buffer(filled(latin)), message_a);
}

// One that ICU formats as a whole, one of numbers, one of dates; of one text in both sets.
TEST_F(OwnSettings, OneTemplateIsShownInEachLocale) {
  const std::string templates[] = {"%f%REAL%", "%D%STAMP% %T%STAMP%", "{0,number,#,##0.0} %f%REAL%",
                                   "%C%REAL%"};
  kp_log_own_settings own;
  const auto load = [&](const std::string& text) {
    ldf_file file = definitions("A", TypeUInt4);
    file.entries[0].msg_text = text;
    kp_LOG_LogConfig::SetDefinitionPath(folder_.write("t.ldf", file.bytes()).c_str());
  };
  const auto shown = [](const char* locale) {
    kp_LOG_LogConfig::SetLocale(locale);
    return kp_LOG_RenderDefinitionMessage(filled("x"));
  };
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  for (const std::string& text : templates) {
    load(text);
    const std::string german = shown("de_DE");
    const std::string hindi = shown("hi_IN");
    const std::string arabic = shown("ar_EG");
    {
      const settings_scope here(own);
      kp_LOG_LogConfig::SetCodePage("UTF-8");
      load(text);
      EXPECT_EQ(shown("de_DE"), german);
      EXPECT_EQ(shown("hi_IN"), hindi);
    }
    EXPECT_STREQ(icu::Locale::getDefault().getName(), "ar_EG");
    EXPECT_EQ(kp_LOG_RenderDefinitionMessage(filled("x")), arabic);
    EXPECT_NE(german, "");
    const settings_scope here(own);
    EXPECT_EQ(kp_LOG_RenderDefinitionMessage(filled("x")), hindi);
  }
}

TEST_F(OwnSettings, TextsOfDefinitionsAreInTheDefaultCodePageOfHere) {
  const auto shown = [&](const char* text) {
    ldf_file file = definitions("A", TypeUInt4);
    file.entries[0].msg_text = text;
    kp_LOG_LogConfig::SetDefinitionPath(folder_.write("t.ldf", file.bytes()).c_str());
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    return kp_LOG_RenderDefinitionMessage(filled("x"));
  };
  kp_log_own_settings own;
  const settings_scope here(own);
  kp_log_set_default_code_page("ISO-8859-1");
  EXPECT_EQ(shown("caf\xe9 %s%TEXT%"), "café x");
  kp_log_set_default_code_page("windows-1252");
  EXPECT_EQ(shown("\x80 %s%TEXT%"), "€ x");
  kp_log_set_default_code_page("UTF-8");
  EXPECT_EQ(shown("café %s%TEXT%"), "café x");
  kp_log_set_default_code_page("ISO-8859-1");
  kp_log_own_settings others;
  const settings_scope there(others);
  EXPECT_EQ(shown("café %s%TEXT%"), "café x");
}

TEST_F(OwnSettings, TheByteRendererByTheSwitch) {
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
    kp_LOG_LogConfig::SetICUEnabled(false);
    EXPECT_STREQ(kp_LOG_LogConfig::GetMessageCatalogPath(), "");
    EXPECT_EQ(kp_LOG_RenderMessage(filled(utf8)), "B caf\xc3\xa9 1234567.500000 2026-11-15");
  }
  EXPECT_EQ(kp_LOG_RenderMessage(filled(latin)), message_a);
}

TEST_F(OwnSettings, NamesOfLocales) {
  kp_log_own_settings own;
  for (const char* name : {"de_DE@collation=phonebook", "sr_RS@latin", "C", "ja-jp", "xx_YY", ""}) {
    kp_LOG_LogConfig::SetLocale(name);
    const std::string of_process = kp_LOG_LogConfig::GetLocale().get_name();
    kp_LOG_LogConfig::SetLocale("sw_KE");
    const settings_scope here(own);
    kp_LOG_LogConfig::SetLocale(name);
    EXPECT_EQ(kp_LOG_LogConfig::GetLocale().get_name(), of_process) << name;
    EXPECT_STREQ(icu::Locale::getDefault().getName(), "sw_KE");
  }
  const settings_scope here(own);
  kp_LOG_LogConfig::SetLocale("fr_FR");
  for (const std::string& name : {std::string("de..DE"), std::string("d e"), std::string(200, 'a')})
    EXPECT_THROW(kp_LOG_LogConfig::SetLocale(name.c_str()), KPX_logging_illegal_argument);
  EXPECT_STREQ(kp_LOG_LogConfig::GetLocale().get_name(), "fr_FR");
}

// --- Filters ------------------------------------------------------------------------------------

TEST_F(OwnSettings, OneFilterByTheSourceOfHere) {
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
  }
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(filter.accepts(5, 1));
    EXPECT_TRUE(filter.accepts(5, 1));
    EXPECT_TRUE(filter.check_entry(filled(latin)));
    const settings_scope here(own);
    EXPECT_FALSE(filter.accepts(5, 1));
    EXPECT_FALSE(filter.accepts(5, 1));
    EXPECT_FALSE(filter.check_entry(filled(utf8)));
  }
}

// A source of the process that has been read looks at its file again when another one was set.
TEST_F(OwnSettings, SourcesAreReadWithoutRegardToThoseOfOthers) {
  const std::string path = folder_.file("A.cfg");
  EXPECT_EQ(configured(), "1");
  constexpr timespec long_ago[] = {{1000, 0}, {1000, 0}};
  folder_.write("A.cfg", "[s]\nA=9\n\n");
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), long_ago, 0), 0);
  kp_log_own_settings own;
  {
    const settings_scope here(own);
    set_b();
    EXPECT_EQ(configured(), "2");
    _kp_LOG_file_configuration::bCfgReaded = 0;
    folder_.write("B.cfg", "[s]\nA=8\n\n");
    ASSERT_EQ(utimensat(AT_FDCWD, folder_.file("B.cfg").c_str(), long_ago, 0), 0);
    EXPECT_EQ(configured(), "2");
    EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
    _kp_LOG_file_configuration::bCfgReaded = 1;
  }
  EXPECT_EQ(configured(), "1");
}

// --- Memory -------------------------------------------------------------------------------------

TEST_F(OwnSettings, AFailedAllocationLeavesNothing) {
  const auto told_before = told();
  for_each_failing_new([] { kp_log_own_settings own; },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(told(), told_before);
                       });
}
