#include "logging/logcfg_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_slot.h"

using optional_value = std::optional<unsigned>;

static optional_value value_in(const _kp_LOG_configuration& source, const char* section,
                               const char* key) {
  unsigned value = 4711;
  if (source.get_integer_value(section, key, value)) return value;
  EXPECT_EQ(value, 4711U) << "a failed look-up changed the value";
  return std::nullopt;
}

// A settings file of that content, and the source that reads it.
class settings_file {
 public:
  explicit settings_file(const std::string& content)
      : path_(folder_.write("settings", content)), source_(path_.c_str()) {}

  optional_value operator()(const char* section, const char* key) const {
    return value_in(source_, section, key);
  }
  const std::string& path() const { return path_; }
  const _kp_LOG_file_configuration& source() const { return source_; }
  void write(const std::string& content) const { folder_.write("settings", content); }
  // Makes the file's modification time `seconds`.
  void set_time(time_t seconds) const {
    const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  }

 private:
  temp_folder folder_;
  std::string path_;
  _kp_LOG_file_configuration source_;
};

// --- Syntax ---

TEST(SettingsFile, SectionsInheritTheGlobalOne) {
  const settings_file settings("[global]\r\nA=1\r\n[s]\r\nB=0x10\r\n");
  EXPECT_EQ(settings("s", "B"), 16U);
  EXPECT_EQ(settings("s", "A"), 1U);
  EXPECT_EQ(settings("t", "A"), 1U);
  EXPECT_EQ(settings("t", "B"), std::nullopt);
}

TEST(SettingsFile, ALastLineEndedByASingleLineFeedIsLost) {
  const settings_file settings("[global]\r\nA=1\r\n[s]\r\nB=0x10\n");
  EXPECT_EQ(settings("s", "A"), 1U);
  EXPECT_EQ(settings("s", "B"), std::nullopt);
}

TEST(SettingsFile, ALastLineFollowedByOneCharacterIsKept) {
  const settings_file settings("[s]\nB=7\n ");
  EXPECT_EQ(settings("s", "B"), 7U);
}

TEST(SettingsFile, ASectionsOwnValueGoesBeforeTheGlobalOne) {
  const settings_file settings("[s]\nA=2\n[global]\nA=1\n\n");
  EXPECT_EQ(settings("s", "A"), 2U);
  EXPECT_EQ(settings("other", "A"), 1U);
}

TEST(SettingsFile, ALaterLineOverwritesAnEarlierOne) {
  const settings_file settings("[s]\nA=1\n[t]\nA=5\n[s]\nA=2\n\n");
  EXPECT_EQ(settings("s", "A"), 2U);
  EXPECT_EQ(settings("t", "A"), 5U);
}

TEST(SettingsFile, TokensAreSeparatedByBlanksTabsAndEqualSigns) {
  const settings_file settings("[s]\nA=5\nB = 6\nC 7\n\t D\t==\t8\n=E=9=\n\n");
  EXPECT_EQ(settings("s", "A"), 5U);
  EXPECT_EQ(settings("s", "B"), 6U);
  EXPECT_EQ(settings("s", "C"), 7U);
  EXPECT_EQ(settings("s", "D"), 8U);
  EXPECT_EQ(settings("s", "E"), 9U);
}

TEST(SettingsFile, FurtherTokensAreIgnoredAndLonelyOnesSkipped) {
  const settings_file settings("[s]\nA 1 2 3\nB\nC=\n   \nD 4\n\n");
  EXPECT_EQ(settings("s", "A"), 1U);
  EXPECT_EQ(settings("s", "B"), std::nullopt);
  EXPECT_EQ(settings("s", "C"), std::nullopt);
  EXPECT_EQ(settings("s", "D"), 4U);
}

TEST(SettingsFile, ThereAreNoComments) {
  const settings_file settings("[s]\n# 12\n\n");
  EXPECT_EQ(settings("s", "#"), 12U);
}

TEST(SettingsFile, AWordBehindANumberSignIsTheValueZero) {
  const settings_file settings("[s]\n# word\n\n");
  EXPECT_EQ(settings("s", "#"), 0U);
}

