// Every operation on entries, with each of its allocations failing in turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "kp_LOG_LogEntry.h"
#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "tests/support/failing.h"
#include "tests/support/loaded_definitions.h"

using entry_t = _kp_LOG_log_entry_imp;

static constexpr const char* end_of_list = nullptr;
static const std::string long_value(2000, 'x');
static const std::string long_name = "AN_ATTRIBUTE_NAME_OF_MORE_THAN_THIRTY_TWO_BYTES";

// Entry type 17 with every type and a long name, and 9, which says the version.
static ldf_file definitions_for_failures() {
  ldf_file file = ldf_with_every_type("text");
  file.entries[0].attributes.push_back({long_name, TypeChar2K});
  file.entries.push_back({.id = 9});
  return file;
}

// As many attributes as an entry has room for inside.
static void fill_room_inside(entry_t& entry) {
  entry.add_attrib_1u("A2", 1);
  entry.add_attrib_1("A3", 1);
  entry.add_attrib_2u("A4", 1);
  entry.add_attrib_2("A5", 1);
  entry.add_attrib_4("A7", 1);
  for (const char* name : {"A10", "A11", "A12"}) entry.add_attrib_str(name, "text", true);
}

// Runs `op` on entries without and with the attributes that it adds, and on one that needs memory
// for any further attribute; whatever allocation fails, the entry can be read and cleared
// afterwards and `op` succeeds when repeated.
static unsigned expect_survives(const std::function<void(entry_t&)>& op) {
  unsigned failures = 0;
  const std::function<void(entry_t&)> nothing = [](entry_t&) {};
  for (const auto& filling : {nothing, op, std::function<void(entry_t&)>(fill_room_inside)}) {
    entry_t entry(17, 5);
    filling(entry);
    failures += for_each_failing_new([&] { op(entry); },
                                     [&](const std::exception_ptr& outcome) {
                                       expect_memory_alloc(outcome);
                                       EXPECT_EQ(entry.get_entry_id(), 17U);
                                       entry.clear_attribs(true);
                                       filling(entry);
                                     });
    op(entry);
  }
  return failures;
}

TEST(EntryAllocationFailures, AddingAttributes) {
  const loaded_definitions definitions(definitions_for_failures());
  action_on_exceed = 1;
  const std::function<void(entry_t&)> adds[] = {
      [](entry_t& e) { e.add_attrib_bool("A1", true); },
      [](entry_t& e) { e.add_attrib_4u("A6", 1); },
      [](entry_t& e) { e.add_attrib_float8("A8", 1); },
      [](entry_t& e) { e.add_attrib_time("A21", kp_Time()); },
      [](entry_t& e) { e.add_attrib_str("A9", "short", true); },
      [](entry_t& e) { e.add_attrib_str("A14", long_value.c_str(), true); },
      [](entry_t& e) { e.add_attrib_str("A9", long_value.c_str(), true); },
      [](entry_t& e) { e.add_attrib_str(long_name.c_str(), long_value.c_str(), true); },
      [](entry_t& e) { e.add_attrib_mbstr("A15", "short\n", true); },
      [](entry_t& e) { e.add_attrib_mbstr("A20", long_value.c_str(), true); },
      [](entry_t& e) { e.add_attrib_mbstr("A15", long_value.c_str(), true); },
      [](entry_t& e) { e.set_computer_info("host"); },
      [](entry_t& e) { e.set_timestamp(kp_Time(), false); }};
  for (const auto& add : adds) EXPECT_GE(expect_survives(add), 1U);
}

TEST(EntryAllocationFailures, AFailedAddLeavesTheHeldValue) {
  const loaded_definitions definitions(definitions_for_failures());
  entry_t entry(17, 5);
  entry.add_attrib_str("A14", "before", true);
  const unsigned failures =
      for_each_failing_new([&] { entry.add_attrib_str("A14", long_value.c_str(), true); },
                           [&](const std::exception_ptr& outcome) {
                             expect_memory_alloc(outcome);
                             EXPECT_STREQ(entry.get_attrib_str("A14"), "before");
                           });
  EXPECT_GE(failures, 1U);
  EXPECT_EQ(entry.get_attrib_str("A14"), long_value);
}

TEST(EntryAllocationFailures, AFailedAddStoresNoHalfAttribute) {
  const loaded_definitions definitions(definitions_for_failures());
  entry_t entry(17, 5);
  for_each_failing_new([&] { entry.add_attrib_str(long_name.c_str(), long_value.c_str(), true); },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_FALSE(entry._holds(long_name.c_str()));
                       });
}

