// The AUX file of a definition table, and what it does to the entry types of the STD file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/definition_table.h"
#include "tests/support/own_time.h"

using testing::ElementsAre;

static const char no_std[] = "user should set STD definition file before set AUX definition file.";

TEST_F(DefinitionTable, AnAuxFileNeedsAnStdFile) {
  EXPECT_EQ(aux_error(file_of_ids(1, 1)), definition_error(no_std));
  set_std(file_of_ids(1, 1));
  set_aux(file_of_ids(2, 1));
  table_.clear();
  EXPECT_EQ(aux_error(file_of_ids(1, 1)), definition_error(no_std));
}

TEST_F(DefinitionTable, AnEntryOfTheAuxFileAloneHasItsVersionAndNoStdContent) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of({.id = 50, .second_word = 9, .attributes = {{"A", 1}}}));
  const auto* const found = table_.find_entry(50);
  ASSERT_NE(found, nullptr);
  EXPECT_STREQ(found->get_log_version(), "3.0");
  EXPECT_EQ(found->get_second_word(), 9U);
  EXPECT_THAT(attribute_names(*found), ElementsAre("A"));
  EXPECT_EQ(found->get_default_msg_id(), nullptr);
  EXPECT_EQ(found->get_default_msg_text(), nullptr);
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "2.0");
}

TEST_F(DefinitionTable, AnEntryOfBothFilesIsMerged) {
  set_std(file_of({{.id = 1,
                    .second_word = 1,
                    .flags = 4,
                    .msg_id = "STD",
                    .msg_text = "std",
                    .selector = "S",
                    .attributes = {{"S", 2}, {"A", 1}},
                    .messages = {{1, 1, "", "one"}}}}));
  set_aux(aux_of({.id = 1,
                  .second_word = 2,
                  .flags = 8,
                  .msg_id = "AUX",
                  .msg_text = "aux",
                  .selector = "S",
                  .attributes = {{"S", 4}, {"B", 1}},
                  .messages = {{2, 2, "", "two"}, {2, 2, "", "again"}}}));
  const auto* const found = table_.find_entry(1);
  EXPECT_THAT(attribute_names(*found), ElementsAre("A", "S", "B"));
  EXPECT_EQ(found->get_selector_attribute()->get_type(), 4);
  EXPECT_EQ(found->get_second_word(), 2U);
  EXPECT_EQ(found->get_property_flags(), 4U);
  EXPECT_STREQ(found->get_default_msg_id(), "AUX");
  EXPECT_STREQ(found->get_default_msg_text(), "aux");
  EXPECT_STREQ(found->get_log_version(), "3.0");
  EXPECT_EQ(found->get_n_selector_msgs(), 3);
  EXPECT_STREQ(found->get_selector_msg_by_index(2)->get_msg_text(), "two");
}

TEST_F(DefinitionTable, AnAuxRecordWithoutAWholeDefaultMessageKeepsTheStdOne) {
  const ldf_entry base{.msg_id = "STD", .msg_text = "std"};
  ldf_file std_file, aux_file;
  for (unsigned id = 1; id <= 2; ++id) {
    std_file.entries.push_back(base);
    std_file.entries.back().id = id;
  }
  aux_file.entries = {{.id = 1, .msg_id = "AUX"}, {.id = 2, .msg_text = "aux"}};
  set_std(std_file);
  set_aux(aux_file);
  for (unsigned id = 1; id <= 2; ++id) {
    EXPECT_STREQ(table_.find_entry(id)->get_default_msg_id(), "STD");
    EXPECT_STREQ(table_.find_entry(id)->get_default_msg_text(), "std");
  }
}

TEST_F(DefinitionTable, PropertyFlagsOfZeroAreTakenFromTheAuxFile) {
  set_std(file_of({{.id = 1}}));
  set_aux(aux_of({.id = 1, .flags = 8}));
  EXPECT_EQ(table_.find_entry(1)->get_property_flags(), 8U);
}

TEST_F(DefinitionTable, AnAuxRecordWithoutASelectorKeepsTheStdOne) {
  set_std(file_of({{.id = 1, .selector = "S", .attributes = {{"S", 2}}}}));
  set_aux(aux_of({.id = 1, .attributes = {{"B", 1}}}));
  EXPECT_STREQ(table_.find_entry(1)->get_selector_attribute()->get_name(), "S");
}

TEST_F(DefinitionTable, AnAuxRecordMayBringTheSelector) {
  set_std(file_of({{.id = 1, .attributes = {{"A", 2}}}}));
  set_aux(aux_of({.id = 1, .selector = "S", .attributes = {{"S", 2}}}));
  EXPECT_STREQ(table_.find_entry(1)->get_selector_attribute()->get_name(), "S");
}

