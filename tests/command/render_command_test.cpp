// kplog render, from outside.
#include <gmock/gmock.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static std::string package_history_folder() {
  return test_data_folder() + "/../../../examples/package_history";
}

static constexpr const char* shop_source = R"(kplog: 1
log_version: "2.0"
events:
  LOGIN:
    id: 1001
    attributes: {USER_NAME: MBChar64, PORT: UInt2}
    message: "{USER_NAME} came in by port {PORT}"
  LOGOUT: {id: 1002, message: "bye"}
  SILENT: {id: 1003, attributes: {COUNT: SInt4}, message: {id: ""}}
)";

class RenderCommand : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("shop.yaml", shop_source);
    run_well("compile -q shop.yaml -o shop.ldf");
  }

  void run_well(const std::string& arguments) {
    const auto run = run_kplog(folder_.path(), arguments, "export TZ=Asia/Singapore; ");
    ASSERT_EQ(run.status, 0) << arguments << '\n' << run.err;
  }

  command_result run(const std::string& arguments) {
    return run_kplog(folder_.path(), arguments, "export TZ=Asia/Singapore; ");
  }

  // The records as messages of the shop's definitions.
  command_result render(const std::string& records, const std::string& options = "-q",
                        const std::string& locale = "en_US") {
    folder_.write("records", records);
    return run("render --definitions shop.ldf --locale " + locale + " " + options + " records");
  }

  // Definitions and catalogs of the example package_history.
  void build_package_history() {
    run_well("compile -q " + package_history_folder() + "/package_history.yaml -o history.ldf");
    run_well("catalog build -q " + package_history_folder() + "/package_history.yaml --po " +
             package_history_folder() + "/messages/de.po --po " + package_history_folder() +
             "/messages/ja.po -o catalogs");
  }

  temp_folder folder_;
};

// --- messages

TEST_F(RenderCommand, ShowsLostEventsWhateverTheDefinitionsAre) {
  const auto run =
      render(R"({"event":0,"name":"kplog.lost","attributes":{"COUNT":17,"REASON":"full"}})"
             "\n"
             R"({"event":"kplog.lost","attributes":{"COUNT":17}})"
             "\n",
             "-q", "de_DE");
  EXPECT_EQ(run.out,
            "17 events were lost: full\n"
            "[event 0 kplog.lost: \"kplog.lost\" has the attributes \"COUNT\" and \"REASON\"] "
            "COUNT=17\n");
  EXPECT_EQ(run.status, 1);
}

TEST_F(RenderCommand, RecordsBecomeMessages) {
  const auto shown = render(
      "{\"event\":\"LOGIN\",\"attributes\":{\"USER_NAME\":\"alice\",\"PORT\":51234}}\n"
      "\n"
      "{\"version\":\"2.0\",\"event\":1002,\"name\":\"LOGOUT\",\"level\":3,"
      "\"time\":\"2026-11-15T17:02:56+08:00\",\"attributes\":{},\"types\":{},"
      "\"message_index\":0,\"message\":\"auf Wiedersehen\"}",
      "");
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.out, "alice came in by port 51234\nbye\n");
  EXPECT_EQ(shown.err, "kplog: 2 records: 2 rendered, 0 marked, 0 bad\n");
}

