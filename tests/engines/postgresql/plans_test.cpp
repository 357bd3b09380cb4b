// That records are found by indexes: the plans that the database chose for what it was asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engines/postgresql/engine.h"
#include "tests/engines/postgresql/database_server.h"
#include "tests/engines/postgresql/shipped_batch.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// What the server wrote of its plans while the records were asked for.
static std::string plans_of(const database_server& server, const archive_query& query,
                            size_t expected) {
  const std::string log = server.folder() + "/log";
  const size_t before = read_whole_file(log).size();
  {
    const auto archive = postgresql_engine.ask(server.options("reader"), query);
    archived_record record;
    size_t count = 0;
    while (archive->next(record, std::chrono::milliseconds(0))) ++count;
    EXPECT_EQ(count, expected);
  }
  return read_whole_file(log).substr(before);
}

TEST(PostgresqlPlans, FindRecordsByIndexes) {
  const database_server server({.settings = {
                                    "session_preload_libraries = auto_explain",
                                    "auto_explain.log_min_duration = 0",
                                    "auto_explain.log_nested_statements = on",
                                }});
  postgresql_engine.create(server.options());
  ASSERT_EQ(server.sql("create role reader login; grant kplog_read to reader"), "");
  // 20 machines of 3,000 records of 30 events, as a sender stores them, of a day that is done.
  std::string day = server.sql("select to_char(now() - interval '3 days', 'YYYYMMDD')");
  day.pop_back();
  for (int host = 0; host < 20; ++host) {
    shipped_segment segment("shop." + day + ".0001.jsonl",
                            {"host" + std::to_string(host), "/shop"});
    for (uint32_t event = 0; event < 30; ++event)
      segment.add_numbers(static_cast<int>(event) * 100, 100, event);
    postgresql_engine.open(server.options())->store(segment.all());
  }
  const std::string name = "record_" + day;
  const auto by = [&](const std::string& index) {
    return AllOf(HasSubstr(name + "_" + index), Not(HasSubstr("Seq Scan on " + name)));
  };
  const archive_query one_event{.groups = {{.events = std::vector<uint32_t>{7}}},
                                .hosts = {"host7"}};
  for (const bool has_statistics : {false, true}) {
    EXPECT_THAT(plans_of(server, one_event, 100), by("segment_event_line_idx"));
    EXPECT_THAT(plans_of(server, {.hosts = {"host7"}}, 3000), by("segment_line_digest_part_idx"));
    if (!has_statistics) server.sql("vacuum analyze");
  }
  // By attributes, when the day is finished: of all machines, the lines of each.
  const archive_query one_number{
      .groups = {{.attributes = {{.name = "NUMBER", .integer = 1234, .others_fit = false}}}}};
  EXPECT_THAT(plans_of(server, one_number, 20), Not(HasSubstr("attributes_idx")));
  ASSERT_EQ(server.sql("update kplog.part set made = made - interval '13 hours'"), "");
  ASSERT_EQ(server.sql("select kplog.finish_day() is not null"), "t\n");
  EXPECT_THAT(plans_of(server, one_number, 20), by("attributes_idx"));
  archive_query absent = one_number;
  absent.groups[0].attributes[0].integer = 123456;
  EXPECT_THAT(plans_of(server, absent, 0),
              AllOf(by("attributes_idx"), Not(HasSubstr("order by r.line"))));
  // And as people ask by hand.
  const std::string by_hand = server.sql(
      "explain select record from kplog.record where host = 'host3' and event = 4 and time >"
      " '2026-11-15 08:00:00+00' order by time",
      "reader");
  EXPECT_THAT(by_hand, by("host_event_time_idx"));
}