TEST(EntryAllocationFailures, AValueThatCannotBeTakenStaysTheCallers) {
  const loaded_definitions definitions(definitions_for_failures());
  entry_t entry(17, 5);
  auto value = std::make_unique<_kp_LOG_datatype<kp_String, TypeChar2K>>(long_value.c_str());
  const unsigned failures = for_each_failing_new([&] {
    entry._add_attribute(long_name.c_str(), value.get());
    value.release();
  });
  EXPECT_GE(failures, 1U);
  EXPECT_EQ(entry.get_attrib_str(long_name.c_str()), long_value);
}

TEST(EntryAllocationFailures, PlainAddsAllocateNothing) {
  const loaded_definitions definitions(definitions_for_failures());
  const kp_Time time(2026, 1, 1, 0, 0, 0, true);
  const std::string longest_inside(31, 'x');
  const std::function<void(entry_t&)> adds[] = {
      [](entry_t& e) { e.add_attrib_4u("A6", 1); },
      [&](entry_t& e) { e.add_attrib_time("A21", time); },
      [&](entry_t& e) { e.add_attrib_str("A9", longest_inside.c_str(), true); },
      [&](entry_t& e) { e.add_attrib_mbstr("A15", longest_inside.c_str(), true); },
      [](entry_t& e) { e.add_attrib_str("A9", "with\nbreak", true); }};
  entry_t first(17, 5);
  first.add_attrib_mbstr("A15", "opens a converter", true);
  for (const auto& add : adds) {
    entry_t entry(17, 5);
    EXPECT_EQ(for_each_failing_new([&] { add(entry); }), 0U);
    entry_t full(17, 5);
    fill_room_inside(full);
    full.remove_attrib("A12");
    EXPECT_EQ(for_each_failing_new([&] { add(full); }), 0U);
    EXPECT_EQ(for_each_failing_new([&] { full.add_attrib_bool("A1", true); }), 1U);
    EXPECT_EQ(for_each_failing_new([&] { full.add_attrib_1u("SEVERITY_CODE", 1); }), 0U);
  }
}

// The first entry takes the memory that the thread kept of an earlier one.
TEST(EntryAllocationFailures, AThreadMakesAnEntryInTheMemoryOfTheLastOne) {
  const loaded_definitions definitions(definitions_for_failures());
  const kp_LOG_LogEntry first(17, 5);
  kp_LOG_LogEntry(17, 5);
  EXPECT_EQ(for_each_failing_new([] { kp_LOG_LogEntry(17, 5); }), 0U);
  const kp_LOG_LogEntry second(17, 5);
  EXPECT_EQ(for_each_failing_new([] { kp_LOG_LogEntry(17, 5); }), 1U);
}

struct larger_entry : entry_t {
  larger_entry() : entry_t(17, 5) { std::fill(std::begin(own), std::end(own), 'x'); }
  char own[512];
};
struct alignas(64) aligned_entry : entry_t {
  aligned_entry() : entry_t(17, 5) {}
};

TEST(EntryAllocationFailures, ADerivedClassIsNotMadeInTheMemoryOfAnEntry) {
  const loaded_definitions definitions(definitions_for_failures());
  kp_LOG_LogEntry(17, 5);  // leaves its memory
  const std::unique_ptr<larger_entry> larger(new larger_entry);
  EXPECT_EQ(larger->own[511], 'x');
  for (int i = 0; i < 8; ++i) {
    kp_LOG_LogEntry(17, 5);
    const std::unique_ptr<aligned_entry> aligned(new aligned_entry);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(aligned.get()) % 64, 0U);
  }
}

TEST(EntryAllocationFailures, MakingHandles) {
  const loaded_definitions definitions(definitions_for_failures());
  const kp_LOG_LogEntry first(9, 0);  // in the memory that the thread kept
  const kp_LOG_LogEntry second(17, 5);
  std::optional<kp_LOG_LogEntry> made;
  EXPECT_EQ(for_each_failing_new([&] { made.emplace(); }), 1U);
  std::optional<kp_LOG_LogEntry> made_for_an_id;
  EXPECT_EQ(for_each_failing_new([&] { made_for_an_id.emplace(17, 5); }), 1U);
}

