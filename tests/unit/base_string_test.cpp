#include "base/kp_string.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "base/kp_exception.h"
#include "tests/support/failing.h"
#include "tests/support/raised.h"

static_assert(std::is_nothrow_move_constructible_v<kp_String>);
static_assert(std::is_nothrow_move_assignable_v<kp_String>);

static const std::string hundred_capitals(100, 'L');

// Around the room inside the object: the last text that fits, and the first that does not.
static const unsigned edge_lengths[] = {0, 1, 30, 31, 32, 33, 63, 64, 65, 1000};

static std::string content(const kp_String& s) {
  return {s.c_str(), s.length()};
}

static std::string letters(unsigned count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

TEST(SameBytes, EveryByteOfEveryLengthCounts) {
  for (unsigned length = 0; length < 70; ++length) {
    const std::string one = letters(length);
    std::string other = one + "behind it";
    EXPECT_TRUE(KP_are_same_bytes(one.c_str(), other.c_str(), length)) << length;
    for (unsigned i = 0; i < length; ++i) {
      other[i] = static_cast<char>(other[i] ^ 0x80);
      EXPECT_FALSE(KP_are_same_bytes(one.c_str(), other.c_str(), length)) << length << " " << i;
      other[i] = one[i];
    }
  }
}

TEST(String, DefaultHasNoBuffer) {
  const kp_String s;
  EXPECT_FALSE(s.has_buffer());
  EXPECT_STREQ(s.c_str(), "");
  EXPECT_EQ(s.length(), 0U);
}

TEST(String, NullGivesNoBufferAndEmptyTextGivesOne) {
  EXPECT_FALSE(kp_String(static_cast<const char*>(nullptr)).has_buffer());
  EXPECT_FALSE(kp_String(static_cast<const char*>(nullptr), 5).has_buffer());
  EXPECT_TRUE(kp_String("").has_buffer());
  EXPECT_EQ(kp_String(""), kp_String());
}

TEST(String, CopiesTextsOfEveryLength) {
  for (unsigned length : edge_lengths) {
    const std::string text = letters(length);
    const kp_String s(text.c_str());
    EXPECT_EQ(content(s), text);
    EXPECT_EQ(s.c_str()[s.length()], '\0');
  }
}

TEST(String, BytesMayBeZero) {
  const kp_String s("a\0b", 3);
  EXPECT_EQ(content(s), std::string("a\0b", 3));
  EXPECT_EQ(s[1], '\0');
}

TEST(String, FillRepeatsTheByte) {
  EXPECT_EQ(content(kp_String(3, 'x')), "xxx");
  EXPECT_EQ(content(kp_String(40, 'y')), std::string(40, 'y'));
  EXPECT_TRUE(kp_String(0, 'z').has_buffer());
}

TEST(String, CopyIsIndependent) {
  for (unsigned length : edge_lengths) {
    kp_String original(letters(length + 1).c_str());
    const kp_String copy = original;
    original[0] = '#';
    EXPECT_EQ(content(copy), letters(length + 1));
  }
}

TEST(String, MoveLeavesTheSourceWithoutABuffer) {
  for (unsigned length : edge_lengths) {
    kp_String source(letters(length).c_str());
    const kp_String target = std::move(source);
    EXPECT_EQ(content(target), letters(length));
    EXPECT_FALSE(source.has_buffer());  // NOLINT(bugprone-use-after-move): what the move promises
    EXPECT_EQ(source.length(), 0U);
  }
}

TEST(String, MovingWithoutABufferGivesNoBuffer) {
  kp_String source;
  kp_String target("gone");
  target = std::move(source);
  EXPECT_FALSE(target.has_buffer());
}

TEST(String, MovedFromStringIsUsableAgain) {
  kp_String source(hundred_capitals.c_str());
  const kp_String target = std::move(source);
  source = "again";
  EXPECT_EQ(content(source), "again");
  EXPECT_EQ(content(target), hundred_capitals);
}

TEST(String, AssignmentFromItselfDoesNothing) {
  kp_String s("same");
  const kp_String& alias = s;
  s = alias;
  EXPECT_EQ(content(s), "same");
  s = static_cast<kp_String&&>(const_cast<kp_String&>(alias));
  EXPECT_EQ(content(s), "same");
}

TEST(String, AssignmentReplacesShortByLongAndLongByShort) {
  kp_String s("short");
  s = hundred_capitals.c_str();
  EXPECT_EQ(content(s), hundred_capitals);
  s = "short";
  EXPECT_EQ(content(s), "short");
}

TEST(String, AssigningNullTakesTheBufferAway) {
  kp_String s(hundred_capitals.c_str());
  s = static_cast<const char*>(nullptr);
  EXPECT_FALSE(s.has_buffer());
  EXPECT_EQ(s.length(), 0U);
}

TEST(String, AssigningAStringWithoutABufferTakesTheBufferAway) {
  kp_String s("text");
  s = kp_String();
  EXPECT_FALSE(s.has_buffer());
}

TEST(String, AssignsItsOwnTail) {
  for (unsigned length : edge_lengths) {
    const std::string text = letters(length + 2);
    kp_String s(text.c_str());
    s.assign(s.c_str() + 2, s.length() - 2);
    EXPECT_EQ(content(s), text.substr(2));
  }
}

TEST(String, AppendsItself) {
  for (unsigned length : edge_lengths) {
    const std::string text = letters(length);
    kp_String s(text.c_str());
    s += s;
    EXPECT_EQ(content(s), text + text);
  }
}

TEST(String, AppendsItsOwnMiddle) {
  kp_String s(letters(31).c_str());
  s.append(s.c_str() + 5, 20);
  EXPECT_EQ(content(s), letters(31) + letters(31).substr(5, 20));
}

TEST(String, AppendsByteByByteAcrossEveryEdge) {
  kp_String s;
  std::string expected;
  for (unsigned i = 0; i < 300; ++i) {
    const char c = static_cast<char>('a' + i % 26);
    s.append(&c, 1);
    expected += c;
    ASSERT_EQ(content(s), expected);
  }
}

TEST(String, AppendingNullChangesNothing) {
  kp_String s;
  s.append(nullptr);
  s.append(nullptr, 7);
  s += kp_String();
  EXPECT_FALSE(s.has_buffer());
}

TEST(String, AppendingAnEmptyTextGivesABuffer) {
  kp_String s;
  s += "";
  EXPECT_TRUE(s.has_buffer());
  EXPECT_EQ(s.length(), 0U);
}

TEST(String, IndexReadsAndWrites) {
  kp_String s("abc");
  s[1] = 'X';
  EXPECT_EQ(content(s), "aXc");
  EXPECT_EQ(std::as_const(s)[2], 'c');
}

TEST(String, IndexAtTheLengthIsOutOfBounds) {
  kp_String s("abc");
  EXPECT_EQ(raised<KPX_index_out_of_bounds>([&] { s[3]; }), "(null)");
  EXPECT_EQ(raised<KPX_index_out_of_bounds>([&] { std::as_const(s)[3]; }), "(null)");
  EXPECT_EQ(raised<KPX_index_out_of_bounds>([] { kp_String()[0]; }), "(null)");
}

TEST(String, ComparesByUnsignedBytesThenByLength) {
  EXPECT_EQ(kp_String("abc").compare(kp_String("abc")), 0);
  EXPECT_LT(kp_String("ab").compare(kp_String("abc")), 0);
  EXPECT_GT(kp_String("b").compare(kp_String("abc")), 0);
  EXPECT_GT(kp_String("\x80").compare(kp_String("\x7f")), 0);
  EXPECT_LT(kp_String("a\0a", 3).compare(kp_String("a\0b", 3)), 0);
}

TEST(String, ComparesWithATextAndWithNull) {
  EXPECT_EQ(kp_String("abc").compare("abc"), 0);
  EXPECT_GT(kp_String("a\0", 2).compare("a"), 0);
  EXPECT_EQ(kp_String().compare(static_cast<const char*>(nullptr)), 0);
  EXPECT_GT(kp_String("a").compare(static_cast<const char*>(nullptr)), 0);
}

TEST(String, OperatorsFollowCompare) {
  EXPECT_TRUE(kp_String("a") == kp_String("a"));
  EXPECT_TRUE(kp_String("a") != kp_String("b"));
  EXPECT_TRUE(kp_String("a") < kp_String("b"));
  EXPECT_FALSE(kp_String("a") < kp_String("a"));
}

TEST(String, LengthBeyond32BitsIsAFailedAllocation) {
  constexpr unsigned most = std::numeric_limits<unsigned>::max();
  EXPECT_EQ(raised<KPX_memory_alloc>([] { const kp_String s(most, 'x'); }), "(null)");
  kp_String s("kept");
  EXPECT_EQ(raised<KPX_memory_alloc>([&] { s.append("x", most); }), "(null)");
  EXPECT_EQ(raised<KPX_memory_alloc>([&] { s.assign("x", most); }), "(null)");
  EXPECT_EQ(content(s), "kept");
}

TEST(String, ShortTextsNeedNoHeap) {
  const failing_new everything(1, from_then_on);
  kp_String s("31 bytes fit inside the object ");
  const kp_String copy = s;
  s = "another one";
  EXPECT_EQ(copy.length(), 31U);
  EXPECT_FALSE(everything.met());
}

TEST(String, ConstructionThatFailsRaisesAndLeaksNothing) {
  EXPECT_EQ(for_each_failing_new([] { const kp_String s(hundred_capitals.c_str()); }), 1U);
  EXPECT_EQ(for_each_failing_new([] { const kp_String s(100, 'x'); }), 1U);
}

TEST(String, FailedAssignmentLeavesTheStringAsItWas) {
  kp_String s("as it was");
  for_each_failing_new([&] { s = hundred_capitals.c_str(); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(content(s), "as it was");
                       });
  EXPECT_EQ(content(s), hundred_capitals);
}

TEST(String, FailedAppendLeavesTheStringAsItWas) {
  kp_String s("as it was");
  for_each_failing_new([&] { s += hundred_capitals.c_str(); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(content(s), "as it was");
                       });
  EXPECT_EQ(content(s), "as it was" + hundred_capitals);
}
