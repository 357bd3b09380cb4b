// Stored lines read by what they look like, held against the parser.
#include "recording/records/stored_line.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/recording/records/told_record.h"

static const std::string head = R"({"version":"2.0","event":1001,"name":"LOGIN","level":3,)"
                                R"("time":"2026-11-15T17:02:56+08:00")";
static const std::string tail = R"(,"message_index":0,"message":"alice came in"})";
static const std::string login_body =
    R"(,"attributes":{"USER":"alice","PORT":51234},"types":{"USER":"MBChar64","PORT":"UInt2"})";

static const std::string whole_origin =
    R"(,"recorded":"2026-11-15T17:02:56.123456789+08:00","host":"web1","recorder":"4F9A",)"
    R"("pid":4711,"thread":4712,"sequence":9,"client":"shop","number":7,)"
    R"("peer":{"user":1000,"process":4713})";

// Those that are written so.
static const std::vector<std::string> usual_lines = {
    head + login_body + tail,
    head + whole_origin + login_body + tail,
    head + R"(,"recorded":"2026-11-15T17:02:56Z","pid":0)" + login_body + tail,
    head + R"(,"attributes":{"USER":"bob"},"types":{"USER":"MBChar64"})" + tail,
    head + R"(,"attributes":{},"types":{})" + tail,
    R"({"version":"2.0","event":1002,"level":9,"time":"2026-11-15T17:02:56Z",)"
    R"("attributes":{"A B":-0.5e-3,"OK":true,"NO":false,"X":null,"N":-7,"Z":0,"S":"NaN"},)"
    R"("types":{"A B":"Float","OK":"Bool"},"message_index":4294967295,"message":"",)"
    R"("message_from":"definition"})",
    head + R"(,"host":"a\\b","attributes":{"USER":"\"\\\/\b\f\n\r\t","TEXT":"say \"a\""},)"
           R"("types":{"USER":"MB\\x"},"message_index":0,"message":"\\n","message_from":"\t"})",
    "{\"version\":\"\",\"event\":1065,\"name\":\"\xE3\x81\x82\",\"level\":0,\"time\":\"\","
    "\"attributes\":{\"\xE3\x81\x82\":\"\xF0\x9F\x98\x80\"},\"types\":{\"\xE3\x81\x82\":\"x\"},"
    "\"message_index\":1,\"message\":\"\xC3\xA9\"}",
};

class StoredLine : public testing::Test {
 protected:
  // What was read of the line; "" where that takes the parser. What is read is what the parser
  // reads.
  std::string read(const std::string& line) {
    if (!reader_.read(line, record_)) return "";
    const std::string read = told(record_);
    const parsed_record* const parsed = parser_.try_parse(line);
    EXPECT_NE(parsed, nullptr) << line;
    EXPECT_EQ(parsed == nullptr ? "" : told(*parsed), read) << line;
    return read;
  }

  stored_line_reader reader_;
  parsed_record record_;
  record_parser parser_;
};

TEST_F(StoredLine, IsReadAsTheParserReadsIt) {
  for (unsigned i = 0; i < 3; ++i)
    for (const std::string& line : usual_lines) EXPECT_NE(read(line), "") << line;
}

TEST_F(StoredLine, OfAnotherFormTakesTheParser) {
  for (const std::string& line : usual_lines) {
    EXPECT_NE(read(line), "");
    EXPECT_EQ(read(line + " "), "");
    EXPECT_EQ(read(" " + line), "");
    for (size_t size = 0; size < line.size(); ++size) EXPECT_EQ(read(line.substr(0, size)), "");
  }
  for (const std::string& line :
       {R"({"event":1001})" + std::string(100, ' '),
        head + R"(,"context":{"a":1})" + login_body + tail,
        head + R"(,"attributes":{"USER":"al\u0069ce"},"types":{})" + tail,
        head + R"(,"attributes":{"USER":"\x"},"types":{})" + tail,
        head + R"(,"attributes":{"US\\ER":"x"},"types":{})" + tail,
        R"({"version":"2.0","event":1001,"name":"A\"B","level":3,"time":"2026-11-15T17:02:56Z")" +
            login_body + tail,
        head + R"(,"attributes":{"USER":"a","USER":"a"},"types":{})" + tail,
        head + R"(,"attributes":{"N":01},"types":{})" + tail,
        head + R"(,"attributes":{"N":1 },"types":{})" + tail,
        head + R"(,"attributes":{"N":nil},"types":{})" + tail,
        head + R"(,"attributes":{"N":{}},"types":{})" + tail,
        head + "," + login_body + tail,
        head + R"(,"host":"")" + login_body + tail,
        head + R"(,"recorded":"2026-13-15T17:02:56.5+08:00")" + login_body + tail,
        head + R"(,"recorded":"2026-11-15T17:02:56.5+08:00x")" + login_body + tail,
        head + R"(,"recorded":"2026-11-15T17:02:56.1234567890+08:00")" + login_body + tail,
        head + R"(,"pid":18446744073709551616)" + login_body + tail,
        head + ",\"attributes\":{\"USER\":\"a\xFF\"},\"types\":{}" + tail,
        head + ",\"attributes\":{\"USER\":\"a\x01\"},\"types\":{}" + tail,
        head + ",\"attributes\":{\"USER\":\"" + std::string(1, '\0') + "\"},\"types\":{}" + tail})
    EXPECT_EQ(read(line), "") << line;
}

TEST_F(StoredLine, IsHeldAgainstTheLineBeforeItOnlyAsFarAsItIsThere) {
  for (const std::string& line : usual_lines)
    for (const std::string& other : usual_lines) {
      read(line);
      const std::string first = read(other);
      EXPECT_EQ(read(other), first);
    }
  std::string many = head + R"(,"attributes":{)";
  for (unsigned i = 0; i < 100; ++i) many += "\"A" + std::to_string(i) + "\":1,";
  many.back() = '}';
  EXPECT_EQ(read(many + R"(,"types":{})" + tail), "");
}

// --- lines of which parts are others'

class RandomStoredLine : public StoredLine {
 protected:
  size_t up_to(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random_); }

  static size_t end_of_piece(const std::string& line, size_t at) {
    return std::min(line.find_first_of(",:{}\"", at + 1), line.size());
  }

  void change(std::string& line) {
    const size_t at = up_to(line.size() - 1);
    const std::string& other = usual_lines[up_to(usual_lines.size() - 1)];
    const size_t from = up_to(other.size() - 1);
    const std::string part = other.substr(from, end_of_piece(other, from) - from);
    switch (up_to(5)) {
      case 0:
        line[at] = static_cast<char>(up_to(255));
        break;
      case 1:
        line[at] = "{}\",:0123456789eE+-.\\ anu"[up_to(24)];
        break;
      case 2:
        line.erase(at, 1 + up_to(2));
        break;
      case 3:
        line.insert(at, part);
        break;
      case 4:
        line.replace(at, end_of_piece(line, at) - at, part);
        break;
      default:
        line.insert(at, line.substr(at, end_of_piece(line, at) - at));
        break;
    }
  }

  std::random_device::result_type seed_ = std::random_device()();
  std::mt19937 random_{seed_};
};

TEST_F(RandomStoredLine, IsReadAsTheParserReadsItOrByThat) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  unsigned read_lines = 0;
  for (unsigned i = 0; i < 20'000 && !HasFailure(); ++i) {
    std::string line = usual_lines[up_to(usual_lines.size() - 1)];
    for (size_t changes = up_to(2); changes > 0 && !line.empty(); --changes) change(line);
    if (!read(line).empty()) ++read_lines;
  }
  EXPECT_GT(read_lines, 5'000U);
}
