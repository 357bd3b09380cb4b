// kplog diff, from outside.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "recording/report/rules.h"
#include "tests/command/command_run.h"
#include "tests/command/diff_source.h"
#include "tests/command/documentation_page.h"
#include "tests/command/golden_file.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static command_result diff_data(const std::string& arguments) {
  return run_kplog(test_data_folder(), "diff changes_old.yaml changes_new.yaml " + arguments);
}

// What `kplog diff` says of the two sources with some arguments.
static command_result diff_of(const std::string& before, const std::string& now,
                              const std::string& arguments = "") {
  const temp_folder folder;
  folder.write("old.yaml", before);
  folder.write("new.yaml", now);
  return run_kplog(folder.path(), "diff old.yaml new.yaml " + arguments);
}

// The codes of all differences, in their order.
static std::vector<std::string> codes_between(const std::string& before, const std::string& now) {
  std::vector<std::string> codes;
  const auto json = nlohmann::json::parse(diff_of(before, now, "--format json").out);
  for (const auto& difference : json["differences"]) codes.push_back(difference["code"]);
  return codes;
}

// --- what is found

TEST(DiffCommand, GoldenListOfEveryDifference) {
  const auto run = diff_data("");
  EXPECT_EQ(run.status, 0);
  expect_golden_file("changes.expected", run.out);
  expect_golden_file("changes_accepted.expected", run.err);
}

TEST(DiffCommand, GoldenListForPrograms) {
  const auto run = diff_data("--format json");
  EXPECT_EQ(run.status, 0);
  expect_golden_file("changes.expected.json", run.out);
}

TEST(DiffCommand, GoldenListHasEveryRule) {
  const std::string expected = read_whole_file(test_data_folder() + "/changes.expected");
  for (const change_rule rule : change_rules()) {
    if (rule == "message-template"_change) continue;  // has a test of its own
    EXPECT_THAT(expected, HasSubstr(std::string(": ") + rule->code + ": "));
  }
}

TEST(DiffCommand, EveryRuleIsDocumented) {
  const std::string page = documentation_page("commands/diff.md");
  for (const change_rule rule : change_rules()) {
    std::string classes;
    for (const change_class_row& c : change_classes)
      if ((rule->breaks & c.bit) != 0)
        classes += (classes.empty() ? "" : ", ") + std::string(c.name);
    EXPECT_THAT(page, HasSubstr(std::string("| `") + rule->code + "` | " + rule->summary + " | " +
                                classes + (classes.empty() ? "|" : " |")));
  }
}

TEST(DiffCommand, SameSetsDifferInNothing) {
  const auto run =
      diff_of(source_of("  A: {id: 1}\n"), source_of("  A: {id: 1}\n"), "--fail-on any");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "kplog: 0 differences\n");
}

TEST(DiffCommand, AnotherOrderBreaksNobody) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1}\n  B: {id: 2}\n"),
                            source_of("  B: {id: 2}\n  A: {id: 1}\n")),
              testing::ElementsAre("event-order"));
  EXPECT_THAT(codes_between(source_of("  A: {id: 1}\n", "attributes: {X: Bool, Y: Bool}\n"),
                            source_of("  A: {id: 1}\n", "attributes: {Y: Bool, X: Bool}\n")),
              testing::ElementsAre("global-order"));
  const std::string one = "{index: 1, value: 1, id: M}";
  const std::string two = "{index: 2, value: 2, id: N}";
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, messages: [" + one + ", " + two + "]}\n"),
                            source_of("  A: {id: 1, messages: [" + two + ", " + one + "]}\n")),
              testing::ElementsAre("message-order"));
}

TEST(DiffCommand, RenamedAttributeThatMovedIsShownAsBoth) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, attributes: {X: Bool, Y: GUID}}\n"),
                            source_of("  A: {id: 1, attributes: {Y: GUID, Z: Bool}}\n")),
              testing::ElementsAre("attribute-renamed", "attribute-order"));
}

