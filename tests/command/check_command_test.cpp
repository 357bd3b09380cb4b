// kplog check on sources: advice, silences, options, exit statuses.
#include <gmock/gmock.h>

#include <sstream>

#include "recording/report/rules.h"
#include "tests/command/command_run.h"
#include "tests/command/documentation_page.h"
#include "tests/command/golden_file.h"
#include "tests/support/temp_folder.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static std::string source_of_events(const std::string& events, const std::string& keys = "") {
  return "kplog: 1\nlog_version: \"1.0\"\n" + keys + "events:\n" + events;
}

// What "kplog check" says of a source, with further arguments.
static command_result check_source(const std::string& source, const std::string& arguments = "") {
  const temp_folder folder;
  folder.write("s.yaml", source);
  return run_kplog(folder.path(), "check s.yaml " + arguments);
}

static command_result check_event(const std::string& event, const std::string& arguments = "") {
  return check_source(source_of_events("  EVENT: {id: 1, " + event + "}\n"), arguments);
}

static const char* const nothing_found = "kplog: 0 errors, 0 warnings\n";

TEST(CheckAdvice, OptionsThatMayComeAgainLeaveTheSourcesBehindThemAlone) {
  const temp_folder folder;
  folder.write("a.yaml", source_of_events("  A: {id: 1, message: a}\n"));
  folder.write("b.yaml", source_of_events("  B: {id: 2, message: b}\n"));
  for (const char* option : {"--codepage ISO-8859-1", "--severity no-message=off"}) {
    const auto run = run_kplog(folder.path(), std::string("check ") + option + " a.yaml b.yaml");
    EXPECT_EQ(run.status, 0) << option;
    EXPECT_EQ(run.err, nothing_found) << option;
  }
}

// --- goldens

TEST(CheckAdvice, GoldenListOfASourceThatNeedsAdvice) {
  const auto run = run_kplog(test_data_folder(), "check advice.yaml --codepage UTF-8");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  expect_golden_file("advice.expected", run.err);
}

TEST(CheckAdvice, GoldenListOfAnAuxSourceThatNeedsAdvice) {
  const auto run = run_kplog(test_data_folder(), "check advice_auxiliary.yaml --std standard.yaml");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("advice_auxiliary.expected", run.err);
}

TEST(CheckAdvice, GoldenListForPrograms) {
  const auto run = run_kplog(test_data_folder(),
                             "check --format json advice_auxiliary.yaml --std standard.yaml");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("advice_auxiliary.expected.json", run.err);
}

TEST(CheckAdvice, GoldenListsHaveEveryRule) {
  const std::string shown = read_whole_file(test_data_folder() + "/advice.expected") +
                            read_whole_file(test_data_folder() + "/advice_auxiliary.expected");
  for (const diagnostic_rule rule : diagnostic_rules()) {
    const bool has_test_of_its_own =
        rule == "code-page"_rule || rule == "std-reload"_rule || rule == "message-size"_rule;
    if (rule->kind != rule_kind::advice || has_test_of_its_own) continue;
    EXPECT_THAT(shown, HasSubstr(std::string("[") + rule->code + "]: "));
  }
}

TEST(CheckAdvice, SourceNeedsItForNothingThatCompilationRefuses) {
  const temp_folder folder;
  const auto compiled =
      run_kplog(test_data_folder(), "compile advice.yaml -q -o " + folder.file("o"));
  EXPECT_EQ(compiled.status, 0) << compiled.err;
  EXPECT_EQ(compiled.err, "");
}

TEST(CheckAdvice, SeverityIsDocumented) {
  const std::string page = documentation_page("commands/check.md");
  for (const diagnostic_rule rule : diagnostic_rules()) {
    if (rule->kind != rule_kind::advice) continue;
    const char* severity = rule->severity == rule_severity::error ? "error" : "warning";
    EXPECT_THAT(page, HasSubstr(std::string("| `") + rule->code + "` | " + rule->summary + " | " +
                                severity + " |"));
  }
}

// --- single rules

