// What is kept from one stored record to the next: whatever came before, a record is stored as it
// is alone.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "recording/records/origin.h"
#include "recording/records/stored_form.h"
#include "recording/records/time_text.h"
#include "tests/recording/sinks/sink_entries.h"

template <class Value, size_t n>
static const Value& one_of(const std::array<Value, n>& values, std::mt19937& random) {
  return values[random() % n];
}

// --- Origins ---

static std::string told_alone(const record_origin& origin) {
  line_writer line;
  record_origin_text().append(line, origin);
  return std::string(line.text());
}

TEST(KeptTexts, AnOriginIsToldAsAlone) {
  EXPECT_EQ(told_alone({}), "");
  EXPECT_EQ(told_alone({.recorded = "2026-11-15T17:02:56.1Z",
                        .host = "a\"b",
                        .recorder = "r",
                        .pid = 1,
                        .thread = 22,
                        .sequence = 333,
                        .client = "c",
                        .number = 4444,
                        .peer = record_peer{5, 66},
                        .context = R"({"a":1})"}),
            ",\"recorded\":\"2026-11-15T17:02:56.1Z\",\"host\":\"a\\\"b\",\"recorder\":\"r\","
            "\"pid\":1,\"thread\":22,\"sequence\":333,\"client\":\"c\",\"number\":4444,"
            "\"peer\":{\"user\":5,\"process\":66},\"context\":{\"a\":1}");
  record_origin process;
  process.pid = 0;
  EXPECT_EQ(told_alone(process), ",\"pid\":0");
}

TEST(KeptTexts, AnOriginIsToldWhateverWasToldBefore) {
  using number = std::optional<uint64_t>;
  const std::array<std::string_view, 3> texts = {"", "a", "shop-4.example.org"};
  const std::array<number, 4> numbers = {number(), number(0), number(7), number(UINT64_MAX)};
  const std::array<std::optional<record_peer>, 3> peers = {std::nullopt, record_peer{0, 1},
                                                           record_peer{UINT64_MAX, 22}};
  const std::array<std::string_view, 3> contexts = {"", "{}", R"({"a":"b"})"};
  std::mt19937 random(20261122);
  record_origin_text kept;
  for (int round = 0; round < 2000; ++round) {
    const record_origin origin = {.recorded = one_of(texts, random),
                                  .host = one_of(texts, random),
                                  .recorder = one_of(texts, random),
                                  .pid = one_of(numbers, random),
                                  .thread = one_of(numbers, random),
                                  .sequence = one_of(numbers, random),
                                  .client = one_of(texts, random),
                                  .number = one_of(numbers, random),
                                  .peer = one_of(peers, random),
                                  .context = one_of(contexts, random)};
    line_writer line;
    kept.append(line, origin);
    ASSERT_EQ(line.text(), told_alone(origin)) << "round " << round;
  }
}

// --- Times ---

TEST(KeptTexts, ATimeIsToldWhateverWasToldBefore) {
  std::mt19937 random(20261122);
  const auto below = [&](unsigned end) { return static_cast<int>(random() % end); };
  record_time_text kept;
  kp_Time time;
  for (int round = 0; round < 5000; ++round) {
    switch (random() % 5) {
      case 0:
        time = kp_Time(2026 + below(2), 1 + below(2), 1 + below(2), below(2), below(2), below(60),
                       below(2) == 0);
        break;
      case 1:
        time.set_zone_bias(static_cast<short>(60 * below(3) - 60));
        break;
      case 2:
        time.set_daylight_flag(static_cast<short>(below(2)));
        break;
      case 3:
        time.set_GMT_time_mode(below(2) == 0);
        break;
      default:
        break;
    }
    std::array<char, 64> text;
    time.print_out(text.data(), text.size());
    ASSERT_EQ(kept.of(time), text.data()) << "round " << round;
  }
}

// --- The attributes that an entry holds ---

static std::string stored_by(stored_form& form, const sink_entry& entry) {
  std::string line;
  form.append(line, entry);
  return line;
}

TEST(KeptTexts, TypesAreThoseThatTheEntryHoldsWhateverTheOneBeforeHeld) {
  sink_entries entries;
  stored_form kept("2.0");
  std::mt19937 random(20261122);
  for (int round = 0; round < 500; ++round) {
    kp_LOG_LogEntry& entry = entries.made.entry;
    entry.ClearAttribs();
    if (random() % 2 == 0) entry.AddAttribBool("A1", true);
    if (random() % 2 == 0) entry.AddAttrib4u("A6", 17);
    if (random() % 2 == 0) entry.AddAttribStr("A9", "text");
    entries.made.event = random() % 8 == 0 ? nullptr : &entries.event;
    const sink_entry told{entries.made, "message", kp_Time::in_GMT(round)};
    stored_form alone("2.0");
    ASSERT_EQ(stored_by(kept, told), stored_by(alone, told)) << "round " << round;
  }
}

TEST(KeptTexts, TypesStandInTheOrderOfTheAttributes) {
  sink_entries entries;
  entries.made.entry.AddAttrib4u("A6", 17);
  entries.made.entry.AddAttribBool("A1", true);
  stored_form form("2.0");
  const std::string line = stored_by(form, {entries.made, "", kp_Time::in_GMT(0)});
  EXPECT_NE(line.find("\"attributes\":{\"A1\":true,\"A6\":17},"
                      "\"types\":{\"A1\":\"Bool\",\"A6\":\"UInt4\"}"),
            std::string::npos)
      << line;
}
