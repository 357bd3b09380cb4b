// More entry types than the cache holds: what leaves it, and how that comes back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "tests/support/definition_table.h"
#include "tests/support/failing.h"
#include "tests/support/files_of_old.h"

using testing::ElementsAre;

static const _kp_LOG_log_definition* found_right(_kp_LOG_log_definition_tbl& table, unsigned id) {
  const _kp_LOG_log_definition* const found = table.find_entry(id);
  const bool is_right = found != nullptr && found->get_entry_id() == id &&
                        attribute_names(*found)[0] == "N" + std::to_string(id);
  return is_right ? found : nullptr;
}

// One of `count` IDs.
static unsigned drawn_id(std::mt19937& random, unsigned count) {
  return static_cast<unsigned>(random() % count);
}

class BeyondTheCache : public DefinitionTable {
 protected:
  // Sets a file that has not changed for a while, so that what is read of it may come back.
  void set_old_std(const ldf_file& file) {
    set_std(file);
    let_grow_old(folder_.file("std.ldf"));
  }
  void find_all(unsigned first, unsigned count) {
    for (unsigned id = first; id < first + count; ++id)
      ASSERT_NE(table_.find_entry(id), nullptr) << id;
  }
  std::string text_of(unsigned id) { return table_.find_entry(id)->get_default_msg_text(); }
};

// ---- what is seen of the cache ----

// The cache as it is described: 128 places, filled from the first one on and then reused in turn.
class described_cache {
 public:
  // The lines of a look-up of an ID that the file lists.
  std::vector<std::string> find(unsigned id) {
    const std::string source = "logging/ldf_load:N _kp_LOG_log_definition_tbl::";
    std::vector<std::string> lines = {
        source + "_find_entry_non_const n_entry_definitions_cached:" + std::to_string(count_)};
    const auto end = ids_.begin() + count_;
    if (std::find(ids_.begin(), end, id) != end) return lines;
    lines.push_back(source + "_retrieve_entry_definition return true");
    if (count_ < 128) {
      ids_[count_++] = id;
      lines.push_back(source + "_find_entry_non_const return p_entry_definition " +
                      std::to_string(count_));
    } else {
      ids_[next_] = id;
      next_ = (next_ + 1) % 128;
    }
    return lines;
  }

 private:
  std::array<unsigned, 128> ids_{};
  unsigned count_ = 0, next_ = 0;
};

TEST_F(BeyondTheCache, EveryLookUpTellsWhatACacheOf128PlacesTells) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  set_old_std(file_of_ids(0, 160));
  described_cache cache;
  std::vector<std::string> expected;
  const debug_log_in_temp_folder log(3);
  for (int i = 0; i < 1500; ++i) {
    const unsigned id = drawn_id(random, 160);
    ASSERT_NE(found_right(table_, id), nullptr);
    for (std::string& line : cache.find(id)) expected.push_back(std::move(line));
  }
  EXPECT_EQ(log.lines(), expected);
}

TEST_F(BeyondTheCache, ClearingBeginsWithTheFirstPlaceAgain) {
  set_old_std(file_of_ids(1, 200));
  find_all(1, 200);
  find_all(1, 200);
  set_old_std(file_of_ids(1, 129));
  EXPECT_EQ(table_.n_entry_definitions_cached, 0U);
  find_all(1, 128);
  const _kp_LOG_definition_ref first = table_.acquire_entry(1), second = table_.acquire_entry(2);
  find_all(129, 1);
  EXPECT_EQ(table_.find_entry(2), second.get());
  EXPECT_NE(table_.find_entry(1), first.get());
}

// ---- reading ----

#ifdef KP_FAULTS
TEST_F(BeyondTheCache, ARecordOfAFileThatStaysTheSameIsReadOnce) {
  for (const unsigned count : {129U, 1000U, 10000U}) {
    set_old_std(file_of_ids(0, count));
    find_all(0, count);
    const failing counting(kp_fault_call::pread, 0, 0);
    std::mt19937 random(count);
    for (unsigned id = 0; id < count; ++id) ASSERT_NE(found_right(table_, id), nullptr);
    for (unsigned i = 0; i < count; ++i)
      ASSERT_NE(found_right(table_, drawn_id(random, count)), nullptr);
    EXPECT_EQ(counting.calls_seen(), 0U) << count;
  }
}

