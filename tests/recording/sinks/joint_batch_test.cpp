// Batches that go into several outputs as one, and the numbers of the clients that they are of.
#include "recording/files/joint_batch.h"

#include <sys/stat.h>
#include <unistd.h>

#include "recording/files/client_numbers.h"
#include "recording/sinks/counter_writer.h"
#include "tests/recording/files/failing_file_calls.h"
#include "tests/recording/sinks/sink_fixture.h"
#include "tests/support/counter_folder.h"

class JointBatch : public RecordSink {
 protected:
  // What a service has open.
  struct open_outputs {
    std::unique_ptr<record_sink> text, json, journal;
    std::unique_ptr<counter_writer> counts;
    std::unique_ptr<client_numbers> numbers;
    numbered_client* client = nullptr;
    joint_batch joint;

    size_t pending() const { return text->pending() + json->pending() + journal->pending(); }
  };

  std::unique_ptr<open_outputs> open() {
    const file_report report = [this](const std::string& note) { notes_.push_back(note); };
    std::unique_ptr<open_outputs> outputs(new open_outputs{
        text(), make("json:" + file("stored")), make("journal:" + file("kept")),
        std::make_unique<counter_writer>(file("app"), lock_waiting(), report),
        client_numbers::open(file("app.clients")), nullptr, joint_batch({}, report)});
    std::string refusal;
    outputs->client = outputs->numbers->find("a", 0, refusal);
    return outputs;
  }
  void add(open_outputs& outputs) {
    ++added_;
    entries_.add(*outputs.text, "m");
    entries_.add(*outputs.json, "m");
    entries_.add(*outputs.journal, "m");
    kp_Time day;
    ASSERT_TRUE(day.set_to_string_value("2026-11-15T17:02:56+08:00"));
    outputs.counts->add(day, 17);
  }
  // As a service does; `dies` before the batch is stored, or behind that.
  enum class ending { whole, before_stored, behind_stored };
  void write_batch(open_outputs& outputs, ending end = ending::whole, bool synced = false) {
    delivery of = outputs.numbers->next_batch();
    of.joint = &outputs.joint;
    outputs.joint.begin(
        {{folder_.path(), "app"}, {folder_.path(), "stored"}, {folder_.path(), "kept"}}, of);
    try {
      outputs.text->write(synced, &of);
      outputs.json->write(synced, &of);
      outputs.journal->write(synced, &of);
      outputs.counts->write(synced, &of);
      if (end == ending::before_stored) return;
      outputs.numbers->store({{outputs.client, added_}}, synced);
      if (end == ending::behind_stored) return;
    } catch (...) {
      outputs.joint.take_back();
      throw;
    }
    outputs.joint.finish();
  }
  // So many entries are in each of the outputs, and the client's number is that.
  void expect_all(uint64_t entries) const {
    const auto lines = [](const std::string& text) {
      return static_cast<uint64_t>(std::count(text.begin(), text.end(), '\n'));
    };
    EXPECT_EQ(lines(content("app.20261115.0001")), entries);
    EXPECT_EQ(lines(content("stored")), entries);
    EXPECT_EQ(lines(content("kept.20261115.0001.jsonl")), entries);
    EXPECT_EQ(static_cast<uint64_t>(count_in(content("app.cnt"), 2026, 11, 15, 17)), entries);
  }

  uint64_t added_ = 0;
};

TEST_F(JointBatch, DeathBeforeItIsStoredTakesAllBack) {
  auto outputs = open();
  add(*outputs);
  write_batch(*outputs);
  add(*outputs);
  write_batch(*outputs, ending::before_stored);
  expect_all(2);
  outputs.reset();
  outputs = open();
  EXPECT_EQ(outputs->client->written, 1u);
  expect_all(1);
  EXPECT_EQ(notes_, std::vector<std::string>());
}

TEST_F(JointBatch, DeathBehindThatKeepsAll) {
  auto outputs = open();
  add(*outputs);
  write_batch(*outputs, ending::behind_stored);
  outputs.reset();
  outputs = open();
  EXPECT_EQ(outputs->client->written, 1u);
  expect_all(1);
  add(*outputs);
  write_batch(*outputs);
  expect_all(2);
  EXPECT_EQ(notes_, std::vector<std::string>());
}

TEST_F(JointBatch, NumbersOfABatchThatWasNeverStoredDoNotHoldLater) {
  auto outputs = open();
  std::string refusal;
  numbered_client& other = *outputs->numbers->find("b", 0, refusal);
  {
    const small_disk full(1100);  // behind the first slot
    EXPECT_THROW(outputs->numbers->store({{outputs->client, 1}, {&other, 1}}, false), file_error);
  }
  outputs.reset();
  outputs = open();
  outputs->numbers->store({}, false);
  outputs.reset();
  outputs = open();
  EXPECT_EQ(outputs->client->written, 0u);
  EXPECT_EQ(outputs->numbers->find("b", 0, refusal)->written, 0u);
}

#ifdef KP_FAULTS

// Whatever fails: the batch is in all of them or in none, and once when it is tried again.
TEST_F(JointBatch, FailingCallsLeaveItWholeOrTakeItBack) {
  for (const bool synced : {false, true}) {
    auto outputs = open();
    add(*outputs);
    const auto check = [&](const std::string& text) {
      if (!text.empty()) {
        EXPECT_NE(outputs->pending(), 0u) << text;
        write_batch(*outputs, ending::whole, synced);
      }
      EXPECT_EQ(outputs->pending(), 0u) << text;
      EXPECT_EQ(outputs->client->written, added_);
      expect_all(added_);
      add(*outputs);
    };
    for_each_failing_file_call(
        1, [&] { write_batch(*outputs, ending::whole, synced); }, check);
    write_batch(*outputs);
  }
  expect_all(added_);
}

