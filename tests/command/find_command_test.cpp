// kplog render: which records are shown, and in which form.
#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "tests/command/command_run.h"
#include "tests/command/running_command.h"
#include "tests/support/temp_folder.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static constexpr const char* find_source = R"(kplog: 1
log_version: "2.0"
events:
  LOGIN:
    id: 1001
    attributes: {USER_NAME: MBChar64, PORT: UInt2}
    message: "{USER_NAME} came in by port {PORT}"
  LOGOUT: {id: 1002, message: "bye"}
)";

class FindCommand : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("shop.yaml", find_source);
    const auto compiled = run("compile -q shop.yaml -o shop.ldf");
    ASSERT_EQ(compiled.status, 0) << compiled.err;
    folder_.write(
        "records",
        R"({"event":1001,"level":2,"time":"2026-11-15T08:00:00Z","attributes":{"USER_NAME":"alice","PORT":80}})"
        "\n"
        R"({"event":1001,"level":5,"time":"2026-11-15T09:00:00Z","attributes":{"USER_NAME":"bob","PORT":51234}})"
        "\n"
        R"({"event":1002,"level":3,"time":"2026-11-16T10:00:00+08:00"})"
        "\n"
        R"({"event":4711,"name":"LINK_UP","time":"2026-11-16T03:00:00Z","attributes":{"LINK":"eth0"}})"
        "\n");
  }

  command_result run(const std::string& arguments) {
    return run_kplog(folder_.path(), arguments, "export TZ=Asia/Singapore; ");
  }
  command_result find(const std::string& options) {
    return run("render --definitions shop.ldf --locale en_US " + options + " records");
  }

  // What a terminal shows, with line feeds alone.
  std::string on_terminal(const std::string& environment, const std::string& options) {
    folder_.write("run.sh",
                  "stty cols 80; export TZ=Asia/Singapore; unset KPLOG_PAGER; " + environment +
                      " '" KPLOG_COMMAND "' render --definitions shop.ldf --locale en_US " +
                      options + "\n");
    const auto run =
        run_kplog(folder_.path(), "--version; script -qec 'sh run.sh' /dev/null </dev/null");
    std::string shown = run.out.substr(run.out.find('\n') + 1);
    std::erase(shown, '\r');
    return shown;
  }

  temp_folder folder_;
};

static constexpr const char* alice = "alice came in by port 80\n";
static constexpr const char* bob = "bob came in by port 51234\n";
static constexpr const char* link_up = "[unknown event 4711 \"LINK_UP\"] LINK=\"eth0\"\n";

// --- conditions

TEST_F(FindCommand, ShowsTheRecordsThatFit) {
  const auto shown = [&](const std::string& options) { return find("-q " + options).out; };
  const std::string both = std::string(alice) + bob;
  EXPECT_EQ(shown("--event LOGIN"), both);
  EXPECT_EQ(shown("--event 'LOG*' --where 'PORT>=1024'"), bob);
  EXPECT_EQ(shown("--where USER_NAME=alice --or --event LOGOUT"), std::string(alice) + "bye\n");
  EXPECT_EQ(shown("--grep '^b' --or --grep LINK_UP"), std::string(bob) + "bye\n" + link_up);
  EXPECT_EQ(shown("--level 0..2"), alice);
  EXPECT_EQ(shown("--since 2026-11-16 --event LOGOUT,LOGIN"), "bye\n");
  EXPECT_EQ(shown("--until 2026-11-15"), both);
  EXPECT_EQ(shown("--until 2026-11-15T16:00:00"), alice);
  EXPECT_EQ(shown("--event 'LINK_*'"), link_up);
  EXPECT_EQ(shown("--host web"), "");
}

TEST_F(FindCommand, SummaryCountsWhatIsLeftOut) {
  const auto some = find("--event LOGOUT");
  EXPECT_EQ(some.status, 0);
  EXPECT_EQ(some.err, "kplog: 4 records: 1 rendered, 0 marked, 0 bad, 3 left out\n");
  const auto json = find("--event 'LI*,LOGIN' --diagnostics json");
  EXPECT_EQ(nlohmann::json::parse(json.err)["summary"],
            nlohmann::json::parse(R"({"read":4,"rendered":2,"marked":1,"bad":0,"left_out":1})"));
  EXPECT_EQ(json.status, 1);
}

