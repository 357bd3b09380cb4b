// raised_by<Error>(f): the text of a standard error that f raises, for comparing it whole.
#ifndef TESTS_SUPPORT_RAISED_BY_H
#define TESTS_SUPPORT_RAISED_BY_H

#include <gtest/gtest.h>

#include <string>

// The text of the Error that `f` raises. When it raises nothing the test fails.
template <class Error, class F>
std::string raised_by(F&& f) {
  try {
    f();
  } catch (const Error& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was raised";
  return "(nothing raised)";
}

#endif
