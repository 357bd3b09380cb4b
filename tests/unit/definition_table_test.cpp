#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "logging/ldf_load.h"
#include "tests/support/failing_new.h"
#include "tests/support/faults.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;
using testing::IsEmpty;

static const char prefix[] = "<KPX_logging_invalid_definition> ";

// A table, a folder for its files, and no global attributes before and after.
class DefinitionTable : public testing::Test {
 protected:
  DefinitionTable() { _kp_LOG_log_definition::clear_global_attr_info(); }
  ~DefinitionTable() override { _kp_LOG_log_definition::clear_global_attr_info(); }

  std::string write(const char* name, const std::string& bytes) const {
    return folder_.write(name, bytes);
  }
  void set_std(const ldf_file& file) { set_std_bytes(file.bytes()); }
  void set_std_bytes(const std::string& bytes) {
    table_.set_precompiled_definition_file_path(write("std.ldf", bytes).c_str());
  }
  void set_aux(const ldf_file& file) { set_aux_bytes(file.bytes()); }
  void set_aux_bytes(const std::string& bytes) {
    table_.set_precompiled_aux_definition_file_path(write("aux.ldf", bytes).c_str());
  }
  std::string std_error(const std::string& bytes) {
    return raised<KPX_logging_invalid_definition>([&] { set_std_bytes(bytes); });
  }
  std::string aux_error(const ldf_file& file) {
    return raised<KPX_logging_invalid_definition>([&] { set_aux(file); });
  }
  std::string find_error(unsigned id) {
    return raised<KPX_logging_invalid_definition>([&] { table_.find_entry(id); });
  }

  temp_folder folder_;
  _kp_LOG_log_definition_tbl table_;
};

static std::string text(const char* message) {
  return std::string(prefix) + message;
}

static const char file_error[] = "Unable to access definition file successfully.";
static const char corrupted[] = "The definition file is corrupted.";

static ldf_file file_of(std::vector<ldf_entry> entries) {
  ldf_file file;
  file.entries = std::move(entries);
  return file;
}

// Entries first, first + 1, ..., each with one attribute "N" followed by its ID.
static ldf_file file_of_ids(unsigned first, unsigned count) {
  ldf_file file;
  for (unsigned id = first; id < first + count; ++id)
    file.entries.push_back(
        {.id = id, .msg_text = "STD", .attributes = {{"N" + std::to_string(id), 6}}});
  return file;
}

static std::vector<std::string> attribute_names(const _kp_LOG_log_definition& def) {
  std::vector<std::string> names;
  for (unsigned i = 0; i < def.get_n_attributes(); ++i) {
    const char *name = nullptr, *redirection = nullptr;
    unsigned char type = 0;
    def.get_attr_info_by_index(static_cast<unsigned char>(i), name, type, redirection);
    names.emplace_back(name);
  }
  return names;
}

// `bytes` with the int4 at `offset` replaced.
static std::string with_int4(std::string bytes, size_t offset, unsigned value) {
  return bytes.replace(offset, 4, ldf_int4(value));
}

static constexpr size_t n_globals_field = 40, globals_offset_field = 44, n_entries_field = 48,
                        mapping_offset_field = 56;

static unsigned open_descriptors() {
  unsigned count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    static_cast<void>(entry);
    ++count;
  }
  return count;
}

// ---- finding ----

TEST_F(DefinitionTable, WithoutAFileFindsNothing) {
  EXPECT_EQ(table_.find_entry(0), nullptr);
  EXPECT_EQ(table_.find_entry(17), nullptr);
  EXPECT_FALSE(table_.acquire_entry(17));
  EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
}

