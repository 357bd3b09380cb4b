// What the example package_history is built from: the definitions of its events, and the
// translations of their messages.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

constexpr char both_translations[] = " --po messages/de.po --po messages/ja.po";

TEST(PackageHistorySources, TheDefinitionsHaveNoFindings) {
  const command_result result = run_kplog(test_data_folder(), "check package_history.yaml");
  EXPECT_EQ(result.err, "kplog: 0 errors, 0 warnings, 2 silenced\n");
  EXPECT_EQ(result.status, 0);
}

TEST(PackageHistorySources, EveryMessageIsTranslatedAndNothingIsWrongWithIt) {
  const command_result result = run_kplog(
      test_data_folder(), std::string("catalog check package_history.yaml") + both_translations);
  EXPECT_EQ(result.err,
            "kplog: de: 26 translated, 0 fuzzy, 0 untranslated, 0 obsolete\n"
            "kplog: ja: 26 translated, 0 fuzzy, 0 untranslated, 0 obsolete\n");
  EXPECT_EQ(result.status, 0);
}

TEST(PackageHistorySources, MergingLeavesTheTranslationsAsTheyAre) {
  const temp_folder copy;
  std::filesystem::copy(test_data_folder(), copy.path(), std::filesystem::copy_options::recursive);
  const command_result result =
      run_kplog(copy.path(), std::string("catalog merge package_history.yaml") + both_translations);
  EXPECT_EQ(result.status, 0) << result.err;
  for (const std::string po : {"/messages/de.po", "/messages/ja.po"})
    EXPECT_EQ(read_whole_file(copy.path() + po), read_whole_file(test_data_folder() + po));
}
