// A header that "kplog header" wrote, in use: the build makes it of the example set.
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <regex>
#include <string>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "recording/definitions/fingerprint.h"
#include "tests/command/command_run.h"
#include "tests/command/generated/header_names.h"
#include "tests/command/generated/package_manager.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using package_manager::entry_DOWNLOAD_FINISHED;
using package_manager::entry_PACKAGE_INSTALLED;
using package_manager::entry_SIGNATURE_CHECKED;

// Loads a set of the test data, compiled.
class GeneratedHeader : public testing::Test {
 protected:
  void load_text(const std::string& source) { load(folder_.write("set.yaml", source)); }
  void load(const std::string& source) {
    const std::string path = folder_.file("set.ldf");
    ASSERT_EQ(run_kplog(test_data_folder(), "compile " + source + " -o " + path).status, 0);
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    kp_LOG_LogConfig::SetLocale("en_US");
    kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  }
  void SetUp() override { load("package_manager.yaml"); }

 private:
  settings_guard guard_;
  temp_folder folder_;
};

TEST_F(GeneratedHeader, ConstantsAreThoseOfTheSet) {
  EXPECT_STREQ(package_manager::log_version, "2.0");
  EXPECT_EQ(package_manager::flag_DEBUG, 0x04000000u);
  EXPECT_EQ(package_manager::flag_NETWORK, 2u);
  EXPECT_EQ(package_manager::id_STARTED, 1004u);
  EXPECT_STREQ(package_manager::name_PEER, "PEER");
}

TEST_F(GeneratedHeader, PropertyFlagsOfAnEventAreAConstant) {
  static_assert(entry_DOWNLOAD_FINISHED::property_flags ==
                (package_manager::flag_DEBUG | package_manager::flag_NETWORK));
  static_assert(entry_PACKAGE_INSTALLED::property_flags == 0);
  const entry_DOWNLOAD_FINISHED entry(3, {.SHARE = 1, .ENDED = kp_Time(), .PEER = "mirror"});
  EXPECT_EQ(entry.GetPropertyMask(), entry_DOWNLOAD_FINISHED::property_flags);
}

// Of events with flags, with others and without any.
template <class Entry>
static void expect_filter_asked_before(const Entry& entry) {
  _kp_LOG_entry_filter filter;
  for (unsigned low = 0; low <= 9; ++low)
    for (unsigned mask : {0U, 1U, 2U, 0x04000000U, 0xFFFFFFFFU}) {
      filter.set_filter_log_level(low, 7);
      filter.set_property_mask(mask);
      EXPECT_EQ(Entry::accepted_by(filter, entry.GetLogLevel()), filter.check_entry(entry))
          << low << ' ' << mask;
    }
}

TEST_F(GeneratedHeader, FilterSaysBeforeWhatItWouldSayOfTheEntry) {
  for (unsigned level = 0; level <= 9; ++level) {
    expect_filter_asked_before(entry_PACKAGE_INSTALLED(level, {"zlib", "1", 1u}));
    expect_filter_asked_before(entry_DOWNLOAD_FINISHED(level, {1.0, kp_Time(), "mirror"}));
    expect_filter_asked_before(
        entry_SIGNATURE_CHECKED(level, {"zlib", entry_SIGNATURE_CHECKED::OUTCOME_value::value_0}));
  }
}

// What is built of an event without a definition raises.
TEST_F(GeneratedHeader, NothingIsBuiltOfAnEventThatTheFilterRejects) {
  kp_LOG_LogConfig::ClearDefinitions();
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(4, 9);
  const auto log = [&filter](unsigned level) {
    if (entry_DOWNLOAD_FINISHED::accepted_by(filter, level))
      entry_DOWNLOAD_FINISHED(level, {.SHARE = 1, .ENDED = kp_Time(), .PEER = "mirror"});
  };
  EXPECT_NO_THROW(log(3));
  EXPECT_THROW(log(4), KPX_logging_entry_type_not_found);
}

