// kplog emit, from outside: sinks, options, errors.
#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/command/emit_fixture.h"
#include "tests/command/golden_file.h"
#include "tests/support/counter_folder.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class EmitCommand : public testing::Test {
 protected:
  emit_folder folder_;
};

// --- Sinks

// The library keeps 128 definitions, and loads one of both files again as the AUX file has it.
TEST_F(EmitCommand, RecordOfAnEventThatTheLibraryForgotEndsNothing) {
  std::string std_source = "kplog: 1\nlog_version: \"1\"\nevents:\n";
  std::string aux_source = std_source;
  std::string records;
  for (int id = 1; id <= 200; ++id) {
    const std::string event = "  E" + std::to_string(id) + ": {id: " + std::to_string(id);
    std_source += event + ", attributes: {S: UInt1}}\n";
    aux_source += event + ", attributes: {A: UInt1}}\n";
    records += "{\"event\":" + std::to_string(id) + ",\"attributes\":{\"A\":1}}\n";
  }
  folder_.write("std.yaml", std_source);
  folder_.write("aux.yaml", aux_source);
  ASSERT_EQ(run_kplog(folder_.path(), "compile -q std.yaml -o events.ldf").status, 0);
  ASSERT_EQ(run_kplog(folder_.path(), "compile -q aux.yaml --std std.yaml -o aux.ldf").status, 0);
  const std::string bad = R"({"event":1,"attributes":{"S":1}})"
                          "\n";
  const auto run = folder_.emit_text("--aux aux.ldf --to json:out", records + records + bad);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("401:30: error[record-value]: \"S\": "));
  const std::string out = folder_.text("out");
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 400);
  EXPECT_THAT(out, HasSubstr(R"("attributes":{"A":1},"types":{"A":"UInt1"})"));
}

TEST_F(EmitCommand, MessagesGoToStandardOutput) {
  const auto run = folder_.emit_text("-q --to -", login_record("alice", 22) + note_record("hello"));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, "alice logged in on port 22\nhello\n");
}

TEST_F(EmitCommand, TextLogsHaveTimeLevelNameAndMessage) {
  const auto run = folder_.emit_text("-q --to text:./shop", login_record("alice", 22));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(folder_.text("shop.20261115.0001"),
            "2026-11-15T17:02:56+08:00 3 USER_LOGIN alice logged in on port 22\n");
}

TEST_F(EmitCommand, StoredFormIsInputAgain) {
  ASSERT_EQ(folder_.emit_text("-q --to json:first", login_record("alice", 22)).status, 0);
  const auto stored = nlohmann::json::parse(folder_.text("first"));
  EXPECT_EQ(stored["event"], 1001);
  EXPECT_EQ(stored["name"], "USER_LOGIN");
  EXPECT_EQ(stored["level"], 3);
  EXPECT_EQ(stored["time"], "2026-11-15T17:02:56+08:00");
  EXPECT_EQ(stored["message"], "alice logged in on port 22");
  const auto again = folder_.emit("-q --to json:- first");
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(again.out, folder_.text("first"));
}

TEST_F(EmitCommand, StoredFormKeepsWhereARecordCameFrom) {
  const std::string origin =
      R"("recorded":"2026-11-15T17:02:56.123456789+08:00","host":"a\tb","recorder":"0f3a","pid":12,)"
      R"("thread":18446744073709551615,"sequence":1,)";
  const auto run = folder_.emit_text(
      "-q --to json:first",
      R"({"sequence":1,"host":"a\u0009b","thread":18446744073709551615,"pid":12,"event":1002,)"
      R"("recorder":"0f3a","recorded":"2026-11-15T17:02:56.123456789+08:00",)"
      R"("time":"2026-11-15T17:02:56+08:00"})"
      "\n");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(folder_.text("first"),
              HasSubstr(R"("time":"2026-11-15T17:02:56+08:00",)" + origin + R"("attributes":)"));
  EXPECT_EQ(folder_.emit("-q --to json:- first").out, folder_.text("first"));
}

