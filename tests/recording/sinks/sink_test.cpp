// Sinks: what they are called, and what they write.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <limits>
#include <thread>

#include "recording/records/stored_form.h"
#include "recording/text/escape.h"
#include "tests/recording/sinks/sink_fixture.h"
#include "tools/report/outcome.h"

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

// --- Descriptions ---

struct bad_description {
  const char* description;
  const char* error;
};

static void PrintTo(const bad_description& bad, std::ostream* out) {
  *out << terminal_text(bad.description);
}

class BadDescription : public RecordSink, public testing::WithParamInterface<bad_description> {};

TEST_P(BadDescription, IsRefusedWithWhatWasExpected) {
  EXPECT_EQ(raised_by<std::invalid_argument>([&] { make(GetParam().description); }),
            GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    All, BadDescription,
    testing::Values(
        bad_description{"",
                        "\"\" is no sink; a sink is text:DIR/PREFIX[,max-size=SIZE], "
                        "journal:DIR/NAME[,OPTIONS], json:FILE, json:- or -"},
        bad_description{"txt:a\x1B",
                        "\"txt:a\\x1B\" is no sink; a sink is "
                        "text:DIR/PREFIX[,max-size=SIZE], journal:DIR/NAME[,OPTIONS], "
                        "json:FILE, json:- or -"},
        bad_description{"text:", "the sink text: lacks the name of its prefix"},
        bad_description{"text:logs/", "the sink text:logs/ lacks the name of its prefix"},
        bad_description{"text:logs/..", "the sink text:logs/.. lacks the name of its prefix"},
        bad_description{"text:logs/a.b",
                        "the sink text:logs/a.b has \".\" in its prefix, which is "
                        "of ASCII letters, digits, \"_\" and \"-\""},
        bad_description{"text:zug-für",
                        "the sink text:zug-für has \"ü\" in its prefix, which is "
                        "of ASCII letters, digits, \"_\" and \"-\""},
        bad_description{"text:a,size=1",
                        "the sink text:a,size=1 has the option \"size=1\"; the "
                        "only one is max-size=SIZE"},
        bad_description{"text:a,",
                        "the sink text:a, has the option \"\"; the only one is "
                        "max-size=SIZE"},
        bad_description{"text:a,max-size=0",
                        "the sink text:a,max-size=0 has the size \"0\"; a "
                        "size is a number from 1, with K, M or G behind it "
                        "or nothing"},
        bad_description{"journal:", "the sink journal: lacks the name of its prefix"},
        bad_description{"journal:logs/a.b",
                        "the sink journal:logs/a.b has \".\" in its prefix, which is "
                        "of ASCII letters, digits, \"_\" and \"-\""},
        bad_description{"journal:a,size=1",
                        "the sink journal:a,size=1 has the option \"size=1\"; its "
                        "options are max-size=SIZE, keep=TIME, keep-size=SIZE and compress=zstd"},
        bad_description{"journal:a,max-size=1,",
                        "the sink journal:a,max-size=1, has the option \"\"; its "
                        "options are max-size=SIZE, keep=TIME, keep-size=SIZE and compress=zstd"},
        bad_description{"journal:a,compress=gzip",
                        "the sink journal:a,compress=gzip has the option \"compress=gzip\"; its "
                        "options are max-size=SIZE, keep=TIME, keep-size=SIZE and compress=zstd"},
        bad_description{"journal:a,keep=90",
                        "the sink journal:a,keep=90 has the duration \"90\"; a duration is a "
                        "number from 1 with d, h, m or s behind it, and at most 36500d"},
        bad_description{"journal:a,keep-size=0",
                        "the sink journal:a,keep-size=0 has the size \"0\"; a "
                        "size is a number from 1, with K, M or G behind it "
                        "or nothing"},
        bad_description{"journal:a,max-size=1,max-size=2",
                        "the sink journal:a,max-size=1,max-size=2 has the option "
                        "\"max-size=2\" and another of it"},
        bad_description{"journal:a,max-size",
                        "the sink journal:a,max-size has the size \"\"; a "
                        "size is a number from 1, with K, M or G behind it "
                        "or nothing"},
        bad_description{"json:", "the sink json: lacks the name of its file"},
        bad_description{"json:logs/", "the sink json:logs/ lacks the name of its file"}));

TEST_F(RecordSink, SizesThatAreNone) {
  for (const char* size : {"", "K", "-1", "+1", "1.5M", "1T", "64 M", "1KM", "0x10", "0G",
                           "18446744073709551615", "99999999999999999999", "17179869184G"})
    EXPECT_THAT(raised_by<std::invalid_argument>([&] { text(std::string(",max-size=") + size); }),
                HasSubstr(" has the size \"" + std::string(size) + "\""));
}

TEST_F(RecordSink, SizesHaveUnits) {
  for (const char* size : {"1", "1K", "64M", "2G", "9223372036854775807"})
    EXPECT_NE(text(std::string(",max-size=") + size), nullptr) << size;
}

TEST_F(RecordSink, NamesThatLeaveNoRoomForTheirEndings) {
  const std::string longest(200, 'a');
  const auto sink = make("text:" + file(longest));
  write(*sink, {"m"});
  EXPECT_EQ(content(longest + ".20261115.0001"), line("m"));
  const std::string name = file(longest + "a");
  EXPECT_EQ(raised_by<std::invalid_argument>([&] { make("text:" + name); }),
            "the sink text:" + name + " has a prefix of 201 bytes; at most 200 are possible");
}

TEST_F(RecordSink, AFolderMayHaveCommas) {
  fs::create_directory(file("a,b"));
  const auto sink = make("text:" + file("a,b/app,max-size=1K"));
  write(*sink, {"m"});
  EXPECT_EQ(content("a,b/app.20261115.0001"), line("m"));
}

TEST_F(RecordSink, AFolderThatIsNotThere) {
  for (const std::string kind : {"text:", "json:"})
    EXPECT_EQ(raised_by<file_error>([&] { make(kind + file("none/app")); }),
              "cannot open the folder " + file("none") + ": No such file or directory");
  folder_.write("plain", "");
  EXPECT_EQ(raised_by<file_error>([&] { make("text:" + file("plain/app")); }),
            "cannot open the folder " + file("plain") + ": Not a directory");
}

TEST_F(RecordSink, WhatTheyAppendTo) {
  const auto shown = [](const char* sink) {
    const sink_path path = path_of_sink(sink);
    return (path.has_dated_files ? "logs " : "") + path.path + std::string(path.ending);
  };
  EXPECT_EQ(shown("-"), "");
  EXPECT_EQ(shown("json:-"), "");
  EXPECT_EQ(shown("json:a/b,c"), "a/b,c");
  EXPECT_EQ(shown("text:logs/app"), "logs logs/app");
  EXPECT_EQ(shown("text:a,b/app,max-size=1M"), "logs a,b/app");
  EXPECT_EQ(shown("journal:a,b/app,max-size=1M"), "logs a,b/app.jsonl");
}

TEST_F(RecordSink, CodePagesThatTextCannotBeIn) {
  options_.code_page = "UTF-16";
  EXPECT_THAT(raised_by<std::invalid_argument>([&] { text(); }), HasSubstr("UTF-16"));
  EXPECT_THAT(raised_by<std::invalid_argument>([&] { make("-"); }), HasSubstr("UTF-16"));
  EXPECT_NE(make("json:-"), nullptr);
}

// --- Text logs ---

TEST_F(RecordSink, ATextLogsLineHasTimeLevelNameAndMessage) {
  const auto sink = text();
  entries_.add(*sink, "日本 says\thi\nand \x1b[1m", "2026-11-15T17:02:56+08:00");
  entries_.made.entry.SetLogLevel(9);
  entries_.event.name = "";
  entries_.add(*sink, "", "2026-11-15T17:02:07Z");
  entries_.event.name = "A\nB";
  entries_.add(*sink, "m", "2026-11-15T17:02:08-00:30");
  EXPECT_EQ(files().size(), 0U);
  sink->write(false);
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001"));
  EXPECT_EQ(content("app.20261115.0001"),
            "2026-11-15T17:02:56+08:00 3 M17 日本 says\thi\\x0Aand \\x1B[1m\n"
            "2026-11-15T17:02:07Z 9 17 \n"
            "2026-11-15T17:02:08-00:30 9 A\\x0AB m\n");
}

TEST_F(RecordSink, TimesAreAsTheyArePrinted) {
  const auto sink = text();
  const std::vector<const char*> times = {"2026-11-15T17:02:56+08:00", "2026-11-15T17:02:57+08:00",
                                          "2026-11-15T17:03:57+08:00", "2026-11-15T18:03:57+08:00",
                                          "2026-11-15T18:03:57+09:00", "2026-11-15T18:03:57Z",
                                          "2026-11-15T18:03:00Z"};
  std::string expected;
  for (const char* time : times) {
    entries_.add(*sink, "m", time);
    expected += std::string(time) + " 3 M17 m\n";
  }
  sink->write(false);
  EXPECT_EQ(content("app.20261115.0001"), expected);
}

TEST_F(RecordSink, TextIsWrittenInTheCodePage) {
  options_.code_page = "ISO-8859-1";
  const auto sink = text();
  write(*sink, {"Größe 日"});
  EXPECT_EQ(content("app.20261115.0001"), line("Gr\xF6\xDF"
                                               "e \\u{65E5}"));
}

TEST_F(RecordSink, PendingCountsTheBytesGathered) {
  const auto sink = text();
  EXPECT_EQ(sink->pending(), 0U);
  entries_.add(*sink, "m");
  entries_.add(*sink, "m", "2026-11-16T17:02:56+08:00");
  EXPECT_EQ(sink->pending(), 2 * line("m").size());
  sink->write(false);
  EXPECT_EQ(sink->pending(), 0U);
}

TEST_F(RecordSink, AnEmptyBatchMakesNoFile) {
  text()->write(true);
  make("json:" + file("a.json"))->write(true);
  EXPECT_THAT(files(), ElementsAre());
}

TEST_F(RecordSink, EachDayHasItsLog) {
  const auto sink = text();
  entries_.add(*sink, "late", "2026-11-15T23:59:59+08:00");
  entries_.add(*sink, "early", "2026-11-16T00:00:00+08:00");
  entries_.add(*sink, "later than it seems", "2026-11-15T23:59:59+08:00");
  sink->write(false);
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001", "app.20261116.0001"));
  EXPECT_EQ(content("app.20261115.0001"),
            "2026-11-15T23:59:59+08:00 3 M17 late\n"
            "2026-11-15T23:59:59+08:00 3 M17 later than it seems\n");
  EXPECT_EQ(content("app.20261116.0001"), "2026-11-16T00:00:00+08:00 3 M17 early\n");
}

TEST_F(RecordSink, ALogTakesLinesUpToItsSizeExactly) {
  const std::string two = line("a") + line("b");
  const auto sink = text(",max-size=" + std::to_string(two.size()));
  write(*sink, {"a", "b", "c"});
  EXPECT_EQ(content("app.20261115.0001"), two);
  EXPECT_EQ(content("app.20261115.0002"), line("c"));
  write(*sink, {"d"});
  EXPECT_EQ(content("app.20261115.0002"), line("c") + line("d"));
  write(*sink, {"e"});
  EXPECT_EQ(content("app.20261115.0003"), line("e"));
}

TEST_F(RecordSink, OneByteLessIsTheNextLog) {
  const auto sink = text(",max-size=" + std::to_string(2 * line("a").size() - 1));
  write(*sink, {"a", "b"});
  EXPECT_EQ(content("app.20261115.0001"), line("a"));
  EXPECT_EQ(content("app.20261115.0002"), line("b"));
}

TEST_F(RecordSink, ALineLongerThanALogHasOneOfItsOwn) {
  const auto sink = text(",max-size=" + std::to_string(line("a").size()));
  write(*sink, {"a", "longer", "longest one", "b"});
  EXPECT_EQ(content("app.20261115.0001"), line("a"));
  EXPECT_EQ(content("app.20261115.0002"), line("longer"));
  EXPECT_EQ(content("app.20261115.0003"), line("longest one"));
  EXPECT_EQ(content("app.20261115.0004"), line("b"));
}

TEST_F(RecordSink, GoesOnWithTheHighestSerialOfTheDay) {
  folder_.write("app.20261114.0009", "");
  folder_.write("app.20261115.0002", "old\n");
  folder_.write("app.20261115.0007", "old\n");
  folder_.write("app.20261115.0005.gz", "");
  folder_.write("apple.20261115.0012", "");
  const auto sink = text();
  write(*sink, {"m"});
  EXPECT_EQ(content("app.20261115.0007"), "old\n" + line("m"));
  EXPECT_EQ(content("app.20261115.0002"), "old\n");
}

TEST_F(RecordSink, EachDayOfABatchGoesOnWithItsOwnSerial) {
  folder_.write("app.20261114.0009", "");
  folder_.write("app.20261115.0002", "");
  const auto sink = text();
  const auto add_days = [&] {
    for (const char* day : {"14", "15", "16", "17"})
      entries_.add(*sink, "m", (std::string("2026-11-") + day + "T00:00:00+08:00").c_str());
  };
  add_days();
  sink->write(false);
  folder_.write("app.20261116.0002", "");
  fs::remove(file("app.20261115.0002"));
  add_days();
  sink->write(false);
  EXPECT_THAT(files(), ElementsAre("app.20261114.0009", "app.20261115.0001", "app.20261116.0001",
                                   "app.20261116.0002", "app.20261117.0001"));
}

TEST_F(RecordSink, LastSerialOfADayTakesAllThatComes) {
  folder_.write("app.20261115.9998", "x\n");
  const auto sink = text(",max-size=1");
  for (int round = 0; round < 2; ++round) {
    write(*sink, {"one", "two"});
    write(*sink, {"three"});
  }
  EXPECT_THAT(files(), ElementsAre("app.20261115.9998", "app.20261115.9999"));
  EXPECT_EQ(content("app.20261115.9998"), "x\n");
  const std::string log = content("app.20261115.9999");
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 6);
}

