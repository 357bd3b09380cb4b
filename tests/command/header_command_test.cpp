// kplog header, from outside: the text it writes, diagnostics, exit statuses.
#include <gmock/gmock.h>

#include <filesystem>
#include <set>

#include "tests/command/command_run.h"
#include "tests/command/golden_file.h"
#include "tests/support/temp_folder.h"

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

static const char* const small_source =
    "kplog: 1\nlog_version: \"1.0\"\nevents:\n  STARTED: {id: 1, message: Started}\n";

// What the command writes for the small source.
static std::string small_header(const std::string& arguments) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto run = run_kplog(folder.path(), "header s.yaml -o - " + arguments);
  EXPECT_EQ(run.status, 0) << run.err;
  return run.out;
}

TEST(HeaderText, GoldenHeaderOfTheExample) {
  const auto run = run_kplog(test_data_folder(), "header package_manager.yaml -o -");
  EXPECT_EQ(run.status, 0);
  expect_golden_file("package_manager.h.expected", run.out);
}

TEST(HeaderText, GoldenHeaderOfNamesThatCppHasNoUseFor) {
  const auto run = run_kplog(test_data_folder(), "header header_names.yaml -o -");
  EXPECT_EQ(run.status, 0) << run.err;
  expect_golden_file("header_names.h.expected", run.out);
}

// The diagnostics of a source whose selector messages have these names.
static std::string faults_of_names(const std::string& first, const std::string& second) {
  const temp_folder folder;
  folder.write("s.yaml",
               "kplog: 1\nlog_version: \"1.0\"\nevents:\n  A:\n    id: 1\n"
               "    attributes: {KIND: UInt1}\n    select: KIND\n    messages:\n"
               "      - {index: 1, value: 1, name: " +
                   first +
                   ", text: a}\n"
                   "      - {index: 2, value: 2, name: " +
                   second + ", text: b}\n");
  return run_kplog(folder.path(), "header -q s.yaml -o s.h").err;
}

TEST(HeaderText, NamesOfSelectorMessagesAreIdentifiersOfTheirOwn) {
  EXPECT_EQ(faults_of_names("open", "Closed_2"), "");
  EXPECT_THAT(faults_of_names("open", "open"),
              HasSubstr("s.yaml:10:36: error[duplicate-selector]: another selector message has "
                        "this name already\n"));
  for (const char* name : {"class", "a-b", "2nd", "_a", "a__b", "\"a b\"", "EOF", "EACCES", "unix"})
    EXPECT_THAT(faults_of_names("open", name),
                HasSubstr("s.yaml:10:36: error[bad-name]: a message's name is an enumerator"))
        << name;
  EXPECT_THAT(faults_of_names("open", "\"\""),
              HasSubstr("error[bad-name]: a name cannot be empty"));
}

TEST(HeaderText, CompiledFileGivesTheSameClasses) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  ASSERT_EQ(run_kplog(folder.path(), "compile s.yaml -o s.ldf").status, 0);
  const std::string header = run_kplog(folder.path(), "header s.ldf -o -").out;
  EXPECT_THAT(header,
              HasSubstr("// Written by \"kplog header\" from s.ldf. Changes belong there."));
  EXPECT_THAT(header, HasSubstr("\nclass entry_STARTED : public ::kp_LOG_LogEntry {\n"));
  EXPECT_THAT(header, HasSubstr("\ninline constexpr ::std::uint32_t id_STARTED = 1;\n"));
}

TEST(HeaderText, SeveralSourcesAreNamedWithoutTheirFolders) {
  const temp_folder folder;
  folder.write("a.yaml", small_source);
  folder.write("b.yaml", "kplog: 1\nevents: {STOPPED: {id: 2}}\n");
  EXPECT_THAT(run_kplog(folder.path(), "header ./a.yaml " + folder.file("b.yaml") + " -o -").out,
              HasSubstr("from a.yaml, b.yaml. "));
}

TEST(HeaderText, NamespaceAndGuardComeFromTheOutput) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  EXPECT_EQ(run_kplog(folder.path(), "header s.yaml -o my-events.v2.h").err,
            "kplog: wrote my-events.v2.h: 1 event\n");
  const std::string header = read_whole_file(folder.file("my-events.v2.h"));
  EXPECT_THAT(header, HasSubstr("\nnamespace my_events_v2 {\n"));
  EXPECT_THAT(header, HasSubstr("\n#ifndef KPLOG_MY_EVENTS_V2_H\n"));
}

TEST(HeaderText, NamespaceCanBeGiven) {
  EXPECT_THAT(small_header("--namespace shop::log"), HasSubstr("\nnamespace shop::log {\n"));
  EXPECT_THAT(small_header("--namespace shop::log"), HasSubstr("\n#define KPLOG_SHOP_in_LOG_H\n"));
  EXPECT_THAT(small_header("--namespace ä::日本"), HasSubstr("\nnamespace ä::日本 {\n"));
  EXPECT_THAT(small_header(""), HasSubstr("\nnamespace log_events {\n"));
}