TEST_F(DefinitionTable, DifferentSelectorsConflict) {
  set_std(file_of({{.id = 1, .selector = "S", .attributes = {{"S", 2}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .selector = "T", .attributes = {{"T", 2}}})),
            definition_error("selector_attribute name conflict."));
}

TEST_F(DefinitionTable, ARepeatedAttributeNameConflicts) {
  set_std(file_of({{.id = 1, .attributes = {{"A", 2}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .attributes = {{"B", 1}, {"A", 2}}})),
            definition_error("attribute A already exist."));
}

TEST_F(DefinitionTable, ASelectorMessageWithAHeldIndexOrValueConflicts) {
  const char conflict[] =
      "selector message index in AUX definition file conflict with STD definition";
  set_std(file_of({{.id = 1, .messages = {{1, 10, "", "one"}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .messages = {{1, 20, "", ""}}})),
            definition_error(conflict));
  set_std(file_of({{.id = 1, .messages = {{1, 10, "", "one"}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .messages = {{2, 10, "", ""}}})),
            definition_error(conflict));
}

TEST_F(DefinitionTable, AFailedMergeLeavesWhatWasMergedSoFar) {
  set_std(file_of({{.id = 1, .attributes = {{"A", 2}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .attributes = {{"B", 1}, {"A", 2}, {"C", 1}}})),
            definition_error("attribute A already exist."));
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("A", "B"));
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "2.0");
}

TEST_F(DefinitionTable, MoreThan255SelectorMessagesOfBothFilesAreCorrupted) {
  ldf_entry first{.id = 1}, second{.id = 1};
  for (unsigned i = 0; i < 200; ++i) {
    first.messages.push_back({i, i, "", ""});
    second.messages.push_back({1000 + i, 1000 + i, "", ""});
  }
  set_std(file_of({first}));
  EXPECT_EQ(aux_error(aux_of(second)), definition_error(corrupted));
  EXPECT_EQ(table_.find_entry(1)->get_n_selector_msgs(), 255);
  EXPECT_NE(table_.find_entry(1)->get_selector_msg(254), nullptr);
}

TEST_F(DefinitionTable, AMergedEntryThatIsLoadedAgainHoldsTheAuxRecordAlone) {
  ldf_file std_file = file_of_ids(1, 200);
  set_std(std_file);
  set_aux(aux_of({.id = 1, .attributes = {{"AUX", 1}}}));
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("N1", "AUX"));
  for (unsigned id = 2; id <= 130; ++id) table_.find_entry(id);
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("AUX"));
}

TEST_F(DefinitionTable, TheSameIdTwiceInAnAuxFileMergesTwice) {
  ldf_file aux_file;
  aux_file.entries = {{.id = 50, .attributes = {{"FIRST", 1}}},
                      {.id = 50, .attributes = {{"SECOND", 1}}}};
  set_std(file_of_ids(1, 1));
  set_aux(aux_file);
  EXPECT_THAT(attribute_names(*table_.find_entry(50)), ElementsAre("FIRST", "SECOND"));
}

TEST_F(DefinitionTable, ADefinitionInUseIsMergedForItsUsersToo) {
  set_std(file_of({{.id = 1,
                    .flags = 4,
                    .msg_id = "S",
                    .msg_text = "std",
                    .selector = "SEL",
                    .attributes = {{"SEL", 2}, {"OWN", 6, "TO"}},
                    .messages = {{1, 10, "S1", "one"}}}}));
  const _kp_LOG_definition_ref used = table_.acquire_entry(1);
  const char* const text_before = used->get_default_msg_text();
  const _kp_LOG_selector_message* const message_before = used->get_selector_msg(0);
  set_aux(aux_of({.id = 1,
                  .msg_id = "A",
                  .msg_text = "aux",
                  .selector = "SEL",
                  .attributes = {{"SEL", 2}, {"MORE", 6}},
                  .messages = {{2, 20, "A2", "two"}}}));
  EXPECT_EQ(table_.find_entry(1), used.get());
  EXPECT_THAT(attribute_names(*used.get()), ElementsAre("OWN", "SEL", "MORE"));
  EXPECT_EQ(used->get_selector_attribute(), used->_find_attr_entry_by_name("SEL"));
  EXPECT_STREQ(used->_find_attr_entry_by_name("OWN")->get_redirection_name(), "TO");
  EXPECT_STREQ(used->get_default_msg_text(), "aux");
  EXPECT_EQ(used->get_property_flags(), 4U);
  EXPECT_STREQ(used->get_log_version(), "3.0");
  EXPECT_STREQ(used->get_selector_msg_by_value(10)->get_msg_text(), "one");
  EXPECT_STREQ(used->get_selector_msg_by_value(20)->get_msg_id(), "A2");
  // Who read it before the merge may go on.
  EXPECT_STREQ(text_before, "std");
  EXPECT_STREQ(message_before->get_msg_text(), "one");
}

TEST_F(DefinitionTable, AFailedMergeOfADefinitionInUseLeavesWhatWasMergedSoFar) {
  set_std(file_of({{.id = 1, .attributes = {{"A", 2}}}}));
  const _kp_LOG_definition_ref used = table_.acquire_entry(1);
  EXPECT_EQ(aux_error(aux_of({.id = 1, .attributes = {{"B", 1}, {"A", 2}, {"C", 1}}})),
            definition_error("attribute A already exist."));
  EXPECT_THAT(attribute_names(*used.get()), ElementsAre("A", "B"));
}

// An AUX file with one record of ID 1, its default message of that many bytes, which as many
// mapping records name.
static std::string named_again_and_again(unsigned count, unsigned text_bytes) {
  const std::string once =
      aux_of({.id = 1, .msg_id = "A", .msg_text = std::string(text_bytes, 'x')}).bytes();
  constexpr size_t mapping = 128;
  std::string records;
  for (unsigned i = 0; i < count; ++i) records += ldf_int4(1) + ldf_int4(mapping + 8 * count);
  return with_int4(once.substr(0, mapping), n_entries_field, count) + records +
         once.substr(mapping + 8);
}

TEST_F(DefinitionTable, ARecordThatIsNamedAgainAndAgainIsReadOnce) {
  set_std(file_of_ids(1, 1));
  EXPECT_LT(growth_of_work(20000,
                           [&](unsigned count) {
                             return [&, bytes = named_again_and_again(count, 8 * count)] {
                               set_aux_bytes(bytes);
                             };
                           }),
            most_growth);
  EXPECT_EQ(std::string(table_.find_entry(1)->get_default_msg_text()).size(), 640000U);
}

// An AUX file with so many records of ID 1 that each lies within the default message of the one
// before, and that end together. Mapping records name one after the other.
static std::string one_within_the_other(unsigned count, unsigned text_bytes) {
  const unsigned begin = 128 + 8 * count;
  const std::string ends = ldf_int4(0) + ldf_int4(0) + ldf_int4(0);  // no selector, no lists
  const unsigned head = 3 * 4 + 4 + 4;                               // up to the bytes of the text
  const unsigned text_end = begin + head * count + text_bytes;
  std::string mapping, records;
  for (unsigned i = 0; i < count; ++i) {
    const unsigned offset = begin + head * i;
    mapping += ldf_int4(1) + ldf_int4(offset);
    records += ldf_int4(1) + ldf_int4(0) + ldf_int4(0) + ldf_string("") +
               ldf_int4(text_end - offset - head);
  }
  const std::string header = aux_of({.id = 1}).bytes().substr(0, 128);
  return with_int4(header, n_entries_field, count) + mapping + records +
         std::string(text_bytes, 'x') + ends;
}

TEST_F(DefinitionTable, RecordsWithinEachOtherAreRefusedBeforeTheyTakeLong) {
  set_std(file_of_ids(1, 1));
  set_aux_bytes(one_within_the_other(10, 1000));
  EXPECT_LT(growth_of_work(6000,
                           [&](unsigned count) {
                             return [&, bytes = one_within_the_other(count, 20 * count)] {
                               expect_corrupted(bytes);
                             };
                           }),
            most_growth);
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("N1"));
}

