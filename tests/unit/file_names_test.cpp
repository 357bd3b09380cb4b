#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "kp_LOG_filenames.h"
#include "tests/support/failing.h"
#include "tests/support/raised.h"

static std::string named(const char* prefix, int year, int month, unsigned day, unsigned serial,
                         const char* directory) {
  const std::unique_ptr<char[]> name(
      make_text_log_filename(prefix, year, month, day, serial, directory));
  return name.get();
}

// --- Making names ---

TEST(TextLogName, IsPrefixDateAndSerialBehindTheDirectory) {
  EXPECT_EQ(named("app", 2024, 3, 7, 12, "/var/log"), "/var/log/app.20240307.0012");
}

TEST(TextLogName, IsBareWithoutADirectory) {
  EXPECT_EQ(named("app", 2024, 3, 7, 12, nullptr), "app.20240307.0012");
}

TEST(TextLogName, EmptyDirectoryIsTheRoot) {
  EXPECT_EQ(named("app", 2024, 3, 7, 12, ""), "/app.20240307.0012");
}

TEST(TextLogName, DirectoryIsTakenAsItIs) {
  EXPECT_EQ(named("app", 2024, 3, 7, 12, "logs/"), "logs//app.20240307.0012");
}

TEST(TextLogName, ZerosFillEachWidth) {
  EXPECT_EQ(named("", 0, 0, 0, 0, nullptr), ".00000000.0000");
}

TEST(TextLogName, NumbersAreCutTo16Bits) {
  EXPECT_EQ(named("p", 65536 + 2024, 65536 + 3, 65536 + 7, 65536 + 12, nullptr), "p.20240307.0012");
}

TEST(TextLogName, WideNumbersLengthenTheNameAndStayWhole) {
  EXPECT_EQ(named("p", -1, -1, 4294967295U, 65535, "d"), "d/p.655356553565535.65535");
  EXPECT_EQ(named("p", 10000, 100, 100, 10000, nullptr), "p.10000100100.10000");
}

TEST(TextLogName, LongPrefixAndDirectoryAreKeptWhole) {
  const std::string prefix(5000, 'p');
  const std::string directory(7000, 'd');
  EXPECT_EQ(named(prefix.c_str(), 2024, 3, 7, 12, directory.c_str()),
            directory + "/" + prefix + ".20240307.0012");
}

TEST(TextLogName, FormatCharactersInTheTextsMeanNothing) {
  EXPECT_EQ(named("%s%n", 2024, 3, 7, 12, "%d"), "%d/%s%n.20240307.0012");
}

TEST(TextLogName, FailedAllocationIsRaised) {
  const auto make = [] { delete[] make_text_log_filename("app", 2024, 3, 7, 12, "/var/log"); };
  EXPECT_EQ(for_each_failing_new(make), 1U);
}

TEST(TextLogName, NullPrefixIsReportedAndCountsAsEmpty) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(named(nullptr, 2024, 3, 7, 12, "/var"), "/var/.20240307.0012");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "logging/log_util:102: assertion failed: log_prefix\n");
}

// --- Recognising names ---

struct text_log_numbers {
  unsigned short year = 1, month = 2, day = 3, serial = 4;
};

static int recognise(const std::string& name, const std::string& prefix, text_log_numbers& n) {
  return is_a_valid_text_log(name.c_str(), prefix.c_str(), &n.year, &n.month, &n.day, &n.serial);
}

TEST(TextLogRecognition, GivesTheFourNumbers) {
  text_log_numbers n;
  EXPECT_EQ(recognise("app.20240307.0012", "app", n), 1);
  EXPECT_EQ(n.year, 2024);
  EXPECT_EQ(n.month, 3);
  EXPECT_EQ(n.day, 7);
  EXPECT_EQ(n.serial, 12);
}

struct good_text_log_name {
  const char *name, *prefix;
  unsigned short year, month, day, serial;
};