TEST(SettingsFile, AHeaderLosesItsFirstAndItsLastCharacterWhateverThatIs) {
  const settings_file settings("[abc\nA=1\n[]\nB=2\n[x\nC=3\n  [d] [e]\nD=4\n[f g]\nE=5\n\n");
  EXPECT_EQ(settings("ab", "A"), 1U);
  EXPECT_EQ(settings("", "B"), 2U);
  EXPECT_EQ(settings("", "C"), 3U);
  EXPECT_EQ(settings("d", "D"), 4U);
  EXPECT_EQ(settings("", "E"), 5U);
}

TEST(SettingsFile, LinesOutsideOfASectionAreIgnored) {
  const settings_file settings("A=1\n[s]\nB=2\n[\nC=3\n[ t]\nD=4\n[u]\nE=5\n\n");
  EXPECT_EQ(settings("", "A"), std::nullopt);
  EXPECT_EQ(settings("s", "B"), 2U);
  EXPECT_EQ(settings("s", "C"), std::nullopt);
  EXPECT_EQ(settings("", "C"), std::nullopt);
  EXPECT_EQ(settings("t", "D"), std::nullopt);
  EXPECT_EQ(settings("u", "E"), 5U);
}

TEST(SettingsFile, NamesAreCaseSensitive) {
  const settings_file settings("[Section]\nKey=1\n\n");
  EXPECT_EQ(settings("Section", "Key"), 1U);
  EXPECT_EQ(settings("section", "Key"), std::nullopt);
  EXPECT_EQ(settings("Section", "key"), std::nullopt);
}

TEST(SettingsFile, SectionAndKeyThatJoinToOneTextAreOneSetting) {
  const settings_file settings("[ab]\nc=1\n\n");
  EXPECT_EQ(settings("a", "bc"), 1U);
  EXPECT_EQ(settings("abc", ""), 1U);
  EXPECT_EQ(settings("", "abc"), 1U);
  EXPECT_EQ(settings(nullptr, "abc"), 1U);
  EXPECT_EQ(settings("abc", nullptr), 1U);
  EXPECT_EQ(settings(nullptr, nullptr), std::nullopt);
}

TEST(SettingsFile, ANulByteEndsTheTextOfItsLine) {
  const settings_file settings(std::string("[s]\nA=1\0002\nB\0=2\nC=3\n\n", 21));
  EXPECT_EQ(settings("s", "A"), 1U);
  EXPECT_EQ(settings("s", "B"), std::nullopt);
  EXPECT_EQ(settings("s", "C"), 3U);
}

TEST(SettingsFile, BytesAboveAsciiAreOrdinary) {
  const settings_file settings("[\xFF]\n\xFF=255\n\n");
  EXPECT_EQ(settings("\xFF", "\xFF"), 255U);
}

TEST(SettingsFile, ALineOf128CharactersIsReadAndALongerOneEndsTheReading) {
  const std::string key(128 - 2, 'k');
  const settings_file settings("[s]\nA=1\n" + key + "=7\n" + key + "==8\nB=2\n\n");
  EXPECT_EQ(settings("s", "A"), 1U);
  EXPECT_EQ(settings("s", key.c_str()), 7U);
  EXPECT_EQ(settings("s", "B"), std::nullopt);
}

TEST(SettingsFile, ASectionNameMayFillItsLine) {
  const std::string name(126, 's');
  const settings_file settings("[" + name + "]\nA=1\n\n");
  EXPECT_EQ(settings(name.c_str(), "A"), 1U);
}

TEST(SettingsFile, ValuesAreDecimalUnlessTheirSecondCharacterIsAnX) {
  const struct {
    const char* written;
    unsigned value;
  } rows[] = {
      {"12abc", 12},
      {"1x5", 1},
      {"0X1f", 31},
      {"4294967295", 4294967295},
      {"4294967296", 4294967295},
      {"0xFFFFFFFFF", 4294967295},
      {"-1", 0},
      {"0x", 0},
      {"x", 0},
      {"007", 7},
      {"ax5", 10},
      {"0", 0},
  };
  for (const auto& [written, value] : rows)
    EXPECT_EQ(settings_file("[s]\na=" + std::string(written) + "\n\n")("s", "a"), value) << written;
}

// --- Reading ---

TEST(SettingsFile, IsReadAtTheFirstLookUpOnly) {
  const settings_file settings("[s]\nA=1\n\n");
  settings.write("[s]\nA=2\n\n");
  EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
  EXPECT_EQ(settings("s", "A"), 2U);
  EXPECT_NE(_kp_LOG_file_configuration::bCfgReaded, 0U);
  settings.write("[s]\nA=3\n\n");
  settings.set_time(1);
  EXPECT_EQ(settings("s", "A"), 2U);
}

