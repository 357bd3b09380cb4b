// kplog emit as a service of clients that come through its socket.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <map>
#include <memory>

#include "recording/records/service.h"
#include "tests/command/emit_service_fixture.h"
#include "tests/command/golden_file.h"
#include "tests/recording/sinks/lock_holder.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class EmitClients : public EmitService {};

TEST_F(EmitClients, SocketIsForOwnerAndGroup) {
  const mode_t before = umask(0);
  const auto service = start_listening();
  umask(before);
  struct stat status {};
  ASSERT_EQ(lstat(folder_.path("sock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0660u);
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_NE(lstat(folder_.path("sock").c_str(), &status), 0);
}

TEST_F(EmitClients, AbandonedSocketIsReplacedAndAServedOneIsNot) {
  {
    const auto killed = start_listening();
    EXPECT_EQ(end_of(*killed, SIGKILL).status, 128 + SIGKILL);
  }
  const auto service = start_listening();
  const auto second = folder_.emit("--to - --listen unix:sock");
  EXPECT_EQ(second.status, 3);
  EXPECT_EQ(second.err, "kplog: cannot listen on sock: Address already in use\n");
  EXPECT_TRUE(client()->send(note_record("still served")));
  EXPECT_EQ(service->out_line(), "still served");
}

TEST_F(EmitClients, FileAtTheSocketsPathIsLeftAlone) {
  folder_.write("sock", "precious");
  const auto run = folder_.emit("--to - --listen unix:sock");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(folder_.text("sock"), "precious");
}

TEST_F(EmitClients, PathThatIsTooLongForASocketIsWrongUsage) {
  const auto run = folder_.emit("--to - --listen unix:" + std::string(108, 's'));
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "kplog: --listen: the path of a socket has 1 to 107 bytes\n");
}

// A thousand, or as many as the system lets this process and the service have.
static size_t many_clients() {
  raise_descriptor_limit();
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  return std::min<size_t>(1000, (limit.rlim_cur - 64) / 2);
}

TEST_F(EmitClients, AThousandClientsAreServedAtOnce) {
  const size_t many = many_clients();
  const auto service = start_listening({"--to", "text:./shop", "--ack"});
  std::vector<std::unique_ptr<socket_client>> clients;
  for (size_t i = 0; i < many; ++i) clients.push_back(client());
  for (size_t round = 1; round <= 2; ++round) {
    for (size_t i = 0; i < many; ++i)
      ASSERT_TRUE(clients[i]->send(note_record("client " + std::to_string(i) + ".")));
    const std::string all = std::to_string(round * many);
    while (service->out_line() != all) ASSERT_FALSE(testing::Test::HasFailure());
  }
  EXPECT_EQ(end_of(*service).status, 0);
  const std::string log = folder_.text("shop.20261115.0001");
  EXPECT_EQ(static_cast<size_t>(std::count(log.begin(), log.end(), '\n')), 2 * many);
  EXPECT_THAT(log,
              AllOf(HasSubstr("client 0."), HasSubstr("client " + std::to_string(many - 1) + ".")));
}

// Those behind the limit are served when others leave.
TEST_F(EmitClients, ClientsLeaveDescriptorsForTheOutputs) {
  running_command service(
      folder_.path(),
      emit_folder::words({"--to", "text:./shop", "--to", "json:stored", "--ack", "--listen",
                          "unix:sock", "--max-user-clients", "100"}),
      command_err::pipe, "ulimit -n 40");
  ASSERT_TRUE(service.wait_for_err("listening on unix:sock"));
  std::vector<std::unique_ptr<socket_client>> clients;
  for (int i = 0; i < 40; ++i) {
    clients.push_back(client());
    clients.back()->send(note_record("client " + std::to_string(i) + "."));
  }
  int acknowledged = 0;
  while (acknowledged < 40 && !HasFailure()) {
    acknowledged = std::stoi(service.out_line());
    for (int i = 0; i < acknowledged; ++i) clients[static_cast<size_t>(i)]->leave();
  }
  EXPECT_EQ(end_of(service).status, 0);
  EXPECT_THAT(folder_.text("shop.20261115.0001"), HasSubstr("client 39.\n"));
}

TEST_F(EmitClients, UserHasAsManyConnectionsAsAreAllowed) {
  const auto service = start_listening({"--to", "-", "--max-user-clients", "2"});
  const auto first = client();
  const auto second = client();
  const auto third = client();
  EXPECT_EQ(third->line(), R"({"error":"the user has too many connections"})");
  EXPECT_EQ(third->line(), "");
  first->send(note_record("first"));
  EXPECT_EQ(service->out_line(), "first");
  first->leave();
  const auto fourth = client();
  fourth->send(note_record("fourth"));
  EXPECT_EQ(service->out_line(), "fourth");
}

// Of 40 descriptors 8 are for clients, and half of them for one user.
TEST_F(EmitClients, UserHasHalfOfTheConnections) {
  running_command service(folder_.path(),
                          emit_folder::words({"--to", "-", "--listen", "unix:sock"}),
                          command_err::pipe, "ulimit -n 40");
  ASSERT_TRUE(service.wait_for_err("listening on unix:sock"));
  std::vector<std::unique_ptr<socket_client>> clients;
  for (int i = 0; i < 5; ++i) clients.push_back(client());
  EXPECT_EQ(clients.back()->line(), R"({"error":"the user has too many connections"})");
  clients.pop_back();
  for (const auto& one : clients) {
    one->send(note_record("served"));
    EXPECT_EQ(service.out_line(), "served");
  }
}

TEST_F(EmitClients, LimitOfDescriptorsIsRaisedAsFarAsItMay) {
  running_command service(folder_.path(),
                          emit_folder::words({"--to", "-", "--listen", "unix:sock"}),
                          command_err::pipe, "ulimit -Sn 40; ulimit -Hn 100");
  ASSERT_TRUE(service.wait_for_err("listening on unix:sock"));
  std::vector<std::unique_ptr<socket_client>> clients;
  for (int i = 0; i < 34; ++i) {  // half of 68
    clients.push_back(client());
    clients.back()->send(note_record("served"));
    ASSERT_EQ(service.out_line(), "served");
  }
  EXPECT_EQ(client()->line(), R"({"error":"the user has too many connections"})");
}

TEST_F(EmitClients, OneOfThoseThatStartAtOnceListens) {
  std::vector<std::unique_ptr<running_command>> services;
  for (int i = 0; i < 6; ++i) services.push_back(start({"--to", "-", "--listen", "unix:sock"}));
  std::vector<std::string> told;
  for (const auto& service : services) told.push_back(service->err_line());
  EXPECT_EQ(std::count(told.begin(), told.end(), "kplog: listening on unix:sock"), 1);
  EXPECT_EQ(
      std::count(told.begin(), told.end(), "kplog: cannot listen on sock: Address already in use"),
      5);
  client()->send(note_record("served"));
  for (size_t i = 0; i < services.size(); ++i) {
    const bool is_listening = told[i] == "kplog: listening on unix:sock";
    EXPECT_EQ(services[i]->out_line(), is_listening ? "served" : "");
    EXPECT_EQ(end_of(*services[i]).status, is_listening ? 0 : 3);
  }
}

// It may be longer in a file.
TEST_F(EmitClients, LineOfTheStoredFormHasTheLimitOfAllLines) {
  const auto service = start_listening();
  const auto sender = client();
  const std::string begin = R"({"version":"2.0","event":1003,"attributes":{"TEXT":"a"})";
  sender->send(begin + std::string((1 << 20) - begin.size() - 1, ' ') + "}\n" + begin +
               std::string((1 << 20) - begin.size(), ' ') + "}\n" + note_record("next"));
  EXPECT_EQ(service->out_line(), "a");
  EXPECT_EQ(service->out_line(), "next");
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 1);
  EXPECT_THAT(end.err, HasSubstr("unix:sock#1:2:1: error[record-syntax]: the line is longer than "
                                 "1048576 bytes\n"));
}

TEST_F(EmitClients, HalfALineIsGivenUpAndTheSilentAreNot) {
  const auto service = start_listening({"--to", "-", "--idle-line", "1s"});
  const auto silent = client();
  const auto half = client();
  half->send(note_record("whole") + "{\"event\":");
  EXPECT_EQ(service->out_line(), "whole");
  EXPECT_TRUE(service->wait_for_err(
      "unix:sock#2:2:10: error[record-syntax]: the end of the line did not come in time"));
  EXPECT_EQ(half->line(), "");
  silent->send(note_record("still there"));
  EXPECT_EQ(service->out_line(), "still there");
}

TEST_F(EmitClients, WrongLimitsAreWrongUsage) {
  for (const auto& [option, text] : std::map<std::string, std::string>{
           {"--idle-line 60",
            "\"60\" is no duration; a duration is a number from 1 with d, h, m "
            "or s behind it, and at most 36500d"},
           {"--max-user-clients 0", "\"0\" is no number from 1"}}) {
    const auto run = folder_.emit("--to - --listen unix:sock " + option);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr(text));
  }
}

