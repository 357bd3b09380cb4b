// Texts that are looked at in blocks: whatever stands anywhere in a text of any length comes out as
// it does alone.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "recording/text/code_page.h"
#include "recording/text/escape.h"

static const std::vector<std::string> odd_ones = {
    "\"", "\\", "\n", "\t",   "\x1F",     "\x7F",         "~",
    " ",  "&",  "?",  "\xFF", "\xC3\xA9", "\xE2\x80\xA8", "\xF0\x9F\x99\x82"};

// The character at every place of texts of up to three blocks, between others.
template <class Check>
static void each_text(Check check) {
  for (size_t length = 0; length < 50; ++length)
    for (size_t place = 0; place <= length; ++place)
      for (const std::string& odd : odd_ones) {
        std::string before;
        while (before.size() < place) before += static_cast<char>('A' + before.size() % 26);
        check(before, odd, std::string(length - place, '<'));
      }
}

static std::string without_quotes(const std::string& text) {
  return text.substr(1, text.size() - 2);
}

TEST(PlainText, OddCharactersAtAnyPlaceInJson) {
  line_writer line;
  each_text([&](const std::string& before, const std::string& odd, const std::string& behind) {
    const std::string expected = "\"" + before + without_quotes(json_string(odd)) + behind + "\"";
    const std::string text = before + odd + behind;
    ASSERT_EQ(json_string(text), expected);
    line.clear();
    append_json_text(line, text);
    ASSERT_EQ(line.text(), expected);
  });
}

TEST(PlainText, OddCharactersAtAnyPlaceInLogs) {
  line_writer line;
  each_text([&](const std::string& before, const std::string& odd, const std::string& behind) {
    std::string alone;
    append_log_text(alone, odd);
    const std::string expected = before + alone + behind;
    std::string text;
    append_log_text(text, before + odd + behind);
    ASSERT_EQ(text, expected);
    line.clear();
    append_log_text(line, before + odd + behind);
    ASSERT_EQ(line.text(), expected);
  });
}

TEST(PlainText, OddCharactersAtAnyPlaceInACodePage) {
  log_code_page latin("ISO-8859-1");
  each_text([&](const std::string& before, const std::string& odd, const std::string& behind) {
    std::string shown, alone, converted;
    append_log_text(shown, odd);
    latin.append(alone, shown);
    latin.append(converted, before + shown + behind);
    ASSERT_EQ(converted, before + alone + behind);
  });
}
