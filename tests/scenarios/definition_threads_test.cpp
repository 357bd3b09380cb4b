// The definition table under several threads: look-ups of more entry types than the cache holds,
// and holders of definitions that are replaced and cleared meanwhile.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "logging/ldf_load.h"
#include "tests/support/files_of_old.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

static constexpr unsigned n_ids = 160;

static std::string name_of(unsigned id) {
  return "ATTRIBUTE_" + std::to_string(id);
}

static std::string bytes_of(unsigned first, unsigned count, const std::string& extra) {
  ldf_file file;
  for (unsigned id = first; id < first + count; ++id)
    file.entries.push_back({.id = id, .attributes = {{name_of(id) + extra, 6}}});
  return file.bytes();
}

// Runs f(thread's number) in `n` threads and waits for all of them.
template <class F>
static void in_threads(unsigned n, F f) {
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < n; ++i) threads.emplace_back(f, i);
  for (auto& thread : threads) thread.join();
}

class DefinitionThreads : public testing::Test {
 protected:
  DefinitionThreads() {
    table_.set_precompiled_definition_file_path(
        folder_.write("std.ldf", bytes_of(0, n_ids, "")).c_str());
  }

  bool is_whole(const _kp_LOG_definition_ref& entry, unsigned id) const {
    return entry && entry->get_entry_id() == id && entry->get_n_attributes() >= 1 &&
           entry->_find_attr_entry_by_name(name_of(id).c_str()) != nullptr;
  }

  temp_folder folder_;
  _kp_LOG_log_definition_tbl table_;
};

