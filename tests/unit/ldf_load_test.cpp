#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/definition_table.h"
#include "tests/support/failing.h"

using testing::ElementsAre;

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
  const size_t before = open_descriptors();
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
            definition_error("Unable to access definition file \"") + missing + "\".");
  EXPECT_EQ(error_of(nullptr), definition_error("Unable to access definition file \"\"."));
}

TEST_F(DefinitionTable, AFolderAndAFifoCannotBeOpened) {
  const std::string fifo = folder_.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {folder_.path(), fifo, std::string("/dev/null")})
    EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                  [&] { table_.set_precompiled_definition_file_path(path.c_str()); }),
              definition_error("Unable to access definition file \"") + path + "\".");
}

TEST_F(DefinitionTable, AnotherMagicOrAShortHeaderIsAFileError) {
  const std::string good = file_of_ids(1, 1).bytes();
  EXPECT_EQ(std_error(good.substr(0, 127)), definition_error(file_error));
  EXPECT_EQ(std_error(with_int4(good, 0, 0x2E4C4447)), definition_error(file_error));
  EXPECT_EQ(std_error(""), definition_error(file_error));
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
    EXPECT_EQ(std_error(with_int4(good, globals_offset_field, beyond)),
              definition_error(file_error));
    EXPECT_EQ(std_error(with_int4(good, mapping_offset_field, beyond)),
              definition_error(file_error));
  }
}

TEST_F(DefinitionTable, CountsBeyondTheFileAreFileErrors) {
  const std::string good = file_of_ids(1, 1).bytes();
  EXPECT_EQ(std_error(with_int4(good, n_globals_field, 0xFFFFFFFF)), definition_error(file_error));
  EXPECT_EQ(std_error(with_int4(good, n_entries_field, 0xFFFFFFFF)), definition_error(file_error));
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
  EXPECT_EQ(std_error(file.bytes()), definition_error(corrupted));
  EXPECT_EQ(_kp_LOG_log_definition::n_global_attr_entries, 255);
}

TEST_F(DefinitionTable, AFailedStdLoadLeavesNoFileButAnAuxFileMayBeSet) {
  set_std(file_of_ids(1, 1));
  const std::string cut = file_of_ids(5, 2).bytes().substr(0, 128 + 8);
  EXPECT_EQ(std_error(cut), definition_error(file_error));
  EXPECT_EQ(table_.find_entry(1), nullptr);
  EXPECT_EQ(table_.find_entry(5), nullptr);
  set_aux(file_of_ids(5, 1));
  EXPECT_NE(table_.find_entry(5), nullptr);
}

TEST_F(DefinitionTable, AFailedLoadKeepsNoDescriptor) {
  const size_t before = open_descriptors();
  EXPECT_EQ(std_error(file_of_ids(1, 1).bytes().substr(0, 130)), definition_error(file_error));
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
  EXPECT_EQ(find_error(100000), definition_error(corrupted));
  EXPECT_EQ(table_.find_entry(100001), nullptr);
}

// ---- damaged records ----

TEST_F(DefinitionTable, ARecordOfAnotherIdIsCorruptedEachTimeItIsFound) {
  const std::string good = file_of_ids(1, 2).bytes();
  set_std_bytes(with_int4(good, 128, 3));
  EXPECT_EQ(find_error(3), definition_error(corrupted));
  EXPECT_EQ(find_error(3), definition_error(corrupted));
  EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
  EXPECT_NE(table_.find_entry(2), nullptr);
}

TEST_F(DefinitionTable, ARecordBeyondTheEndIsAFileError) {
  const std::string good = file_of_ids(1, 1).bytes();
  set_std_bytes(with_int4(good, 132, 0xFFFFFFFF));
  EXPECT_EQ(find_error(1), definition_error(file_error));
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
  EXPECT_EQ(find_error(1), definition_error("attribute X already exist."));
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
  EXPECT_EQ(find_error(2), definition_error(corrupted));
  EXPECT_EQ(find_error(3), definition_error(corrupted));
}

TEST_F(DefinitionTable, AStringOfFourGibibytesIsAFileError) {
  const std::string good = file_of_ids(1, 1).bytes();
  set_std_bytes(with_int4(good, 136 + 12, 0xFFFFFFFF));
  EXPECT_EQ(find_error(1), definition_error(file_error));
}

// ---- faults and failed allocations ----

#ifdef KP_FAULTS
TEST_F(DefinitionTable, ReadsThatFailAreFileErrorsAndLeaveTheTableUsable) {
  const std::string std_path = write("std.ldf", file_of_ids(1, 2).bytes());
  const size_t descriptors = open_descriptors();
  for (const auto call : {kp_fault_call::pread, kp_fault_call::fstat}) {
    for (unsigned nth = 1;; ++nth) {
      std::string error;
      bool met = false;
      {
        const failing fault(call, nth, EIO);
        try {
          table_.set_precompiled_definition_file_path(std_path.c_str());
          table_.find_entry(1);
        } catch (const KPX_logging_invalid_definition& e) {
          error = e.what();
        }
        met = fault.calls_seen() >= nth;
      }
      if (!met) break;
      EXPECT_THAT(error, testing::StartsWith(definition_error("Unable to access definition file ")))
          << nth;
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
    const failing fault(call, 1, EMFILE);
    EXPECT_EQ(raised<KPX_logging_invalid_definition>(
                  [&] { table_.set_precompiled_definition_file_path(path.c_str()); }),
              definition_error("Unable to access definition file \"") + path + "\".");
  }
}

TEST_F(DefinitionTable, InterruptedReadsAreTakenUpAgain) {
  const std::string path = write("std.ldf", file_of_ids(1, 2).bytes());
  const failing fault(kp_fault_call::pread, 1, EINTR);
  table_.set_precompiled_definition_file_path(path.c_str());
  EXPECT_GE(fault.calls_seen(), 2U);
  EXPECT_NE(table_.find_entry(2), nullptr);
}

TEST_F(DefinitionTable, PartialReadsAreContinued) {
  const std::string path = write("std.ldf", file_of_ids(1, 2).bytes());
  const failing fault(kp_fault_call::pread, 1, EIO, from_then_on, 1);
  table_.set_precompiled_definition_file_path(path.c_str());
  EXPECT_THAT(attribute_names(*table_.find_entry(2)), ElementsAre("N2"));
  EXPECT_GT(fault.calls_seen(), 128U);
}
#endif

TEST_F(DefinitionTable, WithoutMemoryForAFileNothingLeaksAndItCanBeSetAgain) {
  const ldf_file file{.globals = {{std::string(100, 'g'), 1}}, .entries = {{.id = 1}}};
  const std::string std_path = write("std.ldf", file.bytes());
  const std::string aux_path = write("aux.ldf", file_of_ids(1, 3).bytes());
  const unsigned failures = for_each_failing_new([&] {
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
  const unsigned failures = for_each_failing_new([&] { table_.find_entry(1); },
                                                 [&](const std::exception_ptr& outcome) {
                                                   expect_memory_alloc(outcome);
                                                   EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
                                                 });
  EXPECT_GE(failures, 8U);  // the definition and its seven texts
  EXPECT_EQ(table_.n_entry_definitions_cached, 1U);
}
