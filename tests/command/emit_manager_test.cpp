// kplog emit under a service manager: what it is told, and sockets that it hands over.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <sstream>
#include <thread>

#include "tests/command/documentation_page.h"
#include "tests/command/emit_service_fixture.h"
#include "tests/command/manager_socket.h"

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class EmitUnderManager : public EmitService {
 protected:
  std::unique_ptr<running_command> start_behind(const std::string& before, const words& arguments) {
    return std::make_unique<running_command>(folder_.path(), emit_folder::words(arguments),
                                             command_err::pipe, before);
  }
  std::unique_ptr<running_command> start_managed(const std::string& more = "") {
    return start_behind("export NOTIFY_SOCKET=" + folder_.path("manager") + more,
                        {"--to", "text:./shop", "--listen", "unix:sock"});
  }
};

TEST_F(EmitUnderManager, TellsWhenItServesReloadsAndStops) {
  const manager_socket manager(folder_.path("manager"));
  const auto service = start_managed();
  EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=Taking records");
  EXPECT_TRUE(client()->is_connected());
  service->signal(SIGHUP);
  EXPECT_THAT(manager.heard(), MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+\n"
                                            "STATUS=Reading the settings again"));
  EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=Taking records");
  service->signal(SIGTERM);
  EXPECT_EQ(manager.heard(), "STOPPING=1\nSTATUS=Writing what was sent");
  EXPECT_EQ(service->wait_for_end().status, 0);
}

TEST_F(EmitUnderManager, TellsAManagerThatBeganAnew) {
  std::optional<manager_socket> manager(folder_.path("manager"));
  const auto service = start_managed();
  EXPECT_THAT(manager->heard(), StartsWith("READY=1"));
  manager.reset();
  ASSERT_EQ(unlink(folder_.path("manager").c_str()), 0);
  manager.emplace(folder_.path("manager"));
  service->signal(SIGTERM);
  EXPECT_EQ(manager->heard(), "STOPPING=1\nSTATUS=Writing what was sent");
  EXPECT_EQ(service->wait_for_end().status, 0);
}

TEST_F(EmitUnderManager, TellsItsWatchdogThatItIsAlive) {
  const manager_socket manager(folder_.path("manager"));
  const auto service = start_managed(" WATCHDOG_USEC=20000");
  EXPECT_THAT(manager.heard(), StartsWith("READY=1"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.heard(), "WATCHDOG=1");
  EXPECT_EQ(end_of(*service).status, 0);
}

// A service whose disk is full waits for it, and is not to be killed for that.
TEST_F(EmitUnderManager, TellsItsWatchdogAlsoWhileItsOutputsCannotBeWritten) {
  ASSERT_EQ(mkdir(folder_.path("shop.20261115.0001").c_str(), 0700), 0);
  const manager_socket manager(folder_.path("manager"));
  const auto service = start_managed(" WATCHDOG_USEC=20000");
  EXPECT_THAT(manager.heard(), StartsWith("READY=1"));
  client()->send(note_record("a"));
  EXPECT_TRUE(service->wait_for_err("nothing is read until it can be written"));
  while (manager.heard() != "WATCHDOG=1") ASSERT_FALSE(HasFailure());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.heard(), "WATCHDOG=1");
  EXPECT_EQ(end_of(*service).status, 3);
}

TEST_F(EmitUnderManager, WaitsForNoManagerThatDoesNotRead) {
  const manager_socket manager(folder_.path("manager"));
  const auto service =
      start_behind("export WATCHDOG_USEC=2 NOTIFY_SOCKET=" + folder_.path("manager"),
                   {"--to", "-", "--listen", "unix:sock"});
  EXPECT_TRUE(service->wait_for_err("listening on unix:sock"));
  const auto sender = client();
  for (int i = 0; i < 2000; ++i) {  // more words than any queue has room for
    ASSERT_TRUE(sender->send(note_record("a")));
    ASSERT_EQ(service->out_line(), "a");
  }
  EXPECT_EQ(end_of(*service).status, 0);
}

// As a manager does it: listens, and hands the socket over as descriptor 3.
static std::string handing_over(const std::string& path) {
  return "set -- python3 -c \"import os, socket, sys; s = socket.socket(socket.AF_UNIX); "
         "s.bind('" +
         path +
         "'); s.listen(8); os.dup2(s.fileno(), 3); "
         "os.set_inheritable(3, True); os.environ.update(LISTEN_FDS='1', "
         "LISTEN_PID=str(os.getpid())); os.execv(sys.argv[1], sys.argv[1:])\" \"$@\"";
}

