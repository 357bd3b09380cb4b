// The example package_history, run as a program of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/examples/history_run.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// What the program says about the lines, behind the table of events.
static std::string closing_lines_of(const history_outcome& outcome) {
  const size_t table = outcome.out.find("Events by kind:");
  const size_t begin = outcome.out.find("\n\n", table);
  const size_t end = outcome.out.find("\n\nLogged in ", table);
  if (begin >= end || end == std::string::npos) return "(none)";
  return outcome.out.substr(begin + 2, end - begin - 1);
}

// What the program says before it comes to the logs, whose folder has another name in each run.
static std::string told_by(const history_outcome& outcome) {
  return outcome.out.substr(0, outcome.out.find("\n\nLogged in "));
}

constexpr char unpacked[] = "2026-03-02 09:15:05 status unpacked tea-timer:amd64 1.4-2";

TEST(PackageHistory, TheSampleIsToldInThreeLanguagesWithATable) {
  const history_outcome outcome = history_run().tell(history_sample(), "--all --output logs");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(with_plain_blanks(outcome.out), read_whole_file(PACKAGE_HISTORY_GOLDEN));
  EXPECT_EQ(outcome.status, 0);
}

TEST(PackageHistory, TwelveMessagesOfEachLanguageArePrintedUnlessAskedOtherwise) {
  const history_run run;
  EXPECT_THAT(run.tell(history_sample()).out, HasSubstr("English (en_US), 12 of 22 messages:\n"));
  EXPECT_THAT(run.tell(history_sample(), "--last 3").out,
              HasSubstr("Deutsch (de_DE), 3 of 22 messages:\n"));
  EXPECT_THAT(run.tell(history_sample(), "--last 0").out,
              HasSubstr("日本語 (ja_JP), 0 of 22 messages:\n\n"));
}

TEST(PackageHistory, TheDefaultIsTheMachinesHistoryOrTheSampleAndSaysWhich) {
  const history_outcome outcome = history_run()("--last 0");
  EXPECT_EQ(outcome.status, 0);
  if (read_whole_file("/var/log/dpkg.log").empty())
    EXPECT_THAT(outcome.out, HasSubstr("What follows is a sample that was made up"));
  else
    EXPECT_THAT(outcome.out, testing::StartsWith("Package history of /var/log/dpkg.log\n"));
}

TEST(PackageHistory, AnEmptyFileIsAHistoryWithoutEvents) {
  const history_outcome outcome = history_run().tell("");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("English (en_US), 0 of 0 messages:\n"));
  EXPECT_EQ(closing_lines_of(outcome), "0 lines, 0 understood, 0 not understood.\n");
}

TEST(PackageHistory, EveryLineThatIsNotUnderstoodIsNamedWithItsReason) {
  const history_outcome outcome = history_run().tell(
      "\n"
      "2026-03-02 09:15:04\n"
      "2026-02-30 09:15:04 startup archives unpack\n"
      "2026-03-02T09:15:04 startup archives unpack\n"
      "2026-03-02 09:15:04 explode tea-timer:amd64 1 2\n"
      "2026-03-02 09:15:04 install tea-timer:amd64 <none>\n"
      "2026-03-02 09:15:04 install tea-timer:amd64 <none> 1 2\n"
      "2026-03-02 09:15:04 status melted tea-timer:amd64 1\n"
      "2026-03-02 09:15:04 startup archives\n"
      "2026-03-02 09:15:04 conffile /etc/x shred\n"
      "2026-03-02 09:15:04 conffile keep\n"
      "2026-03-02 09:15:04 remove  1 2\n" +
      std::string(unpacked) + "\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(closing_lines_of(outcome),
            "13 lines, 2 understood, 11 not understood:\n"
            "  line 1: the line does not begin with a date and a time\n"
            "  line 2: the line does not begin with a date and a time\n"
            "  line 3: the line does not begin with a date and a time\n"
            "  line 5: the kind of event is unknown\n"
            "  line 6: a field is missing\n"
            "  line 7: there are more fields than expected\n"
            "  line 8: the state is unknown\n"
            "  line 9: the command is unknown\n"
            "  line 10: the decision is unknown\n"
            "  line 11: a field is missing\n"
            "  line 12: a field is missing\n");
}

TEST(PackageHistory, LinesMayEndAsOnOtherSystemsAndTheLastOneNotAtAll) {
  const history_run run;
  const std::string with_feeds = told_by(run.tell(std::string(unpacked) + "\n" + unpacked + "\n"));
  EXPECT_EQ(told_by(run.tell(std::string(unpacked) + "\r\n" + unpacked)), with_feeds);
  EXPECT_THAT(with_feeds, EndsWith("2 lines, 2 understood, 0 not understood."));
}

