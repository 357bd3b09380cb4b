// The example package_history, run as a program of its own: its filter, logs and counts.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/examples/history_run.h"
#include "tests/support/counter_folder.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// --- What the program writes and prints ---

// The numbers behind a word at the beginning of a row: "9 4 5" events read, accepted and rejected
// of a kind, or what is in the row of a day.
static std::string row_of(const history_outcome& outcome, const std::string& word) {
  const size_t at = outcome.out.find("\n  " + word + " ", outcome.out.find("Events by kind:"));
  if (at == std::string::npos) return "(no row)";
  const size_t begin = at + 3 + word.size();
  std::istringstream row(outcome.out.substr(begin, outcome.out.find('\n', begin) - begin));
  std::string numbers;
  for (std::string number; row >> number;) numbers += (numbers.empty() ? "" : " ") + number;
  return numbers;
}

static std::vector<std::string> names_in(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& file : std::filesystem::directory_iterator(folder))
    names.push_back(file.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

static long lines_in(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

constexpr char counter_file[] = "logs/package_history.cnt";
constexpr char march_log[] = "logs/package_history.20260302.0001";
constexpr char balanced[] = "\nThe counts of each day add up to the lines in its text logs.\n";

// Four events of one day, of the levels 6, 3, 5 and 2.
constexpr char four_events[] =
    "2026-03-02 09:15:04 startup packages purge\n"
    "2026-03-02 09:15:05 install tea:all <none> 1.4-2\n"
    "2026-03-02 09:15:06 configure tea:all 1.4-2 <none>\n"
    "2026-03-02 09:15:07 remove tea:all 1.4-2 <none>\n";

constexpr char installed_in_german[] =
    "02.03.2026, 09:15:05: tea:all wird in Version 1.4-2 installiert\n";
constexpr char removed_in_german[] =
    "02.03.2026, 09:15:07: tea:all, Version 1.4-2, wird entfernt\n";

static std::string install_on(const std::string& day) {
  return "2026-03-" + day + " 09:15:05 install tea:all <none> 1.4-2\n";
}

// --- The filter ---

TEST(PackageHistoryFilter, WithoutAConfigurationAllButDebugEntriesPass) {
  const history_outcome outcome = history_run().tell(history_sample(), "--output logs");
  EXPECT_THAT(outcome.out, HasSubstr("\nThe filter accepts levels from 0 to 9 and no debug "
                                     "entries.\n"));
  EXPECT_EQ(row_of(outcome, "status"), "9 0 9");
  EXPECT_EQ(row_of(outcome, "startup"), "4 4 0");
  EXPECT_EQ(row_of(outcome, "total"), "22 13 9");
}

TEST(PackageHistoryFilter, LevelsOfTheCommandLineAreBothIncluded) {
  const history_outcome outcome =
      history_run().tell(four_events, "--min-level 3 --max-level 5 --output logs");
  EXPECT_EQ(row_of(outcome, "install"), "1 1 0");
  EXPECT_EQ(row_of(outcome, "configure"), "1 1 0");
  EXPECT_EQ(row_of(outcome, "remove"), "1 0 1");
  EXPECT_EQ(row_of(outcome, "startup"), "1 0 1");
}

TEST(PackageHistoryFilter, ALowestLevelAboveTheHighestLetsNothingPass) {
  const history_run run;
  const history_outcome outcome =
      run.tell(four_events, "--min-level 5 --max-level 3 --output logs");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(row_of(outcome, "total"), "4 0 4");
  EXPECT_EQ(names_in(run.file("logs")),
            (std::vector<std::string>{"package_history.cnt", "package_history_lock"}));
}

TEST(PackageHistoryFilter, TheConfigurationReplacesTheLevelsOfTheCommandLine) {
  const history_run run;
  run.write("settings", "[package_history]\nLogLevelHigh = 3\n\n");
  const history_outcome outcome = run.tell(four_events, "--max-level 9 --config settings");
  EXPECT_THAT(outcome.out, HasSubstr(", unless section \"package_history\"\nof settings says"));
  EXPECT_EQ(row_of(outcome, "configure"), "1 0 1");
  EXPECT_EQ(row_of(outcome, "total"), "4 2 2");
}

TEST(PackageHistoryFilter, ASectionIsChosenAndInheritsTheGlobalOne) {
  const history_run run;
  run.write("settings", "[global]\nLogLevelHigh = 3\n[mine]\nLogLevelLow = 3\n\n");
  EXPECT_EQ(row_of(run.tell(four_events, "--config settings --section mine"), "total"), "4 1 3");
  EXPECT_EQ(row_of(run.tell(four_events, "--config settings --section no"), "total"), "4 2 2");
}

TEST(PackageHistoryFilter, DebugEntriesPassWhereTheConfigurationSaysSoWithLevelsOfTheirOwn) {
  const history_run run;
  const std::string on = "[package_history]\nLogLevelHigh = 2\nDebugEnabled = 1\n";
  run.write("settings", on + "\n");
  EXPECT_EQ(row_of(run.tell(history_sample(), "--config settings"), "status"), "9 0 9");
  run.write("settings", on + "DebugLogLevelHigh = 7\n\n");
  const history_outcome outcome = run.tell(history_sample(), "--config settings");
  EXPECT_EQ(row_of(outcome, "status"), "9 9 0");
  EXPECT_EQ(row_of(outcome, "install"), "1 0 1");
}

TEST(PackageHistoryFilter, AConfigurationLosesALastLineThatNothingFollows) {
  const history_run run;
  run.write("settings", "[package_history]\nLogLevelLow = 3\nLogLevelHigh = 3\n");
  EXPECT_EQ(row_of(run.tell(four_events, "--config settings"), "total"), "4 3 1");
}

TEST(PackageHistoryFilter, EverySectionOfTheShippedConfigurationIsRead) {
  const history_run run;
  const std::string with = "--config '" PACKAGE_HISTORY_SOURCES "/package_history.conf' ";
  const history_outcome usual = run.tell(history_sample(), with);
  EXPECT_EQ(row_of(usual, "status"), "9 9 0");
  EXPECT_EQ(row_of(usual, "total"), "22 17 5");
  EXPECT_EQ(row_of(run.tell(history_sample(), with + "--section quiet"), "total"), "22 7 15");
  EXPECT_EQ(row_of(run.tell(history_sample(), with + "--section everything"), "total"), "22 22 0");
}

TEST(PackageHistoryFilter, AConfigurationThatCannotBeReadIsAnError) {
  for (const char* path : {"missing", "."}) {
    const history_outcome outcome =
        history_run().tell(four_events, std::string("--config ") + path);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              std::string("package_history: cannot read the configuration file ") + path + "\n");
  }
}

// --- Logs and counts ---

TEST(PackageHistoryLogs, AcceptedMessagesAreLoggedInOneLanguage) {
  const history_run run;
  run.tell(four_events, "--max-level 3 --output logs --log-locale de_DE");
  EXPECT_EQ(run.read(march_log), std::string(installed_in_german) + removed_in_german);
  run.tell(four_events, "--max-level 2 --output english");
  EXPECT_EQ(with_plain_blanks(run.read("english/package_history.20260302.0001")),
            "Mar 2, 2026, 9:15:07 AM: removing tea:all, version 1.4-2\n");
}

TEST(PackageHistoryLogs, EachDayHasALogAndCountsOfItsOwnEvenForOneKindOfEvent) {
  const history_run run;
  const history_outcome outcome =
      run.tell(install_on("02") + install_on("02") + install_on("03"), "--output logs");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(run.read(counter_file),
            counter_record(2026, 3, 2, 101, 2) + counter_record(2026, 3, 3, 101, 1));
  EXPECT_EQ(row_of(outcome, "2026-03-02"), "2 2 package_history.20260302.0001");
  EXPECT_EQ(row_of(outcome, "2026-03-03"), "1 1 package_history.20260303.0001");
  EXPECT_THAT(outcome.out, EndsWith("  2026-03-03  install 1\n" + std::string(balanced)));
}

TEST(PackageHistoryLogs, DaysMayAlternateLineByLine) {
  const history_run run;
  std::string content;
  for (int i = 0; i < 5; ++i) content += install_on("02") + install_on("01");
  const history_outcome outcome = run.tell(content, "--output logs");
  EXPECT_EQ(row_of(outcome, "2026-03-01"), "5 5 package_history.20260301.0001");
  EXPECT_EQ(row_of(outcome, "2026-03-02"), "5 5 package_history.20260302.0001");
  EXPECT_EQ(outcome.status, 0);
}

TEST(PackageHistoryLogs, ALogThatWouldGrowTooBigIsFollowedByTheNextSerial) {
  const history_run run;
  const std::string line = installed_in_german;
  const std::string two_lines = std::to_string(2 * line.size());
  const history_outcome outcome =
      run.tell(install_on("02") + install_on("02") + install_on("02"),
               "--output logs --log-locale de_DE --max-size " + two_lines);
  EXPECT_EQ(run.read(march_log), line + line);
  EXPECT_EQ(run.read("logs/package_history.20260302.0002"), line);
  EXPECT_EQ(row_of(outcome, "2026-03-02"), "3 3 package_history.20260302.0001 to .0002");
}

TEST(PackageHistoryLogs, AMessageBiggerThanALogHasOneForItself) {
  const history_run run;
  const history_outcome outcome = run.tell(four_events, "--output logs --max-size 1");
  EXPECT_EQ(row_of(outcome, "2026-03-02"), "4 4 package_history.20260302.0001 to .0004");
  EXPECT_EQ(lines_in(run.read("logs/package_history.20260302.0004")), 1);
}

TEST(PackageHistoryLogs, ASecondRunGoesOnInTheHighestSerialAndAddsToTheCounts) {
  const history_run run;
  const std::string options = "--output logs --log-locale de_DE --max-level 3";
  run.tell(four_events, options + " --max-size 1");
  const history_outcome outcome = run.tell(four_events, options);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(run.read(march_log), installed_in_german);
  EXPECT_EQ(run.read("logs/package_history.20260302.0002"),
            std::string(removed_in_german) + installed_in_german + removed_in_german);
  EXPECT_EQ(run.read(counter_file),
            counter_record(2026, 3, 2, 101, 2) + counter_record(2026, 3, 2, 105, 2));
  EXPECT_THAT(outcome.out, EndsWith("  2026-03-02  install 2, remove 2\n" + std::string(balanced)));
}

TEST(PackageHistoryLogs, SerialsGoOnBehindAGapAndEndAtFourDigits) {
  const history_run run;
  std::filesystem::create_directory(run.file("logs"));
  run.write("logs/package_history.20260302.9999", "");
  const history_outcome outcome = run.tell(four_events, "--output logs --max-size 1");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "package_history: no serial is left for a text log of 2026-03-02\n");
  EXPECT_EQ(lines_in(run.read("logs/package_history.20260302.9999")), 1);
  EXPECT_EQ(run.read(counter_file), counter_record(2026, 3, 2, 109, 1));
}