TEST_F(FindCommand, WrongConditionsGiveStatus2BeforeAnythingIsShown) {
  for (const char* options : {"--where PRT=1",
                              "--where 'PORT>=abc'",
                              "--where PORT",
                              "--event LOGIM",
                              "--grep '('",
                              "--since someday",
                              "--until ''",
                              "--level 10",
                              "--level 3..1",
                              "--pid x",
                              "--last 0",
                              "--last 1000001",
                              "--or",
                              "--or --event LOGIN",
                              "--event LOGIN --or",
                              "--event LOGIN --or --or --grep x",
                              "--since today --until yesterday",
                              "--format xml",
                              "--format svg",
                              "--by dax",
                              "--by day --format log",
                              "--by day --format text",
                              "--by day --last 1",
                              "--by day --format json --codepage ISO-8859-1",
                              "--by day --format svg --codepage ISO-8859-1",
                              "--diagnostics xml",
                              "--format json --codepage ISO-8859-1"}) {
    const auto refused = find(options);
    EXPECT_EQ(refused.status, 2) << options;
    EXPECT_EQ(refused.out, "") << options;
    EXPECT_NE(refused.err, "") << options;
  }
  EXPECT_EQ(
      find("--where PRT=1").err,
      "kplog: --where \"PRT=1\": no event has an attribute \"PRT\"; did you mean \"PORT\"?\n");
}

TEST_F(FindCommand, BadRecordsAreToldWhateverIsAskedFor) {
  folder_.write("records", "{\"event\":1001}\nno record\n{\"event\":1002}\n");
  const auto shown = find("--event LOGOUT");
  EXPECT_EQ(shown.out, "bye\n");
  EXPECT_EQ(shown.status, 1);
  EXPECT_THAT(shown.err, HasSubstr("kplog: 3 records: 1 rendered, 0 marked, 1 bad, 1 left out\n"));
}

TEST_F(FindCommand, LastAreThoseThatFit) {
  EXPECT_EQ(find("-q --last 1").out, link_up);
  EXPECT_EQ(find("-q --last 1 --where 'PORT<100'").out, alice);
  EXPECT_EQ(find("-q --last 2").out, std::string("bye\n") + link_up);
  EXPECT_EQ(find("-q --last 100").out, find("-q").out);
}

// As kplog writes them they are read by their looks, and with a blank behind them by the parser.
TEST_F(FindCommand, StoredRecordsAreFoundHoweverTheirLinesAreWritten) {
  std::string records = read_whole_file(folder_.file("records"));
  for (const char* name : {"\\\"quoted\\\"", "two\\nlines", "\xE3\x81\x82", "\\u202e", ""})
    records += R"({"event":1001,"host":"web1","pid":7,"recorded":"2026-11-15T08:00:00.5Z",)"
               R"("attributes":{"PORT":5,"USER_NAME":")" +
               std::string(name) + "\"}}\n";
  records += "{\"event\":1002,\"context\":{\"a\":\"b\"}}\n";
  folder_.write("records", records);
  run("emit -q --definitions shop.ldf --locale en_US --to json:stored records");
  const std::string stored = read_whole_file(folder_.file("stored"));
  std::string blank;
  for (const char c : stored) blank += c == '\n' ? std::string(" \n") : std::string(1, c);
  folder_.write("blank", blank);
  for (const char* options :
       {"", "--event LOGIN", "--event 1002", "--level 2..3", "--since 2026-11-16", "--pid 7",
        "--host 'web?'", "--where USER_NAME=alice", "--where 'USER_NAME~quoted'",
        "--where 'USER_NAME~lines'", "--where 'PORT<100'", "--where context.a=b", "--grep port",
        "--by event,level", "--last 3", "--event LOGIN --last 2"})
    for (const char* form : {"json", "table"}) {
      const std::string find = std::string("render --definitions shop.ldf --locale en_US ") +
                               options + " --format " + form + " ";
      const command_result shown = run(find + "stored");
      EXPECT_NE(shown.out, "") << find;
      EXPECT_EQ(shown.out, run(find + "blank").out) << find;
    }
}

// --- forms

