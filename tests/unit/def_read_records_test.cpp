// The record readers of a definition file, over streams.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "logging/def_read.h"
#include "tests/support/byte_stream.h"
#include "tests/support/failing.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;
using testing::IsEmpty;

// ---- whole records ----

TEST(RecordReading, AnAttributeHasNameTypeAndRedirection) {
  const kp_file file = stream_of(ldf_string("COLOUR") + ldf_int4(9) + ldf_string("TINT"));
  kp_String name, redirection;
  kp_AttributeType type = TypeUnknown;
  ASSERT_TRUE(_kp_LOG_read_attribute(file.get(), name, type, redirection));
  EXPECT_STREQ(name.c_str(), "COLOUR");
  EXPECT_EQ(type, TypeChar32);
  EXPECT_STREQ(redirection.c_str(), "TINT");
}

TEST(RecordReading, OnlyTheLowEightBitsOfATypeAreKept) {
  const kp_file file = stream_of(ldf_string("A") + ldf_int4(0xABCDEF02) + ldf_string(""));
  kp_String name, redirection;
  kp_AttributeType type = TypeUnknown;
  ASSERT_TRUE(_kp_LOG_read_attribute(file.get(), name, type, redirection));
  EXPECT_EQ(type, TypeUInt1);
}

TEST(RecordReading, ItemsBeforeTheOneThatFailsKeepTheirNewValues) {
  const kp_file file = stream_of(ldf_string("A") + ldf_int4(2) + "\0\0");
  kp_String name, redirection("before");
  kp_AttributeType type = TypeUnknown;
  EXPECT_FALSE(_kp_LOG_read_attribute(file.get(), name, type, redirection));
  EXPECT_STREQ(name.c_str(), "A");
  EXPECT_EQ(type, TypeUInt1);
  EXPECT_STREQ(redirection.c_str(), "before");
}

TEST(RecordReading, APropertyFlagHasNameAndValue) {
  const kp_file file = stream_of(ldf_string("AUDIT") + ldf_int4(0x80000001) + "x");
  kp_String name;
  unsigned flag = 0;
  ASSERT_TRUE(_kp_LOG_read_property_flag(file.get(), name, flag));
  EXPECT_STREQ(name.c_str(), "AUDIT");
  EXPECT_EQ(flag, 0x80000001U);
  EXPECT_FALSE(_kp_LOG_read_property_flag(file.get(), name, flag));
}

TEST(RecordReading, AnEntryIsReadUpToItsSelectorAttribute) {
  const kp_file file = stream_of(ldf_int4(17) + ldf_int4(2) + ldf_int4(3) + ldf_string("M17") +
                                 ldf_string("text") + ldf_string("KIND") + ldf_int4(99));
  unsigned id = 0, word2 = 0, flags = 0, next = 0;
  kp_String msg_id, msg_text, selector;
  ASSERT_TRUE(_kp_LOG_read_entry_info(file.get(), id, word2, flags, msg_id, msg_text, selector));
  EXPECT_THAT((std::vector<unsigned>{id, word2, flags}), ElementsAre(17U, 2U, 3U));
  EXPECT_STREQ(msg_id.c_str(), "M17");
  EXPECT_STREQ(msg_text.c_str(), "text");
  EXPECT_STREQ(selector.c_str(), "KIND");
  EXPECT_TRUE(kp_be_read_int4(file.get(), &next));
  EXPECT_EQ(next, 99U);
}

TEST(RecordReading, AMappingRecordHasIdAndOffset) {
  const kp_file file = stream_of(ldf_int4(17) + ldf_int4(0xFFFFFFFF) + "1234567");
  unsigned id = 0, offset = 0;
  ASSERT_TRUE(_kp_LOG_read_entry_id_offset_mapping(file.get(), id, offset));
  EXPECT_EQ(id, 17U);
  EXPECT_EQ(offset, 0xFFFFFFFFU);
  EXPECT_FALSE(_kp_LOG_read_entry_id_offset_mapping(file.get(), id, offset));
}

