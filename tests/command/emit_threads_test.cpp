// kplog emit where much is to be read, so that several threads make entries.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>

#include "logging/counter_format.h"
#include "tests/command/emit_service_fixture.h"

using testing::AllOf;
using testing::HasSubstr;

// The records of a counter file; new ones stand there by batches, which have other ends.
static std::string sorted_counts(const std::string& file) {
  std::vector<std::string> records;
  for (size_t at = 0; at < file.size(); at += kp_counter_record_size)
    records.push_back(file.substr(at, kp_counter_record_size));
  std::sort(records.begin(), records.end());
  return std::accumulate(records.begin(), records.end(), std::string());
}

class EmitThreads : public EmitService {
 protected:
  // What a run has made of the records, with so many threads.
  std::map<std::string, std::string> made_with(int threads, const std::string& options) const {
    const std::string name = "made" + std::to_string(threads);
    std::filesystem::create_directory(folder_.path(name));
    const command_result run =
        folder_.emit("--threads " + std::to_string(threads) + " --to json:- --to text:" + name +
                     "/shop,max-size=100K --to journal:" + name + "/shop,max-size=300K --count " +
                     name + "/shop --on-error quarantine=" + name + "/bad " + options + " records");
    std::map<std::string, std::string> made = {{"standard output", run.out},
                                               {"standard error", run.err},
                                               {"status", std::to_string(run.status)}};
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path(name)))
      made[entry.path().filename()] = read_whole_file(entry.path().string());
    made["shop.cnt"] = sorted_counts(made["shop.cnt"]);
    return made;
  }
};

// --- The same as by one thread

// Records of every kind that there is, good and bad.
class any_records {
 public:
  explicit any_records(unsigned seed) : random_(seed) {}

  std::string text(size_t bytes) {
    std::string records;
    while (records.size() < bytes) records += record();
    return records;
  }

 private:
  std::string record() {
    static const std::vector<std::string> bad = {
        "no JSON",
        R"({"event":"NOBODY"})",
        R"({"event":1001,"attributes":{"USERNAME":"x"}})",
        R"({"event":1001,"attributes":{"PORT":70000}})",
        R"({"event":1004})",
        R"({"level":3})",
        R"({"event":1003,"attributes":{"TEXT":")" + std::string(3000, 'x') + "\"}}",
        R"({"event":1003,"time":"yesterday"})",
        "{\"event\":1003,\"attributes\":{\"TEXT\":\"\xFF\"}}"};
    const unsigned kind = any(40);
    if (kind == 0) return bad[any(static_cast<unsigned>(bad.size()))] + "\n";
    if (kind == 1) return any(2) == 0 ? "\n" : " \t\r\n";
    if (kind == 2)
      return std::string(R"({"event":1002,"level":)") + digit() + R"(,"time":)" + time() +
             R"(,"attributes":{"LINK":"eth)" + digit() + "\"}}\r\n";
    if (kind == 3 && any(50) == 0)
      return R"({"event":"NOTE","time":)" + time() +
             R"(,"attributes":{"TEXT":"long"},"context":{"of":")" + std::string(any(4000), 'y') +
             "\"}}" + std::string(any(200000), ' ') + "\n";
    if (kind < 10)
      return R"({"event":"NOTE","time":)" + time() + R"(,"attributes":{"TEXT":")" +
             std::string(any(300), static_cast<char>('a' + any(26))) + "\"}}\n";
    return R"({"event":"USER_LOGIN","time":)" + time() + R"(,"attributes":{"PORT":)" +
           std::to_string(any(65536)) + R"(,"USER_NAME":"u)" + std::to_string(any(1000000)) +
           "\"}}\n";
  }
  unsigned any(unsigned below) { return static_cast<unsigned>(random_() % below); }
  std::string digit() { return std::to_string(any(10)); }
  // Mostly of one day.
  std::string time() {
    return "\"2026-11-1" + std::string(any(50) == 0 ? digit() : "5") + "T17:02:5" + digit() +
           "+08:00\"";
  }

  std::mt19937 random_;
};

TEST_F(EmitThreads, MakeWhatOneThreadMakes) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  folder_.write("records", any_records(seed).text(size_t{3} << 19));
  for (const char* options : {"-q", "--min-level 3 --mask 2 --format json"}) {
    const auto alone = made_with(0, options);
    for (const int threads : {1, 3}) {
      const auto made = made_with(threads, options);
      ASSERT_EQ(made.size(), alone.size());
      for (const auto& [what, text] : alone) EXPECT_TRUE(made.at(what) == text) << what;
    }
    for (const int threads : {0, 1, 3})
      std::filesystem::remove_all(folder_.path("made" + std::to_string(threads)));
  }
}

// The first bad record is the last that is read, wherever it is.
TEST_F(EmitThreads, StopBehindTheFirstBadRecord) {
  const std::string good = note_record(std::string(200, 'x'));
  for (const size_t before : {1000U, 2000U, 2001U, 4999U}) {
    std::string records;
    for (size_t i = 0; i < 6000; ++i) records += i == before ? "bad\n" : good;
    folder_.write("records", records);
    const auto run = folder_.emit("-q --threads 2 --on-error stop --to json:out --ack records");
    EXPECT_EQ(run.status, 1);
    const std::string out = folder_.text("out");
    EXPECT_EQ(static_cast<size_t>(std::count(out.begin(), out.end(), '\n')), before);
    EXPECT_TRUE(run.out.ends_with(std::to_string(before + 1) + "\n")) << run.out;
    EXPECT_THAT(run.err, HasSubstr("records:" + std::to_string(before + 1) + ":1: error"));
    std::filesystem::remove(folder_.path("out"));
  }
}

