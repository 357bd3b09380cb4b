// What most tests include, precompiled: the headers of GoogleTest cost more than most tests.
#ifndef TESTS_SUPPORT_TEST_HEADERS_H
#define TESTS_SUPPORT_TEST_HEADERS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#endif
