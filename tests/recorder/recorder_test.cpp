// kp_LOG_Recorder: what it takes, and what becomes of it.
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <regex>
#include <thread>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_errors.h"
#include "logging/counter_format.h"
#include "recording/sinks/counter_record.h"
#include "tests/recorder/recorder_calls.h"
#include "tests/support/raised_by.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class Recorder : public RecorderCalls {};

// ---- What comes out ----

TEST_F(Recorder, WritesEventsToEveryOutput) {
  kp_LOG_Recorder log(options());
  EXPECT_EQ(log.Record(tea()), answer::recorded);
  EXPECT_EQ(log.Record(5, shop::PLAIN{}), answer::recorded);
  EXPECT_TRUE(log.Flush(patience));
  EXPECT_THAT(messages(), ElementsAre("Key tea of zoe: 17 bytes, 0.5, -3", "Without anything"));
  const auto lines = stored();
  ASSERT_EQ(lines.size(), 2u);
  const auto& line = lines[0];
  EXPECT_EQ(line["version"], "2.0");
  EXPECT_EQ(line["event"], 1001);
  EXPECT_EQ(line["name"], "KEY_SET");
  EXPECT_EQ(line["level"], 3);
  EXPECT_EQ(line["message"], "Key tea of zoe: 17 bytes, 0.5, -3");
  EXPECT_EQ(line["attributes"].dump(),
            R"({"BYTES":17,"CHANGE":-3,"KEY":"tea","OUTCOME":7,"OWNER":"zoe","SHARE":0.5})");
  EXPECT_EQ(lines[1]["level"], 5);
}

