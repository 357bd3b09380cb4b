// What records and clients may ask of kplog emit.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "base/kp_time.h"
#include "recording/records/service.h"
#include "tests/command/emit_service_fixture.h"
#include "tests/command/golden_file.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class EmitLimits : public EmitService {
 protected:
  size_t logs() const {
    size_t count = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder_.path()))
      if (file.path().filename().string().starts_with("shop.2")) ++count;
    return count;
  }
};

static std::string time_from_now(std::chrono::seconds span) {
  char text[64];
  kp_Time(std::chrono::system_clock::now() + span).print_out(text, sizeof text);
  return text;
}

// --- Times

// Each of them on a day of its own.
static std::string hostile_times(size_t size) {
  std::string records;
  for (unsigned day = 0; records.size() < size; ++day) {
    char time[64];
    kp_Time::in_GMT(int64_t{86400} * (day + 30000)).print_out(time, sizeof time);
    records += note_record("x", time);
  }
  return records;
}

TEST_F(EmitLimits, HostileTimesMakeNoFiles) {
  const std::string records = hostile_times(size_t{2} << 20);
  const auto run = folder_.emit_text("--to text:shop --count shop --max-skew 30d", records);
  EXPECT_EQ(run.status, 1);
  const auto lines = std::count(records.begin(), records.end(), '\n');
  EXPECT_GT(lines, 20000);
  EXPECT_THAT(run.err, HasSubstr(std::to_string(lines) +
                                 " records: 0 written, 0 rejected by the "
                                 "filter, " +
                                 std::to_string(lines) + " bad\n"));
  EXPECT_EQ(logs(), 0u);
}

TEST_F(EmitLimits, HostileTimesOfClientsMakeNoFiles) {
  const auto service = start_listening({"--to", "text:shop", "--max-skew", "1d"});
  const auto hostile = client();
  EXPECT_TRUE(hostile->send(hostile_times(size_t{2} << 20)));
  hostile->end_sending();
  EXPECT_EQ(hostile->line(), "");  // everything is read
  EXPECT_EQ(end_of(*service).status, 1);
  EXPECT_EQ(logs(), 0u);
}

TEST_F(EmitLimits, TimesWithinTheSkewAreTaken) {
  const auto run = folder_.emit_text(
      "--to - --max-skew 2h", note_record("behind", time_from_now(-std::chrono::hours(1))) +
                                  note_record("ahead", time_from_now(std::chrono::hours(1))) +
                                  R"({"event":"NOTE","attributes":{"TEXT":"now"}})"
                                  "\n" +
                                  note_record("far ahead", time_from_now(std::chrono::hours(3))) +
                                  note_record("far behind", time_from_now(-std::chrono::hours(3))));
  EXPECT_EQ(run.out, "behind\nahead\nnow\n");
  EXPECT_THAT(run.err, HasSubstr("3 written, 0 rejected by the filter, 2 bad"));
}

TEST_F(EmitLimits, TimesOfLostEventsAreHeldToTheSkew) {
  const auto run = folder_.emit_text(
      "-q --to - --max-skew 1d",
      R"({"event":0,"time":"2001-01-01T00:00:00Z","attributes":{"COUNT":1,"REASON":"full"}})");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, testing::StartsWith("<stdin>:1:19: error[record-time]: \"time\" lies more "
                                           "than 1d from now: \"2001-01-01T00:00:00Z\"\n"));
}

TEST_F(EmitLimits, AnyTimeIsTakenWithoutALimit) {
  EXPECT_EQ(folder_.emit_text("-q --to -", note_record("a", "0001-01-01")).out, "a\n");
}

// --- The quarantine

