#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "kp_LOG.h"
#include "logging/logcfg_file.h"
#include "tests/support/failing.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

static constexpr unsigned debug_bit = 0x04000000;

// Entry kinds by their property mask: 11 has 0x3, 12 has 0x4, 13 is a debug entry with 0x1, 14 has
// no property, 15 is a debug entry and nothing else.
class EntryFilter : public testing::Test {
 protected:
  EntryFilter() {
    ldf_file definitions;
    for (const auto& [id, flags] : {std::pair(11U, 0x3U),
                                    {12U, 0x4U},
                                    {13U, debug_bit | 0x1U},
                                    {14U, 0U},
                                    {15U, debug_bit}}) {
      ldf_entry kind;
      kind.id = id;
      kind.flags = flags;
      definitions.entries.push_back(kind);
    }
    kp_LOG_LogConfig::SetDefinitionPath(folder_.write("kinds.ldf", definitions.bytes()).c_str());
  }

  // Sets a configuration file with these lines.
  void configure(const std::string& lines) {
    const std::string path =
        folder_.write("c" + std::to_string(++n_sources_) + ".cfg", lines + "[]\n\n\n");
    kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
  }

  temp_folder folder_;
  settings_guard settings_;
  int n_sources_ = 0;
};

struct filter_call {
  unsigned calls = 0, entry_id = 0, property_mask = 0, log_level = 0;
  const kp_LOG_LogEntry* entry = nullptr;
  bool answer = true;
};

static bool note_call(unsigned entry_id, unsigned property_mask, unsigned log_level,
                      const kp_LOG_LogEntry& entry, void* user_data) {
  filter_call& call = *static_cast<filter_call*>(user_data);
  call = {call.calls + 1, entry_id, property_mask, log_level, &entry, call.answer};
  return call.answer;
}

// The levels, of 0 to 9, with which entries of that kind pass.
static std::string passing_levels(const _kp_LOG_entry_filter& filter, unsigned entry_id) {
  std::string levels;
  for (unsigned level = 0; level <= 9; ++level)
    if (filter.check_entry(kp_LOG_LogEntry(entry_id, level))) levels += std::to_string(level);
  return levels;
}

// --- Without a configuration source ---

TEST_F(EntryFilter, NewFilterPassesEveryLevelAndEveryProperty) {
  const _kp_LOG_entry_filter filter;
  for (unsigned id : {11U, 12U, 13U, 15U})
    EXPECT_EQ(passing_levels(filter, id), "0123456789") << id;
}

TEST_F(EntryFilter, NewFilterRejectsAnEntryWithoutAnyProperty) {
  const _kp_LOG_entry_filter filter;
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(14, 5)));
}

TEST_F(EntryFilter, MaskNeedsOneSharedBit) {
  _kp_LOG_entry_filter filter;
  filter.set_property_mask(0x1);
  filter.set_filter_log_level(0, 9);
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(12, 5)));
}

TEST_F(EntryFilter, MaskOfZeroRejectsEveryEntry) {
  _kp_LOG_entry_filter filter;
  filter.set_property_mask(0);
  for (unsigned id : {11U, 12U, 13U, 14U, 15U})
    EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(id, 5))) << id;
}

TEST_F(EntryFilter, BothBoundsOfTheRangePass) {
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(3, 6);
  EXPECT_EQ(passing_levels(filter, 11), "3456");
}

TEST_F(EntryFilter, LevelTenIsRefusedOnEitherSideAndKeepsTheRange) {
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(4, 5);
  const std::string text =
      "_kp_LOG_entry_filter::set_filter_log_level():  illegal log level specified.";
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([&] { filter.set_filter_log_level(3, 10); }),
            text);
  EXPECT_EQ(raised<KPX_logging_invalid_log_level>([&] { filter.set_filter_log_level(10, 3); }),
            text);
  EXPECT_EQ(passing_levels(filter, 11), "45");
}

TEST_F(EntryFilter, LowAboveHighIsAcceptedAndLetsNoLevelPass) {
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(7, 2);
  EXPECT_EQ(passing_levels(filter, 11), "");
}

