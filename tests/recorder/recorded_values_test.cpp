// What events and entries hold, on their way through the ring.

#include <array>
#include <random>
#include <span>

#include "kp_LOG_LogConfig.h"
#include "logging/logentry_i.h"
#include "tests/recorder/recorder_calls.h"

class RecordedValues : public RecorderCalls {};

// ---- Texts ----

static std::string euros(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += "€";
  return text;
}

TEST_F(RecordedValues, CutsTextsThatAreTooLong) {
  kp_LOG_Recorder log(options());
  const std::string clefs = [] {
    std::string text = "x";
    for (int i = 0; i < 100; ++i) text += "\U0001d11e";
    return text;
  }();
  const std::string owner(40, 'o');
  for (const std::string& key : {euros(100), clefs}) {
    shop::KEY_SET event = tea();
    event.KEY = key;
    event.OWNER = owner;
    EXPECT_EQ(log.Record(event), answer::recorded);
  }
  ASSERT_TRUE(log.Flush(patience));
  ASSERT_EQ(stored().size(), 2u);
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], euros(64));
  EXPECT_EQ(stored()[0]["attributes"]["OWNER"], std::string(32, 'o'));
  EXPECT_EQ(stored()[1]["attributes"]["KEY"], clefs.substr(0, 1 + 31 * 4));
}

TEST_F(RecordedValues, CutsBytesBetweenCharacters) {
  kp_LOG_Recorder log(options());
  shop::KEY_SET event = tea();
  const std::string owner = std::string(31, 'o') + "\u00e9";
  event.OWNER = owner;
  EXPECT_EQ(log.Record(event), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"]["OWNER"], std::string(31, 'o'));
}

TEST_F(RecordedValues, LosesTextsThatAreNotUtf8) {
  kp_LOG_Recorder log(options_with_faults());
  for (const char* text : {"\x80", "a\xC3", "\xED\xA0\x80", "12345678\xFF", "\xF4\x90\x80\x80"}) {
    shop::KEY_SET event = tea();
    event.KEY = text;
    EXPECT_EQ(log.Record(event), answer::lost_value) << text;
  }
  ASSERT_EQ(log.Record(tea()), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(log.Statistics().lost[4], 5u);
  EXPECT_EQ(log.Statistics().recorded, 1u);
}

TEST_F(RecordedValues, TakesNullAndNulForTheEndsOfTexts) {
  kp_LOG_Recorder log(options());
  shop::KEY_SET event = tea();
  const char* const none = nullptr;
  event.KEY = none;
  event.OWNER = std::string_view("a\0b", 3);
  EXPECT_EQ(log.Record(event), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], "");
  EXPECT_EQ(stored()[0]["attributes"]["OWNER"], "a");
}

TEST_F(RecordedValues, KeepsLineBreaksAsTwoCharacters) {
  kp_LOG_Recorder log(options());
  shop::KEY_SET event = tea();
  event.KEY = "a\nb";
  log.Record(event);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], "a\\nb");
}

TEST_F(RecordedValues, PutsLargeEventsIntoSeveralBlocks) {
  kp_LOG_Recorder log(options());
  std::vector<std::string> texts;
  for (const size_t size : std::initializer_list<size_t>{1, 700, 1300, 1400, 1500, 2000, 2048}) {
    std::string text;
    for (size_t i = 0; i < size; ++i) text += i % 3 == 0 ? "\u20ac" : "ab" + std::to_string(i % 10);
    texts.push_back(text.substr(0, text.find('\0')));
  }
  uint32_t number = 0;
  for (const std::string& one : texts)
    for (const std::string& other : texts)
      ASSERT_EQ(
          log.Record(shop::LARGE{.NUMBER = ++number, .FIRST = one, .SECOND = other, .THIRD = one}),
          answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  const auto lines = stored();
  ASSERT_EQ(lines.size(), number);
  number = 0;
  for (const std::string& one : texts)
    for (const std::string& other : texts) {
      const auto& held = lines[number]["attributes"];
      ASSERT_EQ(held["NUMBER"], ++number);
      const auto is_start = [](const std::string& text, const std::string& kept) {
        return text.starts_with(kept) && (kept.size() == text.size() || kept.size() >= 2048);
      };
      EXPECT_TRUE(is_start(one, held["FIRST"]));
      EXPECT_TRUE(is_start(other, held["SECOND"]));
      EXPECT_TRUE(is_start(one, held["THIRD"]));
    }
}

// Eleven texts, of which ten are as long as can be.
static shop::HUGE_ONE huge(const std::string& longest, const std::string& last) {
  return {.A = longest,
          .B = longest,
          .C = longest,
          .D = longest,
          .E = longest,
          .F = longest,
          .G = longest,
          .H = longest,
          .J = longest,
          .K = longest,
          .L = last};
}

// 64 KiB: the head of an event, and a head for each text.
static constexpr size_t room_in_an_event = (64 << 10) - 24 - 11 * 5;

TEST_F(RecordedValues, LosesEventsOfMoreThan64KiB) {
  kp_LOG_Recorder log(options_with_faults());
  const std::string longest = euros(2048);
  const std::string last(room_in_an_event - 10 * longest.size(), 'x');
  EXPECT_EQ(log.Record(huge(longest, last)), answer::recorded);
  EXPECT_EQ(log.Record(huge(longest, last + "x")), answer::lost_too_large);
  EXPECT_EQ(log.Statistics().lost[static_cast<size_t>(answer::lost_too_large)], 1u);
  ASSERT_TRUE(log.Flush(patience));
  ASSERT_EQ(stored().size(), 1u);
  EXPECT_EQ(stored()[0]["attributes"]["K"], longest);
  EXPECT_EQ(stored()[0]["attributes"]["L"], last.substr(0, 2048));
}

// ---- Entries ----

static constexpr std::array<const char*, 3> large_texts = {"FIRST", "SECOND", "THIRD"};

class RecordedEntry : public RecorderCalls {
 protected:
  RecordedEntry() { kp_LOG_LogConfig::SetDefinitionPath(KPLOG_SHOP_DEFINITIONS); }

  const settings_guard guard_;
};

TEST_F(RecordedEntry, GoesByItsNames) {
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_Recorder log(options());
  shop::entry_KEY_SET entry(4, tea());
  shop::add_REQUEST(entry, 99u);
  EXPECT_EQ(log.Record(entry), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  ASSERT_EQ(stored().size(), 1u);
  EXPECT_EQ(stored()[0]["level"], 4);
  EXPECT_EQ(stored()[0]["attributes"]["REQUEST"], 99);
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], "tea");
}