TEST(RecordReading, EveryReaderRefusesANullStream) {
  _kp_LOG_ldf_header_struct header = {};
  kp_String a, b, c;
  unsigned x = 0, y = 0, z = 0;
  kp_AttributeType type = TypeUnknown;
  EXPECT_FALSE(_kp_LOG_read_file_header(nullptr, header));
  EXPECT_FALSE(_kp_LOG_read_string(nullptr, a));
  EXPECT_FALSE(_kp_LOG_read_property_flag(nullptr, a, x));
  EXPECT_FALSE(_kp_LOG_read_attribute(nullptr, a, type, b));
  EXPECT_FALSE(_kp_LOG_read_entry_info(nullptr, x, y, z, a, b, c));
  EXPECT_FALSE(_kp_LOG_read_selector_msg(nullptr, x, y, a, b));
  EXPECT_FALSE(_kp_LOG_read_entry_id_offset_mapping(nullptr, x, y));
}

// ---- selector messages ----

static std::string selector_message_bytes() {
  return ldf_int4(1) + ldf_int4(2) + ldf_string("M1") + ldf_string("one");
}

TEST(SelectorMessageReading, HasIndexValueIdAndText) {
  const debug_log_in_temp_folder log(9);
  const kp_file file = stream_of(selector_message_bytes());
  unsigned index = 0, value = 0;
  kp_String id, text;
  ASSERT_TRUE(_kp_LOG_read_selector_msg(file.get(), index, value, id, text));
  EXPECT_EQ(index, 1U);
  EXPECT_EQ(value, 2U);
  EXPECT_STREQ(id.c_str(), "M1");
  EXPECT_STREQ(text.c_str(), "one");
  EXPECT_THAT(log.lines(), IsEmpty());
}

// The debug lines of reading a selector message of which only `length` bytes are there.
static std::vector<std::string> lines_of_short_message(size_t length) {
  const debug_log_in_temp_folder log(1);
  const kp_file file = stream_of(selector_message_bytes().substr(0, length));
  unsigned index = 0, value = 0;
  kp_String id, text;
  EXPECT_FALSE(_kp_LOG_read_selector_msg(file.get(), index, value, id, text));
  return log.lines();
}

TEST(SelectorMessageReading, TheItemThatFailsIsTold) {
  EXPECT_THAT(lines_of_short_message(3),
              ElementsAre("logging/def_read:N kp_be_read_int4 selector_msg_index error"));
  EXPECT_THAT(lines_of_short_message(7),
              ElementsAre("logging/def_read:N kp_be_read_int4 selector_value error"));
  EXPECT_THAT(lines_of_short_message(14),
              ElementsAre("logging/def_read:N kp_be_read_string selector_msg_id error"));
  EXPECT_THAT(lines_of_short_message(22),
              ElementsAre("logging/def_read:N kp_be_read_string selector_msg_text error"));
}

TEST(SelectorMessageReading, AMissingLengthIsToldBeforeTheItem) {
  EXPECT_THAT(lines_of_short_message(8),
              ElementsAre("logging/def_read:N kp_be_read_int4",
                          "logging/def_read:N kp_be_read_string selector_msg_id error"));
}

// ---- cut records ----

// How many of the items that end at `ends` are whole in that many bytes.
static size_t whole_items(const std::vector<size_t>& ends, size_t length) {
  return static_cast<size_t>(
      std::count_if(ends.begin(), ends.end(), [=](size_t end) { return end <= length; }));
}

// Calls f(stream, whole items) for every number of bytes below all of them.
template <class F>
static void for_each_cut(const std::string& bytes, const std::vector<size_t>& ends, F f) {
  ASSERT_EQ(ends.back(), bytes.size());
  for (size_t length = 0; length < bytes.size(); ++length) {
    SCOPED_TRACE(length);
    f(stream_of(bytes.substr(0, length)).get(), whole_items(ends, length));
  }
}

static std::string entry_info_bytes() {
  return ldf_int4(17) + ldf_int4(2) + ldf_int4(3) + ldf_string("M17") + ldf_string("text") +
         ldf_string("KIND");
}