TEST(CheckAdvice, IdsLieInTheRangesOfTheirOwnSource) {
  const temp_folder folder;
  folder.write("a.yaml", source_of_events("  A: {id: 10, message: a}\n", "ids: [1-9, 10, 11]\n"));
  folder.write("b.yaml", source_of_events("  B: {id: 99, message: b}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "check a.yaml b.yaml").err, nothing_found);
  folder.write("b.yaml", source_of_events("  B: {id: 9, message: b}\n", "ids: [50-60]\n"));
  EXPECT_THAT(run_kplog(folder.path(), "check a.yaml b.yaml").err,
              StartsWith("b.yaml:5:11: error[id-range]: the ID 9 lies outside of the ranges of "
                         "this source\n"));
}

TEST(CheckAdvice, TypesAreComparedWithTheFirstDeclaration) {
  const std::string events =
      "  A: {id: 1, attributes: {X: UInt2}, message: \"{X}\"}\n"
      "  B: {id: 2, attributes: {X: UInt2}, message: \"{X}\"}\n"
      "  C: {id: 3, attributes: {X: Char32}, message: \"{X}\"}\n"
      "  D: {id: 4, attributes: {X: UInt2}, message: \"{X}\"}\n";
  EXPECT_EQ(check_source(source_of_events(events)).err,
            "s.yaml:6:27: warning[attribute-types]: \"X\" is a Char32 here, and elsewhere a UInt2\n"
            "  C: {id: 3, attributes: {X: Char32}, message: \"{X}\"}\n"
            "                          ^\n"
            "s.yaml:4:27: note: it is declared here first\n"
            "  A: {id: 1, attributes: {X: UInt2}, message: \"{X}\"}\n"
            "                          ^\n"
            "kplog: 0 errors, 1 warning\n");
}

TEST(CheckAdvice, AttributeIsShownByAnyMessage) {
  EXPECT_EQ(check_event("attributes: {A: UInt2, B: UInt2, K: UInt1}, select: K, message: \"{A}\", "
                        "messages: [{index: 1, value: 1, raw: '%d%B%'}]")
                .err,
            nothing_found);
}

TEST(CheckAdvice, SelectorNeedNotBeShown) {
  EXPECT_EQ(check_event("attributes: {A: UInt2, K: UInt1}, select: K, message: \"{A}\", "
                        "messages: [{index: 1, value: 1, text: '{A} again'}]")
                .err,
            nothing_found);
}

TEST(CheckAdvice, PlaceholderThatShowsNothingShowsNoAttribute) {
  EXPECT_THAT(check_event("attributes: {A: UInt2, B: UInt2}, message: {raw: '%d%A% %x%B%'}").err,
              HasSubstr("warning[attribute-not-shown]: no message shows \"B\"\n"));
}

TEST(CheckAdvice, TextInACatalogMayShowAnything) {
  EXPECT_EQ(check_event("attributes: {A: UInt2}, message: {id: X}").err, nothing_found);
}

TEST(CheckAdvice, TextPassesItsCodePageAtItsFirstOddCharacter) {
  const auto run = check_event("message: \"caf\xC3\xA9 \xE2\x82\xAC\"",
                               "--codepage ISO-8859-1 --codepage US-ASCII --codepage ibm-858");
  EXPECT_EQ(run.err,
            "s.yaml:4:31: warning[code-page]: the code page US-ASCII has no \"\xC3\xA9\"\n"
            "  EVENT: {id: 1, message: \"caf\xC3\xA9 \xE2\x82\xAC\"}\n"
            "                              ^\n"
            "s.yaml:4:33: warning[code-page]: the code page ISO-8859-1 has no \"\xE2\x82\xAC\"\n"
            "  EVENT: {id: 1, message: \"caf\xC3\xA9 \xE2\x82\xAC\"}\n"
            "                                ^\n"
            "kplog: 0 errors, 2 warnings\n");
}

TEST(CheckAdvice, SourceDeclaresTheCodePagesOfItsOwnTexts) {
  const temp_folder folder;
  const std::string euro = ", message: \"\xE2\x82\xAC\"}\n";
  folder.write("a.yaml", source_of_events("  A: {id: 1" + euro, "code_pages: [UTF-8, US-ASCII]\n"));
  folder.write("b.yaml", source_of_events("  B: {id: 2" + euro));
  EXPECT_EQ(run_kplog(folder.path(), "check -q a.yaml b.yaml").err,
            "a.yaml:5:24: warning[code-page]: the code page US-ASCII has no \"\xE2\x82\xAC\"\n"
            "  A: {id: 1, message: \"\xE2\x82\xAC\"}\n"
            "                       ^\n");
  folder.write("a.yaml", source_of_events("  A: {id: 1, silence: {code-page: why}" + euro,
                                          "code_pages: [US-ASCII]\n"));
  EXPECT_EQ(run_kplog(folder.path(), "check a.yaml").err,
            "kplog: 0 errors, 0 warnings, 1 silenced\n");
}

TEST(CheckAdvice, CodePageNamedTwiceIsLookedAtOnce) {
  EXPECT_EQ(check_source(source_of_events("  A: {id: 1, message: \"\xC3\xA9\"}\n",
                                          "code_pages: [US-ASCII, US-ASCII]\n"),
                         "-q --codepage US-ASCII")
                .err,
            "s.yaml:5:24: warning[code-page]: the code page US-ASCII has no \"\xC3\xA9\"\n"
            "  A: {id: 1, message: \"\xC3\xA9\"}\n"
            "                       ^\n");
}

TEST(CheckAdvice, SelectorOfTheStdEventSelectsMessages) {
  const temp_folder folder;
  folder.write("std.yaml", source_of_events("  E: {id: 1, attributes: {K: UInt1}, select: K, "
                                            "message: \"{K}\"}\n"));
  folder.write("aux.yaml",
               source_of_events("  E: {id: 1, messages: [{index: 1, value: 1, text: \"{K}\"}]}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "check aux.yaml --std std.yaml").err, nothing_found);
  EXPECT_THAT(check_event("messages: [{index: 1, value: 1, text: t}]").err,
              StartsWith("s.yaml:4:29: warning[no-selector]: no attribute selects this message; "
                         "programs show it by its index alone\n"));
}

TEST(CheckAdvice, GlobalAttributesOfAnAuxSetTakeThePlaceOfThoseOfTheStdSet) {
  const temp_folder folder;
  folder.write("std.yaml", "kplog: 1\nlog_version: \"1\"\nattributes: {HOST: Char64}\n");
  folder.write("aux.yaml", "kplog: 1\nlog_version: \"1\"\nattributes: {HOST: UInt1}\n");
  EXPECT_THAT(run_kplog(folder.path(), "check -q aux.yaml --std std.yaml").err,
              StartsWith("aux.yaml:3:14: warning[attribute-types]: \"HOST\" is a UInt1 here, also "
                         "for events of the STD set, where it is a Char64\n"));
}

TEST(CheckAdvice, FlagsAreComparedWithThoseOfTheStdSet) {
  const temp_folder folder;
  folder.write("std.yaml", source_of_events("  E: {id: 1, message: m}\n", "flags: {Z: 4}\n"));
  folder.write("aux.yaml", source_of_events("  F: {id: 2, message: m}\n", "flags: {A: 4, Z: 4}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "check -q aux.yaml --std std.yaml").err,
            "aux.yaml:3:12: warning[flag-bits]: the flag \"Z\" has these bits already\n"
            "flags: {A: 4, Z: 4}\n"
            "           ^\n"
            "std.yaml:3:12: note: they are given here first\n"
            "flags: {Z: 4}\n"
            "           ^\n");
}

TEST(CheckAdvice, MessageOf65536BytesIsRendered) {
  const auto check = [](size_t size) {
    return check_event("message: \"" + std::string(size, 'x') + "\"", "-q").err;
  };
  EXPECT_EQ(check(65536), "");
  EXPECT_THAT(check(65537), HasSubstr("the message may take 65537 bytes, and the library renders "
                                      "65536\n"));
}

TEST(CheckAdvice, MergedEventsOfLargeSetsAreForgotten) {
  const temp_folder folder;
  std::string events;
  for (int id = 1; id <= 128; ++id)
    events += "  E" + std::to_string(id) + ": {id: " + std::to_string(id) + ", message: m}\n";
  folder.write("std.yaml", source_of_events(events));
  const std::string merged = "  E7: {id: 7, message: n}\n";
  folder.write("aux.yaml", source_of_events(merged));
  EXPECT_EQ(run_kplog(folder.path(), "check aux.yaml --std std.yaml").err, nothing_found);
  folder.write("aux.yaml", source_of_events("  E0: {id: 0, message: m}\n" + merged));
  EXPECT_THAT(run_kplog(folder.path(), "check aux.yaml --std std.yaml").err,
              StartsWith("aux.yaml:5:12: warning[std-reload]: the two sets have 129 events; beyond "
                         "128 the library loads events again, and those of both sets then come "
                         "without their STD part\n"));
}

TEST(CheckAdvice, CompiledStdFileHasNoNamesToCompare) {
  const temp_folder folder;
  folder.write("std.yaml", source_of_events("  E: {id: 1, message: {id: OTHER, text: m}}\n"));
  folder.write("aux.yaml", source_of_events("  F: {id: 1, message: n, silence: {reused-id: x}}\n"));
  run_kplog(folder.path(), "compile std.yaml -o std.ldf");
  EXPECT_EQ(run_kplog(folder.path(), "check aux.yaml --std std.ldf").err, nothing_found);
  EXPECT_EQ(run_kplog(folder.path(), "check aux.yaml --std std.yaml").err,
            "kplog: 0 errors, 0 warnings, 1 silenced\n");
}

// --- silences

TEST(CheckSilence, AttributeEventAndSourceMayEachSilence) {
  const auto with = [&](const std::string& on_attribute, const std::string& on_event,
                        const std::string& on_source) {
    return check_source(source_of_events("  E: {id: 1, attributes: {A: UInt2, B: {type: UInt2" +
                                             on_attribute + "}}, message: \"{A}\"" + on_event +
                                             "}\n",
                                         on_source));
  };
  const std::string silence = "silence: {attribute-not-shown: why}";
  EXPECT_THAT(with("", "", "").err, HasSubstr("[attribute-not-shown]"));
  for (const command_result& run :
       {with(", " + silence, "", ""), with("", ", " + silence, ""), with("", "", silence + "\n")}) {
    EXPECT_EQ(run.err, "kplog: 0 errors, 0 warnings, 1 silenced\n");
    EXPECT_EQ(run.status, 0);
  }
}

TEST(CheckSilence, NearestOneIsUsedAndTheOthersAreNot) {
  const auto run = check_event(
      "silence: {no-message: nearer}}\n  OTHER: {id: 2, message: m, silence: {no-message: x}",
      "-q");
  EXPECT_EQ(run.err,
            "s.yaml:5:40: warning[unused-silence]: there is no finding of \"no-message\" here\n"
            "  OTHER: {id: 2, message: m, silence: {no-message: x}}\n"
            "                                       ^\n");
}

TEST(CheckSilence, OfOneSourceDoesNotReachAnother) {
  const temp_folder folder;
  folder.write("a.yaml", source_of_events("  A: {id: 1}\n", "silence: {no-message: why}\n"));
  folder.write("b.yaml", source_of_events("  B: {id: 2}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "check -q a.yaml b.yaml").err,
            "b.yaml:4:3: warning[no-message]: the event has no message; a catalog may have one of "
            "the ID \"B\"\n  B: {id: 2}\n  ^\n");
}

TEST(CheckSilence, UnusedOneCanBeSilencedItself) {
  EXPECT_EQ(check_event("message: m, silence: {no-message: x, unused-silence: y}").err,
            "kplog: 0 errors, 0 warnings, 1 silenced\n");
}

TEST(CheckSilence, OfRulesThatAreNotAppliedIsNoSubject) {
  EXPECT_EQ(check_event("message: m, silence: {code-page: x, reused-id: y, std-reload: z}").err,
            nothing_found);
}

// The indented lines of the page from `first` on, without their indentation.
static std::string example_in_page(const std::string& page, const std::string& first) {
  std::istringstream lines(page.substr(page.find("\n    " + first) + 1));
  std::string example;
  for (std::string line; std::getline(lines, line) && line.starts_with("    ");)
    example += line.substr(4) + "\n";
  return example;
}

TEST(CheckSilence, ExampleOfTheDocumentsNeedsAllItsSilences) {
  const std::string page = documentation_page("commands/check.md");
  EXPECT_EQ(check_source(example_in_page(page, "kplog: 1")).err,
            "kplog: 0 errors, 0 warnings, 4 silenced\n");
}

// --- options

TEST(CheckCommand, GoodSourcesGiveStatus0) {
  const auto run = check_event("message: m");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, nothing_found);
  EXPECT_EQ(check_event("message: m", "--quiet").err, "");
}

TEST(CheckCommand, FaultsComeWithoutAdvice) {
  EXPECT_EQ(check_event("flags: [NONE]").err,
            "s.yaml:4:26: error[unknown-flag]: no flag \"NONE\"\n"
            "  EVENT: {id: 1, flags: [NONE]}\n"
            "                         ^\n"
            "kplog: 1 error, 0 warnings\n");
}

TEST(CheckCommand, SeveritiesOfAdviceAreFree) {
  EXPECT_EQ(check_event("second_word: 0", "--severity no-message=off").err, nothing_found);
  const auto run = check_event("second_word: 0", "--severity no-message=error --fail-on error");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, StartsWith("s.yaml:4:3: error[no-message]: "));
}

TEST(CheckCommand, LastOfSeveralSeveritiesCounts) {
  EXPECT_EQ(
      check_event("second_word: 0", "--severity no-message=error --severity no-message=off").err,
      nothing_found);
}

TEST(CheckCommand, WarningsFailUnlessOnlyErrorsShall) {
  EXPECT_EQ(check_event("second_word: 0").status, 1);
  const auto run = check_event("second_word: 0", "--fail-on error");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("kplog: 0 errors, 1 warning\n"));
}

TEST(CheckCommand, WarningsHaveAColorOfTheirOwn) {
  EXPECT_THAT(check_event("second_word: 0", "--color always").err,
              StartsWith("\x1b[1ms.yaml:4:3: \x1b[0m\x1b[1;35mwarning[no-message]: \x1b[0m"));
}

TEST(CheckCommand, WrongUsageGivesStatus2) {
  const temp_folder folder;
  folder.write("s.yaml", source_of_events("  E: {id: 1, message: m}\n"));
  for (const char* arguments :
       {"check", "check s.yaml --codepage klingon", "check s.yaml --severity no-message",
        "check s.yaml --severity no-message=low", "check s.yaml --severity no-rule=off",
        "check s.yaml --severity duplicate-id=warning", "check s.yaml --fail-on never",
        "check s.yaml --std -", "check - -"}) {
    const auto run = run_kplog(folder.path(), arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_NE(run.err, "") << arguments;
  }
}

TEST(CheckCommand, RefusedSeverityIsNamed) {
  EXPECT_EQ(check_event("message: m", "--severity duplicate-id=off").err,
            "kplog: findings of \"duplicate-id\" are always errors\n");
  EXPECT_EQ(check_event("message: m", "--severity no-mesage=off").err,
            "kplog: no rule \"no-mesage\"; did you mean \"no-message\"?\n");
  EXPECT_EQ(check_event("message: m", "--severity no-message=low").err,
            "kplog: no-message=off, no-message=warning or no-message=error is expected, not "
            "\"no-message=low\"\n");
  EXPECT_EQ(check_event("message: m", "--codepage klingon").err,
            "kplog: no code page \"klingon\"\n");
}

TEST(CheckCommand, UnreadableFilesGiveStatus3) {
  const temp_folder folder;
  folder.write("s.yaml", source_of_events("  E: {id: 1, message: m}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "check none.yaml").status, 3);
  const auto run = run_kplog(folder.path(), "check s.yaml --std none.ldf");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot read none.ldf: No such file or directory\n");
}

TEST(CheckCommand, ReadsStandardInput) {
  const temp_folder folder;
  const auto run = run_kplog(folder.path(), "check -", "echo '{kplog: 1, log_version: 1}' | ");
  EXPECT_EQ(run.status, 0) << run.err;
}

TEST(CheckCommand, HelpHasExamples) {
  const auto help = run_kplog("/", "check --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, HasSubstr("Examples:\n  kplog check events.yaml\n"));
}

TEST(CheckCommand, ExampleOfTheDocumentsIsSound) {
  const auto run = run_kplog(test_data_folder(), "check package_manager.yaml --fail-on error");
  EXPECT_EQ(run.status, 0) << run.err;
}

// --- how many findings are shown

TEST(CheckFindings, HundredAreShownUnlessMoreAreWanted) {
  const temp_folder folder;
  std::string source = "kplog: 1\nlog_version: \"1\"\nevents:\n";
  for (int id = 1; id <= 130; ++id)
    source += "  E" + std::to_string(id) + ": {id: " + std::to_string(id) + "}\n";
  folder.write("s.yaml", source);
  const auto shown = [&](const std::string& options) {
    const auto run = run_kplog(folder.path(), "check s.yaml " + options);
    EXPECT_EQ(run.status, 1);
    size_t count = 0;
    for (size_t at = 0; (at = run.err.find("no-message", at)) != std::string::npos; ++at) ++count;
    return std::to_string(count) + " " +
           run.err.substr(run.err.rfind('\n', run.err.size() - 2) + 1);
  };
  EXPECT_EQ(shown(""), "100 kplog: 30 more not shown; --max-findings 0 shows all\n");
  EXPECT_EQ(shown("-q"), "100 kplog: 30 more not shown; --max-findings 0 shows all\n");
  EXPECT_EQ(shown("--max-findings 129"),
            "129 kplog: 1 more not shown; --max-findings 0 shows all\n");
  EXPECT_EQ(shown("--max-findings 130"), "130 kplog: 0 errors, 130 warnings\n");
  EXPECT_EQ(shown("--max-findings 0"), "130 kplog: 0 errors, 130 warnings\n");
  EXPECT_EQ(shown("--format json"), "100 {\"not_shown\":30}\n");
}