// An AUX file of two records of ID 1, with default messages of that many bytes, which as many
// mapping records name in turn.
static std::string named_in_turn(unsigned count, unsigned text_bytes) {
  ldf_file file;
  for (const char* text : {"a", "b"})
    file.entries.push_back({.id = 1, .msg_id = text, .msg_text = std::string(text_bytes, *text)});
  const std::string twice = file.bytes();
  const std::string places[] = {twice.substr(132, 4), twice.substr(140, 4)};
  std::string mapping;
  for (unsigned i = 0; i < count; ++i) mapping += ldf_int4(1) + places[i % 2];
  return with_int4(with_int4(twice, n_entries_field, count), mapping_offset_field,
                   static_cast<unsigned>(twice.size())) +
         mapping;
}

TEST_F(DefinitionTable, RecordsThatTakeTurnsAreRefusedBeforeTheyTakeLong) {
  set_std(file_of_ids(1, 1));
  EXPECT_LT(growth_of_work(20000,
                           [&](unsigned count) {
                             return [&, bytes = named_in_turn(count, 4 * count)] {
                               expect_corrupted(bytes);
                             };
                           }),
            most_growth);
}

// An AUX file of so many records of ID 1.
static std::string records_of_one_id(unsigned count) {
  ldf_file file;
  for (unsigned i = 0; i < count; ++i) file.entries.push_back({.id = 1, .second_word = i});
  return file.bytes();
}