TEST(SettingsFile, ANewSourceSeesTheChangedFile) {
  const settings_file settings("[s]\nA=1\n\n");
  EXPECT_EQ(settings("s", "A"), 1U);
  settings.write("[s]\nA=2\n\n");
  const _kp_LOG_file_configuration fresh(settings.path().c_str());
  EXPECT_EQ(value_in(fresh, "s", "A"), 2U);
}

TEST(SettingsFile, WithATimeOfZeroIsReadAllTheSame) {
  const settings_file settings("[s]\nA=1\n\n");
  settings.set_time(0);
  EXPECT_EQ(settings("s", "A"), 1U);
}

TEST(SettingsFile, ReadBeforeTheFlagIsResetIsNotReadAgainWithoutAChange) {
  const settings_file settings("[s]\nA=1\n\n");
  settings.set_time(1000);
  EXPECT_EQ(settings("s", "A"), 1U);
  const _kp_LOG_file_configuration resets("elsewhere");
  settings.write("[s]\nA=2\n\n");
  settings.set_time(1000);
  EXPECT_EQ(settings("s", "A"), 1U);
  settings.set_time(1001);
  EXPECT_EQ(settings("s", "A"), 2U);
}

TEST(SettingsFile, ReadAnewHoldsNothingOfWhatWasThereBefore) {
  const settings_file settings("[s]\nA=1\nB=2\n\n");
  settings.set_time(1000);
  EXPECT_EQ(settings("s", "A"), 1U);
  const _kp_LOG_file_configuration resets("elsewhere");
  settings.write("[s]\nB=3\n\n");
  settings.set_time(1001);
  EXPECT_EQ(settings("s", "A"), std::nullopt);
  EXPECT_EQ(settings("s", "B"), 3U);
}

TEST(SettingsFile, MayBeParsedWithoutALookUp) {
  const settings_file settings("[s]\nA=1\n\n");
  unsigned value = 0;
  EXPECT_FALSE(settings.source()._find_value("s", "A", value));
  EXPECT_TRUE(settings.source()._save_all_from_file());
  EXPECT_TRUE(settings.source()._find_value("s", "A", value));
  EXPECT_EQ(value, 1U);
  EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
  EXPECT_FALSE(_kp_LOG_file_configuration("missing")._save_all_from_file());
}

// Clearing the table is the look-up's step.
TEST(SettingsFile, ParsedWithoutALookUpIsAddedToWhatIsHeld) {
  const settings_file settings("[s]\nA=1\nB=2\n\n");
  unsigned value = 0;
  EXPECT_TRUE(settings.source()._save_all_from_file());
  settings.write("[s]\nB=3\nC=4\n\n");
  EXPECT_TRUE(settings.source()._save_all_from_file());
  EXPECT_TRUE(settings.source()._find_value("s", "A", value));
  EXPECT_EQ(value, 1U);
  EXPECT_TRUE(settings.source()._find_value("s", "B", value));
  EXPECT_EQ(value, 3U);
  EXPECT_EQ(settings("s", "C"), 4U);
  EXPECT_EQ(settings("s", "A"), std::nullopt);
}

TEST(SettingsFile, TheFlagIsSharedSoThatASecondSourceStaysUnread) {
  const settings_file first("[s]\nA=1\n\n");
  const settings_file second("[s]\nA=2\n\n");
  EXPECT_EQ(first("s", "A"), 1U);
  EXPECT_EQ(second("s", "A"), std::nullopt);
}

TEST(SettingsFile, ThatIsMissingHasNoValuesUntilItExists) {
  const temp_folder folder;
  const _kp_LOG_file_configuration source(folder.file("later").c_str());
  EXPECT_EQ(value_in(source, "s", "A"), std::nullopt);
  EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
  folder.write("later", "[s]\nA=1\n\n");
  EXPECT_EQ(value_in(source, "s", "A"), 1U);
}

TEST(SettingsFile, WithANullPathHasNoValues) {
  EXPECT_EQ(value_in(_kp_LOG_file_configuration(nullptr), "s", "A"), std::nullopt);
}

