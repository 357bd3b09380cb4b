// kplog compile, from outside: bytes, diagnostics, exit statuses, files.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "recording/report/rules.h"
#include "tests/command/command_run.h"
#include "tests/command/documentation_page.h"
#include "tests/command/golden_file.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

static const char* const small_source =
    "kplog: 1\nlog_version: \"1.0\"\nevents:\n  STARTED: {id: 1, message: Started}\n";

// A source with one event whose lines are given.
static std::string source_with_event(const std::string& event) {
  return "kplog: 1\nlog_version: \"1.0\"\nevents:\n  EVENT:\n    id: 1\n" + event;
}

static std::vector<std::string> file_names(const temp_folder& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
    names.push_back(entry.path().filename());
  return names;
}

// The first line of what the command says against a source.
static std::string first_line_against(const std::string& source) {
  const temp_folder folder;
  folder.write("s.yaml", source);
  const std::string err = run_kplog(folder.path(), "compile s.yaml -o o.ldf").err;
  return err.substr(0, err.find('\n'));
}

// --- bytes

TEST(CompileBytes, EverySourceFeatureHasItsBytes) {
  const ldf_file expected{
      .log_version = "2.0",
      .globals = {{"SEVERITY_CODE", TypeUInt1}, {"COMPUTER_NAME", TypeMBChar64}},
      .entries = {
          {.id = 1001,
           .msg_id = "PACKAGE_INSTALLED",
           .msg_text = "%s%PACKAGE% %s%VERSION% was installed, %d%SIZE% bytes%x%TIMESTAMP%",
           .attributes = {{"PACKAGE", TypeMBChar128},
                          {"VERSION", TypeChar64},
                          {"SIZE", TypeUInt4}}},
          {.id = 1002,
           .second_word = 7,
           .flags = 0x04000002,
           .msg_id = "DOWNLOAD",
           .msg_text = "%P%SHARE% from %s%PEER% on %D%ENDED% at %T%ENDED%, 100%x%TIMESTAMP% %% "
                       "'{'done'}'%x%TIMESTAMP%",
           .attributes = {{"SHARE", TypeFloat},
                          {"ENDED", TypeTimestamp},
                          {"PEER", TypeChar64, "HOST"}}},
          {.id = 1003,
           .flags = 1,
           .msg_id = "SIGNATURE_CHECKED",
           .msg_text = "The signature of %s%PACKAGE% was checked%x%TIMESTAMP%",
           .selector = "OUTCOME",
           .attributes = {{"PACKAGE", TypeMBChar128}, {"OUTCOME", TypeUInt1}},
           .messages = {{1, 0, "SIGNATURE_CHECKED.1",
                         "The signature of %s%PACKAGE% is good%x%TIMESTAMP%"},
                        {2, 1, "SIGNATURE_CHECKED.2",
                         "Nobody''s key signed %s%PACKAGE%{0,select,other{}}%d%OUTCOME%"},
                        {3, 2, "SIGNATURE_BROKEN", "broken: %s%PACKAGE%"}}},
          {.id = 1004, .msg_id = "STARTED"}}};
  const temp_folder folder;
  const auto run =
      run_kplog(test_data_folder(), "compile package_manager.yaml -o " + folder.file("out.ldf"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(read_whole_file(folder.file("out.ldf")), expected.bytes());
}

TEST(CompileBytes, SetWithoutEventsIsAHeader) {
  const temp_folder folder;
  folder.write("s.yaml", "kplog: 1\nlog_version: \"1.0\"\n");
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o o.ldf").status, 0);
  EXPECT_EQ(read_whole_file(folder.file("o.ldf")), ldf_file{.log_version = "1.0"}.bytes());
}

TEST(CompileBytes, SeveralSourcesAreOneSetInTheirOrder) {
  const temp_folder folder;
  folder.write(
      "a.yaml",
      "kplog: 1\nlog_version: \"1.0\"\nattributes: {HOST: Char64}\nevents: {A: {id: 2}}\n");
  folder.write("b.yaml",
               "kplog: 1\nattributes: {HOST: Char64, USER: Char32}\nflags: {X: 8}\n"
               "events: {B: {id: 1, flags: [X]}}\n");
  EXPECT_EQ(run_kplog(folder.path(), "compile a.yaml b.yaml -o o.ldf").err,
            "kplog: wrote o.ldf: 2 events, 2 global attributes\n");
  const ldf_file expected{
      .log_version = "1.0",
      .globals = {{"HOST", TypeChar64}, {"USER", TypeChar32}},
      .entries = {{.id = 2, .msg_id = "A"}, {.id = 1, .flags = 8, .msg_id = "B"}}};
  EXPECT_EQ(read_whole_file(folder.file("o.ldf")), expected.bytes());
}

TEST(CompileBytes, EveryTypeNameIsKnownWithAndWithoutItsPrefix) {
  ldf_entry entry{.id = 1, .msg_id = "EVENT"};
  std::string attributes = "    attributes:\n";
  for (int type = 1; type <= 24; ++type) {
    const std::string name = _kp_LOG_get_attribute_type_string(static_cast<kp_AttributeType>(type));
    const std::string number = std::to_string(type);
    attributes += "      LONG" + number + ": " + name + "\n      SHORT" + number + ": " +
                  name.substr(4) + "\n";
    entry.attributes.push_back({"LONG" + number, static_cast<unsigned>(type)});
    entry.attributes.push_back({"SHORT" + number, static_cast<unsigned>(type)});
  }
  const temp_folder folder;
  folder.write("s.yaml", source_with_event(attributes));
  EXPECT_EQ(run_kplog(folder.path(), "compile -q s.yaml -o o.ldf").err, "");
  EXPECT_EQ(read_whole_file(folder.file("o.ldf")),
            (ldf_file{.log_version = "1.0", .entries = {entry}}.bytes()));
}

TEST(CompileBytes, SameInputGivesTheSameBytes) {
  const temp_folder folder;
  const std::string command = "compile package_manager.yaml -o " + folder.path();
  run_kplog(test_data_folder(), command + "/a.ldf");
  run_kplog(test_data_folder(), command + "/b.ldf", "LC_ALL=C TZ=Asia/Tokyo ");
  EXPECT_FALSE(read_whole_file(folder.file("a.ldf")).empty());
  EXPECT_EQ(read_whole_file(folder.file("a.ldf")), read_whole_file(folder.file("b.ldf")));
}

// --- diagnostics

static const char* const bad_sources =
    "bad_set.yaml bad_conflicts.yaml bad_texts.yaml bad_templates.yaml bad_both.yaml "
    "bad_bytes.yaml bad_levels.yaml";

TEST(CompileDiagnostics, GoldenListOfEverythingWrongWithBadSources) {
  const auto run =
      run_kplog(test_data_folder(), std::string("compile ") + bad_sources + " -o x.ldf");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  expect_golden_file("bad_sources.expected", run.err);
  EXPECT_FALSE(std::filesystem::exists(test_data_folder() + "/x.ldf"));
}

TEST(CompileDiagnostics, GoldenListOfSourcesThatCannotBeReadToTheirEnd) {
  const auto run = run_kplog(test_data_folder(),
                             "compile bad_syntax.yaml bad_documents.yaml bad_empty.yaml -o x.ldf");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("bad_unread.expected", run.err);
}

TEST(CompileDiagnostics, GoldenListForPrograms) {
  const auto run =
      run_kplog(test_data_folder(),
                "compile --format json bad_conflicts.yaml bad_both.yaml bad_syntax.yaml -o x.ldf");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("bad_sources.expected.json", run.err);
}

// Advice, and what concerns compiled files and STD sets, is no matter of sources alone. Some rules
// need a source of a size or of bytes that nobody wants to keep; tests below find them.
static bool has_test_of_its_own(diagnostic_rule rule) {
  return rule->kind == rule_kind::advice || std::string_view(rule->code).starts_with("std-") ||
         rule == "too-large"_rule || rule == "encoding"_rule || rule == "too-deep"_rule ||
         rule == "too-many"_rule || rule == "unused-accept"_rule;
}

TEST(CompileDiagnostics, BadSourcesBreakEveryRule) {
  const std::string expected = read_whole_file(test_data_folder() + "/bad_sources.expected") +
                               read_whole_file(test_data_folder() + "/bad_unread.expected");
  for (const diagnostic_rule rule : diagnostic_rules()) {
    if (rule == "file-magic"_rule) break;  // what follows is not of sources
    if (has_test_of_its_own(rule)) continue;
    EXPECT_THAT(expected, HasSubstr(std::string("error[") + rule->code + "]: "));
  }
}

// The page on diagnostics shows two sources that it does not have whole: these say the same.
TEST(CompileDiagnostics, PageShowsWhatIsSaid) {
  const temp_folder folder;
  const auto source = [](size_t blank_lines, const std::string& event) {
    return "kplog: 1\nlog_version: \"1\"\nevents:\n" + std::string(blank_lines, '\n') + event;
  };
  folder.write("events.yaml", source(13,
                                     "  FIRST:\n    id: 24\n    message: \"{USER}\"\n"
                                     "    attributes:\n      USER: MBChra64\n") +
                                  std::string(7, '\n') + "  OTHER:\n    id: 25\n");
  folder.write("more.yaml", source(3, "  SECOND: {id: 25}\n"));
  // A block ends with the empty line behind it.
  EXPECT_EQ(run_kplog(folder.path(), "check --quiet events.yaml more.yaml").err + "\n",
            page_block("tools.md", "how many did not come."));
  std::string shown = page_block("tools.md", "there is no summary:");
  shown.erase(shown.find("\n "), 2);  // where the page breaks the line
  EXPECT_EQ(run_kplog(folder.path(), "check --format json events.yaml").err + "\n", shown);
}

TEST(CompileDiagnostics, EveryRuleIsDocumented) {
  const std::string page = documentation_page("tools.md") + documentation_page("commands/check.md");
  for (const diagnostic_rule rule : diagnostic_rules())
    EXPECT_THAT(page, HasSubstr(std::string("| `") + rule->code + "` | " + rule->summary + " |"));
}

TEST(CompileDiagnostics, ColumnsCountCharacters) {
  EXPECT_EQ(
      first_line_against("kplog: 1\nlog_version: \"1.0\"\nevents:\n  GRÖẞE: {id: eins}\n"),
      "s.yaml:4:15: error[bad-number]: a number from 0 to 4294967295 is expected here, decimal "
      "or 0x and hexadecimal");
}

TEST(CompileDiagnostics, CaretStandsUnderWideCharacters) {
  const temp_folder folder;
  folder.write("s.yaml", "kplog: 1\nlog_version: \"1.0\"\nevents:\n  日本: {id: x}\n");
  EXPECT_THAT(run_kplog(folder.path(), "compile s.yaml -o o").err,
              HasSubstr("\n  日本: {id: x}\n" + std::string(13, ' ') + "^\n"));
}

TEST(CompileDiagnostics, TextsFromFilesCannotSteerTheTerminal) {
  const temp_folder folder;
  folder.write("s.yaml", "kplog: 1\n\"\\e[2Jx\": \"\u202E\"\n");
  const std::string err = run_kplog(folder.path(), "compile s.yaml -o o").err;
  EXPECT_THAT(err, HasSubstr("a source has no key \"\\x1B[2Jx\""));
  EXPECT_THAT(err, HasSubstr("\n\"\\e[2Jx\": \"\\u{202E}\"\n"));
  EXPECT_EQ(err.find('\x1b'), std::string::npos);
}

TEST(CompileDiagnostics, JsonCarriesNoBareControlEither) {
  const temp_folder folder;
  folder.write("s.yaml", "kplog: 1\nlog_version: \"1\"\n\"\\e\\\\\\\"\u202E\u009B\": 1\n");
  EXPECT_THAT(
      run_kplog(folder.path(), "compile --format json s.yaml -o o").err,
      HasSubstr(R"("text":"a source has no key \"\u001B\\\"\u202E\u009B\"; its keys are kplog, )"));
}

TEST(CompileDiagnostics, ColorComesWhenAskedForOnly) {
  const temp_folder folder;
  folder.write("s.yaml", "log_version: \"1\"\nkplog: 2\n");
  EXPECT_THAT(run_kplog(folder.path(), "compile --color always s.yaml -o o").err,
              StartsWith("\x1b[1ms.yaml:2:8: \x1b[0m\x1b[1;31merror[source-format]: \x1b[0m"));
  EXPECT_THAT(run_kplog(folder.path(), "compile s.yaml -o o").err, StartsWith("s.yaml:2:8: error"));
}

TEST(CompileDiagnostics, LongLineIsCutAroundTheCaret) {
  const std::string source = "kplog: 1\nevents: {" + std::string(100000, ' ') + "A: {id: x}}\n";
  const temp_folder folder;
  folder.write("s.yaml", source);
  const std::string err = run_kplog(folder.path(), "compile -q s.yaml -o o").err;
  EXPECT_THAT(err, HasSubstr("s.yaml:2:100018: error[bad-number]"));
  EXPECT_LT(err.size(), 1000u);
}

TEST(CompileDiagnostics, InvalidUtf8IsRefusedAtItsPlace) {
  EXPECT_EQ(first_line_against("kplog: 1\nevents: \"\xC3\xA4\xFF\"\n"),
            "s.yaml:2:11: error[encoding]: the source is not valid UTF-8");
}

TEST(CompileDiagnostics, ControlCharacterIsRefusedAtItsPlace) {
  const std::string text =
      "error[encoding]: the source holds a control character; write it as \"\\xNN\" between double "
      "quotes";
  EXPECT_EQ(first_line_against("kplog: 1\nlog_version: \x1b\n"), "s.yaml:2:14: " + text);
  EXPECT_EQ(first_line_against(std::string("kplog\0: 1\n", 10)), "s.yaml:1:6: " + text);
}

TEST(CompileDiagnostics, SixtyFourLevelsAreReadAndOneMoreIsNot) {
  const auto nested = [](size_t depth) {
    return "kplog: 1\nlog_version: \"1\"\nretired: " + std::string(depth - 1, '[') +
           std::string(depth - 1, ']') + "\n";
  };
  EXPECT_THAT(first_line_against(nested(64)), HasSubstr("error[bad-number]"));
  EXPECT_EQ(first_line_against(nested(65)),
            "s.yaml:3:73: error[too-deep]: values are nested more than 64 deep");
  EXPECT_THAT(first_line_against("retired: " + std::string(1000000, '[')),
              HasSubstr("error[too-deep]"));
}

TEST(CompileDiagnostics, SourceAbove16MiBIsRefused) {
  const std::string comment(15, '#');
  std::string source = small_source;
  while (source.size() + 16 <= size_t{16} << 20) source += comment + "\n";
  source += std::string((size_t{16} << 20) - source.size(), '#');
  EXPECT_THAT(first_line_against(source), StartsWith("kplog: wrote o.ldf"));
  EXPECT_EQ(first_line_against(source + "#"),
            "s.yaml:1:1: error[too-large]: the source is larger than 16 MiB");
}

TEST(CompileDiagnostics, EndlessSourceIsRefused) {
  const temp_folder folder;
  EXPECT_THAT(run_kplog(folder.path(), "compile /dev/zero -o o").err,
              StartsWith("/dev/zero:1:1: error[too-large]: the source is larger than 16 MiB\n"));
}

static std::string lines(size_t count, const std::string& before, const std::string& behind) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += before + std::to_string(i) + behind + "\n";
  return all;
}

TEST(CompileDiagnostics, The256thAttributeIsOneTooMany) {
  const auto with = [](size_t count) {
    return source_with_event("    attributes:\n" + lines(count, "      A", ": UInt1"));
  };
  EXPECT_THAT(first_line_against(with(255)), StartsWith("kplog: wrote"));
  EXPECT_EQ(first_line_against(with(256)),
            "s.yaml:262:7: error[too-many]: there can be 255 attributes, and this is one more");
}

TEST(CompileDiagnostics, The256thGlobalAttributeIsOneTooMany) {
  const auto with = [](size_t count) {
    return "kplog: 1\nlog_version: \"1.0\"\nattributes:\n" + lines(count, "  A", ": UInt1");
  };
  EXPECT_THAT(first_line_against(with(255)), StartsWith("kplog: wrote"));
  EXPECT_EQ(
      first_line_against(with(256)),
      "s.yaml:259:3: error[too-many]: there can be 255 global attributes, and this is one more");
}

TEST(CompileDiagnostics, The256thSelectorMessageIsOneTooMany) {
  std::string messages = "    messages:\n";
  for (int i = 0; i < 256; ++i) {
    const std::string number = std::to_string(i);
    messages += "      - {index: " + number + ", value: " + number + ", text: t}\n";
  }
  EXPECT_EQ(
      first_line_against(source_with_event(messages)),
      "s.yaml:262:9: error[too-many]: there can be 255 selector messages, and this is one more");
}

TEST(CompileDiagnostics, SetWithoutLogVersionIsIncomplete) {
  EXPECT_EQ(first_line_against("kplog: 1\nevents: {A: {id: 1}}\n"),
            "s.yaml:1:1: error[missing-key]: a set needs the key \"log_version\"");
  EXPECT_EQ(first_line_against("kplog: 1\n"),
            "s.yaml:1:1: error[missing-key]: a set needs the key \"log_version\"");
}

// --- exit statuses, streams, files

TEST(CompileCommand, GoodSourceGivesStatus0AndASummary) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto run = run_kplog(folder.path(), "compile s.yaml -o o.ldf");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "kplog: wrote o.ldf: 1 event, 0 global attributes\n");
}