// What the header says of attributes, and what the table reads: the library's own way to a number.
TEST_F(GeneratedHeader, NumbersOfAttributesAreThoseOfTheLoadedDefinitions) {
  const std::string header = read_whole_file(KPLOG_GENERATED_HEADER);
  static const std::regex of_interest(
      R"(id = ::package_manager::id_(\w+);|<::package_manager::name_(\w+), (\d+)>)");
  const std::map<std::string, unsigned> ids = {
      {"PACKAGE_INSTALLED", package_manager::id_PACKAGE_INSTALLED},
      {"SIGNATURE_CHECKED", package_manager::id_SIGNATURE_CHECKED},
      {"DOWNLOAD_FINISHED", package_manager::id_DOWNLOAD_FINISHED},
      {"STARTED", package_manager::id_STARTED}};
  const _kp_LOG_log_definition* definition = nullptr;
  int n_attributes = 0;
  for (std::sregex_iterator i(header.begin(), header.end(), of_interest), end; i != end; ++i) {
    if ((*i)[1].matched) {
      definition = kp_LOG_LogConfig::GetDefinitionTable()->find_entry(ids.at((*i)[1]));
      continue;
    }
    const char *name = nullptr, *redirection = nullptr;
    unsigned char type = 0;
    ASSERT_NE(definition, nullptr);
    definition->get_attr_info_by_index(static_cast<unsigned char>(std::stoul((*i)[3])), name, type,
                                       redirection);
    EXPECT_EQ(name, (*i)[2].str());
    ++n_attributes;
  }
  EXPECT_EQ(n_attributes, 8);
}

// What a recorder asks of an aggregate.
TEST_F(GeneratedHeader, AggregateSaysWhatItsEventIs) {
  using event = package_manager::SIGNATURE_CHECKED;
  static_assert(event::id == 1003 && event::property_flags == package_manager::flag_SECURITY);
  static_assert(std::is_same_v<event::entry, entry_SIGNATURE_CHECKED>);
  static_assert(std::is_same_v<entry_SIGNATURE_CHECKED::values, event>);
  event_fingerprint fingerprint(1003);
  fingerprint.add("PACKAGE", TypeMBChar128);
  fingerprint.add("OUTCOME", TypeUInt1);
  EXPECT_EQ(event::fingerprint, fingerprint.value());
  EXPECT_EQ(package_manager::STARTED::fingerprint, event_fingerprint(1004).value());
}

TEST_F(GeneratedHeader, AggregateShowsItsValuesInTheirOrder) {
  std::string seen;
  const auto see = [&seen](size_t number, const auto& value) {
    seen += std::to_string(number) + ":" + std::to_string(value.type) + ":";
    if constexpr (requires { value.text(); })
      seen += std::string(value.text());
    else if constexpr (requires { value.time(); })
      seen += std::to_string(value.time().get_year());
    else
      seen += std::to_string(value.value());
    seen += ' ';
  };
  package_manager::DOWNLOAD_FINISHED{
      .SHARE = 0.5, .ENDED = kp_Time(2026, 1, 2, 3, 4, 5), .PEER = "m"}
      .each_value(see);
  package_manager::SIGNATURE_CHECKED{.PACKAGE = "zlib",
                                     .OUTCOME = package_manager::OUTCOME::value_1}
      .each_value(see);
  package_manager::STARTED().each_value(see);
  EXPECT_EQ(seen, "0:8:0.500000 1:23:2026 2:10:m 0:17:zlib 1:2:1 ");
}

// A null pointer is an empty text to a recorder. Entries refuse it.
TEST_F(GeneratedHeader, TextsEndAtTheirFirstNul) {
  const char* const none = nullptr;
  const std::string string("a\0b", 3);
  const auto text_of = [](const package_manager::PACKAGE_INSTALLED& event) {
    return std::string(event.PACKAGE.text());
  };
  EXPECT_EQ(text_of({.PACKAGE = none, .VERSION = none, .SIZE = 1}), "");
  EXPECT_EQ(text_of({.PACKAGE = string, .VERSION = "", .SIZE = 1}), "a");
  EXPECT_EQ(text_of({.PACKAGE = std::string_view(string), .VERSION = "", .SIZE = 1}), "a");
  EXPECT_EQ(text_of({.PACKAGE = std::string_view(), .VERSION = "", .SIZE = 1}), "");
  EXPECT_EQ(text_of({.PACKAGE = "a\0b", .VERSION = "", .SIZE = 1}), "a");
  EXPECT_EQ(raised<KPX_logging_illegal_argument>([none] {
              entry_PACKAGE_INSTALLED(1, {.PACKAGE = none, .VERSION = "", .SIZE = 1});
            }),
            "invalid argument");
}