TEST_F(EmitLimits, QuarantineStopsAtItsSize) {
  const auto run =
      folder_.emit_text("--to - --on-error quarantine=bad,max-size=8", "one\ntwo\nsix\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(folder_.text("bad"), "one\ntwo\n");
  EXPECT_THAT(run.err, HasSubstr("kplog: the quarantine is full; 1 bad line not kept\n"));
}

TEST_F(EmitLimits, QuarantineTellsOfWhatItLacksOnce) {
  const auto service =
      start_listening({"--to", "text:shop", "--ack", "--on-error", "quarantine=bad,max-size=4"});
  const auto one = client();
  int taken = 0;
  const auto send_bad = [&](const std::string& line) {
    one->send(line);
    EXPECT_EQ(service->out_line(), std::to_string(++taken));
  };
  for (const char* bad : {"one\n", "two\n", "six\n", "ten\n"}) send_bad(bad);
  ASSERT_EQ(rename(folder_.path("bad").c_str(), folder_.path("bad.1").c_str()), 0);
  send_bad("own\n");
  const command_end end = end_of(*service);
  EXPECT_THAT(end.err, HasSubstr("the quarantine is full; 1 bad line not kept\n"));
  EXPECT_THAT(end.err, HasSubstr("the quarantine was full; 2 more bad lines not kept\n"));
  EXPECT_EQ(folder_.text("bad"), "own\n");
}

// --- Rates

TEST_F(EmitLimits, WhatExceedsTheRateWaits) {
  const auto begin = std::chrono::steady_clock::now();
  const auto service = start_listening({"--to", "-", "--max-rate", "2"});
  {
    const auto sender = client();
    std::string records;
    for (int i = 0; i < 5; ++i) records += note_record(std::to_string(i));
    records.pop_back();
    EXPECT_TRUE(sender->send(records));
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(service->out_line(), std::to_string(i));
  // Two at once, and the others half a second behind each other.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitLimits, AcknowledgementsComeWithTheRate) {
  const auto service = start_listening({"--to", "text:shop", "--max-rate", "20"});
  const auto sender = client();
  std::string records = "{\"kplog\":1,\"client\":\"a\"}\n";
  for (int i = 0; i < 45; ++i) records += note_record(std::to_string(i));
  sender->send(records);
  sender->end_sending();
  std::string last;
  for (std::string line = sender->line(); !line.empty(); line = sender->line()) last = line;
  EXPECT_EQ(last, R"({"ack":45})");
}

TEST_F(EmitLimits, SignalEndsTheWaitingAndNothingIsLost) {
  const auto service = start_listening({"--to", "text:shop", "--max-rate", "1", "--ack"});
  const auto sender = client();
  std::string records;
  for (int i = 0; i < 500; ++i) records += note_record("x");
  EXPECT_TRUE(sender->send(records));
  EXPECT_EQ(service->out_line(), "1");
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.err, HasSubstr("500 records: 500 written"));
}

// A service in this process, whose records are gathered.
struct own_service {
  own_service(const emit_folder& folder, service_rules rules)
      : service(folder.path("sock"), std::move(rules)) {}

  void serve() {
    std::vector<pollfd> watched;
    service.watch(watched);
    const auto patience = std::min(service.patience(), std::chrono::milliseconds(1000));
    poll(watched.data(), watched.size(), static_cast<int>(patience.count()));
    service.read(watched, [this](const record_line& line) { taken.emplace_back(line.text); });
  }
  void serve_up_to(size_t records) {
    while (taken.size() < records) serve();
  }

  record_service service;
  std::vector<std::string> taken;
};

TEST_F(EmitLimits, ClientsOfAUserShareItsRateInTurn) {
  own_service own(folder_, {.max_rate = 10});
  const socket_client flood(folder_.path("sock"));
  const socket_client quiet(folder_.path("sock"));
  std::string records;
  for (int i = 0; i < 40; ++i) records += "flood\n";
  flood.send(records);
  quiet.send("quiet\n");
  own.serve_up_to(25);
  EXPECT_EQ(std::count(own.taken.begin(), own.taken.end(), "quiet"), 1);
  own.serve_up_to(41);
  EXPECT_EQ(std::count(own.taken.begin(), own.taken.end(), "flood"), 40);
}

// More than two come only with the time for them.
TEST_F(EmitLimits, RateIsMetToTheRecord) {
  for (const size_t records : {1u, 2u, 3u}) {
    const auto begin = std::chrono::steady_clock::now();
    own_service own(folder_, {.max_rate = 2});
    const socket_client sender(folder_.path("sock"));
    std::string sent;
    for (size_t i = 0; i < records; ++i) sent += "x\n";
    sender.send(sent);
    own.serve();  // accepts it
    own.serve();
    const auto more = (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(500);
    EXPECT_GE(own.taken.size(), std::min<size_t>(records, 2));
    EXPECT_LE(own.taken.size(), 2 + static_cast<size_t>(more));
    own.serve_up_to(records);
  }
}

// A line of which half is behind lines that wait has not begun.
TEST_F(EmitLimits, LinesThatWaitAreNotGivenUp) {
  own_service own(folder_, {.idle_line = std::chrono::seconds(1), .max_rate = 1});
  const socket_client sender(folder_.path("sock"));
  sender.send("1\n2\n3\n4\n");
  own.serve_up_to(4);
  EXPECT_EQ(own.taken, (std::vector<std::string>{"1", "2", "3", "4"}));
  EXPECT_TRUE(sender.send("5\n"));
  own.serve_up_to(5);
  EXPECT_EQ(own.taken.back(), "5");
}

TEST_F(EmitLimits, ClientThatLeavesWhileItWaitsIsReadToItsEnd) {
  own_service own(folder_, {.max_rate = 5});
  {
    const socket_client sender(folder_.path("sock"));
    sender.send("1\n2\n3\n4\n5\n6\n7\n8");
  }
  own.serve_up_to(8);
  EXPECT_EQ(own.taken.back(), "8");
}

// --- Bad records

TEST_F(EmitLimits, OneBadRecordMoreClosesTheClient) {
  const auto service = start_listening({"--to", "-", "--max-bad", "2"});
  const auto bad = client();
  const auto other = client();
  bad->send("bad\nbad\n" + note_record("taken"));
  EXPECT_EQ(service->out_line(), "taken");
  bad->send("bad\n" + note_record("not taken"));
  const std::string told = R"({"error":"more bad records in a minute than this service takes"})";
  EXPECT_EQ(bad->line(), told);
  EXPECT_EQ(bad->line(), "");
  other->send(note_record("of another"));
  EXPECT_EQ(service->out_line(), "of another");
  other->send("bad\n");
  EXPECT_EQ(other->line(), told);
  const auto late = client();
  late->send(note_record("of a new one"));
  EXPECT_EQ(service->out_line(), "of a new one");
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 1);
  EXPECT_THAT(end.err,
              AllOf(HasSubstr("unix:sock#1 is closed: the user " + std::to_string(geteuid()) +
                              " has sent too many bad records in a minute\n"),
                    Not(HasSubstr("unix:sock#2 is closed"))));
}

TEST_F(EmitLimits, ClosedClientHearsOfItsRecords) {
  const auto service = start_listening({"--to", "text:shop", "--max-bad", "0"});
  const auto bad = client();
  bad->send("{\"kplog\":1,\"client\":\"a\"}\n");
  EXPECT_EQ(bad->line(), R"({"ack":0})");
  bad->send(note_record("one") + "{}\n" + note_record("three"));
  EXPECT_EQ(bad->line(), R"({"bad":2,"code":"record-key","text":"the record has no \"event\""})");
  EXPECT_THAT(bad->line(), HasSubstr("error"));
  EXPECT_EQ(bad->line(), "");
  const auto again = client();
  again->send("{\"kplog\":1,\"client\":\"a\",\"first\":1}\n" + note_record("one") + "{}\n" +
              note_record("three"));
  std::string heard = again->line();
  while (heard != R"({"ack":3})" && !heard.empty()) {
    EXPECT_THAT(heard, HasSubstr("ack"));
    heard = again->line();
  }
  EXPECT_EQ(heard, R"({"ack":3})");
}