// Each merge of a definition in use keeps what it was before.
TEST_F(DefinitionTable, ManyRecordsOfADefinitionInUseTakeNoMoreThanTheFilesAreWorth) {
  EXPECT_LT(growth_of_work(
                2000,
                [&](unsigned count) {
                  ldf_file std_file = file_of_ids(1, 1);
                  for (unsigned i = 0; i < count / 32; ++i)
                    std_file.entries[0].attributes.push_back({"ATTRIBUTE_" + std::to_string(i), 6});
                  return [&, count, std_file, bytes = records_of_one_id(count)] {
                    set_std(std_file);
                    const _kp_LOG_definition_ref used = table_.acquire_entry(1);
                    expect_corrupted(bytes);
                    EXPECT_EQ(attribute_names(*used.get()).size(), count / 32 + 1);
                  };
                }),
            most_growth);
}

TEST_F(DefinitionTable, ManyRecordsOfOneIdAreMergedOneAfterTheOther) {
  EXPECT_LT(growth_of_work(2000,
                           [&](unsigned count) {
                             return [&, count, bytes = records_of_one_id(count)] {
                               set_std(file_of_ids(1, 1));
                               const _kp_LOG_definition_ref used = table_.acquire_entry(1);
                               set_aux_bytes(bytes);
                               EXPECT_EQ(used->get_second_word(), count - 1);
                             };
                           }),
            most_growth);
}

TEST_F(DefinitionTable, ARecordThatIsNamedTwiceTellsEachMerge) {
  set_std(file_of_ids(1, 1));
  const debug_log_in_temp_folder log(3);
  set_aux_bytes(named_again_and_again(2, 3));
  const std::string table = "logging/ldf_load:N _kp_LOG_log_definition_tbl::";
  const std::vector<std::string> lines = log.lines();
  EXPECT_EQ(std::vector<std::string>(lines.end() - 3, lines.end()),
            (std::vector<std::string>{table + "_retrieve_entry_definition return true",
                                      table + "_find_entry_non_const n_entry_definitions_cached:1",
                                      table + "_retrieve_entry_definition return true"}));
}

TEST_F(DefinitionTable, TheSameIdTwiceInAnStdFileMeansTheLast) {
  set_std(file_of({{.id = 1, .msg_text = "first"}, {.id = 1, .msg_text = "last"}}));
  EXPECT_STREQ(table_.find_entry(1)->get_default_msg_text(), "last");
}

TEST_F(DefinitionTable, AnAuxFileSetAgainAddsToWhatIsThere) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of({.id = 50, .attributes = {{"A", 1}}}));
  const size_t before = open_descriptors();
  set_aux(aux_of({.id = 51, .attributes = {{"B", 1}}}));
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_NE(table_.find_entry(51), nullptr);
  EXPECT_NE(table_.find_entry(1), nullptr);
}

TEST_F(DefinitionTable, AnAuxHeaderThatCannotBeReadKeepsTheFormerAuxFile) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of({.id = 50}));
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] {
              table_.set_precompiled_aux_definition_file_path(write("bad.ldf", "").c_str());
            }),
            definition_error(file_error));
  EXPECT_NE(table_.find_entry(50), nullptr);
}

TEST_F(DefinitionTable, AnAuxMappingRecordThatCannotBeReadForgetsTheAuxFile) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of({.id = 50}));
  const std::string cut = file_of_ids(60, 2).bytes().substr(0, 128 + 12);
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] {
              table_.set_precompiled_aux_definition_file_path(write("bad.ldf", cut).c_str());
            }),
            definition_error(file_error));
  EXPECT_EQ(table_.find_entry(50), nullptr);
  EXPECT_EQ(table_.find_entry(60), nullptr);
  EXPECT_NE(table_.find_entry(1), nullptr);
}

