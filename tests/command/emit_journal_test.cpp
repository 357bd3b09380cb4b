// kplog emit into a journal, from outside.
#include <algorithm>
#include <filesystem>
#include <numeric>
#include <sstream>

#include "tests/command/emit_service_fixture.h"

namespace fs = std::filesystem;

class EmitJournal : public EmitService {
 protected:
  // The names of the segments, sorted.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& file : fs::directory_iterator(folder_.path())) {
      const std::string name = file.path().filename();
      if (name.starts_with("shop.") && name.ends_with(".jsonl")) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // The stored numbers of a service's one client, in the order of the segments.
  std::vector<uint64_t> numbers() const {
    std::vector<uint64_t> numbers;
    for (const std::string& name : files()) {
      std::istringstream lines(folder_.text(name));
      for (std::string line; std::getline(lines, line);)
        numbers.push_back(std::stoull(line.substr(line.find(R"("number":)") + 9)));
    }
    return numbers;
  }
};

TEST_F(EmitJournal, SegmentsAreBegunByDayAndSize) {
  const std::string records =
      login_record("alice", 1) + login_record("bob", 2) +
      R"({"event":"NOTE","time":"2026-11-16T00:00:00+08:00","attributes":{"TEXT":"t"}})"
      "\n";
  const auto run = folder_.emit_text("-q --to journal:shop,max-size=300", records);
  EXPECT_EQ(run.status, 0) << run.err;
  const std::vector<std::string> segments = files();
  ASSERT_EQ(segments.size(), 3U);
  EXPECT_EQ(segments.back(), "shop.20261116.0001.jsonl");
  std::string all;
  for (const std::string& name : segments) all += folder_.text(name);
  folder_.emit_text("-q --to json:stored", records);
  EXPECT_EQ(all, folder_.text("stored"));
}

// A batch is in the journal and in the text logs, or in neither, and its numbers tell so.
TEST_F(EmitJournal, AServiceThatIsKilledHasEveryRecordOnce) {
  static constexpr uint64_t rounds = 6, records = 200;
  for (uint64_t round = 1; round <= rounds; ++round) {
    const auto service =
        start({"--to", "journal:shop,max-size=2K", "--to", "text:shop", "--listen", "unix:sock"});
    ASSERT_TRUE(service->wait_for_err("listening on unix:sock"));
    const auto one = client();
    one->send(R"({"kplog":1,"client":"a","first":1})"
              "\n");
    one->line();
    std::string lines;
    for (uint64_t number = 1; number <= round * records; ++number) lines += note_record("again");
    one->send(lines);
    if (round < rounds)
      one->line();  // some of it, at least
    else
      while (one->line() != "{\"ack\":" + std::to_string(rounds * records) + "}")
        ASSERT_FALSE(HasFailure());
    end_of(*service, SIGKILL);
  }
  std::vector<uint64_t> expected(rounds * records);
  std::iota(expected.begin(), expected.end(), uint64_t{1});
  // The last batch may wait for whoever takes the lock next.
  EXPECT_EQ(folder_.emit_text("-q --to journal:shop --to text:shop", "").status, 0);
  EXPECT_EQ(numbers(), expected);
}