// --- What is said

TEST_F(EmitLimits, WrongLimitsAreWrongUsage) {
  const std::vector<usage_case> cases = {
      {"--max-rate 0", "\"0\" is no number from 1 to 1000000"},
      {"--max-rate 1000001", "\"1000001\" is no number from 1 to 1000000"},
      {"--max-bad -1", "\"-1\" is no number from 0"},
      {"--max-skew 60", "\"60\" is no duration; a duration is a number from 1"},
      {"--on-error quarantine=,max-size=1", "is none of stop, skip, quarantine=FILE"},
      {"--on-error quarantine=bad,max-size=0",
       "--on-error: the quarantine has the size \"0\"; a size is a number from 1"},
      {"--on-error quarantine=bad,size=1",
       "--on-error: the quarantine has the option \"size=1\"; the only one is max-size=SIZE\n"},
  };
  for (const usage_case& one : cases) {
    const auto run = folder_.emit_text(std::string("--to - ") + one.arguments, "");
    EXPECT_EQ(run.status, 2) << one.arguments;
    EXPECT_THAT(run.err, HasSubstr(one.text));
  }
}

static std::string lines_that_have(const std::string& text, const std::string& code) {
  std::string found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.find(code) != std::string::npos) found += line + "\n";
  return found;
}

TEST_F(EmitLimits, GoldenListOfLimits) {
  const auto times =
      folder_.emit_text("-q --to - --max-skew 48h", note_record("x", "2001-02-03T04:05:06.7Z"));
  const auto quarantine = folder_.emit_text(
      "-q --format json --to - --on-error quarantine=bad,max-size=1", "bad\nbad\n");
  const auto service =
      start({"--to", "-", "--max-bad", "0", "--listen", "unix:sock", "--format", "json"});
  auto bad = std::make_unique<socket_client>(folder_.path("sock"));
  for (int tries = 0; !bad->is_connected() && tries < 30000; ++tries) {  // it says nothing else
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    bad = std::make_unique<socket_client>(folder_.path("sock"));
  }
  bad->send("bad\n");
  EXPECT_THAT(bad->line(), HasSubstr("error"));
  std::string closed = lines_that_have(end_of(*service).err, "client-closed");
  const std::string user = std::to_string(geteuid());
  closed.replace(closed.find("user " + user), 5 + user.size(), "user 1000");
  expect_golden_file("emit_limits.expected",
                     times.err + lines_that_have(quarantine.err, "quarantine-full") + closed);
}
