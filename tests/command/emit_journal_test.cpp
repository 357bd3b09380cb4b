// kplog emit into a journal, from outside.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <sstream>
#include <thread>

#include "tests/command/emit_service_fixture.h"
#include "tests/command/golden_file.h"

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

static std::string many_notes(int count, const std::string& time = "2026-11-15T17:02:56+08:00") {
  std::string records;
  for (int number = 0; number < count; ++number)
    records += note_record("note " + std::to_string(number), time);
  return records;
}

TEST_F(EmitJournal, SegmentsThatAreDoneAreReadByZstdcat) {
  const std::string records = many_notes(500);
  ASSERT_EQ(folder_.emit_text("-q --to journal:shop,max-size=8K,compress=zstd", records).status, 0);
  ASSERT_EQ(folder_.emit_text("-q --to json:stored", records).status, 0);
  EXPECT_EQ(files().size(), 1U);  // the last
  const std::string read =
      "cd " + folder_.path() + " && { zstdcat shop.*.zst && cat shop.*.jsonl; } > read";
  ASSERT_EQ(std::system(read.c_str()), 0);
  EXPECT_EQ(folder_.text("read"), folder_.text("stored"));
}

TEST_F(EmitJournal, TheOldestSegmentsGo) {
  const auto size = [&] {
    uintmax_t sum = 0;
    for (const auto& file : fs::directory_iterator(folder_.path()))
      if (file.path().filename().string().starts_with("shop.")) sum += file.file_size();
    return sum;
  };
  ASSERT_EQ(folder_.emit_text("-q --to journal:shop,max-size=4K", many_notes(500)).status, 0);
  const std::vector<std::string> before = files();
  ASSERT_GT(size(), 60U << 10);
  ASSERT_EQ(folder_.emit_text("-q --to journal:shop,max-size=4K,keep-size=20K", "").status, 0);
  const std::vector<std::string> kept = files();
  EXPECT_EQ(kept, std::vector<std::string>(before.end() - static_cast<std::ptrdiff_t>(kept.size()),
                                           before.end()));
  EXPECT_EQ(kept.size(), 5U);
  // By age, a service does so while it runs.
  const auto then = fs::file_time_type::clock::now() - std::chrono::hours(25);
  for (const std::string& name : kept) fs::last_write_time(folder_.path(name), then);
  const auto service = start({"--to", "journal:shop,keep=1d", "--listen", "unix:sock"});
  ASSERT_TRUE(service->wait_for_err("listening on unix:sock"));
  for (int tries = 0; files().size() > 1 && tries < 30000; ++tries)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  EXPECT_EQ(files(), std::vector<std::string>{before.back()});
  EXPECT_EQ(end_of(*service).status, 0);
}

TEST_F(EmitJournal, WhatCannotBeDoneIsTold) {
  ASSERT_EQ(folder_.emit_text("-q --to journal:./shop,max-size=300", many_notes(3)).status, 0);
  folder_.write(files().front() + ".zst", "no frame");
  const auto run =
      folder_.emit_text("-q --format json --to journal:./shop,max-size=300,compress=zstd", "");
  EXPECT_EQ(run.status, 0);
  expect_golden_file("emit_journal.expected", run.err);
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
