#include "logging/ustring.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/failing.h"

static void expect_nothing(const _kp_LOG_ustring& text) {
  EXPECT_EQ(text.length(), 0U);
  EXPECT_EQ(text.get_array(), nullptr);
  EXPECT_STREQ(text.c_str(), "");
}

static void expect_text(const _kp_LOG_ustring& text, const std::string& expected) {
  ASSERT_NE(text.get_array(), nullptr);
  EXPECT_EQ(std::string(text.get_array(), text.length()), expected);
  EXPECT_EQ(text.get_array()[text.length()], '\0');
}

TEST(ByteString, MadeOfNothingHoldsNothing) {
  expect_nothing(_kp_LOG_ustring());
  expect_nothing(_kp_LOG_ustring(nullptr));
}

TEST(ByteString, MadeOfNullStaysNothingThroughCopyAndAssignment) {
  const _kp_LOG_ustring nothing(nullptr);
  _kp_LOG_ustring copy(nothing);
  expect_nothing(copy);
  _kp_LOG_ustring assigned("text");
  assigned = nothing;
  expect_nothing(assigned);
}

TEST(ByteString, KeepsACopyOfTheText) {
  std::string source = "gr\xC3\xBC\xC3\x9F dich";
  const _kp_LOG_ustring text(source.c_str());
  source.assign(source.size(), 'x');
  expect_text(text, "gr\xC3\xBC\xC3\x9F dich");
}

TEST(ByteString, OfAnEmptyTextHasAnArrayOfOneByte) {
  expect_text(_kp_LOG_ustring(""), "");
}

TEST(ByteString, ACopyIsIndependent) {
  _kp_LOG_ustring first("first");
  const _kp_LOG_ustring second(first);
  EXPECT_NE(first.get_array(), second.get_array());
  first.set_zero();
  expect_text(second, "first");
}

TEST(ByteString, AnAssignmentReplacesTheText) {
  _kp_LOG_ustring text("short");
  text = _kp_LOG_ustring(std::string(3000, 'x').c_str());
  expect_text(text, std::string(3000, 'x'));
  const _kp_LOG_ustring other("other");
  text = other;
  expect_text(text, "other");
  expect_text(other, "other");
}

TEST(ByteString, AssignedToItselfStaysAsItIs) {
  _kp_LOG_ustring text("text");
  const _kp_LOG_ustring& same = text;
  const char* const array = text.get_array();
  text = same;
  EXPECT_EQ(text.get_array(), array);
  expect_text(text, "text");
}

TEST(ByteString, MovedToItselfStaysAsItIs) {
  _kp_LOG_ustring text("text");
  _kp_LOG_ustring& same = text;
  text = std::move(same);
  expect_text(text, "text");
}

TEST(ByteString, MovesLeaveNothingBehind) {
  _kp_LOG_ustring source("text");
  _kp_LOG_ustring target(std::move(source));
  expect_nothing(source);  // NOLINT(bugprone-use-after-move): what is left is the subject
  expect_text(target, "text");
  source = std::move(target);
  expect_nothing(target);  // NOLINT(bugprone-use-after-move): what is left is the subject
  expect_text(source, "text");
}

TEST(ByteString, SetToZeroHoldsNothing) {
  _kp_LOG_ustring text("text");
  text.set_zero();
  expect_nothing(text);
  text.set_zero();
  expect_nothing(text);
}

// One byte more than lives inside.
static const std::string text_of_32_bytes(32, 'x');

TEST(ByteString, ShortTextsNeedNoMemory) {
  EXPECT_EQ(for_each_failing_new([] { const _kp_LOG_ustring text(&text_of_32_bytes[1]); }), 0U);
}

TEST(ByteString, WithoutMemoryKeepsWhatItHeld) {
  const _kp_LOG_ustring source(text_of_32_bytes.c_str());
  _kp_LOG_ustring target("target");
  EXPECT_EQ(for_each_failing_new([&] { target = source; },
                                 [&](const std::exception_ptr& outcome) {
                                   expect_memory_alloc(outcome);
                                   expect_text(target, "target");
                                 }),
            1U);
  expect_text(target, text_of_32_bytes);
}

TEST(ByteString, ThatCannotBeMadeRaisesTheMemoryError) {
  const auto make = [] { const _kp_LOG_ustring text(text_of_32_bytes.c_str()); };
  EXPECT_EQ(for_each_failing_new(make), 1U);
  const _kp_LOG_ustring source(text_of_32_bytes.c_str());
  EXPECT_EQ(for_each_failing_new([&] { const _kp_LOG_ustring copy(source); }), 1U);
}
