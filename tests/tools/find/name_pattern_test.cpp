#include "tools/find/name_pattern.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "recording/text/utf8.h"

TEST(NamePattern, StarsAndQuestionMarksStandForCharacters) {
  for (const auto& [text, pattern] :
       std::vector<std::pair<const char*, const char*>>{{"USER_LOGIN", "USER_LOGIN"},
                                                        {"USER_LOGIN", "USER_*"},
                                                        {"USER_LOGIN", "*"},
                                                        {"", "*"},
                                                        {"", ""},
                                                        {"USER_LOGIN", "*_*N"},
                                                        {"LINK_UP", "LINK_?P"},
                                                        {"日本", "??"},
                                                        {"日本x", "*?x"},
                                                        {"aXbXc", "a*X?"},
                                                        {"a*b", "a*b"}})
    EXPECT_TRUE(fits_name_pattern(text, pattern)) << text << " " << pattern;
  for (const auto& [text, pattern] :
       std::vector<std::pair<const char*, const char*>>{{"USER_LOGIN", "USER"},
                                                        {"USER", "USER_LOGIN"},
                                                        {"USER_LOGIN", "user_*"},
                                                        {"LINK_UP", "LINK_?"},
                                                        {"", "?"},
                                                        {"日", "??"},
                                                        {"日", "*??"},
                                                        {"x", ""}})
    EXPECT_FALSE(fits_name_pattern(text, pattern)) << text << " " << pattern;
}

TEST(NamePattern, IsOneByItsCharacters) {
  EXPECT_TRUE(is_name_pattern("USER_*"));
  EXPECT_TRUE(is_name_pattern("LINK_?P"));
  EXPECT_FALSE(is_name_pattern("USER_LOGIN"));
}

// The definition of a pattern, tried out in full.
static bool fits_by_trial(const std::vector<std::string>& text, size_t at,
                          const std::string& pattern, size_t in_pattern) {
  if (in_pattern == pattern.size()) return at == text.size();
  if (pattern[in_pattern] == '*')
    return fits_by_trial(text, at, pattern, in_pattern + 1) ||
           (at < text.size() && fits_by_trial(text, at + 1, pattern, in_pattern));
  return at < text.size() &&
         (pattern[in_pattern] == '?' || text[at] == std::string(1, pattern[in_pattern])) &&
         fits_by_trial(text, at + 1, pattern, in_pattern + 1);
}

TEST(NamePattern, RandomOnesFitWhatTryingAllFinds) {
  const unsigned seed = std::random_device()();
  std::mt19937 random(seed);
  unsigned fitting = 0;
  for (int i = 0; i < 4000; ++i) {
    std::vector<std::string> characters;
    std::string text;
    for (size_t left = random() % 7; left > 0; --left)
      text += characters.emplace_back(std::vector<std::string>{"a", "b", "ä", "日"}[random() % 4]);
    std::string pattern;
    for (size_t left = random() % 6; left > 0; --left) pattern += "ab*?*?"[random() % 6];
    const bool fits = fits_by_trial(characters, 0, pattern, 0);
    EXPECT_EQ(fits_name_pattern(text, pattern), fits)
        << '"' << text << "\" \"" << pattern << "\" seed " << seed;
    fitting += fits ? 1 : 0;
  }
  EXPECT_GT(fitting, 0U);
}