TEST_F(DefinitionTable, ADefinitionHoldsEverythingOfItsRecord) {
  set_std({.log_version = "2.17",
           .entries = {{.id = 17,
                        .second_word = 5,
                        .flags = 6,
                        .msg_id = "M17",
                        .msg_text = "text",
                        .selector = "KIND",
                        .attributes = {{"KIND", TypeUInt1}, {"WHO", TypeChar32, "NAME"}},
                        .messages = {{1, 10, "S1", "one"}, {2, 20, "", ""}}}}});
  const _kp_LOG_log_definition* const found = table_.find_entry(17);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->get_entry_id(), 17U);
  EXPECT_EQ(found->get_second_word(), 5U);
  EXPECT_EQ(found->get_property_flags(), 6U);
  EXPECT_STREQ(found->get_log_version(), "2.17");
  EXPECT_STREQ(found->get_default_msg_id(), "M17");
  EXPECT_STREQ(found->get_default_msg_text(), "text");
  EXPECT_THAT(attribute_names(*found), ElementsAre("KIND", "WHO"));
  EXPECT_EQ(found->get_selector_attribute(), found->_find_attr_entry_by_name("KIND"));
  EXPECT_STREQ(found->_find_attr_entry_by_name("WHO")->get_redirection_name(), "NAME");
  EXPECT_STREQ(found->get_selector_msg_by_value(10)->get_msg_text(), "one");
  EXPECT_EQ(found->get_selector_msg_by_index(2)->get_msg_id(), nullptr);
  EXPECT_EQ(found->get_selector_msg_by_index(2)->get_msg_text(), nullptr);
}

TEST_F(DefinitionTable, ASecondLookUpGivesTheSameDefinition) {
  set_std(file_of_ids(1, 3));
  _kp_LOG_log_definition* const first = table_.find_entry(2);
  EXPECT_EQ(table_.find_entry(2), first);
  EXPECT_EQ(table_.acquire_entry(2).get(), first);
  EXPECT_EQ(table_.n_entry_definitions_cached, 1U);
}

TEST_F(DefinitionTable, TheExtremeIdsAreFoundLikeAnyOther) {
  set_std(file_of({{.id = 0, .msg_text = "zero"}, {.id = 0xFFFFFFFF, .msg_text = "last"}}));
  EXPECT_STREQ(table_.find_entry(0xFFFFFFFF)->get_default_msg_text(), "last");
  EXPECT_STREQ(table_.find_entry(0)->get_default_msg_text(), "zero");
  EXPECT_EQ(table_.find_entry(1), nullptr);
}

TEST_F(DefinitionTable, AFullVersionTextOfEightBytesIsKeptWhole) {
  set_std({.log_version = "12.34567", .entries = {{.id = 1}}});
  EXPECT_STREQ(table_.find_entry(1)->get_log_version(), "12.34567");
}

TEST_F(DefinitionTable, EmptyDefaultTextsOfTheStdFileAreTaken) {
  set_std(file_of({{.id = 1}}));
  EXPECT_STREQ(table_.find_entry(1)->get_default_msg_id(), "");
  EXPECT_STREQ(table_.find_entry(1)->get_default_msg_text(), "");
}

TEST_F(DefinitionTable, ATextLongerThanTheWindowIsReadWhole) {
  const std::string long_text(100000, 'x');
  set_std(file_of({{.id = 1, .msg_text = long_text, .attributes = {{"AFTER", 1}}}}));
  EXPECT_EQ(table_.find_entry(1)->get_default_msg_text(), long_text);
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("AFTER"));
}

TEST_F(DefinitionTable, ARecordIsReadWhenItIsFirstAskedFor) {
  ldf_file file = file_of({{.id = 1, .msg_text = "old"}, {.id = 2, .msg_text = "old"}});
  set_std(file);
  EXPECT_STREQ(table_.find_entry(1)->get_default_msg_text(), "old");
  for (auto& entry : file.entries) entry.msg_text = "new";
  write("std.ldf", file.bytes());
  EXPECT_STREQ(table_.find_entry(1)->get_default_msg_text(), "old");
  EXPECT_STREQ(table_.find_entry(2)->get_default_msg_text(), "new");
}