TEST(TextLogRecognition, TakesEveryGoodName) {
  const good_text_log_name good[] = {
      {"app.20241399.0000", "app", 2024, 13, 99, 0},
      {"app.00000000.0000", "app", 0, 0, 0, 0},
      {"app.99999999.9999", "app", 9999, 99, 99, 9999},
      {".20240307.0012", "", 2024, 3, 7, 12},
      {"a.b.20240307.0012", "a.b", 2024, 3, 7, 12},
      {"app.20240307.0012.20250408.0013", "app.20240307.0012", 2025, 4, 8, 13},
      {"\xC3\xA4.20240307.0012", "\xC3\xA4", 2024, 3, 7, 12},
  };
  for (const good_text_log_name& row : good) {
    text_log_numbers n;
    EXPECT_EQ(recognise(row.name, row.prefix, n), 1) << row.name;
    EXPECT_EQ(n.year, row.year) << row.name;
    EXPECT_EQ(n.month, row.month) << row.name;
    EXPECT_EQ(n.day, row.day) << row.name;
    EXPECT_EQ(n.serial, row.serial) << row.name;
  }
}

TEST(TextLogRecognition, RefusesEveryNearMissAndStoresNothing) {
  const char* const near_misses[] = {
      "",
      "app",
      "ap",
      "app.",
      "app.2024037.0012",
      "app.20240307.12",
      "app.20240307.0012x",
      "app.20240307.00123",
      "app.20240307.001",
      "app.20240307 0012",
      "app 20240307.0012",
      "app_20240307.0012",
      "app..0240307.0012",
      "app.2024030.70012",
      "app.202403070012.",
      "app.+0240307.0012",
      "app.-0240307.0012",
      "app. 0240307.0012",
      "app.0x240307.0012",
      "app.2024030a.0012",
      "app.20240307.00 2",
      "app.20240307.0012\n",
      "app.20240307..012",
      "App.20240307.0012",
      "apple.20240307.0012",
      "xapp.20240307.0012",
      "/app.20240307.0012",
      "logs/app.20240307.0012",
      "app.2024030\xB2.0012",
      "app.\xD9\xA0\xD9\xA1\xD9\xA2\xD9\xA3.0012",
  };
  for (const char* name : near_misses) {
    text_log_numbers n;
    EXPECT_EQ(recognise(name, "app", n), 0) << name;
    EXPECT_TRUE(n.year == 1 && n.month == 2 && n.day == 3 && n.serial == 4) << name;
  }
}

TEST(TextLogRecognition, EachDigitPlaceTakesDigitsOnly) {
  const std::string good = "app.20240307.0012";
  for (size_t i = 3; i < good.size(); ++i) {
    for (int c = 1; c < 256; ++c) {
      std::string name = good;
      name[i] = static_cast<char>(c);
      const bool separator = i == 3 || i == 12;
      const bool fits = separator ? c == '.' : c >= '0' && c <= '9';
      text_log_numbers n;
      EXPECT_EQ(recognise(name, "app", n), fits ? 1 : 0) << name;
    }
  }
}

TEST(TextLogRecognition, NullPointersForNumbersAreSkipped) {
  EXPECT_EQ(is_a_valid_text_log("app.20240307.0012", "app", nullptr, nullptr, nullptr, nullptr), 1);
  unsigned short serial = 0;
  EXPECT_EQ(is_a_valid_text_log("app.20240307.0012", "app", nullptr, nullptr, nullptr, &serial), 1);
  EXPECT_EQ(serial, 12);
}