TEST(DiffCommand, AttributesOfOneNameAreComparedInTheirOrder) {
  const temp_folder folder;
  const auto file_of = [](std::vector<ldf_attribute> attributes) {
    return ldf_file{.entries = {{.id = 1, .selector = "S", .attributes = std::move(attributes)}}}
        .bytes();
  };
  folder.write("old.ldf", file_of({{"S", TypeUInt1}, {"S", TypeUInt2}}));
  folder.write("new.ldf", file_of({{"S", TypeUInt1}}));
  EXPECT_THAT(run_kplog(folder.path(), "diff old.ldf new.ldf").out,
              HasSubstr("attribute-removed: the attribute \"S\" is gone"));
  EXPECT_THAT(run_kplog(folder.path(), "diff new.ldf old.ldf").out,
              HasSubstr("attribute-added: the attribute \"S\" is new"));
}

TEST(DiffCommand, AnotherNameOfASelectorMessageBreaksSource) {
  EXPECT_THAT(
      diff_of(source_of("  A: {id: 1, messages: [{index: 1, value: 1, id: M}]}\n"),
              source_of("  A: {id: 1, messages: [{index: 1, value: 1, id: M, name: open}]}\n"))
          .out,
      HasSubstr("message-name: the message of index 1 had no name, and has the name "
                "\"open\" (breaks source)\n"));
}

TEST(DiffCommand, AnotherRendererGivesAnotherTemplateOfTheSameText) {
  const std::string event = "  A: {id: 1, message: plain}\n";
  EXPECT_THAT(codes_between(source_of(event), source_of(event, "renderer: bytes\n")),
              testing::ElementsAre("message-template"));
}

TEST(DiffCommand, SourceAndItsCompiledFileDifferInNothing) {
  const temp_folder folder;
  const std::string file = folder.file("set.ldf");
  run_kplog(test_data_folder(), "compile -q package_manager.yaml -o " + file);
  EXPECT_EQ(run_kplog(test_data_folder(), "diff package_manager.yaml " + file).out, "");
  EXPECT_EQ(run_kplog(test_data_folder(), "diff " + file + " package_manager.yaml").out, "");
}

TEST(DiffCommand, CompiledFilesAreComparedByTheirOffsets) {
  const temp_folder folder;
  run_kplog(test_data_folder(), "compile -q changes_old.yaml -o " + folder.file("old.ldf"));
  run_kplog(test_data_folder(), "compile -q changes_new.yaml -o " + folder.file("new.ldf"));
  const auto run = run_kplog(folder.path(), "diff old.ldf new.ldf");
  EXPECT_THAT(run.out, StartsWith("the set\n  new.ldf:0x10: log-version: the log version was "
                                  "\"1.0\", and is \"1.1\"\n"));
  EXPECT_THAT(run.out, HasSubstr("    - {USER} logged in on port {PORT}\n"));
  EXPECT_THAT(run.out, Not(HasSubstr("flag-")));
  EXPECT_THAT(run.out, Not(HasSubstr("event-renamed")));
}

// --- what is known again

TEST(DiffCommand, EventOfAnotherNameIsRenamed) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, attributes: {X: Bool}, message: {id: M}}\n"),
                            source_of("  B: {id: 1, attributes: {X: Bool}, message: {id: M}}\n")),
              testing::ElementsAre("event-renamed"));
}

TEST(DiffCommand, EventOfAnotherNameAndIdIsKnownByItsContent) {
  const std::string rest = "attributes: {X: UInt1}, message: {id: M, text: \"{X}\"}}\n";
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, " + rest), source_of("  B: {id: 2, " + rest)),
              testing::ElementsAre("event-renamed", "event-id"));
}

TEST(DiffCommand, EventWithNothingInCommonReusesTheId) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, attributes: {X: UInt1}, message: \"{X}\"}\n"),
                            source_of("  B: {id: 1, attributes: {Y: Char64}, message: \"{Y}\"}\n")),
              testing::ElementsAre("id-reused", "event-added", "event-removed"));
}

