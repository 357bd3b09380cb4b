// Files that appear whole or not at all, and files that are read whole.
#include "recording/files/whole_file.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/recording/files/failing_file_calls.h"
#include "tests/support/temp_folder.h"

namespace fs = std::filesystem;

#ifdef KP_FAULTS

using testing::ElementsAre;

// The calls that make it fail, of which each leaves the folder as it was.
static std::vector<std::string> calls_that_fail(const temp_folder& folder, const std::string& path,
                                                const std::string& old) {
  const auto put_back = [&] {
    if (old.empty())
      fs::remove(folder.file("out"));
    else
      folder.write("out", old);
  };
  put_back();
  const auto names = [&] {
    std::set<std::string> all;
    for (const auto& file : fs::directory_iterator(folder.path())) all.insert(file.path());
    return all;
  };
  const std::set<std::string> before = names();
  std::vector<std::string> failed;
  const std::set<std::string> texts = for_each_failing_file_call(
      1, [&] { write_whole_file(path, "new"); },
      [&](const std::string& text) {
        EXPECT_EQ(read_whole_file(folder.file("out")), text.empty() ? "new" : old);
        put_back();
        EXPECT_EQ(names(), before);
      });
  for (const std::string& text : texts) {
    const size_t colon = text.find(':');
    EXPECT_EQ(text.substr(colon), ": cannot write " + path + ": Input/output error");
    failed.push_back(text.substr(0, colon));
  }
  return failed;
}

TEST(WholeFile, ACallThatFailsLeavesTheOldOne) {
  const temp_folder folder;
  EXPECT_THAT(
      calls_that_fail(folder, folder.file("out"), "old"),
      ElementsAre("close", "fchmod", "fsync", "mkostemp", "readlink", "rename", "stat", "write"));
}

TEST(WholeFile, ACallThatFailsMakesNoNewOne) {
  const temp_folder folder;
  EXPECT_THAT(
      calls_that_fail(folder, folder.file("out"), ""),
      ElementsAre("close", "fchmod", "fsync", "mkostemp", "readlink", "rename", "stat", "write"));
}

TEST(WholeFile, ACallThatFailsLeavesALink) {
  const temp_folder folder;
  fs::create_symlink("out", folder.file("link"));
  EXPECT_THAT(
      calls_that_fail(folder, folder.file("link"), "old"),
      ElementsAre("close", "fchmod", "fsync", "mkostemp", "readlink", "rename", "stat", "write"));
  EXPECT_TRUE(fs::is_symlink(folder.file("link")));
}

TEST(ReadFile, ACallThatFailsIsNotTakenForTheEnd) {
  const temp_folder folder;
  const std::string path = folder.write("in", "bytes");
  for (const kp_fault_call call : {kp_fault_call::open, kp_fault_call::read}) {
    const size_t before = open_descriptors();
    const unsigned failures =
        for_each_failing([&](unsigned n) { return failing(call, n, EIO); },
                         [&] { EXPECT_EQ(read_file(path, 100), "bytes"); },
                         [&](const std::exception_ptr& outcome) {
                           EXPECT_EQ(text_of(outcome, file_use::reading),
                                     "cannot read " + path + ": Input/output error");
                           EXPECT_EQ(open_descriptors(), before);
                         });
    EXPECT_EQ(failures, call == kp_fault_call::open ? 1U : 2U);
  }
}

#endif
