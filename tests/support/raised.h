// raised<Error>(f): the text of the error that f raises, for comparing it whole.
#ifndef TESTS_SUPPORT_RAISED_H
#define TESTS_SUPPORT_RAISED_H

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "kp_LOG_errors.h"

// The message of the error of exactly class Error that `f` raises, "(null)" for a null message.
// When `f` raises nothing or an error of another class, the test fails.
template <class Error, class F>
std::string raised(F&& f) {
  try {
    f();
  } catch (const kp_EXCEPTION_base& error) {
    EXPECT_EQ(typeid(error).name(), typeid(Error).name()) << "with text: " << error.what();
    EXPECT_EQ(error.get_code(), 0);
    return error.get_message() == nullptr ? "(null)" : error.get_message();
  }
  ADD_FAILURE() << "nothing was raised";
  return "(nothing raised)";
}

#endif