static std::string guard_of_header(const std::string& arguments) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto run = run_kplog(folder.path(), "header -q s.yaml " + arguments + " && cat *.h");
  EXPECT_EQ(run.status, 0) << run.err;
  const size_t begin = run.out.find("#ifndef ") + 8;
  return run.out.substr(begin, run.out.find('\n', begin) - begin);
}

TEST(HeaderText, HeadersOfDifferentNamespacesHaveDifferentGuards) {
  std::set<std::string> guards;
  for (const char* arguments : {"-o ä.h", "-o ö.h", "-o a_b.h", "-o A_b.h",
                                "-o c.h --namespace a::b", "-o ab.h", "-o xb.h"})
    EXPECT_TRUE(guards.insert(guard_of_header(arguments)).second) << arguments;
  EXPECT_THAT(guards, Contains("KPLOG_x0000E4_H"));
}

TEST(HeaderText, NamesAreComposedAndOfLettersThatCompilersKnow) {
  const temp_folder folder;
  folder.write("s.yaml",
               "kplog: 1\nlog_version: \"1.0\"\nevents:\n"
               "  A: {id: 1, attributes: {\"E\\u0301\": Date, \"\\u0303x\": Date, "
               "\"a\\U00011F02\": Date}}\n");
  const auto run = run_kplog(folder.path(), "header -q s.yaml -o -");
  EXPECT_THAT(run.out, HasSubstr("> É;\n")) << run.err;
  EXPECT_THAT(run.out, HasSubstr("> ñx;\n"));
  EXPECT_THAT(run.out, HasSubstr("> a_;\n"));
}

TEST(HeaderText, AttributesThatAreLeftOutKeepTheirNumber) {
  const temp_folder folder;
  folder.write("s.yaml",
               "kplog: 1\nlog_version: \"1.0\"\nevents:\n"
               "  A: {id: 1, attributes: {FIRST: Date, LEFT_OUT: GUID, THIRD: Date}}\n");
  const std::string header = run_kplog(folder.path(), "header -q s.yaml -o log.h && cat log.h").out;
  EXPECT_THAT(header, HasSubstr("::kp_LOG_attribute_key<::log::name_FIRST, 0>"));
  EXPECT_THAT(header, HasSubstr("::kp_LOG_attribute_key<::log::name_THIRD, 2>"));
}

static std::string header_of(const std::string& source) {
  const temp_folder folder;
  folder.write("events.yaml", source);
  const auto run = run_kplog(folder.path(), "header -q events.yaml -o -");
  EXPECT_EQ(run.err, "");
  return run.out;
}

static size_t count_of(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++n;
  return n;
}

TEST(HeaderText, LevelsAreTheEventsTheirSourcesOr3) {
  const std::string head = "kplog: 1\nlog_version: \"1\"\n";
  EXPECT_THAT(header_of(head + "events: {A: {id: 1}}\n"), HasSubstr(" default_level = 3;\n"));
  EXPECT_THAT(header_of(head + "level: 0x7\nevents: {A: {id: 1}}\n"),
              HasSubstr(" default_level = 7;\n"));
  const std::string named =
      header_of(head +
                "levels: {info: 5, critical: 1, error: 2}\nlevel: info\n"
                "events: {A: {id: 1}, B: {id: 2, level: error}, C: {id: 3, level: 0}}\n");
  EXPECT_THAT(named, HasSubstr("enum class level : unsigned {\n  critical = 1,\n  error = 2,\n"
                               "  info = 5,\n};\n"));
  EXPECT_EQ(count_of(named, " default_level = 5;\n"), 1u);
  EXPECT_EQ(count_of(named, " default_level = 2;\n"), 1u);
  EXPECT_EQ(count_of(named, " default_level = 0;\n"), 1u);
}

// Another source's level is not this one's, but its names are.
TEST(HeaderText, NamesOfLevelsAreThoseOfAllSources) {
  const temp_folder folder;
  folder.write("a.yaml",
               "kplog: 1\nlog_version: \"1\"\nlevels: {bad: 1}\nlevel: 8\nevents: {A: {id: 1}}\n");
  folder.write("b.yaml",
               "kplog: 1\nlevels: {bad: 1}\nevents: {B: {id: 2, level: bad}, C: {id: 3}}\n");
  const std::string header = run_kplog(folder.path(), "header -q b.yaml a.yaml -o -").out;
  EXPECT_EQ(count_of(header, " default_level = 8;\n"), 1u);
  EXPECT_EQ(count_of(header, " default_level = 1;\n"), 1u);
  EXPECT_EQ(count_of(header, " default_level = 3;\n"), 1u);
  folder.write("c.yaml", "kplog: 1\nlevels: {bad: 2}\n");
  EXPECT_THAT(run_kplog(folder.path(), "header -q a.yaml c.yaml -o -").err,
              HasSubstr("c.yaml:2:15: error[level-value]: the level \"bad\" has another value"));
}

