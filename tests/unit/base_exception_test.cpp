#include "base/kp_exception.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "tests/support/failing.h"

static_assert(std::is_nothrow_copy_constructible_v<KPX_memory_alloc>);
static_assert(std::is_nothrow_copy_assignable_v<KPX_runtime>);

TEST(Exception, MessageIsCopied) {
  char text[] = "first";
  const KPX_runtime error(text, 3);
  text[0] = 'X';
  EXPECT_STREQ(error.what(), "first");
  EXPECT_STREQ(error.get_message(), "first");
  EXPECT_EQ(error.get_code(), 3);
}

TEST(Exception, NullMessageStaysNullAndWhatIsEmpty) {
  const KPX_memory_alloc error(nullptr, 0);
  EXPECT_EQ(error.get_message(), nullptr);
  EXPECT_STREQ(error.what(), "");
}

TEST(Exception, EmptyMessageIsNotNull) {
  const KPX_runtime error("", 0);
  ASSERT_NE(error.get_message(), nullptr);
  EXPECT_STREQ(error.get_message(), "");
}

TEST(Exception, TextOutlivesTheErrorThatMadeIt) {
  auto first = std::make_unique<KPX_runtime>("kept", 0);
  const KPX_runtime copy = *first;
  first.reset();
  EXPECT_STREQ(copy.get_message(), "kept");
}

TEST(Exception, AssignmentReplacesTextAndCode) {
  KPX_runtime error("old", 1);
  error = KPX_runtime("new", 2);
  EXPECT_STREQ(error.get_message(), "new");
  EXPECT_EQ(error.get_code(), 2);
}

TEST(Exception, EveryErrorIsAStandardException) {
  try {
    throw KPX_index_out_of_bounds("index", 0);
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "index");
  }
}

TEST(Exception, IndexErrorIsARuntimeErrorAndAllocationErrorIsNot) {
  EXPECT_THROW(throw KPX_index_out_of_bounds(nullptr, 0), KPX_runtime);
  EXPECT_FALSE((std::is_base_of_v<KPX_runtime, KPX_memory_alloc>));
}

TEST(Exception, RaisingAnAllocationErrorNeedsNoHeap) {
  bool caught = false;
  const failing_new everything(1, from_then_on);
  try {
    throw KPX_memory_alloc(nullptr, 0);
  } catch (const KPX_memory_alloc& error) {
    caught = error.get_message() == nullptr;
  }
  EXPECT_TRUE(caught);
  EXPECT_FALSE(everything.met());
}

TEST(Exception, CopyingNeedsNoHeap) {
  const KPX_runtime error("a text that is longer than any buffer inside an object", 0);
  const failing_new everything(1, from_then_on);
  const KPX_runtime copy = error;
  EXPECT_EQ(copy.get_message(), error.get_message());
  EXPECT_FALSE(everything.met());
}

TEST(Exception, TextThatCannotBeCopiedIsAnAllocationError) {
  EXPECT_EQ(for_each_failing_new([] { const KPX_runtime error("text", 0); }), 1U);
}