// What the demonstration stores in one language is told in each of them as if it were made there.
TEST_F(RenderCommand, StoredRecordsOfTheExampleAreToldInEachLanguageAndCodePage) {
  build_package_history();
  folder_.write(
      "records",
      R"({"event":"PACKAGE_INSTALL","time":"2026-11-15T17:02:56+08:00","attributes":{"PACKAGE":"tea-timer","VERSION":"1.4-2"}})"
      "\n"
      R"({"event":102,"time":"2026-03-02T09:15:04Z","attributes":{"PACKAGE":"お茶","OLD_VERSION":"1","VERSION":"2"}})"
      "\n"
      R"({"event":108,"time":"2026-11-15T23:59:59-03:30","attributes":{"PACKAGE":"tea-timer","VERSION":"1.4-2","STATE":7}})"
      "\n");
  const std::string set = " --definitions history.ldf --catalog catalogs ";
  run_well("emit -q" + set + "--locale en_US --to json:stored records");
  std::string english;
  for (const char* locale : {"en_US", "de_DE", "ja_JP"}) {
    for (const char* code_page : {"UTF-8", "EUC-JP", "Shift_JIS"}) {
      const std::string how = set + "--locale " + locale + " --codepage " + code_page + " ";
      const auto told = run("emit -q" + how + "--to - records");
      const auto again = run("render -q" + how + "stored");
      EXPECT_EQ(again.status, 0) << how << again.err;
      EXPECT_EQ(again.err, "");
      EXPECT_EQ(again.out, told.out) << how;
      EXPECT_NE(again.out, "");
      if (english.empty()) english = again.out;
    }
  }
  EXPECT_THAT(english, HasSubstr(": upgrading お茶 from version 1 to 2\n"));
  EXPECT_THAT(run("render -q" + set + "--locale de_DE stored").out,
              StartsWith("15.11.2026, 17:02:56: "));
  EXPECT_THAT(run("render -q" + set + "--locale ja_JP stored").out,
              HasSubstr(" お茶 をバージョン 1 から 2 に更新します\n"));
  EXPECT_THAT(run("render -q" + set + "--locale ja_JP --codepage EUC-JP stored").out,
              HasSubstr(" \xA4\xAA\xC3\xE3 "));
  EXPECT_THAT(run("render -q" + set + "--locale ja_JP --codepage Shift_JIS stored").out,
              HasSubstr(" \x82\xA8\x92\x83 "));
}

static constexpr const char* every_type_source = R"(kplog: 1
log_version: "2.0"
events:
  NUMBERS:
    id: 1
    attributes: {B: Bool, U1: UInt1, S1: SInt1, U2: UInt2, S2: SInt2, U4: UInt4, S4: SInt4, F: Float}
    message: "{U1} {S1} {U2} {S2} {U4} {S4} {F}"
  TEXTS:
    id: 2
    attributes: {A: Char32, B: Char64, C: Char128, D: Char256, E: Char1K, F: Char2K}
    message: "{A} {B} {C} {D} {E} {F}"
  WIDE_TEXTS:
    id: 3
    attributes: {A: MBChar32, B: MBChar64, C: MBChar128, D: MBChar256, E: MBChar1K, F: MBChar2K}
    message: "{A} {B} {C} {D} {E} {F}"
  TIMES:
    id: 4
    attributes: {T: Timestamp, D: Date, H: Time}
    message: "{T:date} {T:time} {D:date} {H:time}"
)";

static constexpr const char* every_type_records =
    R"({"event":1,"attributes":{"B":true,"U1":255,"S1":-128,"U2":65535,"S2":-32768,"U4":4294967295,"S4":-2147483648,"F":-0.1}})"
    "\n"
    R"({"event":1,"attributes":{"B":false,"U1":0,"S1":127,"U2":0,"S2":32767,"U4":0,"S4":2147483647,"F":1e300}})"
    "\n"
    R"({"event":1,"attributes":{"B":false,"U1":0,"S1":0,"U2":0,"S2":0,"U4":0,"S4":0,"F":"-Infinity"}})"
    "\n"
    R"({"event":2,"attributes":{"A":"a","B":"","C":"\\n","D":"ä","E":"日本","F":"\"{0}'%"}})"
    "\n"
    R"({"event":3,"attributes":{"A":"é","B":"\ud83d\ude00","C":"日本","D":"a\tb","E":"\u202e","F":"x\ny"}})"
    "\n"
    R"({"event":4,"attributes":{"T":"2026-11-15T17:02:56+08:00","D":"2024-02-29","H":"2026-11-15T09:02:56Z"}})"
    "\n";

TEST_F(RenderCommand, RecordsOfEveryTypeAreToldAsWhenTheyWereMade) {
  folder_.write("types.yaml", every_type_source);
  folder_.write("records", every_type_records);
  run_well("compile -q types.yaml -o types.ldf");
  run_well("emit -q --definitions types.ldf --locale en_US --to json:stored records");
  for (const char* locale : {"en_US", "de_DE", "ja_JP"}) {
    for (const char* code_page : {"UTF-8", "EUC-JP", "Shift_JIS"}) {
      const std::string how = std::string(" -q --definitions types.ldf --locale ") + locale +
                              " --codepage " + code_page + " ";
      const auto told = run("emit --to -" + how + "records");
      const auto again = run("render" + how + "stored");
      EXPECT_EQ(told.err, "");
      EXPECT_EQ(again.status, 0) << again.err;
      EXPECT_EQ(again.out, told.out);
      EXPECT_EQ(std::count(again.out.begin(), again.out.end(), '\n'), 6) << again.out;
    }
  }
}