TEST_F(DefinitionTable, AChildProcessLoadsBesideItsParent) {
  set_std(file_of_ids(1, 100));
  const pid_t child = fork();
  for (unsigned id = 1; id <= 100; ++id) {
    const _kp_LOG_log_definition* const found = table_.find_entry(id);
    const bool good = found != nullptr && attribute_names(*found)[0] == "N" + std::to_string(id);
    if (child == 0 && !good) _exit(1);
    EXPECT_TRUE(good) << id;
  }
  if (child == 0) _exit(0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// ---- the cache ----

TEST_F(DefinitionTable, The129thDefinitionReplacesTheFirst) {
  set_std(file_of_ids(1, 130));
  const _kp_LOG_definition_ref first = table_.acquire_entry(1);
  for (unsigned id = 2; id <= 128; ++id) table_.find_entry(id);
  EXPECT_EQ(table_.find_entry(1), first.get());
  EXPECT_EQ(table_.n_entry_definitions_cached, 128U);
  EXPECT_NE(table_.find_entry(129), nullptr);
  EXPECT_EQ(table_.n_entry_definitions_cached, 128U);
  EXPECT_NE(table_.find_entry(1), first.get());
  EXPECT_EQ(table_.n_entry_definitions_cached, 128U);
}

TEST_F(DefinitionTable, PlacesAreReusedInTurnAndFromTheStartAgain) {
  set_std(file_of_ids(1, 400));
  for (unsigned id = 1; id <= 256; ++id) table_.find_entry(id);
  const _kp_LOG_definition_ref oldest = table_.acquire_entry(129);
  const _kp_LOG_definition_ref second = table_.acquire_entry(130);
  table_.find_entry(300);
  EXPECT_EQ(table_.find_entry(130), second.get());
  EXPECT_NE(table_.find_entry(129), oldest.get());
}

TEST_F(DefinitionTable, APinnedDefinitionOutlivesReplacementAndClearing) {
  set_std(file_of_ids(1, 400));
  const _kp_LOG_definition_ref pinned = table_.acquire_entry(7);
  for (unsigned id = 50; id < 350; ++id) ASSERT_NE(table_.find_entry(id), nullptr);
  EXPECT_THAT(attribute_names(*pinned.get()), ElementsAre("N7"));
  table_.clear();
  EXPECT_THAT(attribute_names(*pinned.get()), ElementsAre("N7"));
  EXPECT_STREQ(pinned->get_default_msg_text(), "STD");
}

// ---- setting the STD file ----

TEST_F(DefinitionTable, GlobalAttributesLoseTheirRedirection) {
  set_std({.globals = {{"G", TypeUInt4, "ELSEWHERE"}}, .entries = {{.id = 1}}});
  const auto* const found = table_.find_entry(1)->get_attr_info_by_name("G");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->get_type(), TypeUInt4);
  EXPECT_EQ(found->get_redirection_name(), nullptr);
}

TEST_F(DefinitionTable, GlobalAttributesOfSuccessiveFilesAccumulate) {
  set_std({.globals = {{"A", 1}, {"B", 2}}});
  set_std({.globals = {{"C", 3}, {"A", 4}}});
  ASSERT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 3);
  EXPECT_STREQ(_kp_LOG_log_definition::p_global_attr_entries[0]->get_name(), "B");
  EXPECT_STREQ(_kp_LOG_log_definition::p_global_attr_entries[2]->get_name(), "A");
  EXPECT_EQ(_kp_LOG_log_definition::p_global_attr_entries[2]->get_type(), 4);
  table_.clear();
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 3);
}

TEST_F(DefinitionTable, ANewStdFileForgetsTheOldOneAndTheAuxFile) {
  set_std(file_of_ids(1, 2));
  set_aux(file_of_ids(50, 1));
  set_std(file_of_ids(10, 1));
  EXPECT_EQ(table_.find_entry(1), nullptr);
  EXPECT_EQ(table_.find_entry(50), nullptr);
  EXPECT_NE(table_.find_entry(10), nullptr);
}

TEST_F(DefinitionTable, ClearingForgetsEverythingAndCanBeRepeated) {
  set_std(file_of_ids(1, 2));
  set_aux(file_of_ids(3, 1));
  EXPECT_NE(table_.find_entry(1), nullptr);
  const unsigned before = open_descriptors();
  table_.clear();
  table_.clear();
  EXPECT_EQ(open_descriptors() + 2, before);
  EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
  EXPECT_EQ(table_.find_entry(1), nullptr);
  EXPECT_EQ(table_.find_entry(3), nullptr);
}