TEST(SettingsFile, AFolderOrAPipeHasNoValuesAndDoesNotBlock) {
  const temp_folder folder;
  EXPECT_EQ(value_in(_kp_LOG_file_configuration(folder.path().c_str()), "s", "A"), std::nullopt);
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(value_in(_kp_LOG_file_configuration(folder.file("pipe").c_str()), "s", "A"),
            std::nullopt);
}

TEST(SettingsFile, ThatIsEmptyIsReadAndHasNoValues) {
  const settings_file settings("");
  EXPECT_EQ(settings("s", "A"), std::nullopt);
  EXPECT_NE(_kp_LOG_file_configuration::bCfgReaded, 0U);
}

// Lines without a setting, as long as lines may be, up to that size of the whole.
static void fill_up_to(std::string& content, size_t size) {
  const std::string line = std::string(127, '=') + "\n";
  while (content.size() + line.size() <= size) content += line;
  content.resize(size - 1, '=');
  content += '\n';
}

TEST(SettingsFile, IsReadToItsEndBeyondItsFirstMebibyte) {
  std::string content = "[s]\n";
  fill_up_to(content, (1U << 20) + 4096);
  const settings_file settings(content + "beyond=2\n\n");
  EXPECT_EQ(settings("s", "beyond"), 2U);
}

TEST(SettingsFile, WithVeryManyKeysIsReadInReasonableTime) {
  std::string content = "[s]\n";
  unsigned keys = 0;
  while (content.size() < 1000000) content += std::to_string(keys++) + " 1\n";
  const settings_file settings(content + "\n");
  EXPECT_EQ(settings("s", "0"), 1U);
  EXPECT_EQ(settings("s", std::to_string(keys - 1).c_str()), 1U);
}

TEST(SettingsFile, ThreadsThatLookUpAtOnceAllSeeTheTable) {
  for (int round = 0; round < 50; ++round) {
    const settings_file settings("[global]\nA=1\n[s]\nB=2\n\n");
    constexpr int threads = 8;
    std::barrier start(threads);
    std::atomic<int> right = 0;
    std::vector<std::thread> readers;
    for (int t = 0; t < threads; ++t)
      readers.emplace_back([&] {
        start.arrive_and_wait();
        if (settings("s", "A") == 1U && settings("s", "B") == 2U) ++right;
      });
    for (std::thread& reader : readers) reader.join();
    ASSERT_EQ(right, threads);
  }
}

#ifdef KP_FAULTS

TEST(SettingsFile, ThatCannotBeOpenedStaysWithoutValuesUntilItsTimeChanges) {
  const settings_file settings("[s]\nA=1\n\n");
  settings.set_time(1000);
  {
    const failing refused(kp_fault_call::open, 1, EACCES);
    EXPECT_EQ(settings("s", "A"), std::nullopt);
  }
  EXPECT_EQ(settings("s", "A"), std::nullopt);
  EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
  settings.set_time(1001);
  EXPECT_EQ(settings("s", "A"), 1U);
}

TEST(SettingsFile, WhoseStatusCannotBeToldHasNoValues) {
  const settings_file settings("[s]\nA=1\n\n");
  {
    const failing unknown(kp_fault_call::stat, 1, EIO);
    EXPECT_EQ(settings("s", "A"), std::nullopt);
  }
  EXPECT_EQ(settings("s", "A"), 1U);
}

TEST(SettingsFile, ThatCannotBeOpenedOrReadWritesNoDebugLine) {
  const debug_log_in_temp_folder log(9);
  for (const kp_fault_call call :
       {kp_fault_call::stat, kp_fault_call::open, kp_fault_call::fseek, kp_fault_call::getc}) {
    const settings_file settings("[s]\nA=1\n\n");
    const failing broken(call, 1, EIO, from_then_on);
    EXPECT_EQ(settings("s", "A"), std::nullopt);
    EXPECT_GE(broken.calls_seen(), 1U);
  }
  EXPECT_FALSE(std::filesystem::exists("zel_debug.log"));
}

TEST(SettingsFile, ReadAnewThatCannotBeOpenedHasNoValuesAnyMore) {
  const settings_file settings("[s]\nA=1\n\n");
  settings.set_time(1000);
  EXPECT_EQ(settings("s", "A"), 1U);
  const _kp_LOG_file_configuration resets("elsewhere");
  settings.set_time(1001);
  {
    const failing refused(kp_fault_call::open, 1, EACCES);
    EXPECT_EQ(settings("s", "A"), std::nullopt);
  }
  EXPECT_EQ(settings("s", "A"), std::nullopt);
  settings.set_time(1002);
  EXPECT_EQ(settings("s", "A"), 1U);
}