TEST_F(FindCommand, LogIsTheFormOfTextLogs) {
  run("emit -q --definitions shop.ldf --locale en_US --to text:./shop records");
  const std::string logged = read_whole_file(folder_.file("shop.20261115.0001"));
  EXPECT_THAT(logged, StartsWith("2026-11-15T08:00:00Z 2 LOGIN alice came in by port 80\n"));
  EXPECT_EQ(find("-q --format log --event LOGIN").out, logged);
  EXPECT_EQ(find("-q --format log --event 'LOGOUT,LINK_*'").out,
            "2026-11-16T10:00:00+08:00 3 LOGOUT bye\n"
            "2026-11-16T03:00:00Z 3 LINK_UP [unknown event 4711 \"LINK_UP\"] LINK=\"eth0\"\n");
}

TEST_F(FindCommand, TableHasAHeadingAndColumns) {
  EXPECT_EQ(find("-q --format table --event LOGOUT --or --where PORT=80").out,
            "TIME                       LEVEL  EVENT   MESSAGE\n"
            "2026-11-15T08:00:00Z       2      LOGIN   alice came in by port 80\n"
            "2026-11-16T10:00:00+08:00  3      LOGOUT  bye\n");
}

TEST_F(FindCommand, CsvQuotesWhatNeedsIt) {
  folder_.write(
      "records",
      R"({"event":1001,"time":"2026-11-15T08:00:00Z","attributes":{"USER_NAME":"a,\"b\u001b","PORT":1}})"
      "\n"
      R"({"event":"GONE","attributes":{}})"
      "\n");
  EXPECT_EQ(find("-q --format csv").out,
            "time,level,id,event,message,attributes\n"
            "2026-11-15T08:00:00Z,3,1001,LOGIN,\"a,\"\"b\\x1B came in by port 1\","
            "\"{\"\"USER_NAME\"\":\"\"a,\\\"\"b\\u001B\"\",\"\"PORT\"\":1}\"\n"
            "-,3,,GONE,\"[unknown event \"\"GONE\"\"]\",{}\n");
}

TEST_F(FindCommand, JsonIsTheStoredForm) {
  run("emit -q --definitions shop.ldf --locale en_US --to json:stored records");
  EXPECT_EQ(find("-q --format json --event 'LOG*'").out, read_whole_file(folder_.file("stored")));
  folder_.write("marked", find("-q --format json --event 4711").out);
  EXPECT_EQ(read_whole_file(folder_.file("marked")),
            R"({"event":4711,"name":"LINK_UP","level":3,"time":"2026-11-16T03:00:00Z",)"
            R"("attributes":{"LINK":"eth0"},"message_index":0})"
            "\n");
  EXPECT_EQ(run("render -q --definitions shop.ldf marked").out, link_up);
}