TEST_F(RecordSink, FollowsTheSerialThatAnotherProcessBegan) {
  const auto sink = text();
  write(*sink, {"a"});
  folder_.write("app.20261115.0002", "theirs\n");
  folder_.write("app.20261115.0003", "theirs\n");
  write(*sink, {"b"});
  EXPECT_EQ(content("app.20261115.0001"), line("a"));
  EXPECT_EQ(content("app.20261115.0003"), "theirs\n" + line("b"));
}

TEST_F(RecordSink, FilesHaveTheirModesWhateverTheUmask) {
  for (const mode_t mask : {0000U, 0022U, 0077U}) {
    const mode_t before = umask(mask);
    const std::string prefix = "m" + std::to_string(mask);
    const auto sink = make("text:" + file(prefix));
    write(*sink, {"m"});
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(file(prefix + ".20261115.0001").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    ASSERT_EQ(stat(file(prefix + "_lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
  }
}

TEST_F(RecordSink, SynchronisedBatchesReadTheSame) {
  const auto sink = text(",max-size=1");
  entries_.add(*sink, "a");
  entries_.add(*sink, "b");
  sink->write(true);
  EXPECT_EQ(content("app.20261115.0001"), line("a"));
  EXPECT_EQ(content("app.20261115.0002"), line("b"));
}

// --- JSON ---

TEST_F(RecordSink, TheStoredFormIsOneLineWithEveryAttribute) {
  kp_LOG_LogEntry& entry = entries_.made.entry;
  kp_Time time;
  ASSERT_TRUE(time.set_to_string_value("2026-11-15T17:02:56+08:00"));
  entry.AddAttribBool("A1", true);
  entry.AddAttrib1u("A2", 255);
  entry.AddAttrib1("A3", -128);
  entry.AddAttrib2u("A4", 65535);
  entry.AddAttrib2("A5", -32768);
  entry.AddAttrib4u("A6", 4294967295U);
  entry.AddAttrib4("A7", -2147483647 - 1);
  entry.AddAttribFloat8("A8", 0.1);
  entry.AddAttribStr("A9", "a\"b\\c/");
  entry.AddAttribMBStr("A15", "日本\x1b\u202E\u0085");
  entry.AddAttribTime("A21", time);
  entry.AddAttribTime("A22", time);
  entry.AddAttribTime("A23", time);
  entries_.made.message_index = 2;
  const auto sink = make("json:" + file("a.json"));
  write(*sink, {"a\tb\nc\xFF"});
  EXPECT_EQ(
      content("a.json"),
      R"({"version":"2.0","event":17,"name":"M17","level":3,"time":"2026-11-15T17:02:56+08:00",)"
      R"("attributes":{"A1":true,"A2":255,"A3":-128,"A4":65535,"A5":-32768,"A6":4294967295,)"
      R"("A7":-2147483648,"A8":0.1,"A9":"a\"b\\c/","A15":"日本\u001B\u202E\u0085",)"
      R"("A21":"2026-11-15T17:02:56+08:00","A22":"2026-11-15T17:02:56+08:00",)"
      R"("A23":"2026-11-15T17:02:56+08:00"},)"
      R"("types":{"A1":"Bool","A2":"UInt1","A3":"SInt1","A4":"UInt2","A5":"SInt2","A6":"UInt4",)"
      R"("A7":"SInt4","A8":"Float","A9":"Char32","A15":"MBChar32","A21":"Date","A22":"Time",)"
      R"("A23":"Timestamp"},"message_index":2,"message":"a\tb\nc\uFFFD"})"
      "\n");
}

TEST_F(RecordSink, TheStoredFormWithoutAttributesOrName) {
  entries_.event.name = "";
  const auto sink = make("json:" + file("a.json"));
  write(*sink, {""});
  EXPECT_EQ(content("a.json"),
            R"({"version":"2.0","event":17,"level":3,"time":"2026-11-15T17:02:56+08:00",)"
            R"("attributes":{},"types":{},"message_index":0,"message":""})"
            "\n");
}

TEST_F(RecordSink, FloatsAreTheShortestThatReadTheSame) {
  const std::vector<std::pair<double, const char*>> values = {
      {0.0, "0"},
      {-0.0, "-0.0"},
      {1e300, "1e+300"},
      {5.0, "5"},
      {1.0 / 3, "0.3333333333333333"},
      {std::numeric_limits<double>::denorm_min(), "5e-324"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {std::numeric_limits<double>::infinity(), "\"Infinity\""},
      {-std::numeric_limits<double>::infinity(), "\"-Infinity\""},
      {std::numeric_limits<double>::quiet_NaN(), "\"NaN\""}};
  const auto sink = make("json:" + file("a.json"));
  for (const auto& [value, text] : values) {
    entries_.made.entry.AddAttribFloat8("A8", value);
    write(*sink, {"m"});
    EXPECT_THAT(lines_of(file("a.json")).back(),
                HasSubstr("\"attributes\":{\"A8\":" + std::string(text) + "}"));
  }
}

TEST_F(RecordSink, JsonIsAppendedUnderALockOfTheFilesName) {
  const auto first = make("json:" + file("a.json"));
  const auto second = make("json:" + file("a.json"));
  write(*first, {"1"});
  write(*second, {"2"});
  write(*first, {"3"});
  EXPECT_EQ(lines_of(file("a.json")).size(), 3U);
  EXPECT_TRUE(fs::exists(file("a.json_lock")));
}

TEST_F(RecordSink, AnUnfinishedJsonLineIsCutOffAtOnce) {
  for (const char* tail : {"{", "{\"vers", "{\"version\":\"2.0\",\"event\":17,\"mess"}) {
    folder_.write("a.json", std::string("{\"version\":1}\n") + tail);
    make("json:" + file("a.json"));
    EXPECT_EQ(content("a.json"), "{\"version\":1}\n") << tail;
  }
}

TEST_F(RecordSink, AFileOfSomethingElseIsNotCut) {
  for (const std::string other : {"my notes", "a\nb", "{\"versionen\"", "\n\n{}"}) {
    folder_.write("notes", other);
    EXPECT_THAT(raised_by<file_error>([&] { make("json:" + file("notes")); }),
                HasSubstr("cannot append to " + file("notes") + ": its last "));
    EXPECT_EQ(content("notes"), other);
  }
}

// --- Standard output ---

// Standard output as another file, for a scope.
class redirected_output {
 public:
  explicit redirected_output(int target) : before_(dup(STDOUT_FILENO)) {
    fflush(stdout);
    dup2(target, STDOUT_FILENO);
  }
  ~redirected_output() {
    dup2(before_, STDOUT_FILENO);
    close(before_);
  }
  redirected_output(const redirected_output&) = delete;
  redirected_output& operator=(const redirected_output&) = delete;

 private:
  int before_;
};

TEST_F(RecordSink, StandardOutputTakesMessagesOrTheStoredForm) {
  const int out = open(file("out").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  {
    const redirected_output redirected(out);
    write(*make("-"), {"a\nb", "日"});
    write(*make("json:-"), {"c"});
  }
  close(out);
  EXPECT_EQ(content("out"),
            "a\\x0Ab\n日\n"
            R"({"version":"2.0","event":17,"name":"M17","level":3,)"
            R"("time":"2026-11-15T17:02:56+08:00","attributes":{},"types":{},)"
            R"("message_index":0,"message":"c"})"
            "\n");
}

TEST_F(RecordSink, StandardOutputThatIsFull) {
  const auto sink = make("-");
  entries_.add(*sink, "m");
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  std::string error;
  {
    const redirected_output redirected(full);
    error = write_error(*sink);
  }
  close(full);
  EXPECT_EQ(error, "cannot write to standard output: No space left on device");
  EXPECT_EQ(sink->pending(), 2U);
}

TEST_F(RecordSink, StandardOutputThatTakesNothingAtTheMomentIsWaitedFor) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const std::string message(300000, 'm');
  std::string got;
  std::thread reader([&] {
    fcntl(ends[0], F_SETFL, 0);
    std::vector<char> block(4096);
    for (ssize_t n = 0;
         got.size() <= message.size() && (n = read(ends[0], block.data(), block.size())) > 0;)
      got.append(block.data(), static_cast<size_t>(n));
  });
  {
    const redirected_output redirected(ends[1]);
    write(*make("-"), {message});
  }
  reader.join();
  close(ends[0]);
  close(ends[1]);
  EXPECT_EQ(got, message + "\n");
}

// --- What can be read again ---

TEST(StoredForm, RefusesWhatWouldBeLongerThanLinesThatAreRead) {
  const sink_entries entries;
  stored_form form("2.0");
  const auto fault = [&](const std::string& message) -> std::string {
    const sink_entry entry{.made = entries.made, .message = message, .time = {}};
    try {
      form.require_readable(entry, "{}");
    } catch (const record_error& error) {
      return error.what() + std::string(": ") + error.text();
    }
    return "";
  };
  std::string line;
  form.append(line, {.made = entries.made, .message = "", .time = {}});
  const size_t room = stored_record_size_limit - line.size();
  EXPECT_EQ(fault(std::string(room, 'x')), "");
  EXPECT_EQ(fault(std::string(room + 1, 'x')),
            "record-message: its stored form would have 16777217 bytes, and at most 16777216 are "
            "read again");
}