TEST_F(RenderCommand, StoredOutputIsTheSameWhenItIsStoredAgain) {
  folder_.write("types.yaml", every_type_source);
  folder_.write("records", every_type_records);
  run_well("compile -q types.yaml -o types.ldf");
  run_well("emit -q --definitions types.ldf --locale en_US --to json:stored records");
  run_well("emit -q --definitions types.ldf --locale en_US --to json:again stored");
  EXPECT_EQ(read_whole_file(folder_.file("again")), read_whole_file(folder_.file("stored")));
}

// --- records without a message

TEST_F(RenderCommand, UnknownEventsAreShownByWhatTheyHold) {
  const auto shown = render(
      R"({"event":4711,"attributes":{"PORT":51234,"USER_NAME":"alice","OK":true,"NONE":null,"X":-1.5e3}})"
      "\n"
      R"({"event":4711,"name":"GONE","attributes":{}})"
      "\n"
      R"({"event":"GONE","attributes":{"A B":"\"\\\u001b[2J\u202e\nä"}})"
      "\n"
      R"({"event":1002})"
      "\n",
      "");
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.out,
            "[unknown event 4711] PORT=51234 USER_NAME=\"alice\" OK=true NONE=null X=-1.5e3\n"
            "[unknown event 4711 \"GONE\"]\n"
            "[unknown event \"GONE\"] \"A B\"=\"\\\"\\\\\\u001B[2J\\u202E\\nä\"\n"
            "bye\n");
  EXPECT_EQ(shown.err, "kplog: 4 records: 1 rendered, 3 marked, 0 bad\n");
}

TEST_F(RenderCommand, RecordsThatTheirEventDoesNotDeclareAreShownByWhatTheyHold) {
  const auto shown =
      render(R"({"event":1001,"attributes":{"USER_NAME":"alice","PORT":51234,"HOST":"h"}})"
             "\n"
             R"({"event":"LOGIN","attributes":{"USER_NAME":"alice","PORT":70000}})"
             "\n"
             R"({"event":1001,"name":"LOGOUT","attributes":{}})"
             "\n"
             R"({"event":1001,"message_index":9,"attributes":{"PORT":1}})"
             "\n"
             R"({"event":1001,"attributes":{"PORT":1}})"
             "\n"
             R"({"event":1003,"attributes":{"COUNT":-3}})"
             "\n");
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.err, "");
  EXPECT_EQ(shown.out,
            "[event 1001 LOGIN: the event 1001 has no attribute \"HOST\"] "
            "USER_NAME=\"alice\" "
            "PORT=51234 HOST=\"h\"\n"
            "[event 1001 LOGIN: \"PORT\" is a UInt2: a whole number from 0 to 65535, not 70000] "
            "USER_NAME=\"alice\" PORT=70000\n"
            "[event 1001 LOGIN: \"name\" is that of another event than 1001]\n"
            "[event 1001 LOGIN: <KPX_logging_invalid_message_string> Invalid selector message "
            "index specified.] PORT=1\n"
            " came in by port 1\n"
            "[event 1003: its message is empty] COUNT=-3\n");
}

TEST_F(RenderCommand, MessagesThatTheCatalogLacksAreThoseOfTheDefinition) {
  folder_.write(
      "de.po",
      "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; charset=UTF-8\\n\"\n\n"
      "msgctxt \"LOGOUT\"\nmsgid \"bye\"\nmsgstr \"tschüss\"\n");
  folder_.write("small.yaml",
                "kplog: 1\nlog_version: \"2.0\"\nevents:\n"
                "  LOGOUT: {id: 1002, message: \"bye\"}\n");
  run_well("catalog build -q small.yaml --po de.po -o catalogs");
  const auto shown = render(R"({"event":1001,"attributes":{"USER_NAME":"alice","PORT":1}})"
                            "\n"
                            R"({"event":1002})"
                            "\n",
                            "-q --catalog catalogs", "de_DE");
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.out, "alice came in by port 1\ntschüss\n");
  EXPECT_EQ(
      shown.err,
      "kplog: the catalog lacks a message of the event 1001 LOGIN; the definition's own text is "
      "taken\n");
}

