// The debug lines of a definition table, compared whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/kp_clib.h"
#include "tests/support/definition_table.h"

using testing::ElementsAre;
using testing::IsEmpty;

static std::string line(const char* message) {
  return std::string("logging/ldf_load:N ") + message;
}

#define FIND "_kp_LOG_log_definition_tbl::_find_entry_non_const "
#define RETRIEVE "_kp_LOG_log_definition_tbl::_retrieve_entry_definition "
#define SET "_kp_LOG_log_definition_tbl::_set_definition_file_path"
#define CLEAR "_kp_LOG_log_definition_tbl::clear() "

TEST_F(DefinitionTable, ALookUpTellsWhatItDoes) {
  set_std(file_of_ids(1, 1));
  const debug_log_in_temp_folder log(3);
  table_.find_entry(1);
  EXPECT_THAT(log.lines(),
              ElementsAre(line(FIND "n_entry_definitions_cached:0"), line(RETRIEVE "return true"),
                          line(FIND "return p_entry_definition 1")));
}

TEST_F(DefinitionTable, ALookUpInTheCacheTellsOneLine) {
  set_std(file_of_ids(1, 1));
  table_.find_entry(1);
  const debug_log_in_temp_folder log(3);
  table_.find_entry(1);
  table_.acquire_entry(1);
  EXPECT_THAT(log.lines(), ElementsAre(line(FIND "n_entry_definitions_cached:1"),
                                       line(FIND "n_entry_definitions_cached:1")));
}

TEST_F(DefinitionTable, ALookUpOfAnUnknownIdTellsThreeLines) {
  set_std(file_of_ids(1, 1));
  table_.find_entry(1);
  const debug_log_in_temp_folder log(3);
  table_.find_entry(2);
  EXPECT_THAT(log.lines(), ElementsAre(line(FIND "n_entry_definitions_cached:1"),
                                       line(RETRIEVE "return false"), line(FIND "return 0 1")));
}

TEST_F(DefinitionTable, ALookUpOfAnIdWhoseFileFailedTellsSo) {
  const std::string cut = file_of_ids(5, 2).bytes().substr(0, 128 + 8);
  EXPECT_EQ(std_error(cut), definition_error(file_error));
  const debug_log_in_temp_folder log(3);
  EXPECT_EQ(table_.find_entry(5), nullptr);
  EXPECT_THAT(log.lines(),
              ElementsAre(line(FIND "n_entry_definitions_cached:0"),
                          line(RETRIEVE "return false pfile=0"), line(FIND "return 0 0")));
}

TEST_F(DefinitionTable, AReplacementTellsNoNewCount) {
  set_std(file_of_ids(1, 129));
  for (unsigned id = 1; id <= 128; ++id) table_.find_entry(id);
  const debug_log_in_temp_folder log(3);
  table_.find_entry(129);
  EXPECT_THAT(log.lines(), ElementsAre(line(FIND "n_entry_definitions_cached:128"),
                                       line(RETRIEVE "return true")));
}

TEST_F(DefinitionTable, SettingAnStdFileTellsTheLookUpOfEachMappingRecord) {
  const debug_log_in_temp_folder log(3);
  set_std(file_of_ids(1, 2));
  EXPECT_THAT(log.lines(),
              ElementsAre(line(SET), line(CLEAR), line(FIND "n_entry_definitions_cached:0"),
                          line(RETRIEVE "return false"), line(FIND "return 0 0"),
                          line(FIND "n_entry_definitions_cached:0"), line(RETRIEVE "return false"),
                          line(FIND "return 0 0")));
}

TEST_F(DefinitionTable, SettingAnAuxFileTellsTheMerge) {
  set_std(file_of_ids(1, 1));
  const debug_log_in_temp_folder log(3);
  set_aux(aux_of({.id = 1}));
  EXPECT_THAT(log.lines(),
              ElementsAre(line(SET), line(FIND "n_entry_definitions_cached:0"),
                          line(RETRIEVE "return true"), line(FIND "return p_entry_definition 1"),
                          line(RETRIEVE "return true")));
}

TEST_F(DefinitionTable, ClearingTellsSo) {
  const debug_log_in_temp_folder log(3);
  table_.clear();
  EXPECT_THAT(log.lines(), ElementsAre(line(CLEAR)));
}

TEST_F(DefinitionTable, AFileErrorIsToldAtLevelOne) {
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(std_error("short"), definition_error(file_error));
  EXPECT_THAT(log.lines(), ElementsAre(line("_throw_file_io_error()")));
}

