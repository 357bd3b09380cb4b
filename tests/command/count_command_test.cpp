// kplog count, from outside.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "kp_LOG_EntryCounter.h"
#include "tests/command/command_run.h"
#include "tests/command/golden_file.h"
#include "tests/support/counter_folder.h"
#include "tests/support/temp_folder.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class CountCommand : public testing::Test {
 protected:
  command_result count(const std::string& arguments) {
    return run_kplog(folder_.path(), "count " + arguments);
  }

  // The rows of a report on one file of that content, without a summary.
  std::string rows(const std::string& content, const std::string& options = "") {
    folder_.write("c.cnt", content);
    const auto run = count("c.cnt -q --format csv " + options);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    return run.out;
  }

  // The definitions of the example set, compiled.
  void compile_definitions() {
    const auto run = run_kplog(test_data_folder(),
                               "compile -q package_manager.yaml -o " + folder_.file("set.ldf"));
    ASSERT_EQ(run.status, 0) << run.err;
  }

  // Runs the command line in a terminal of that many columns; what it shows, with line feeds alone.
  std::string on_terminal(int columns, const std::string& arguments) {
    folder_.write("run.sh", "stty cols " + std::to_string(columns) +
                                "; exec '" KPLOG_COMMAND "' count " + arguments + "\n");
    const auto run = run_kplog(folder_.path(), "--version; script -qec 'sh run.sh' /dev/null");
    std::string shown = run.out.substr(run.out.find('\n') + 1);
    std::erase(shown, '\r');
    return shown;
  }

  temp_folder folder_;
};

static std::string two_months() {
  return counter_record(2026, 10, 30, 1001, 40) + counter_record(2026, 10, 31, 1001, 9) +
         counter_record(2026, 10, 31, 1002, 1) + free_counter_slot() +
         counter_record(2026, 11, 2, 1003, 75) + counter_record(2026, 11, 15, 1001, 100) +
         counter_record(2026, 11, 15, 77, 3);
}

// --- what is counted

TEST_F(CountCommand, WhatTheLibraryCountedIsShown) {
  _kp_LOG_EntryCounter counter;
  ASSERT_EQ(counter.OpenEntryCounterFile(folder_.path().c_str(), "c"), 0);
  for (int i = 0; i < 3; ++i) counter.IncreaseCount(2026, 11, 15, 100);
  counter.IncreaseCount(2026, 11, 15, 200);
  counter.IncreaseCount(2026, 11, 16, 300);
  counter.DeleteEntryElement(2026, 11, 15, 200);
  counter.CloseEntryCounterFile();
  const auto run = count("c.cnt");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "DAY         EVENT  ENTRIES\n"
            "2026-11-15  100          3\n"
            "2026-11-16  300          1\n");
  EXPECT_EQ(run.err, "kplog: 4 entries of 2 events on 2 days\n");
}

TEST_F(CountCommand, RowsAreGroupedAsAsked) {
  EXPECT_EQ(rows(two_months(), "--by day"),
            "day,count\r\n2026-10-30,40\r\n2026-10-31,10\r\n2026-11-02,75\r\n2026-11-15,103\r\n");
  EXPECT_EQ(rows(two_months(), "--by month"), "month,count\r\n2026-10,50\r\n2026-11,178\r\n");
  EXPECT_EQ(rows(two_months(), "--by event"),
            "event,count\r\n1001,149\r\n1003,75\r\n77,3\r\n1002,1\r\n");
  EXPECT_EQ(rows(two_months(), "--by month,event"),
            "month,event,count\r\n2026-10,1001,49\r\n2026-10,1002,1\r\n2026-11,77,3\r\n"
            "2026-11,1001,100\r\n2026-11,1003,75\r\n");
  EXPECT_EQ(rows(two_months()), rows(two_months(), "--by event --by day"));
}

TEST_F(CountCommand, BothEndsOfARangeBelongToIt) {
  EXPECT_EQ(rows(two_months(), "--by day --from 2026-10-31 --to 2026-11-02"),
            "day,count\r\n2026-10-31,10\r\n2026-11-02,75\r\n");
  EXPECT_EQ(rows(two_months(), "--by day --from 2026-11-15"), "day,count\r\n2026-11-15,103\r\n");
  EXPECT_EQ(rows(two_months(), "--by day --to 2026-10-30"), "day,count\r\n2026-10-30,40\r\n");
  EXPECT_EQ(rows(two_months(), "--by day --to 2026-10-29"), "day,count\r\n");
}

