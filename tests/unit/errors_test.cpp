#include "kp_LOG_errors.h"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "logging/raise.h"
#include "tests/support/failing.h"
#include "tests/support/raised.h"

// Whether Error derives from Base with no class between, and from nothing else.
template <class Base, class Error>
static bool derives_directly_from() {
  const std::type_info* type = &typeid(Error);
  const auto* told = dynamic_cast<const abi::__si_class_type_info*>(type);
  return told != nullptr && *told->__base_type == typeid(Base);
}

template <class Error>
class LoggingErrors : public testing::Test {};

using every_logging_error =
    testing::Types<KPX_logging_misc, KPX_logging_internal_error, KPX_logging_illegal_argument,
                   KPX_logging_missing_resource, KPX_logging_invalid_log_level,
                   KPX_logging_index_out_of_bound, KPX_logging_invalid_definition,
                   KPX_logging_attribute_not_found, KPX_logging_entry_type_not_found,
                   KPX_logging_file_operation_failed, KPX_logging_invalid_attribute_name,
                   KPX_logging_invalid_message_string, KPX_logging_attribute_type_mismatch,
                   KPX_logging_invalid_attribute_value>;
TYPED_TEST_SUITE(LoggingErrors, every_logging_error);

TYPED_TEST(LoggingErrors, AreCaughtAsTheRootAndKeepTheirText) {
  try {
    kp_log_raise<TypeParam>("what went wrong");
  } catch (const KPX_logging_all& error) {
    EXPECT_STREQ(error.what(), "what went wrong");
    EXPECT_EQ(error.get_code(), 0);
    EXPECT_NE(dynamic_cast<const TypeParam*>(&error), nullptr);
  }
}

TYPED_TEST(LoggingErrors, DeriveDirectlyFromTheRootAlone) {
  EXPECT_TRUE((derives_directly_from<KPX_logging_all, TypeParam>()));
  EXPECT_EQ(sizeof(TypeParam), sizeof(kp_EXCEPTION_base));
}

TYPED_TEST(LoggingErrors, AcceptANullMessage) {
  const TypeParam error(nullptr, 0);
  EXPECT_EQ(error.get_message(), nullptr);
  EXPECT_STREQ(error.what(), "");
}

TYPED_TEST(LoggingErrors, CopiesOutliveTheOriginal) {
  auto original = std::make_unique<TypeParam>("text", 0);
  const TypeParam copy = *original;
  original.reset();
  EXPECT_STREQ(copy.get_message(), "text");
}

TEST(Errors, OfMemoryAndIndexAreNoLoggingErrors) {
  EXPECT_TRUE((derives_directly_from<kp_EXCEPTION_base, KPX_memory_alloc>()));
  EXPECT_TRUE((derives_directly_from<KPX_runtime, KPX_index_out_of_bounds>()));
}

TEST(Errors, HaveTheirTwoRootsDirectlyUnderTheBase) {
  EXPECT_TRUE((derives_directly_from<kp_EXCEPTION_base, KPX_logging_all>()));
  EXPECT_TRUE((derives_directly_from<kp_EXCEPTION_base, KPX_runtime>()));
}

TEST(Raising, JoinsThePiecesToOneText) {
  EXPECT_EQ(raised<KPX_logging_misc>([] {
              kp_log_raise<KPX_logging_misc>({"a", "", "bc"});
            }),
            "abc");
  EXPECT_EQ(raised<KPX_logging_misc>([] { kp_log_raise<KPX_logging_misc>({"alone"}); }), "alone");
}

TEST(Raising, CountsANullPieceAsEmpty) {
  EXPECT_EQ(raised<KPX_logging_misc>([] {
              kp_log_raise<KPX_logging_misc>({"a", nullptr, "b"});
            }),
            "ab");
}

TEST(Raising, JoinsLongTexts) {
  const std::string path(5000, 'p');
  EXPECT_EQ(raised<KPX_logging_misc>([&] {
              kp_log_raise<KPX_logging_misc>({"<", path.c_str(), ">"});
            }),
            "<" + path + ">");
}

TEST(Raising, WithoutMemoryForTheTextRaisesTheMemoryErrorInstead) {
  const std::string path(5000, 'p');
  {
    const failing_new fault(1, from_then_on);
    try {
      kp_log_raise<KPX_logging_misc>({"<", path.c_str(), ">"});
    } catch (const KPX_memory_alloc& error) {
      EXPECT_EQ(error.get_message(), nullptr);
    }
    EXPECT_TRUE(fault.met());
  }
}

TEST(Raising, MapsTheStandardLibrarysAllocationErrors) {
  EXPECT_EQ(raised<KPX_memory_alloc>([] { kp_log_no_bad_alloc([] { throw std::bad_alloc(); }); }),
            "(null)");
  EXPECT_EQ(raised<KPX_memory_alloc>(
                [] { kp_log_no_bad_alloc([] { throw std::length_error("too long"); }); }),
            "(null)");
}

TEST(Raising, LeavesResultsAndOtherErrorsAlone) {
  EXPECT_EQ(kp_log_no_bad_alloc([] { return 7; }), 7);
  EXPECT_THROW(kp_log_no_bad_alloc([] { throw std::runtime_error("other"); }), std::runtime_error);
}