// The set has changed since the program was compiled.
TEST_F(GeneratedHeader, NamesCountWhereTheDefinitionsAreNewerThanTheHeader) {
  load_text(
      "kplog: 1\nlog_version: \"2.0\"\nevents:\n  PACKAGE_INSTALLED:\n    id: 1001\n"
      "    attributes: {SIZE: UInt4, NEW: UInt4, VERSION: Char64, PACKAGE: MBChar128}\n");
  const entry_PACKAGE_INSTALLED entry(3, {.PACKAGE = "zlib", .VERSION = "1.2.13", .SIZE = 70000});
  EXPECT_STREQ(entry.GetAttribMBStr("PACKAGE"), "zlib");
  EXPECT_STREQ(entry.GetAttribStr("VERSION"), "1.2.13");
  EXPECT_EQ(entry.GetAttrib4u("SIZE"), 70000u);
}

TEST_F(GeneratedHeader, WhatTheDefinitionsNoLongerHaveIsRefusedByName) {
  load_text(
      "kplog: 1\nlog_version: \"2.0\"\nevents:\n  PACKAGE_INSTALLED:\n    id: 1001\n"
      "    attributes: {PACKAGE: MBChar128, RELEASE: Char64, SIZE: UInt2}\n");
  const auto make = [] { entry_PACKAGE_INSTALLED(3, {.PACKAGE = "z", .VERSION = "1", .SIZE = 1}); };
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_name>(make),
            "VERSIONis an invalid attibute under Entry ID 1001 !");
  load_text(
      "kplog: 1\nlog_version: \"2.0\"\nevents:\n  PACKAGE_INSTALLED:\n    id: 1001\n"
      "    attributes: {PACKAGE: MBChar128, VERSION: Char64, SIZE: UInt2}\n");
  EXPECT_EQ(raised<KPX_logging_attribute_type_mismatch>(make),
            "Used the wrong add method under Entry ID 1001 !");
}

TEST_F(GeneratedHeader, EntryHasItsIdLevelAndAttributes) {
  const entry_PACKAGE_INSTALLED entry(3, {.PACKAGE = "zlib", .VERSION = "1.2.13", .SIZE = 70000});
  EXPECT_EQ(entry.GetEntryID(), 1001u);
  EXPECT_EQ(entry.GetLogLevel(), 3u);
  EXPECT_STREQ(entry.GetAttribMBStr("PACKAGE"), "zlib");
  EXPECT_STREQ(entry.GetAttribStr("VERSION"), "1.2.13");
  EXPECT_EQ(entry.GetAttrib4u("SIZE"), 70000u);
}

TEST_F(GeneratedHeader, TextsOfEveryKindArrive) {
  char buffer[200] = "buffer";
  const char* pointer = "pointer";
  const std::string string = "string";
  const auto package = [](const entry_PACKAGE_INSTALLED& entry) {
    return std::string(entry.GetAttribMBStr("PACKAGE"));
  };
  EXPECT_EQ(package({1, {.PACKAGE = buffer, .VERSION = "1", .SIZE = 1}}), "buffer");
  EXPECT_EQ(package({1, {.PACKAGE = pointer, .VERSION = "1", .SIZE = 1}}), "pointer");
  EXPECT_EQ(package({1, {.PACKAGE = string, .VERSION = "1", .SIZE = 1}}), "string");
  EXPECT_EQ(package({1, {.PACKAGE = string + "s", .VERSION = "1", .SIZE = 1}}), "strings");
}

TEST_F(GeneratedHeader, ViewNeedsNoNulBehindIt) {
  const std::string_view line = "zlib 1.2.13 installed";
  const entry_PACKAGE_INSTALLED entry(
      1, {.PACKAGE = line.substr(0, 4), .VERSION = line.substr(5, 6), .SIZE = 1});
  EXPECT_STREQ(entry.GetAttribMBStr("PACKAGE"), "zlib");
  EXPECT_STREQ(entry.GetAttribStr("VERSION"), "1.2.13");
}