TEST_F(CountCommand, SeveralFilesAreAddedUp) {
  folder_.write("a.cnt",
                counter_record(2026, 11, 15, 1, 4294967295) + counter_record(2026, 11, 15, 2, 5));
  folder_.write("b.cnt", counter_record(2026, 11, 15, 1, 4294967295));
  const auto run = count("--format csv --by event a.cnt b.cnt - < b.cnt");
  EXPECT_EQ(run.out, "event,count\r\n1,12884901885\r\n2,5\r\n");
  EXPECT_EQ(run.err, "kplog: 12884901890 entries of 2 events on 1 day\n");
}

TEST_F(CountCommand, IdsAreUnsigned) {
  EXPECT_EQ(rows(counter_record(2026, 11, 15, -1, 1) + counter_record(2026, 11, 15, 0, 2)),
            "day,event,count\r\n2026-11-15,0,2\r\n2026-11-15,4294967295,1\r\n");
}

TEST_F(CountCommand, CountsOfZeroAreRowsButNoDaysAndEvents) {
  folder_.write("c.cnt", counter_record(2026, 11, 15, 1, 0));
  const auto run = count("c.cnt --format csv");
  EXPECT_EQ(run.out, "day,event,count\r\n2026-11-15,1,0\r\n");
  EXPECT_EQ(run.err, "kplog: 0 entries of 0 events on 0 days\n");
}

TEST_F(CountCommand, FilesWithoutRecordsAreEmptyReports) {
  for (const std::string& content : {std::string(), free_counter_slot("kept")})
    EXPECT_EQ(rows(content), "day,event,count\r\n");
  EXPECT_EQ(count("/dev/null").out, "DAY  EVENT  ENTRIES\n");
  EXPECT_EQ(nlohmann::json::parse(count("c.cnt --format json").out)["rows"].size(), 0u);
  EXPECT_THAT(count("c.cnt --format svg").out, HasSubstr(">No entries</text>"));
  EXPECT_THAT(count("--format svg --by event c.cnt").out, HasSubstr(">No entries</text>"));
}

// --- names

TEST_F(CountCommand, DefinitionsGiveNames) {
  compile_definitions();
  folder_.write("c.cnt", two_months());
  EXPECT_EQ(count("c.cnt -q --by event --definitions set.ldf").out,
            "EVENT              ENTRIES\n"
            "PACKAGE_INSTALLED      149\n"
            "SIGNATURE_CHECKED       75\n"
            "77                       3\n"
            "DOWNLOAD                 1\n");
  EXPECT_EQ(count("c.cnt -q --by event --format csv --definitions set.ldf").out,
            "event,name,count\r\n1001,PACKAGE_INSTALLED,149\r\n1003,SIGNATURE_CHECKED,75\r\n"
            "77,,3\r\n1002,DOWNLOAD,1\r\n");
}

TEST_F(CountCommand, AuxDefinitionsAddNames) {
  folder_.write("std.yaml",
                "kplog: 1\nlog_version: \"1\"\nevents:\n  FIRST: {id: 1, message: one}\n");
  folder_.write(
      "aux.yaml",
      "kplog: 1\nlog_version: \"1\"\nevents:\n  \"=a,b \\\"c\\\"\": {id: 2, message: two}\n");
  folder_.write("c.cnt", counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 15, 2, 2));
  const auto run = count("c.cnt -q --format csv --definitions std.yaml --aux aux.yaml");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out,
            "day,event,name,count\r\n2026-11-15,1,FIRST,1\r\n"
            "2026-11-15,2,\"=a,b \"\"c\"\"\",2\r\n");
}

TEST_F(CountCommand, UnsoundDefinitionsEndIt) {
  folder_.write("c.cnt", two_months());
  folder_.write("bad.ldf", ".LDF");
  folder_.write("std.yaml", "kplog: 1\nlog_version: \"1\"\nevents: {A: {id: 1, message: a}}\n");
  for (const char* arguments : {"--definitions bad.ldf", "--definitions std.yaml --aux bad.ldf"}) {
    const auto run = count(std::string("c.cnt ") + arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, StartsWith("bad.ldf:0x"));
  }
}

TEST_F(CountCommand, NamesCannotSteerTheTerminal) {
  folder_.write("std.yaml",
                "kplog: 1\nlog_version: \"1\"\nevents:\n"
                "  \"A\\u202E<&>\\uFFFE\": {id: 1, message: one}\n");
  folder_.write("c.cnt", counter_record(2026, 11, 15, 1, 1));
  for (const char* format : {"table", "csv", "json", "svg"}) {
    const auto run = count(std::string("c.cnt --definitions std.yaml --format ") + format);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("\u202E"))) << format;
  }
  const auto json = nlohmann::json::parse(count("c.cnt --definitions std.yaml --format json").out);
  EXPECT_EQ(json["rows"][0]["name"], "A\u202E<&>\uFFFE");
  EXPECT_THAT(count("c.cnt --definitions std.yaml --format svg").out,
              AllOf(HasSubstr("A\\u{202E}&lt;&amp;&gt;\\u{FFFE}"), Not(HasSubstr("\uFFFE"))));
}

