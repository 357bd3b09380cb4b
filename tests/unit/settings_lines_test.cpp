#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "logging/logcfg_file.h"
#include "tests/support/temp_folder.h"

// A stream that reads `bytes`.
class stream_of {
 public:
  explicit stream_of(const std::string& bytes)
      : stream_(fopen(folder_.write("lines", bytes).c_str(), "rb")) {}
  ~stream_of() { fclose(stream_); }
  stream_of(const stream_of&) = delete;
  stream_of& operator=(const stream_of&) = delete;
  operator FILE*() const { return stream_; }

 private:
  temp_folder folder_;
  FILE* stream_;
};

struct line_read {
  int result;
  std::string text;
  int position;
};

static bool operator==(const line_read& a, const line_read& b) {
  return a.result == b.result && a.text == b.text && a.position == b.position;
}

static void PrintTo(const line_read& line, std::ostream* out) {
  *out << line.result << " \"" << line.text << "\" at " << line.position;
}

// Every line of `bytes`, up to the first one that is not read whole.
static std::vector<line_read> lines_of(const std::string& bytes, int max = 128) {
  const stream_of stream(bytes);
  read_file reader;
  std::vector<line_read> lines;
  do {
    std::vector<char> buffer(static_cast<size_t>(max) + 1);
    const int result = reader.readLine(stream, buffer.data(), max);
    lines.push_back({result, result == -1 ? "" : buffer.data(), reader.position()});
  } while (lines.back().result == 0);
  return lines;
}

using lines = std::vector<line_read>;

TEST(SettingsLine, EndsAtOneTerminatorAndTheOneBehindIt) {
  EXPECT_EQ(lines_of("ab\r\ncd\n\ref\n\ngh\r\rij"),
            (lines{{0, "ab", 4}, {0, "cd", 8}, {0, "ef", 12}, {0, "gh", 16}, {-2, "ij", 18}}));
}

TEST(SettingsLine, EndsAtASingleTerminatorToo) {
  EXPECT_EQ(lines_of("ab\ncd\ref"), (lines{{0, "ab", 3}, {0, "cd", 6}, {-2, "ef", 8}}));
}

TEST(SettingsLine, BehindTwoTerminatorsAnEmptyOneIsSwallowed) {
  EXPECT_EQ(lines_of("a\n\nb\n\n\nc"), (lines{{0, "a", 3}, {0, "b", 6}, {0, "", 7}, {-2, "c", 8}}));
}

TEST(SettingsLine, ThatEndsWithTheFileIsReportedAsTheEnd) {
  EXPECT_EQ(lines_of("ab"), (lines{{-2, "ab", 2}}));
  EXPECT_EQ(lines_of("ab\n"), (lines{{-2, "ab", 2}}));
  EXPECT_EQ(lines_of("ab\n\n"), (lines{{0, "ab", 4}, {-2, "", 4}}));
  EXPECT_EQ(lines_of(""), (lines{{-2, "", 0}}));
}

TEST(SettingsLine, AtTheEndIsReadAgainAndAgain) {
  const stream_of stream("a\n\nbc");
  read_file reader;
  char buffer[8];
  EXPECT_EQ(reader.readLine(stream, buffer, 7), 0);
  EXPECT_EQ(reader.readLine(stream, buffer, 7), -2);
  EXPECT_STREQ(buffer, "bc");
  EXPECT_EQ(reader.readLine(stream, buffer, 7), -2);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(reader.position(), 5);
}

TEST(SettingsLine, OfExactlyTheGreatestLengthIsReadAndALongerOneIsNot) {
  for (const int max : {0, 1, 2, 128}) {
    const std::string fits(static_cast<size_t>(max), 'x');
    EXPECT_EQ(lines_of(fits + "\n\n", max).front(), (line_read{0, fits, max + 2}));
    EXPECT_EQ(lines_of(fits, max).front(), (line_read{-2, fits, max}));
    EXPECT_EQ(lines_of(fits + "x\n\n", max).front(), (line_read{-1, "", 0}));
  }
}

TEST(SettingsLine, WithANegativeMaximumIsRefusedAfterOneCharacter) {
  const stream_of stream("abc\n\n");
  read_file reader;
  char buffer = '?';
  EXPECT_EQ(reader.readLine(stream, &buffer, -1), -1);
  EXPECT_EQ(buffer, '?');
  EXPECT_EQ(ftell(stream), 1);
  EXPECT_EQ(reader.position(), 0);
}

TEST(SettingsLine, MayHoldAnyByte) {
  const std::string bytes = std::string("a\xFF\xFE\0z", 5) + "\n\nend";
  const stream_of stream(bytes);
  read_file reader;
  char buffer[16];
  EXPECT_EQ(reader.readLine(stream, buffer, 15), 0);
  EXPECT_EQ(std::string(buffer, 6), std::string("a\xFF\xFE\0z\0", 6));
  EXPECT_EQ(reader.position(), 7);
}

TEST(SettingsLine, OfAStreamThatCannotSeekIsRefused) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "a\n\nb", 4), 4);
  FILE* const stream = fdopen(ends[0], "rb");
  char buffer[8];
  EXPECT_EQ(read_file().readLine(stream, buffer, 7), -1);
  fclose(stream);
  close(ends[1]);
  EXPECT_EQ(read_file().readLine(nullptr, buffer, 7), -1);
}

TEST(SettingsLine, OfAStreamThatCannotBeReadIsRefused) {
  const temp_folder folder;
  FILE* const stream = fopen(folder.file("write-only").c_str(), "wb");
  char buffer[8];
  EXPECT_EQ(read_file().readLine(stream, buffer, 7), -1);
  fclose(stream);
}