TEST_F(EmitClients, PeerIsWhomTheSystemTells) {
  const auto service = start_listening({"--to", "json:-"});
  std::string record = note_record("a");
  record.replace(0, 1, R"({"peer":{"user":4294967295,"process":1},"client":"forged","number":7,)");
  client()->send(record);
  const std::string peer = R"("peer":{"user":)" + std::to_string(geteuid()) + R"(,"process":)" +
                           std::to_string(getpid()) + "}";
  const std::string stored = service->out_line();
  EXPECT_THAT(stored,
              HasSubstr(R"("time":"2026-11-15T17:02:56+08:00",)" + peer + R"(,"attributes":)"));
  EXPECT_THAT(stored, Not(HasSubstr("forged")));
  EXPECT_EQ(end_of(*service).status, 0);
  const auto kept = folder_.emit_text("-q --to json:-", stored + "\n");
  EXPECT_EQ(kept.out, stored + "\n");
}

TEST_F(EmitClients, WhatClientsHadSentAtTheSignalIsTaken) {
  const auto service = start_listening({"--to", "text:./shop", "--ack"});
  std::vector<std::unique_ptr<socket_client>> clients;
  for (int i = 0; i < 64; ++i) {
    clients.push_back(client());
    clients.back()->send(note_record("is served"));
  }
  while (service->out_line() != "64") ASSERT_FALSE(HasFailure());
  service->signal(SIGSTOP);
  for (int i = 0; i < 60; ++i) clients.push_back(client());
  for (const auto& sender : clients) {
    std::string sent = note_record("one") + note_record("two") + note_record("three");
    sent.pop_back();
    EXPECT_TRUE(sender->send(sent));
  }
  service->signal(SIGTERM);
  service->signal(SIGCONT);
  const command_end end = service->wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.err, HasSubstr("436 records: 436 written"));
}