TEST_F(EntryFilter, CallbackIsGivenTheEntryAndTheUserData) {
  _kp_LOG_entry_filter filter;
  filter_call call;
  filter.set_callback(note_call, &call);
  const kp_LOG_LogEntry entry(12, 7);
  EXPECT_TRUE(filter.check_entry(entry));
  EXPECT_EQ(call.calls, 1U);
  EXPECT_EQ(call.entry_id, 12U);
  EXPECT_EQ(call.property_mask, 0x4U);
  EXPECT_EQ(call.log_level, 7U);
  EXPECT_EQ(call.entry, &entry);
}

TEST_F(EntryFilter, CallbackIsAskedBeforeLevelAndMaskThatRefuse) {
  _kp_LOG_entry_filter filter;
  filter_call call;
  filter.set_callback(note_call, &call);
  filter.set_filter_log_level(0, 3);
  filter.set_property_mask(0);
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 9)));
  EXPECT_EQ(call.calls, 1U);
}

TEST_F(EntryFilter, CallbackThatAnswersNoRejects) {
  _kp_LOG_entry_filter filter;
  filter_call call;
  call.answer = false;
  filter.set_callback(note_call, &call);
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
}

TEST_F(EntryFilter, NullCallbackRemovesTheCallersTest) {
  _kp_LOG_entry_filter filter;
  filter_call call;
  call.answer = false;
  filter.set_callback(note_call, &call);
  filter.set_callback(nullptr, nullptr);
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
  EXPECT_EQ(call.calls, 0U);
}

TEST_F(EntryFilter, ErrorOfTheCallbackReachesTheCaller) {
  _kp_LOG_entry_filter filter;
  filter.set_callback([](unsigned, unsigned, unsigned, const kp_LOG_LogEntry&,
                         void*) -> bool { throw std::runtime_error("not today"); },
                      nullptr);
  EXPECT_THROW(filter.check_entry(kp_LOG_LogEntry(11, 5)), std::runtime_error);
}

TEST_F(EntryFilter, DebugEntryWithoutASourceIsFilteredLikeAnyOther) {
  _kp_LOG_entry_filter filter;
  filter_call call;
  filter.set_callback(note_call, &call);
  filter.set_property_mask(0x2);
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(13, 5)));
  EXPECT_EQ(call.calls, 1U);
  filter.set_property_mask(debug_bit);
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(13, 5)));
}

TEST_F(EntryFilter, EntryWithoutAKindHasNoPropertyToShare) {
  const _kp_LOG_entry_filter filter;
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry()));
}

// --- With a configuration source ---

TEST_F(EntryFilter, LevelsOfTheSectionReplaceTheRangeForOneCheck) {
  configure("[s]\nLogLevelLow=2\nLogLevelHigh=4\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_filter_log_level(5, 9);
  EXPECT_EQ(passing_levels(filter, 11), "234");

  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
  EXPECT_EQ(passing_levels(filter, 11), "56789");
}

TEST_F(EntryFilter, AbsentKeysLeaveTheFiltersOwnValues) {
  configure("[s]\nLogLevelLow=6\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_filter_log_level(0, 7);
  filter.set_property_mask(0x1);
  EXPECT_EQ(passing_levels(filter, 11), "67");
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(12, 7)));
}

TEST_F(EntryFilter, ConfiguredLevelsAreNotRangeChecked) {
  configure("[s]\nLogLevelLow=0\nLogLevelHigh=4000000000\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_filter_log_level(0, 0);
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(11, 9)));
}

TEST_F(EntryFilter, ConfiguredLevelsCompareUnsigned) {
  configure("[s]\nLogLevelLow=0xFFFFFFFF\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 9)));
}

TEST_F(EntryFilter, ConfiguredMaskReplacesTheField) {
  configure("[s]\nPropertyMask=0x4\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_property_mask(0x1);
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(12, 5)));
}