TEST_F(DefinitionTable, RefillingADefinitionFromTheAuxFileReadsItsFormerSelector) {
  set_std(file_of({{.id = 1, .selector = "S", .attributes = {{"S", 1}}}}));
  set_aux(aux_of({.id = 50, .selector = "T", .attributes = {{"T", 1}}}));
  _kp_LOG_log_definition def;
  EXPECT_TRUE(table_._retrieve_entry_definition(1, def, nullptr));
  EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                [&] { table_._retrieve_entry_definition(50, def, nullptr); }),
            definition_error("selector_attribute name conflict."));
  EXPECT_FALSE(table_._retrieve_entry_definition(99, def, nullptr));
}

TEST_F(DefinitionTable, ItsFileErrorCanBeRaisedAlone) {
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] { table_._throw_file_io_error(); }),
            definition_error(file_error));
}

// ---- what a failed AUX file leaves ----

// An AUX file of one entry without anything in it.
static ldf_file aux_of_id(unsigned id) {
  return aux_of({.id = id});
}

TEST_F(DefinitionTable, AnAuxFileThatCannotBeOpenedKeepsTheFormerOne) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of_id(50));
  const std::string missing = folder_.file("missing.ldf");
  EXPECT_EQ(set_aux_error(missing),
            definition_error("Unable to access definition file \"") + missing + "\".");
  EXPECT_NE(table_.find_entry(50), nullptr);
}

TEST_F(DefinitionTable, AnAuxFileWhoseGlobalAttributesCannotBeReadKeepsTheFormerOne) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of_id(50));
  const std::string bytes = with_int4(aux_of_id(60).bytes(), n_globals_field, 0xFFFFFFFF);
  EXPECT_EQ(set_aux_error(write("bad.ldf", bytes)), definition_error(file_error));
  EXPECT_NE(table_.find_entry(50), nullptr);
  EXPECT_EQ(table_.find_entry(60), nullptr);
}

TEST_F(DefinitionTable, AfterAFailedMergeTheNewAuxFileIsSetAndLaterEntriesAreUnknown) {
  set_std(file_of_ids(1, 1));
  const ldf_entry conflict{.id = 1, .attributes = {{"N1", 6}}};
  EXPECT_EQ(aux_error(file_of({{.id = 60, .msg_text = "aux"}, conflict, {.id = 61}})),
            definition_error("attribute N1 already exist."));
  ASSERT_NE(table_.find_entry(60), nullptr);
  EXPECT_EQ(table_.find_entry(61), nullptr);
}

TEST_F(DefinitionTable, AfterAFailedMergeTheFormerAuxFileIsClosed) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of_id(50));
  const size_t descriptors = open_descriptors();
  const ldf_file conflict = file_of({{.id = 1, .attributes = {{"N1", 6}}}});
  EXPECT_EQ(set_aux_error(write("aux2.ldf", conflict.bytes())),
            definition_error("attribute N1 already exist."));
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(DefinitionTable, AnEntryOfAFormerAuxFileIsReadFromTheNewOneAtItsOldPlace) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of_id(50));
  table_.set_precompiled_aux_definition_file_path(write("aux2.ldf", aux_of_id(51).bytes()).c_str());
  EXPECT_EQ(find_error(50), definition_error(corrupted));
  EXPECT_NE(table_.find_entry(51), nullptr);
}

TEST_F(DefinitionTable, AnIdTwiceInAnAuxFileIsLoadedFromItsFirstPlace) {
  set_std(file_of_ids(1, 1));
  const ldf_file twice = file_of({{.id = 50}, {.id = 50}});
  const std::string other_id = with_int4(twice.bytes(), 128 + 16, 52);
  EXPECT_EQ(set_aux_error(write("aux.ldf", other_id)), definition_error(corrupted));
  const std::string beyond = with_int4(twice.bytes(), 128 + 4, 0xFFFFFFFF);
  EXPECT_EQ(set_aux_error(write("aux2.ldf", beyond)), definition_error(file_error));
}

// ---- what a file replaces ----

TEST_F(DefinitionTable, AMissingStdFileClearsTheTableAndAnAuxFileMayBeSet) {
  set_std(file_of_ids(1, 1));
  table_.find_entry(1);
  EXPECT_ANY_THROW(
      table_.set_precompiled_definition_file_path(folder_.file("missing.ldf").c_str()));
  EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
  EXPECT_EQ(table_.find_entry(1), nullptr);
  set_aux(aux_of_id(1));
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "3.0");
}

TEST_F(DefinitionTable, AShortLogVersionReplacesALongerOneWhole) {
  const std::vector<ldf_entry> entries = {{.id = 1}};
  set_std({.log_version = "12.34567", .entries = entries});
  set_std({.log_version = "1.0", .entries = entries});
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "1.0");
  set_aux({.log_version = "76.54321", .entries = entries});
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "76.54321");
  set_aux({.log_version = "", .entries = entries});
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "");
}