// As it was told when it was stored, however often that is read and stored again.
TEST_F(FindCommand, StoredMessagesOutliveTheirEvents) {
  folder_.write(
      "records",
      R"({"version":"1.0","event":4711,"name":"LINK_UP","attributes":{"LINK":"eth0"},)"
      R"("message_index":0,"message":"eth0 est\u00e1 \u001b[2Jarriba"})"
      "\n"
      R"({"event":1001,"attributes":{"HOST":"h"},"message":"h came in"})"
      "\n"
      R"({"event":1001,"attributes":{"USER_NAME":"a","PORT":"high"},"message":"a came in"})"
      "\n"
      R"({"event":4711,"attributes":{"LINK":"eth0"},"message":""})"
      "\n"
      R"({"event":1002,"message":"good-bye"})"
      "\n");
  const std::string shown = find("-q").out;
  EXPECT_EQ(shown,
            "[unknown event 4711 \"LINK_UP\"] eth0 est\u00e1 \\x1B[2Jarriba\n"
            "[event 1001 LOGIN: the event 1001 has no attribute \"HOST\"] h came in\n"
            "[event 1001 LOGIN: \"PORT\" is a UInt2: a whole number from 0 to 65535, not \"high\"] "
            "a came in\n"
            "[unknown event 4711] LINK=\"eth0\"\n"
            "bye\n");
  folder_.write("stored", find("-q --format json").out);
  EXPECT_EQ(run("render -q --definitions shop.ldf --locale en_US stored").out, shown);
}

// --- several versions

class FindVersions : public FindCommand {
 protected:
  void SetUp() override {
    FindCommand::SetUp();
    folder_.write("old.yaml", R"(kplog: 1
log_version: "1.0"
events:
  LOGIN: {id: 1001, attributes: {USER: MBChar64, PORT: MBChar64}, message: "{USER} logged in at {PORT}"}
  LINK_UP: {id: 4711, attributes: {LINK: MBChar64}, message: "{LINK} is up"}
)");
    const auto compiled = run("compile -q old.yaml -o old.ldf");
    ASSERT_EQ(compiled.status, 0) << compiled.err;
    folder_.write(
        "records",
        R"({"version":"1.0","event":1001,"attributes":{"USER":"alice","PORT":"door"}})"
        "\n"
        R"({"version":"2.0","event":1001,"attributes":{"USER_NAME":"bob","PORT":80}})"
        "\n"
        R"({"event":1001,"attributes":{"USER_NAME":"carol","PORT":81}})"
        "\n"
        R"({"version":"0.9","event":1002})"
        "\n"
        R"({"version":"1.0","event":4711,"time":"2026-11-15T17:02:56+08:00","attributes":{"LINK":"eth0"}})"
        "\n");
  }

  command_result find_in_both(const std::string& options) {
    return run("render -q --definitions old.ldf --definitions shop.ldf --locale en_US " + options +
               " records");
  }
};

TEST_F(FindVersions, RecordsAreToldByTheirVersion) {
  EXPECT_EQ(find_in_both("").out,
            "alice logged in at door\nbob came in by port 80\ncarol came in by port 81\nbye\n"
            "eth0 is up\n");
  EXPECT_EQ(find_in_both("").status, 0);
  EXPECT_EQ(find("-q").status, 1);
  EXPECT_EQ(find_in_both("--by event").out,
            "EVENT    ENTRIES\nLINK_UP        1\nLOGIN          3\nLOGOUT         1\n");
  EXPECT_EQ(find_in_both("--last 1 --format table").out,
            "TIME                       LEVEL  EVENT    MESSAGE\n"
            "2026-11-15T17:02:56+08:00  3      LINK_UP  eth0 is up\n");
}

TEST_F(FindVersions, JsonKeepsTheVersion) {
  const std::string stored = find_in_both("--format json").out;
  EXPECT_THAT(stored, StartsWith(R"({"version":"1.0","event":1001,)"));
  folder_.write("records", stored);
  EXPECT_EQ(find_in_both("--format json").out, stored);
}

// A condition is sound where one version knows what it is about.
TEST_F(FindVersions, ConditionsAreOfTheVersionsThatKnowThem) {
  EXPECT_EQ(find_in_both("--where USER=alice").out, "alice logged in at door\n");
  EXPECT_EQ(find_in_both("--where 'PORT<81'").out, "bob came in by port 80\n");
  EXPECT_EQ(find_in_both("--where PORT=door --or --where PORT=80").out,
            "alice logged in at door\nbob came in by port 80\n");
  EXPECT_EQ(find_in_both("--event LINK_UP --or --event LOGOUT").out, "bye\neth0 is up\n");
  const auto refused = find_in_both("--where NAME=alice");
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err, "kplog: --where \"NAME=alice\": no event has an attribute \"NAME\"\n");
}

TEST_F(FindVersions, TwoSetsOfOneVersionAreRefused) {
  folder_.write("copy.ldf", read_whole_file(folder_.file("old.ldf")));
  const auto refused = find_in_both("--definitions copy.ldf");
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err,
            "kplog: --definitions: old.ldf and copy.ldf are both of version \"1.0\"\n");
}

// --- on a terminal