TEST_F(DefinitionTable, AFileThatCannotBeOpenedIsNamed) {
  const std::string missing = folder_.file("missing.ldf");
  const auto error_of = [&](const char* path) {
    return raised<KPX_logging_invalid_definition>(
        [&] { table_.set_precompiled_definition_file_path(path); });
  };
  EXPECT_EQ(error_of(missing.c_str()),
            text("Unable to access definition file \"") + missing + "\".");
  EXPECT_EQ(error_of(nullptr), text("Unable to access definition file \"\"."));
}

TEST_F(DefinitionTable, AFolderAndAFifoCannotBeOpened) {
  const std::string fifo = folder_.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {folder_.path(), fifo, std::string("/dev/null")})
    EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                  [&] { table_.set_precompiled_definition_file_path(path.c_str()); }),
              text("Unable to access definition file \"") + path + "\".");
}

TEST_F(DefinitionTable, AnotherMagicOrAShortHeaderIsAFileError) {
  const std::string good = file_of_ids(1, 1).bytes();
  EXPECT_EQ(std_error(good.substr(0, 127)), text(file_error));
  EXPECT_EQ(std_error(with_int4(good, 0, 0x2E4C4447)), text(file_error));
  EXPECT_EQ(std_error(""), text(file_error));
}

TEST_F(DefinitionTable, AFileOfAHeaderAloneIsEmpty) {
  set_std({});
  EXPECT_EQ(table_.find_entry(1), nullptr);
}

TEST_F(DefinitionTable, SectionsBeyondTheEndAreFileErrors) {
  ldf_file file = file_of_ids(1, 1);
  file.globals = {{"G", 1}};
  const std::string good = file.bytes();
  for (const unsigned beyond : {static_cast<unsigned>(good.size()), 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    EXPECT_EQ(std_error(with_int4(good, globals_offset_field, beyond)), text(file_error));
    EXPECT_EQ(std_error(with_int4(good, mapping_offset_field, beyond)), text(file_error));
  }
}

TEST_F(DefinitionTable, CountsBeyondTheFileAreFileErrors) {
  const std::string good = file_of_ids(1, 1).bytes();
  EXPECT_EQ(std_error(with_int4(good, n_globals_field, 0xFFFFFFFF)), text(file_error));
  EXPECT_EQ(std_error(with_int4(good, n_entries_field, 0xFFFFFFFF)), text(file_error));
}

TEST_F(DefinitionTable, TheOffsetsOfEmptySectionsDoNotMatter) {
  std::string bytes = ldf_file{}.bytes();
  bytes = with_int4(bytes, globals_offset_field, 0xFFFFFFFF);
  set_std_bytes(with_int4(bytes, mapping_offset_field, 0xFFFFFFFF));
  EXPECT_EQ(table_.find_entry(1), nullptr);
}

TEST_F(DefinitionTable, A256thGlobalAttributeIsCorrupted) {
  ldf_file file;
  for (unsigned i = 0; i < 255; ++i) file.globals.push_back({"G" + std::to_string(i), 1});
  set_std(file);
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 255);
  set_std(file);  // each one replaces its former self
  file.globals.push_back({"ONE_MORE", 1});
  EXPECT_EQ(std_error(file.bytes()), text(corrupted));
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 255);
}

TEST_F(DefinitionTable, AFailedStdLoadLeavesNoFileButAnAuxFileMayBeSet) {
  set_std(file_of_ids(1, 1));
  const std::string cut = file_of_ids(5, 2).bytes().substr(0, 128 + 8);
  EXPECT_EQ(std_error(cut), text(file_error));
  EXPECT_EQ(table_.find_entry(1), nullptr);
  EXPECT_EQ(table_.find_entry(5), nullptr);
  set_aux(file_of_ids(5, 1));
  EXPECT_NE(table_.find_entry(5), nullptr);
}