TEST(DiffCommand, EventsThatSwapTheirIdsKeepTheirNames) {
  const std::string a = "attributes: {X: UInt1}, message: \"{X}\"}\n";
  const std::string b = "attributes: {Y: Char64}, message: \"{Y}\"}\n";
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, " + a + "  B: {id: 2, " + b),
                            source_of("  A: {id: 2, " + a + "  B: {id: 1, " + b)),
              testing::ElementsAre("id-reused", "event-id", "id-reused", "event-id"));
}

TEST(DiffCommand, AttributesOfDifferentTypesAreNotOneRenamed) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, attributes: {X: Bool}}\n"),
                            source_of("  A: {id: 1, attributes: {Y: GUID}}\n")),
              testing::ElementsAre("attribute-removed", "attribute-added"));
}

TEST(DiffCommand, StringsOfAnotherKindAreNotWider) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1, attributes: {X: Char32, Y: Char2K}}\n"),
                            source_of("  A: {id: 1, attributes: {X: MBChar64, Y: GUID}}\n")),
              testing::ElementsAre("attribute-type", "attribute-type"));
}

TEST(DiffCommand, MessageOfAnotherIndexAndValueIsAnotherMessage) {
  const std::string event = "  A: {id: 1, messages: [{index: 1, value: 1, id: M}]}\n";
  const std::string other = "  A: {id: 1, messages: [{index: 2, value: 2, id: M}]}\n";
  EXPECT_THAT(codes_between(source_of(event), source_of(other)),
              testing::ElementsAre("message-added", "message-removed"));
}

TEST(DiffCommand, RetiredRangesMayBeCutDifferently) {
  EXPECT_THAT(codes_between(source_of("  A: {id: 1}\n", "retired: [10-20, 30]\n"),
                            source_of("  A: {id: 1}\n", "retired: [10-14, 30, 15-20]\n")),
              testing::IsEmpty());
  EXPECT_THAT(codes_between(source_of("  A: {id: 1}\n", "retired: [10-4294967295]\n"),
                            source_of("  A: {id: 1}\n", "retired: [10-20, 22-4294967295]\n")),
              testing::ElementsAre("retired-removed"));
}

TEST(DiffCommand, RangesShowTheIdsThatTheyWonAndLost) {
  const auto run = diff_of(source_of("  A: {id: 1}\n", "ids: [1-20]\nretired: [30]\n"),
                           source_of("  A: {id: 1}\n", "ids: [0-3, 7-19]\nretired: [30, 40-49]\n"));
  EXPECT_THAT(run.out, HasSubstr("ids-removed: the IDs 4-6 lie in no range any more\n"));
  EXPECT_THAT(run.out, HasSubstr("ids-removed: the ID 20 lies in no range any more\n"));
  EXPECT_THAT(run.out, HasSubstr("new.yaml:3:7: ids-added: the ID 0 lies in a range now\n"));
  EXPECT_THAT(run.out, HasSubstr("retired-added: the IDs 40-49 are retired now\n"));
}

TEST(DiffCommand, CompiledAuxiliarySetsShowTheTextsOfTheirStandardSetsAttributes) {
  const temp_folder folder;
  folder.write("std.yaml", source_of("  A: {id: 1, attributes: {X: UInt2}}\n"));
  folder.write("old.yaml", source_of("  B: {id: 1, message: {id: M, text: \"{X}\"}}\n"));
  folder.write("new.yaml", source_of("  B: {id: 1, message: {id: M, text: \"It is {X}\"}}\n"));
  for (const std::string side : {"old", "new"})
    ASSERT_EQ(
        run_kplog(folder.path(), "compile -q --std std.yaml " + side + ".yaml -o " + side + ".ldf")
            .err,
        "");
  EXPECT_THAT(run_kplog(folder.path(), "diff old.ldf new.ldf --std std.yaml").out,
              HasSubstr("    - {X}\n    + It is {X}\n"));
}

TEST(DiffCommand, EventThatIsRetiredIsSaidToBeGoneAlone) {
  EXPECT_THAT(diff_of(source_of("  A: {id: 1}\n  B: {id: 2}\n"),
                      source_of("  A: {id: 1}\n", "retired: [2]\n"))
                  .out,
              HasSubstr("event-removed: the event is gone (breaks source, records, "
                        "translations)\n"));
}

