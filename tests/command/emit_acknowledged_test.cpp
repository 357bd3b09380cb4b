// Clients of a service that are acknowledged to: numbers, names, deaths, disks.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>

#include "logging/counter_format.h"
#include "recording/files/descriptor.h"
#include "tests/command/documentation_page.h"
#include "tests/command/emit_service_fixture.h"
#include "tests/support/counter_folder.h"

using testing::ElementsAre;
using testing::HasSubstr;

static const std::string hello_of_a = R"({"kplog":1,"client":"a"})"
                                      "\n";

class EmitAcknowledged : public EmitService {
 protected:
  std::unique_ptr<running_command> start_service(const words& more = {}) {
    words arguments = {"-q", "--to", "text:shop", "--to", "json:stored", "--count", "shop"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.insert(arguments.end(), {"--listen", "unix:sock"});
    return start(arguments);
  }
  // A client that has said hello, once the service listens; `acknowledged` is what it heard.
  std::unique_ptr<socket_client> greet(const std::string& hello, const std::string& acknowledged) {
    auto one = std::make_unique<socket_client>(folder_.path("sock"));
    for (int tries = 0; !one->is_connected() && tries < 30000; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      one = std::make_unique<socket_client>(folder_.path("sock"));
    }
    EXPECT_TRUE(one->send(hello));
    EXPECT_EQ(one->line(), acknowledged);
    return one;
  }
  // The numbers that the stored form has, of each client, as they stand there.
  std::map<std::string, std::vector<uint64_t>> numbers() const {
    std::map<std::string, std::vector<uint64_t>> all;
    std::istringstream lines(folder_.text("stored"));
    for (std::string line; std::getline(lines, line);) {
      const size_t name = line.find(R"("client":")") + 10;
      const size_t number = line.find(R"("number":)", name) + 9;
      all[line.substr(name, line.find('"', name) - name)].push_back(
          std::stoull(line.substr(number)));
    }
    return all;
  }
};

static void hear_up_to(socket_client& client, const std::string& last) {
  while (client.line() != last) ASSERT_FALSE(testing::Test::HasFailure());
}

static std::vector<uint64_t> up_to(uint64_t last) {
  std::vector<uint64_t> numbers(last);
  std::iota(numbers.begin(), numbers.end(), uint64_t{1});
  return numbers;
}

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

TEST_F(EmitAcknowledged, NumbersThatAreMovedOrRemovedAreKeptAnew) {
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
  EXPECT_EQ(end_of(*service).status, 0);
  const auto next = start_service();
  greet(hello_of_a, R"({"ack":3})");
  EXPECT_EQ(end_of(*next).status, 0);
  EXPECT_THAT(numbers()["a"], ElementsAre(1, 2, 3));
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

// --- kplog send

TEST_F(EmitAcknowledged, SendWaitsForTheServiceAndSendsWhatIsMissing) {
  folder_.write("records", note_record("one") + "\n" + note_record("two"));
  running_command sender(folder_.path(), {"send", "--socket", "sock", "--client", "a", "records"});
  const auto service = start_service();
  const command_end sent = sender.wait();
  EXPECT_EQ(sent.status, 0);
  EXPECT_EQ(sent.err, "kplog: 2 records acknowledged, 0 of them bad\n");
  folder_.write("records", note_record("one") + note_record("two") + "{}\n" + note_record("four"));
  const auto again = run_kplog(folder_.path(), "send --socket sock --client a records");
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("record 3: "));
  const auto anew = run_kplog(folder_.path(), "send --socket sock --client a records");
  EXPECT_EQ(anew.status, 0);
  EXPECT_EQ(anew.err, "kplog: 4 records acknowledged, 0 of them bad, 4 of them before this run\n");
  EXPECT_EQ(run_kplog(folder_.path(), "send --socket sock < records").status, 1);
  EXPECT_EQ(end_of(*service).status, 1);
  EXPECT_THAT(numbers()["a"], ElementsAre(1, 2, 4));
  EXPECT_EQ(numbers().size(), 2u);
}

TEST_F(EmitAcknowledged, SendRefusesNumbersOfAnotherInput) {
  const auto service = start_service();
  folder_.write("records", note_record("one") + note_record("two"));
  folder_.write("others", note_record("other"));
  greet(hello_of_a, R"({"ack":0})");  // the service listens
  ASSERT_EQ(run_kplog(folder_.path(), "send -q --socket sock --client b records").status, 0);
  const auto sent = run_kplog(folder_.path(), "send --socket sock --client b others");
  EXPECT_EQ(sent.status, 3);
  EXPECT_EQ(sent.err,
            "kplog: sock: it has acknowledged 2 records of this client, and the input has 1\n");
  for (const char* name : {"''", "\"$(printf '\\377')\""}) {
    const auto run =
        run_kplog(folder_.path(), std::string("send --socket sock records --client ") + name);
    EXPECT_EQ(run.status, 2) << name;
    EXPECT_THAT(run.err, HasSubstr("is no name; it has 1 to 255 bytes of UTF-8")) << name;
  }
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitAcknowledged, SendEndsAtASignalAndAtARefusal) {
  running_command waiting(folder_.path(), {"send", "--socket", "nowhere"});
  waiting.signal(SIGTERM);
  EXPECT_EQ(waiting.wait_for_end().status, 143);
  running_command interrupted(folder_.path(), {"send", "--socket", "nowhere"});
  interrupted.signal(SIGINT);
  EXPECT_EQ(interrupted.wait_for_end().status, 130);
  const auto service = start_listening();
  const auto refused = run_kplog(folder_.path(), "send --socket sock < /dev/null");
  EXPECT_EQ(refused.status, 3);
  EXPECT_THAT(refused.err, HasSubstr("acknowledges nothing"));
}

TEST_F(EmitAcknowledged, SendSaysWhatIsBadAndWhoRefusesMore) {
  const auto service = start_listening({"--to", "json:stored"});
  folder_.write("records", std::string(2 << 20, 'x') + "\n" + note_record("next"));
  const auto sent = run_kplog(folder_.path(), "send --socket sock records");
  EXPECT_EQ(sent.status, 1);
  EXPECT_EQ(sent.err,
            "kplog: record 1: the line is longer than 1048576 bytes\n"
            "kplog: 2 records acknowledged, 1 of them bad\n");
  EXPECT_THAT(folder_.text("stored"), HasSubstr("next"));
  EXPECT_EQ(end_of(*service).status, 1);
  const auto strict = start_listening({"--to", "json:stored", "--max-bad", "0"});
  folder_.write("records", "{}\n" + note_record("not taken"));
  const auto closed = run_kplog(folder_.path(), "send --socket sock records");
  EXPECT_EQ(closed.status, 3);
  EXPECT_EQ(closed.err,
            "kplog: record 1: the record has no \"event\"\n"
            "kplog: sock: more bad records in a minute than this service takes\n");
  EXPECT_EQ(end_of(*strict).status, 1);
  const auto missing = run_kplog(folder_.path(), "send --socket sock missing");
  EXPECT_EQ(missing.status, 3);
  EXPECT_EQ(missing.err, "kplog: cannot read missing: No such file or directory\n");
}

static open_descriptor listening_socket(const std::string& path) {
  open_descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  EXPECT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(listener.get(), 1), 0);
  return listener;
}