TEST_F(DefinitionThreads, FourLookUpMoreEntryTypesThanTheCacheHolds) {
  std::atomic<unsigned> wrong{0};
  in_threads(4, [&](unsigned thread) {
    for (unsigned i = 0; i < 20 * n_ids; ++i) {
      const unsigned id = (i * (2 * thread + 1) + 40 * thread) % n_ids;
      if (!is_whole(table_.acquire_entry(id), id)) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(table_.n_entry_definitions_cached, 128U);
}

// Some definitions are held while others are looked up, so that a few are in use when they are
// asked for again.
TEST_F(DefinitionThreads, WhatLeavesTheCacheComesBackToAllOfThem) {
  constexpr unsigned count = 1000;
  const std::string path = folder_.write("many.ldf", bytes_of(0, count, ""));
  let_grow_old(path);
  table_.set_precompiled_definition_file_path(path.c_str());
  std::atomic<unsigned> wrong{0};
  in_threads(4, [&](unsigned thread) {
    std::array<_kp_LOG_definition_ref, 16> held;
    unsigned id = thread;
    for (unsigned i = 0; i < 6 * count; ++i) {
      id = (thread % 2 == 0 ? id + 1 : id * 1103515245 + 12345) % count;
      held[i % held.size()] = table_.acquire_entry(id);
      if (!is_whole(held[i % held.size()], id)) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(table_.n_entry_definitions_cached, 128U);
}

TEST_F(DefinitionThreads, RawPointersOfAPopulationThatFitsTheCacheStayGood) {
  std::atomic<unsigned> wrong{0};
  in_threads(4, [&](unsigned thread) {
    for (unsigned i = 0; i < 20 * 128; ++i) {
      const unsigned id = (i + 32 * thread) % 128;
      const _kp_LOG_log_definition* const found = table_.find_entry(id);
      if (found == nullptr || found->get_entry_id() != id) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(table_.n_entry_definitions_cached, 128U);
}

TEST_F(DefinitionThreads, UnknownIdsAreUnknownToAll) {
  std::atomic<unsigned> found{0};
  in_threads(4, [&](unsigned) {
    for (unsigned id = n_ids; id < n_ids + 500; ++id)
      if (table_.find_entry(id) != nullptr) ++found;
  });
  EXPECT_EQ(found, 0U);
}

TEST_F(DefinitionThreads, HoldersKeepTheirDefinitionsWhileOthersReplaceThem) {
  std::atomic<unsigned> wrong{0};
  in_threads(4, [&](unsigned thread) {
    for (unsigned round = 0; round < 10; ++round) {
      const _kp_LOG_definition_ref held = table_.acquire_entry(thread);
      for (unsigned i = 0; i < n_ids; ++i) table_.acquire_entry((i + 40 * thread) % n_ids);
      if (!is_whole(held, thread)) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0U);
}

TEST_F(DefinitionThreads, TheLastHolderOutlivesTheTablesFiles) {
  std::vector<_kp_LOG_definition_ref> held;
  for (unsigned id = 0; id < n_ids; ++id) held.push_back(table_.acquire_entry(id));
  table_.clear();
  std::atomic<unsigned> wrong{0};
  in_threads(4, [&](unsigned thread) {
    for (unsigned id = thread; id < n_ids; id += 4) {
      if (!is_whole(held[id], id)) ++wrong;
      held[id] = _kp_LOG_definition_ref();
    }
  });
  EXPECT_EQ(wrong, 0U);
}

TEST_F(DefinitionThreads, ReadersSeeADeclarationWholeOrNotAtAll) {
  const _kp_LOG_definition_ref entry = table_.acquire_entry(1);
  std::atomic<unsigned> wrong{0};
  std::atomic<bool> done{false};
  std::thread declarer([&] {
    bool found = false;
    for (unsigned i = 0; i < 200; ++i)
      if (!table_.declare_attribute(1, ("NEW_" + std::to_string(i)).c_str(), 9, found)) ++wrong;
    done = true;
  });
  in_threads(3, [&](unsigned) {
    for (unsigned next = 0; next < 200 && wrong == 0;) {
      const bool was_done = done;
      const auto* const seen =
          entry->get_attr_info_by_name(("NEW_" + std::to_string(next)).c_str());
      if (seen != nullptr && seen->get_type() != 9) ++wrong;
      if (seen == nullptr && was_done) ++wrong;
      if (seen != nullptr) ++next;
      if (!is_whole(entry, 1)) ++wrong;
    }
  });
  declarer.join();
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(entry->get_n_attributes(), 201);
}

TEST_F(DefinitionThreads, EachNameIsDeclaredOnceWhileOthersReplaceTheDefinition) {
  let_grow_old(folder_.file("std.ldf"));
  std::atomic<unsigned> declared{0};
  std::atomic<unsigned> wrong{0};
  in_threads(4, [&](unsigned thread) {
    for (unsigned i = 0; i < 100; ++i) {
      bool found = false;
      if (thread < 2)
        declared += table_.declare_attribute(1, ("NEW_" + std::to_string(i)).c_str(), 9, found);
      for (unsigned id = 0; id < n_ids; ++id)
        if (!is_whole(table_.acquire_entry((id + 40 * thread) % n_ids), (id + 40 * thread) % n_ids))
          ++wrong;
    }
  });
  EXPECT_EQ(declared, 100U);
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(table_.acquire_entry(1)->get_n_attributes(), 101);
}

TEST_F(DefinitionThreads, AnAuxFileIsMergedWhileOthersLookUp) {
  const std::string path = folder_.write("aux.ldf", bytes_of(0, n_ids, "_AUX"));
  std::atomic<bool> done{false};
  std::atomic<unsigned> wrong{0};
  std::thread setter([&] {
    table_.set_precompiled_aux_definition_file_path(path.c_str());
    done = true;
  });
  in_threads(2, [&](unsigned thread) {
    for (unsigned id = 1000 * (thread + 1); !done; ++id)
      if (table_.find_entry(id) != nullptr) ++wrong;
  });
  setter.join();
  EXPECT_EQ(wrong, 0U);
  EXPECT_NE(table_.find_entry(0), nullptr);
}

// Runs `change` while four threads acquire IDs below `count`, more of them than the cache holds.
// Returns how many of those look-ups found nothing.
template <class Change>
static unsigned missed_while(_kp_LOG_log_definition_tbl& table, unsigned count, Change change) {
  std::atomic<bool> done{false};
  std::atomic<unsigned> missed{0};
  std::thread changer([&] {
    change();
    done = true;
  });
  in_threads(4, [&](unsigned thread) {
    for (unsigned id = thread * count / 4; !done; id = (id + 1) % count)
      if (!table.acquire_entry(id)) ++missed;
  });
  changer.join();
  return missed;
}

TEST_F(DefinitionThreads, AnAuxFileIsMergedWhileOthersReplaceTheSameEntryTypes) {
  constexpr unsigned count = 400;
  const std::string std_path = folder_.write("many.ldf", bytes_of(0, count, ""));
  const std::string aux_path = folder_.write("aux.ldf", bytes_of(0, count, "_AUX"));
  let_grow_old(std_path);
  let_grow_old(aux_path);
  for (unsigned round = 0; round < 5; ++round) {
    table_.set_precompiled_definition_file_path(std_path.c_str());
    EXPECT_EQ(
        missed_while(table_, count,
                     [&] { table_.set_precompiled_aux_definition_file_path(aux_path.c_str()); }),
        0U);
    for (unsigned id = 0; id < count; ++id) {
      const auto* const found = table_.find_entry(id);
      ASSERT_NE(found, nullptr);
      EXPECT_NE(found->_find_attr_entry_by_name((name_of(id) + "_AUX").c_str()), nullptr) << id;
    }
  }
}

TEST_F(DefinitionThreads, AnStdFileIsSetWhileOthersLookUp) {
  const std::string path = folder_.write("new.ldf", bytes_of(0, 400, ""));
  let_grow_old(path);
  const auto set_it = [&] { table_.set_precompiled_definition_file_path(path.c_str()); };
  for (unsigned round = 0; round < 5; ++round) missed_while(table_, 400, set_it);
  EXPECT_TRUE(is_whole(table_.acquire_entry(399), 399));
  _kp_LOG_log_definition_tbl fresh;  // whose locations have no room yet
  missed_while(fresh, 400, [&] { fresh.set_precompiled_definition_file_path(path.c_str()); });
  EXPECT_TRUE(is_whole(fresh.acquire_entry(399), 399));
}