// --- colors

TEST(DiffCommand, ColorsWhatBreaksAndTheTexts) {
  const std::string before = source_of("  A: {id: 1, message: One}\n");
  const std::string now = source_of("  A: {id: 1, second_word: 0, note: n, message: Two}\n");
  const auto run = diff_of(before, now, "--color always");
  EXPECT_THAT(run.out, StartsWith("\x1b[1mA, ID 1\x1b[0m\n  new.yaml:4:3: note: "));
  EXPECT_THAT(run.out, HasSubstr(": \x1b[1;31mmessage-text\x1b[0m: "));
  EXPECT_THAT(run.out, HasSubstr("\x1b[31m    - One\x1b[0m\n\x1b[32m    + Two\x1b[0m\n"));
  EXPECT_EQ(diff_of(before, now, "--color auto").out, diff_of(before, now, "--color never").out);
  EXPECT_THAT(diff_of(before, now).out, Not(HasSubstr("\x1b")));
}

TEST(DiffCommand, JsonIsNeverColored) {
  const std::string before = source_of("  A: {id: 1}\n");
  const std::string now = source_of("  A: {id: 2}\n");
  EXPECT_THAT(diff_of(before, now, "--color always --format json").out, Not(HasSubstr("\x1b")));
}

// --- outcomes

TEST(DiffCommand, FailsOnTheClassesThatAreNamed) {
  const std::string before = source_of("  A: {id: 1, message: One}\n");
  const std::string now = source_of("  A: {id: 1, message: Two}\n");
  EXPECT_EQ(diff_of(before, now).status, 0);
  EXPECT_EQ(diff_of(before, now, "--fail-on source,records,filters").status, 0);
  EXPECT_EQ(diff_of(before, now, "--fail-on source,translations").status, 1);
  EXPECT_EQ(diff_of(before, now, "--fail-on source --fail-on translations").status, 1);
  EXPECT_EQ(diff_of(before, now, "--fail-on any").status, 1);
  EXPECT_EQ(diff_of(before, source_of("  A: {id: 1, message: One}\n  B: {id: 2}\n"),
                    "--fail-on source,records,translations,filters")
                .status,
            0);
}

// The key that accepts a difference from a set of log version 1.
static std::string accept(const std::string& difference, const std::string& reason) {
  return "accept: {" + difference + ": {since: \"1\", reason: \"" + reason + "\"}}";
}

TEST(DiffCommand, AcceptedDifferencesBreakNobody) {
  const std::string before = source_of("  A: {id: 1, message: One}\n");
  const std::string now =
      source_of("  A: {id: 1, message: Two, " + accept("message-text/A", "1 > 2") + "}\n");
  const auto run = diff_of(before, now, "--fail-on any");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("another text (accepted: 1 > 2)\n    - One\n    + Two\n"));
  EXPECT_EQ(run.err, "kplog: 1 difference; 1 accepted\n");
}

TEST(DiffCommand, AnotherEventsDifferencesAreNotAccepted) {
  const std::string before = source_of("  A: {id: 1, message: One}\n  B: {id: 2, message: One}\n");
  const std::string now = source_of("  A: {id: 1, message: Two, " + accept("message-text/A", "so") +
                                    "}\n  B: {id: 2, message: Two}\n");
  EXPECT_EQ(diff_of(before, now, "--fail-on translations").status, 1);
}

TEST(DiffCommand, FileAcceptsWhatConcernsNoEvent) {
  const std::string before = source_of("  A: {id: 1}\n  B: {id: 2}\n");
  const std::string now = source_of("  A: {id: 1}\n", accept("event-removed/B", "unused") + "\n");
  EXPECT_EQ(diff_of(before, now, "--fail-on any").status, 0);
}