TEST(HeaderText, CompiledFileHasNoLevels) {
  const temp_folder folder;
  folder.write("s.yaml",
               "kplog: 1\nlog_version: \"1\"\nlevels: {bad: 1}\nlevel: bad\n"
               "events: {A: {id: 1, message: m}}\n");
  ASSERT_EQ(run_kplog(folder.path(), "compile -q s.yaml -o s.ldf").status, 0);
  const std::string header = run_kplog(folder.path(), "header -q s.ldf -o -").out;
  EXPECT_THAT(header, HasSubstr(" default_level = 3;\n"));
  EXPECT_THAT(header, Not(HasSubstr("enum class level")));
}

TEST(HeaderText, LevelsOfAnAuxSetAgreeWithThoseOfTheStdSet) {
  const temp_folder folder;
  const std::string head = "kplog: 1\nlog_version: \"1\"\n";
  folder.write("std.yaml", head + "levels: {bad: 1}\nevents: {A: {id: 1}}\n");
  folder.write("same.yaml", head + "levels: {bad: 1, good: 4}\nevents: {B: {id: 2, level: bad}}\n");
  folder.write("none.yaml", head + "events: {B: {id: 2, level: bad}}\n");
  folder.write("other.yaml", head + "levels: {bad: 2}\nevents: {B: {id: 2, level: bad}}\n");
  const auto header_beside = [&](const std::string& source) {
    return run_kplog(folder.path(), "header -q --std std.yaml " + source + " -o -");
  };
  const std::string same = header_beside("same.yaml").out;
  EXPECT_THAT(same, HasSubstr("enum class level : unsigned {\n  bad = 1,\n  good = 4,\n};\n"));
  EXPECT_EQ(count_of(same, " default_level = 1;\n"), 1u);
  const std::string none = header_beside("none.yaml").out;
  EXPECT_THAT(none, Not(HasSubstr("enum class level")));
  EXPECT_EQ(count_of(none, " default_level = 1;\n"), 1u);
  const auto other = header_beside("other.yaml");
  EXPECT_EQ(other.status, 1);
  EXPECT_EQ(other.out, "");
  EXPECT_THAT(other.err, HasSubstr("other.yaml:3:15: error[level-value]: the STD set gives the "
                                   "level \"bad\" another value\n"));
  EXPECT_THAT(other.err, HasSubstr("std.yaml:3:15: note: its value is given here\n"));
}

TEST(HeaderText, OnlyIdsAreTheConstants) {
  const temp_folder folder;
  folder.write("events.yaml",
               "kplog: 1\nlog_version: \"1\"\nflags: {F: 2}\nlevels: {bad: 1}\n"
               "attributes: {HOST: Char32}\n"
               "events:\n  A: {id: 7, flags: [F], attributes: {N: UInt1}, select: N, messages: "
               "[{index: 1, value: 1, name: one, text: one}]}\n  B: {id: 8}\n");
  const auto run = run_kplog(folder.path(), "header --only ids events.yaml -o ids.h");
  EXPECT_EQ(run.err, "kplog: wrote ids.h: 2 events\n");
  EXPECT_EQ(read_whole_file(folder.file("ids.h")),
            R"(// Written by "kplog header" from events.yaml. Changes belong there.
#ifndef KPLOG_IDS_H
#define KPLOG_IDS_H

#if __cplusplus < 201703L
#error "this header needs C++17"
#endif

#include <cstdint>

// Macros of these names are put aside while the header is read.
#pragma push_macro("bad")
#undef bad
#pragma push_macro("level")
#undef level

namespace ids {

// The log version of every entry.
inline constexpr char log_version[] = "1";

// Property flags.
inline constexpr ::std::uint32_t flag_DEBUG = 0x04000000;
inline constexpr ::std::uint32_t flag_F = 0x00000002;

// Levels.
enum class level : unsigned {
  bad = 1,
};

// Entry IDs.
inline constexpr ::std::uint32_t id_A = 7;
inline constexpr ::std::uint32_t id_B = 8;

// Attribute names.
inline constexpr char name_HOST[] = "HOST";
inline constexpr char name_N[] = "N";

}  // namespace ids

// The macros are as they were.
#pragma pop_macro("level")
#pragma pop_macro("bad")

#endif
)");
}

