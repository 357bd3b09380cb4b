// The formatters that a thread keeps: what may change under them, and memory that ICU does not get.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "kp_LOG_RenderMessage.h"
#include "tests/support/failing.h"
#include "tests/support/icu_setting.h"
#include "tests/support/message_entry.h"
#include "tests/support/plain_message.h"

// The text, or what stands for a failed allocation.
constexpr char no_memory[] = "no memory";

static std::string rendered(const message_entry& entry) {
  try {
    return entry.unicode();
  } catch (const KPX_memory_alloc&) {
    return no_memory;
  }
}

static void in_a_fresh_thread(const std::function<void()>& work) {
  std::thread(work).join();
}

// --- The time zone ------------------------------------------------------------------------------

static void set_zone(const char* id) {
  icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(id));
}

// Another thread does it, in the middle of an allocation of this one. ICU may hold the lock on its
// default zone here: then the change comes as soon as the allocation is over.
static std::future<void> change_zone_elsewhere() {
  std::future<void> change = std::async(std::launch::async, [] { set_zone("Asia/Tokyo"); });
  change.wait_for(std::chrono::milliseconds(20));
  return change;
}

// Renders for the first time in this thread while the zone changes at ICU's n-th allocation, and
// again with the zone as before. False when there are fewer allocations.
static bool renders_across_a_change(const message_entry& entry, unsigned n, std::string& after) {
  std::future<void> change;
  {
    unsigned left = n;
    const icu_allocations allocations([&] {
      if (left != 0 && --left == 0) change = change_zone_elsewhere();
      return false;
    });
    entry.unicode();
  }
  if (!change.valid()) return false;
  change.get();
  set_zone("UTC");
  after = entry.unicode();
  return true;
}

TEST(MessageFormats, AZoneThatChangesWhileTheyAreMadeIsNotMistakenForTheOneBefore) {
  const environment_value tz("TZ", "UTC");
  const icu_zone_setting zone("UTC");
  message_entry entry("%T%STAMP%");
  entry->add_attrib_time("STAMP", kp_Time(2026, 1, 2, 3, 4, 5));
  unsigned n = 1;
  for (bool changed = true; changed; ++n) {
    // One for which the process has no formatter yet.
    const icu_locale_setting locale(("de_DE_NUMBER" + std::to_string(n)).c_str());
    in_a_fresh_thread([&] {
      std::string after;
      changed = renders_across_a_change(entry, n, after);
      EXPECT_EQ(after, changed ? "03:04:05" : "") << "changed at allocation " << n;
    });
  }
  EXPECT_GT(n, 20U);
}

TEST(MessageFormats, ALocaleThatNamesAZoneKeepsIt) {
  const icu_locale_setting locale("de_DE@timezone=Japan");
  const environment_value tz("TZ", "UTC");
  message_entry entry("%T%STAMP%");
  entry->add_attrib_time("STAMP", kp_Time(2026, 1, 2, 3, 4, 5));
  for (const char* id : {"UTC", "America/New_York", "UTC"}) {
    const icu_zone_setting zone(id);
    EXPECT_EQ(entry.unicode(), "12:04:05");
    EXPECT_EQ(plain_message(*entry).render(u"%T%STAMP%"), u"12:04:05");
  }
}

// --- Memory -------------------------------------------------------------------------------------

// Which of ICU's allocations fail: `count` of them, from the n-th. Texts that grow try twice.
struct fault_range {
  unsigned n;
  unsigned count;
};

// Renders in a fresh thread with allocations failing, and then without a failure. It is sound when
// the text is right or KPX_memory_alloc the first time, and right from then on.
static fault_outcome rendering_without_memory(message_entry& entry, fault_range faults,
                                              const std::string& right) {
  bool met = false;
  bool is_sound = false;
  in_a_fresh_thread([&] {
    std::string during;
    {
      const failing_icu fault(faults.n, faults.count);
      during = rendered(entry);
      met = fault.met();
    }
    is_sound = (during == right || during == no_memory) && rendered(entry) == right &&
               kp_LOG_RenderMessage(*entry) == right;
  });
  if (!met) return fault_outcome::none_left;
  return is_sound ? fault_outcome::sound : fault_outcome::unsound;
}

class MessageFormatsFaults : public testing::TestWithParam<const char*> {};

TEST_P(MessageFormatsFaults, AFailedAllocationOfIcuIsRaisedAndLeavesNothingDefective) {
  const icu_locale_setting locale("en_US");
  const environment_value tz("TZ", "UTC");
  message_entry entry(GetParam());
  entry->add_attrib_str("TEXT", "a text", true);
  entry->add_attrib_4("S4", -1234);
  entry->add_attrib_float8("REAL", 2.5);
  entry->add_attrib_time("STAMP", kp_Time(2026, 1, 2, 3, 4, 5));
  // ICU has read its data then, and the library has made nothing of it yet.
  std::string right;
  plain_message(*entry).render(GetParam()).toUTF8String(right);
  for (const unsigned count : {1U, 2U}) {
    unsigned sound = 0;
    fault_outcome outcome = fault_outcome::sound;
    for (unsigned n = 1; outcome != fault_outcome::none_left; n += fault_step) {
      outcome = in_a_child([&] { return rendering_without_memory(entry, {n, count}, right); });
      ASSERT_NE(outcome, fault_outcome::unsound) << count << " without memory from " << n;
      if (outcome == fault_outcome::sound) ++sound;
    }
    EXPECT_GT(sound, 0U);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, MessageFormatsFaults,
    testing::Values("a literal text that is longer than what fits inside the object %s%TEXT%",
                    "a literal text that is longer than what fits inside the object %d%S4%",
                    "%f%REAL% and %C%REAL%", "%D%STAMP%", "{0,number} and %d%S4%"));

TEST(MessageFormatsMemory, AConverterWithoutMemoryIsNotTakenForAnUnknownCodePage) {
  message_entry entry("[%s%TEXT%");
  entry->add_attrib_str("TEXT", "h\xe9llo", true);
  {
    // ICU reads its table of names once, and for good: without memory for it, or with.
    const code_page_setting other("windows-1251");
    EXPECT_EQ(entry.unicode(), "[hйllo");
  }
  const code_page_setting setting("windows-1252");
  {
    const failing_icu none(1, from_then_on);
    EXPECT_EQ(rendered(entry), no_memory);
    EXPECT_THROW(kp_LOG_RenderMessage(*entry), KPX_memory_alloc);
  }
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "[h\xe9llo");
}

TEST(MessageFormatsMemory, ATemplatesNamesAreReadAgainOnceThereIsMemory) {
  message_entry entry("%s%MBTEXT%");
  entry.unicode();  // the process keeps its choice of UTF-8 for the names
  entry.use_template("%s%TEXT%");
  in_a_fresh_thread([&] {
    {
      const failing_icu none(1, from_then_on);
      EXPECT_EQ(rendered(entry), no_memory);
    }
    EXPECT_EQ(rendered(entry), "");
  });
}