static constexpr const char* lost_record =
    R"({"version":"2.0","event":0,"name":"kplog.lost","level":3,"time":"2026-11-15T17:02:56+08:00",)"
    R"("recorder":"0f3a","sequence":8,"attributes":{"COUNT":17,"REASON":"full"},)"
    R"("types":{"COUNT":"UInt4","REASON":"MBChar64"},"message_index":0,)"
    R"("message":"17 events were lost: full"})"
    "\n";

TEST_F(EmitCommand, LostEventsAreTakenWhateverTheDefinitionsAre) {
  const auto run = folder_.emit_text("--to json:stored --to text:./shop", lost_record);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("kplog.lost (0)     1        1         0    0\n"));
  EXPECT_EQ(folder_.text("stored"), lost_record);
  EXPECT_EQ(folder_.text("shop.20261115.0001"),
            "2026-11-15T17:02:56+08:00 3 kplog.lost 17 events were lost: full\n");
}

TEST_F(EmitCommand, LostEventsPassEveryFilterAndAreNotCounted) {
  const auto run = folder_.emit_text("-q --min-level 5 --mask 1 --to - --count ./shop",
                                     login_record("alice", 22) + lost_record);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "17 events were lost: full\n");
  EXPECT_EQ(folder_.text("shop.cnt"), "");
}

TEST_F(EmitCommand, SeveralSinksGetEveryRecord) {
  const auto run = folder_.emit_text("-q --to text:./shop --to json:stored --to -",
                                     login_record("alice", 22) + login_record("bob", 23));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "alice logged in on port 22\nbob logged in on port 23\n");
  EXPECT_EQ(folder_.text("shop.20261115.0001"),
            "2026-11-15T17:02:56+08:00 3 USER_LOGIN alice logged in on port 22\n"
            "2026-11-15T17:02:56+08:00 3 USER_LOGIN bob logged in on port 23\n");
  EXPECT_THAT(folder_.text("stored"), AllOf(HasSubstr("alice"), HasSubstr("bob")));
}

