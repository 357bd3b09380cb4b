// kplog render --last: the last records of files, read from their end.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

using testing::EndsWith;
using testing::HasSubstr;

class LastRecords : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("shop.yaml",
                  "kplog: 1\nlog_version: \"2.0\"\nevents:\n"
                  "  NOTE: {id: 1003, attributes: {TEXT: MBChar64}, message: \"{TEXT}\"}\n");
    ASSERT_EQ(run("compile -q shop.yaml -o shop.ldf").status, 0);
  }

  command_result run(const std::string& arguments) {
    return run_kplog(folder_.path(), arguments, "export TZ=UTC; ");
  }
  command_result render(const std::string& options) {
    return run("render --definitions shop.ldf --locale en_US " + options);
  }
  static std::string note(const std::string& text, unsigned level = 3) {
    return R"({"event":1003,"level":)" + std::to_string(level) +
           R"(,"time":"2026-11-15T08:00:00Z","attributes":{"TEXT":")" + text + "\"}}\n";
  }
  // The notes "1" to that number.
  static std::string notes(unsigned number) {
    std::string records;
    for (unsigned i = 1; i <= number; ++i) records += note(std::to_string(i));
    return records;
  }

  temp_folder folder_;
};

TEST_F(LastRecords, OfAFileAreReadFromItsEnd) {
  folder_.write("records", notes(5));
  const command_result shown = render("--last 2 records");
  EXPECT_EQ(shown.out, "4\n5\n");
  EXPECT_EQ(shown.err,
            "kplog: 2 records: 2 rendered, 0 marked, 0 bad, 0 left out; what is before them was "
            "not read\n");
  EXPECT_EQ(render("--last 2 --where 'TEXT<4' records").err,
            "kplog: 4 records: 2 rendered, 0 marked, 0 bad, 2 left out; what is before them was "
            "not read\n");
  EXPECT_EQ(render("--last 5 records").err,
            "kplog: 5 records: 5 rendered, 0 marked, 0 bad, 0 left out\n");
  EXPECT_EQ(render("--last 1 --diagnostics json records").err,
            R"({"summary":{"read":1,"rendered":1,"marked":0,"bad":0,"left_out":0,)"
            "\"begin_unread\":true}}\n");
}

TEST_F(LastRecords, OfStandardInputAreReadFromItsBegin) {
  folder_.write("records", notes(5));
  for (const char* input : {"< records", "- < records", "records /dev/null"}) {
    const command_result shown = render(std::string("--last 2 ") + input);
    EXPECT_EQ(shown.out, "4\n5\n");
    EXPECT_EQ(shown.err, "kplog: 5 records: 2 rendered, 0 marked, 0 bad, 3 left out\n");
  }
}

TEST_F(LastRecords, OfSeveralFilesAreShownInTheirOrder) {
  folder_.write("one", notes(3));
  folder_.write("two", "");
  folder_.write("three", note("a") + note("b"));
  EXPECT_EQ(render("-q --last 4 one two three").out, "2\n3\na\nb\n");
  EXPECT_EQ(render("-q --last 4 three one").out, "b\n1\n2\n3\n");
  ASSERT_EQ(std::system(("zstd -q --rm " + folder_.file("one")).c_str()), 0);
  for (const char* first : {"one.zst", "one.zst two"}) {
    const command_result shown = render(std::string("--last 4 ") + first + " three");
    EXPECT_EQ(shown.out, "2\n3\na\nb\n");
    EXPECT_EQ(shown.err, "kplog: 5 records: 4 rendered, 0 marked, 0 bad, 1 left out\n");
  }
  EXPECT_EQ(render("--last 2 one.zst three").err,
            "kplog: 2 records: 2 rendered, 0 marked, 0 bad, 0 left out; what is before them was "
            "not read\n");
  EXPECT_EQ(render("-q --last 2 three one.zst --format table").out,
            "TIME                       LEVEL  EVENT  MESSAGE\n"
            "2026-11-15T08:00:00Z       3      NOTE   2\n"
            "2026-11-15T08:00:00Z       3      NOTE   3\n");
}

TEST_F(LastRecords, BadOnesAmongThemAreToldInTheirOrderWithTheirLines) {
  folder_.write("records", "bad\n\n" + notes(3) + "worse\r\n" + note("b") + "worst");
  const command_result all = render("--last 9 records");
  EXPECT_EQ(all.out, "1\n2\n3\nb\n");
  const command_result shown = render("--last 2 records");
  EXPECT_EQ(shown.out, "3\nb\n");
  EXPECT_EQ(shown.status, 1);
  EXPECT_THAT(shown.err, HasSubstr("records:6:1: "));
  EXPECT_THAT(shown.err, HasSubstr("records:8:1: "));
  EXPECT_LT(shown.err.find("records:6:1: "), shown.err.find("records:8:1: "));
  EXPECT_THAT(shown.err, EndsWith("kplog: 4 records: 2 rendered, 0 marked, 2 bad, 0 left out; "
                                  "what is before them was not read\n"));
  // What comes before the last is not looked at.
  EXPECT_EQ(all.err.find("records:1:1: "), 0U);
  EXPECT_EQ(shown.err.find("records:1:1: "), std::string::npos);
}