TEST_F(EmitClients, SlowClientKeepsNobodyWaiting) {
  const auto service = start_listening();
  const auto slow = client();
  const auto quick = client();
  const std::string record = note_record("from the slow one");
  for (const char byte : record.substr(0, record.size() - 1)) {
    slow->send(std::string(1, byte));
    quick->send(note_record("q"));
    ASSERT_EQ(service->out_line(), "q");
  }
  slow->send("\n");
  EXPECT_EQ(service->out_line(), "from the slow one");
}

TEST_F(EmitClients, VanishingClientsHarmNobody) {
  const auto service = start_listening();
  client()->send("{\"event\":\"NO");
  EXPECT_TRUE(service->wait_for_err("unix:sock#1:1:"));
  client();
  auto without_end = note_record("without an end");
  without_end.pop_back();
  client()->send(without_end);
  EXPECT_EQ(service->out_line(), "without an end");
  client()->send(note_record("after them"));
  EXPECT_EQ(service->out_line(), "after them");
  EXPECT_EQ(end_of(*service).status, 1);
}

TEST_F(EmitClients, HostileClientsAreBounded) {
  const auto service = start_listening();
  const auto endless = client();
  const std::string piece(1 << 20, 'x');
  for (int i = 0; i < 64; ++i) ASSERT_TRUE(endless->send(piece));
  endless->send("\n" + note_record("after an endless line"));
  EXPECT_EQ(service->out_line(), "after an endless line");
  const auto noisy = client();
  for (int i = 0; i < 20; ++i) noisy->send(std::string(1000, '\n') + "\x1b[2J\xFF{{{{\n");
  noisy->send(note_record("after noise"));
  EXPECT_EQ(service->out_line(), "after noise");
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 1);
  EXPECT_THAT(end.err, Not(HasSubstr("\x1b")));
  if (is_memory_its_own) {
    EXPECT_LT(end.peak_kilobytes, 48 << 10);
  }
}

