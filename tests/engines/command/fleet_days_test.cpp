// What becomes of a fleet's days: told, held against journals, removed.
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/engines/command/fleet_fixture.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
namespace fs = std::filesystem;

// Of a day in March 2024, each with a text of that size.
static std::string notes_of_day(int day, int count, size_t size) {
  std::string records;
  for (int i = 0; i < count; ++i)
    records += R"({"event":"NOTE","time":"2024-03-0)" + std::to_string(day) + "T10:00:0" +
               std::to_string(i % 10) + R"(Z","attributes":{"TEXT":")" + std::string(size, 'x') +
               "\"}}\n";
  return records;
}

class FleetDays : public testing::Test {
 protected:
  FleetDays() {
    EXPECT_EQ(fleet_.run("ship -q --create --to '" + server_.address() + "'").status, 0);
  }

  std::string own_name() const {
    std::array<char, 256> name{};
    EXPECT_EQ(gethostname(name.data(), name.size() - 1), 0);
    return name.data();
  }
  // "kplog ship" of the journal web1/shop.
  command_result ship(const std::string& options) const {
    return fleet_.run("ship web1/shop --definitions shop.ldf --to '" + server_.address() + "' " +
                      options);
  }
  command_result fleet(const std::string& arguments) const {
    return fleet_.run("fleet " + arguments + " '" + server_.address() + "'");
  }
  // The row of a machine.
  json row_of(const std::string& host) const {
    std::istringstream lines(fleet("status --format json").out);
    for (std::string line; std::getline(lines, line);)
      if (json row = json::parse(line); row["host"] == host) return row;
    ADD_FAILURE() << "no row of " << host;
    return {};
  }
  size_t remove_segments(const std::string& begin) const {
    size_t removed = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(fleet_.file("web1")))
      if (entry.path().filename().string().starts_with(begin)) removed += fs::remove(entry.path());
    return removed;
  }

  fleet_database server_;
  fleet_folder fleet_;
};

TEST_F(FleetDays, AreToldPrunedAndHeldAgainstTheJournal) {
  fleet_.emit("web1", "shop",
              notes_of_day(1, 3, 5) + notes_of_day(2, 100, 600) + notes_of_day(3, 4, 5));
  EXPECT_EQ(ship("--once").err, "kplog: 107 records: 107 stored, 0 bad\n");
  // Without --host it has its own name.
  EXPECT_THAT(
      fleet("status").out,
      MatchesRegex("host +journal +records +newest +told +bytes behind +given up\n" + own_name() +
                   " +[^ ]*/web1/shop +107 +2024-03-03T[^ ]+ +20[^ ]+ +0 +0\n"));
  const json row = row_of(own_name());
  EXPECT_EQ(row["journal"], fs::canonical(fleet_.path()).string() + "/web1/shop");
  EXPECT_EQ(row["records"], 107);
  EXPECT_EQ(row["waiting_bytes"], 0);
  EXPECT_EQ(row["given_up"], 0);
  EXPECT_EQ(row["given_up_exact"], true);
  EXPECT_EQ(row.size(), 8U) << row;

  // One of several segments of a day is lost: the engine may have more of that day.
  EXPECT_EQ(ship("--verify --count web1/shop").status, 0);
  EXPECT_GE(remove_segments("shop.20240302.0001."), 1U);
  const auto less = ship("--verify --count web1/shop");
  EXPECT_EQ(less.status, 0);
  EXPECT_EQ(less.err, "kplog: 107 records in the engine; all alike\n");

  const auto pruned = fleet("prune --before 2024-03-02");
  EXPECT_EQ(pruned.status, 0);
  EXPECT_EQ(pruned.out, "2024-03-01: 3 records\n");
  EXPECT_EQ(fleet("prune --before 2024-03-02").out, "");
  const auto differing = ship("--verify --count web1/shop");
  EXPECT_EQ(differing.status, 1);
  EXPECT_EQ(differing.err,
            "kplog: 2024-03-01 NOTE (1003): 3 counted, 3 in the journal, 0 in the engine\n"
            "kplog: 104 records in the engine; 1 difference\n");
  EXPECT_EQ(ship("--verify --count web1/shop --since 2024-03-02").status, 0);
  fleet_.write("web1/shop.20240304.0001.jsonl", "no record\n");
  const auto bad = ship("--verify --count web1/shop --since 2024-03-02");
  EXPECT_EQ(bad.status, 1);
  EXPECT_THAT(bad.err, HasSubstr("104 records in the engine; all alike\n"));
  EXPECT_EQ(remove_segments("shop.20240304"), 1U);

  // Another machine has records of that day, too.
  const auto late = ship("--once --host web9");
  EXPECT_EQ(late.status, 0);
  EXPECT_THAT(late.err, HasSubstr(", 3 of days that were removed there, 0 bad\n"));
  EXPECT_LT(row_of("web9")["records"], 104);
  EXPECT_THAT(fleet("prune --keep 1d").out,
              MatchesRegex("2024-03-02: 1[0-9][0-9] records\n2024-03-03: 8 records\n"));
  EXPECT_EQ(row_of("web9")["records"], 0);
}

TEST_F(FleetDays, TellWhatAJournalGaveUp) {
  const auto emit = [&](const std::string& records) {
    fleet_.write("records.jsonl", records);
    return fleet_.run(
        "emit -q --definitions shop.ldf --to journal:web1/shop,max-size=4K,keep-size=12K "
        "records.jsonl");
  };
  fs::create_directory(fleet_.file("web1"));
  EXPECT_EQ(emit(notes_of_day(1, 2, 5)).status, 0);
  EXPECT_EQ(ship("--once -q --host web1").status, 0);
  const auto full = emit(notes_of_day(2, 60, 600));
  EXPECT_THAT(full.err, HasSubstr("is removed to keep the journal's size, before all of it was "
                                  "sent"));
  const auto sent = ship("--once --host web1");
  EXPECT_EQ(sent.status, 0);
  EXPECT_THAT(sent.err, HasSubstr(" was removed before all of it was sent\n"));
  const json row = row_of("web1");
  EXPECT_GT(row["given_up"], 0);
  // Segments may go before anything has counted their lines.
  const int known = row["given_up"].get<int>() + row["records"].get<int>();
  EXPECT_LE(known, 62);
  const bool is_exact = row["given_up_exact"];
  EXPECT_EQ(known == 62, is_exact);
  EXPECT_EQ(fleet("status").out.find(" >=") == std::string::npos, is_exact);
}