TEST_F(GeneratedHeader, EmptyViewIsAnEmptyText) {
  const entry_PACKAGE_INSTALLED entry(1, {std::string_view(), std::string_view(), 0u});
  EXPECT_STREQ(entry.GetAttribMBStr("PACKAGE"), "");
  EXPECT_STREQ(entry.GetAttribStr("VERSION"), "");
}

TEST_F(GeneratedHeader, TextOfExactlyItsSizeClassIsTakenAndOneByteMoreIsRefused) {
  const std::string text(65, 'x');
  const std::string_view whole = text;
  const entry_PACKAGE_INSTALLED entry(1, {"p", whole.substr(0, 64), 1u});
  EXPECT_EQ(entry.GetAttribStr("VERSION"), text.substr(0, 64));
  const auto too_long = [&] { entry_PACKAGE_INSTALLED(1, {"p", whole, 1u}); };
  EXPECT_EQ(raised<KPX_logging_invalid_attribute_value>(too_long),
            "VERSION Attribute value is overflow under Entry ID 1001 !");
}

TEST_F(GeneratedHeader, LongViewsAreCutWhereTheSettingsSaySo) {
  kp_LOG_LogConfig::SetActionAttrLenExceed(1);
  const std::string text(100000, 'x');
  const std::string_view whole = text;
  const entry_PACKAGE_INSTALLED entry(1, {whole, whole, 1u});
  EXPECT_EQ(entry.GetAttribMBStr("PACKAGE"), text.substr(0, 128));
  EXPECT_EQ(entry.GetAttribStr("VERSION"), text.substr(0, 64));
}

TEST_F(GeneratedHeader, ViewOf128WideCharactersIsTakenWhole) {
  std::string text;
  for (int i = 0; i < 128; ++i) text += "\u65E5";
  const entry_PACKAGE_INSTALLED entry(1, {std::string_view(text), "1", 1u});
  EXPECT_EQ(entry.GetAttribMBStr("PACKAGE"), text);
  text += "\u65E5";
  EXPECT_THROW(entry_PACKAGE_INSTALLED(1, {std::string_view(text), "1", 1u}),
               KPX_logging_invalid_attribute_value);
}

TEST_F(GeneratedHeader, SelectorValueChoosesTheMessage) {
  using outcome = entry_SIGNATURE_CHECKED::OUTCOME_value;
  const entry_SIGNATURE_CHECKED good(1, {.PACKAGE = "zlib", .OUTCOME = outcome::value_0});
  EXPECT_EQ(kp_LOG_RenderMessage(good), "The signature of zlib is good");
  const entry_SIGNATURE_CHECKED broken(1,
                                       {.PACKAGE = "zlib", .OUTCOME = outcome::SIGNATURE_BROKEN});
  EXPECT_EQ(kp_LOG_RenderMessage(broken), "broken: zlib");
  const entry_SIGNATURE_CHECKED other(1, {.PACKAGE = "zlib", .OUTCOME = static_cast<outcome>(9)});
  EXPECT_EQ(kp_LOG_RenderMessage(other), "The signature of zlib was checked");
}

TEST_F(GeneratedHeader, TimesAndRealsArrive) {
  const entry_DOWNLOAD_FINISHED entry(
      1, {.SHARE = 0.5, .ENDED = kp_Time(2026, 11, 15, 17, 2, 56), .PEER = "mirror"});
  EXPECT_EQ(entry.GetAttribFloat8("SHARE"), 0.5);
  EXPECT_EQ(entry.GetAttribTime("ENDED").compare_time(kp_Time(2026, 11, 15, 17, 2, 56)), 0);
}

// The text of the time that an aggregate is given.
template <class Time>
static std::string time_given(const Time& time) {
  std::string text;
  const package_manager::DOWNLOAD_FINISHED event{.SHARE = 1, .ENDED = time, .PEER = "m"};
  const package_manager::DOWNLOAD_FINISHED copy = event;
  char buffer[40];
  copy.ENDED.time().print_out(buffer, sizeof buffer);
  return buffer;
}

