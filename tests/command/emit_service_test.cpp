// kplog emit as a service: FIFOs, clients of a socket, signals.
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
#include <memory>

#include "recording/records/service.h"
#include "tests/command/emit_fixture.h"
#include "tests/command/golden_file.h"
#include "tests/recording/sinks/lock_holder.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class EmitService : public testing::Test {
 protected:
  using words = std::vector<std::string>;

  std::unique_ptr<running_command> start(const words& arguments) {
    return std::make_unique<running_command>(folder_.path(), emit_folder::words(arguments));
  }
  // A service on "sock" that is ready; messages come out.
  std::unique_ptr<running_command> start_listening(words arguments = {"--to", "-"}) {
    arguments.insert(arguments.end(), {"--listen", "unix:sock"});
    auto service = start(arguments);
    EXPECT_TRUE(service->wait_for_err("listening on unix:sock"));
    return service;
  }
  std::unique_ptr<socket_client> client() {
    auto one = std::make_unique<socket_client>(folder_.path("sock"));
    EXPECT_TRUE(one->is_connected());
    return one;
  }
  // A FIFO with the service as its reader.
  std::unique_ptr<running_command> start_reading_fifo() {
    EXPECT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
    return start({"-q", "--to", "-", "fifo"});
  }
  // Opens the FIFO, waiting for its reader, writes, and leaves.
  void write_to_fifo(const std::string& text) const {
    const int fifo = open(folder_.path("fifo").c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fifo, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fifo);
  }

  emit_folder folder_;
};

static command_end end_of(running_command& service, int signal = SIGTERM) {
  service.signal(signal);
  return service.wait_for_end();
}

// --- FIFO

TEST_F(EmitService, FifoIsReadOnWhenItsWritersHaveLeft) {
  const auto service = start_reading_fifo();
  for (const char* text : {"one", "two", "three"}) {
    write_to_fifo(note_record(text));
    EXPECT_EQ(service->out_line(), text);
  }
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitService, HalfALineOfAWriterThatLeftIsNotJoinedToTheNext) {
  const auto service = start_reading_fifo();
  write_to_fifo("{\"event\":");
  EXPECT_THAT(service->err_line(), HasSubstr("fifo:1:"));
  write_to_fifo(note_record("whole"));
  EXPECT_EQ(service->out_line(), "whole");
  EXPECT_EQ(end_of(*service).status, 1);
}

TEST_F(EmitService, FifoMustComeLast) {
  ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  const auto run = folder_.emit_text("--to - fifo -", "");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "kplog: the FIFO must come last: reading it never ends\n");
}

TEST_F(EmitService, WhatWasSentBeforeTheSignalIsWritten) {
  const auto service = start_reading_fifo();
  write_to_fifo(note_record("first"));
  EXPECT_EQ(service->out_line(), "first");
  service->signal(SIGSTOP);
  write_to_fifo(note_record("last"));
  service->signal(SIGTERM);
  service->signal(SIGCONT);
  const command_end end = service->wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "last\n");
}

// --- Signals

TEST_F(EmitService, TerminatedFilesHaveAStatusOfTheirOwn) {
  const auto run = start({"--to", "text:./shop", "--ack"});
  ASSERT_TRUE(run->send(note_record("a") + note_record("b")));
  EXPECT_EQ(run->out_line(), "2");
  const command_end end = end_of(*run);
  EXPECT_EQ(end.status, 143);
  EXPECT_THAT(end.err, HasSubstr("2 records: 2 written"));
}

// The signal finds what is sent in between in the pipe.
static command_end end_behind(running_command& run, const std::string& sent) {
  run.signal(SIGSTOP);
  EXPECT_TRUE(run.send(sent));
  run.signal(SIGTERM);
  run.signal(SIGCONT);
  return run.wait_for_end();
}