TEST_F(DefinitionTable, AFailedLoadKeepsNoDescriptor) {
  const unsigned before = open_descriptors();
  EXPECT_EQ(std_error(file_of_ids(1, 1).bytes().substr(0, 130)), text(file_error));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(DefinitionTable, AHundredThousandIdsAreLocated) {
  ldf_file file = file_of_ids(1, 1);
  const std::string one = file.bytes();
  std::string mapping;
  for (unsigned id = 2; id <= 100000; ++id) mapping += ldf_int4(id) + ldf_int4(136);
  std::string bytes = with_int4(one, n_entries_field, 100000);
  bytes = with_int4(bytes, mapping_offset_field, static_cast<unsigned>(bytes.size()));
  set_std_bytes(bytes + ldf_int4(1) + ldf_int4(136) + mapping);
  EXPECT_NE(table_.find_entry(1), nullptr);
  EXPECT_EQ(find_error(100000), text(corrupted));
  EXPECT_EQ(table_.find_entry(100001), nullptr);
}

// ---- damaged records ----

TEST_F(DefinitionTable, ARecordOfAnotherIdIsCorruptedEachTimeItIsFound) {
  const std::string good = file_of_ids(1, 2).bytes();
  set_std_bytes(with_int4(good, 128, 3));
  EXPECT_EQ(find_error(3), text(corrupted));
  EXPECT_EQ(find_error(3), text(corrupted));
  EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
  EXPECT_NE(table_.find_entry(2), nullptr);
}

TEST_F(DefinitionTable, ARecordBeyondTheEndIsAFileError) {
  const std::string good = file_of_ids(1, 1).bytes();
  set_std_bytes(with_int4(good, 132, 0xFFFFFFFF));
  EXPECT_EQ(find_error(1), text(file_error));
}

TEST_F(DefinitionTable, ARecordMayOverlapAnything) {
  // The mapping table's own record, (1, 128), read as an entry: ID 1, second word 128, ...
  set_std_bytes(with_int4(file_of({{.id = 1}}).bytes(), 132, 128));
  const auto* const found = table_.find_entry(1);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->get_second_word(), 128U);
}

TEST_F(DefinitionTable, TheSameNameTwiceInARecordIsAnErrorUnlessItIsTheSelector) {
  set_std(file_of({{.id = 1, .attributes = {{"X", 1}, {"X", 2}}},
                   {.id = 2, .selector = "X", .attributes = {{"X", 1}, {"Y", 1}, {"X", 2}}}}));
  EXPECT_EQ(find_error(1), text("attribute X already exist."));
  const auto* const found = table_.find_entry(2);
  EXPECT_THAT(attribute_names(*found), ElementsAre("Y", "X"));
  EXPECT_EQ(found->get_selector_attribute()->get_type(), 2);
}

TEST_F(DefinitionTable, AnAttributeWithoutANameIsNoSelector) {
  set_std(file_of({{.id = 1, .attributes = {{"", 1}}}}));
  EXPECT_EQ(table_.find_entry(1)->get_selector_attribute(), nullptr);
  EXPECT_NE(table_.find_entry(1)->_find_attr_entry_by_name(""), nullptr);
}

TEST_F(DefinitionTable, TwoHundredAndFiftyFiveAttributesAndMessagesFitAndOneMoreIsCorrupted) {
  ldf_entry full{.id = 1};
  for (unsigned i = 0; i < 255; ++i) {
    full.attributes.push_back({"A" + std::to_string(i), 1});
    full.messages.push_back({i, i, "", ""});
  }
  ldf_entry more_attributes = full, more_messages = full;
  more_attributes.id = 2;
  more_attributes.attributes.push_back({"ONE_MORE", 1});
  more_messages.id = 3;
  more_messages.messages.push_back({255, 255, "", ""});
  set_std(file_of({full, more_attributes, more_messages}));
  EXPECT_EQ(table_.find_entry(1)->get_n_attributes(), 255);
  EXPECT_EQ(table_.find_entry(1)->get_n_selector_msgs(), 255);
  EXPECT_EQ(find_error(2), text(corrupted));
  EXPECT_EQ(find_error(3), text(corrupted));
}