TEST_F(BeyondTheCache, WhatIsHeldHasABound) {
  ldf_file file = file_of_ids(0, 400);
  for (auto& entry : file.entries) entry.msg_text = std::string(120000, 'x');
  set_old_std(file);
  for (int round = 0; round < 2; ++round) {
    const failing counting(kp_fault_call::pread, 0, 0);
    for (unsigned id = 0; id < 400; ++id) ASSERT_NE(found_right(table_, id), nullptr);
    EXPECT_GT(counting.calls_seen(), 100U);  // 32 MiB are 279 of them
  }
}

TEST_F(BeyondTheCache, AFileThatCannotBeLookedAtIsReadAgain) {
  set_old_std(file_of_ids(1, 129));
  find_all(1, 129);
  {
    const failing fault(kp_fault_call::fstat, 1, EIO, from_then_on);
    EXPECT_EQ(find_error(1), definition_error(file_error));
  }
  EXPECT_NE(found_right(table_, 1), nullptr);
}
#endif

// ---- a file that changes while it is set ----

TEST_F(BeyondTheCache, AChangeOfTheFileIsSeenByWhatIsOutsideTheCache) {
  ldf_file file = file_of_ids(1, 256);
  set_old_std(file);
  find_all(1, 256);
  for (auto& entry : file.entries) entry.msg_text = "NEW";
  write("std.ldf", file.bytes());
  EXPECT_EQ(text_of(200), "STD");  // in the cache
  for (unsigned id = 1; id <= 100; ++id) EXPECT_EQ(text_of(id), "NEW") << id;
  for (auto& entry : file.entries) entry.msg_text = "TOO";
  write("std.ldf", file.bytes());  // at once: the file may bear the time of the change before
  EXPECT_EQ(text_of(50), "NEW");
  for (unsigned id = 129; id <= 180; ++id) EXPECT_EQ(text_of(id), "TOO") << id;
}

TEST_F(BeyondTheCache, AFileThatIsCutFailsEachTimeUntilItIsWhole) {
  const ldf_file file = file_of_ids(1, 129);
  set_old_std(file);
  find_all(1, 129);
  write("std.ldf", file.bytes().substr(0, 200));
  EXPECT_EQ(find_error(1), definition_error(file_error));
  EXPECT_EQ(find_error(1), definition_error(file_error));
  EXPECT_NE(found_right(table_, 129), nullptr);
  write("std.ldf", file.bytes());
  EXPECT_NE(found_right(table_, 1), nullptr);
}

TEST_F(BeyondTheCache, ADamagedRecordFailsEachTime) {
  ldf_file file = file_of_ids(1, 200);
  file.entries[0].attributes = {{"X", 1}, {"X", 2}};
  set_old_std(file);
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(find_error(1), definition_error("attribute X already exist."));
    find_all(2, 199);
  }
}

// ---- definitions that are not as they were read ----

TEST_F(BeyondTheCache, WhatAProgramChangedIsAsInTheFileAgain) {
  const std::vector<void (*)(_kp_LOG_log_definition&)> changes = {
      [](auto& def) { def.set_entry_id(5000); },
      [](auto& def) { def.set_second_word(7); },
      [](auto& def) { def.set_property_flags(7); },
      [](auto& def) { def.set_log_version("9"); },
      [](auto& def) { def.set_default_msg_id("mine"); },
      [](auto& def) { def.set_default_msg_text("mine"); },
      [](auto& def) { def.set_default_msg_id(kp_String("mine")); },
      [](auto& def) { def.set_default_msg_text(kp_String("mine")); },
      [](auto& def) { def.set_selector_attribute("B"); },
      [](auto& def) { def.add_selector_msg(3, 3, "mine", "mine"); },
      [](auto& def) { def.add_attr_info("MINE", 1, false, nullptr); },
      [](auto& def) { def.remove_attr_by_ptr(def._find_attr_entry_by_name("B")); },
      [](auto& def) { def.clear_attr_info(); },
      [](auto& def) { def._find_attr_entry_by_name("B")->set_name("MINE"); },
      [](auto& def) { def._find_attr_entry_by_name("B")->set_redirection_name("MINE"); },
  };
  ldf_file file = file_of_ids(1, 300);
  for (auto& entry : file.entries) {
    entry.selector = "A";
    entry.attributes = {{"A", 1}, {"B", 1}};
  }
  set_old_std(file);
  for (unsigned i = 0; i < changes.size(); ++i) changes[i](*table_.find_entry(1 + i));
  find_all(100, 128);
  for (unsigned id = 1; id <= changes.size(); ++id) {
    const _kp_LOG_log_definition* const found = table_.find_entry(id);
    EXPECT_EQ(found->get_entry_id(), id);
    EXPECT_EQ(found->get_second_word(), 0U) << id;
    EXPECT_EQ(found->get_property_flags(), 0U) << id;
    EXPECT_STREQ(found->get_log_version(), "2.0") << id;
    EXPECT_STREQ(found->get_default_msg_id(), "") << id;
    EXPECT_STREQ(found->get_default_msg_text(), "STD") << id;
    EXPECT_THAT(attribute_names(*found), ElementsAre("A", "B")) << id;
    EXPECT_STREQ(found->get_selector_attribute()->get_name(), "A") << id;
    EXPECT_EQ(found->_find_attr_entry_by_name("B")->get_redirection_name(), nullptr) << id;
    EXPECT_EQ(found->get_n_selector_msgs(), 0) << id;
  }
}