#endif

// --- Names

class ClientNumbers : public testing::Test {
 protected:
  std::unique_ptr<client_numbers> open() {
    return client_numbers::open(folder_.file("x.clients"), [this] { return now_; });
  }
  // What is written of the client; -1 when it is refused.
  static int64_t written(client_numbers& numbers, const std::string& name, uint64_t user = 1) {
    std::string refusal;
    const numbered_client* const client = numbers.find(name, user, refusal);
    return client == nullptr ? -1 : static_cast<int64_t>(client->written);
  }
  static void store(client_numbers& numbers, const std::string& name, uint64_t number) {
    std::string refusal;
    numbers.store({{numbers.find(name, 1, refusal), number}}, true);
  }

  temp_folder folder_;
  int64_t now_ = 1'800'000'000;
};

TEST_F(ClientNumbers, AreKeptFromOneServiceToTheNext) {
  for (uint64_t round = 0; round < 5; ++round) {
    const auto numbers = open();
    EXPECT_EQ(written(*numbers, "a"), static_cast<int64_t>(3 * round));
    for (uint64_t more = 1; more <= 3; ++more) store(*numbers, "a", 3 * round + more);
    store(*numbers, "b" + std::to_string(round), 7);
  }
  EXPECT_EQ(written(*open(), "b0"), 7);
  struct stat status {};
  ASSERT_EQ(stat(folder_.file("x.clients").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

// By a shell's ">", for example, while the service has it open.
TEST_F(ClientNumbers, AreWrittenAgainWhereTheFileWasCutShort) {
  const std::string path = folder_.file("x.clients");
  for (const uintmax_t size : {0U, 8U, 511U, 512U, 600U, 1535U}) {
    std::filesystem::remove(path);
    for (int way = 0; way < 3; ++way) {
      auto numbers = open();
      std::string refusal;
      for (const char* name : {"a", "b", "c"}) store(*numbers, name, 7);
      numbered_client* const last = numbers->find("c", 1, refusal);
      std::filesystem::resize_file(path, size);
      if (way != 0) numbers->see(*last);  // which writes behind that
      if (way == 1) static_cast<void>(numbers->next_batch());
      if (way != 1) store(*numbers, "d", 9);
      numbers.reset();
      const auto next = open();
      for (const char* name : {"a", "b", "c"}) EXPECT_EQ(written(*next, name), 7) << size << way;
      EXPECT_EQ(written(*next, "d"), 9) << size << way;
      EXPECT_EQ(std::filesystem::file_size(path), 5 * 512U);
    }
  }
}

TEST_F(ClientNumbers, AreThoseOfOneProcess) {
  const auto numbers = open();
  EXPECT_EQ(open(), nullptr);
}

TEST_F(ClientNumbers, NameIsOneUsers) {
  const auto numbers = open();
  EXPECT_EQ(written(*numbers, "a", 1), 0);
  EXPECT_EQ(written(*numbers, "a", 2), -1);
  EXPECT_EQ(written(*numbers, std::string(255, 'n'), 2), 0);
}

// Nobody can take them all away from others.
TEST_F(ClientNumbers, AreOfAsManyNamesAsThereIsRoomFor) {
  const auto numbers = open();
  const auto fill = [&](uint64_t user) {
    for (size_t i = 0; i < client_numbers::most_clients / 2; ++i)
      if (written(*numbers, std::to_string(user) + "." + std::to_string(i), user) != 0)
        return false;
    return true;
  };
  std::string refusal;
  EXPECT_TRUE(fill(1));
  EXPECT_EQ(numbers->find("one more", 1, refusal), nullptr);
  EXPECT_EQ(refusal, "there are too many clients' names");
  EXPECT_TRUE(fill(2));
  EXPECT_EQ(written(*numbers, "a third user's", 3), -1);
  EXPECT_EQ(written(*numbers, "1.0", 1), 0);  // those who are known are served
}

TEST_F(ClientNumbers, AreForgottenAMonthAfterTheClientWasSeen) {
  auto numbers = open();
  store(*numbers, "a", 1);
  store(*numbers, "b", 1);
  now_ += 20 * 86400;
  EXPECT_EQ(written(*numbers, "b"), 1);
  now_ += 20 * 86400;
  EXPECT_EQ(written(*numbers, "b"), 1);
  EXPECT_EQ(written(*numbers, "a", 2), 0);  // and may be another user's
  numbers.reset();
  numbers = open();
  EXPECT_EQ(written(*numbers, "b"), 1);
  EXPECT_EQ(written(*numbers, "a", 2), 0);
}

TEST_F(ClientNumbers, ConnectedClientsAreNotForgotten) {
  struct deaf : client_hearing {
    void hear_refused(uint64_t, const char*, const std::string&) override {}
    void hear_written() override {}
  } connection;
  const auto numbers = open();
  store(*numbers, "a", 1);
  std::string refusal;
  numbers->find("a", 1, refusal)->hearing = &connection;
  now_ += 40 * 86400;
  EXPECT_EQ(written(*numbers, "b"), 0);
  EXPECT_EQ(written(*numbers, "a"), 1);
}