TEST_F(DefinitionTable, AStringOfFourGibibytesIsAFileError) {
  const std::string good = file_of_ids(1, 1).bytes();
  set_std_bytes(with_int4(good, 136 + 12, 0xFFFFFFFF));
  EXPECT_EQ(find_error(1), text(file_error));
}

// ---- the AUX file ----

static ldf_file aux_of(ldf_entry entry) {
  ldf_file file{.log_version = "3.0"};
  file.entries.push_back(std::move(entry));
  return file;
}

static const char no_std[] = "user should set STD definition file before set AUX definition file.";

TEST_F(DefinitionTable, AnAuxFileNeedsAnStdFile) {
  EXPECT_EQ(aux_error(file_of_ids(1, 1)), text(no_std));
  set_std(file_of_ids(1, 1));
  set_aux(file_of_ids(2, 1));
  table_.clear();
  EXPECT_EQ(aux_error(file_of_ids(1, 1)), text(no_std));
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
            text("selector_attribute name conflict."));
}

TEST_F(DefinitionTable, ARepeatedAttributeNameConflicts) {
  set_std(file_of({{.id = 1, .attributes = {{"A", 2}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .attributes = {{"B", 1}, {"A", 2}}})),
            text("attribute A already exist."));
}

TEST_F(DefinitionTable, ASelectorMessageWithAHeldIndexOrValueConflicts) {
  const char conflict[] =
      "selector message index in AUX definition file conflict with STD definition";
  set_std(file_of({{.id = 1, .messages = {{1, 10, "", "one"}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .messages = {{1, 20, "", ""}}})), text(conflict));
  set_std(file_of({{.id = 1, .messages = {{1, 10, "", "one"}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .messages = {{2, 10, "", ""}}})), text(conflict));
}

TEST_F(DefinitionTable, AFailedMergeLeavesWhatWasMergedSoFar) {
  set_std(file_of({{.id = 1, .attributes = {{"A", 2}}}}));
  EXPECT_EQ(aux_error(aux_of({.id = 1, .attributes = {{"B", 1}, {"A", 2}, {"C", 1}}})),
            text("attribute A already exist."));
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
  EXPECT_EQ(aux_error(aux_of(second)), text(corrupted));
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

TEST_F(DefinitionTable, TheSameIdTwiceInAnStdFileMeansTheLast) {
  set_std(file_of({{.id = 1, .msg_text = "first"}, {.id = 1, .msg_text = "last"}}));
  EXPECT_STREQ(table_.find_entry(1)->get_default_msg_text(), "last");
}

TEST_F(DefinitionTable, AnAuxFileSetAgainAddsToWhatIsThere) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of({.id = 50, .attributes = {{"A", 1}}}));
  const unsigned before = open_descriptors();
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
            text(file_error));
  EXPECT_NE(table_.find_entry(50), nullptr);
}

TEST_F(DefinitionTable, AnAuxMappingRecordThatCannotBeReadForgetsTheAuxFile) {
  set_std(file_of_ids(1, 1));
  set_aux(aux_of({.id = 50}));
  const std::string cut = file_of_ids(60, 2).bytes().substr(0, 128 + 12);
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] {
              table_.set_precompiled_aux_definition_file_path(write("bad.ldf", cut).c_str());
            }),
            text(file_error));
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
            text("selector_attribute name conflict."));
  EXPECT_FALSE(table_._retrieve_entry_definition(99, def, nullptr));
}

TEST_F(DefinitionTable, ItsFileErrorCanBeRaisedAlone) {
  EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] { table_._throw_file_io_error(); }),
            text(file_error));
}

// ---- debug lines ----

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
  EXPECT_EQ(std_error(cut), text(file_error));
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
  EXPECT_EQ(std_error("short"), text(file_error));
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
  EXPECT_EQ(find_error(1), text(file_error));
  EXPECT_THAT(log.lines(), ElementsAre("logging/def_read:N kp_be_read_int4",
                                       "logging/def_read:N kp_be_read_string selector_msg_text "
                                       "error",
                                       line("_throw_file_io_error()")));
}

// ---- faults and failed allocations ----