TEST_F(EntryFilter, ConfiguredMaskOfZeroRejectsAllButPassingDebugEntries) {
  configure("[s]\nPropertyMask=0\nDebugEnabled=1\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(14, 5)));
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(13, 5)));
}

TEST_F(EntryFilter, EnabledDebugEntryPassesCallbackAndMaskButNotTheRange) {
  configure("[s]\nDebugEnabled=1\nDebugLogLevelLow=3\nDebugLogLevelHigh=5\nPropertyMask=0x2\n");
  _kp_LOG_entry_filter filter;
  filter_call call;
  call.answer = false;
  filter.set_section("s");
  filter.set_callback(note_call, &call);
  filter.set_property_mask(0);
  EXPECT_EQ(passing_levels(filter, 15), "345");
  EXPECT_EQ(call.calls, 0U);
}

TEST_F(EntryFilter, EveryValueButZeroEnablesDebug) {
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_property_mask(0);
  configure("[s]\nDebugEnabled=0\n");
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(15, 5)));
  configure("[s]\nDebugEnabled=2\n");
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(15, 5)));
}

TEST_F(EntryFilter, DisabledDebugEntryTakesTheDebugRangeAndNeedsMaskAndCallback) {
  configure("[s]\nLogLevelLow=0\nLogLevelHigh=9\nDebugLogLevelLow=7\nDebugLogLevelHigh=8\n");
  _kp_LOG_entry_filter filter;
  filter_call call;
  filter.set_section("s");
  filter.set_callback(note_call, &call);
  EXPECT_EQ(passing_levels(filter, 13), "78");
  EXPECT_EQ(call.calls, 10U);

  filter.set_property_mask(0x2);
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(13, 7)));
  filter.set_property_mask(0x1);
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(13, 7)));
  call.answer = false;
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(13, 7)));
}

TEST_F(EntryFilter, DebugRangeMayReplaceOneBoundOnly) {
  configure("[s]\nLogLevelLow=4\nLogLevelHigh=6\nDebugLogLevelHigh=8\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_EQ(passing_levels(filter, 13), "45678");
}

TEST_F(EntryFilter, DebugRangeIsNotForOtherEntries) {
  configure("[s]\nDebugEnabled=1\nDebugLogLevelLow=8\nDebugLogLevelHigh=8\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(11, 2)));
}

TEST_F(EntryFilter, FindingsAreMadeAnewForEachEntry) {
  configure("[s]\nDebugEnabled=1\nPropertyMask=0\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(13, 5)));
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(13, 5)));
}

TEST_F(EntryFilter, SectionGlobalStandsInForAnotherSection) {
  configure("[global]\nLogLevelHigh=3\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_EQ(passing_levels(filter, 11), "0123");
}

TEST_F(EntryFilter, NullSectionIsAskedForAsTheEmptyOne) {
  configure("[global]\nLogLevelHigh=3\n");
  const _kp_LOG_entry_filter filter;
  EXPECT_EQ(passing_levels(filter, 11), "0123");
}

TEST_F(EntryFilter, NewSourceTakesEffectAtTheNextCheck) {
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  configure("[s]\nLogLevelHigh=3\n");
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 4)));
  configure("[s]\nLogLevelHigh=4\n");
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(11, 4)));
}

TEST_F(EntryFilter, ErrorOfTheConfigurationReachesTheCaller) {
  const std::string settings = "[s]\nDebugEnabled=1\nLogLevelHigh=3\nPropertyMask=0x1\n";
  const kp_LOG_LogEntry entry(11, 3);
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  bool passed = false;
  configure(settings);
  const unsigned failures =
      for_each_failing_new([&] { passed = filter.check_entry(entry); },
                           [&](const std::exception_ptr& outcome) {
                             expect_memory_alloc(outcome);
                             configure(settings);  // the next check reads them anew
                           });
  EXPECT_GT(failures, 0U);
  EXPECT_TRUE(passed);
}

// --- The order of reading: a callback that replaces the source tells which keys are read when. A
// source is parsed at its first look-up, which _kp_LOG_file_configuration::bCfgReaded shows. ---