TEST(CompileCommand, QuietSaysNothingOfSuccessAndEverythingOfFaults) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  folder.write("bad.yaml", "log_version: \"1\"\nkplog: 2\n");
  EXPECT_EQ(run_kplog(folder.path(), "compile --quiet s.yaml -o o.ldf").err, "");
  EXPECT_EQ(run_kplog(folder.path(), "compile --quiet bad.yaml -o o.ldf").err,
            "bad.yaml:2:8: error[source-format]: definition sources of format 1 are read here, and "
            "this is another\nkplog: 2\n       ^\n");
}

TEST(CompileCommand, FaultsLeaveAnEarlierFileAlone) {
  const temp_folder folder;
  folder.write("s.yaml", "log_version: \"1\"\nkplog: 2\n");
  folder.write("o.ldf", "before");
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o o.ldf").status, 1);
  EXPECT_EQ(read_whole_file(folder.file("o.ldf")), "before");
}

TEST(CompileCommand, StandardInputAndOutputGoThrough) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o o.ldf").status, 0);
  const auto run = run_kplog(folder.path(), "compile -q - -o - < s.yaml");
  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(run.out.empty());
  EXPECT_EQ(run.out, read_whole_file(folder.file("o.ldf")));
}

TEST(CompileCommand, StandardInputIsNamedInDiagnostics) {
  const temp_folder folder;
  EXPECT_THAT(
      run_kplog(folder.path(), "compile - -o o", "echo '{log_version: 1, kplog: 2}' | ").err,
      StartsWith("<stdin>:1:25: error[source-format]: "));
}