TEST_F(EmitService, WhatIsInAPipeAtTheSignalIsTaken) {
  const auto run = start({"--to", "-"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "a");
  std::string sent = note_record("b") + note_record("c") + note_record("without an end");
  sent.pop_back();
  const command_end end = end_behind(*run, sent);
  EXPECT_EQ(end.status, 143);
  EXPECT_EQ(end.out, "b\nc\nwithout an end\n");
}

TEST_F(EmitService, HalfARecordAtTheSignalIsReported) {
  const auto run = start({"--to", "-"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "a");
  const command_end end = end_behind(*run, note_record("b") + "{\"event\":\"NO");
  EXPECT_EQ(end.status, 143);
  EXPECT_EQ(end.out, "b\n");
  EXPECT_THAT(end.err, AllOf(HasSubstr("<stdin>:3:13: error[record-syntax]"),
                             HasSubstr("3 records: 2 written, 0 rejected by the filter, 1 bad")));
}

TEST_F(EmitService, PipeWhoseWritersLeftHasEndedBeforeTheSignal) {
  const auto run = start({"--to", "-"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "a");
  run->signal(SIGSTOP);
  EXPECT_TRUE(run->send(note_record("b")));
  run->end_input();
  run->signal(SIGTERM);
  run->signal(SIGCONT);
  const command_end end = run->wait_for_end();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "b\n");
}

// Nobody reads the messages before the signal, so that the command is still in its first file.
TEST_F(EmitService, FilesThatTheSignalLeftUnreadAreNamed) {
  std::string records;
  for (int i = 0; i < 20000; ++i) records += note_record(std::string(100, 'x'));
  folder_.write("long", records);
  folder_.write("more", note_record("y"));
  const auto run = start({"--to", "-", "long", "more"});
  ASSERT_EQ(run->out_line().size(), 100u);
  const command_end end = end_of(*run);
  EXPECT_EQ(end.status, 143);
  const auto shown = 1 + std::count(end.out.begin(), end.out.end(), '\n');
  EXPECT_LT(shown, 20000);
  EXPECT_THAT(end.err,
              testing::StartsWith("kplog: long was read to line " + std::to_string(shown) +
                                  " only, because a signal ended the run\n"
                                  "kplog: more was not read, because a signal ended the run\n"));
}

TEST_F(EmitService, InterruptedFilesHaveAStatusOfTheirOwn) {
  const auto run = start({"--to", "text:./shop", "--ack"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "1");
  const command_end end = end_of(*run, SIGINT);
  EXPECT_EQ(end.status, 130);
  EXPECT_THAT(end.err, HasSubstr("1 record: 1 written"));
  EXPECT_THAT(folder_.text("shop.20261115.0001"), HasSubstr("NOTE a\n"));
}

TEST_F(EmitService, InterruptedServiceHasEnded) {
  const auto service = start_listening();
  EXPECT_EQ(end_of(*service, SIGINT).status, 0);
}

TEST_F(EmitService, HangupOpensMovedFilesAnew) {
  const auto service = start_listening({"--to", "json:stored", "--count", "./c", "--ack"});
  const auto sender = client();
  sender->send(note_record("before"));
  EXPECT_EQ(service->out_line(), "1");
  ASSERT_EQ(rename(folder_.path("stored").c_str(), folder_.path("stored.1").c_str()), 0);
  service->signal(SIGHUP);
  sender->send(note_record("after"));
  EXPECT_EQ(service->out_line(), "2");
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_THAT(folder_.text("stored.1"), HasSubstr("before"));
  EXPECT_THAT(folder_.text("stored"), AllOf(HasSubstr("after"), Not(HasSubstr("before"))));
}

TEST_F(EmitService, HangupReadsTheFiltersConfigurationAgain) {
  folder_.write("filter.conf", "[global]\nLogLevelLow = 4\n\n\n");
  const auto service = start_listening({"--to", "text:./shop", "--config", "filter.conf", "--ack"});
  const auto sender = client();
  sender->send(note_record("rejected"));  // of level 3
  EXPECT_EQ(service->out_line(), "1");
  folder_.write("filter.conf", "[global]\nLogLevelLow = 3\n\n\n");
  service->signal(SIGHUP);
  sender->send(note_record("passes"));
  EXPECT_EQ(service->out_line(), "2");
  ASSERT_EQ(unlink(folder_.path("filter.conf").c_str()), 0);
  service->signal(SIGHUP);
  EXPECT_TRUE(service->wait_for_err("cannot read filter.conf: No such file or directory"));
  sender->send(note_record("passes still"));
  EXPECT_EQ(service->out_line(), "3");
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_THAT(folder_.text("shop.20261115.0001"),
              AllOf(Not(HasSubstr("rejected")), HasSubstr("NOTE passes\n"),
                    HasSubstr("NOTE passes still\n")));
}

// --- Locks

TEST_F(EmitService, SignalsAreAnsweredWhileALockIsWaitedFor) {
  const std::vector<words> outputs = {{"--to", "text:./shop"},
                                      {"--to", "json:shop"},
                                      {"--to", "-", "--count", "shop"},
                                      {"--to", "-", "--on-error", "quarantine=shop"}};
  EXPECT_EQ(folder_.emit_text("-q --to text:./shop", "").status, 0);
  const lock_holder holder(folder_.path("shop_lock"));
  std::vector<std::unique_ptr<running_command>> runs;
  for (words arguments : outputs) {
    arguments.insert(arguments.end(), {"-q", "--format", "json", "input"});
    runs.push_back(start(arguments));
  }
  std::string told;
  for (const auto& run : runs) {
    told += run->err_line() + "\n";
    run->signal(run == runs.front() ? SIGINT : SIGTERM);
  }
  for (const auto& run : runs) {
    const command_end end = run->wait_for_end();
    EXPECT_EQ(end.status, 128 + (run == runs.front() ? SIGINT : SIGTERM));
    told += end.err;
  }
  expect_golden_file("emit_locks.expected", told);
  EXPECT_EQ(folder_.text("shop_lock"), "kplog lock\n");
}

TEST_F(EmitService, RecordsThatALockHoldsBackAreTold) {
  const auto run = start({"--to", "text:./shop", "--ack"});
  ASSERT_TRUE(run->send(note_record("a")));
  EXPECT_EQ(run->out_line(), "1");
  const lock_holder holder(folder_.path("shop_lock"));
  ASSERT_TRUE(run->send(note_record("b")));
  EXPECT_TRUE(run->wait_for_err("waiting for the lock"));
  const command_end end = end_of(*run);
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.out, "");
  EXPECT_THAT(end.err,
              AllOf(HasSubstr("cannot take the lock ./shop_lock: another process holds it"),
                    HasSubstr("1 not written")));
  EXPECT_THAT(folder_.text("shop.20261115.0001"), Not(HasSubstr("NOTE b")));
}

// Whoever may read a folder can lock it.
TEST_F(EmitService, NobodyCanStopAServiceByLockingItsFolder) {
  const lock_holder holder(folder_.path());
  const auto service = start_listening();
  EXPECT_TRUE(client()->send(note_record("served")));
  EXPECT_EQ(service->out_line(), "served");
  EXPECT_NE(access(folder_.path("sock_lock").c_str(), F_OK), 0);
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitService, AServiceThatWaitsForAnotherToStartEndsAtASignal) {
  folder_.write("sock_lock", "kplog lock\n");
  const auto holder = std::make_unique<lock_holder>(folder_.path("sock_lock"));
  const auto service = start({"--to", "-", "--listen", "unix:sock"});
  EXPECT_TRUE(service->wait_for_err("waiting for the lock ./sock_lock"));
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitService, WhatStandsInThePlaceOfTheSocketsLockIsLeftAlone) {
  folder_.write("sock_lock", "precious");
  const auto run = folder_.emit("--to - --listen unix:sock");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("cannot take the lock ./sock_lock: it is no lock"));
  EXPECT_EQ(folder_.text("sock_lock"), "precious");
}

// --- Progress

// Somebody stopped the terminal, or reads the pipe no more: that is no reason to stop the service.
class StuckError : public EmitService, public testing::WithParamInterface<command_err> {};

TEST_P(StuckError, DoesNotStopTheServiceAndIsToldTheLackLater) {
  running_command run(folder_.path(), emit_folder::words({"--to", "json:stored", "--ack"}),
                      GetParam());
  EXPECT_TRUE(run.send("bad\n" + note_record("a")));
  EXPECT_EQ(run.out_line(), "2");
  EXPECT_TRUE(run.send(note_record("b")));
  EXPECT_EQ(run.out_line(), "3");
  EXPECT_THAT(run.err_so_far(), StartsWith("...."));
  EXPECT_TRUE(run.send("bad\n"));
  EXPECT_EQ(run.out_line(), "4");
  EXPECT_TRUE(run.wait_for_err("cannot write to standard error: Resource temporarily unavailable"));
  EXPECT_EQ(run.wait().status, 1);
}

TEST_P(StuckError, LeavesNoSignalUnanswered) {
  running_command run(folder_.path(), emit_folder::words({"--to", "json:stored", "--ack"}),
                      GetParam());
  EXPECT_TRUE(run.send("bad\n" + note_record("a")));
  EXPECT_EQ(run.out_line(), "2");
  run.signal(SIGTERM);
  EXPECT_EQ(run.wait_for_end().status, 143);
}

INSTANTIATE_TEST_SUITE_P(Kinds, StuckError,
                         testing::Values(command_err::full_pipe, command_err::full_terminal),
                         [](const auto& kind) {
                           return kind.param == command_err::full_pipe ? "Pipe" : "Terminal";
                         });

TEST_F(EmitService, ProgressIsRedrawnOnATerminal) {
  running_command run(folder_.path(), emit_folder::words({"--to", "text:./shop", "--ack"}),
                      command_err::terminal);
  std::string shown;
  int count = 0;
  while (shown.find("/s, 0 bad\r\x1b[K") == std::string::npos && !HasFailure()) {
    ASSERT_TRUE(run.send(note_record("a")));
    ASSERT_EQ(run.out_line(), std::to_string(++count));
    shown += run.err_so_far();
  }
  const command_end end = run.wait();
  EXPECT_THAT(end.err, HasSubstr("\r\x1b[Kkplog: " + std::to_string(count) + " records: "));
}

// A line of progress would stand before the next message.
TEST_F(EmitService, ThereIsNoProgressAmongMessages) {
  running_command run(folder_.path(), emit_folder::words({"--to", "-"}),
                      command_err::shared_terminal);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 1; std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(1200); ++i) {
    const std::string message = "message " + std::to_string(i);
    ASSERT_TRUE(run.send(note_record(message)));
    ASSERT_EQ(run.err_line(), message + "\r");
  }
  EXPECT_THAT(run.wait().err, testing::StartsWith("kplog: "));
}

