// The depth of message patterns, against what icu::MessagePattern finds in them.
#include <gtest/gtest.h>
#include <unicode/messagepattern.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "logging/logmsg_icu_depth.h"
#include "tests/support/long_text.h"

constexpr int no_limit = 1000000;

static int depth_of(const std::string& pattern, int limit = no_limit) {
  const icu::UnicodeString units = icu::UnicodeString::fromUTF8(pattern);
  return logmsg_pattern_depth(units, limit).deepest();
}

TEST(PatternDepth, CountsTheBracesOfArgumentsAndOfTheirMessages) {
  EXPECT_EQ(depth_of("no } brace"), 0);
  EXPECT_EQ(depth_of("{0} {1,number} {2,date,short} {3}"), 1);
  EXPECT_EQ(depth_of("{0,choice,0#none|1<{1,number}}"), 2);
  EXPECT_EQ(depth_of("{0,plural,offset:1 =1{one}other{#}}"), 2);
  EXPECT_EQ(depth_of("{0,select,a{}other{{1}}} {2}"), 3);
  EXPECT_EQ(depth_of("{0,number,a{b{c}}d}{1}"), 3);
}

TEST(PatternDepth, QuotedBracesDoNotCount) {
  EXPECT_EQ(depth_of("'{{{{' {0}"), 1);
  EXPECT_EQ(depth_of("'{ it''s {{{' {0}"), 1);
  EXPECT_EQ(depth_of("'{ to the end {{{"), 0);
  EXPECT_EQ(depth_of("{0,number,'}{{{'}"), 1);
  EXPECT_EQ(depth_of("{0,choice,0#'|{{'{1}}"), 2);
  EXPECT_EQ(depth_of("{0,plural,other{'#{{'}}"), 2);
}

TEST(PatternDepth, ApostrophesThatQuoteNothingHideNothing) {
  EXPECT_EQ(depth_of("don't {0,choice,0#{1}}"), 2);
  EXPECT_EQ(depth_of("''{0,choice,0#{1}}"), 2);
  EXPECT_EQ(depth_of("'|{0} '#{0,choice,0#'#{1}}"), 2);
  EXPECT_EQ(depth_of("{0,select,other{'#{1}}}"), 3);
}

TEST(PatternDepth, KindsAreReadWithTheWhiteSpaceAndTheCasesThatIcuTakes) {
  EXPECT_EQ(depth_of("{0, CHOICE\u200e,0#'{1}"), 1);
  EXPECT_EQ(depth_of("{0,\u200e Choice ,0\u2264it's {1}}"), 2);
  EXPECT_EQ(depth_of("{ 0 ,\nselectOrdinal, other {it's {1}}}"), 3);
}

TEST(PatternDepth, TheWalkStopsBehindTheLimit) {
  EXPECT_EQ(depth_of(repeated("{0,choice,0#", 5000), 100), 101);
  EXPECT_EQ(depth_of(repeated("{0,plural,other{", 5000), 100), 101);
  EXPECT_EQ(depth_of("{0,number," + repeated("{", 5000), 100), 101);
}

// --- Against ICU --------------------------------------------------------------------------------

// Nested braces of a simple argument's style.
static int depth_of_style(const icu::UnicodeString& style) {
  int depth = 0;
  int deepest = 0;
  bool quoted = false;
  for (int i = 0; i < style.length(); ++i) {
    const char16_t unit = style.charAt(i);
    if (unit == u'\'') quoted = !quoted;
    if (quoted) continue;
    if (unit == u'{') deepest = std::max(deepest, ++depth);
    if (unit == u'}') --depth;
  }
  return deepest;
}

// What ICU read, from its parts. A message of a plural or a select begins with a brace.
static int depth_in(const icu::MessagePattern& pattern) {
  int depth = 0;
  int deepest = 0;
  std::vector<int> limits;  // the parts that end what was counted
  for (int i = 0; i < pattern.countParts(); ++i) {
    const icu::MessagePattern::Part& part = pattern.getPart(i);
    const UMessagePatternPartType type = part.getType();
    if (type == UMSGPAT_PART_TYPE_ARG_START ||
        (type == UMSGPAT_PART_TYPE_MSG_START && part.getLength() == 1)) {
      limits.push_back(pattern.getLimitPartIndex(i));
      deepest = std::max(deepest, ++depth);
    } else if (type == UMSGPAT_PART_TYPE_ARG_STYLE) {
      deepest = std::max(deepest, depth + depth_of_style(pattern.getSubstring(part)));
    } else if (!limits.empty() && limits.back() == i) {
      limits.pop_back();
      --depth;
    }
  }
  return deepest;
}

class random_pattern {
 public:
  explicit random_pattern(unsigned seed) : random_(seed) {}

  std::string message(int levels) {
    std::string text;
    for (unsigned i = below(5); i > 0; --i) {
      text += levels > 0 && below(2) == 0 ? argument(levels) : literal();
    }
    return text;
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  std::string literal() {
    static const char* const all[] = {"a",      "'",   "''",   "'{", "'}",   "'|'",  "'#'", "#",
                                      "\u65e5", "'{'", "it's", " ",  "'{''", "'{{'", ",",   "<"};
    return all[below(std::size(all))];
  }

  std::string argument(int levels) {
    switch (below(6)) {
      case 0:
        return "{" + std::to_string(below(10)) + "}";
      case 1:
        return "{name , date}";
      case 2:
        return "{1,number," + style() + "}";
      case 3:
        return "{2, choice, -1#" + message(levels - 1) + "|1<" + message(levels - 1) + "}";
      case 4:
        return "{3,Plural,offset:2 =1{" + message(levels - 1) + "} other {" + message(levels - 1) +
               "} }";
      default:
        return "{4,select,a{" + message(levels - 1) + "}other{" + message(levels - 1) + "}}";
    }
  }

  std::string style() {
    static const char* const all[] = {"#,##0", "'}'", "{}", "{{}{}}", "'{'{'", "''{'}'}"};
    return all[below(std::size(all))];
  }

  std::mt19937 random_;
};

TEST(PatternDepth, IsThatOfIcuInRandomPatterns) {
  int taken = 0;
  int deep = 0;
  for (unsigned seed = 0; seed < 20000; ++seed) {
    const std::string text = random_pattern(seed).message(4);
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessagePattern parsed(icu::UnicodeString::fromUTF8(text), nullptr, status);
    if (U_FAILURE(status)) continue;
    ++taken;
    const int depth = depth_in(parsed);
    if (depth > 3) ++deep;
    ASSERT_EQ(depth_of(text), depth) << text;
  }
  EXPECT_GT(taken, 5000);
  EXPECT_GT(deep, 200);
}