TEST(CompileCommand, WrongUsageGivesStatus2) {
  const temp_folder folder;
  for (const char* arguments :
       {"", "compile", "compile s.yaml", "compile -o o.ldf",
        "compile s.yaml -o o --color sometimes", "compile s.yaml -o o --format xml",
        "compile s.yaml -o o --unknown", "decompile s.yaml", "compile - - -o o"}) {
    const auto run = run_kplog(folder.path(), arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_NE(run.err, "") << arguments;
  }
  EXPECT_THAT(file_names(folder), IsEmpty());
}

TEST(CompileCommand, ASourceGivenTwiceIsNamed) {
  const temp_folder folder;
  folder.write("s.yaml", "kplog: 1\nlog_version: \"1\"\n");
  const auto run = run_kplog(folder.path(), "compile s.yaml s.yaml -o s.ldf");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "kplog: s.yaml is given twice\n");
}

TEST(CompileCommand, HelpAndVersionGiveStatus0) {
  const temp_folder folder;
  for (const char* command : {"", "compile ", "catalog ", "catalog merge "})
    EXPECT_THAT(run_kplog(folder.path(), std::string(command) + "--help").out,
                HasSubstr("Exit status: 0 good"));
  const auto help = run_kplog(folder.path(), "compile --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, HasSubstr("Examples:\n  kplog compile events.yaml -o events.ldf\n"));
  EXPECT_THAT(run_kplog(folder.path(), "--version").out, testing::MatchesRegex("kplog [0-9.]+\n"));
}

TEST(CompileCommand, UnreadableSourceGivesStatus3) {
  const temp_folder folder;
  const auto run = run_kplog(folder.path(), "compile none.yaml . -o o.ldf");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err,
            "kplog: cannot read none.yaml: No such file or directory\n"
            "kplog: cannot read .: Is a directory\n");
}