TEST(PackageHistoryLogs, OtherFilesInTheFolderAreLeftAlone) {
  const history_run run;
  std::filesystem::create_directories(run.file("logs/package_history.20260302.0007"));
  for (const char* name : {"logs/package_history.20260302.1", "logs/other.20260302.0001",
                           "logs/package_history_old.20260302.0001"})
    run.write(name, "a line\n");
  const history_outcome outcome = run.tell(four_events, "--output logs");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(row_of(outcome, "2026-03-02"), "4 4 package_history.20260302.0001");
  EXPECT_EQ(run.read("logs/package_history.20260302.1"), "a line\n");
}

TEST(PackageHistoryLogs, WithoutAFolderForThemTheyAreNamedAndGone) {
  const history_run run;
  const history_outcome outcome = run.tell(four_events);
  const std::string begin = "\nLogged in English (en_US) and counted, in ";
  const size_t at = outcome.out.find(begin) + begin.size();
  const std::string folder = outcome.out.substr(at, outcome.out.find('\n', at) - at);
  EXPECT_THAT(folder, StartsWith(run.file("package_history.")));
  EXPECT_THAT(outcome.out, HasSubstr(folder + "\n(removed again: --output DIR keeps it):\n"));
  EXPECT_EQ(row_of(outcome, "2026-03-02"), "4 4 package_history.20260302.0001");
  EXPECT_FALSE(std::filesystem::exists(folder));
}