TEST_F(Recorder, TellsWhereAndWhenEventsWereRecorded) {
  const environment_value zone("TZ", "Asia/Kolkata");
  kp_LOG_Recorder log(options());
  log.Record(tea());
  log.Record(tea());
  ASSERT_TRUE(log.Flush(patience));
  const auto lines = stored();
  ASSERT_EQ(lines.size(), 2u);
  const std::string recorded = lines[0]["recorded"];
  EXPECT_TRUE(
      std::regex_match(recorded, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{9}\+05:30)")))
      << recorded;
  EXPECT_EQ(lines[0]["time"], recorded.substr(0, 19) + "+05:30");
  EXPECT_LT(recorded, lines[1]["recorded"]);
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  EXPECT_EQ(lines[0]["host"], host);
  EXPECT_EQ(lines[0]["pid"], getpid());
  EXPECT_EQ(lines[0]["thread"], gettid());
  EXPECT_TRUE(
      std::regex_match(lines[0]["recorder"].get<std::string>(), std::regex("[0-9A-F]{32}")));
  EXPECT_EQ(lines[0]["sequence"], 1);
  EXPECT_EQ(lines[1]["sequence"], 2);
}

TEST_F(Recorder, CountsByDayAndEvent) {
  kp_LOG_RecorderOptions counted = options();
  counted.count = folder_.file("shop");
  {
    kp_LOG_Recorder log(counted);
    for (int i = 0; i < 3; ++i) log.Record(tea());
    log.Record(shop::PLAIN{});
  }
  const std::string bytes = read_whole_file(folder_.file("shop.cnt"));
  std::map<uint32_t, uint64_t> counts;
  for (size_t at = 0; at < bytes.size(); at += kp_counter_record_size) {
    const counted_entries record = counter_record_at(bytes, at);
    counts[record.id] += record.count;
  }
  EXPECT_EQ(counts, (std::map<uint32_t, uint64_t>{{1001, 3}, {1006, 1}}));
}

TEST_F(Recorder, KeepsValuesOfEveryType) {
  kp_LOG_Recorder log(options());
  kp_Time time(2026, 11, 15, 17, 2, 56, true);
  time.set_zone_bias(0);
  time.set_daylight_flag(0);
  ASSERT_EQ(log.Record(shop::EVERYTHING{.A_BOOL = true,
                                        .A_BYTE = std::uint8_t{255},
                                        .A_SIGNED_BYTE = std::int8_t{-128},
                                        .A_SHORT = std::uint16_t{65535},
                                        .A_SIGNED_SHORT = std::int16_t{-32768},
                                        .AN_INTEGER = -2147483647 - 1,
                                        .A_DATE = time,
                                        .A_TIME = time,
                                        .A_STAMP = time}),
            answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  ASSERT_EQ(stored().size(), 1u);
  EXPECT_EQ(
      stored()[0]["attributes"].dump(),
      R"({"AN_INTEGER":-2147483648,"A_BOOL":true,"A_BYTE":255,"A_DATE":"2026-11-15T17:02:56Z",)"
      R"("A_SHORT":65535,"A_SIGNED_BYTE":-128,"A_SIGNED_SHORT":-32768,)"
      R"("A_STAMP":"2026-11-15T17:02:56Z","A_TIME":"2026-11-15T17:02:56Z"})");
}

TEST_F(Recorder, ChoosesSelectorMessages) {
  kp_LOG_Recorder log(options());
  shop::KEY_SET event = tea();
  event.OUTCOME = shop::entry_KEY_SET::OUTCOME_value::replaced;
  log.Record(event);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_THAT(messages(), ElementsAre("Key tea was replaced by zoe"));
}

// ---- What is not taken ----

TEST_F(Recorder, LosesLevelsThatAreNone) {
  kp_LOG_Recorder log(options_with_faults());
  EXPECT_EQ(log.Record(9, tea()), answer::recorded);
  EXPECT_EQ(log.Record(10, tea()), answer::lost_value);
  EXPECT_EQ(log.Record(~0u, tea()), answer::lost_value);
}

// A header of other definitions than the recorder's.
struct other_event : shop::KEY_SET {
  static constexpr std::uint64_t fingerprint = 4711;
};

TEST_F(Recorder, RecordsEventsOfOtherHeadersByTheirNames) {
  kp_LOG_Recorder log(options());
  EXPECT_EQ(log.Record(other_event{tea()}), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_THAT(messages(), ElementsAre("Key tea of zoe: 17 bytes, 0.5, -3"));
  EXPECT_EQ(stored()[0]["attributes"]["OWNER"], "zoe");
}

struct unknown_entry : kp_LOG_LogEntry {
  unknown_entry(unsigned level, const shop::PLAIN&) : kp_LOG_LogEntry(4711, level) {}
};
struct unknown_event : shop::PLAIN {
  static constexpr std::uint64_t fingerprint = 4712;
  using entry = unknown_entry;
};

TEST_F(Recorder, LosesEventsThatTheDefinitionsDoNotHave) {
  kp_LOG_Recorder log(options_with_faults());
  EXPECT_EQ(log.Record(unknown_event{}), answer::lost_name);
  EXPECT_EQ(log.Statistics().lost[3], 1u);
  EXPECT_EQ(log.Statistics().recorded, 0u);
}

TEST_F(Recorder, TellsLossesInTheLogs) {
  {
    kp_LOG_Recorder log(options_with_faults());
    for (int i = 0; i < 17; ++i) log.Record(10, tea());
    log.Record(unknown_event{});
  }
  EXPECT_THAT(messages(), testing::UnorderedElementsAre("17 events were lost: value",
                                                        "1 event was lost: name"));
  for (const auto& line : stored()) {
    EXPECT_EQ(line["event"], 0);
    EXPECT_EQ(line["name"], "kplog.lost");
  }
}

// ---- The filter ----

TEST_F(Recorder, AsksTheFilterFirst) {
  kp_LOG_RecorderOptions filtered = options();
  filtered.settings = folder_.write("shop.conf", "[shop]\nLogLevelLow = 2\nLogLevelHigh = 4\n\n");
  filtered.section = "shop";
  kp_LOG_Recorder log(filtered);
  for (unsigned level = 0; level < 10; ++level)
    EXPECT_EQ(log.Record(level, tea()),
              level >= 2 && level <= 4 ? answer::recorded : answer::rejected)
        << level;
  EXPECT_EQ(log.Statistics().rejected, 7u);
}

TEST_F(Recorder, PassesEventsWithoutFlagsAsLongAsThereIsNoMask) {
  kp_LOG_RecorderOptions filtered = options();
  filtered.settings = folder_.write("shop.conf", "[shop]\nPropertyMask = 1\n\n");
  filtered.section = "shop";
  kp_LOG_Recorder log(filtered);
  EXPECT_EQ(log.Record(tea()), answer::recorded);
  EXPECT_EQ(log.Record(shop::PLAIN{}), answer::rejected);
}

TEST_F(Recorder, ReadsItsSettingsAgain) {
  kp_LOG_RecorderOptions filtered = options();
  filtered.settings = folder_.write("shop.conf", "[shop]\nLogLevelHigh = 2\n\n");
  filtered.section = "shop";
  kp_LOG_Recorder log(filtered);
  EXPECT_EQ(log.Record(3, tea()), answer::rejected);
  folder_.write("shop.conf", "[shop]\nLogLevelHigh = 5\nPropertyMask = 1\n\n");
  EXPECT_TRUE(becomes([&] { return log.Record(3, tea()) == answer::recorded; }));
  EXPECT_EQ(log.Record(6, tea()), answer::rejected);
}

// ---- Settings of its own ----

TEST_F(Recorder, ChangesNothingOfTheProgramsSettings) {
  const settings_guard guard;
  kp_LOG_LogConfig::SetCodePage("ISO-8859-15");
  kp_LOG_LogConfig::SetLocale("fr_FR");
  const std::string definitions = kp_LOG_LogConfig::GetDefinitionPath();
  kp_LOG_Recorder log(options());
  log.Record(tea());
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_STREQ(kp_LOG_LogConfig::GetCodePage(), "ISO-8859-15");
  EXPECT_STREQ(kp_LOG_LogConfig::GetLocale().get_name(), "fr_FR");
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionPath(), definitions);
  EXPECT_THAT(messages(), ElementsAre("Key tea of zoe: 17 bytes, 0.5, -3"));
}

TEST_F(Recorder, HasALanguageOfItsOwn) {
  kp_LOG_RecorderOptions german = options();
  german.locale = "de_DE";
  german.text = folder_.file("laden");
  german.json.clear();
  kp_LOG_Recorder log(options());
  kp_LOG_Recorder other(german);
  log.Record(tea());
  other.Record(tea());
  ASSERT_TRUE(log.Flush(patience) && other.Flush(patience));
  EXPECT_THAT(messages(), ElementsAre("Key tea of zoe: 17 bytes, 0.5, -3"));
  ASSERT_EQ(files_with("laden.2").size(), 1u);
  EXPECT_THAT(read_whole_file(files_with("laden.2")[0]),
              HasSubstr("Key tea of zoe: 17 bytes, 0,5, -3"));
}

// ---- Outputs that fail ----

TEST_F(Recorder, HoldsEventsUntilTheFolderIsThereAgain) {
  const std::string logs = folder_.file("logs");
  const kp_LOG_RecorderOptions failing = options_with_logs_in(logs);
  kp_LOG_Recorder log(failing);
  std::filesystem::remove_all(logs);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(log.Record(tea()), answer::recorded);
  EXPECT_FALSE(log.Flush(milliseconds(300)));
  EXPECT_THAT(
      faults(kp_LOG_RecorderFault::output),
      ElementsAre(MatchesRegex("cannot open the folder .*logs: No such file or directory")));
  std::filesystem::create_directory(logs);
  EXPECT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored().size(), 5u);
  size_t lines = 0;
  for (const auto& file : std::filesystem::directory_iterator(logs))
    if (file.path().filename().string().starts_with("shop.2"))
      lines += lines_of(read_whole_file(file.path().string())).size();
  EXPECT_EQ(lines, 5u);
}

TEST_F(Recorder, TellsWhatAFullRingLost) {
  const std::string logs = folder_.file("logs");
  kp_LOG_RecorderOptions failing = options_with_logs_in(logs);
  failing.ring_size = 512 << 10;
  failing.when_full = kp_LOG_WhenFull::lose;
  uint64_t recorded = 0;
  uint64_t lost = 0;
  {
    kp_LOG_Recorder log(failing);
    std::filesystem::remove_all(logs);
    while (lost < 10) {
      const answer got = log.Record(tea());
      ASSERT_TRUE(got == answer::recorded || got == answer::lost_full);
      ++(got == answer::recorded ? recorded : lost);
    }
    EXPECT_GT(recorded, 100u);
    EXPECT_EQ(log.Statistics().recorded, recorded);
    EXPECT_EQ(log.Statistics().lost[2], lost);
    EXPECT_GT(log.Statistics().bytes, 100'000u);
    std::filesystem::create_directory(logs);
  }
  uint64_t written = 0;
  uint64_t told = 0;
  for (const auto& line : stored())
    if (line["event"] == 0)
      told += line["attributes"]["COUNT"].get<uint64_t>();
    else
      ++written;
  EXPECT_EQ(written, recorded);
  EXPECT_EQ(told, lost);
}

// ---- What a call meets ----

static kp_LOG_Recorder* interrupted_recorder = nullptr;
static std::atomic<unsigned> answers_within = 0;  // lost_full, of calls within a call

static void record_in_handler(int) {
  if (interrupted_recorder->Record(shop::PLAIN{}) == answer::lost_full) ++answers_within;
}

TEST_F(Recorder, LosesAndCountsWhatASignalRecordsWithinACall) {
  kp_LOG_Recorder log(options_with_faults());
  ASSERT_EQ(log.Record(tea()), answer::recorded);  // the thread's first call may allocate
  interrupted_recorder = &log;
  struct sigaction before {};
  struct sigaction handler {};
  handler.sa_handler = record_in_handler;
  ASSERT_EQ(sigaction(SIGUSR1, &handler, &before), 0);
  std::atomic<bool> is_over = false;
  const pthread_t recording = pthread_self();
  std::thread interrupting([&] {
    while (!is_over) {
      pthread_kill(recording, SIGUSR1);
      std::this_thread::yield();
    }
  });
  const auto end = std::chrono::steady_clock::now() + patience;
  unsigned answers_outside =
      0;  // lost_full as well: handlers may fill the ring for longer than a call waits
  while (answers_within < 3 && std::chrono::steady_clock::now() < end) {
    if (log.Record(tea()) == answer::lost_full) ++answers_outside;
  }
  is_over = true;
  interrupting.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_GE(answers_within, 3u);
  EXPECT_EQ(log.Statistics().lost[2], answers_within + answers_outside);
  EXPECT_TRUE(log.Flush(patience));
}

TEST_F(Recorder, TakesTimesToWaitThatHaveNoEnd) {
  kp_LOG_RecorderOptions endless = options();
  endless.wait = milliseconds::max();
  endless.json.clear();
  endless.ring_size = 512 << 10;
  kp_LOG_Recorder log(endless);
  for (int i = 0; i < 6000; ++i) ASSERT_EQ(log.Record(tea()), answer::recorded);
  EXPECT_TRUE(log.Flush(milliseconds::max()));
  log.Flush(milliseconds::min());
  EXPECT_EQ(messages().size(), 6000u);
}

TEST_F(Recorder, MayRecordAndFlushWhenItTellsFaults) {
  kp_LOG_RecorderOptions small = options();
  small.ring_size = 512 << 10;
  small.wait = std::chrono::hours(1);
  std::atomic<kp_LOG_Recorder*> recorder = nullptr;
  std::atomic<unsigned> calls = 0;
  std::atomic<bool> has_flushed = false;
  small.on_fault = [&](kp_LOG_RecorderFault, const std::string&) {
    while (recorder == nullptr) std::this_thread::yield();
    while (recorder.load()->Record(tea()) == answer::recorded) {
    }
    has_flushed = recorder.load()->Flush(std::chrono::hours(1));
    ++calls;
  };
  kp_LOG_Recorder log(small);
  recorder = &log;
  EXPECT_EQ(log.Record(10, tea()), answer::lost_value);
  EXPECT_TRUE(becomes([&] { return calls == 1; }));
  EXPECT_FALSE(has_flushed);
  EXPECT_TRUE(log.Flush(patience));
}

TEST_F(Recorder, GetsBackTheBlocksOfThreadsThatEndWhileOthersRecord) {
  kp_LOG_RecorderOptions small = options_with_faults();
  small.json.clear();
  small.ring_size = 512 << 10;  // 128 blocks, of which one thread has half at most
  small.wait = patience;
  kp_LOG_Recorder log(small);
  std::atomic<bool> is_over = false;
  std::thread steady([&] {
    while (!is_over) log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 0u});
  });
  for (uint32_t thread = 1; thread <= 192; ++thread)
    std::thread([&] {
      EXPECT_EQ(log.Record(shop::STEP{.NUMBER = 1u, .THREAD = thread}), answer::recorded);
    }).join();
  is_over = true;
  steady.join();
}

