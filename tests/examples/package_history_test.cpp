// The example package_history: the program that makes records, and the demonstration around it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/examples/history_run.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char unpacked[] = "2026-03-02 09:15:05 status unpacked tea-timer:amd64 1.4-2";
constexpr char unpacked_record[] =
    R"({"event":"PACKAGE_STATUS","level":7,"time":"2026-03-02T09:15:05+00:00",)"
    R"("attributes":{"PACKAGE":"tea-timer:amd64","VERSION":"1.4-2","STATE":3}})"
    "\n";

// --- Records ---

TEST(PackageHistoryRecords, ALineBecomesARecord) {
  const history_outcome outcome = history_run().records_of(std::string(unpacked) + "\n");
  EXPECT_EQ(outcome.out, unpacked_record);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, 0);
}

TEST(PackageHistoryRecords, EveryKindHasItsAttributes) {
  const history_outcome outcome = history_run().records_of(
      "2026-03-02 09:15:04 startup archives unpack\n"
      "2026-03-02 09:15:04 install tea:all <none> 1.4-2\n"
      "2026-03-02 09:15:04 upgrade tea:all 1.4-2 2.0\n"
      "2026-03-02 09:15:04 conffile /etc/tea timer/bells.conf keep\n"
      "2026-03-02 09:15:04 disappear bell:all 0.9 <none>\n");
  EXPECT_EQ(outcome.out,
            R"({"event":"DPKG_STARTUP","level":6,"time":"2026-03-02T09:15:04+00:00",)"
            R"("attributes":{"COMMAND":0}})"
            "\n"
            R"({"event":"PACKAGE_INSTALL","level":3,"time":"2026-03-02T09:15:04+00:00",)"
            R"("attributes":{"PACKAGE":"tea:all","VERSION":"1.4-2"}})"
            "\n"
            R"({"event":"PACKAGE_UPGRADE","level":3,"time":"2026-03-02T09:15:04+00:00",)"
            R"("attributes":{"PACKAGE":"tea:all","VERSION":"2.0","OLD_VERSION":"1.4-2"}})"
            "\n"
            R"({"event":"CONFIGURATION_FILE","level":4,"time":"2026-03-02T09:15:04+00:00",)"
            R"("attributes":{"FILE":"/etc/tea timer/bells.conf","DECISION":1}})"
            "\n"
            R"({"event":"PACKAGE_DISAPPEAR","level":1,"time":"2026-03-02T09:15:04+00:00",)"
            R"("attributes":{"PACKAGE":"bell:all","VERSION":"0.9"}})"
            "\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST(PackageHistoryRecords, EveryLineThatIsNotUnderstoodIsNamedWithItsReason) {
  const history_outcome outcome = history_run().records_of(
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
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "log:1: the line does not begin with a date and a time\n"
            "log:2: the line does not begin with a date and a time\n"
            "log:3: the line does not begin with a date and a time\n"
            "log:5: the kind of event is unknown\n"
            "log:6: a field is missing\n"
            "log:7: there are more fields than expected\n"
            "log:8: the state is unknown\n"
            "log:9: the command is unknown\n"
            "log:10: the decision is unknown\n"
            "log:11: a field is missing\n"
            "log:12: a field is missing\n");
  EXPECT_THAT(outcome.out, EndsWith(unpacked_record));
}

TEST(PackageHistoryRecords, LinesMayEndAsOnOtherSystemsAndTheLastOneNotAtAll) {
  const history_outcome outcome =
      history_run().records_of(std::string(unpacked) + "\r\n" + unpacked);
  EXPECT_EQ(outcome.out, std::string(unpacked_record) + unpacked_record);
}

TEST(PackageHistoryRecords, BinaryGarbageIsNamedAndNeverReachesTheTerminal) {
  std::string garbage;
  for (int i = 0; i < 4096; ++i) garbage += static_cast<char>(i * 131 + i / 7);
  const history_outcome outcome = history_run().records_of(
      garbage + "\n2026-03-02 09:15:05 status unpacked \x1B[31mred 1\n" +
      "2026-03-02 09:15:05 status unpacked \xC2\x9B"
      "31mred 1\n" +
      "2026-03-02 09:15:05 status unpacked t\xFF"
      "a 1\n" +
      "2026-03-02 09:15:05 status unpacked nul" + std::string(1, '\0') + " 1\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr(": the line holds control characters\n"));
  EXPECT_THAT(outcome.err, HasSubstr(": the line is not UTF-8\n"));
  EXPECT_THAT(outcome.err, Not(HasSubstr("\x1B")));
}

TEST(PackageHistoryRecords, ALineThatIsTooLongForItsAttributesIsNamed) {
  const std::string longest(256, 'p');
  const history_outcome outcome = history_run().records_of(
      "2026-03-02 09:15:05 status unpacked " + longest + " 1\n" +
      "2026-03-02 09:15:05 status unpacked " + longest + "p 1\n" +
      "2026-03-02 09:15:05 conffile /" + std::string(5'000'000, 'f') + " keep\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("\"PACKAGE\":\"" + longest + "\""));
  EXPECT_EQ(outcome.err,
            "log:2: PACKAGE Attribute value is overflow under Entry ID 108 !\n"
            "log:3: FILE Attribute value is overflow under Entry ID 110 !\n");
}

TEST(PackageHistoryRecords, FilesThatCannotBeReadOrWrittenAreErrors) {
  const history_run run;
  const history_outcome missing = run.records("missing.log");
  EXPECT_EQ(missing.status, 3);
  EXPECT_EQ(missing.err, "package_history: cannot open missing.log: No such file or directory\n");
  const history_outcome folder = run.records(".");
  EXPECT_EQ(folder.status, 3);
  EXPECT_EQ(folder.err, "package_history: cannot read .\n");
  run.write("log", history_sample());
  const history_outcome full = run.records("log", "/dev/full");
  EXPECT_EQ(full.status, 3);
  EXPECT_EQ(full.err, "package_history: cannot write the records\n");
}

TEST(PackageHistoryRecords, AWrongCommandLineIsExplained) {
  const history_run run;
  for (const char* arguments : {"--first", "one two", "-"}) {
    const history_outcome outcome = run.records(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_THAT(outcome.err, testing::StartsWith("usage: package_history "));
  }
  EXPECT_THAT(run.records("--help").out, testing::StartsWith("usage: package_history "));
}

// --- The demonstration ---

// Some versions of ICU write a narrow no-break space before AM and PM, others a blank.
static std::string with_plain_blanks(std::string text) {
  const std::string narrow = "\u202F";
  for (size_t at = text.find(narrow); at != std::string::npos; at = text.find(narrow, at))
    text.replace(at, narrow.size(), " ");
  return text;
}

// What the demonstration says, with its folders in place of their paths.
static std::string told_by(const history_outcome& outcome, const history_run& run) {
  std::string text = with_plain_blanks(outcome.out);
  const std::string folder = run.file("");
  for (size_t at = text.find(folder); at != std::string::npos; at = text.find(folder, at))
    text.erase(at, folder.size());
  return text;
}

TEST(PackageHistoryDemo, TheSampleIsToldInThreeLanguagesAndLoggedAndCounted) {
  const history_run run;
  run.write("log", history_sample());
  const history_outcome outcome = run.demo("--last 22 --output logs log");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(told_by(outcome, run), read_whole_file(PACKAGE_HISTORY_GOLDEN));
  EXPECT_EQ(outcome.status, 0);
}

TEST(PackageHistoryDemo, WithoutAFileItTellsTheMachinesHistoryOrTheSampleAndSaysWhich) {
  const history_run run;
  const history_outcome outcome = run.demo("--last 1 --output logs");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  if (read_whole_file("/var/log/dpkg.log").empty())
    EXPECT_THAT(outcome.out, HasSubstr("What follows is a sample that was made up"));
  else
    EXPECT_THAT(outcome.out, testing::StartsWith("Package history of /var/log/dpkg.log: "));
}

TEST(PackageHistoryDemo, TheStoredEntriesAreTheOnesInTheLogs) {
  const history_run run;
  run.write("log", history_sample());
  ASSERT_EQ(run.demo("--output logs log").status, 0);
  std::string logged;
  for (const char* day : {"20260302", "20260628", "20260714", "20261105"})
    logged += run.read(std::string("logs/package_history.") + day + ".0001");
  std::istringstream stored(run.read("logs/accepted.jsonl"));
  std::string messages;
  for (std::string line; std::getline(stored, line);) {
    const nlohmann::json record = nlohmann::json::parse(line);
    messages +=
        record["time"].get<std::string>() + " " + std::to_string(record["level"].get<int>()) + " " +
        record["name"].get<std::string>() + " " + record["message"].get<std::string>() + "\n";
  }
  EXPECT_EQ(logged, messages);
}

TEST(PackageHistoryDemo, AnEmptyHistoryIsToldAsOne) {
  const history_run run;
  run.write("log", "");
  const history_outcome outcome = run.demo("--output logs log");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, HasSubstr("English (en_US), 0 of 0 messages:\n"));
  EXPECT_THAT(outcome.out, EndsWith("The first lines of the logs:\n  (none)\n"));
}

TEST(PackageHistoryDemo, AWrongCommandLineIsExplained) {
  const history_run run;
  for (const char* arguments : {"--first --output logs", "log", "--last x --output logs log"}) {
    const history_outcome outcome = run.demo(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_THAT(outcome.err, testing::StartsWith("usage: demo "));
  }
}