TEST(SettingsFile, AFailedReadOrSeekEndsTheReadingAndKeepsWhatWasRead) {
  {
    const settings_file settings("[s]\nA=1\nB=2\n\n");
    const failing broken(kp_fault_call::getc, 12, EIO, from_then_on);
    EXPECT_EQ(settings("s", "A"), 1U);
    EXPECT_EQ(settings("s", "B"), std::nullopt);
  }
  {
    const settings_file settings("[s]\nA=1\nB=2\n\n");
    const failing broken(kp_fault_call::fseek, 3, EIO);
    EXPECT_EQ(settings("s", "A"), 1U);
    EXPECT_EQ(settings("s", "B"), std::nullopt);
  }
}

#endif

TEST(SettingsFile, WithoutMemoryRaisesAndIsReadByTheNextLookUp) {
  std::string content = "[s]\n";
  for (int i = 0; i < 150; ++i)
    content += "a-key-that-is-so-long-that-it-lies-on-the-heap-" + std::to_string(i) + "=" +
               std::to_string(i) + "\n";
  const settings_file settings(content + "\n");
  unsigned value = 0;
  const unsigned failures = for_each_failing_new(
      [&] {
        settings.source().get_integer_value(
            "s", "a-key-that-is-so-long-that-it-lies-on-the-heap-149", value);
      },
      [](const std::exception_ptr& outcome) {
        expect_memory_alloc(outcome);
        EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
      });
  EXPECT_GT(failures, 150U);
  EXPECT_EQ(value, 149U);
}

TEST(SettingsFile, LookingUpNeedsNoMemoryForUsualNames) {
  const std::string key(126, 'k');
  const settings_file settings("[s]\n" + key + "=1\n\n");
  EXPECT_EQ(settings("s", key.c_str()), 1U);
  const std::string longest(255 - strlen("global"), 'm');
  unsigned value = 0;
  const failing_new fault(1, from_then_on);
  EXPECT_TRUE(settings.source().get_integer_value("s", key.c_str(), value));
  EXPECT_FALSE(settings.source().get_integer_value("s", longest.c_str(), value));
  EXPECT_FALSE(fault.met());
}

TEST(SettingsFile, OfManyKeysLookingUpNeedsNoMemoryForUsualNames) {
  std::string content = "[s]\n";
  for (int i = 0; i < 40; ++i) content += std::to_string(i) + "=" + std::to_string(i) + "\n";
  const settings_file settings(content + "\n");
  EXPECT_EQ(settings("s", "39"), 39U);
  const std::string longest(255 - strlen("global"), 'm');
  unsigned value = 0;
  const failing_new fault(1, from_then_on);
  EXPECT_TRUE(settings.source().get_integer_value("s", "17", value));
  EXPECT_FALSE(settings.source().get_integer_value("s", longest.c_str(), value));
  EXPECT_FALSE(fault.met());
}

TEST(SettingsFile, NamesOfAnyLengthMayBeAskedFor) {
  const settings_file settings("[s]\nA=1\n\n");
  for (const size_t length : {249U, 250U, 254U, 255U, 256U, 300U, 100000U})
    EXPECT_EQ(settings("s", std::string(length, 'k').c_str()), std::nullopt);
}

TEST(SettingsFile, WritesNoDebugLineWhateverHappens) {
  const debug_log_in_temp_folder log(9);
  EXPECT_EQ(settings_file("[s]\nA=1\n\n")("s", "A"), 1U);
  EXPECT_EQ(settings_file("[s]\nA=1\n" + std::string(129, 'k') + "\n\n")("s", "A"), 1U);
  EXPECT_EQ(settings_file("[s]\nA=1\n")("t", "A"), std::nullopt);
  const _kp_LOG_file_configuration missing("missing");
  EXPECT_EQ(value_in(missing, "s", "A"), std::nullopt);
  const _kp_LOG_file_configuration folder(log.folder().path().c_str());
  EXPECT_EQ(value_in(folder, "s", "A"), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists("zel_debug.log"));
}

// --- Against a slow reader that was written apart ---

