// Clients of a service that are acknowledged to: numbers, names, disks.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "logging/counter_format.h"
#include "tests/command/documentation_page.h"
#include "tests/command/emit_acknowledged_fixture.h"
#include "tests/support/counter_folder.h"

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(EmitAcknowledged, RecordsAreNumberedAndBlanksAreNot) {
  const auto service = start_service();
  const auto a = greet(hello_of_a, R"({"ack":0})");
  a->send(note_record("one") + "\n \t\n{\"bad\":1}\n" + note_record("three"));
  EXPECT_EQ(a->line(), R"({"bad":2,"code":"record-key","text":"unknown key \"bad\""})");
  hear_up_to(*a, R"({"ack":3})");
  EXPECT_EQ(end_of(*service).status, 1);
  EXPECT_THAT(numbers()["a"], ElementsAre(1, 3));
}

TEST_F(EmitAcknowledged, NumbersOutliveDeathAndWhatIsSentAgainIsThereOnce) {
  for (uint64_t round = 0; round < 3; ++round) {
    const auto service = start_service();
    const auto a = greet(R"({"kplog":1,"client":"a","first":1})"
                         "\n",
                         "{\"ack\":" + std::to_string(round) + "}");
    for (uint64_t number = 0; number <= round; ++number) a->send(note_record("again"));
    a->end_sending();
    EXPECT_EQ(a->line(), "{\"ack\":" + std::to_string(round + 1) + "}");
    EXPECT_EQ(a->line(), "");  // everything is acknowledged, and so it is closed
    end_of(*service, SIGKILL);
  }
  EXPECT_EQ(numbers()["a"], up_to(3));
  EXPECT_EQ(count_in(folder_.text("shop.cnt"), 2026, 11, 15, 1003), 3);
}

TEST_F(EmitAcknowledged, HalfALineIsNoRecord) {
  const auto service = start_service();
  {
    const auto a = greet(hello_of_a, R"({"ack":0})");
    std::string record = note_record("one");
    a->send(record + record.substr(0, record.size() - 1));
    hear_up_to(*a, R"({"ack":1})");
  }
  const auto again = greet(hello_of_a, R"({"ack":1})");
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_THAT(numbers()["a"], ElementsAre(1));
}

TEST_F(EmitAcknowledged, NewHelloTakesTheNameOver) {
  const auto service = start_service();
  const auto old = greet(hello_of_a, R"({"ack":0})");
  const auto young = greet(hello_of_a, R"({"ack":0})");
  EXPECT_EQ(old->line(), "");
  young->send(note_record("one"));
  EXPECT_EQ(young->line(), R"({"ack":1})");
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitAcknowledged, AnotherHelloIsRefused) {
  const auto service = start_service();
  greet(hello_of_a, R"({"ack":0})");
  for (const char* hello :
       {R"({"kplog":2,"client":"a"})", R"({"kplog":1})", R"({"kplog":1,"client":""})",
        R"({"kplog":1,"client":"a\u0000b"})", R"({"kplog":1,"client":7})",
        R"({"kplog":1,"client":"a","first":0})", R"({"kplog":1,"client":"a","last":1})",
        R"( { "kplog")", R"({"kplog":1,"client":"a","client":"b"})"}) {
    const auto one = client();
    one->send(hello + std::string("\n") + note_record("unread"));
    EXPECT_THAT(one->line(), testing::StartsWith(R"({"error":")")) << hello;
    EXPECT_EQ(one->line(), "") << hello;
  }
  const auto longest = client();
  longest->send(R"({"kplog":1,"client":")" + std::string(256, 'n') + "\"}\n");
  EXPECT_THAT(longest->line(), HasSubstr("a text of 1 to 255 bytes"));
  greet(R"({"kplog":1,"client":")" + std::string(255, 'n') + "\"}\n", R"({"ack":0})");
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitAcknowledged, ServiceWithoutAFileSaysThatItAcknowledgesNothing) {
  const auto service = start_listening();
  const auto one = client();
  one->send(hello_of_a);
  EXPECT_EQ(one->line(),
            R"({"error":"the service has no file as its output, and so acknowledges nothing"})");
}

TEST_F(EmitAcknowledged, WhatIsNoListOfClientsIsLeftAlone) {
  folder_.write("shop.clients", "precious");
  const auto run = folder_.emit("--to text:shop --listen unix:sock");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("shop.clients: it is something else"));
  EXPECT_EQ(folder_.text("shop.clients"), "precious");
}

