// kplog emit as a service: FIFOs, signals, locks, progress.
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
#include "tests/command/emit_service_fixture.h"
#include "tests/command/golden_file.h"
#include "tests/recording/sinks/lock_holder.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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

TEST_F(EmitService, InterruptedReaderOfAFifoHasEnded) {
  const auto service = start_reading_fifo();
  write_to_fifo(note_record("a"));
  EXPECT_EQ(service->out_line(), "a");
  EXPECT_EQ(end_of(*service, SIGINT).status, 0);
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

// A service would wait for what is in the way of its outputs, but not at its end.
TEST_F(EmitService, SignalEndsAServiceThatALockHoldsBack) {
  const auto service = start_listening({"--to", "text:./shop", "--ack"});
  const auto sender = client();
  sender->send(note_record("a"));
  EXPECT_EQ(service->out_line(), "1");
  const lock_holder holder(folder_.path("shop_lock"));
  sender->send(note_record("b"));
  EXPECT_TRUE(service->wait_for_err("waiting for the lock ./shop_lock"));
  const command_end end = end_of(*service);
  EXPECT_EQ(end.status, 3);
  EXPECT_THAT(end.err, HasSubstr("2 records: 1 written, 0 rejected by the filter, 0 bad, 1 not "
                                 "written\n"));
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