TEST(TextLogRecognition, NullNameOrPrefixIsReportedAndRefused) {
  testing::internal::CaptureStderr();
  unsigned short year = 7;
  EXPECT_EQ(is_a_valid_text_log(nullptr, "app", &year, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(is_a_valid_text_log("app.20240307.0012", nullptr, &year, nullptr, nullptr, nullptr), 0);
  const std::string line = "logging/log_util:47: assertion failed: filename && log_prefix\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line);
  EXPECT_EQ(year, 7);
}

TEST(TextLogRecognition, RecognisesWhatWasMade) {
  for (unsigned serial = 0; serial <= 9999; serial += 37) {
    text_log_numbers n;
    EXPECT_EQ(
        recognise(named("p-1_x", 1000 + static_cast<int>(serial % 9000), 12, 31, serial, nullptr),
                  "p-1_x", n),
        1);
    EXPECT_EQ(n.serial, serial);
    EXPECT_EQ(n.year, 1000 + serial % 9000);
  }
}

// --- Components ---

static std::string cleaned(std::string text) {
  remove_pathname_dir_separators(text.data());
  return text;
}

TEST(PathComponent, SeparatorsDotsAndBlanksBecomeUnderscores) {
  EXPECT_EQ(cleaned("a/b.c d"), "a_b_c_d");
  EXPECT_EQ(cleaned("../../etc/passwd"), "______etc_passwd");
  EXPECT_EQ(cleaned(""), "");
}

TEST(PathComponent, OnlyTheAllowedCharactersStay) {
  const std::string allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ1234567890_-";
  EXPECT_EQ(cleaned(allowed), allowed);
  for (int c = 1; c < 256; ++c) {
    const std::string text(1, static_cast<char>(c));
    const bool stays = allowed.find(text) != std::string::npos;
    EXPECT_EQ(cleaned(text), stays ? text : "_") << c;
  }
}

TEST(PathComponent, NullIsReported) {
  testing::internal::CaptureStderr();
  remove_pathname_dir_separators(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "logging/log_util:125: assertion failed: pathname\n");
}

// --- Locks ---

static std::string lock_of(std::string first, std::string second) {
  char name[257];
  memset(name, '#', sizeof name);
  EXPECT_EQ(get_plockname(first.data(), second.data(), name), 1);
  EXPECT_EQ(name[255], '\0');
  EXPECT_EQ(name[256], '#');
  return name;
}

TEST(LockName, JoinsItsPartsWithAnUnderscore) {
  EXPECT_EQ(lock_of("db", "42"), "db_42");
  EXPECT_EQ(lock_of("", ""), "_");
}

TEST(LockName, IsCutTo255Characters) {
  const std::string first(200, 'a');
  EXPECT_EQ(lock_of(first, std::string(99, 'b')), first + "_" + std::string(54, 'b'));
  EXPECT_EQ(lock_of(first, std::string(54, 'b')), first + "_" + std::string(54, 'b'));
  EXPECT_EQ(lock_of(std::string(300, 'a'), "b"), std::string(255, 'a'));
}

TEST(LockName, RestOfTheRoomIsFilledWithNuls) {
  char first[] = "db";
  char second[] = "42";
  char name[256];
  memset(name, '#', sizeof name);
  get_plockname(first, second, name);
  EXPECT_EQ(std::string(name + 5, 251), std::string(251, '\0'));
}

TEST(LockName, MayBeWrittenOverOneOfItsParts) {
  char name[256] = "db";
  char second[] = "42";
  EXPECT_EQ(get_plockname(name, second, name), 1);
  EXPECT_STREQ(name, "db_42");
}

TEST(LockName, IsMadeWithoutMemoryToSpare) {
  char first[] = "db";
  char second[] = "42";
  char name[256];
  EXPECT_EQ(for_each_failing_new([&] { get_plockname(first, second, name); }), 0U);
  EXPECT_STREQ(name, "db_42");
}

TEST(LockName, NullPartsCountAsEmpty) {
  char name[256];
  EXPECT_EQ(get_plockname(nullptr, nullptr, name), 1);
  EXPECT_STREQ(name, "_");
  EXPECT_EQ(get_plockname(nullptr, nullptr, nullptr), 1);
}
