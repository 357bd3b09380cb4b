// That each record is in an engine once, whatever becomes of the journal and of the file beside it.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/engines/command/fleet_fixture.h"

using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

template <class Server>
class ShipOnce : public testing::Test {
 protected:
  ShipOnce() {
    if (server_.address().starts_with("nats")) return;
    EXPECT_EQ(fleet_.run("ship -q --create --to '" + server_.address() + "'").status, 0);
  }

  // Records of one day, which tell which they are.
  void emit(const std::string& machine, const std::string& what, int count) {
    std::string records;
    for (int i = 0; i < count; ++i)
      records += R"({"event":"NOTE","time":"2024-03-01T10:00:00Z","attributes":{"TEXT":")" + what +
                 std::to_string(i) + "\"}}\n";
    fleet_.emit(machine, "shop", records);
  }
  std::string ship(int status = 0) const {
    return fleet_.ship("web1", "shop", server_.address(), "--once", status).err;
  }
  std::string rendered() const {
    return fleet_.run("render -q --locale en_US '" + server_.address() + "'").out;
  }
  // What tells how far the journal was sent.
  std::string sent_file() const {
    for (const fs::directory_entry& entry : fs::directory_iterator(fleet_.file("web1")))
      if (entry.path().filename().string().starts_with("shop.sent.") &&
          !entry.path().string().ends_with("_lock"))
        return entry.path().string();
    return "";
  }
  void exchange(const std::string& one, const std::string& other) const {
    fs::rename(fleet_.file(one), fleet_.file("aside"));
    fs::rename(fleet_.file(other), fleet_.file(one));
    fs::rename(fleet_.file("aside"), fleet_.file(other));
  }

  Server server_;
  fleet_folder fleet_;
};

TYPED_TEST_SUITE(ShipOnce, fleet_servers, name_of_server);

TYPED_TEST(ShipOnce, WhateverBecomesOfTheJournal) {
  this->emit("web1", "a", 3);
  EXPECT_EQ(this->ship(), "kplog: 3 records: 3 stored, 0 bad\n");
  // The file beside the journal is a copy of what the engine knows.
  const std::string sent = this->sent_file();
  ASSERT_NE(sent, "");
  ASSERT_TRUE(fs::remove(sent));
  EXPECT_EQ(this->ship(), "kplog: 0 records: 0 stored, 0 bad\n");
  EXPECT_TRUE(fs::exists(sent));

  // Another machine of that name, with a segment of that name; and the first one again.
  this->emit("other", "b", 3);
  this->exchange("web1", "other");
  EXPECT_EQ(this->ship(), "kplog: 3 records: 3 stored, 0 bad\n");
  this->exchange("web1", "other");
  EXPECT_EQ(this->ship(), "kplog: 0 records: 0 stored, 0 bad\n");
  const std::string shown = this->rendered();
  if (std::is_same_v<TypeParam, fleet_database>) {
    EXPECT_TRUE(shown == "a0\na1\na2\nb0\nb1\nb2\n" || shown == "b0\nb1\nb2\na0\na1\na2\n")
        << shown;
  } else {
    EXPECT_THAT(shown, testing::MatchesRegex("(a0\nb0|b0\na0)\n(a1\nb1|b1\na1)\n"
                                             "(a2\nb2|b2\na2)\n"));
  }

  // A backup that is restored: what was written since is gone, and other records come.
  const std::string segment = this->fleet_.file("web1/shop.20240301.0001.jsonl");
  const std::string lines = read_whole_file(segment);
  std::ofstream(segment) << lines.substr(0, lines.find('\n') + 1);
  this->emit("web1", "c", 2);
  EXPECT_THAT(this->ship(), StartsWith("kplog: 3 records: "));
  // And what is no record.
  std::ofstream(segment, std::ios::app) << "no record\n";
  this->emit("web1", "d", 1);
  const std::string bad = this->ship(1);
  EXPECT_THAT(bad, HasSubstr("shop.20240301.0001.jsonl:4:"));
  EXPECT_THAT(bad, HasSubstr("kplog: 2 records: 1 stored, 1 bad\n"));
  EXPECT_EQ(std::ranges::count(this->rendered(), '\n'), 9);

  ASSERT_TRUE(fs::remove(sent));
  fs::create_directory(sent);
  EXPECT_THAT(this->ship(3), HasSubstr(": it is no regular file\n"));
}