TEST_F(DefinitionTable, AFileThatCannotBeOpenedIsNotToldAtLevelOne) {
  const debug_log_in_temp_folder log(2);
  EXPECT_ANY_THROW(table_.set_precompiled_definition_file_path("missing"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DefinitionTable, AShortRecordTellsTheItemAndTheFileError) {
  ldf_file file = file_of({{.id = 1, .messages = {{1, 1, "", ""}}}});
  const std::string good = file.bytes();
  set_std_bytes(good.substr(0, good.size() - 4));
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(find_error(1), definition_error(file_error));
  EXPECT_THAT(log.lines(), ElementsAre("logging/def_read:N kp_be_read_int4",
                                       "logging/def_read:N kp_be_read_string selector_msg_text "
                                       "error",
                                       line("_throw_file_io_error()")));
}

TEST_F(DefinitionTable, MergingWithoutAnAuxFileTellsSo) {
  set_std(file_of_ids(1, 1));
  const kp_file any(std::tmpfile());
  const debug_log_in_temp_folder log(3);
  _kp_LOG_log_definition def;
  EXPECT_FALSE(table_._retrieve_entry_definition(1, def, any.get()));
  EXPECT_THAT(log.lines(), ElementsAre(line(RETRIEVE "return false pfile=0")));
}

// ---- level 1: every item that cannot be read ----

// The lines of level 1 when only `length` bytes of an STD file are there and ID 1 is looked up.
class CutDefinitionFile : public DefinitionTable {
 protected:
  std::vector<std::string> lines(const std::string& bytes, size_t length) {
    const debug_log_in_temp_folder log(1);
    EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] {
                set_std_bytes(bytes.substr(0, length));
                table_.find_entry(1);
              }),
              definition_error(file_error))
        << length;
    return log.lines();
  }

  const std::vector<std::string> file_ = {line("_throw_file_io_error()")};
  const std::vector<std::string> length_and_file_ = {"logging/def_read:N kp_be_read_int4",
                                                     line("_throw_file_io_error()")};
};

TEST_F(CutDefinitionFile, InAGlobalAttribute) {
  const std::string bytes = ldf_file{.globals = {{"G", 6}}}.bytes();
  EXPECT_EQ(lines(bytes, 128 + 3), length_and_file_);  // its name's length
  EXPECT_EQ(lines(bytes, 128 + 5), file_);             // its name
  EXPECT_EQ(lines(bytes, 128 + 9), file_);             // its type
  EXPECT_EQ(lines(bytes, 128 + 13), length_and_file_);
}

TEST_F(CutDefinitionFile, InAMappingRecord) {
  const std::string bytes = file_of_ids(1, 1).bytes();
  EXPECT_EQ(lines(bytes, 128), file_);
  EXPECT_EQ(lines(bytes, 128 + 7), file_);
}

TEST_F(CutDefinitionFile, InAMappingRecordOfAnAuxFile) {
  set_std(file_of_ids(1, 1));
  const std::string path = write("aux.ldf", file_of_ids(2, 1).bytes().substr(0, 128 + 7));
  const debug_log_in_temp_folder log(1);
  EXPECT_EQ(set_aux_error(path), definition_error(file_error));
  EXPECT_EQ(log.lines(), file_);
}

TEST_F(CutDefinitionFile, InARecordBeforeItsAttributes) {
  const std::string bytes =
      file_of({{.id = 1, .msg_id = "A", .msg_text = "B", .selector = "C"}}).bytes();
  const size_t record = 128 + 8;
  for (const size_t cut : {0U, 3U, 7U, 11U, 17U, 23U, 29U, 33U, 37U})
    EXPECT_EQ(lines(bytes, record + cut), file_) << cut;
  for (const size_t cut : {15U, 21U, 27U})  // the lengths of the three texts
    EXPECT_EQ(lines(bytes, record + cut), length_and_file_) << cut;
}

TEST_F(CutDefinitionFile, InAnAttributeOrTheNumberOfSelectorMessages) {
  const std::string bytes = file_of({{.id = 1, .attributes = {{"X", 6, "R"}}}}).bytes();
  const size_t attribute = 128 + 8 + 28;
  for (const size_t cut : {5U, 9U, 15U, 19U})
    EXPECT_EQ(lines(bytes, attribute + cut), file_) << cut;
  for (const size_t cut : {3U, 13U}) EXPECT_EQ(lines(bytes, attribute + cut), length_and_file_);
}

TEST_F(DefinitionTable, ErrorsOfContentAreNotToldAtLevelOne) {
  const debug_log_in_temp_folder log(2);
  aux_error(file_of_ids(1, 1));  // without an STD file
  const ldf_file std_file = file_of({{.id = 1,
                                      .selector = "S",
                                      .attributes = {{"S", 2}, {"A", 2}},
                                      .messages = {{1, 1, "", ""}}}});
  set_std_bytes(with_int4(std_file.bytes(), 128, 2));
  EXPECT_EQ(find_error(2), definition_error(corrupted));
  for (const ldf_entry& conflict : {ldf_entry{.id = 1, .selector = "T", .attributes = {{"T", 2}}},
                                    ldf_entry{.id = 1, .attributes = {{"A", 2}}},
                                    ldf_entry{.id = 1, .messages = {{1, 9, "", ""}}},
                                    ldf_entry{.id = 1, .messages = {{9, 1, "", ""}}}}) {
    set_std(std_file);
    aux_error(aux_of(conflict));
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}