TEST(CutRecords, AnEntryKeepsTheItemsBeforeTheEnd) {
  for_each_cut(entry_info_bytes(), {4, 8, 12, 20, 29, 38}, [](FILE* file, size_t whole) {
    unsigned id = 0, word2 = 0, flags = 0;
    kp_String msg_id("?"), msg_text("?"), selector("?");
    EXPECT_FALSE(_kp_LOG_read_entry_info(file, id, word2, flags, msg_id, msg_text, selector));
    EXPECT_EQ(id, whole > 0 ? 17U : 0U);
    EXPECT_EQ(word2, whole > 1 ? 2U : 0U);
    EXPECT_EQ(flags, whole > 2 ? 3U : 0U);
    EXPECT_STREQ(msg_id.c_str(), whole > 3 ? "M17" : "?");
    EXPECT_STREQ(msg_text.c_str(), whole > 4 ? "text" : "?");
    EXPECT_STREQ(selector.c_str(), "?");
  });
}

TEST(CutRecords, AnAttributeKeepsTheItemsBeforeTheEnd) {
  const std::string bytes = ldf_string("A") + ldf_int4(2) + ldf_string("R");
  for_each_cut(bytes, {6, 10, 16}, [](FILE* file, size_t whole) {
    kp_String name("?"), redirection("?");
    kp_AttributeType type = TypeUnknown;
    EXPECT_FALSE(_kp_LOG_read_attribute(file, name, type, redirection));
    EXPECT_STREQ(name.c_str(), whole > 0 ? "A" : "?");
    EXPECT_EQ(type, whole > 1 ? TypeUInt1 : TypeUnknown);
    EXPECT_STREQ(redirection.c_str(), "?");
  });
}

TEST(CutRecords, APropertyFlagKeepsItsName) {
  for_each_cut(ldf_string("F") + ldf_int4(9), {6, 10}, [](FILE* file, size_t whole) {
    kp_String name("?");
    unsigned flag = 0;
    EXPECT_FALSE(_kp_LOG_read_property_flag(file, name, flag));
    EXPECT_STREQ(name.c_str(), whole > 0 ? "F" : "?");
    EXPECT_EQ(flag, 0U);
  });
}

TEST(CutRecords, AMappingRecordKeepsItsId) {
  for_each_cut(ldf_int4(17) + ldf_int4(136), {4, 8}, [](FILE* file, size_t whole) {
    unsigned id = 0, offset = 0;
    EXPECT_FALSE(_kp_LOG_read_entry_id_offset_mapping(file, id, offset));
    EXPECT_EQ(id, whole > 0 ? 17U : 0U);
    EXPECT_EQ(offset, 0U);
  });
}

TEST(CutRecords, ASelectorMessageKeepsTheItemsBeforeTheEnd) {
  for_each_cut(selector_message_bytes(), {4, 8, 15, 23}, [](FILE* file, size_t whole) {
    unsigned index = 0, value = 0;
    kp_String id("?"), text("?");
    EXPECT_FALSE(_kp_LOG_read_selector_msg(file, index, value, id, text));
    EXPECT_EQ(index, whole > 0 ? 1U : 0U);
    EXPECT_EQ(value, whole > 1 ? 2U : 0U);
    EXPECT_STREQ(id.c_str(), whole > 2 ? "M1" : "?");
    EXPECT_STREQ(text.c_str(), "?");
  });
}

