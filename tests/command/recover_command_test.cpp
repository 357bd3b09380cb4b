// kplog recover, from outside. What rings hold is tested in tests/recorder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "recording/ring/ring_file.h"
#include "tests/command/command_run.h"
#include "tests/command/golden_file.h"
#include "tests/support/temp_folder.h"

class RecoverCommand : public testing::Test {
 protected:
  command_result recover(const std::string& arguments) const {
    command_result result = run_kplog(folder_.path(), "recover " + arguments);
    for (size_t at; (at = result.err.find(folder_.path())) != std::string::npos;)
      result.err.replace(at, folder_.path().size(), "DIR");
    return result;
  }

  // A name that only rings have.
  static std::string ring_of(char digit) {
    return "shop.ring." + std::string(16, digit) + "-" + std::string(32, digit);
  }

  const temp_folder folder_;
};

TEST_F(RecoverCommand, SaysThatNothingIsThere) {
  const command_result found = recover("shop");
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.err, "kplog: 0 rings: 0 events recovered\n");
  EXPECT_EQ(found.out, "");
  EXPECT_EQ(recover("--quiet shop").err, "");
}

TEST_F(RecoverCommand, NeedsAFolder) {
  const command_result found = recover("nowhere/shop");
  EXPECT_EQ(found.status, 3);
  EXPECT_EQ(found.err, "kplog: cannot read the folder DIR/nowhere: No such file or directory\n");
  EXPECT_EQ(recover("").status, 2);
}

TEST_F(RecoverCommand, LeavesWhatIsNoRing) {
  folder_.write("shop.ring.notes.new", "x");
  folder_.write(ring_of('1'), "x");
  folder_.write(ring_of('2'), std::string(ring_head_size + ring_block_size, '\0'));
  std::filesystem::create_directory(folder_.file(ring_of('3')));
  std::filesystem::create_symlink(ring_of('1'), folder_.file(ring_of('4')));
  const command_result found = recover("--format json shop");
  EXPECT_EQ(found.status, 1);
  expect_golden_file("recover.expected", found.err);
  EXPECT_EQ(read_whole_file(folder_.file(ring_of('1'))), "x");
  EXPECT_EQ(read_whole_file(folder_.file("shop.ring.notes.new")), "x");
}

TEST_F(RecoverCommand, TakesAwayARingThatWasNeverBegun) {
  const std::string begun = ring_of('1') + ".new";
  folder_.write(begun, "");
  EXPECT_EQ(recover("shop").status, 0);
  EXPECT_FALSE(std::filesystem::exists(folder_.file(begun)));
}
