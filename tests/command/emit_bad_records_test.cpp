// kplog emit, from outside: bad records, and what becomes of them.
#include <gmock/gmock.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/command/emit_fixture.h"
#include "tests/command/golden_file.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class EmitBadRecords : public testing::Test {
 protected:
  emit_folder folder_;
};

TEST_F(EmitBadRecords, BadRecordsAreReportedAndSkipped) {
  const auto run = folder_.emit_text("-q --to -", bad_records);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "a\nb\n");
  EXPECT_THAT(run.err, AllOf(HasSubstr("<stdin>:2:10: error[record-event]: "),
                             HasSubstr("<stdin>:3:38: error[record-value]: "),
                             HasSubstr("<stdin>:4:2: error[record-syntax]: ")));
}

TEST_F(EmitBadRecords, FirstBadRecordStopsWhenAskedTo) {
  const auto run = folder_.emit_text("--to - --on-error stop", bad_records);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "a\n");
  EXPECT_THAT(run.err, AllOf(HasSubstr("<stdin>:2:10: "), Not(HasSubstr("<stdin>:3:"))));
  EXPECT_THAT(run.err, HasSubstr("2 records: 1 written, 0 rejected by the filter, 1 bad\n"));
}

TEST_F(EmitBadRecords, QuarantineKeepsBadLinesAsTheyWere) {
  const std::string hostile = "\x1b]0;title\x07 \xFF\xFE bytes\n";
  const auto run = folder_.emit_text("-q --to - --on-error quarantine=bad", bad_records + hostile);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "a\nb\n");
  const std::string kept =
      "{\"event\":\"NOBODY\"}\n{\"event\":\"NOTE\",\"attributes\":{\"TEXT\":7}}\nnot even JSON\n" +
      hostile;
  EXPECT_EQ(folder_.text("bad"), kept);
  EXPECT_EQ(folder_.emit_text("-q --to - --on-error quarantine=bad", "again\n").status, 1);
  EXPECT_EQ(folder_.text("bad"), kept + "again\n");
}

TEST_F(EmitBadRecords, FloodOfBadRecordsIsCounted) {
  std::string records;
  for (int i = 0; i < 1000; ++i) records += "bad\n";
  const auto run = folder_.emit_text("--to -", records);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("<stdin>:100:1: "), Not(HasSubstr("<stdin>:101:1: ")),
                             HasSubstr("kplog: 900 more bad records, not shown one by one\n"),
                             HasSubstr("1000 bad\n")));
}

TEST_F(EmitBadRecords, DiagnosticsAndSummaryAreJsonWhenAskedTo) {
  const auto run = folder_.emit_text("--format json --to -", bad_records);
  EXPECT_EQ(run.status, 1);
  std::istringstream lines(run.err);
  std::vector<nlohmann::json> objects;
  for (std::string line; std::getline(lines, line);) objects.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(objects.size(), 4u) << run.err;
  EXPECT_EQ(objects[0]["code"], "record-event");
  EXPECT_EQ(objects[1]["line"], 3);
  const nlohmann::json& summary = objects[3]["summary"];
  EXPECT_EQ(summary["read"], 5);
  EXPECT_EQ(summary["written"], 2);
  EXPECT_EQ(summary["bad"], 3);
  EXPECT_EQ(summary["events"][0]["name"], "NOTE");
  EXPECT_EQ(summary["events"][0]["bad"], 1);
  EXPECT_EQ(summary["events"][1]["event"], nullptr);
}

// The lines that hold the text.
static std::string lines_with(const std::string& text, const std::string& wanted) {
  std::istringstream lines(text);
  std::string found;
  for (std::string line; std::getline(lines, line);)
    if (line.find(wanted) != std::string::npos) found += line + "\n";
  return found;
}