TEST(EntryAllocationFailures, CopyingEntries) {
  const loaded_definitions definitions(definitions_for_failures());
  kp_LOG_LogEntry source(17, 5);
  source.AddAttrib4u("A6", 1);
  source.AddAttribStr(long_name.c_str(), long_value.c_str());
  source.AddAttribMBStr("A20", long_value.c_str());
  std::optional<kp_LOG_LogEntry> copy;
  EXPECT_EQ(for_each_failing_new([&] { copy.emplace(source); }), 3U);  // in memory that was kept
  EXPECT_EQ(for_each_failing_new([&] { entry_t another(source._get_imp()); }), 3U);
}

TEST(EntryAllocationFailures, AFailedAssignmentLeavesAUsableEntry) {
  const loaded_definitions definitions(definitions_for_failures());
  kp_LOG_LogEntry source(17, 5);
  source.AddAttribStr(long_name.c_str(), long_value.c_str());
  source.AddAttribMBStr("A20", long_value.c_str());
  kp_LOG_LogEntry target(17, 1);
  target.AddAttribStr("A14", long_value.c_str());
  for_each_failing_new([&] { target = source; },
                       [&](const std::exception_ptr& outcome) {
                         expect_memory_alloc(outcome);
                         EXPECT_EQ(target.GetEntryID(), 17U);
                         EXPECT_FALSE(target._get_imp()._holds("A14"));
                         target.AddAttrib4u("A6", 1);
                       });
  EXPECT_EQ(target.GetAttribMBStr("A20"), long_value);
}

TEST(EntryAllocationFailures, SettingUpFromAList) {
  const loaded_definitions definitions(definitions_for_failures());
  kp_LOG_LogEntry entry(17, 5);
  EXPECT_GE(for_each_failing_new([&] {
              entry.SetEntry(17, 3, "A6", 5U, "A14", long_value.c_str(), "A20", long_value.c_str(),
                             "A23", "2026-11-15", end_of_list);
            }),
            1U);
  EXPECT_EQ(entry.GetAttribMBStr("A20"), long_value);
}

TEST(EntryAllocationFailures, DeclaringAttributes) {
  const loaded_definitions definitions(definitions_for_failures());
  kp_LOG_LogEntry entry(17, 5);
  const std::string own = long_name + "_OWN";
  const std::string global = long_name + "_GLOBAL";
  for (const auto& [id, name] : {std::pair(17U, own), std::pair(0U, global)}) {
    EXPECT_GE(for_each_failing_new(
                  [&, i = id, n = name.c_str()] {
                    kp_LOG_LogEntry::AddAttributeDefinition(i, n, TypeUInt4);
                  },
                  [&, n = name.c_str()](const std::exception_ptr& outcome) {
                    expect_memory_alloc(outcome);
                    kp_AttributeType type = TypeUnknown;
                    EXPECT_EQ(entry.CheckAttribute(n, type), -1);
                  }),
              1U);
    entry.AddAttrib4u(name.c_str(), 5);
  }
}

// Texts of errors are built on the way; without memory for them the error is the failed allocation.
TEST(EntryAllocationFailures, RaisingErrors) {
  const loaded_definitions definitions(definitions_for_failures());
  entry_t entry(17, 5);
  entry_t::global_operation_mode = 1;
  const std::function<void()> refused[] = {
      [&] { entry.add_attrib_4u("FOO", 1); },
      [&] { entry.add_attrib_4u("A9", 1); },
      [&] { entry.add_attrib_str(nullptr, "x", true); },
      [&] { entry.add_attrib_str("A9", long_value.c_str(), true); },
      [&] { entry.get_attrib_4u("A6"); },
      [&] { entry.set_log_level(10); },
      [&] { entry.remove_attrib(""); },
      [&] { entry_t(18, 0); }};
  for (const auto& op : refused) {
    bool reached_its_own_error = false;
    for (unsigned n = 1; !reached_its_own_error && n < 100; ++n) {
      const failing_new fault(n);
      try {
        op();
        ADD_FAILURE() << "nothing was raised";
      } catch (const KPX_memory_alloc& error) {
        EXPECT_EQ(error.get_message(), nullptr);
      } catch (const KPX_logging_all&) {
        reached_its_own_error = !fault.met();
      }
    }
    EXPECT_TRUE(reached_its_own_error);
  }
}

TEST(EntryAllocationFailures, RemovingAndClearingNeedNoMemory) {
  const loaded_definitions definitions(definitions_for_failures());
  entry_t entry(17, 5);
  entry.add_attrib_str("A14", long_value.c_str(), true);
  entry.add_attrib_str(long_name.c_str(), long_value.c_str(), true);
  const failing_new fault(1, from_then_on);
  entry.remove_attrib("A14");
  entry.clear_attribs(true);
  EXPECT_FALSE(fault.met());
}