TEST(CompileCommand, UnreadableSourceHidesNoFaultsOfTheOthers) {
  const temp_folder folder;
  folder.write("s.yaml", "log_version: \"1\"\nkplog: 2\n");
  const auto run = run_kplog(folder.path(), "compile none.yaml s.yaml -o o.ldf");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err,
            "kplog: cannot read none.yaml: No such file or directory\n"
            "s.yaml:2:8: error[source-format]: definition sources of format 1 are read here, and "
            "this is another\nkplog: 2\n       ^\n");
}

TEST(CompileCommand, UnreadableAndUnwritableFilesAreDiagnosticsForPrograms) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto unread = run_kplog(folder.path(), "compile --format json none.yaml -o o.ldf");
  EXPECT_EQ(unread.status, 3);
  EXPECT_EQ(unread.err, R"({"file":"none.yaml","severity":"error","code":"unreadable",)"
                        R"("text":"cannot read none.yaml: No such file or directory","notes":[]})"
                        "\n");
  const auto unwritten = run_kplog(folder.path(), "compile --format json s.yaml -o none/o.ldf");
  EXPECT_EQ(unwritten.status, 3);
  EXPECT_EQ(unwritten.err,
            R"({"file":"none/o.ldf","severity":"error","code":"unwritable",)"
            R"("text":"cannot write none/o.ldf: No such file or directory","notes":[]})"
            "\n");
}