TEST_F(RecordedEntry, MayHoldNothing) {
  kp_LOG_Recorder log(options());
  kp_LOG_LogEntry entry(1001, 2);
  EXPECT_EQ(log.Record(entry), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"].dump(), "{}");
}

// Also in an order that is not that of the definition, and where some were removed again.
TEST_F(RecordedEntry, HoldsAttributesOfAllNamesInAnyOrder) {
  static constexpr std::array<const char*, 13> names = {"N",
                                                        "NA",
                                                        "NAMEOF7",
                                                        "NAMEOF_8",
                                                        "NAMEOF_9_",
                                                        "NAMEOF_14_XXXX",
                                                        "NAMEOF_15_XXXXX",
                                                        "NAMEOF_16_XXXXXX",
                                                        "NAMEOF_16_XXXXXY",
                                                        "NAMEOF_17_XXXXXXX",
                                                        "NAMEOF_31_XXXXXXXXXXXXXXXXXXXXX",
                                                        "NAMEOF_32_XXXXXXXXXXXXXXXXXXXXXX",
                                                        "NAMEOF_33_XXXXXXXXXXXXXXXXXXXXXXX"};
  static constexpr size_t entries = 300;
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](size_t end) { return random() % end; };
  kp_LOG_Recorder log(options());
  std::vector<nlohmann::json> expected;
  for (size_t i = 0; i < entries; ++i) {
    kp_LOG_LogEntry entry(1008, 3);
    nlohmann::json held = nlohmann::json::object();
    const bool is_in_order = below(3) == 0;
    const size_t steps = is_in_order ? names.size() : below(2 * names.size());
    for (size_t step = 0; step < steps; ++step) {
      const char* const name = names[is_in_order ? step : below(names.size())];
      if (below(4) == 0) {
        entry.RemoveAttrib(name);
        held.erase(name);
      } else {
        const auto value = static_cast<uint32_t>(random());
        entry.AddAttrib4u(name, value);
        held[name] = value;
      }
    }
    ASSERT_EQ(log.Record(entry), answer::recorded);
    expected.push_back(held);
  }
  ASSERT_TRUE(log.Flush(patience));
  const std::vector<nlohmann::json> lines = stored();
  ASSERT_EQ(lines.size(), expected.size());
  for (size_t i = 0; i < entries; ++i) EXPECT_EQ(lines[i]["attributes"], expected[i]);
}

// What an entry may take in the ring is more than what it takes.
TEST_F(RecordedEntry, ComesOutWhateverItsSize) {
  kp_LOG_Recorder log(options());
  static constexpr size_t longest = 2048;
  uint32_t number = 0;
  for (const size_t texts : {size_t{1}, size_t{2}, size_t{3}})
    for (size_t size = 0; size <= longest; size += 31) {
      const std::string text(size, 'x');
      kp_LOG_LogEntry entry(1005, 3);
      entry.AddAttrib4u("NUMBER", ++number);
      for (const char* name : std::span(large_texts).first(texts))
        entry.AddAttribMBStr(name, text.c_str());
      ASSERT_EQ(log.Record(entry), answer::recorded) << size;
    }
  ASSERT_TRUE(log.Flush(patience));
  uint32_t told = 0;
  for (const auto& line : stored()) EXPECT_EQ(line["attributes"]["NUMBER"], ++told);
  EXPECT_EQ(told, number);
}