TEST_F(LastRecords, OfAFloodOfBadOnesTheFirstAreToldAndTheOthersCounted) {
  std::string flood;
  for (unsigned i = 0; i < 1200; ++i) flood += "bad\n";
  folder_.write("records", note("a") + flood + note("b"));
  const command_result shown = render("--last 2 --diagnostics json records");
  EXPECT_EQ(shown.out, "a\nb\n");
  EXPECT_EQ(shown.err, render("--last 2 --diagnostics json records /dev/null").err);
  EXPECT_THAT(shown.err, HasSubstr("1100 more bad records, not shown one by one"));
}

TEST_F(LastRecords, AFileThatCannotBeReadIsToldAndThoseBeforeItAreShown) {
  folder_.write("one", notes(2));
  folder_.write("damaged.zst", "no frame");
  folder_.write("three", note("a"));
  const command_result shown = render("--last 2 one damaged.zst three");
  EXPECT_EQ(shown.status, 3);
  EXPECT_EQ(shown.out, "2\na\n");
  EXPECT_THAT(shown.err, HasSubstr("cannot read damaged.zst: "));
  EXPECT_EQ(render("-q --last 1 one damaged.zst three").status, 0);
}

// --- held against those from the begin

class RandomLastRecords : public LastRecords {
 protected:
  size_t up_to(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random_); }

  std::string random_records() {
    std::string records = up_to(5) == 0 ? "\xEF\xBB\xBF" : "";
    for (size_t left = up_to(12); left > 0; --left) {
      std::string line = note(std::to_string(up_to(99)), static_cast<unsigned>(up_to(5)));
      line.pop_back();
      switch (up_to(9)) {
        case 0:
          line = "\xEF\xBB\xBF" + line;
          break;
        case 1:
          line.resize(up_to(line.size()));
          break;
        case 2:
          line = "\t ";
          break;
        case 3:
          line = std::string(up_to(3), '\0');
          break;
        case 4:
          line += std::string((size_t{1} << 20) + up_to(2) - line.size() - 1, ' ');
          break;
        default:
          break;
      }
      records += line + (up_to(5) == 0 ? "\r\n" : "\n");
    }
    if (up_to(2) == 0) records += up_to(1) == 0 ? "half" : R"({"event":1003})";
    return records;
  }

  // What is told of bad records, a line each; without the summary.
  static std::vector<std::string> bad_of(const std::string& log) {
    std::vector<std::string> lines;
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);)
      if (line.find("\"summary\"") == line.npos) lines.push_back(line);
    return lines;
  }

  std::random_device::result_type seed_ = std::random_device()();
  std::mt19937 random_{seed_};
};

TEST_F(RandomLastRecords, AreThoseOfAllRecords) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  for (unsigned i = 0; i < 30 && !HasFailure(); ++i) {
    folder_.write("one", random_records());
    folder_.write("two", random_records());
    ASSERT_EQ(std::system(("cd '" + folder_.path() + "' && zstd -q -f one -o one.zst").c_str()), 0);
    const char* const first[] = {"", "one ", "one.zst "};
    const std::string files = first[up_to(2)] + std::string("two");
    const std::string options = "--diagnostics json --format table --last " +
                                std::to_string(1 + up_to(10)) +
                                (up_to(1) == 0 ? " --level 2..3 " : " ");
    SCOPED_TRACE(options + files);
    const command_result last = render(options + files);
    const command_result all = render(options + files + " /dev/null");
    EXPECT_EQ(last.out, all.out);
    // Those of the last file are told first, in their order.
    std::vector<std::string> bad = bad_of(all.err);
    const bool is_one = files == "two";
    std::vector<std::string> told = bad_of(last.err);
    ASSERT_LE(told.size(), bad.size());
    if (is_one) {
      bad.erase(bad.begin(), bad.end() - static_cast<std::ptrdiff_t>(told.size()));
      EXPECT_EQ(told, bad);
    } else {
      std::sort(bad.begin(), bad.end());
      std::sort(told.begin(), told.end());
      EXPECT_TRUE(std::includes(bad.begin(), bad.end(), told.begin(), told.end()))
          << last.err << all.err;
    }
  }
}