TEST_F(FindCommand, LevelsHaveColors) {
  folder_.write("records",
                "{\"event\":1002,\"level\":1,\"time\":\"2026-11-16T10:00:00Z\"}\n"
                "{\"event\":1002,\"level\":2,\"time\":\"2026-11-16T10:00:00Z\"}\n"
                "{\"event\":1002,\"level\":3,\"time\":\"2026-11-16T10:00:00Z\"}\n"
                "{\"event\":1002,\"level\":6,\"time\":\"2026-11-16T10:00:00Z\"}\n");
  EXPECT_EQ(find("-q --color always --format log").out,
            "2026-11-16T10:00:00Z \x1b[31m1\x1b[0m LOGOUT bye\n"
            "2026-11-16T10:00:00Z \x1b[33m2\x1b[0m LOGOUT bye\n"
            "2026-11-16T10:00:00Z 3 LOGOUT bye\n"
            "2026-11-16T10:00:00Z \x1b[2m6\x1b[0m LOGOUT bye\n");
  EXPECT_EQ(find("-q --color always --format table --level 2").out,
            "TIME                       LEVEL  EVENT   MESSAGE\n"
            "2026-11-16T10:00:00Z       \x1b[33m2\x1b[0m      LOGOUT  bye\n");
  EXPECT_THAT(find("-q --color always --format json").out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(find("-q --format log").out, Not(HasSubstr("\x1b")));
}

TEST_F(FindCommand, FilesGoThroughThePagerOfATerminal) {
  folder_.write("pager", "cat >paged; echo end of the pager\n");
  const std::string paged = on_terminal("PAGER='sh pager'", "records");
  const std::string all = std::string(alice) + bob + "bye\n" + link_up;
  EXPECT_EQ(read_whole_file(folder_.file("paged")), all);
  EXPECT_EQ(paged, "end of the pager\nkplog: 4 records: 3 rendered, 1 marked, 0 bad\n");
  unlink(folder_.file("paged").c_str());
  const std::string shown = all + "kplog: 4 records: 3 rendered, 1 marked, 0 bad\n";
  EXPECT_EQ(on_terminal("PAGER='sh pager'", "--no-pager records"), shown);
  EXPECT_EQ(on_terminal("PAGER='sh pager'", "<records"), shown);
  EXPECT_EQ(on_terminal("PAGER=", "records"), shown);
  EXPECT_EQ(on_terminal("PAGER=cat", "records"), shown);
  EXPECT_EQ(on_terminal("PAGER='sh pager' KPLOG_PAGER=cat", "records"), shown);
  EXPECT_FALSE(std::filesystem::exists(folder_.file("paged")));
}

// Diagnostics stand where they belong, and what the pager does not read is not missed.
TEST_F(FindCommand, ThePagerShowsDiagnosticsTooAndMayEndEarly) {
  folder_.write("records", "no record\n");
  EXPECT_THAT(on_terminal("PAGER='sed s/^/:/'", "--color never records"),
              StartsWith(":records:1:2: error["));
  std::string many;
  for (int i = 0; i < 20000; ++i) many += "{\"event\":1002}\n";
  folder_.write("records", many);
  EXPECT_EQ(on_terminal("PAGER='head -n 1'", "records"), "bye\n");
}

TEST_F(FindCommand, TablesOfCountsHaveBarsInThePagerToo) {
  EXPECT_THAT(on_terminal("PAGER='sed s/^/:/'", "--by level records"), HasSubstr("\u2588"));
}

TEST_F(FindCommand, LongScansShowProgressBesideTheirOutput) {
  running_command run(folder_.path(), {"render", "--definitions", "shop.ldf", "--locale", "en_US"},
                      command_err::terminal);
  std::string shown;
  int count = 0;
  while (shown.find("/s, 0 bad\r\x1b[K") == std::string::npos && !HasFailure()) {
    ASSERT_TRUE(run.send("{\"event\":1002}\n"));
    ASSERT_EQ(run.out_line(), "bye");
    ++count;
    shown += run.err_so_far();
  }
  EXPECT_THAT(run.wait().err, HasSubstr("\r\x1b[Kkplog: " + std::to_string(count) + " records: "));
}

// --- counts

TEST_F(FindCommand, CountsRecordsInsteadOfShowingThem) {
  const auto table = find("--by event,hour");
  EXPECT_EQ(table.out,
            "EVENT    HOUR                       ENTRIES\n"
            "LINK_UP  2026-11-16T11:00:00+08:00        1\n"
            "LOGIN    2026-11-15T16:00:00+08:00        1\n"
            "LOGIN    2026-11-15T17:00:00+08:00        1\n"
            "LOGOUT   2026-11-16T10:00:00+08:00        1\n");
  EXPECT_EQ(table.err, "kplog: 4 records: 4 counted, 0 bad\n");
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(find("-q --by day --format csv").out, "day,count\r\n2026-11-15,2\r\n2026-11-16,2\r\n");
  EXPECT_EQ(
      nlohmann::json::parse(find("-q --by month --format json").out),
      nlohmann::json::parse(R"({"total":4,"others":0,"rows":[{"month":"2026-11","count":4}]})"));
  EXPECT_THAT(find("-q --by level --format svg").out, StartsWith("<?xml version=\"1.0\""));
}

TEST_F(FindCommand, CountsTheRecordsThatFit) {
  const auto some = find("--by event --grep came --diagnostics json");
  EXPECT_EQ(some.out, "EVENT  ENTRIES\nLOGIN        2\n");
  EXPECT_EQ(nlohmann::json::parse(some.err)["summary"],
            nlohmann::json::parse(
                R"({"read":4,"rendered":0,"marked":0,"counted":2,"bad":0,"left_out":2})"));
  EXPECT_EQ(find("-q --by event --since 2026-11-16").out,
            "EVENT    ENTRIES\nLINK_UP        1\nLOGOUT         1\n");
}

TEST_F(FindCommand, BadRecordsAreNotCounted) {
  folder_.write("records", "{\"event\":1001}\nno record\n");
  const auto counts = find("--by event");
  EXPECT_EQ(counts.out, "EVENT  ENTRIES\nLOGIN        1\n");
  EXPECT_EQ(counts.status, 1);
  EXPECT_THAT(counts.err, HasSubstr("kplog: 2 records: 1 counted, 1 bad\n"));
}

TEST_F(FindCommand, CountsAreInTheCodePage) {
  folder_.write("records", "{\"event\":\"\u00e9\u4e2d\"}\n");
  EXPECT_EQ(find("-q --by event --codepage ISO-8859-1").out,
            "EVENT  ENTRIES\n\xe9\\u{4E2D}          1\n");
}

// Through a run that stores it, and one that reads that again.
TEST_F(FindCommand, ContextsAreKeptAndFound) {
  folder_.write(
      "records",
      R"({"event":1002,"time":"2026-11-15T08:00:00.25Z","context":{ "trace": "4bf9", "n":[1.0] }})"
      "\n"
      R"({"event":1002,"time":"2026-11-15T08:00:00Z","context":{"trace":"other"},"level":9})"
      "\n"
      R"({"event":4711,"context":{"trace":"4bf9"}})"
      "\n");
  EXPECT_EQ(run("emit -q --definitions shop.ldf --locale en_US --to json:stored records").status,
            1);
  EXPECT_EQ(
      run("render -q --definitions shop.ldf --format json --where context.trace=4bf9 stored").out,
      R"({"version":"2.0","event":1002,"name":"LOGOUT","level":3,)"
      R"("time":"2026-11-15T08:00:00Z","recorded":"2026-11-15T08:00:00.25Z",)"
      R"("context":{"trace":"4bf9","n":[1.0]},"attributes":{},"types":{},)"
      R"("message_index":0,"message":"bye"})"
      "\n");
  EXPECT_EQ(find("-q --where context.trace!=other --format json --event 4711").out,
            R"({"event":4711,"level":3,"context":{"trace":"4bf9"},"attributes":{},)"
            R"("message_index":0})"
            "\n");
  EXPECT_EQ(run("render -q --definitions shop.ldf --where context.trace=other stored").out,
            "bye\n");
}

// In every form, each record is one line, on which nothing steers a terminal.
TEST_F(FindCommand, FormsAreSafeLines) {
  folder_.write(
      "records",
      R"({"event":1001,"time":"2026\u001b[2J","host":"\u001b","attributes":{"USER_NAME":"\u001b[2J\n\u202e","PORT":1}})"
      "\n"
      R"({"event":"\u001b[2J\n","name":"\u009b\n","attributes":{"\u001b\n":"\u2028"}})"
      "\n"
      R"({"event":1001,"attributes":{"USER_NAME":"\u001b[2J\n\u202e","PORT":1}})"
      "\n");
  for (const char* format : {"text", "log", "json", "csv", "table"}) {
    const std::string lines = find(std::string("-q --format ") + format).out;
    const bool has_heading = format == std::string("csv") || format == std::string("table");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), has_heading ? 4 : 3) << lines;
    for (const utf8_character& character : utf8(lines))
      EXPECT_TRUE(character.valid &&
                  (character.code_point == '\n' || !is_unsafe_on_terminal(character.code_point)))
          << format << lines;
  }
}