TEST_F(EmitAcknowledged, RecordsThatTheFilterRejectsHaveNumbers) {
  const auto service = start_service({"--min-level", "5"});
  const auto a = greet(hello_of_a, R"({"ack":0})");
  a->send(note_record("one") + note_record("two"));
  a->end_sending();
  hear_up_to(*a, R"({"ack":2})");
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_EQ(folder_.text("stored"), "");
}

// What the client of the page is told behind seventeen records.
TEST_F(EmitAcknowledged, PageShowsWhatIsSaidAndHeard) {
  folder_.write("orders.yaml",
                "kplog: 1\nlog_version: \"2.0\"\nevents: {ORDER_PAID: {id: 1, attributes: "
                "{ORDER: UInt4}, message: \"{ORDER}\"}}\n");
  ASSERT_EQ(run_kplog(folder_.path(), "compile -q orders.yaml -o events.ldf").status, 0);
  const auto service = start_service();
  const std::string hello = R"({"kplog":1,"client":"shop-4"})"
                            "\n";
  const auto before = greet(hello, R"({"ack":0})");
  for (int i = 0; i < 17; ++i) before->send("{\"event\":1,\"attributes\":{\"ORDER\":1}}\n");
  hear_up_to(*before, R"({"ack":17})");
  const auto shown = client();
  std::istringstream lines(page_block("service.md", "is told what becomes of its records"));
  std::vector<std::string> heard;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("> ")) shown->send(line.substr(2) + "\n");
    if (line.starts_with("< ")) heard.push_back(line.substr(2));
  }
  ASSERT_EQ(heard.size(), 3U);
  for (const std::string& line : heard) {
    std::string next = shown->line();
    if (next == R"({"ack":18})") next = shown->line();  // a batch that came between
    EXPECT_EQ(next, line);
  }
  EXPECT_EQ(end_of(*service).status, 1);
}

TEST_F(EmitAcknowledged, SecondServiceOnAPlaceAcknowledgesNothing) {
  const auto service = start_service();
  const auto a = greet(hello_of_a, R"({"ack":0})");
  const auto second = start({"--to", "text:shop", "--listen", "unix:second"});
  EXPECT_EQ(second->err_line(),
            "kplog: another service has ./shop.clients; clients are not acknowledged to");
  EXPECT_TRUE(second->wait_for_err("listening on unix:second"));
  socket_client other(folder_.path("second"));
  other.send(hello_of_a);
  EXPECT_EQ(other.line(), R"({"error":"another service has ./shop.clients"})");
  EXPECT_EQ(other.line(), "");
  a->send(note_record("one"));
  hear_up_to(*a, R"({"ack":1})");
  EXPECT_EQ(end_of(*second).status, 0);
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitAcknowledged, HalfALineThatIsGivenUpIsNoRecord) {
  const auto service = start_service({"--idle-line", "1s"});
  const auto a = greet(hello_of_a, R"({"ack":0})");
  a->send("{\"event\":");
  EXPECT_EQ(a->line(), "");
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.err, "");
}

// --- Answers that nobody reads

class EmitUnheard : public EmitAcknowledged {
 protected:
  // Bad records, of which each has an answer of some hundred bytes.
  static constexpr uint64_t many = 20000;
  static std::string many_bad_records() {
    std::string lines;
    for (uint64_t i = 0; i < many; ++i) lines += "x\n";
    return lines;
  }
  // How many records the service has read.
  uint64_t read_so_far() const {
    const auto told = run_kplog(folder_.path(), "status --format json sock");
    EXPECT_EQ(told.status, 0) << told.err;
    const size_t at = told.out.find(R"("read":)");
    return at == std::string::npos ? 0 : std::stoull(told.out.substr(at + 7));
  }
};

// Of what it sent in one piece the rest comes when it hears again, though it sends nothing more.
TEST_F(EmitUnheard, ClientThatDoesNotReadItsAnswersIsNotReadEither) {
  const auto service = start_service();
  const auto deaf = greet(hello_of_a, R"({"ack":0})");
  EXPECT_TRUE(deaf->send(many_bad_records()));
  const auto other = greet(R"({"kplog":1,"client":"b"})"
                           "\n",
                           R"({"ack":0})");
  for (int number = 1; number <= 50; ++number) {  // in which time all others have their turns
    other->send(note_record("served"));
    ASSERT_EQ(other->line(), "{\"ack\":" + std::to_string(number) + "}");
  }
  EXPECT_LT(read_so_far(), many / 2);
  uint64_t bad = 0;
  std::string line = deaf->line();
  for (; line != "{\"ack\":" + std::to_string(many) + "}" && !line.empty(); line = deaf->line())
    if (line.starts_with("{\"bad\":" + std::to_string(bad + 1) + ",")) ++bad;
  EXPECT_EQ(line, "{\"ack\":" + std::to_string(many) + "}");
  EXPECT_EQ(bad, many);
  EXPECT_EQ(end_of(*service).status, 1);
}