TEST(CompileCommand, StandardOutputIsNamedInTheSummary) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o -").err,
            "kplog: wrote <stdout>: 1 event, 0 global attributes\n");
}

TEST(CompileCommand, PathsInSummariesCannotSteerTheTerminal) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o \"$(printf 'a\\033[2Jb')\"").err,
            "kplog: wrote a\\x1B[2Jb: 1 event, 0 global attributes\n");
}

TEST(CompileCommand, UnwritableOutputGivesStatus3AndLeavesNothing) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto run = run_kplog(folder.path(), "compile s.yaml -o none/o.ldf");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot write none/o.ldf: No such file or directory\n");
  std::filesystem::create_directory(folder.file("taken"));
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o taken").status, 3);
  EXPECT_THAT(file_names(folder), testing::UnorderedElementsAre("s.yaml", "taken"));
}

TEST(CompileCommand, FullDeviceGivesStatus3) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  const auto run = run_kplog(folder.path(), "compile s.yaml -o /dev/full");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot write /dev/full: No space left on device\n");
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o - > /dev/full").status, 3);
}

TEST(CompileCommand, FileThatCannotGrowGivesStatus3AndKeepsTheEarlierOne) {
  const temp_folder folder;
  std::string source = "kplog: 1\nlog_version: \"1\"\nevents:\n";
  for (int id = 1; id <= 80; ++id)
    source += "  E" + std::to_string(id) + ": {id: " + std::to_string(id) + ", message: \"" +
              std::string(16000, 'x') + "\"}\n";
  folder.write("s.yaml", source);
  folder.write("o.ldf", "before");
  // Less than what is compiled, and more than an instrumented command writes when it ends.
  const auto run = run_kplog(folder.path(), "compile -q s.yaml -o o.ldf 2>&1; echo $?) | cat",
                             "(ulimit -f 600; ");
  EXPECT_EQ(run.out, "kplog: cannot write o.ldf: File too large\n3\n");
  EXPECT_EQ(read_whole_file(folder.file("o.ldf")), "before");
  EXPECT_THAT(file_names(folder), testing::UnorderedElementsAre("s.yaml", "o.ldf"));
}