TEST(PackageHistory, BinaryGarbageIsNamedAndNeverReachesTheTerminal) {
  std::string garbage;
  for (int i = 0; i < 4096; ++i) garbage += static_cast<char>(i * 131 + i / 7);
  const history_outcome outcome =
      history_run().tell(garbage + "\n2026-03-02 09:15:05 status unpacked \x1B[31mred 1\n" +
                         "2026-03-02 09:15:05 status unpacked \xC2\x9B"
                         "31mred 1\n" +
                         "2026-03-02 09:15:05 status unpacked nul" + std::string(1, '\0') + " 1\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("lines, 0 understood, "));
  EXPECT_THAT(outcome.out, HasSubstr(": the line holds control characters\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("\x1B")));
}

TEST(PackageHistory, BytesThatAreNoUtf8AreShownAsReplacementCharacters) {
  const history_outcome outcome = history_run().tell(
      "2026-03-02 09:15:05 status unpacked t\xFF"
      "a 1\n");
  EXPECT_THAT(outcome.out, HasSubstr(": t\uFFFD"
                                     "a 1 is unpacked\n"));
}

TEST(PackageHistory, ALineThatIsTooLongForItsAttributesIsNamed) {
  const std::string longest(256, 'p');
  const history_outcome outcome = history_run().tell(
      "2026-03-02 09:15:05 status unpacked " + longest + " 1\n" +
      "2026-03-02 09:15:05 status unpacked " + longest + "p 1\n" +
      "2026-03-02 09:15:05 conffile /" + std::string(5'000'000, 'f') + " keep\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr(": " + longest + " 1 is unpacked\n"));
  EXPECT_EQ(closing_lines_of(outcome),
            "3 lines, 1 understood, 2 not understood:\n"
            "  line 2: PACKAGE Attribute value is overflow under Entry ID 108 !\n"
            "  line 3: FILE Attribute value is overflow under Entry ID 110 !\n");
}

TEST(PackageHistory, TextThatLooksLikeAPatternIsShownAsItIs) {
  const history_outcome outcome =
      history_run().tell("2026-03-02 09:15:05 status unpacked {0}'%s%PACKAGE% <none>\n");
  EXPECT_THAT(outcome.out, HasSubstr(": {0}'%s%PACKAGE% <none> is unpacked\n"));
}

TEST(PackageHistory, AFileThatCannotBeReadIsAnError) {
  const history_run run;
  const history_outcome missing = run("missing.log");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "package_history: cannot open missing.log: No such file or directory\n");
  const history_outcome folder = run(".");
  EXPECT_EQ(folder.status, 1);
  EXPECT_EQ(folder.err, "package_history: cannot read .\n");
}

TEST(PackageHistory, OutputThatCannotBeWrittenIsAnError) {
  const history_run run;
  run.write("log", history_sample());
  const history_outcome outcome = run("--all log", "/dev/full");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "package_history: cannot write the output\n");
}

TEST(PackageHistory, AWrongCommandLineIsExplained) {
  const history_run run;
  for (const auto& [arguments, why] :
       {std::pair{"--last", "--last needs a number"},
        {"--last -1", "--last needs a number, not '-1'"},
        {"--last 3x log", "--last needs a number, not '3x'"},
        {"--last 99999999999999999999", "--last needs a number, not '99999999999999999999'"},
        {"--min-level 10", "--min-level needs a level from 0 to 9, not '10'"},
        {"--max-level high", "--max-level needs a level from 0 to 9, not 'high'"},
        {"--max-size 0", "--max-size needs a number of bytes from 1 on, not '0'"},
        {"--log-locale fr_FR", "--log-locale needs en_US, de_DE or ja_JP, not 'fr_FR'"},
        {"--config", "--config needs a file"},
        {"--section ''", "--section needs a name, not ''"},
        {"--output", "--output needs a folder"},
        {"--first 3", "unknown option '--first'"},
        {"one two", "more than one file"}}) {
    const history_outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_THAT(outcome.err,
                testing::StartsWith(std::string("package_history: ") + why + "\nusage: "));
  }
}

TEST(PackageHistory, HelpIsPrintedAndNothingElse) {
  const history_outcome outcome = history_run()("--help");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, testing::StartsWith("usage: package_history "));
  EXPECT_EQ(outcome.err, "");
}
