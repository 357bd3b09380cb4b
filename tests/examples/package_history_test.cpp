// The example package_history, run as a program of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/support/temp_folder.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

struct history_outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// The program in a folder of its own, in the time zone UTC.
class history_run {
 public:
  std::string write(std::string_view name, std::string_view content) const {
    return folder_.write(name, content);
  }
  // Standard output goes to the file `out` of that folder, or to an absolute path.
  history_outcome operator()(const std::string& arguments, const std::string& out = "out") const {
    const std::string command = "cd '" + folder_.path() +
                                "' && TZ=UTC '" PACKAGE_HISTORY_PROGRAM "' " + arguments + " >" +
                                out + " 2>err </dev/null";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_whole_file(folder_.file("out")),
            read_whole_file(folder_.file("err"))};
  }
  history_outcome tell(std::string_view content, const std::string& options = "") const {
    write("log", content);
    return (*this)(options + " log");
  }

 private:
  temp_folder folder_;
};

// Some versions of ICU write a narrow no-break space before AM and PM, others a blank.
static std::string with_plain_blanks(std::string text) {
  const std::string narrow = "\u202F";
  for (size_t at = text.find(narrow); at != std::string::npos; at = text.find(narrow, at))
    text.replace(at, narrow.size(), " ");
  return text;
}

static std::string sample() {
  return read_whole_file(PACKAGE_HISTORY_SOURCES "/sample_dpkg.log");
}

// What follows the messages in German, where the program's own words are the same in every
// language.
static std::string table_of(const history_outcome& outcome) {
  const size_t at = outcome.out.find("Events by kind:");
  return at == std::string::npos ? "(no table)" : outcome.out.substr(at);
}

static std::string closing_lines_of(const history_outcome& outcome) {
  const std::string table = table_of(outcome);
  const size_t at = table.find("\n\n");
  return at == std::string::npos ? "(none)" : table.substr(at + 2);
}

constexpr char unpacked[] = "2026-03-02 09:15:05 status unpacked tea-timer:amd64 1.4-2";

TEST(PackageHistory, TheSampleIsToldInThreeLanguagesWithATable) {
  const history_outcome outcome = history_run().tell(sample(), "--all");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(with_plain_blanks(outcome.out), read_whole_file(PACKAGE_HISTORY_GOLDEN));
  EXPECT_EQ(outcome.status, 0);
}

TEST(PackageHistory, TwelveMessagesOfEachLanguageArePrintedUnlessAskedOtherwise) {
  const history_run run;
  EXPECT_THAT(run.tell(sample()).out, HasSubstr("English (en_US), 12 of 22 messages:\n"));
  EXPECT_THAT(run.tell(sample(), "--last 3").out,
              HasSubstr("Deutsch (de_DE), 3 of 22 messages:\n"));
  EXPECT_THAT(run.tell(sample(), "--last 0").out,
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
  const std::string with_feeds = run.tell(std::string(unpacked) + "\n" + unpacked + "\n").out;
  EXPECT_EQ(run.tell(std::string(unpacked) + "\r\n" + unpacked).out, with_feeds);
  EXPECT_THAT(with_feeds, EndsWith("2 lines, 2 understood, 0 not understood.\n"));
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
  run.write("log", sample());
  const history_outcome outcome = run("--all log", "/dev/full");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "package_history: cannot write the output\n");
}

TEST(PackageHistory, AWrongCommandLineIsExplained) {
  const history_run run;
  for (const auto& [arguments, why] : {std::pair{"--last", "--last needs a number"},
                                       {"--last -1", "--last needs a number, not '-1'"},
                                       {"--last 3x log", "--last needs a number, not '3x'"},
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