// --- formats

TEST_F(CountCommand, GoldenJson) {
  compile_definitions();
  folder_.write("c.cnt", two_months());
  expect_golden_file("count.expected.json",
                     count("c.cnt --format json --definitions set.ldf --from 2026-10-31").out);
}

TEST_F(CountCommand, GoldenCharts) {
  compile_definitions();
  folder_.write("c.cnt", two_months());
  expect_golden_file("count_days.expected.svg",
                     count("c.cnt --format svg --definitions set.ldf").out);
  expect_golden_file("count_events.expected.svg",
                     count("c.cnt --format svg --by event --definitions set.ldf").out);
}

TEST_F(CountCommand, EventsWithoutAColorOfTheirOwnAreOneSeries) {
  std::string content;
  for (int id = 1; id <= 9; ++id)
    content += counter_record(2026, 11, 15, id, static_cast<unsigned>(100 * id));
  folder_.write("c.cnt", content);
  const std::string svg = count("c.cnt --format svg").out;
  EXPECT_THAT(svg, HasSubstr("<title>2026-11-15, 9: 900 entries</title>"));
  EXPECT_THAT(svg, HasSubstr("<title>2026-11-15, 3 other events: 600 entries</title>"));
  EXPECT_THAT(svg, Not(HasSubstr("class=\"s7\"")));
}

TEST_F(CountCommand, LongTimesHaveFewMarks) {
  folder_.write("c.cnt", counter_record(1, 1, 1, 1, 1) + counter_record(9999, 12, 31, 1, 1));
  for (const char* by : {"day", "month"}) {
    const std::string svg = count(std::string("c.cnt --format svg --by ") + by).out;
    EXPECT_THAT(svg, HasSubstr(">1000</text>"));
    EXPECT_THAT(svg, HasSubstr(">9000</text>"));
    EXPECT_LT(svg.size(), 8000u);
  }
}

TEST_F(CountCommand, MarksOfDaysFollowTheCalendar) {
  const auto labels_of = [&](const std::string& days) {
    folder_.write("c.cnt", days);
    return count("c.cnt --format svg --by day").out;
  };
  EXPECT_THAT(labels_of(counter_record(2024, 2, 27, 1, 1) + counter_record(2024, 3, 2, 1, 1)),
              AllOf(HasSubstr(">2024-02-29</text>"), HasSubstr(">2024-03-01</text>")));
  EXPECT_THAT(labels_of(counter_record(2024, 2, 27, 1, 1) + counter_record(2024, 9, 2, 1, 1)),
              AllOf(HasSubstr(">2024-03</text>"), HasSubstr(">2024-09</text>"),
                    Not(HasSubstr(">2024-02</text>"))));
  EXPECT_THAT(
      labels_of(counter_record(2017, 2, 27, 1, 1) + counter_record(2024, 9, 2, 1, 1)),
      AllOf(HasSubstr(">2018</text>"), HasSubstr(">2024</text>"), Not(HasSubstr(">2017</text>"))));
}

TEST_F(CountCommand, TerminalsShowBarsAsWideAsTheyAre) {
  folder_.write("c.cnt", counter_record(2026, 11, 14, 1, 16) + counter_record(2026, 11, 15, 1, 1) +
                             counter_record(2026, 11, 16, 1, 0) +
                             counter_record(2026, 11, 17, 1, 4));
  EXPECT_EQ(on_terminal(29, "-q --by day c.cnt"),
            "DAY         ENTRIES\n"
            "2026-11-14       16  \u2588\u2588\u2588\u2588\u2588\u2588\u2588\u2588\n"
            "2026-11-15        1  \u258C\n"
            "2026-11-16        0\n"
            "2026-11-17        4  \u2588\u2588\n");
  EXPECT_EQ(on_terminal(28, "-q --by day c.cnt"), count("-q --by day c.cnt").out);
}

// --- files that are not as they should be

TEST_F(CountCommand, TornLastRecordReadsAsIfZerosFollowed) {
  const std::string whole = counter_record(2026, 11, 15, 1, 2) + counter_record(2026, 11, 16, 1, 3);
  folder_.write("c.cnt", whole.substr(0, 32 + 23));
  const auto run = count("c.cnt --format csv");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "day,event,count\r\n2026-11-15,1,2\r\n2026-11-16,1,0\r\n");
  EXPECT_THAT(run.err, StartsWith("c.cnt:0x20: warning[counter-torn]: the last record is cut off "
                                  "behind 23 bytes; zeros are taken for the others\n"));
}