TEST(CompileCommand, OutputIsReadableForAllWhateverTheUmask) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  run_kplog(folder.path(), "compile s.yaml -o o.ldf", "umask 077 && ");
  struct stat status {};
  ASSERT_EQ(stat(folder.file("o.ldf").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST(CompileCommand, SymbolicLinkStaysAndItsTargetIsReplaced) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  folder.write("target.ldf", "before");
  std::filesystem::create_symlink("target.ldf", folder.file("link.ldf"));
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o link.ldf").status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link.ldf")));
  EXPECT_THAT(read_whole_file(folder.file("target.ldf")), StartsWith(".LDF"));
}

TEST(CompileCommand, SymbolicLinkThatLeadsNowhereStaysAndItsTargetIsMade) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  std::filesystem::create_directory(folder.file("sub"));
  std::filesystem::create_symlink("sub/second", folder.file("first"));
  std::filesystem::create_symlink("../target.ldf", folder.file("sub/second"));
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o first").status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("first")));
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("sub/second")));
  EXPECT_THAT(read_whole_file(folder.file("target.ldf")), StartsWith(".LDF"));
}

TEST(CompileCommand, SymbolicLinkIntoAFolderThatIsMissingStaysAndGivesStatus3) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  std::filesystem::create_symlink("none/target.ldf", folder.file("link"));
  const auto run = run_kplog(folder.path(), "compile s.yaml -o link");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot write link: No such file or directory\n");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
}