// --- The check of counts against lines ---

static void expect_unbalanced(const history_run& run, const std::string& row) {
  const history_outcome outcome = run.tell(four_events, "--output logs");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "package_history: the counts are not the numbers of lines in the text logs\n");
  EXPECT_EQ(row_of(outcome, "2026-03-02"), row + " package_history.20260302.0001");
}

TEST(PackageHistoryBalance, LostCountsAreFound) {
  const history_run run;
  run.tell(four_events, "--output logs");
  std::filesystem::remove(run.file(counter_file));
  expect_unbalanced(run, "8 4");
}

TEST(PackageHistoryBalance, ALineTooManyIsFound) {
  const history_run run;
  run.tell(four_events, "--output logs");
  run.write(march_log, run.read(march_log) + "made up\n");
  expect_unbalanced(run, "9 8");
}

TEST(PackageHistoryBalance, CountsOfTheWrongDayAreFoundThoughTheSumIsRight) {
  const history_run run;
  run.tell(four_events + install_on("03"), "--output logs");
  run.write(counter_file, counter_record(2026, 3, 2, 101, 3) + counter_record(2026, 3, 3, 101, 2));
  expect_unbalanced(run, "8 7");
}

TEST(PackageHistoryBalance, FreeSlotsOfTheCounterFileCountNothing) {
  const history_run run;
  std::filesystem::create_directory(run.file("logs"));
  run.write(counter_file, free_counter_slot() + free_counter_slot());
  const history_outcome outcome = run.tell(install_on("02"), "--output logs");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(run.read(counter_file), counter_record(2026, 3, 2, 101, 1) + free_counter_slot());
}