TEST_F(EmitCommand, EachDayHasItsLogs) {
  const auto run = folder_.emit_text("-q --to text:./shop",
                                     note_record("before", "2026-11-15T23:59:59+08:00") +
                                         note_record("after", "2026-11-16T00:00:00+08:00"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(folder_.text("shop.20261115.0001"), HasSubstr("before\n"));
  EXPECT_THAT(folder_.text("shop.20261116.0001"), HasSubstr("after\n"));
}

TEST_F(EmitCommand, CodePageIsThatOfText) {
  const auto run = folder_.emit_text("-q --to - --codepage ISO-8859-1", note_record("é€"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "\xE9\\u{20AC}\n");
}

TEST_F(EmitCommand, EntriesAreCountedByDayAndEvent) {
  const std::string records =
      login_record("a", 1) + login_record("b", 2) + note_record("c", "2026-11-16T00:00:00+08:00");
  EXPECT_EQ(folder_.emit_text("-q --to text:./shop --count ./shop", records).status, 0);
  EXPECT_EQ(folder_.emit_text("-q --to text:./shop --count ./shop.cnt", records).status, 0);
  const std::string counts = folder_.text("shop.cnt");
  EXPECT_EQ(count_in(counts, 2026, 11, 15, 1001), 4);
  EXPECT_EQ(count_in(counts, 2026, 11, 16, 1003), 2);
  EXPECT_EQ(counts.size(), 64u);
}

TEST_F(EmitCommand, CountsGoOnWithTheFirstRecordOfTheirKey) {
  const std::string others = counter_record(2026, 11, 14, 1001, 5) + free_counter_slot();
  const std::string second = counter_record(2026, 11, 15, 1001, 100);
  folder_.write("c.cnt", others + counter_record(2026, 11, 15, 1001, 4294967290u) + second);
  const std::string records = login_record("a", 1) + login_record("b", 2);
  EXPECT_EQ(folder_.emit_text("-q --to text:./shop --count ./c", records).status, 0);
  EXPECT_EQ(folder_.text("c.cnt"),
            others + counter_record(2026, 11, 15, 1001, 4294967292u) + second);
}

TEST_F(EmitCommand, CountsStayAtTheLargestNumberOfARecord) {
  folder_.write("c.cnt", counter_record(2026, 11, 15, 1001, 4294967294u));
  const std::string records = login_record("a", 1) + login_record("b", 2) + login_record("c", 3);
  EXPECT_EQ(folder_.emit_text("-q --to text:./shop --count ./c", records).status, 0);
  EXPECT_EQ(folder_.text("c.cnt"), counter_record(2026, 11, 15, 1001, 4294967295u));
}

TEST_F(EmitCommand, CountersHaveTheirModeWhateverTheUmask) {
  for (const char* mask : {"000", "077"}) {
    const std::string name = std::string("c") + mask;
    folder_.write("input", note_record("a"));
    const auto run = folder_.emit("-q --to text:./shop --count " + name + " input",
                                  std::string("umask ") + mask + " && ");
    EXPECT_EQ(run.status, 0) << run.err;
    struct stat status {};
    ASSERT_EQ(stat(folder_.path(name + ".cnt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
  }
}

TEST_F(EmitCommand, CountsAreKeptInRegularFilesAlone) {
  ASSERT_EQ(mkfifo(folder_.path("fifo.cnt").c_str(), 0600), 0);
  ASSERT_EQ(symlink("victim", folder_.path("link.cnt").c_str()), 0);
  folder_.write("one.cnt", "");
  std::filesystem::create_hard_link(folder_.path("one.cnt"), folder_.path("two.cnt"));
  for (const usage_case& one : std::vector<usage_case>{
           {"fifo", "kplog: cannot count in fifo.cnt: it is not a regular file\n"},
           {"link", "kplog: cannot count in link.cnt: Too many levels of symbolic links\n"},
           {"two",
            "kplog: cannot count in two.cnt: it has 2 names (hard links), and may have one\n"}}) {
    const auto run =
        folder_.emit_text("-q --to - --count " + std::string(one.arguments), note_record("a"));
    EXPECT_EQ(run.status, 3) << one.arguments;
    EXPECT_EQ(run.out, "") << one.arguments;
    EXPECT_EQ(run.err, one.text);
    EXPECT_FALSE(std::filesystem::exists(folder_.path(one.arguments + std::string("_lock"))));
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.path("victim")));
}

TEST_F(EmitCommand, SyncedRunsWriteTheSame) {
  const auto run = folder_.emit_text("-q --sync --to text:./shop --to json:s --count ./c",
                                     login_record("alice", 22));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(folder_.text("shop.20261115.0001"),
            "2026-11-15T17:02:56+08:00 3 USER_LOGIN alice logged in on port 22\n");
}

TEST_F(EmitCommand, MessagesComeInTheLanguageOfTheCatalog) {
  folder_.write("de.po",
                "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; charset=UTF-8\\n\"\n"
                "msgctxt \"USER_LOGIN\"\nmsgid \"{USER_NAME} logged in on port {PORT}\"\n"
                "msgstr \"{USER_NAME} kam durch {PORT}\"\n");
  const auto built =
      run_kplog(folder_.path(), "catalog build -q events.yaml --po de.po -o messages");
  ASSERT_EQ(built.status, 0) << built.err;
  folder_.write("input", login_record("alice", 22));
  const auto run = run_kplog(folder_.path(),
                             "emit -q --definitions events.ldf --catalog messages --locale de_DE "
                             "--to - input");
  EXPECT_EQ(run.out, "alice kam durch 22\n") << run.err;
}

// A catalog without the event.
TEST_F(EmitCommand, MessagesThatTheCatalogLacksAreThoseOfTheDefinition) {
  folder_.write("link.yaml",
                "kplog: 1\nlog_version: \"2.0\"\nevents: {LINK: {id: 1002, message: link}}\n");
  folder_.write(
      "de.po",
      "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; charset=UTF-8\\n\"\n");
  const auto built = run_kplog(folder_.path(), "catalog build -q link.yaml --po de.po -o messages");
  ASSERT_EQ(built.status, 0) << built.err;
  const std::string records = note_record("a") + note_record("b");
  const auto run = folder_.emit_text("-q --catalog messages --to json:stored", records);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "kplog: the catalog lacks a message of the event 1003 NOTE; the definition's own text "
            "is taken\n");
  EXPECT_THAT(folder_.text("stored"),
              HasSubstr("\"message\":\"a\",\"message_from\":\"definition\"}\n"));
  const auto again = folder_.emit("-q --to - stored");
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(again.out, "a\nb\n");
}

static size_t texts_in(const std::string& whole, const std::string& sought) {
  size_t count = 0;
  for (size_t at = whole.find(sought); at != std::string::npos; at = whole.find(sought, at + 1))
    ++count;
  return count;
}

// A catalog that has the event, but not all of its selector messages; and text logs.
TEST_F(EmitCommand, SelectorMessagesThatTheCatalogLacksAreThoseOfTheDefinition) {
  const std::string before =
      "kplog: 1\nlog_version: \"2.0\"\nevents:\n  SERVER:\n    id: 7\n    attributes: {STATE: "
      "UInt1}\n    message: \"state {STATE}\"\n    select: STATE\n    messages:\n"
      "      - {index: 1, value: 0, text: off}\n";
  folder_.write("before.yaml", before);
  folder_.write("now.yaml", before + "      - {index: 2, value: 1, text: \"it is on\"}\n");
  folder_.write("de.po",
                "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; charset=UTF-8\\n\"\n"
                "msgctxt \"SERVER\"\nmsgid \"state {STATE}\"\nmsgstr \"Zustand {STATE}\"\n"
                "msgctxt \"SERVER.1\"\nmsgid \"off\"\nmsgstr \"aus\"\n");
  ASSERT_EQ(run_kplog(folder_.path(), "catalog build -q before.yaml --po de.po -o messages").status,
            0);
  ASSERT_EQ(run_kplog(folder_.path(), "compile -q now.yaml -o now.ldf").status, 0);
  for (const char* member : {"\"attributes\":{\"STATE\":0}", "\"attributes\":{\"STATE\":1}",
                             "\"attributes\":{\"STATE\":1}", "\"attributes\":{\"STATE\":9}",
                             "\"attributes\":{\"STATE\":1},\"message_index\":1",
                             "\"attributes\":{\"STATE\":0},\"message_index\":2"})
    folder_.write("input", folder_.text("input") +
                               "{\"event\":7,\"time\":\"2026-11-15T17:02:56+08:00\"," + member +
                               "}\n");
  const auto run = run_kplog(folder_.path(),
                             "emit -q --definitions now.ldf --catalog messages --locale de_DE "
                             "--to text:log --to json:stored --to - input");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "kplog: the catalog lacks a message of the event 7 SERVER; the definition's own text "
            "is taken\n");
  EXPECT_EQ(run.out, "aus\nit is on\nit is on\nZustand 9\naus\nit is on\n");
  const std::string start = "2026-11-15T17:02:56+08:00 3 SERVER ";
  EXPECT_EQ(folder_.text("log.20261115.0001"), start + "aus\n" + start + "it is on\n" + start +
                                                   "it is on\n" + start + "Zustand 9\n" + start +
                                                   "aus\n" + start + "it is on\n");
  const std::string stored = folder_.text("stored");
  const std::string marked = "\"message\":\"it is on\",\"message_from\":\"definition\"}\n";
  EXPECT_EQ(std::count(stored.begin(), stored.end(), '\n'), 6);
  EXPECT_THAT(stored, HasSubstr("\"message\":\"aus\"}\n"));
  EXPECT_THAT(stored, HasSubstr("\"message\":\"Zustand 9\"}\n"));
  EXPECT_THAT(stored, HasSubstr("\"message_index\":2," + marked));
  EXPECT_EQ(texts_in(stored, "\"message_from\":\"definition\""), 3U);
}

// A catalog that has neither the locale nor any other that could stand for it.
TEST_F(EmitCommand, MessagesOfALocaleThatTheCatalogLacksAreThoseOfItsRoot) {
  folder_.write("de.po",
                "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; charset=UTF-8\\n\"\n"
                "msgctxt \"NOTE\"\nmsgid \"{TEXT}\"\nmsgstr \"Text: {TEXT}\"\n");
  ASSERT_EQ(run_kplog(folder_.path(), "catalog build -q events.yaml --po de.po -o messages").status,
            0);
  folder_.write("input", note_record("a"));
  const std::string emit = "emit -q --definitions events.ldf --catalog messages --locale ";
  EXPECT_EQ(run_kplog(folder_.path(), emit + "de_AT --to - input").out, "Text: a\n");
  const auto other =
      run_kplog(folder_.path(), emit + "ja_JP --to json:stored input", "export LC_ALL=C; ");
  EXPECT_EQ(other.status, 0);
  EXPECT_EQ(other.err, "");
  EXPECT_THAT(folder_.text("stored"), HasSubstr("\"message\":\"a\"}\n"));
  // Without that there is nothing to open, which is told before anything is read.
  std::filesystem::remove(folder_.path("messages/root.res"));
  const auto none =
      run_kplog(folder_.path(), emit + "ja_JP --to json:none input", "export LC_ALL=C; ");
  EXPECT_EQ(none.status, 3);
  EXPECT_THAT(none.err, StartsWith("kplog: messages: <KPX_logging_missing_resource> "));
  EXPECT_FALSE(std::filesystem::exists(folder_.path("none")));
}

// --- The filter

TEST_F(EmitCommand, LevelsAreFiltered) {
  const auto run =
      folder_.emit_text("-q --to - --min-level 2 --max-level 8 --count ./c", three_levels());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "level 5\n");
  EXPECT_EQ(folder_.text("c.cnt").size(), 32u);
}

TEST_F(EmitCommand, MaskLetsEventsPassThatShareAFlag) {
  const std::string records = login_record("alice", 22) +
                              R"({"event":"LINK_DOWN","attributes":{"LINK":"eth0"}})"
                              "\n" +
                              note_record("no flag");
  EXPECT_EQ(folder_.emit_text("-q --to - --mask 0x2", records).out, "alice logged in on port 22\n");
  EXPECT_EQ(folder_.emit_text("-q --to - --mask 1", records).out, "the link eth0 is down\n");
  EXPECT_EQ(folder_.emit_text("-q --to -", records).out,
            "alice logged in on port 22\nthe link eth0 is down\nno flag\n");
}

TEST_F(EmitCommand, ConfigurationComesBeforeOptions) {
  folder_.write("filter.conf", "[shop]\nLogLevelLow = 5\nLogLevelHigh = 9\n\n\n");
  EXPECT_EQ(
      folder_
          .emit_text("-q --to - --config filter.conf --section shop --max-level 1", three_levels())
          .out,
      "level 5\nlevel 9\n");
  EXPECT_EQ(folder_.emit_text("-q --to - --config filter.conf --max-level 1", three_levels()).out,
            "level 1\n");
}

TEST_F(EmitCommand, MaskOfTheConfigurationRejectsEventsWithoutFlags) {
  folder_.write("filter.conf", "[global]\nPropertyMask = 0xFFFFFFFF\n\n\n");
  const auto run = folder_.emit_text("-q --to - --config filter.conf",
                                     login_record("alice", 22) + note_record("no flag"));
  EXPECT_EQ(run.out, "alice logged in on port 22\n");
}

// --- Input

TEST_F(EmitCommand, FilesAreReadInTheirOrder) {
  folder_.write("a", note_record("first"));
  folder_.write("b", note_record("third"));
  folder_.write("input", note_record("second"));
  EXPECT_EQ(folder_.emit("-q --to - a - b < input").out, "first\nsecond\nthird\n");
}

TEST_F(EmitCommand, LineEndsAndEmptyLinesDoNotMatter) {
  std::string records = "\xEF\xBB\xBF" + note_record("a") + "\n \t \r\n" + note_record("b");
  records.insert(records.size() - 1, "\r");
  std::string last = note_record("c");
  last.pop_back();
  EXPECT_EQ(folder_.emit_text("-q --to -", records + last).out, "a\nb\nc\n");
}

// Before, between and behind others.
TEST_F(EmitCommand, CompressedFilesAreRead) {
  folder_.write("a", note_record("first") + note_record("second"));
  folder_.write("b", note_record("third"));
  const auto run = folder_.emit("-q --to - a.zst b a.zst", "zstd -q a && ");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "first\nsecond\nthird\nfirst\nsecond\n");
}

TEST_F(EmitCommand, LinesOfBlanksAreCounted) {
  const auto run = folder_.emit_text("-q --to -", "\n \t\r\nbad\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, StartsWith("<stdin>:3:1: error[record-syntax]: "));
}

TEST_F(EmitCommand, ContextIsStoredAndNotShown) {
  const std::string context = R"({"TEXT":"other","USER_NAME":1,"USER_NAME":2})";
  const auto run = folder_.emit_text(
      "-q --to text:./shop --to json:stored --to -",
      R"({"event":"NOTE","time":"2026-11-15T17:02:56.25+08:00","attributes":{"TEXT":"own"},)"
      R"("context": )" +
          context + "}\n");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "own\n");
  EXPECT_EQ(folder_.text("shop.20261115.0001"), "2026-11-15T17:02:56+08:00 3 NOTE own\n");
  EXPECT_THAT(folder_.text("stored"),
              HasSubstr(R"("time":"2026-11-15T17:02:56+08:00",)"
                        R"("recorded":"2026-11-15T17:02:56.25+08:00","context":)" +
                        context + R"(,"attributes":{"TEXT":"own"},"types":{"TEXT":"MBChar2K"},)"));
}

TEST_F(EmitCommand, PipesOfTheShellEnd) {
  folder_.write("input", note_record("piped"));
  const auto run = folder_.emit("-q --to - /dev/fd/3 3<&0", "cat input | ");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "piped\n");
}