TEST_F(EmitClients, HalfARecordOfAClientAtTheSignalIsReported) {
  const auto service = start_listening();
  const auto sender = client();
  sender->send(note_record("a") + "{\"event\"");
  EXPECT_EQ(service->out_line(), "a");
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 1);
  EXPECT_THAT(end.err, HasSubstr("unix:sock#1:2:9: error[record-syntax]"));
}

// Sends until the service does not take more; how many it took.
static uint64_t flood(const socket_client& sender) {
  uint64_t sent = 0;
  while (sender.send(note_record("flood"))) ++sent;
  return sent;
}

TEST_F(EmitClients, SendersThatNeverPauseDoNotKeepItFromEnding) {
  const auto service = start_listening({"--to", "text:./shop", "--ack"});
  std::vector<std::unique_ptr<socket_client>> clients;
  std::vector<std::future<uint64_t>> senders;
  for (int i = 0; i < 64; ++i) {
    clients.push_back(client());
    senders.push_back(
        std::async(std::launch::async, [&sender = *clients.back()] { return flood(sender); }));
  }
  while (std::stoi(service->out_line()) < 2000) ASSERT_FALSE(HasFailure());
  const auto begin = std::chrono::steady_clock::now();
  const command_end end = end_of(*service);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  uint64_t sent = 0;
  for (auto& sender : senders) sent += sender.get();
  // A machine that is too slow for them tells what is left.
  if (end.err.find("because a signal ended the run") != std::string::npos) {
    EXPECT_EQ(end.status, 1);
    return;
  }
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.err, HasSubstr("kplog: " + std::to_string(sent) +
                                 " records: " + std::to_string(sent) + " written"));
}

// What is no record makes no batch large, and so others would wait for theirs.
TEST_F(EmitClients, BlankLinesWithoutEndKeepNobodyWaiting) {
  const auto service = start_listening();
  const auto noisy = client();
  auto sender = std::async(std::launch::async, [&noisy] {
    const std::string blanks(1 << 20, '\n');
    while (noisy->send(blanks)) {
    }
  });
  const auto other = client();
  for (const char* text : {"one", "two", "three"}) {
    other->send(note_record(text));
    EXPECT_EQ(service->out_line(), text);
  }
  end_of(*service);
}

// Three clients, of which each has sent a record.
struct three_senders {
  explicit three_senders(const emit_folder& folder, const lock_waiting& waiting = {})
      : service(folder.path("sock"), {.waiting = waiting}) {
    for (int i = 0; i < 3; ++i) {
      clients.push_back(std::make_unique<socket_client>(folder.path("sock")));
      clients.back()->send(note_record("a"));
    }
  }
  void read(const record_taker& take) {
    std::vector<pollfd> watched;
    service.watch(watched);
    for (pollfd& one : watched) one.revents = POLLIN;
    service.read(watched, take);
  }

  record_service service;
  std::vector<std::unique_ptr<socket_client>> clients;
};

TEST_F(EmitClients, SignalIsAnsweredBetweenTwoClients) {
  int taken = 0;
  three_senders senders(folder_, {.is_to_end = [&taken] { return taken != 0; }});
  const record_taker take = [&taken](const record_line&) { ++taken; };
  senders.read(take);  // accepts them
  senders.read(take);
  EXPECT_EQ(taken, 1);
}

TEST_F(EmitClients, TimeOfTheEndIsLookedAtBetweenTwoClients) {
  three_senders senders(folder_);
  const record_deadline deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  int taken = 0;
  senders.service.read_last(
      [&](const record_line&) {
        ++taken;
        while (std::chrono::steady_clock::now() < deadline) {
        }
      },
      deadline);
  EXPECT_LE(taken, 1);
  EXPECT_EQ(senders.service.unread().size(), 3u - static_cast<size_t>(taken));
}

TEST_F(EmitClients, FilesAndClientsAreReadTogether) {
  folder_.write("records", note_record("of the file"));
  const auto service = start_listening({"--to", "-", "records"});
  EXPECT_EQ(service->out_line(), "of the file");
  client()->send(note_record("of the client"));
  EXPECT_EQ(service->out_line(), "of the client");
  EXPECT_EQ(end_of(*service).status, 0);
}