// So that nothing is compiled again for it.
TEST(HeaderText, DoesNotChangeWithTheTextsOfMessages) {
  const auto source = [](const std::string& text) {
    return "kplog: 1\nlog_version: \"1\"\nevents:\n  A:\n    id: 1\n    attributes: {KIND: UInt1}\n"
           "    select: KIND\n    message: \"" +
           text +
           "\"\n    messages:\n"
           "      - {index: 1, value: 1, name: open, text: \"open " +
           text + "\"}\n";
  };
  EXPECT_EQ(header_of(source("one")), header_of(source("another")));
}

TEST(HeaderText, EnumerationsStandInTheNamespaceWhereEventsAgree) {
  const auto event = [](const std::string& name, const std::string& id, const std::string& value) {
    return "  " + name + ":\n    id: " + id +
           "\n    attributes: {KIND: UInt1}\n    select: KIND\n"
           "    messages:\n      - {index: 1, value: " +
           value + ", name: open, text: x}\n";
  };
  const std::string head = "kplog: 1\nlog_version: \"1\"\nevents:\n";
  const std::string agreed = header_of(head + event("A", "1", "1") + event("B", "2", "1"));
  EXPECT_EQ(count_of(agreed, "\nenum class KIND : ::std::uint8_t {\n"), 1u);
  EXPECT_EQ(count_of(agreed, "  using KIND_value = ::log_events::KIND;\n"), 2u);
  const std::string disagreed = header_of(head + event("A", "1", "1") + event("B", "2", "2"));
  EXPECT_EQ(count_of(disagreed, "\nenum class KIND "), 0u);
  EXPECT_EQ(count_of(disagreed, "\n  enum class KIND_value : ::std::uint8_t {\n"), 2u);
  EXPECT_THAT(disagreed, HasSubstr("  using KIND_value = ::log_events::B::KIND_value;\n"));
}

TEST(HeaderText, SameInputGivesTheSameText) {
  EXPECT_EQ(small_header(""), small_header(""));
}

TEST(HeaderCommand, FaultsAreReportedAndNothingIsWritten) {
  const temp_folder folder;
  folder.write("s.yaml", "kplog: 1\nlog_version: \"1\"\nevents: {A: {id: x}}\n");
  const auto run = run_kplog(folder.path(), "header s.yaml -o s.h");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("s.yaml:3:18: error[bad-number]: "));
  EXPECT_THAT(run.err, HasSubstr("\nkplog: 1 error, nothing written\n"));
  EXPECT_FALSE(std::filesystem::exists(folder.file("s.h")));
}

TEST(HeaderCommand, WrongUsageGivesStatus2) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  for (const char* arguments :
       {"header", "header s.yaml", "header -o s.h", "header s.yaml -o s.h --namespace 1a",
        "header s.yaml -o s.h --only", "header s.yaml -o s.h --only classes",
        "header s.yaml -o s.h --namespace a::", "header s.yaml -o s.h --namespace 'a b'",
        "header s.yaml -o s.h --namespace class", "header s.yaml -o s.h --namespace a::int",
        "header s.yaml -o s.h --namespace std", "header s.yaml -o s.h --namespace std2::a",
        "header s.yaml -o std.h", "header s.yaml -o s.h --namespace ::a",
        "header s.yaml -o s.h --namespace a:b", "header s.yaml -o s.h --namespace a__b",
        "header s.yaml -o s.h --namespace 日-本", "header s.yaml -o s.h --namespace \xE4"}) {
    EXPECT_EQ(run_kplog(folder.path(), arguments).status, 2) << arguments;
  }
  EXPECT_FALSE(std::filesystem::exists(folder.file("s.h")));
}

TEST(HeaderCommand, NamespaceOfTheLanguageIsRefusedFromTheHeadersNameToo) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  EXPECT_THAT(run_kplog(folder.path(), "header s.yaml -o std.h").err,
              HasSubstr("the header's name makes the namespace \"std\", which belongs to C++; give "
                        "another with --namespace\n"));
  EXPECT_FALSE(std::filesystem::exists(folder.file("std.h")));
  EXPECT_EQ(run_kplog(folder.path(), "header -q s.yaml -o std.h --namespace shop::std").status, 0);
}

TEST(HeaderCommand, FilesThatCannotBeReadOrWrittenGiveStatus3) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto unread = run_kplog(folder.path(), "header none.yaml -o s.h");
  EXPECT_EQ(unread.status, 3);
  EXPECT_EQ(unread.err, "kplog: cannot read none.yaml: No such file or directory\n");
  const auto unwritten = run_kplog(folder.path(), "header s.yaml -o none/s.h");
  EXPECT_EQ(unwritten.status, 3);
  EXPECT_EQ(unwritten.err, "kplog: cannot write none/s.h: No such file or directory\n");
}

TEST(HeaderCommand, HelpShowsExamples) {
  const auto help = run_kplog(test_data_folder(), "header --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, HasSubstr("kplog header events.yaml -o events.h\n"));
}