struct source_swap {
  std::string path;
  bool answer;
};

static bool swap_source(unsigned, unsigned, unsigned, const kp_LOG_LogEntry&, void* user_data) {
  const source_swap& swap = *static_cast<const source_swap*>(user_data);
  kp_LOG_LogConfig::SetConfigurationSource(swap.path.c_str(), KP_CONFIG_FILE);
  return swap.answer;
}

TEST_F(EntryFilter, NoKeyIsReadAfterACallbackThatAnswersNo) {
  configure("[s]\nLogLevelHigh=9\n");
  source_swap swap = {folder_.write("after.cfg", "[s]\nLogLevelHigh=9\n[]\n\n"), false};
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_callback(swap_source, &swap);
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 5)));
  EXPECT_EQ(_kp_LOG_file_configuration::bCfgReaded, 0U);
}

TEST_F(EntryFilter, DebugIsReadBeforeTheCallbackAndLevelsAfterIt) {
  configure("[s]\nDebugEnabled=0\nLogLevelHigh=9\n");
  source_swap swap = {
      folder_.write("after.cfg", "[s]\nDebugEnabled=1\nPropertyMask=0\nLogLevelHigh=6\n[]\n\n"),
      true};
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  filter.set_callback(swap_source, &swap);
  EXPECT_FALSE(
      filter.check_entry(kp_LOG_LogEntry(13, 6)));  // debug stays disabled: the mask counts
  EXPECT_NE(_kp_LOG_file_configuration::bCfgReaded, 0U);
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(13, 6)));  // now enabled
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(13, 7)));
}

TEST_F(EntryFilter, RefusedLevelEndsTheCheckBeforeTheMaskIsLookedAt) {
  configure("[s]\nLogLevelHigh=2\nPropertyMask=0xFFFFFFFF\n");
  _kp_LOG_entry_filter filter;
  filter.set_section("s");
  EXPECT_FALSE(filter.check_entry(kp_LOG_LogEntry(11, 3)));
}

// --- The tests by themselves ---

TEST_F(EntryFilter, PartsAnswerOnTheirOwn) {
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(2, 4);
  filter.set_property_mask(0x2);
  const kp_LOG_LogEntry inside(11, 4);
  const kp_LOG_LogEntry outside(12, 5);
  EXPECT_TRUE(filter._check_entry_by_callback(outside));
  EXPECT_TRUE(filter._check_entry_by_log_level(inside._get_imp()));
  EXPECT_FALSE(filter._check_entry_by_log_level(outside._get_imp()));
  EXPECT_TRUE(filter._check_entry_by_property_mask(inside._get_imp()));
  EXPECT_FALSE(filter._check_entry_by_property_mask(outside._get_imp()));
}

TEST_F(EntryFilter, CopyOfAFilterIsIndependent) {
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(0, 3);
  const _kp_LOG_entry_filter copy = filter;
  filter.set_filter_log_level(0, 9);
  EXPECT_FALSE(copy.check_entry(kp_LOG_LogEntry(11, 4)));
  EXPECT_TRUE(filter.check_entry(kp_LOG_LogEntry(11, 4)));
}

// --- Cost ---

TEST_F(EntryFilter, CheckAllocatesNothing) {
  configure("[s]\nDebugEnabled=1\nLogLevelLow=1\nDebugLogLevelHigh=9\nPropertyMask=0x1\n");
  _kp_LOG_entry_filter filter;
  filter_call call;
  filter.set_section("s");
  filter.set_callback(note_call, &call);
  const kp_LOG_LogEntry plain(11, 5);
  const kp_LOG_LogEntry debug(13, 5);
  EXPECT_TRUE(filter.check_entry(plain));  // the first look-up reads the file
  const failing_new fault(1, from_then_on);
  EXPECT_TRUE(filter.check_entry(plain));
  EXPECT_TRUE(filter.check_entry(debug));
  EXPECT_FALSE(fault.met());
}