TEST_F(EmitBadRecords, ZIsTheSameDayAsTheOffsetZero) {
  std::string records;
  for (const char* time : {"2026-11-15T02:00:00Z", "2026-11-15T02:00:00+00:00",
                           "2026-11-15T23:59:59Z", "2026-11-15 23:59:59+00:00"})
    records += note_record("a", time);
  folder_.write("input", records);
  for (const char* zone : {"UTC+11", "UTC-11"}) {
    const temp_folder out;
    const auto run =
        folder_.emit("-q --to text:" + out.path() + "/log --to json:" + out.file("stored") +
                         " --count " + out.path() + "/count input",
                     std::string("export TZ=") + zone + " && ");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(read_whole_file(out.file("log.20261115.0001")),
              "2026-11-15T02:00:00Z 3 NOTE a\n2026-11-15T02:00:00+00:00 3 NOTE a\n"
              "2026-11-15T23:59:59Z 3 NOTE a\n2026-11-15T23:59:59+00:00 3 NOTE a\n");
    EXPECT_THAT(read_whole_file(out.file("stored")),
                AllOf(HasSubstr("\"time\":\"2026-11-15T02:00:00Z\""),
                      HasSubstr("\"time\":\"2026-11-15T23:59:59Z\"")));
    EXPECT_EQ(run_kplog(out.path(), "count -q --format csv --by day count.cnt").out,
              "day,count\r\n2026-11-15,4\r\n");
  }
}

TEST_F(EmitBadRecords, GoldenListOfBadRecords) {
  folder_.write("input",
                "{\"event\":\"NOTE\",}\n"
                "{\"event\":\"NOTE\",\"colour\":1}\n"
                "{\"event\":\"NOTES\"}\n"
                "{\"event\":\"NOTE\",\"attributes\":{\"TXT\":\"a\"}}\n"
                "{\"event\":\"USER_LOGIN\",\"attributes\":{\"PORT\":65536}}\n"
                "{\"event\":\"NOTE\",\"context\":[]}\n"
                "{\"event\":\"BROKEN\"}\n");
  const auto bad = folder_.emit("--to text:./shop input");
  const std::string log = note_record("a");
  EXPECT_EQ(folder_.emit_text("-q --to text:./shop", log).status, 0);
  folder_.write("shop.20261115.0001", folder_.text("shop.20261115.0001") + "2026-11-15T1");
  std::string flood;
  for (int i = 0; i < 101; ++i) flood += "bad\n";
  const auto many = folder_.emit_text("--format json --to text:./shop", log + flood);
  folder_.write("link.yaml",
                "kplog: 1\nlog_version: \"2.0\"\nevents: {LINK: {id: 1002, message: link}}\n");
  folder_.write(
      "de.po",
      "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; charset=UTF-8\\n\"\n");
  EXPECT_EQ(run_kplog(folder_.path(), "catalog build -q link.yaml --po de.po -o messages").status,
            0);
  const auto lacking = folder_.emit_text("--format json --catalog messages --to -", log);
  running_command ended(folder_.path(),
                        emit_folder::words({"--format", "json", "--to", "-", "-", "input"}));
  EXPECT_TRUE(ended.send(log));
  EXPECT_EQ(ended.out_line(), "a");
  ended.signal(SIGTERM);
  expect_golden_file("emit.expected", bad.err + lines_with(many.err, "unfinished-line") +
                                          lines_with(many.err, "record-not-shown") +
                                          lines_with(ended.wait_for_end().err, "unread-input") +
                                          lines_with(lacking.err, "message-from-definition"));
}

TEST_F(EmitBadRecords, SummaryTellsOfEachEvent) {
  const auto run = folder_.emit_text("--to text:./x --min-level 3",
                                     login_record("a", 1) + three_levels() + bad_records);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("kplog: 9 records: 5 written, 1 rejected by the filter, 3 bad\n"
                                 "event              read  written  rejected  bad\n"
                                 "USER_LOGIN (1001)     1        1         0    0\n"
                                 "NOTE (1003)           6        4         1    1\n"
                                 "(not known)           2        0         0    2\n"));
}