#ifdef KP_FAULTS
TEST_F(DefinitionTable, ReadsThatFailAreFileErrorsAndLeaveTheTableUsable) {
  const std::string std_path = write("std.ldf", file_of_ids(1, 2).bytes());
  const unsigned descriptors = open_descriptors();
  for (const auto call : {kp_fault_call::pread, kp_fault_call::fstat}) {
    for (unsigned nth = 1;; ++nth) {
      std::string error;
      bool met = false;
      {
        const fault_scope fault(call, nth, EIO);
        try {
          table_.set_precompiled_definition_file_path(std_path.c_str());
          table_.find_entry(1);
        } catch (const KPX_logging_invalid_definition& e) {
          error = e.what();
        }
        met = fault.calls_seen() >= nth;
      }
      if (!met) break;
      EXPECT_THAT(error, testing::StartsWith(text("Unable to access definition file "))) << nth;
      table_.clear();
      EXPECT_EQ(open_descriptors(), descriptors);
    }
  }
  table_.set_precompiled_definition_file_path(std_path.c_str());
  EXPECT_NE(table_.find_entry(1), nullptr);
}

TEST_F(DefinitionTable, AFileThatCannotBeOpenedForAnyReasonIsNamed) {
  const std::string path = write("std.ldf", file_of_ids(1, 2).bytes());
  for (const auto call : {kp_fault_call::open, kp_fault_call::fdopen}) {
    const fault_scope fault(call, 1, EMFILE);
    EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                  [&] { table_.set_precompiled_definition_file_path(path.c_str()); }),
              text("Unable to access definition file \"") + path + "\".");
  }
}

TEST_F(DefinitionTable, InterruptedReadsAreTakenUpAgain) {
  const std::string path = write("std.ldf", file_of_ids(1, 2).bytes());
  const fault_scope fault(kp_fault_call::pread, 1, EINTR);
  table_.set_precompiled_definition_file_path(path.c_str());
  EXPECT_GE(fault.calls_seen(), 2U);
  EXPECT_NE(table_.find_entry(2), nullptr);
}

TEST_F(DefinitionTable, PartialReadsAreContinued) {
  const std::string path = write("std.ldf", file_of_ids(1, 2).bytes());
  const fault_scope fault(kp_fault_call::pread, 1, EIO, true, 1);
  table_.set_precompiled_definition_file_path(path.c_str());
  EXPECT_THAT(attribute_names(*table_.find_entry(2)), ElementsAre("N2"));
  EXPECT_GT(fault.calls_seen(), 128U);
}
#endif

TEST_F(DefinitionTable, WithoutMemoryForAFileNothingLeaksAndItCanBeSetAgain) {
  const ldf_file file{.globals = {{std::string(100, 'g'), 1}}, .entries = {{.id = 1}}};
  const std::string std_path = write("std.ldf", file.bytes());
  const std::string aux_path = write("aux.ldf", file_of_ids(1, 3).bytes());
  const unsigned failures = for_each_failing_allocation([&] {
    table_.set_precompiled_definition_file_path(std_path.c_str());
    table_.set_precompiled_aux_definition_file_path(aux_path.c_str());
  });
  EXPECT_GE(failures, 4U);  // a global attribute, its name, locations, a definition
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("N1"));
  EXPECT_NE(table_.find_entry(3), nullptr);
}

TEST_F(DefinitionTable, WithoutMemoryForADefinitionNoneIsKept) {
  set_std(file_of({{.id = 1,
                    .msg_id = std::string(100, 'i'),
                    .msg_text = std::string(100, 't'),
                    .selector = std::string(100, 'a'),
                    .attributes = {{std::string(100, 'a'), 1, std::string(100, 'r')}},
                    .messages = {{1, 1, std::string(100, 'i'), std::string(100, 't')}}}}));
  const unsigned failures =
      for_each_failing_allocation([&] { table_.find_entry(1); },
                                  [&](const std::exception_ptr& outcome) {
                                    expect_memory_alloc(outcome);
                                    EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
                                  });
  EXPECT_GE(failures, 8U);  // the definition and its seven texts
  EXPECT_EQ(table_.n_entry_definitions_cached, 1U);
}