TEST(DiffCommand, CommandLineAcceptsForBothNames) {
  const std::string before = source_of("  A: {id: 1, attributes: {X: Bool}}\n  B: {id: 2}\n");
  const std::string now = source_of("  C: {id: 1, attributes: {X: Bool}}\n");
  const std::string accept =
      "--accept A:event-renamed=x --accept C:default-id/C=y --accept B:event-removed=z";
  EXPECT_EQ(diff_of(before, now, "--fail-on any " + accept).status, 0);
}

TEST(DiffCommand, AcceptedDifferenceOfOneAttributeIsThatOfNoOther) {
  const std::string before = source_of("  A: {id: 1, attributes: {X: Bool, Y: Bool}}\n");
  const std::string now = source_of("  A: {id: 1, attributes: {X: UInt1, Y: UInt1}, " +
                                    accept("attribute-type/X", "so") + "}\n");
  const auto run = diff_of(before, now, "--fail-on source");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("\"X\" was Bool, and is UInt1 (accepted: so)\n"));
  EXPECT_THAT(run.out, HasSubstr("\"Y\" was Bool, and is UInt1 (breaks source, records)\n"));
}

TEST(DiffCommand, AcceptedDifferenceExpiresWithItsLogVersion) {
  const auto set_of = [](const std::string& version, const std::string& type) {
    return "kplog: 1\nlog_version: \"" + version +
           "\"\nevents:\n  A: {id: 1, attributes: {X: " + type + "}, " +
           accept("attribute-type/X", "so") + "}\n";
  };
  EXPECT_EQ(diff_of(set_of("1", "Bool"), set_of("2", "UInt1"), "--fail-on source").status, 0);
  const auto run = diff_of(set_of("2", "Bool"), set_of("3", "UInt1"), "--fail-on source");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "new.yaml:4:73: warning[unused-accept]: this is accepted since the log version \"1\", "
            "and OLD has \"2\"\n"
            "  A: {id: 1, attributes: {X: UInt1}, accept: {attribute-type/X: {since: \"1\", "
            "reason: \"so\"}}}\n"
            "                                                                        ^\n"
            "kplog: 2 differences; 1 breaks source, 1 breaks records\n");
}

TEST(DiffCommand, WhatIsAcceptedInBothPlacesIsUsedInBoth) {
  const std::string before = source_of("  A: {id: 1, message: One}\n");
  const std::string now =
      source_of("  A: {id: 1, message: Two, " + accept("message-text/A", "there") + "}\n");
  const auto run = diff_of(before, now, "--accept A:message-text=here");
  EXPECT_THAT(run.out, HasSubstr("another text (accepted: here)\n"));
  EXPECT_EQ(run.err, "kplog: 1 difference; 1 accepted\n");
}

// Catalogs know texts by their IDs: stored "let in" would be shown as "refused".
TEST(DiffCommand, ExchangedMessageIdsBreakRecords) {
  const auto set_of = [](const std::string& in, const std::string& out) {
    return source_of(
        "  A:\n    id: 1\n    attributes: {X: UInt1}\n    select: X\n    messages:\n"
        "      - {index: 1, value: 0, id: " +
        in +
        ", text: let in}\n"
        "      - {index: 2, value: 1, id: " +
        out + ", text: refused}\n");
  };
  const auto exchanged = diff_of(set_of("I", "R"), set_of("R", "I"), "--fail-on records");
  EXPECT_EQ(exchanged.status, 1);
  EXPECT_EQ(exchanged.err, "kplog: 2 differences; 2 break records, 2 break translations\n");
  EXPECT_EQ(diff_of(set_of("I", "R"), set_of("N", "R"), "--fail-on records").status, 0);
}

TEST(DiffCommand, AcceptedDifferenceThatIsNoneIsTold) {
  const std::string set = source_of("  A: {id: 1}\n", accept("event-removed/B", "unused") + "\n");
  const auto run = diff_of(set, set, "--fail-on any --accept A:note=x");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "new.yaml:3:10: warning[unused-accept]: nothing is different that is "
            "\"event-removed/B\"\n"
            "accept: {event-removed/B: {since: \"1\", reason: \"unused\"}}\n"
            "         ^\n"
            "kplog: --accept A:note=x: nothing of this is different\n"
            "kplog: 0 differences\n");
}