TEST_F(EmitUnderManager, TakesOverTheSocketOfItsPath) {
  const auto service = start_behind(handing_over("sock"), {"--to", "-", "--listen", "unix:sock"});
  EXPECT_TRUE(service->wait_for_err("listening on unix:sock"));
  client()->send(note_record("a"));
  EXPECT_EQ(service->out_line(), "a");
  EXPECT_EQ(end_of(*service).status, 0);
  EXPECT_EQ(access(folder_.path("sock").c_str(), F_OK), 0) << "the manager's own";
}

TEST_F(EmitUnderManager, RefusesASocketOfAnotherPath) {
  const auto service = start_behind(handing_over("other"), {"--to", "-", "--listen", "unix:sock"});
  const command_end end = service->wait_for_end();
  EXPECT_EQ(end.status, 3);
  EXPECT_THAT(end.err, HasSubstr("cannot take over a socket of sock: the sockets that were handed "
                                 "over have other paths, or do "
                                 "not listen"));
}

// The text behind "ExecStart=" with its lines joined, in this folder.
static std::string command_of_unit(const std::string& unit, const std::string& folder) {
  const size_t begin = unit.find("ExecStart=/usr/bin/kplog emit ") + 30;
  std::string command = unit.substr(begin, unit.find("\nExec", begin) - begin);
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"\\\n", " "},
                                 {"/usr/share/shop", folder},
                                 {"/var/log/shop", folder},
                                 {"/etc/shop", folder},
                                 {"/run/shop", folder}})
    for (size_t at = command.find(from); at != std::string::npos; at = command.find(from, at))
      command.replace(at, from.size(), to);
  return command;
}

TEST_F(EmitUnderManager, CommandOfThePagesUnitServes) {
  folder_.write("de.po",
                "msgid \"\"\nmsgstr \"Language: de\\nContent-Type: text/plain; "
                "charset=UTF-8\\n\"\n");
  ASSERT_EQ(run_kplog(folder_.path(), "catalog build -q events.yaml --po de.po -o messages").status,
            0);
  folder_.write("events.conf", "[shop]\nLogLevelLow = 0\n\n\n");
  std::istringstream text(
      command_of_unit(page_block("service.md", "\n## systemd\n"), folder_.path()));
  words arguments = {"emit"};
  for (std::string word; text >> word;) arguments.push_back(word);
  running_command service(folder_.path(), arguments);  // which says nothing, being quiet
  const std::string path = folder_.path("events.sock");
  auto one = std::make_unique<socket_client>(path);
  for (int tries = 0; !one->is_connected() && tries < 30000; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    one = std::make_unique<socket_client>(path);
  }
  one->send("{\"event\":\"NOTE\",\"attributes\":{\"TEXT\":\"now\"}}\nbad\n");
  one->end_sending();
  EXPECT_EQ(one->line(), "");
  const command_end end = end_of(service);
  EXPECT_EQ(end.status, 1) << end.err;
  EXPECT_EQ(folder_.text("bad-records"), "bad\n");
  EXPECT_EQ(folder_.text("events.cnt").size(), 32U);
}

TEST_F(EmitUnderManager, WhatEndsAServiceIsAnErrorForAJournal) {
  folder_.write("records", note_record("a"));
  ASSERT_EQ(mkdir(folder_.path("shop.20261115.0001").c_str(), 0700), 0);
  const auto run = folder_.emit("-q --to text:./shop records 2>told",
                                "touch told && export JOURNAL_STREAM=$(stat -c %d:%i told) && ");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(folder_.text("told"), StartsWith("<3>kplog: cannot open ./shop.20261115.0001: "));
}

TEST_F(EmitUnderManager, MessagesForAJournalSayHowGraveTheyAre) {
  folder_.write("records", "no record\n");
  const auto run = folder_.emit("--to text:./shop records 2>told",
                                "touch told && export JOURNAL_STREAM=$(stat -c %d:%i told) && ");
  EXPECT_EQ(run.status, 1);
  const std::string told = folder_.text("told");
  EXPECT_THAT(told, StartsWith("<4>records:1:2: error[record-syntax]: "));
  EXPECT_THAT(told, HasSubstr("\n<6>kplog: 1 record: 0 written"));
  std::istringstream lines(told);
  for (std::string line; std::getline(lines, line);)
    EXPECT_THAT(line, MatchesRegex("<[346]>.*")) << told;
}
