// The lines of sources that diagnostics quote.
#include <gtest/gtest.h>

#include <sstream>

#include "recording/report/diagnostics.h"

// What is shown for byte `at` of a source of one line: the line, and the column of the caret.
static std::pair<std::string, size_t> excerpt(const std::string& line, size_t at) {
  const text_file source("s", line);
  diagnostic_list found;
  found.add("encoding"_rule, {&source, at}, "x");
  std::ostringstream text;
  found.write(text, {&source}, diagnostic_format::text, false);
  std::istringstream lines(text.str());
  std::string headline;
  std::string shown;
  std::string caret;
  std::getline(std::getline(std::getline(lines, headline), shown), caret);
  return {shown, caret.find('^')};
}

static std::string repeated(size_t count, const std::string& text) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

TEST(DiagnosticExcerpt, ShortLineIsShownWhole) {
  EXPECT_EQ(excerpt("one two", 4), std::make_pair(std::string("one two"), size_t{4}));
}

TEST(DiagnosticExcerpt, LongLineIsCutAroundTheCaret) {
  const auto [shown, caret] = excerpt(std::string(1000, 'a') + "b" + std::string(1000, 'c'), 1000);
  EXPECT_EQ(shown, std::string(120, 'a') + "b" + std::string(79, 'c'));
  EXPECT_EQ(caret, 120u);
}

TEST(DiagnosticExcerpt, WhatIsWrittenOutCountsAsItIsShown) {
  const auto [shown, caret] = excerpt(std::string(1000, '\0'), 500);
  EXPECT_EQ(shown, repeated(50, "\\x00"));
  EXPECT_EQ(caret, 120u);
}

TEST(DiagnosticExcerpt, BytesThatBeginNoCharacterAreCut) {
  const auto [shown, caret] = excerpt(std::string(100000, '\x80'), 50000);
  EXPECT_EQ(shown, repeated(shown.size() / 4, "\\x80"));
  EXPECT_GT(shown.size(), 120u);
  EXPECT_LE(shown.size(), 200u);
  EXPECT_EQ(caret, 120u);
}

TEST(DiagnosticExcerpt, CharactersStayWhole) {
  const auto [shown, caret] = excerpt(repeated(500, "日"), 750);
  EXPECT_EQ(shown, repeated(66, "日"));
  EXPECT_EQ(caret, 80u);
}