// A record without a time is of when it came, and none is of before the one in front of it.
TEST_F(EmitThreads, TimesOfRecordsWithoutOneGoForward) {
  std::string records;
  for (int i = 0; i < 60000; ++i)
    records += "{\"event\":\"USER_LOGIN\",\"attributes\":{\"USER_NAME\":\"alice\",\"PORT\":7}}\n";
  ASSERT_EQ(folder_.emit_text("-q --threads 4 --to json:out", records).status, 0);
  std::istringstream lines(folder_.text("out"));
  std::string last;
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const std::string time = line.substr(line.find("\"time\":"), 28);
    ASSERT_LE(last, time) << "line " << count;
    last = time;
  }
  EXPECT_EQ(count, 60000);
}

TEST_F(EmitThreads, WrongNumbersAreWrongUsage) {
  for (const char* wrong : {"65", "-1", "two", ""}) {
    const auto run = folder_.emit_text("--to - --threads '" + std::string(wrong) + "'", "");
    EXPECT_EQ(run.status, 2) << wrong;
    EXPECT_THAT(run.err, HasSubstr("\"" + std::string(wrong) + "\" is no number from 0 to 64"));
  }
}

// --- A service

static std::string numbered_records(uint64_t first, uint64_t last) {
  std::string records;
  for (uint64_t number = first; number <= last; ++number)
    records += note_record("number " + std::to_string(number) + " " + std::string(300, '.'));
  return records;
}

// Of the stored form; with each number how often it is there.
static std::map<uint64_t, int> stored_numbers(const std::string& text, const std::string& client) {
  std::map<uint64_t, int> seen;
  const std::string start = R"("client":")" + client + R"(","number":)";
  for (size_t at = text.find(start); at != std::string::npos; at = text.find(start, at + 1))
    ++seen[std::stoull(text.substr(at + start.size(), 20))];
  return seen;
}

TEST_F(EmitThreads, ManyClientsAreAcknowledgedInTheirOrder) {
  static constexpr uint64_t count = 3000;
  const auto service = start_listening({"--to", "json:out", "--threads", "2"});
  std::vector<std::unique_ptr<running_command>> senders;
  folder_.write("records", numbered_records(1, count));
  for (const std::string name : {"a", "b", "c", "d"})
    senders.push_back(std::make_unique<running_command>(
        folder_.path(), words{"send", "-q", "--socket", "sock", "--client", name, "records"}));
  for (const auto& sender : senders) EXPECT_EQ(sender->wait().status, 0);
  EXPECT_EQ(end_of(*service).status, 0);
  const std::string out = folder_.text("out");
  for (const std::string name : {"a", "b", "c", "d"}) {
    uint64_t last = 0;
    const std::string start = R"("client":")" + name + R"(","number":)";
    for (size_t at = out.find(start); at != std::string::npos; at = out.find(start, at + 1))
      ASSERT_EQ(std::stoull(out.substr(at + start.size(), 20)), ++last);
    EXPECT_EQ(last, count);
  }
}

// What was read behind the record that closes the client is not taken, though threads were at it
// already, and comes once when it is sent again.
TEST_F(EmitThreads, NothingBehindTheBadRecordThatClosesAClient) {
  static constexpr uint64_t before = 2500, after = 2500;
  const auto service = start_listening({"--to", "json:out", "--threads", "2", "--max-bad", "0"});
  const std::string good = numbered_records(1, before);
  const std::string rest = numbered_records(before + 2, before + 1 + after);
  const auto sender = client();
  sender->send("{\"kplog\":1,\"client\":\"a\"}\n");
  EXPECT_EQ(sender->line(), R"({"ack":0})");
  sender->send(good + "bad\n" + rest);
  std::string heard;
  for (std::string line = sender->line(); !line.empty(); line = sender->line()) heard += line;
  EXPECT_THAT(heard,
              AllOf(HasSubstr(R"({"bad":2501,)"), HasSubstr("more bad records in a minute")));

  const auto again = client();
  again->send("{\"kplog\":1,\"client\":\"a\",\"first\":2502}\n");
  std::string line = again->line();
  again->send(rest);
  const std::string all = "{\"ack\":" + std::to_string(before + 1 + after) + "}";
  while (line != all && !line.empty()) line = again->line();
  EXPECT_EQ(line, all);
  end_of(*service);
  const std::map<uint64_t, int> seen = stored_numbers(folder_.text("out"), "a");
  EXPECT_EQ(seen.size(), before + after);
  EXPECT_FALSE(seen.contains(before + 1));
  for (const auto& [number, times] : seen) EXPECT_EQ(times, 1) << number;
}

TEST_F(EmitThreads, WhatIsAcknowledgedOutlivesADeath) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  static constexpr uint64_t count = 20000;
  folder_.write("records", numbered_records(1, count));
  auto service = start_listening({"--to", "json:out", "--count", "count", "--threads", "2"});
  running_command sender(folder_.path(),
                         words{"send", "-q", "--socket", "sock", "--client", "a", "records"});
  for (int deaths = 0; deaths < 10; ++deaths) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
    end_of(*service, SIGKILL);
    service = start_listening({"--to", "json:out", "--count", "count", "--threads", "2"});
  }
  EXPECT_EQ(sender.wait().status, 0);
  EXPECT_EQ(end_of(*service).status, 0);
  const std::map<uint64_t, int> seen = stored_numbers(folder_.text("out"), "a");
  EXPECT_EQ(seen.size(), count);
  for (const auto& [number, times] : seen) ASSERT_EQ(times, 1) << number;
}