TEST_F(GeneratedHeader, TimesOfTheSystemClockAreToldInGMT) {
  using std::chrono::system_clock;
  using namespace std::chrono_literals;
  const std::chrono::sys_days day = std::chrono::year(2026) / 11 / 15;
  EXPECT_EQ(time_given(day), "2026-11-15T00:00:00Z");
  EXPECT_EQ(time_given(day + 17h), "2026-11-15T17:00:00Z");
  EXPECT_EQ(time_given(day + 17h + 2min + 56s + 999999999ns), "2026-11-15T17:02:56Z");
  EXPECT_EQ(time_given(system_clock::time_point(-1ns)), "1969-12-31T23:59:59Z");
  EXPECT_EQ(time_given(std::chrono::sys_time<std::chrono::duration<double>>(1.5s)),
            "1970-01-01T00:00:01Z");
  const auto now = system_clock::now();
  const entry_DOWNLOAD_FINISHED entry(1, {.SHARE = 1, .ENDED = now, .PEER = "m"});
  EXPECT_EQ(entry.GetAttribTime("ENDED").to_time_point(),
            std::chrono::floor<std::chrono::seconds>(now));
}

TEST_F(GeneratedHeader, TimesThatNoYearTellsAreTheNearestOnes) {
  using std::chrono::sys_time;
  EXPECT_EQ(time_given(sys_time<std::chrono::hours>::max()), "65535-12-31T23:59:59Z");
  EXPECT_EQ(time_given(sys_time<std::chrono::hours>::min()), "0000-01-01T00:00:00Z");
  using real = std::chrono::duration<double>;
  EXPECT_EQ(time_given(sys_time<real>(real(1e300))), "65535-12-31T23:59:59Z");
  EXPECT_EQ(time_given(sys_time<real>(real(std::numeric_limits<double>::quiet_NaN()))),
            "0000-01-01T00:00:00Z");
}

TEST_F(GeneratedHeader, GlobalAttributesAreAddedToAnyEntry) {
  package_manager::entry_STARTED entry(0);
  package_manager::add_SEVERITY_CODE(entry, 3);
  package_manager::add_COMPUTER_NAME(entry, std::string_view("host.example").substr(0, 4));
  EXPECT_EQ(entry.GetAttrib1u("SEVERITY_CODE"), 3);
  EXPECT_STREQ(entry.GetAttribMBStr("COMPUTER_NAME"), "host");
}

TEST_F(GeneratedHeader, LevelAbove9IsRefusedAsEver) {
  EXPECT_THROW(package_manager::entry_STARTED(10), KPX_logging_invalid_log_level);
}

TEST_F(GeneratedHeader, EntriesAreCopiedAsEntries) {
  const entry_SIGNATURE_CHECKED entry(
      1, {.PACKAGE = "zlib", .OUTCOME = entry_SIGNATURE_CHECKED::OUTCOME_value::value_0});
  const kp_LOG_LogEntry copy = entry;
  EXPECT_EQ(kp_LOG_RenderMessage(copy), "The signature of zlib is good");
}

TEST_F(GeneratedHeader, NamesThatCppHasNoUseForReachTheLibraryAsTheyAre) {
  load("header_names.yaml");
  const std::uint8_t small = 7;
  const header_names::entry_class entry(2, {.operator_ = small,
                                            .EOF_ = -1,
                                            .EOF_2 = small,
                                            .n2ND = 1,
                                            .A_B = kp_Time(),
                                            .A_B_2 = kp_Time(),
                                            .QUOTE_ = "q",
                                            .GRÖẞE = true,
                                            .n = kp_Time()});
  EXPECT_EQ(entry.GetAttrib1u("operator"), 7);
  EXPECT_EQ(entry.GetAttrib1("EOF"), -1);
  EXPECT_EQ(entry.GetAttrib2("EOF_"), 7);
  EXPECT_EQ(entry.GetAttribFloat8("2ND"), 1.0);
  EXPECT_STREQ(entry.GetAttribStr("QUOTE\"\\?\?/"), "q");
  EXPECT_TRUE(entry.GetAttribBool("GRÖẞE"));
}