TEST(DiffCommand, AcceptedDifferenceThatCompiledFilesDoNotHaveIsNotTold) {
  const temp_folder folder;
  const std::string accepted = accept("event-renamed/B", "so");
  folder.write("old.yaml", source_of("  A: {id: 1, message: {id: M}}\n"));
  folder.write("new.yaml", source_of("  B: {id: 1, message: {id: M}, " + accepted + "}\n"));
  run_kplog(folder.path(), "compile -q old.yaml -o old.ldf");
  EXPECT_EQ(run_kplog(folder.path(), "diff old.ldf new.yaml").err, "kplog: 0 differences\n");
}

TEST(DiffCommand, ProgramsLearnHowADifferenceIsAccepted) {
  const std::string json =
      diff_of(source_of("  A: {id: 1, attributes: {X: Bool}, message: M}\n", "retired: [7]\n"),
              source_of("  A: {id: 1, attributes: {X: GUID}, message: N}\n", "retired: [8-9]\n"),
              "--format json")
          .out;
  std::vector<std::string> accepts;
  const auto report = nlohmann::json::parse(json);
  for (const auto& difference : report["differences"]) accepts.push_back(difference["accept"]);
  EXPECT_THAT(accepts, testing::ElementsAre("retired-removed/7", "retired-added/8-9",
                                            "attribute-type/X", "message-text/A"));
}

TEST(DiffCommand, TextsInCatalogsAreTakenToShowEveryAttribute) {
  const std::string before = "  A: {id: 1, attributes: {X: UInt2, Y: UInt1}, message: {id: M}}\n";
  const std::string now = "  A: {id: 1, attributes: {X: Float, Y: UInt4}, message: {id: M}}\n";
  EXPECT_THAT(diff_of(source_of(before), source_of(now)).out,
              HasSubstr("message-format: the default message is in the catalogs, and may show "
                        "\"X\", which is a Float now (breaks translations)\n"));
  EXPECT_THAT(codes_between(source_of(before), source_of(now)),
              testing::ElementsAre("attribute-type", "attribute-type", "message-format"));
}

TEST(DiffCommand, AttributesOfTheStandardSetThatAreHiddenHaveAnotherType) {
  const temp_folder folder;
  folder.write("std.yaml", source_of("  A: {id: 1, message: M}\n", "attributes: {X: UInt2}\n"));
  folder.write("old.yaml", source_of("  B: {id: 2}\n"));
  const auto diff = [&](const std::string& now) {
    folder.write("new.yaml", now);
    return run_kplog(folder.path(), "diff old.yaml new.yaml --std std.yaml").out;
  };
  const std::string changed = "attribute \"X\" was UInt2, and is Char32 (breaks source, records)\n";
  EXPECT_THAT(diff(source_of("  B: {id: 2}\n", "attributes: {X: Char32}\n")), HasSubstr(changed));
  EXPECT_THAT(diff(source_of("  B: {id: 2, attributes: {X: Char32}}\n")), HasSubstr(changed));
  EXPECT_THAT(diff(source_of("  B: {id: 2}\n", "attributes: {X: UInt2}\n")),
              Not(HasSubstr("attribute-type")));
}

TEST(DiffCommand, AuxiliaryMessagesThatRenameAnEventOfTheStandardSetBreakRecords) {
  const temp_folder folder;
  folder.write("std.yaml", source_of("  A: {id: 1, message: M}\n"));
  folder.write("old.yaml", source_of("  B: {id: 2}\n"));
  folder.write("new.yaml", source_of("  B: {id: 2}\n  C: {id: 1, message: {id: X, text: N}}\n"));
  EXPECT_THAT(run_kplog(folder.path(), "diff old.yaml new.yaml --std std.yaml").out,
              HasSubstr("default-id: the default message had the ID \"A\", by which records name "
                        "the event, and has \"X\" (breaks source, records, translations)\n"));
  folder.write("new.yaml", source_of("  B: {id: 2}\n  C: {id: 1, message: {id: X}}\n"));
  EXPECT_THAT(run_kplog(folder.path(), "diff old.yaml new.yaml --std std.yaml").out,
              Not(HasSubstr("default-id")));
}

