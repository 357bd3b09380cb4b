#include "engines/syslog/message.h"

#include <gtest/gtest.h>

#include <regex>

#include "recording/text/number.h"
#include "tests/engines/support/made_batch.h"

TEST(SyslogName, HoldsWhatNamesMayHold) {
  EXPECT_EQ(syslog_name("USER_NAME"), "USER_NAME");
  EXPECT_EQ(syslog_name(std::string(32, 'x')), std::string(32, 'x'));
  const std::regex name(R"([!#-<>-Z\[\\^-~]{1,32})");
  std::string every;
  for (int byte = 0; byte < 256; ++byte) {
    every += static_cast<char>(byte);
    EXPECT_TRUE(std::regex_match(syslog_name(std::string(1, static_cast<char>(byte))), name))
        << byte;
  }
  for (const std::string& text : {std::string(), every, std::string(33, 'x'), std::string("größe")})
    EXPECT_TRUE(std::regex_match(syslog_name(text), name)) << text;
  EXPECT_NE(syslog_name(std::string(33, 'x')), syslog_name(std::string(34, 'x')));
  EXPECT_NE(syslog_name("a b"), syslog_name("a=b"));
  EXPECT_TRUE(syslog_name("a b").starts_with("a_b~"));
  EXPECT_TRUE(std::regex_match(syslog_name("größe"), std::regex("gr____e~[0-9A-F]{8}")));
}

TEST(SyslogField, HoldsPrintableAscii) {
  EXPECT_EQ(syslog_field("till-3", 255), "till-3");
  EXPECT_EQ(syslog_field("", 255), "-");
  EXPECT_EQ(syslog_field("a b\tc\x7F\n", 255), "a_b_c__");
  EXPECT_EQ(syslog_field("abc", 2), "ab");
}

// The message of a record, without its size.
static std::string message_of(const std::string& line, const syslog_form& form = {}) {
  const made_batch made({line});
  pipeline_record_reader reader;
  const pipeline_record* const record = reader.read(made.records.at(0));
  EXPECT_NE(record, nullptr) << reader.fault();
  std::string frames;
  syslog_message_writer(made.journal, "s", form).append(frames, made.records.at(0), *record);
  const size_t blank = frames.find(' ');
  EXPECT_EQ(number_of<size_t>(frames.substr(0, blank)), frames.size() - blank - 1);
  return frames.substr(blank + 1);
}

static std::string time_of(const std::string& time, const std::string& recorded = "") {
  std::string line = R"({"version":"2","event":1,"time":")" + time + "\"";
  if (!recorded.empty()) line += R"(,"recorded":")" + recorded + "\"";
  const std::string message = message_of(line + R"(,"attributes":{},"types":{}})");
  const size_t begin = message.find(' ') + 1;
  return message.substr(begin, message.find(' ', begin) - begin);
}

TEST(SyslogMessage, TellsTimes) {
  EXPECT_EQ(time_of("2026-11-15T17:02:56+08:00"), "2026-11-15T17:02:56+08:00");
  EXPECT_EQ(time_of("2026-11-15T17:02:56Z", "2026-11-15T17:02:56.5Z"), "2026-11-15T17:02:56.5Z");
  EXPECT_EQ(time_of("2026-11-15T17:02:56-03:30", "2026-11-15T20:32:56.123456789Z"),
            "2026-11-15T17:02:56.123456-03:30");
  // Recorded in another second.
  EXPECT_EQ(time_of("2026-11-15T17:02:56Z", "2026-11-15T17:02:57.5Z"), "2026-11-15T17:02:56Z");
  EXPECT_EQ(time_of("0000-01-01T00:00:00Z"), "0000-01-01T00:00:00Z");
  EXPECT_EQ(time_of("9999-12-31T23:59:59Z"), "9999-12-31T23:59:59Z");
}

TEST(SyslogMessage, CutsWhatNamesWhoRecorded) {
  const std::string long_name(300, 'r');
  const std::string message =
      message_of(R"({"event":1,"recorder":")" + long_name + R"(","host":")" + long_name + "\"}");
  const std::regex recorder(R"( recorder="(r+~[0-9A-F]{8})\")");
  std::smatch found;
  ASSERT_TRUE(std::regex_search(message, found, recorder)) << message;
  EXPECT_EQ(found[1].length(), 255);
  const std::string host = " " + std::string(255, 'r') + " shop ";
  EXPECT_NE(message.find(host), std::string::npos) << message;
}

TEST(SyslogMessage, HasTheLevelAsSeverity) {
  std::string severities;
  for (int level = 0; level <= 9; ++level) {
    const std::string message =
        message_of(R"({"event":1,"level":)" + std::to_string(level) + "}", {.facility = 0});
    severities += message.substr(0, message.find('1', 3));
  }
  EXPECT_EQ(severities, "<1><2><3><4><5><6><7><7><7><7>");
}

TEST(SyslogMessage, NeverIsLongerThanItMayBe) {
  const std::string awkward = R"(\"\\]é😀\u001b)";  // JSON
  std::string texts, attributes, context;
  for (size_t i = 0; i < 300; ++i) {
    texts += awkward;
    const std::string name = std::to_string(i);
    attributes += (i == 0 ? "\"A" : ",\"A") + name + R"(":")" + awkward + "\"";
    if (i < 100) context += (i == 0 ? "\"C" : ",\"C") + name + R"(":")" + awkward + "\"";
    if (i % 11 != 0) continue;
    const std::string line = R"({"version":"2.0","event":1,"name":")" + texts + R"(","level":3,)" +
                             R"("time":"2026-11-15T17:02:56Z","recorder":")" + texts +
                             R"(","context":{)" + context + R"(},"attributes":{)" + attributes +
                             R"(},"types":{},"message":")" + texts + "\"}";
    for (const size_t longest : {2048U, 8192U}) {
      const std::string message = message_of(line, {.longest = longest});
      EXPECT_LE(message.size(), longest) << i;
      const bool is_cut = message.find(" cut=\"true\"]") != std::string::npos;
      EXPECT_TRUE(is_cut || message.ends_with("\xF0\x9F\x98\x80\\x1B")) << message;
      EXPECT_TRUE(!is_cut || message.size() > longest / 2) << i;
    }
  }
}