TEST_F(BeyondTheCache, AMergedDefinitionHoldsTheAuxRecordAlone) {
  set_old_std(file_of_ids(1, 300));
  find_all(1, 300);
  ldf_file aux = file_of_ids(1, 150);
  for (auto& entry : aux.entries) {
    entry.attributes[0].name = "AUX" + std::to_string(entry.id);
    entry.msg_text = "";
  }
  set_aux(aux);
  let_grow_old(folder_.file("aux.ldf"));
  EXPECT_THAT(attribute_names(*table_.find_entry(150)), ElementsAre("N150", "AUX150"));
  for (int round = 0; round < 3; ++round) {
    find_all(151, 150);
    for (unsigned id = 1; id <= 150; ++id) {
      EXPECT_THAT(attribute_names(*table_.find_entry(id)), ElementsAre("AUX" + std::to_string(id)));
      EXPECT_EQ(table_.find_entry(id)->get_default_msg_text(), nullptr);
    }
  }
}

TEST_F(BeyondTheCache, AnotherAuxFileIsReadAtThePlacesOfTheFormerOne) {
  set_old_std(file_of_ids(1, 1));
  set_aux(file_of_ids(1000, 300));
  let_grow_old(folder_.file("aux.ldf"));
  find_all(1000, 300);
  const std::string path = write("aux2.ldf", file_of_ids(5000, 1).bytes());
  table_.set_precompiled_aux_definition_file_path(path.c_str());
  EXPECT_EQ(find_error(1000), definition_error(file_error));
  EXPECT_NE(found_right(table_, 1299), nullptr);  // in the cache
}

TEST_F(BeyondTheCache, DeclaredAttributesComeBackAndReachWhatComesBack) {
  set_old_std(file_of_ids(1, 200));
  bool found = false;
  EXPECT_TRUE(table_.declare_attribute(1, "ONE", 9, found));
  find_all(2, 199);
  EXPECT_TRUE(table_.declare_attribute(1, "TWO", 9, found));
  for (int round = 0; round < 2; ++round) {
    find_all(2, 199);
    EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("N1", "ONE", "TWO"));
  }
}

// An entry that uses a definition keeps it for itself: what comes back is another one.
TEST_F(BeyondTheCache, WhatAnEntryUsesIsReadAgainAndBothGetWhatIsDeclared) {
  set_old_std(file_of_ids(1, 200));
  const _kp_LOG_definition_ref used = table_.acquire_entry(1);
  find_all(2, 199);
  const _kp_LOG_log_definition* const fresh = table_.find_entry(1);
  EXPECT_NE(fresh, used.get());
  bool found = false;
  EXPECT_TRUE(table_.declare_attribute(1, "ONE", 9, found));
  EXPECT_THAT(attribute_names(*used.get()), ElementsAre("N1", "ONE"));
  EXPECT_THAT(attribute_names(*fresh), ElementsAre("N1", "ONE"));
  find_all(2, 199);
  EXPECT_THAT(attribute_names(*table_.find_entry(1)), ElementsAre("N1", "ONE"));
}

// ---- processes, memory ----

TEST_F(BeyondTheCache, AChildProcessGoesOnBesideItsParent) {
  set_old_std(file_of_ids(1, 300));
  find_all(1, 300);
  const pid_t child = fork();
  unsigned wrong = 0;
  for (int round = 0; round < 3; ++round)
    for (unsigned id = 1; id <= 300; ++id)
      if (found_right(table_, id) == nullptr) ++wrong;
  if (child == 0) _exit(wrong == 0 ? 0 : 1);
  EXPECT_EQ(wrong, 0U);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(BeyondTheCache, WithoutMemoryWhatIsHeldStillComesBack) {
  set_old_std(file_of_ids(1, 200));
  find_all(1, 200);
  const unsigned failures = for_each_failing_new([&] {
    for (unsigned id = 1; id <= 200; ++id) EXPECT_NE(table_.find_entry(id), nullptr);
  });
  EXPECT_EQ(failures, 0U);
}
