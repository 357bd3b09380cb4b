// kp_LOG_Recorder: what it takes, and what becomes of it.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <regex>
#include <set>
#include <thread>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_errors.h"
#include "logging/counter_format.h"
#include "logging/logentry_i.h"
#include "recording/sinks/counter_record.h"
#include "tests/recorder/recorder_fixture.h"
#include "tests/support/raised_by.h"

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using answer = kp_LOG_Recorded;

static constexpr milliseconds patience(20000);

class Recorder : public RecorderPlace {
 protected:
  static shop::KEY_SET tea() {
    return {.KEY = "tea",
            .OWNER = "zoe",
            .BYTES = 17u,
            .SHARE = 0.5,
            .CHANGE = -3,
            .OUTCOME = static_cast<shop::entry_KEY_SET::OUTCOME_value>(7)};
  }

  // Options of a recorder that may have faults, which are kept.
  kp_LOG_RecorderOptions options_with_faults() {
    kp_LOG_RecorderOptions kept = options();
    kept.on_fault = [this](kp_LOG_RecorderFault kind, const std::string& text) {
      const std::lock_guard hold(mutex_);
      faults_.emplace_back(kind, text);
    };
    return kept;
  }
  // The same with text logs in a folder that can be taken away; the rings stay.
  kp_LOG_RecorderOptions options_with_logs_in(const std::string& folder) {
    kp_LOG_RecorderOptions split = options_with_faults();
    std::filesystem::create_directory(folder);
    split.text = folder + "/shop";
    split.ring_folder = folder_.path();
    return split;
  }
  std::vector<std::string> faults(kp_LOG_RecorderFault kind) {
    const std::lock_guard hold(mutex_);
    std::vector<std::string> texts;
    for (const auto& [of, text] : faults_)
      if (of == kind) texts.push_back(text);
    return texts;
  }
  // Looks until it is so, at most for a while.
  template <class Condition>
  static bool becomes(Condition condition) {
    for (int turn = 0; turn < 2000 && !condition(); ++turn)
      std::this_thread::sleep_for(milliseconds(5));
    return condition();
  }

  std::mutex mutex_;
  std::vector<std::pair<kp_LOG_RecorderFault, std::string>> faults_;
};

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

// ---- Texts ----

TEST_F(Recorder, CutsTextsThatAreTooLong) {
  kp_LOG_Recorder log(options());
  const std::string euros = [] {
    std::string text;
    for (int i = 0; i < 100; ++i) text += "\u20ac";
    return text;
  }();
  const std::string clefs = [] {
    std::string text = "x";
    for (int i = 0; i < 100; ++i) text += "\U0001d11e";
    return text;
  }();
  const std::string owner(40, 'o');
  for (const std::string& key : {euros, clefs}) {
    shop::KEY_SET event = tea();
    event.KEY = key;
    event.OWNER = owner;
    EXPECT_EQ(log.Record(event), answer::recorded);
  }
  ASSERT_TRUE(log.Flush(patience));
  ASSERT_EQ(stored().size(), 2u);
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], euros.substr(0, 64 * 3));
  EXPECT_EQ(stored()[0]["attributes"]["OWNER"], std::string(32, 'o'));
  EXPECT_EQ(stored()[1]["attributes"]["KEY"], clefs.substr(0, 1 + 31 * 4));
}

TEST_F(Recorder, CutsBytesBetweenCharacters) {
  kp_LOG_Recorder log(options());
  shop::KEY_SET event = tea();
  const std::string owner = std::string(31, 'o') + "\u00e9";
  event.OWNER = owner;
  EXPECT_EQ(log.Record(event), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"]["OWNER"], std::string(31, 'o'));
}

TEST_F(Recorder, LosesTextsThatAreNotUtf8) {
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

TEST_F(Recorder, TakesNullAndNulForTheEndsOfTexts) {
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

TEST_F(Recorder, KeepsLineBreaksAsTwoCharacters) {
  kp_LOG_Recorder log(options());
  shop::KEY_SET event = tea();
  event.KEY = "a\nb";
  log.Record(event);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_EQ(stored()[0]["attributes"]["KEY"], "a\\nb");
}

TEST_F(Recorder, PutsLargeEventsIntoSeveralBlocks) {
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

// ---- Entries ----

class RecordedEntry : public Recorder {
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

// ---- Children of fork ----

TEST_F(Recorder, ChildrenOfForkHaveRingsOfTheirOwn) {
  kp_LOG_RecorderOptions plain = options();
  plain.on_fault = {};
  kp_LOG_Recorder log(plain);
  ASSERT_EQ(log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 1u}), answer::recorded);
  const pid_t child = fork();
  if (child == 0) {
    const bool is_recorded = log.Record(shop::STEP{.NUMBER = 2u, .THREAD = 2u}) == answer::recorded;
    const bool is_flushed = log.Flush(patience);
    _exit(is_recorded && is_flushed && files_with(".ring.").size() == 2 ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(log.Record(shop::STEP{.NUMBER = 3u, .THREAD = 1u}), answer::recorded);
  ASSERT_TRUE(log.Flush(patience));
  EXPECT_THAT(messages(), testing::UnorderedElementsAre("1 1", "2 2", "1 3"));
  std::set<std::string> recorders;
  for (const auto& line : stored()) recorders.insert(line["recorder"]);
  EXPECT_EQ(recorders.size(), 2u);
}

TEST_F(Recorder, ChildrenOfForkThatRecordNothingTouchNothing) {
  auto log = std::make_unique<kp_LOG_Recorder>(options());
  log->Record(tea());
  const pid_t child = fork();
  if (child == 0) {
    log.reset();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ(log->Record(tea()), answer::recorded);
  log.reset();
  EXPECT_EQ(messages().size(), 2u);
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
            "kp_LOG_Recorder: an output is missing: one of the options text, json and count");
  EXPECT_EQ(fault_of([](auto& o) { o.ring_size = 1000; }),
            "kp_LOG_Recorder: the option ring_size is 1000; it is a number of bytes from 524288 to "
            "4294967296");
  EXPECT_EQ(fault_of([](auto& o) { o.wait = milliseconds(-1); }),
            "kp_LOG_Recorder: the option wait is negative");
  EXPECT_EQ(fault_of([](auto& o) { o.section = "shop"; }),
            "kp_LOG_Recorder: the option section needs the option settings");
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