// ---- Options ----

TEST_F(Recorder, SaysWhatIsWrongWithItsOptions) {
  const auto fault_of = [this](auto change) {
    kp_LOG_RecorderOptions wrong = options();
    change(wrong);
    return raised_by<KPX_logging_illegal_argument>([&] { kp_LOG_Recorder log(wrong); });
  };
  EXPECT_EQ(fault_of([](auto& o) { o.definitions.clear(); }),
            "kp_LOG_Recorder: the option definitions is missing");
  EXPECT_EQ(fault_of([](auto& o) { o.text = o.json = ""; }),
            "kp_LOG_Recorder: an output is missing: one of the options text, json, "
            "count and journal");
  EXPECT_EQ(fault_of([](auto& o) { o.ring_size = 1000; }),
            "kp_LOG_Recorder: the option ring_size is 1000; it is a number of bytes from 524288 to "
            "4294967296");
  EXPECT_EQ(fault_of([](auto& o) { o.wait = milliseconds(-1); }),
            "kp_LOG_Recorder: the option wait is negative");
  EXPECT_EQ(fault_of([](auto& o) { o.section = "shop"; }),
            "kp_LOG_Recorder: the option section needs the option settings");
  EXPECT_EQ(fault_of([](auto& o) { o.text += ",max-size=5K"; }),
            "kp_LOG_Recorder: the option text has a comma in its prefix");
  EXPECT_EQ(fault_of([this](auto& o) {
              o.json = folder_.file("shop.cnt");
              o.count = folder_.file("shop");
            }),
            "kp_LOG_Recorder: the options json and count name one file");
  EXPECT_THAT(rings(), IsEmpty());
}

TEST_F(Recorder, SaysWhatItCannotOpen) {
  kp_LOG_RecorderOptions wrong = options();
  wrong.definitions = folder_.file("none.ldf");
  EXPECT_THAT(raised_by<KPX_logging_invalid_definition>([&] { kp_LOG_Recorder log(wrong); }),
              HasSubstr("none.ldf: No such file or directory"));
  wrong = options();
  wrong.text = folder_.file("nowhere/shop");
  EXPECT_THAT(raised_by<KPX_logging_misc>([&] { kp_LOG_Recorder log(wrong); }),
              HasSubstr("nowhere: No such file or directory"));
  wrong = options();
  wrong.settings = folder_.file("none.conf");
  EXPECT_THAT(raised_by<KPX_logging_misc>([&] { kp_LOG_Recorder log(wrong); }),
              HasSubstr("none.conf: No such file or directory"));
  EXPECT_THAT(rings(), IsEmpty());
}