TEST_F(RenderCommand, EventsOfTheAuxSetAreTold) {
  folder_.write("aux.yaml",
                "kplog: 1\nlog_version: \"2.0\"\nevents:\n"
                "  EXTRA: {id: 2001, message: \"more\"}\n");
  run_well("compile -q aux.yaml --std shop.ldf -o aux.ldf");
  EXPECT_EQ(render("{\"event\":2001}\n{\"event\":1002}\n", "-q --aux aux.ldf").out, "more\nbye\n");
}

TEST_F(RenderCommand, AmbiguousNamesAreMarked) {
  folder_.write("two.yaml",
                "kplog: 1\nlog_version: \"2.0\"\nevents:\n"
                "  A: {id: 1, message: {id: SAME, text: a}}\n"
                "  B: {id: 2, message: {id: SAME, text: b}}\n");
  run_well("compile -q two.yaml -o two.ldf");
  folder_.write("records", "{\"event\":\"SAME\"}\n{\"event\":2}\n");
  EXPECT_EQ(run("render -q --definitions two.ldf records").out, "[ambiguous event \"SAME\"]\nb\n");
}

// --- hostile input

TEST_F(RenderCommand, NothingSteersTheTerminalOrMakesALine) {
  const auto shown = render(
      R"({"event":1001,"attributes":{"USER_NAME":"a\u001b[2J\u009b\u202e\u2028\u0085\n\tb\\","PORT":1}})"
      "\n");
  EXPECT_EQ(shown.out, "a\\x1B[2J\\u{009B}\\u{202E}\\u{2028}\\u{0085}\\n\tb\\ came in by port 1\n");
}

// Whether a line holds nothing but characters that are shown, and the tab.
static bool is_safe_line(std::string_view line) {
  for (const utf8_character& character : utf8(line)) {
    const bool is_tab = character.code_point == '\t';
    if (!character.valid || (!is_tab && is_unsafe_on_terminal(character.code_point))) return false;
  }
  return true;
}

// A record with each of its bytes replaced by each hostile one: every one that is not bad is a
// line.
TEST_F(RenderCommand, DamagedRecordsAreSafeLinesOrReported) {
  const std::string record =
      "{\"event\":1001,\"name\":\"LOGIN\",\"time\":\"2026-11-15T17:02:56+08:00\","
      "\"attributes\":{\"USER_NAME\":\"al\\u0069ce\",\"PORT\":51234},\"message_index\":0}";
  std::string records;
  for (const std::string_view hostile : {"\x1b", "\x9b", "\x7f", "\xff", "\"", "\\", "}", "9", "\r",
                                         "\u0085", "\u2028", "\u202e", "\u00e4"})
    for (size_t i = 0; i < record.size(); ++i)
      (records += record.substr(0, i)).append(hostile).append(record.substr(i + 1)) += '\n';
  const auto shown = render(records, "--diagnostics json");
  EXPECT_TRUE(shown.status == 0 || shown.status == 1) << shown.status;
  size_t lines = 0;
  std::istringstream out(shown.out);
  for (std::string line; std::getline(out, line); ++lines) EXPECT_TRUE(is_safe_line(line)) << line;
  const size_t last = shown.err.rfind('\n', shown.err.size() - 2) + 1;
  const auto summary = nlohmann::json::parse(shown.err.substr(last))["summary"];
  EXPECT_EQ(summary["read"], 13 * record.size());
  EXPECT_EQ(lines, size_t{summary["rendered"]} + size_t{summary["marked"]});
  EXPECT_GT(summary["marked"], 0);
  EXPECT_GT(summary["bad"], 0);
}

TEST_F(RenderCommand, BadLinesAreReportedAndTheOthersShown) {
  const auto shown = render(
      "{\"event\":1002}\n{\"event\":1002,\"even\":1}\nno record \x1b\n{\"event\":\"\xff\"}\n"
      "{\"event\":1002}\n",
      "");
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.out, "bye\nbye\n");
  EXPECT_THAT(shown.err, AllOf(StartsWith("records:2:15: error[record-key]: "),
                               HasSubstr("\nrecords:3:2: error[record-syntax]: "),
                               HasSubstr("\nrecords:4:"), Not(HasSubstr("\x1b")),
                               HasSubstr("\nkplog: 5 records: 2 rendered, 0 marked, 3 bad\n")));
}

