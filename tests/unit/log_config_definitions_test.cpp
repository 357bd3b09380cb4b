// Definition files as the process-wide settings name them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "tests/support/failing.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

static bool knows_entry(unsigned id) {
  return kp_LOG_LogConfig::GetDefinitionTable()->find_entry(id) != nullptr;
}

// --- Definitions ---

TEST(DefinitionPath, OfNullIsRefusedWithALine) {
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(
      raised<KPX_logging_illegal_argument>([] { kp_LOG_LogConfig::SetDefinitionPath(nullptr); }),
      "invalid argument");
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetDefinitionPath, path==0!"));
}

TEST(DefinitionPath, LoadsTheFileAndIsLogged) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  const std::string path = written_definitions(log.folder(), "std", {17});
  kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionPath(), path);
  EXPECT_THAT(log.lines(),
              Contains("logging/logcfg:N kp_LOG_LogConfig::SetDefinitionPath, path=" + path + "!"));
  EXPECT_TRUE(knows_entry(17));
}

TEST(DefinitionPath, IsLoggedByOneLineAtLevelTwo) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  const std::string path = written_definitions(log.folder(), "std", {17, 18});
  kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  EXPECT_THAT(
      log.lines(),
      ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetDefinitionPath, path=" + path + "!"));
}

TEST(DefinitionPath, IsLoggedBehindTheTracesOfTheTableAtLevelThree) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(3);
  const std::string path = written_definitions(log.folder(), "std", {17});
  kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  EXPECT_THAT(
      log.lines(),
      ElementsAre("logging/ldf_load:N _kp_LOG_log_definition_tbl::_set_definition_file_path",
                  "logging/ldf_load:N _kp_LOG_log_definition_tbl::clear() ",
                  "logging/ldf_load:N _kp_LOG_log_definition_tbl::_find_entry_non_const "
                  "n_entry_definitions_cached:0",
                  "logging/ldf_load:N _kp_LOG_log_definition_tbl::_retrieve_entry_definition "
                  "return false",
                  "logging/ldf_load:N _kp_LOG_log_definition_tbl::_find_entry_non_const return 0 0",
                  "logging/logcfg:N kp_LOG_LogConfig::SetDefinitionPath, path=" + path + "!"));
}

TEST(DefinitionPath, OfAMissingFileStaysStoredAndNothingIsDefined) {
  const settings_guard guard;
  const temp_folder folder;
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(folder, "std", {17}).c_str());
  const std::string missing = folder.file("missing");
  EXPECT_EQ(
      raised<KPX_logging_invalid_definition>(
          [&] { kp_LOG_LogConfig::SetDefinitionPath(missing.c_str()); }),
      "<KPX_logging_invalid_definition> Unable to access definition file \"" + missing + "\".");
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionPath(), missing);
  EXPECT_FALSE(knows_entry(17));
}

TEST(DefinitionPath, ThatFailsWritesNoLineOfSuccess) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  EXPECT_THROW(kp_LOG_LogConfig::SetDefinitionPath("missing"), KPX_logging_invalid_definition);
  for (const std::string& line : log.lines())
    EXPECT_EQ(line.find("SetDefinitionPath"), std::string::npos) << line;
}

TEST(DefinitionPath, MayBeSetToItsOwnStoredText) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = written_definitions(folder, "std", {17});
  kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  kp_LOG_LogConfig::SetDefinitionPath(kp_LOG_LogConfig::GetDefinitionPath());
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionPath(), path);
  EXPECT_TRUE(knows_entry(17));
}

TEST(DefinitionPath, WithoutMemoryForTheCopyKeepsPathAndDefinitions) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string path = written_definitions(folder, "std", {17});
  kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  {
    const failing_new fault(1);
    EXPECT_EQ(raised<KPX_memory_alloc>([] { kp_LOG_LogConfig::SetDefinitionPath("other"); }),
              "(null)");
  }
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionPath(), path);
  EXPECT_TRUE(knows_entry(17));
}

TEST(AuxDefinitionPath, OfNullIsRefusedWithALine) {
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(
      raised<KPX_logging_illegal_argument>([] { kp_LOG_LogConfig::SetAuxDefinitionPath(nullptr); }),
      "invalid argument");
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetAuxDefinitionPath path==0"));
}

TEST(AuxDefinitionPath, BeforeAStandardFileIsRefusedAndStaysStored) {
  const settings_guard guard;
  const temp_folder folder;
  kp_LOG_LogConfig::ClearDefinitions();
  const std::string path = written_definitions(folder, "aux", {18});
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { kp_LOG_LogConfig::SetAuxDefinitionPath(path.c_str()); }),
            "<KPX_logging_invalid_definition> user should set STD definition file before set AUX "
            "definition file.");
  EXPECT_EQ(kp_LOG_LogConfig::GetAuxDefinitionPath(), path);
}

TEST(AuxDefinitionPath, AddsTheFileAndIsLogged) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(2);
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(log.folder(), "std", {17}).c_str());
  const std::string path = written_definitions(log.folder(), "aux", {18});
  kp_LOG_LogConfig::SetAuxDefinitionPath(path.c_str());
  EXPECT_EQ(kp_LOG_LogConfig::GetAuxDefinitionPath(), path);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("logging/logcfg:N kp_LOG_LogConfig::SetDefinitionPath, path=" +
                      std::string(kp_LOG_LogConfig::GetDefinitionPath()) + "!",
                  "logging/logcfg:N kp_LOG_LogConfig::SetAuxDefinitionPath, path=" + path + "!"));
  EXPECT_TRUE(knows_entry(17));
  EXPECT_TRUE(knows_entry(18));
}