TEST_F(EmitCommand, LineBeyondTheLimitIsOneBadRecord) {
  const std::string records =
      note_record("a") + std::string(3 << 20, 'x') + "\n" + note_record("b");
  const auto run = folder_.emit_text("-q --to -", records);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "a\nb\n");
  EXPECT_THAT(run.err, StartsWith("<stdin>:2:1: error[record-syntax]: the line is longer than "
                                  "1048576 bytes\nxxx"));
  EXPECT_LT(run.err.size(), 1000u);
  folder_.emit_text("-q --to - --on-error quarantine=bad", records);
  EXPECT_EQ(folder_.text("bad"), std::string(1 << 20, 'x') + "\n");
}

TEST_F(EmitCommand, LineOfTheLimitIsTaken) {
  std::string record = note_record("a");
  record.insert(1, std::string((1 << 20) + 1 - record.size(), ' '));
  EXPECT_EQ(folder_.emit_text("-q --to -", record).out, "a\n");
  record.insert(1, " ");
  EXPECT_EQ(folder_.emit_text("-q --to -", record).status, 1);
}

// --- Acknowledgements

TEST_F(EmitCommand, AcknowledgementsCountEveryRecord) {
  const auto run = folder_.emit_text("-q --ack --to text:./x", bad_records + "\n\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "5\n");
}

TEST_F(EmitCommand, LargeInputIsAcknowledgedInBatches) {
  std::string records;
  for (int i = 0; i < 20000; ++i) records += login_record("user", i);
  const auto run = folder_.emit_text("-q --ack --to text:./x", records);
  EXPECT_EQ(run.status, 0);
  std::istringstream numbers(run.out);
  int last = 0;
  int count = 0;
  for (int number = 0; numbers >> number; ++count) {
    EXPECT_GT(number, last);
    last = number;
  }
  EXPECT_EQ(last, 20000);
  EXPECT_GT(count, 3);
  EXPECT_LT(count, 40);
}

TEST_F(EmitCommand, LostReaderOfAcknowledgementsIsAnError) {
  const auto run = folder_.emit_text("-q --ack --to text:./x > /dev/full", note_record("a"));
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "kplog: cannot write to standard output: No space left on device\n");
}
