// Lines of a file from its end, held against those from its begin.
#include "recording/records/last_lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "recording/files/file_error.h"
#include "tests/support/temp_folder.h"

struct told_line {
  std::string text;
  uint64_t number = 0;
  bool too_long = false;
  size_t limit = 0;

  bool operator==(const told_line&) const = default;
};

std::ostream& operator<<(std::ostream& out, const told_line& line) {
  return out << line.number << " \"" << line.text << "\" " << line.too_long << " " << line.limit
             << "\n";
}

static told_line told(const record_line& line) {
  return {std::string(line.text), line.number, line.too_long, line.limit};
}

static std::vector<told_line> lines_from_begin(const std::string& bytes, size_t room, size_t most) {
  record_lines lines(room, most);
  std::vector<told_line> all;
  lines.add(bytes);
  for (record_line line; lines.next_at_end(line);) all.push_back(told(line));
  return all;
}

class LastLines : public testing::Test {
 protected:
  open_descriptor open(const std::string& bytes) {
    return open_record_file(folder_.write("records", bytes));
  }

  // In the order of the file, with the numbers of their places.
  std::vector<told_line> lines_from_end(const std::string& bytes, size_t room, size_t most) {
    const open_descriptor file = open(bytes);
    last_record_lines lines(file.get(), bytes.size(), "records", room, most);
    std::vector<told_line> all;
    std::vector<line_place> places;
    for (record_line line; lines.next(line);) {
      EXPECT_EQ(line.number, 0U);
      all.push_back(told(line));
      places.push_back(lines.place());
    }
    EXPECT_TRUE(lines.is_at_begin());
    std::reverse(all.begin(), all.end());
    std::reverse(places.begin(), places.end());
    numbered_record_lines numbered(file.get(), "records", most);
    for (size_t i = 0; i < all.size(); ++i) {
      record_line line;
      numbered.read(places[i], line);
      all[i].number = line.number;
      EXPECT_EQ(told(line), all[i]);
    }
    return all;
  }

  temp_folder folder_;
};

TEST_F(LastLines, AreThoseOfEveryFileFromItsBegin) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto up_to = [&](size_t most) {
    return std::uniform_int_distribution<size_t>(0, most)(random);
  };
  for (unsigned i = 0; i < 600; ++i) {
    static constexpr std::string_view pieces[] = {"\n",
                                                  "\n",
                                                  "\n\n",
                                                  "\r\n",
                                                  "\r",
                                                  " ",
                                                  "\t",
                                                  "a",
                                                  "{\"version\":",
                                                  "\xEF\xBB\xBF",
                                                  "\xEF",
                                                  std::string_view("\0", 1),
                                                  "0123456789abcdef"};
    std::string bytes = up_to(3) == 0 ? "\xEF\xBB\xBF" : "";
    for (size_t left = up_to(60); left > 0; --left) bytes += pieces[up_to(std::size(pieces) - 1)];
    if (up_to(9) == 0) bytes.insert(up_to(bytes.size()), 300, 'x');
    const size_t most = 1 + up_to(40), room = 1 + up_to(up_to(1) == 0 ? 8 : 80);
    EXPECT_EQ(lines_from_end(bytes, room, most), lines_from_begin(bytes, 64, most))
        << testing::PrintToString(bytes) << " room " << room << " most " << most;
    if (HasFailure()) break;
  }
}

TEST_F(LastLines, HaveTheLimitsOfWhatTheyBeginWith) {
  const std::string stored = std::string(stored_record_start) + std::string(record_size_limit, 'x');
  const std::string long_one(record_size_limit + 1, 'y');
  const std::string endless = "\xEF\xBB\xBF" + stored + std::string(stored_record_size_limit, 'z');
  for (const std::string& bytes : {stored + "\n" + long_one + "\r\nend", endless,
                                   endless + "\n" + endless, long_one + "\n" + stored + "\n\n"})
    EXPECT_TRUE(lines_from_end(bytes, 4096, stored_record_size_limit) ==
                lines_from_begin(bytes, 4096, stored_record_size_limit));
}

TEST_F(LastLines, OfAFileThatBecameShorterAreAnError) {
  const open_descriptor file = open("one\n");
  last_record_lines lines(file.get(), 100, "records");
  record_line line;
  try {
    lines.next(line);
    FAIL();
  } catch (const file_error& error) {
    EXPECT_STREQ(error.what(), "cannot read records: it became shorter meanwhile");
    EXPECT_EQ(error.use(), file_use::reading);
  }
}