// --- Faults ---

static void expect_error(const history_outcome& outcome, const std::string& text) {
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "package_history: " + text + "\n");
  EXPECT_EQ(outcome.out, "");
}

TEST(PackageHistoryFaults, AFolderThatCannotBeMadeIsAnError) {
  const history_run run;
  expect_error(run.tell(four_events, "--output log/below"),
               "cannot make log/below: Not a directory");
  expect_error(run.tell(four_events, "--output log"), "cannot make log: Not a directory");
}

TEST(PackageHistoryFaults, AFolderThatTakesNoFilesIsAnError) {
  const history_outcome outcome = history_run().tell(four_events, "--output /proc");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("package_history: cannot open /proc/package_history_lock: "));
}

TEST(PackageHistoryFaults, AFolderInUseIsAnError) {
  const history_run run;
  std::filesystem::create_directory(run.file("logs"));
  const int lock = open(run.write("logs/package_history_lock", "").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  expect_error(run.tell(four_events, "--output logs"), "another run writes to logs");
  close(lock);
  EXPECT_EQ(run.tell(four_events, "--output logs").status, 0);
}

// The library opens what it cannot write for reading, and then counts nothing without a word.
TEST(PackageHistoryFaults, ACounterThatCanOnlyBeReadIsAnError) {
  const history_run run;
  std::filesystem::create_directories(run.file(counter_file));
  expect_error(run.tell(four_events, "--output logs"), "cannot write to logs/package_history.cnt");
}

TEST(PackageHistoryFaults, AFullDiskUnderALogIsAnError) {
  const history_run run;
  std::filesystem::create_directory(run.file("logs"));
  std::filesystem::create_symlink("/dev/full", run.file(march_log));
  expect_error(run.tell(four_events, "--output logs"),
               std::string("cannot write ") + march_log + ": No space left on device");
  EXPECT_EQ(run.read(counter_file), "");
}

TEST(PackageHistoryFaults, WhatAFullDiskKeepsFromBeingCountedIsNotLoggedEither) {
  const history_run run;
  std::filesystem::create_directory(run.file("logs"));
  std::filesystem::create_symlink("/dev/full", run.file(counter_file));
  expect_error(run.tell(four_events, "--output logs"), "cannot write to logs/package_history.cnt");
  EXPECT_EQ(run.read(march_log), "");
  EXPECT_TRUE(std::filesystem::exists(run.file(march_log)));
}

TEST(PackageHistoryFaults, ALineThatFitsOnlyInPartIsTakenOutAndTheNextRunGoesOn) {
  const history_run run;
  std::string content;
  for (int i = 0; i < 40; ++i) content += "2026-03-02 09:15:07 remove tea:all 1.4-2 <none>\n";
  run.write("log", content);
  // Of 1,024 bytes, 17 lines of 60 leave 4.
  const history_outcome full =
      run("--output logs --log-locale de_DE log", "out", "trap '' XFSZ && ulimit -f 2 &&");
  expect_error(full, std::string("cannot write ") + march_log + ": File too large");
  EXPECT_EQ(run.read(march_log).size(), 17 * std::string(removed_in_german).size());
  EXPECT_THAT(run.read(march_log), EndsWith(removed_in_german));
  EXPECT_EQ(run.read(counter_file), counter_record(2026, 3, 2, 105, 17));

  const history_outcome next = run("--output logs --log-locale de_DE log");
  EXPECT_EQ(row_of(next, "2026-03-02"), "57 57 package_history.20260302.0001");
  EXPECT_EQ(next.status, 0);
}