TEST_F(EmitUnheard, SendEndsHoweverManyRecordsAreBad) {
  const auto service = start_service();
  folder_.write("records", many_bad_records() + note_record("last"));
  const auto sent = run_kplog(folder_.path(), "send --socket sock records 2>&1 | tail -1");
  EXPECT_EQ(sent.out, "kplog: 20001 records acknowledged, 20000 of them bad\n");
  EXPECT_EQ(end_of(*service).status, 1);
}

// --- Disks

TEST_F(EmitAcknowledged, LostFolderIsWaitedForAndNothingIsInOneOutputAlone) {
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  const auto service = start({"--to", "json:stored", "--to", "text:logs/shop", "--count", "shop",
                              "--listen", "unix:sock"});
  const auto a = greet(hello_of_a, R"({"ack":0})");
  a->send(note_record("one"));
  EXPECT_EQ(a->line(), R"({"ack":1})");
  std::filesystem::rename(folder_.path("logs"), folder_.path("away"));
  a->send(note_record("two"));
  EXPECT_TRUE(
      service->wait_for_err("cannot open the folder logs: No such file or directory; "
                            "nothing is read until it can be written"));
  EXPECT_THAT(numbers()["a"], ElementsAre(1));
  std::filesystem::rename(folder_.path("away"), folder_.path("logs"));
  EXPECT_EQ(a->line(), R"({"ack":2})");
  EXPECT_TRUE(service->wait_for_err("the outputs can be written again"));
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_THAT(numbers()["a"], ElementsAre(1, 2));
}

TEST_F(EmitAcknowledged, SignalEndsTheWaitingAndSaysWhatIsNotWritten) {
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  const auto service =
      start({"--to", "json:stored", "--to", "text:logs/shop", "--listen", "unix:sock"});
  const auto a = greet(hello_of_a, R"({"ack":0})");
  std::filesystem::remove_all(folder_.path("logs"));
  a->send(note_record("one"));
  EXPECT_TRUE(service->wait_for_err("nothing is read until it can be written"));
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 3);
  EXPECT_THAT(end.err, HasSubstr("1 record: 0 written, 0 rejected by the filter, 0 bad, 1 not "
                                 "written\n"));
  EXPECT_EQ(folder_.text("stored"), "");
}

TEST_F(EmitAcknowledged, ServiceThatIsToStopStops) {
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  const auto service = start({"--to", "json:stored", "--to", "text:logs/shop", "--on-failure",
                              "stop", "--listen", "unix:sock"});
  const auto a = greet(hello_of_a, R"({"ack":0})");
  std::filesystem::remove_all(folder_.path("logs"));
  a->send(note_record("one"));
  EXPECT_EQ(service->wait_for_end().status, 3);
}

// --- The file of the numbers

TEST_F(EmitAcknowledged, NumbersThatAreMovedRemovedOrCutShortAreKeptAnew) {
  const auto service = start_service();
  const auto a = greet(hello_of_a, R"({"ack":0})");
  a->send(note_record("one"));
  hear_up_to(*a, R"({"ack":1})");
  std::filesystem::remove(folder_.path("shop.clients"));
  a->send(note_record("two"));
  hear_up_to(*a, R"({"ack":2})");
  std::filesystem::rename(folder_.path("shop.clients"), folder_.path("moved"));
  a->send(note_record("three"));
  hear_up_to(*a, R"({"ack":3})");
  std::filesystem::resize_file(folder_.path("shop.clients"), 0);
  a->send(note_record("four"));
  hear_up_to(*a, R"({"ack":4})");
  EXPECT_EQ(end_of(*service).status, 0);
  const auto next = start_service();
  greet(hello_of_a, R"({"ack":4})");
  EXPECT_EQ(end_of(*next).status, 0);
  EXPECT_THAT(numbers()["a"], ElementsAre(1, 2, 3, 4));
}

TEST_F(EmitAcknowledged, NumbersInWhosePlaceSomethingElseIsAreWaitedFor) {
  const auto service = start_service();
  const auto a = greet(hello_of_a, R"({"ack":0})");
  std::filesystem::remove(folder_.path("shop.clients"));
  folder_.write("shop.clients", "something else");
  a->send(note_record("one"));
  EXPECT_TRUE(service->wait_for_err("another file is in its place; nothing is read until"));
  EXPECT_EQ(folder_.text("shop.clients"), "something else");
  std::filesystem::remove(folder_.path("shop.clients"));
  hear_up_to(*a, R"({"ack":1})");
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_THAT(numbers()["a"], ElementsAre(1));
}
