// kplog send, beside services that are true, and others.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>

#include "recording/files/descriptor.h"
#include "tests/command/emit_acknowledged_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;

class SendCommand : public EmitAcknowledged {};

TEST_F(SendCommand, WaitsForTheServiceAndSendsWhatIsMissing) {
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

TEST_F(SendCommand, RefusesNumbersOfAnotherInput) {
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

TEST_F(SendCommand, EndsAtASignalAndAtARefusal) {
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

TEST_F(SendCommand, SaysWhatIsBadAndWhoRefusesMore) {
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
TEST_F(SendCommand, SendsWhatItsHelloSaysThoughTheServiceHasMore) {
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

TEST_F(SendCommand, BelievesNoAcknowledgementOfWhatItDidNotSend) {
  std::thread service(
      [this] { serve_one(folder_.path("sock"), "{\"ack\":0}\n", "{\"ack\":2}\n"); });
  folder_.write("records", note_record("one"));
  const auto sent = run_kplog(folder_.path(), "send --socket sock records");
  service.join();
  EXPECT_EQ(sent.status, 3);
  EXPECT_EQ(sent.err, "kplog: sock: the service acknowledges more than it was sent\n");
}

// A record that is sent again is bad again.
TEST_F(SendCommand, TellsOfABadRecordOnce) {
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
