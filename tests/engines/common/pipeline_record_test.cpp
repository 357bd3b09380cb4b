#include "engines/common/pipeline_record.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/engines/support/made_batch.h"
#include "tools/find/moment.h"

TEST(ToldMoment, IsThatOfTheStoredForm) {
  EXPECT_EQ(told_moment_of("1970-01-01T00:00:00Z"), 0);
  EXPECT_EQ(told_moment_of("1969-12-31T23:59:59Z"), -1);
  EXPECT_EQ(told_moment_of("2026-11-15T17:02:56+08:00"), 1794733376);
  EXPECT_EQ(told_moment_of("2026-11-15T09:02:56.123456789Z"), 1794733376);
  EXPECT_EQ(told_moment_of("2026-11-14T22:17:56-10:45"), 1794733376);
  EXPECT_EQ(told_moment_of("0000-01-01T00:00:00Z"), -62167219200);
  EXPECT_EQ(told_moment_of("9999-12-31T23:59:59Z"), 253402300799);
  for (const char* text :
       {"", "Z", "2026-11-15", "2026-11-15T17:02:56", "2026-11-15 17:02:56Z",
        "2026-11-15T17:02:56z", "2026-02-29T00:00:00Z", "2026-11-15T24:00:00Z",
        "2026-11-15T17:60:00Z", "2026-11-15T17:02:60Z", "2026-11-15T17:02:56+0800",
        "2026-11-15T17:02:56+08:00 ", "2026-11-15T17:02:56.Z", "2026-11-15T17:02:56.1234567890Z",
        "2026-11-15T17:02:56.", "+026-11-15T17:02:56Z", "2026-11-15T17:02:56.5"})
    EXPECT_EQ(told_moment_of(text), std::nullopt) << text;
}

TEST(ToldMoment, IsTheOneThatConditionsCompare) {
  std::mt19937 random(14);
  const auto two = [&random](unsigned from, unsigned count) {
    const std::string digits = std::to_string(from + random() % count);
    return digits.size() == 1 ? "0" + digits : digits;
  };
  for (int i = 0; i < 3000; ++i) {
    const std::string text = std::to_string(1700 + random() % 500) + "-" + two(1, 12) + "-" +
                             two(1, 28) + "T" + two(0, 24) + ":" + two(0, 60) + ":" + two(0, 60) +
                             (random() % 2 == 0 ? "+" : "-") + two(0, 15) + ":" + two(0, 60);
    const auto moment = moment_of(record_value{record_value_kind::text, text, 0});
    ASSERT_TRUE(moment.has_value()) << text;
    EXPECT_EQ(told_moment_of(text), seconds_of(*moment)) << text;
  }
}

TEST(PipelineRecord, KnowsWhichNumbersAreReal) {
  const made_batch made({
      R"({"version":"2","event":1,"types":{"A":"Float","B":"UInt2","C":"Float","D":"Char32"},)"
      R"("attributes":{"A":1,"B":1,"C":"NaN","D":"NaN"}})",
      R"({"event":"NAME","attributes":{"A":1,"B":"NaN"}})",
      R"({"event":1,"attributes":{"A":1},"types":{"A":7}})",
  });
  pipeline_record_reader reader;
  const auto kinds = [&reader](const shipped_record& shipped) {
    std::vector<record_value_kind> found;
    if (const pipeline_record* const record = reader.read(shipped))
      for (const record_attribute& attribute : record->said->attributes)
        found.push_back(attribute.value.kind);
    return found;
  };
  using enum record_value_kind;
  EXPECT_EQ(kinds(made.records[0]), std::vector({real, integer, real, text}));
  EXPECT_EQ(kinds(made.records[1]), std::vector({integer, text}));
  EXPECT_EQ(reader.read(made.records[1])->name, "NAME");
  EXPECT_EQ(reader.read(made.records[2]), nullptr);
  EXPECT_EQ(reader.fault(), "is no record: a type is a text, not 7");
}
