#include "tests/command/golden_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

void expect_golden_file(const std::string& name, const std::string& actual) {
  const std::string path = test_data_folder() + "/" + name;
  if (std::getenv("KPLOG_UPDATE_GOLDEN_FILES") != nullptr)
    std::ofstream(path, std::ios::binary) << actual;
  EXPECT_EQ(read_whole_file(path), actual) << "the file is " << path;
}
