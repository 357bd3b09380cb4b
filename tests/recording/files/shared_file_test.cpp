// Files that processes share, when the system refuses something.
#include "recording/files/shared_file.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/recording/files/failing_file_calls.h"
#include "tests/support/temp_folder.h"

namespace fs = std::filesystem;

#ifdef KP_FAULTS

class LineFile : public testing::Test {
 protected:
  // Appends a line to the file, which has `old` before, with every call failing in turn.
  std::set<std::string> fail_each(unsigned times, const std::string& old, bool synced) {
    const auto put_back = [&] {
      fs::remove(folder_.file("app_lock"));
      if (old.empty())
        fs::remove(path_);
      else
        folder_.write("app", old);
    };
    const std::string lines = old.substr(0, old.rfind('\n') + 1);
    std::string added;
    put_back();
    return for_each_failing_file_call(
        times,
        [&] {
          added = "new\n";
          line_file file(path_, {.report = [](const std::string&) {}});
          file.append(added, synced);
        },
        [&](const std::string& text) {
          EXPECT_EQ(added, text.empty() ? "" : "new\n");
          if (text.empty())
            EXPECT_EQ(read_whole_file(path_), lines + "new\n");
          else if (times == 1)
            expect_as_before(old, lines, text);
          // The lock is free.
          folder_lock(folder_.path(), "app", {.is_to_end = [] { return true; }});
          put_back();
        });
  }
  // An unfinished line may be cut off by then.
  void expect_as_before(const std::string& old, const std::string& lines, const std::string& text) {
    const std::string now = read_whole_file(path_);
    EXPECT_TRUE(now == old || now == lines) << text << '\n' << now;
    EXPECT_EQ(fs::exists(path_), !old.empty()) << text;
    const std::string lock = read_whole_file(folder_.file("app_lock"));
    EXPECT_TRUE(lock.empty() || lock == folder_lock::mark) << text << '\n' << lock;
  }
  std::string refused(const std::string& call_and_action, const std::string& path) const {
    return call_and_action + " " + path + ": Input/output error";
  }
  // What is raised for a file that is there, or not, where nothing is cut off.
  std::set<std::string> texts() const {
    const std::string lock = folder_.file("app_lock");
    return {refused("open: cannot open the folder", folder_.path()),
            refused("openat: cannot open the lock", lock),
            refused("fstat: cannot take the lock", lock),
            refused("flock: cannot take the lock", lock),
            refused("fstatat: cannot take the lock", lock),
            refused("pread: cannot take the lock", lock),
            refused("pwrite: cannot write the lock", lock),
            refused("ftruncate: cannot write the lock", lock),
            refused("openat: cannot open", path_),
            refused("fstat: cannot open", path_),
            refused("write: cannot write", path_)};
  }

  temp_folder folder_;
  std::string path_ = folder_.file("app");
};

TEST_F(LineFile, ACallThatFailsLeavesItsLinesAndTheLockFree) {
  std::set<std::string> expected = texts();
  expected.insert(refused("pread: cannot append to", path_));
  expected.insert(refused("fsync: cannot write", path_));
  EXPECT_EQ(fail_each(1, "old\n", true), expected);
}

TEST_F(LineFile, ACallThatFailsMakesNoFile) {
  std::set<std::string> expected = texts();
  expected.insert(refused("fsync: cannot write", path_));
  EXPECT_EQ(fail_each(1, "", true), expected);
}

TEST_F(LineFile, ACallThatFailsBeforeAnUnfinishedLine) {
  std::set<std::string> expected = texts();
  expected.insert(refused("pread: cannot append to", path_));
  expected.insert(refused("ftruncate: cannot cut the unfinished line off", path_));
  EXPECT_EQ(fail_each(1, "old\nunfinish", false), expected);
}

TEST_F(LineFile, CallsThatFailForGoodAreOneErrorAndLeaveTheLockFree) {
  fail_each(from_then_on, "", false);
  fail_each(from_then_on, "old\nunfinish", false);
}

#endif