TEST_F(RecordedEntry, IsLostWithMoreThan64KiB) {
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  kp_LOG_Recorder log(options_with_faults());
  const std::string longest = euros(2048);
  static constexpr size_t own_time = 11;
  const size_t left = room_in_an_event - own_time - 10 * longest.size();
  const auto record = [&](const std::string& last) {
    return log.Record(shop::entry_HUGE_ONE(3, {.A = longest.c_str(),
                                               .B = longest.c_str(),
                                               .C = longest.c_str(),
                                               .D = longest.c_str(),
                                               .E = longest.c_str(),
                                               .F = longest.c_str(),
                                               .G = longest.c_str(),
                                               .H = longest.c_str(),
                                               .J = longest.c_str(),
                                               .K = longest.c_str(),
                                               .L = last.c_str()}));
  };
  const std::string last = euros(left / 3) + std::string(left % 3, 'x');
  EXPECT_EQ(record(last), answer::recorded);
  EXPECT_EQ(record(last + "x"), answer::lost_too_large);
  ASSERT_TRUE(log.Flush(patience));
  ASSERT_EQ(stored().size(), 1u);
  EXPECT_EQ(stored()[0]["attributes"]["L"], last);
}

TEST_F(RecordedEntry, KeepsItsOwnTime) {
  kp_LOG_LogEntry::AddAttributeDefinition(0, "TIMEZONE_DIFFERENCE", TypeSInt2);
  kp_LOG_LogEntry::AddAttributeDefinition(0, "DAYLIGHT_SAVING_ACTIVE", TypeBool);
  kp_LOG_Recorder log(options());
  kp_LOG_LogEntry entry(1006, 2);
  kp_Time time(2020, 2, 29, 1, 2, 3);
  time.set_zone_bias(-330);
  time.set_daylight_flag(0);
  entry._get_imp().set_timestamp(time, false);
  EXPECT_EQ(log.Record(entry), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["time"], "2020-02-29T01:02:03+05:30");
  EXPECT_NE(stored()[0]["recorded"].get<std::string>().substr(0, 4), "2020");
}

TEST_F(RecordedEntry, HasNothingOfTheTimeOfAnotherOne) {
  kp_LOG_LogEntry::AddAttributeDefinition(0, "TIMEZONE_DIFFERENCE", TypeSInt2);
  kp_LOG_LogEntry::AddAttributeDefinition(0, "DAYLIGHT_SAVING_ACTIVE", TypeBool);
  kp_LOG_Recorder log(options());
  const auto record_at = [&](int second) {
    kp_LOG_LogEntry entry(1006, 2);
    kp_Time time(2020, 2, 29, 1, 2, second);
    time.set_zone_bias(0);
    time.set_daylight_flag(0);
    entry._get_imp().set_timestamp(time, false);
    ASSERT_EQ(log.Record(entry), answer::recorded);
  };
  for (const int second : {3, 3, 4, 3}) {
    record_at(second);
    ASSERT_EQ(log.Record(shop::PLAIN{}), answer::recorded);
  }
  ASSERT_TRUE(log.Flush(patience));
  const std::vector<std::string> own = {"03", "03", "04", "03"};
  ASSERT_EQ(stored().size(), 8u);
  for (size_t i = 0; i < stored().size(); ++i) {
    const std::string time = stored()[i]["time"];
    const std::string recorded = stored()[i]["recorded"];
    if (i % 2 == 0)
      EXPECT_EQ(time, "2020-02-29T01:02:" + own[i / 2] + "+00:00");
    else
      EXPECT_EQ(recorded.substr(0, time.size() - 6) + recorded.substr(recorded.size() - 6), time);
    EXPECT_NE(recorded.substr(0, 4), "2020");
  }
}

TEST_F(RecordedEntry, GoesByTheCodePageOfTheProgram) {
  kp_LOG_LogConfig::SetCodePage("ISO-8859-1");
  kp_LOG_Recorder log(options());
  kp_LOG_LogEntry entry(1001, 3);
  entry.AddAttribMBStr("KEY", "th\xE9");
  EXPECT_EQ(log.Record(entry), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], "th\u00e9");
}

TEST_F(RecordedEntry, LosesWhatTheRecordersDefinitionsDoNotHave) {
  kp_LOG_LogEntry::AddAttributeDefinition(1001, "COLOUR", TypeUInt4);
  kp_LOG_Recorder log(options_with_faults());
  kp_LOG_LogEntry entry(1001, 3);
  entry.AddAttrib4u("COLOUR", 3);
  EXPECT_EQ(log.Record(entry), answer::lost_name);
}