TEST(DiffCommand, NotesAreShown) {
  EXPECT_THAT(
      diff_of(source_of("  A: {id: 1, note: one, attributes: {X: {type: Bool, note: x}}}\n"),
              source_of("  A: {id: 1, note: two, attributes: {X: {type: Bool, note: y}}}\n"))
          .out,
      AllOf(HasSubstr("note: the event has another note\n    - one\n    + two\n"),
            HasSubstr("note: the attribute \"X\" has another note\n    - x\n    + y\n")));
}

TEST(DiffCommand, UnsoundSetsAreNotCompared) {
  const auto run = diff_of(source_of("  A: {id: x}\n"), source_of("  A: {id: 1}\n"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, StartsWith("old.yaml:4:11: error[bad-number]: "));
}

TEST(DiffCommand, StandardInputIsEitherSide) {
  const temp_folder folder;
  folder.write("a.yaml", source_of("  A: {id: 1}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "diff - a.yaml < a.yaml").status, 0);
  EXPECT_EQ(run_kplog(folder.path(), "diff a.yaml - < a.yaml").status, 0);
}

TEST(DiffCommand, AuxiliarySetsAreComparedBesideTheirStandardSet) {
  const temp_folder folder;
  folder.write("std.yaml", source_of("  A: {id: 1, attributes: {X: UInt1}}\n"));
  folder.write("old.yaml", source_of("  B: {id: 1, message: \"{X}\"}\n"));
  folder.write("new.yaml", source_of("  B: {id: 1, message: \"It is {X}\"}\n"));
  EXPECT_EQ(run_kplog(folder.path(), "diff old.yaml new.yaml").status, 1);
  const auto run = run_kplog(folder.path(), "diff old.yaml new.yaml --std std.yaml");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("    - {X}\n    + It is {X}\n"));
}

TEST(DiffCommand, TextsCannotSteerTheTerminal) {
  const auto run = diff_of(source_of("  A: {id: 1, message: \"\\e[2J\"}\n"),
                           source_of("  A: {id: 1, message: \"\\u202E\"}\n"));
  EXPECT_THAT(run.out, HasSubstr("    - \\x1B[2J\n    + \\u{202E}\n"));
}

TEST(DiffCommand, WrongUsageGivesStatus2) {
  for (const char* arguments :
       {"", "a.yaml", "a b c", "- -", "a b --fail-on nothing", "a b --format xml", "a b --accept x",
        "a b --accept x:note", "a b --accept x:nothing=y", "a b --accept x:note="})
    EXPECT_EQ(run_kplog(test_data_folder(), std::string("diff ") + arguments).status, 2)
        << arguments;
}

TEST(DiffCommand, WrongAcceptancesAreToldApart) {
  const auto error = [](const std::string& accepted) {
    return run_kplog(test_data_folder(), "diff a b --accept " + accepted).err;
  };
  EXPECT_EQ(error("A:notes=x"), "kplog: no difference \"notes\"; did you mean \"note\"?\n");
  EXPECT_EQ(error("A:note="), "kplog: EVENT:CODE=REASON is expected, not \"A:note=\"\n");
}

TEST(DiffCommand, FaultsOfBothSetsAreShown) {
  const auto run = diff_of(source_of("  A: {}\n"), source_of("  B: {id: x}\n"));
  EXPECT_THAT(run.err, AllOf(HasSubstr("old.yaml:4:6: error[missing-key]"),
                             HasSubstr("new.yaml:4:11: error[bad-number]")));
  EXPECT_EQ(run.status, 1);
}

TEST(DiffCommand, UnreadableSetGivesStatus3) {
  const auto run = run_kplog(test_data_folder(), "diff changes_old.yaml none.yaml");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot read none.yaml: No such file or directory\n");
}