// The entry of both files is loaded from the first one, then merged; the other is only located.
TEST(AuxDefinitionPath, IsLoggedBehindTheTracesOfTheMergeAtLevelThree) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(0);
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(log.folder(), "std", {17}).c_str());
  const std::string path = written_definitions(log.folder(), "aux", {17, 18});
  EnableDebugLog(3);
  kp_LOG_LogConfig::SetAuxDefinitionPath(path.c_str());
  EnableDebugLog(0);
  const std::string table = "logging/ldf_load:N _kp_LOG_log_definition_tbl::";
  EXPECT_THAT(
      log.lines(),
      ElementsAre(table + "_set_definition_file_path",
                  table + "_find_entry_non_const n_entry_definitions_cached:0",
                  table + "_retrieve_entry_definition return true",
                  table + "_find_entry_non_const return p_entry_definition 1",
                  table + "_retrieve_entry_definition return true",
                  table + "_find_entry_non_const n_entry_definitions_cached:1",
                  table + "_retrieve_entry_definition return false",
                  table + "_find_entry_non_const return 0 1",
                  "logging/logcfg:N kp_LOG_LogConfig::SetAuxDefinitionPath, path=" + path + "!"));
}

TEST(AuxDefinitionPath, OfAMissingFileStaysStoredAndWritesNoLineOfSuccess) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(0);
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(log.folder(), "std", {17}).c_str());
  const std::string missing = log.folder().file("missing");
  EnableDebugLog(2);
  EXPECT_EQ(
      raised<KPX_logging_invalid_definition>(
          [&] { kp_LOG_LogConfig::SetAuxDefinitionPath(missing.c_str()); }),
      "<KPX_logging_invalid_definition> Unable to access definition file \"" + missing + "\".");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(kp_LOG_LogConfig::GetAuxDefinitionPath(), missing);
  EXPECT_TRUE(knows_entry(17));
}

TEST(AuxDefinitionPath, OfAFileCutShortStaysStoredAndWritesTheErrorsLineOnly) {
  const settings_guard guard;
  const debug_log_in_temp_folder log(0);
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(log.folder(), "std", {17}).c_str());
  const std::string cut = log.folder().write("aux", ".LDF");
  EnableDebugLog(2);
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { kp_LOG_LogConfig::SetAuxDefinitionPath(cut.c_str()); }),
            "<KPX_logging_invalid_definition> Unable to access definition file successfully.");
  EXPECT_THAT(log.lines(), ElementsAre("logging/ldf_load:N _throw_file_io_error()"));
  EXPECT_EQ(kp_LOG_LogConfig::GetAuxDefinitionPath(), cut);
  EXPECT_TRUE(knows_entry(17));
}

TEST(AuxDefinitionPath, WithoutMemoryForTheCopyKeepsPathAndDefinitions) {
  const settings_guard guard;
  const temp_folder folder;
  kp_LOG_LogConfig::SetDefinitionPath(written_definitions(folder, "std", {17}).c_str());
  const std::string path = written_definitions(folder, "aux", {18});
  kp_LOG_LogConfig::SetAuxDefinitionPath(path.c_str());
  const debug_log_in_temp_folder log(2);
  {
    const failing_new fault(1);
    EXPECT_EQ(raised<KPX_memory_alloc>([] { kp_LOG_LogConfig::SetAuxDefinitionPath("other"); }),
              "(null)");
  }
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(kp_LOG_LogConfig::GetAuxDefinitionPath(), path);
  EXPECT_TRUE(knows_entry(18));
}

TEST(AuxDefinitionPath, StaysStoredWhenANewStandardFileDropsTheDefinitions) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string std_path = written_definitions(folder, "std", {17});
  const std::string aux_path = written_definitions(folder, "aux", {18});
  kp_LOG_LogConfig::SetDefinitionPath(std_path.c_str());
  kp_LOG_LogConfig::SetAuxDefinitionPath(aux_path.c_str());
  kp_LOG_LogConfig::SetDefinitionPath(std_path.c_str());
  EXPECT_EQ(kp_LOG_LogConfig::GetAuxDefinitionPath(), aux_path);
  EXPECT_FALSE(knows_entry(18));
}

TEST(ClearDefinitions, ForgetsDefinitionsAndGlobalsButNotThePaths) {
  const settings_guard guard;
  const temp_folder folder;
  ldf_file file;
  file.globals = {{"SEVERITY_CODE", TypeUInt1}};
  file.entries.push_back({17});
  const std::string path = folder.write("std", file.bytes());
  kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 1);
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 0);
  EXPECT_EQ(_kp_LOG_log_definition::p_global_attr_entries, nullptr);
  EXPECT_FALSE(knows_entry(17));
  EXPECT_EQ(kp_LOG_LogConfig::GetDefinitionPath(), path);
}

TEST(ClearDefinitions, IsLoggedAsAChange) {
  const debug_log_in_temp_folder log(2);
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_THAT(log.lines(), ElementsAre("logging/logcfg:N kp_LOG_LogConfig::ClearDefinitions, ok!"));
}

TEST(ClearDefinitions, TracesTheTablesClearingFirst) {
  const debug_log_in_temp_folder log(3);
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_THAT(log.lines(), ElementsAre("logging/ldf_load:N _kp_LOG_log_definition_tbl::clear() ",
                                       "logging/logcfg:N kp_LOG_LogConfig::ClearDefinitions, ok!"));
}