TEST_F(CountCommand, TheFirstRecordOfAKeyCountsAsInTheLibrary) {
  folder_.write("c.cnt", counter_record(2026, 11, 15, 1, 2) + counter_record(2026, 11, 14, 1, 1) +
                             counter_record(2026, 11, 15, 1, 30) +
                             counter_record(2026, 11, 14, 1, 40));
  const auto run = count("c.cnt --format csv");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "day,event,count\r\n2026-11-14,1,1\r\n2026-11-15,1,2\r\n");
  EXPECT_THAT(run.err,
              AllOf(StartsWith("c.cnt:0x40: warning[counter-duplicate]: this record is not "
                               "counted: another of this day and ID stands before it; so is 1 more "
                               "record\n"),
                    HasSubstr("\nc.cnt:0x0: note: this one is counted\n")));
}

TEST_F(CountCommand, DaysThatNoCalendarHasAreCountedAndSaid) {
  folder_.write("c.cnt", counter_record(2026, 2, 29, 1, 2) + counter_record(2026, 11, 15, 1, 3) +
                             counter_record(-5, 13, 200, 1, 4));
  const auto run = count("c.cnt --format csv --by day");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "day,count\r\n-005-13-200,4\r\n2026-02-29,2\r\n2026-11-15,3\r\n");
  EXPECT_THAT(run.err, StartsWith("c.cnt:0x4: warning[counter-day]: the calendar has no day "
                                  "2026-02-29; so is 1 more record\n"));
  EXPECT_THAT(count("c.cnt --format svg --by day").out,
              HasSubstr(">Not shown: 6 entries of days that no calendar has</text>"));
}

TEST_F(CountCommand, RecordsOfAnotherLengthAreFaults) {
  folder_.write("c.cnt", std::string("These 32 bytes are no counter..\n"));
  const auto run = count("c.cnt --format csv");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, StartsWith("c.cnt:0x0: error[counter-length]: this record is 1416127859 "
                                  "bytes long by its own account, not 32\n"));
}

TEST_F(CountCommand, EveryPrefixAndEveryFlippedBitIsRead) {
  const std::string whole = two_months();
  for (size_t size = 0; size < whole.size(); size += 5) {
    folder_.write("c.cnt", whole.substr(0, size));
    EXPECT_EQ(count("c.cnt --format svg").status, 0) << size;
  }
  for (size_t bit = 0; bit < 32 * 8; bit += 11) {
    std::string flipped = whole;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    folder_.write("c.cnt", flipped);
    EXPECT_EQ(count("c.cnt --format svg").status, bit < 32 ? 1 : 0) << bit;
  }
}

TEST_F(CountCommand, DiagnosticsAreJsonWithIt) {
  folder_.write("c.cnt", counter_record(2026, 2, 29, 1, 2));
  const auto run = count("c.cnt --format json");
  EXPECT_EQ(nlohmann::json::parse(run.err)["code"], "counter-day");
  EXPECT_EQ(nlohmann::json::parse(run.out)["total"], 2);
}

// --- exit statuses, streams

TEST_F(CountCommand, StreamsAreReadWhatTheyAre) {
  folder_.write("c.cnt", two_months());
  EXPECT_EQ(count("- < c.cnt").out, count("c.cnt").out);
  EXPECT_EQ(run_kplog(folder_.path(), "count /dev/stdin", "cat c.cnt | ").out, count("c.cnt").out);
}

TEST_F(CountCommand, UnreadableFilesGiveStatus3AndNoSums) {
  folder_.write("c.cnt", two_months());
  const auto missing = count("c.cnt none.cnt nothing.cnt");
  EXPECT_EQ(missing.status, 3);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(missing.err,
            "kplog: cannot read none.cnt: No such file or directory\n"
            "kplog: cannot read nothing.cnt: No such file or directory\n");
  EXPECT_EQ(count(".").err, "kplog: cannot read .: Is a directory\n");
  EXPECT_EQ(count("c.cnt > /dev/full").status, 3);
}

TEST_F(CountCommand, FilesWithoutAnEndAreRefused) {
  const auto run = count("/dev/zero");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot read /dev/zero: File too large\n");
}

TEST_F(CountCommand, WrongUsageGivesStatus2) {
  folder_.write("c.cnt", two_months());
  for (const char* arguments :
       {"", "c.cnt --format xml", "c.cnt --by year", "c.cnt --by day,month", "c.cnt --aux a.ldf",
        "- -", "c.cnt --from 2026-02-29", "c.cnt --from 2026-1-1", "c.cnt --to 20261115",
        "c.cnt --to 2026-11-151", "c.cnt --to +026-11-15",
        "c.cnt --from 2026-11-02 --to 2026-11-01"}) {
    const auto run = count(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
  }
  EXPECT_EQ(count("c.cnt --from 2026-11-02 --to 2026-11-01").err,
            "kplog: --from 2026-11-02 is later than --to 2026-11-01\n");
}