TEST_F(EmitService, ThereIsNoProgressBesideATerminal) {
  const auto run = folder_.emit_text("--to text:./shop", note_record("a"));
  EXPECT_THAT(run.err, Not(HasSubstr("\x1b")));
}

// --- Clients

TEST_F(EmitService, SocketIsForOwnerAndGroup) {
  const mode_t before = umask(0);
  const auto service = start_listening();
  umask(before);
  struct stat status {};
  ASSERT_EQ(lstat(folder_.path("sock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0660u);
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_NE(lstat(folder_.path("sock").c_str(), &status), 0);
}

TEST_F(EmitService, AbandonedSocketIsReplacedAndAServedOneIsNot) {
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

TEST_F(EmitService, FileAtTheSocketsPathIsLeftAlone) {
  folder_.write("sock", "precious");
  const auto run = folder_.emit("--to - --listen unix:sock");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(folder_.text("sock"), "precious");
}

TEST_F(EmitService, PathThatIsTooLongForASocketIsWrongUsage) {
  const auto run = folder_.emit("--to - --listen unix:" + std::string(108, 's'));
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "kplog: --listen: the path of a socket has 1 to 107 bytes\n");
}

TEST_F(EmitService, ManyClientsAreServedAtOnce) {
  const auto service = start_listening({"--to", "text:./shop", "--ack"});
  std::vector<std::unique_ptr<socket_client>> clients;
  for (int i = 0; i < 100; ++i) clients.push_back(client());
  for (int round = 0; round < 2; ++round)
    for (size_t i = 0; i < 60; ++i)
      clients[i]->send(note_record("client " + std::to_string(i) + "."));
  while (service->out_line() != "120") ASSERT_FALSE(testing::Test::HasFailure());
  // Those behind the limit are served when others leave.
  for (size_t i = 60; i < 100; ++i)
    clients[i]->send(note_record("client " + std::to_string(i) + "."));
  for (size_t i = 0; i < 60; ++i) clients[i]->leave();
  while (service->out_line() != "160") ASSERT_FALSE(testing::Test::HasFailure());
  EXPECT_EQ(end_of(*service).status, 0);
  const std::string log = folder_.text("shop.20261115.0001");
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 160);
  EXPECT_THAT(log, AllOf(HasSubstr("client 0."), HasSubstr("client 99.")));
}

// How many files processes may open that start in a scope.
class descriptor_limit {
 public:
  explicit descriptor_limit(rlim_t limit) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit changed{limit, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &changed);
  }
  ~descriptor_limit() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(EmitService, ClientsLeaveDescriptorsForTheOutputs) {
  std::unique_ptr<running_command> service;
  {
    const descriptor_limit few(40);
    service = start_listening({"--to", "text:./shop", "--to", "json:stored", "--ack"});
  }
  std::vector<std::unique_ptr<socket_client>> clients;
  for (int i = 0; i < 40; ++i) {
    clients.push_back(client());
    clients.back()->send(note_record("client " + std::to_string(i) + "."));
  }
  int acknowledged = 0;
  while (acknowledged < 40 && !HasFailure()) {
    acknowledged = std::stoi(service->out_line());
    for (int i = 0; i < acknowledged; ++i) clients[static_cast<size_t>(i)]->leave();
  }
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_THAT(folder_.text("shop.20261115.0001"), HasSubstr("client 39.\n"));
}

// Sixty-four are served, and the others have connected.
TEST_F(EmitService, WhatClientsHadSentAtTheSignalIsTaken) {
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

TEST_F(EmitService, SlowClientKeepsNobodyWaiting) {
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

TEST_F(EmitService, VanishingClientsHarmNobody) {
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

TEST_F(EmitService, HostileClientsAreBounded) {
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

TEST_F(EmitService, HalfARecordOfAClientAtTheSignalIsReported) {
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

TEST_F(EmitService, SendersThatNeverPauseDoNotKeepItFromEnding) {
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

// Three clients, of which each has sent a record.
struct three_senders {
  explicit three_senders(const emit_folder& folder, const lock_waiting& waiting = {})
      : service(folder.path("sock"), waiting) {
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

TEST_F(EmitService, SignalIsAnsweredBetweenTwoClients) {
  int taken = 0;
  three_senders senders(folder_, {.is_to_end = [&taken] { return taken != 0; }});
  const record_taker take = [&taken](const record_line&) { ++taken; };
  senders.read(take);  // accepts them
  senders.read(take);
  EXPECT_EQ(taken, 1);
}

TEST_F(EmitService, TimeOfTheEndIsLookedAtBetweenTwoClients) {
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

TEST_F(EmitService, FilesAndClientsAreReadTogether) {
  folder_.write("records", note_record("of the file"));
  const auto service = start_listening({"--to", "-", "records"});
  EXPECT_EQ(service->out_line(), "of the file");
  client()->send(note_record("of the client"));
  EXPECT_EQ(service->out_line(), "of the client");
  EXPECT_EQ(end_of(*service).status, 0);
}
