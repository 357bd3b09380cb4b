#include "engines/postgresql/archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

using testing::ElementsAre;

static constexpr std::chrono::milliseconds no_patience(0);
static constexpr std::chrono::milliseconds long_patience(60'000);

static std::string place_of(const archived_record& record) {
  return record.journal.host + " " + record.journal.journal + " " + record.segment + ":" +
         std::to_string(record.line);
}

// Where the records are that are found, a line for each.
static std::vector<std::string> found_places(const database_server& server,
                                             const archive_query& query) {
  const auto archive = postgresql_engine.ask(server.options(), query);
  std::vector<std::string> places;
  archived_record record;
  while (archive->next(record, no_patience)) places.push_back(place_of(record));
  return places;
}

static void store_all(const database_server& server, const shipped_segment& segment) {
  postgresql_engine.open(server.options())->store(segment.all());
}

static std::string with_attributes(const std::string& attributes) {
  return R"({"version":"2.0","event":7,"attributes":)" + attributes + R"(,"types":{}})";
}

TEST(PostgresqlArchive, HandsRecordsBackByHostJournalSegmentAndLine) {
  const database_server server;
  postgresql_engine.create(server.options());
  // By bytes, whatever the language of the database or of the machine is: "B" is before "a".
  for (const char* host : {"b", "a", "B"})
    for (const char* journal : {"/z/shop", "/Z/shop"})
      for (const char* name : {"shop.20261116.0001.jsonl", "shop.20261115.0002.jsonl"}) {
        shipped_segment segment(name, {host, journal});
        store_all(server, segment.add_numbers(0, 3, 7));
      }
  std::vector<std::string> all;
  for (const char* host : {"B", "a", "b"})
    for (const char* journal : {"/Z/shop", "/z/shop"})
      for (const char* name : {"shop.20261115.0002.jsonl", "shop.20261116.0001.jsonl"})
        for (const char* line : {"1", "2", "3"})
          all.push_back(std::string(host) + " " + journal + " " + name + ":" + line);
  EXPECT_EQ(found_places(server, {}), all);

  EXPECT_EQ(found_places(server, {.hosts = {"B"}}), std::vector(all.begin(), all.begin() + 12));
  EXPECT_EQ(found_places(server, {.hosts = {"[a]", "?", "x\"},{"}}), all);
  EXPECT_EQ(found_places(server, {.hosts = {"a", "B"}}),
            std::vector(all.begin(), all.begin() + 24));
  EXPECT_THAT(found_places(server, {.hosts = {"'; drop schema kplog cascade; --"}}), ElementsAre());
}

TEST(PostgresqlArchive, FindsWhatTheConditionsAskForAndWhatMayBe) {
  const database_server server;
  postgresql_engine.create(server.options());
  shipped_segment segment;
  segment.add(with_attributes(R"({"N":5,"S":"five"})"), 5, 100);
  segment.add(with_attributes(R"({"N":5.0,"S":"f\u00efve\u0027"})"), 5, 200);
  segment.add(with_attributes(R"({"N":-0.0,"B":true})"), 6, 300);
  segment.add(with_attributes(R"({"N":"NaN","B":false})"), 6, std::nullopt);
  segment.add(with_attributes(R"({"S":"\u0000"})"), std::nullopt, 400);
  segment.add(with_attributes(R"({"N":0.1})"), 6, -400'000'000'000'000);  // no timestamptz
  store_all(server, segment);
  const auto lines = [&](const archive_query& query) {
    std::string text;
    for (const std::string& place : found_places(server, query))
      text += place.substr(place.rfind(':') + 1);
    return text;
  };
  const auto with = [&](const asked_attribute& asked) {
    return lines({.groups = {{.attributes = {asked}}}});
  };

  EXPECT_EQ(lines({.groups = {{.events = std::vector<uint32_t>{5}}}}), "125");
  EXPECT_EQ(lines({.groups = {{.events = std::vector<uint32_t>{}}}}), "5");
  EXPECT_EQ(lines({.groups = {{.events = std::vector<uint32_t>{5}},
                              {.events = std::vector<uint32_t>{6},
                               .attributes = {{.name = "B", .boolean = true}}}}}),
            "1235");
  EXPECT_EQ(lines({.since = 200, .until = 300}), "2346");
  EXPECT_EQ(lines({.since = 301}), "456");
  EXPECT_EQ(lines({.lowest_level = 4}), "");
  EXPECT_EQ(lines({.lowest_level = 3, .highest_level = 3}), "123456");
  EXPECT_EQ(lines({.highest_level = 2}), "");

  // What jsonb cannot hold, line 5, may be anything. Strings may be numbers, "NaN".
  EXPECT_EQ(with({.name = "N", .integer = 5}), "1245");
  EXPECT_EQ(with({.name = "N", .integer = 5, .others_fit = false}), "125");
  EXPECT_EQ(with({.name = "N", .comparison = asked_comparison::less, .integer = 5}), "3456");
  EXPECT_EQ(with({.name = "N", .real = 0.1, .others_fit = false}), "456");
  EXPECT_EQ(with({.name = "N",
                  .comparison = asked_comparison::at_least,
                  .real = 0.1,
                  .others_fit = false}),
            "12456");
  EXPECT_EQ(with({.name = "N", .comparison = asked_comparison::at_most, .real = -0.0}), "345");
  EXPECT_EQ(with({.name = "S", .text = "five", .others_fit = false}), "15");
  EXPECT_EQ(with({.name = "S", .text = "f\u00efve'", .others_fit = false}), "25");
  EXPECT_EQ(with({.name = "S", .comparison = asked_comparison::greater, .text = "x"}), "125");
  EXPECT_EQ(with({.name = "B", .boolean = true}), "35");
  EXPECT_EQ(with({.name = "B", .boolean = false, .others_fit = false}), "45");
  EXPECT_EQ(with({.name = "'); drop schema kplog cascade; --", .text = "'"}), "5");
}

TEST(PostgresqlArchive, FollowsWhatArrivesOnceWhoeverCommitsFirst) {
  const database_server server;
  postgresql_engine.create(server.options());
  shipped_segment one("shop.20261115.0001.jsonl", {"a", "/shop"});
  shipped_segment other("shop.20261115.0001.jsonl", {"b", "/shop"});
  one.add_numbers(0, 10);
  other.add_numbers(0, 10);
  const auto engine = postgresql_engine.open(server.options());
  engine->store(one.batch(0, 2));

  const auto archive = postgresql_engine.ask(server.options(), {.follows = true});
  archived_record record;
  std::vector<std::string> places;
  const auto take = [&](size_t count) {
    places.clear();
    while (places.size() < count && archive->next(record, long_patience))
      places.push_back(record.journal.host + std::to_string(record.line));
    return places;
  };
  EXPECT_THAT(take(2), ElementsAre("a1", "a2"));
  EXPECT_FALSE(archive->next(record, no_patience));
  engine->store(one.batch(2, 4));
  EXPECT_THAT(take(2), ElementsAre("a3", "a4"));
  engine->store(other.batch(0, 3));
  EXPECT_THAT(take(3), ElementsAre("b1", "b2", "b3"));

  // A transaction that is earlier and ends later: what is shown first is not what began first.
  const database_session slow(server);
  slow.sql(
      "begin; select pg_current_xact_id(); set local kplog.segment = '1';"
      "select from kplog.segment where id = 1 for no key update;"
      "insert into kplog.record select s.id, 5, 77, null, null, s.part, s.batches + 1, 3,"
      " s.tenant, s.host, 'slow' from kplog.segment s where id = 1;"
      "update kplog.segment set lines = 5, top = 5, batches = batches + 1, records = 5,"
      " moved = pg_current_xact_id() where id = 1");
  engine->store(other.batch(3, 4));
  EXPECT_THAT(take(1), ElementsAre("b4"));
  EXPECT_FALSE(archive->next(record, no_patience));
  slow.sql("commit");
  EXPECT_THAT(take(1), ElementsAre("a5"));
  EXPECT_EQ(record.text, "slow");
  EXPECT_FALSE(archive->next(record, no_patience));

  // All is sent again: only what is new is shown.
  engine->store(other.batch(0, 6));
  EXPECT_THAT(take(2), ElementsAre("b5", "b6"));
  // Other lines at places that were shown.
  shipped_segment restored("shop.20261115.0001.jsonl", {"b", "/shop"});
  restored.add_numbers(0, 2).add_numbers(100, 2);
  engine->store(restored.all());
  EXPECT_THAT(take(2), ElementsAre("b3", "b4"));
  EXPECT_EQ(record.text, shipped_segment::numbered(101));
  EXPECT_FALSE(archive->next(record, no_patience));
}

TEST(PostgresqlArchive, HasTheKitsOfTheJournalsThatAreAskedFor) {
  const database_server server;
  postgresql_engine.create(server.options());
  const auto engine = postgresql_engine.open(server.options());
  const std::string odd("\0\\x'\xff", 5);
  for (const auto& [host, kit] :
       std::map<std::string, std::string>{{"a", "older"}, {"b", odd}, {"c", "older"}}) {
    shipped_segment segment("shop.20261115.0001.jsonl", {host, "/shop"});
    segment.add_numbers(0, 2);
    segment.use_kit(kit);
    engine->store(segment.all());
  }
  const auto kits = [&](const archive_query& query) {
    std::vector<std::string> texts;
    for (const archived_kit& kit : postgresql_engine.ask(server.options(), query)->kits()) {
      texts.push_back(kit.kit.bytes + ":");
      for (const kit_user& user : kit.users)
        texts.back() += user.journal.host + user.journal.journal;
    }
    return texts;
  };
  EXPECT_THAT(kits({}), ElementsAre("older:a/shopc/shop", odd + ":b/shop"));
  EXPECT_THAT(kits({.hosts = {"[cb]", "b"}}), ElementsAre(odd + ":b/shop"));
  EXPECT_THAT(kits({.hosts = {"a*"}}), ElementsAre("older:a/shop"));
  EXPECT_THAT(kits({.since = 4'000'000'000}), ElementsAre());
}