TEST(CompileCommand, SymbolicLinksInACircleStayAndGiveStatus3) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  std::filesystem::create_symlink("self", folder.file("self"));
  std::filesystem::create_symlink("b", folder.file("a"));
  std::filesystem::create_symlink("a", folder.file("b"));
  for (const std::string link : {"self", "a"}) {
    const auto run = run_kplog(folder.path(), "compile s.yaml -o " + link);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "kplog: cannot write " + link + ": Too many levels of symbolic links\n");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file(link)));
  }
}

TEST(CompileCommand, DeviceIsWrittenToAndNotReplaced) {
  const temp_folder folder;
  folder.write("s.yaml", small_source);
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o /dev/null").status, 0);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST(CompileCommand, TenThousandEventsAreOneSet) {
  std::string source = "kplog: 1\nlog_version: \"1.0\"\nevents:\n";
  for (int i = 1; i <= 10000; ++i) {
    const std::string n = std::to_string(i);
    source += "  EVENT_" + n + ":\n    id: " + n + "\n    attributes:\n";
    for (const char* a : {"USER_NAME: MBChar64", "PORT: UInt2", "HOST: Char64", "SIZE: UInt4",
                          "SHARE: Float", "ENDED: Timestamp"})
      source += std::string("      ") + a + "\n";
    source += "    message: \"User {USER_NAME} on port {PORT} of {HOST}\"\n";
  }
  const temp_folder folder;
  folder.write("s.yaml", source);
  EXPECT_EQ(run_kplog(folder.path(), "compile s.yaml -o o.ldf").err,
            "kplog: wrote o.ldf: 10000 events, 0 global attributes\n");
}

TEST(CompileCommand, AnOutputThatIsAnInputIsRefusedAndTheInputKept) {
  const temp_folder folder;
  const std::string source = folder.write("s.yaml", small_source);
  std::filesystem::create_symlink("s.yaml", folder.file("link.yaml"));
  for (const char* output : {"s.yaml", "./s.yaml", "link.yaml"}) {
    for (const char* command : {"compile", "header", "catalog extract"}) {
      const command_result result =
          run_kplog(folder.path(), std::string(command) + " s.yaml -o " + output);
      EXPECT_EQ(result.status, 2) << command << ' ' << output;
      EXPECT_EQ(result.err, "kplog: the output would replace the input s.yaml\n");
      EXPECT_EQ(read_whole_file(source), small_source);
    }
  }
}