TEST(CutRecords, TheReadersOfOtherRecordsTellNothingOfTheirOwn) {
  const debug_log_in_temp_folder log(9);
  _kp_LOG_ldf_header_struct header = {};
  kp_String a, b, c;
  unsigned x = 0, y = 0, z = 0;
  kp_AttributeType type = TypeUnknown;
  EXPECT_FALSE(_kp_LOG_read_file_header(stream_of(".LDF").get(), header));
  EXPECT_FALSE(_kp_LOG_read_property_flag(stream_of(ldf_string("F") + "12").get(), a, x));
  EXPECT_FALSE(_kp_LOG_read_attribute(stream_of(ldf_string("A") + "12").get(), a, type, b));
  for (const size_t length : {3U, 7U, 11U, 19U, 28U, 37U})  // not in a string's length
    EXPECT_FALSE(_kp_LOG_read_entry_info(stream_of(entry_info_bytes().substr(0, length)).get(), x,
                                         y, z, a, b, c));
  EXPECT_FALSE(_kp_LOG_read_entry_id_offset_mapping(stream_of("1234567").get(), x, y));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CutRecords, AMissingLengthOfAStringIsToldByTheStringAlone) {
  const debug_log_in_temp_folder log(9);
  kp_String a, b, c;
  unsigned x = 0, y = 0, z = 0;
  kp_AttributeType type = TypeUnknown;
  EXPECT_FALSE(_kp_LOG_read_property_flag(stream_of("123").get(), a, x));
  EXPECT_FALSE(_kp_LOG_read_attribute(stream_of("123").get(), a, type, b));
  EXPECT_FALSE(
      _kp_LOG_read_entry_info(stream_of(entry_info_bytes().substr(0, 15)).get(), x, y, z, a, b, c));
  EXPECT_THAT(log.lines(), testing::Each("logging/def_read:N kp_be_read_int4"));
  EXPECT_EQ(log.lines().size(), 3U);
}

// ---- failed allocations ----

static const std::string hundred_letters(100, 'x');

// Runs read() with each of its allocations failing in turn: false, and nothing raised. Returns how
// many there were.
template <class Read>
static unsigned failures_of(Read read) {
  return for_each_failing_new(
      [&] {
        const bool done = read();
        EXPECT_EQ(done, !failing_new::met());
      },
      [](const std::exception_ptr& outcome) { EXPECT_EQ(outcome, nullptr); });
}

TEST(RecordsWithoutMemory, AnAttributeIsFalse) {
  const kp_file file =
      stream_of(ldf_string(hundred_letters) + ldf_int4(2) + ldf_string(hundred_letters));
  EXPECT_EQ(failures_of([&] {
              std::rewind(file.get());
              kp_String name, redirection;
              kp_AttributeType type = TypeUnknown;
              return _kp_LOG_read_attribute(file.get(), name, type, redirection);
            }),
            2U);
}

TEST(RecordsWithoutMemory, AnEntryIsFalse) {
  const std::string text = ldf_string(hundred_letters);
  const kp_file file = stream_of(ldf_int4(17) + ldf_int4(2) + ldf_int4(3) + text + text + text);
  EXPECT_EQ(failures_of([&] {
              std::rewind(file.get());
              unsigned id = 0, word2 = 0, flags = 0;
              kp_String a, b, c;
              return _kp_LOG_read_entry_info(file.get(), id, word2, flags, a, b, c);
            }),
            3U);
}

TEST(RecordsWithoutMemory, ASelectorMessageIsFalseAndTellsTheItem) {
  const debug_log_in_temp_folder log(1);
  const std::string text = ldf_string(hundred_letters);
  const kp_file file = stream_of(ldf_int4(1) + ldf_int4(2) + text + text);
  EXPECT_EQ(failures_of([&] {
              std::rewind(file.get());
              unsigned index = 0, value = 0;
              kp_String id, msg_text;
              return _kp_LOG_read_selector_msg(file.get(), index, value, id, msg_text);
            }),
            2U);
  EXPECT_THAT(log.lines(),
              ElementsAre("logging/def_read:N kp_be_read_string selector_msg_id error",
                          "logging/def_read:N kp_be_read_string selector_msg_text error"));
}

#ifdef KP_FAULTS
TEST(RecordReading, AReadErrorAnywhereIsFalse) {
  const std::string bytes = selector_message_bytes();
  for (unsigned nth = 1; nth <= 8; ++nth) {
    const kp_file file = stream_of(bytes);
    unsigned index = 0, value = 0;
    kp_String id, text;
    const failing fault(kp_fault_call::fread, nth, EIO);
    const bool done = _kp_LOG_read_selector_msg(file.get(), index, value, id, text);
    EXPECT_EQ(done, fault.calls_seen() < nth) << nth;
  }
}
#endif