// So many bytes of what comes; less where it ends.
static std::string heard_of(int descriptor, size_t size) {
  std::string heard(size, '\0');
  size_t got = 0;
  for (ssize_t part = 1; got < size && part > 0;
       got += static_cast<size_t>(std::max<ssize_t>(part, 0)))
    part = recv(descriptor, heard.data() + got, size - got, 0);
  heard.resize(got);
  return heard;
}

static void say(int descriptor, const std::string& line) {
  EXPECT_EQ(send(descriptor, line.data(), line.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(line.size()));
}

// A service that answers the hello, and the first record, with these lines, and waits for the end;
// or goes at once.
enum class service_end { waits, goes };
static void serve_one(const std::string& path, const std::string& greeting,
                      const std::string& answer, service_end end = service_end::waits) {
  const open_descriptor listener = listening_socket(path);
  const open_descriptor accepted(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  std::array<char, 4096> heard{};
  for (const std::string& line : {greeting, answer}) {
    ASSERT_GT(recv(accepted.get(), heard.data(), heard.size(), 0), 0);
    ASSERT_EQ(send(accepted.get(), line.data(), line.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(line.size()));
  }
  if (end == service_end::goes) unlink(path.c_str());
  while (end == service_end::waits && recv(accepted.get(), heard.data(), heard.size(), 0) > 0) {
  }
}

// As the hello says which number the next line has, the next line is that, whatever the answer is.
TEST_F(EmitAcknowledged, SendSendsWhatItsHelloSaysThoughTheServiceHasMore) {
  const open_descriptor listener = listening_socket(folder_.path("sock"));
  const std::vector<std::string> records = {note_record("one"), note_record("two"),
                                            note_record("three")};
  folder_.write("records", records[0] + records[1] + records[2]);
  running_command sender(folder_.path(),
                         {"send", "-q", "--socket", "sock", "--client", "a", "records"});
  const auto next_client = [&] {
    return open_descriptor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  };
  {
    const open_descriptor first = next_client();
    EXPECT_EQ(heard_of(first.get(), hello_of_a.size()), hello_of_a);
    say(first.get(), "{\"ack\":0}\n");
    const std::string all = records[0] + records[1] + records[2];
    EXPECT_EQ(heard_of(first.get(), all.size()), all);
  }
  const open_descriptor second = next_client();
  const std::string hello = "{\"kplog\":1,\"client\":\"a\",\"first\":1}\n";
  EXPECT_EQ(heard_of(second.get(), hello.size()), hello);
  say(second.get(), "{\"ack\":2}\n");
  const std::string again = records[0] + records[1] + records[2];
  EXPECT_EQ(heard_of(second.get(), again.size()), again);
  say(second.get(), "{\"ack\":3}\n");
  EXPECT_EQ(sender.wait().status, 0);
}

TEST_F(EmitAcknowledged, SendBelievesNoAcknowledgementOfWhatItDidNotSend) {
  std::thread service(
      [this] { serve_one(folder_.path("sock"), "{\"ack\":0}\n", "{\"ack\":2}\n"); });
  folder_.write("records", note_record("one"));
  const auto sent = run_kplog(folder_.path(), "send --socket sock records");
  service.join();
  EXPECT_EQ(sent.status, 3);
  EXPECT_EQ(sent.err, "kplog: sock: the service acknowledges more than it was sent\n");
}

// A record that is sent again is bad again.
TEST_F(EmitAcknowledged, SendTellsOfABadRecordOnce) {
  const std::string path = folder_.path("sock");
  const std::string bad = R"({"bad":1,"code":"record-syntax","text":"no record"})"
                          "\n";
  std::thread service([&] {
    serve_one(path, "{\"ack\":0}\n", bad, service_end::goes);
    serve_one(path, "{\"ack\":0}\n", bad + "{\"ack\":1}\n");
  });
  folder_.write("records", "x\n");
  const auto sent = run_kplog(folder_.path(), "send --socket sock records");
  service.join();
  EXPECT_EQ(sent.status, 1);
  EXPECT_EQ(sent.err, "kplog: record 1: no record\nkplog: 1 record acknowledged, 1 of them bad\n");
}

// --- Everything at once

// KPLOG_SERVICE_DEATHS tells how often the service is killed, 4 times without it; each death is
// worth 1000 records of 50 clients.
class EmitServiceDeaths : public EmitAcknowledged {
 protected:
  static unsigned deaths() {
    const char* const told = std::getenv("KPLOG_SERVICE_DEATHS");
    return told == nullptr ? 4 : static_cast<unsigned>(std::stoul(told));
  }
  rlim_t stored_bytes() const {
    std::error_code none;
    const uintmax_t bytes = std::filesystem::file_size(folder_.path("stored"), none);
    return none ? 0 : bytes;
  }
};

// A client that connects anew and sends again until everything is acknowledged.
class stubborn_client {
 public:
  stubborn_client(std::string path, unsigned name, uint64_t records)
      : path_(std::move(path)), name_(std::to_string(name)), records_(records), random_(name) {}

  void run() {
    while (acknowledged_ < records_) {
      socket_client connection(path_);
      if (!connection.is_connected() ||
          !connection.send("{\"kplog\":1,\"client\":\"" + name_ + "\"}\n"))
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      else
        use(connection);
    }
  }

 private:
  void use(socket_client& connection) {
    if (!hear(connection)) return;
    const uint64_t last = std::min<uint64_t>(records_, acknowledged_ + 1 + random_() % 400);
    std::string records;
    for (uint64_t number = acknowledged_ + 1; number <= last; ++number)
      records += note_record(name_ + "-" + std::to_string(number));
    if (!connection.send(records)) return;
    if (random_() % 4 == 0) return;  // not to hear what became of them
    while (acknowledged_ < last && hear(connection)) {
    }
  }
  bool hear(socket_client& connection) {
    const std::string line = connection.line();
    if (!line.starts_with("{\"ack\":") || !line.ends_with('}')) return false;
    acknowledged_ = std::stoull(line.substr(7));
    return true;
  }

  std::string path_;
  std::string name_;
  uint64_t records_;
  std::minstd_rand random_;
  uint64_t acknowledged_ = 0;
};

// From now on no file of the process grows beyond so many bytes: the disk is full in the middle of
// a line of any of them.
static void limit_files(const running_command& process, rlim_t bytes) {
  const rlimit limit{bytes, RLIM_INFINITY};
  EXPECT_EQ(prlimit(process.id(), RLIMIT_FSIZE, &limit, nullptr), 0);
}

// The folder of an output goes, and comes back, between and during the lives of the service, and
// there is no room left for a while.
TEST_F(EmitServiceDeaths, EveryRecordIsThereOnce) {
  static constexpr unsigned clients = 50;
  const uint64_t each = deaths() * 20;
  ASSERT_EQ(mkdir(folder_.path("logs").c_str(), 0700), 0);
  std::vector<std::thread> senders;
  for (unsigned name = 0; name < clients; ++name)
    senders.emplace_back(
        [this, name, each] { stubborn_client(folder_.path("sock"), name, each).run(); });
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pause = [&random] {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
  };
  const words arguments = {"--to",    "json:stored", "--to",     "text:logs/shop",
                           "--count", "shop",        "--listen", "unix:sock"};
  for (unsigned death = 0; death < deaths(); ++death) {
    const auto service = start(arguments);
    EXPECT_TRUE(service->wait_for_err("listening on"));
    pause();
    if (death % 4 == 3) {
      std::filesystem::rename(folder_.path("logs"), folder_.path("away"));
      pause();
      std::filesystem::rename(folder_.path("away"), folder_.path("logs"));
      pause();
    }
    if (death % 4 == 1) {
      limit_files(*service, random() % (stored_bytes() + 10000));
      pause();
      if (random() % 2 == 0) limit_files(*service, RLIM_INFINITY);
      pause();
    }
    end_of(*service, SIGKILL);
  }
  const auto service = start(arguments);
  EXPECT_TRUE(service->wait_for_err("listening on"));
  for (std::thread& sender : senders) sender.join();
  EXPECT_EQ(end_of(*service).status, 0);
  const auto stored = numbers();
  EXPECT_EQ(stored.size(), clients);
  for (const auto& [name, numbers] : stored) EXPECT_EQ(numbers, up_to(each)) << name;
  std::string log;
  for (const auto& file : std::filesystem::directory_iterator(folder_.path("logs")))
    if (file.path().filename().string().starts_with("shop.2"))
      log += folder_.text("logs/" + file.path().filename().string());
  EXPECT_EQ(static_cast<uint64_t>(std::count(log.begin(), log.end(), '\n')), clients * each);
  EXPECT_EQ(static_cast<uint64_t>(count_in(folder_.text("shop.cnt"), 2026, 11, 15, 1003)),
            clients * each);
}
