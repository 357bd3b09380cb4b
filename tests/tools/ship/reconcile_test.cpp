#include "tools/ship/reconcile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char* day = "20261115";

// What is told of differences, a text for each.
static std::vector<std::string> told_of(const told_counts& told) {
  std::vector<std::string> texts;
  for (const count_difference& one : differences_of(told))
    texts.push_back(one.key.day + " " + std::to_string(one.key.event) + ": " + text_of(one));
  return texts;
}

TEST(Reconcile, NamesDaysAndEventsThatDiffer) {
  told_counts told{.engine = {{{day, 1}, 5}, {{day, 2}, 7}},
                   .journal = {{{day, 1}, 5}, {{day, 2}, 7}},
                   .whole_days = {day},
                   .counters = day_counts{{{day, 1}, 5}, {{day, 2}, 7}}};
  EXPECT_THAT(told_of(told), IsEmpty());
  told.engine[{day, 2}] = 6;
  told.engine[{"20261116", 1}] = 1;
  EXPECT_THAT(told_of(told), ElementsAre("20261115 2: 7 counted, 7 in the journal, 6 in the engine",
                                         "20261116 1: 0 counted, 1 in the engine"));
  told.counters.reset();
  EXPECT_THAT(told_of(told), ElementsAre("20261115 2: 7 in the journal, 6 in the engine"));
}

TEST(Reconcile, AJournalThatHasLostSegmentsMayHaveLess) {
  told_counts told{
      .engine = {{{day, 1}, 5}}, .journal = {{{day, 1}, 3}}, .whole_days = {}, .counters = {}};
  EXPECT_THAT(told_of(told), IsEmpty());
  told.counters = day_counts{{{day, 1}, 5}};
  EXPECT_THAT(told_of(told), IsEmpty());
  told.journal[{day, 1}] = 6;  // but not more
  EXPECT_THAT(told_of(told),
              ElementsAre("20261115 1: 5 counted, 6 in the journal, 5 in the engine"));
  told.journal[{day, 1}] = 3;
  told.whole_days = {day};
  EXPECT_THAT(told_of(told),
              ElementsAre("20261115 1: 5 counted, 3 in the journal, 5 in the engine"));
}

TEST(Reconcile, LostEventsAreInNoCounterFile) {
  told_counts told{.engine = {{{day, 0}, 2}},
                   .journal = {{{day, 0}, 2}},
                   .whole_days = {day},
                   .counters = day_counts{}};
  EXPECT_THAT(told_of(told), IsEmpty());
  told.engine.clear();
  EXPECT_THAT(told_of(told), ElementsAre("20261115 0: 2 in the journal, 0 in the engine"));
}