static unsigned slow_number(const std::string& token) {
  const bool hex = token.size() >= 2 && (token[1] == 'x' || token[1] == 'X');
  const std::string digits = hex ? "0123456789abcdef" : "0123456789";
  const size_t start = hex && token[0] == '0' ? 2 : 0;
  unsigned long long number = 0;
  for (size_t i = start; i < token.size(); ++i) {
    const size_t digit = digits.find(static_cast<char>(tolower(token[i])));
    if (digit == std::string::npos) break;
    number = std::min(number * digits.size() + digit, 4294967295ULL);
  }
  return static_cast<unsigned>(number);
}

static std::vector<std::string> slow_tokens(const std::string& line) {
  std::vector<std::string> tokens;
  bool inside = false;
  for (const char c : line) {
    const bool separates = c == ' ' || c == '\t' || c == '\n' || c == '=';
    if (!separates && !inside) tokens.emplace_back();
    if (!separates) tokens.back() += c;
    inside = !separates;
  }
  return tokens;
}

// Takes the next line off `rest`; false when no further line counts.
static bool slow_line(std::string& rest, std::string& line) {
  const size_t end = rest.find_first_of("\r\n");
  if (end == std::string::npos || end > 128 || end + 1 == rest.size()) return false;
  const bool two = rest[end + 1] == '\r' || rest[end + 1] == '\n';
  line = rest.substr(0, end);
  line = line.substr(0, line.find('\0'));
  rest.erase(0, end + (two ? 2 : 1));
  return true;
}

static std::map<std::string, unsigned> slow_settings(std::string rest) {
  std::map<std::string, unsigned> settings;
  std::optional<std::string> section;
  for (std::string line; slow_line(rest, line);) {
    const std::vector<std::string> tokens = slow_tokens(line);
    if (tokens.empty()) continue;
    const std::string& first = tokens[0];
    if (first == "[")
      section.reset();
    else if (first[0] == '[')
      section = first.substr(1, first.size() - 2);
    else if (section && tokens.size() >= 2)
      settings[*section + first] = slow_number(tokens[1]);
  }
  return settings;
}

static std::string random_content(std::mt19937& random) {
  static const std::vector<std::string> pieces = {"[",          "]",
                                                  "[global]",   "[s]",
                                                  "[t",         "global",
                                                  "s",          "t",
                                                  "a",          "b",
                                                  "c",          "ab",
                                                  " ",          "\t",
                                                  "=",          "\n",
                                                  "\r",         "\r\n",
                                                  "\n",         "\n\n",
                                                  "=0x",        "1F",
                                                  "12",         "a=1\n",
                                                  "b 2\n",      "x",
                                                  "0X7",        "#",
                                                  "4294967296", std::string(1, '\0'),
                                                  "\xFF",       std::string(60, 'k')};
  std::string content = random() % 2 == 0 ? "[s]\n" : "";
  for (size_t count = random() % 60; count > 0; --count)
    content += pieces[random() % pieces.size()];
  return content;
}

TEST(SettingsFile, AgreesWithASlowReaderOverRandomFiles) {
  std::mt19937 random(20261115);
  const temp_folder folder;
  size_t settings_seen = 0;
  for (int round = 0; round < 3000; ++round) {
    const std::string content = random_content(random);
    const std::string path = folder.write("settings", content);
    const _kp_LOG_file_configuration source(path.c_str());
    const auto expected = slow_settings(content);
    settings_seen += expected.size();
    for (const auto& [composite, value] : expected)
      ASSERT_EQ(value_in(source, composite.c_str(), ""), value) << content;
    for (const std::string section : {"", "s", "t", "global", "ab"})
      for (const std::string key : {"a", "b", "c", "ab", "#", "]", "x", "\xFF"}) {
        const auto own = expected.find(section + key);
        const auto found = own != expected.end() ? own : expected.find("global" + key);
        const optional_value wanted =
            found != expected.end() ? optional_value(found->second) : std::nullopt;
        ASSERT_EQ(value_in(source, section.c_str(), key.c_str()), wanted)
            << section << "/" << key << " in " << content;
      }
  }
  EXPECT_GT(settings_seen, 3000U) << "the random files hold too little";
}

// --- The interface ---

#ifdef __x86_64__
TEST(ConfigurationSourceInterface, LooksValuesUpThroughItsFirstSlot) {
  EXPECT_EQ(virtual_slot(&_kp_LOG_configuration::get_integer_value), 0U);
  EXPECT_TRUE(std::has_virtual_destructor_v<_kp_LOG_configuration>);
}
#endif