TEST_F(RenderCommand, ManyBadLinesAreCounted) {
  std::string records;
  for (int i = 0; i < 150; ++i) records += "x\n";
  const auto shown = render(records, "");
  EXPECT_THAT(shown.err, AllOf(HasSubstr("records:100:1: "), Not(HasSubstr("records:101:1: ")),
                               HasSubstr("kplog: 50 more bad records, not shown one by one\n")));
}

TEST_F(RenderCommand, LinesBeyondTheLimitAreBad) {
  const auto shown = render(
      "{\"event\":1002,\"message\":\"" + std::string(1 << 20, 'x') + "\"}\n{\"event\":1002}\n",
      "-q");
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.out, "bye\n");
  EXPECT_THAT(shown.err, StartsWith("records:1:1: error[record-syntax]: the line is longer than "));
}

TEST_F(RenderCommand, CharactersThatTheCodePageLacksAreWrittenOut) {
  const auto shown = render(R"({"event":1001,"attributes":{"USER_NAME":"ä日","PORT":1}})"
                            "\n",
                            "-q --codepage ISO-8859-1");
  EXPECT_EQ(shown.out, "\xE4\\u{65E5} came in by port 1\n");
}

// --- exit statuses, streams

TEST_F(RenderCommand, DiagnosticsAndSummaryAreJsonWithIt) {
  const auto shown = render("x\n{\"event\":1}\n", "--diagnostics json");
  EXPECT_EQ(shown.out, "[unknown event 1]\n");
  const size_t end = shown.err.find('\n');
  EXPECT_EQ(nlohmann::json::parse(shown.err.substr(0, end))["code"], "record-syntax");
  EXPECT_EQ(nlohmann::json::parse(shown.err.substr(end))["summary"],
            nlohmann::json::parse(R"({"read":2,"rendered":0,"marked":1,"bad":1})"));
}

TEST_F(RenderCommand, StandardInputAndSeveralFilesAreRead) {
  folder_.write("a", "{\"event\":1002}\n");
  folder_.write("b", "{\"event\":1001,\"attributes\":{\"USER_NAME\":\"b\",\"PORT\":1}}\n");
  EXPECT_EQ(run("render -q --definitions shop.ldf < a").out, "bye\n");
  EXPECT_EQ(run("render -q --definitions shop.ldf b - a < a").out,
            "b came in by port 1\nbye\nbye\n");
}

TEST_F(RenderCommand, UnreadableFilesAndAFullDeviceGiveStatus3) {
  folder_.write("a", "{\"event\":1002}\n");
  const auto missing = run("render --definitions shop.ldf a none");
  EXPECT_EQ(missing.status, 3);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(missing.err, "kplog: cannot read none: No such file or directory\n");
  EXPECT_EQ(run("render --definitions none.ldf a").status, 3);
  EXPECT_EQ(run("render --definitions shop.ldf --catalog none a").status, 3);
  EXPECT_EQ(run("render --definitions shop.ldf . ").status, 3);
  const auto full = run("render --definitions shop.ldf a > /dev/full");
  EXPECT_EQ(full.status, 3);
  EXPECT_EQ(full.err, "kplog: cannot write standard output: No space left on device\n");
}

TEST_F(RenderCommand, StandardOutputThatIsAnInputIsRefused) {
  const std::string record = "{\"event\":1002}\n";
  for (const char* arguments : {"a >> a", "- < a >> a"}) {
    folder_.write("a", record);
    const auto refused = run("render --definitions shop.ldf " + std::string(arguments));
    EXPECT_EQ(refused.status, 2) << arguments;
    EXPECT_EQ(read_whole_file(folder_.file("a")), record) << arguments;
  }
}

TEST_F(RenderCommand, WrongUsageGivesStatus2) {
  folder_.write("a", "{\"event\":1002}\n");
  for (const char* arguments :
       {"a", "--definitions shop.ldf - -", "--definitions shop.ldf --codepage UTF-16 a",
        "--definitions shop.ldf --codepage nothing a", "--definitions shop.ldf --format xml a"})
    EXPECT_EQ(run(std::string("render ") + arguments).status, 2) << arguments;
}
