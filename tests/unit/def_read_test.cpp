#include "logging/def_read.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "logging/ldf_load.h"
#include "tests/support/byte_stream.h"
#include "tests/support/failing.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

using testing::ElementsAre;
using testing::IsEmpty;

static std::string text_read_from(std::string_view bytes, long expected_position) {
  const kp_file file = stream_of(bytes);
  kp_String text("before");
  EXPECT_TRUE(_kp_LOG_read_string(file.get(), text));
  EXPECT_EQ(std::ftell(file.get()), expected_position);
  return {text.c_str(), text.length()};
}

static std::string header_bytes() {
  std::string bytes = ".LDF";
  bytes += std::string("\x01\x02\x03\x04", 4);
  bytes += ldf_int4(2) + ldf_int4(3) + std::string("12.34567");
  for (unsigned i = 0; i < 4; ++i) bytes += ldf_int4(16 + i);
  for (unsigned i = 40; i <= 56; i += 4) bytes += ldf_int4(i);
  for (unsigned i = 0; i < 17; ++i) bytes += ldf_int4(60 + i);
  return bytes;
}

// ---- primitives ----

TEST(BigEndianPrimitives, FourBytesAreReadMostSignificantFirst) {
  const kp_file file = stream_of(std::string("\0\0\1\2", 4));
  unsigned value = 0;
  EXPECT_TRUE(kp_be_read_int4(file.get(), &value));
  EXPECT_EQ(value, 258U);
}

TEST(BigEndianPrimitives, EveryWidthIsReadInTurn) {
  const kp_file file = stream_of("\x81\x82\x83\xFF\xFE\xFD\xFC");
  unsigned char one = 0;
  unsigned short two = 0;
  unsigned four = 0;
  EXPECT_TRUE(kp_be_read_int1(file.get(), &one));
  EXPECT_TRUE(kp_be_read_int2(file.get(), &two));
  EXPECT_TRUE(kp_be_read_int4(file.get(), &four));
  EXPECT_EQ(one, 0x81);
  EXPECT_EQ(two, 0x8283);
  EXPECT_EQ(four, 0xFFFEFDFCU);
}

TEST(BigEndianPrimitives, AShortReadLeavesTheValueUnchanged) {
  const kp_file nothing = stream_of("");
  const kp_file one_byte = stream_of("a");
  const kp_file three_bytes = stream_of("abc");
  unsigned char one = 7;
  unsigned short two = 8;
  unsigned four = 9;
  EXPECT_FALSE(kp_be_read_int1(nothing.get(), &one));
  EXPECT_FALSE(kp_be_read_int2(one_byte.get(), &two));
  EXPECT_FALSE(kp_be_read_int4(three_bytes.get(), &four));
  EXPECT_EQ(one, 7);
  EXPECT_EQ(two, 8);
  EXPECT_EQ(four, 9U);
}

TEST(BigEndianPrimitives, AChunkIsReadRawAndMayBeFilledInPart) {
  const kp_file file = stream_of("abcdef");
  char bytes[5] = "....";
  EXPECT_TRUE(kp_read_data_chunk(file.get(), bytes, 4));
  EXPECT_STREQ(bytes, "abcd");
  EXPECT_FALSE(kp_read_data_chunk(file.get(), bytes, 4));
  EXPECT_STREQ(bytes, "efcd");
  EXPECT_TRUE(kp_read_data_chunk(file.get(), bytes, 0));
}

TEST(BigEndianPrimitives, WhatIsWrittenIsMostSignificantFirst) {
  const kp_file file = stream_of("");
  unsigned char one = 0x01;
  unsigned short two = 0x0203;
  unsigned four = 0xF4F5F6F7;
  char chunk[] = "xy";
  EXPECT_TRUE(kp_be_write_int1(file.get(), &one));
  EXPECT_TRUE(kp_be_write_int2(file.get(), &two));
  EXPECT_TRUE(kp_be_write_int4(file.get(), &four));
  EXPECT_TRUE(kp_write_data_chunk(file.get(), chunk, 2));
  std::rewind(file.get());
  char bytes[16] = {};
  EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, file.get()), 9U);
  EXPECT_STREQ(bytes, "\x01\x02\x03\xF4\xF5\xF6\xF7xy");
}

TEST(BigEndianPrimitives, WritingToAReadOnlyStreamFails) {
  const temp_folder folder;
  const kp_file file(std::fopen(folder.write("f", "abcd").c_str(), "rb"));
  unsigned char one = 1;
  unsigned short two = 2;
  unsigned four = 4;
  EXPECT_FALSE(kp_be_write_int1(file.get(), &one));
  EXPECT_FALSE(kp_be_write_int2(file.get(), &two));
  EXPECT_FALSE(kp_be_write_int4(file.get(), &four));
  EXPECT_FALSE(kp_write_data_chunk(file.get(), &four, 4));
}

TEST(BigEndianPrimitives, NullPointersAreRefused) {
  const kp_file file = stream_of("abcd");
  unsigned four = 4;
  EXPECT_FALSE(kp_be_read_int4(nullptr, &four));
  EXPECT_FALSE(kp_be_read_int4(file.get(), nullptr));
  EXPECT_FALSE(kp_be_write_int4(nullptr, &four));
  EXPECT_FALSE(kp_be_write_int4(file.get(), nullptr));
  EXPECT_FALSE(kp_read_data_chunk(file.get(), nullptr, 1));
  EXPECT_FALSE(kp_write_data_chunk(file.get(), nullptr, 1));
}

// ---- strings ----

TEST(StringReading, LengthZeroIsEmptyAndTakesFourBytes) {
  EXPECT_EQ(text_read_from(ldf_int4(0) + "more", 4), "");
}

TEST(StringReading, TheTextEndsAtTheFirstNulAndAllBytesAreTaken) {
  EXPECT_EQ(text_read_from(ldf_int4(4) + std::string("ab\0c", 4), 8), "ab");
}

TEST(StringReading, WithoutANulAllBytesAreTheText) {
  EXPECT_EQ(text_read_from(ldf_int4(3) + "abcdef", 7), "abc");
}

TEST(StringReading, OneByteIsEitherTheNulOrTheText) {
  EXPECT_EQ(text_read_from(ldf_int4(1) + std::string(1, '\0'), 5), "");
  EXPECT_EQ(text_read_from(ldf_int4(1) + "x", 5), "x");
}

TEST(StringReading, ATextLongerThanAStepIsReadWhole) {
  const std::string text(200000, 'x');
  EXPECT_EQ(text_read_from(ldf_string(text), 200005), text);
}

TEST(StringReading, ALongTextOfAStreamWithoutASizeIsReadWhole) {
  const std::string text(200000, 'x');
  std::string bytes = ldf_string(text);
  const kp_file file = sizeless_stream_of(bytes);
  kp_String read;
  ASSERT_TRUE(_kp_LOG_read_string(file.get(), read));
  EXPECT_EQ(std::string(read.c_str()), text);
}

TEST(StringReading, AMissingLengthIsToldAndLeavesTheTextAlone) {
  const debug_log_in_temp_folder log(1);
  const kp_file file = stream_of("abc");
  kp_String text("before");
  EXPECT_FALSE(_kp_LOG_read_string(file.get(), text));
  EXPECT_STREQ(text.c_str(), "before");
  EXPECT_THAT(log.lines(), ElementsAre("logging/def_read:N kp_be_read_int4"));
}

TEST(StringReading, MissingBytesAreNotToldAndLeaveTheTextAlone) {
  const debug_log_in_temp_folder log(9);
  for (const unsigned length : {5U, 65536U, 65537U, 0xFFFFFFFFU}) {
    const kp_file file = stream_of(ldf_int4(length) + "abcd");
    kp_String text("before");
    EXPECT_FALSE(_kp_LOG_read_string(file.get(), text));
    EXPECT_STREQ(text.c_str(), "before");
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(StringReading, FourGibibytesOfAStreamWithoutASizeFailWhereItEnds) {
  std::string bytes = ldf_int4(0xFFFFFFFF) + std::string(100000, 'x');
  const kp_file file = sizeless_stream_of(bytes);
  kp_String text("before");
  EXPECT_FALSE(_kp_LOG_read_string(file.get(), text));
  EXPECT_STREQ(text.c_str(), "before");
}

TEST(StringReading, AFailedAllocationIsFalse) {
  const std::string bytes = ldf_string(std::string(100, 'x'));
  const unsigned failures = for_each_failing_new(
      [&] {
        const kp_file file = stream_of(bytes);
        kp_String text("before");
        const bool failed = !_kp_LOG_read_string(file.get(), text);
        EXPECT_EQ(failed, failing_new::met());
        EXPECT_EQ(text.compare("before") == 0, failed);
      },
      [](const std::exception_ptr& outcome) { EXPECT_EQ(outcome, nullptr); });
  EXPECT_EQ(failures, 1U);
}

static void ignore_signal(int) {}

TEST(StringReading, ASignalDuringTheReadingDoesNotEndIt) {
  struct sigaction action = {}, before = {};
  action.sa_handler = ignore_signal;  // without SA_RESTART
  sigaction(SIGUSR1, &action, &before);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const kp_file file(fdopen(ends[0], "rb"));
  const pthread_t reader = pthread_self();
  std::thread writer([&] {
    const std::string bytes = ldf_string(std::string(40, 'x'));
    for (const char byte : bytes) {
      pthread_kill(reader, SIGUSR1);
      EXPECT_EQ(write(ends[1], &byte, 1), 1);
    }
    close(ends[1]);
  });
  kp_String text;
  EXPECT_TRUE(_kp_LOG_read_string(file.get(), text));
  writer.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(std::string(text.c_str()), std::string(40, 'x'));
}

// ---- header ----

TEST(HeaderReading, ExactlyAHundredAndTwentyEightBytesAreAccepted) {
  const std::string bytes = header_bytes();
  ASSERT_EQ(bytes.size(), 128U);
  const kp_file file = stream_of(bytes);
  _kp_LOG_ldf_header_struct header = {};
  EXPECT_TRUE(_kp_LOG_read_file_header(file.get(), header));
  EXPECT_EQ(std::ftell(file.get()), 128);
}

TEST(HeaderReading, EveryFieldStandsAtItsOffset) {
  const kp_file file = stream_of(header_bytes());
  _kp_LOG_ldf_header_struct header = {};
  ASSERT_TRUE(_kp_LOG_read_file_header(file.get(), header));
  EXPECT_EQ(header.magic, 0x2E4C4446U);
  EXPECT_EQ(std::memcmp(&header.raw_word, "\x01\x02\x03\x04", 4), 0);
  EXPECT_EQ(header.word2, 2U);
  EXPECT_EQ(header.word3, 3U);
  EXPECT_EQ(std::string(header.log_version, 8), "12.34567");
  EXPECT_THAT(header.words16, ElementsAre(16U, 17U, 18U, 19U));
  EXPECT_EQ(header.n_global_attributes, 40U);
  EXPECT_EQ(header.global_attributes_offset, 44U);
  EXPECT_EQ(header.n_entries, 48U);
  EXPECT_EQ(header.word52, 52U);
  EXPECT_EQ(header.mapping_offset, 56U);
  EXPECT_EQ(header.words60[0], 60U);
  EXPECT_EQ(header.words60[16], 76U);
}

TEST(HeaderReading, EveryShorterFileIsRefused) {
  const std::string bytes = header_bytes();
  for (size_t length = 0; length < bytes.size(); ++length) {
    const kp_file file = stream_of(bytes.substr(0, length));
    _kp_LOG_ldf_header_struct header = {};
    EXPECT_FALSE(_kp_LOG_read_file_header(file.get(), header)) << length;
  }
}

TEST(HeaderReading, FieldsBeforeTheEndOfAShortFileAreFilled) {
  const kp_file file = stream_of(header_bytes().substr(0, 47));
  _kp_LOG_ldf_header_struct header = {};
  EXPECT_FALSE(_kp_LOG_read_file_header(file.get(), header));
  EXPECT_EQ(header.n_global_attributes, 40U);
  EXPECT_EQ(header.global_attributes_offset, 0U);
}

TEST(HeaderReading, AnotherMagicIsRefusedBeforeAnythingElseIsRead) {
  std::string bytes = header_bytes();
  bytes[3] = 'G';
  const kp_file file = stream_of(bytes);
  _kp_LOG_ldf_header_struct header = {};
  EXPECT_FALSE(_kp_LOG_read_file_header(file.get(), header));
  EXPECT_EQ(std::ftell(file.get()), 4);
}

// ---- faults ----

#ifdef KP_FAULTS
TEST(StringReading, AFileThatCannotBeMeasuredIsReadToItsEnd) {
  const std::string text(100000, 'x');
  for (const auto call : {kp_fault_call::fstat, kp_fault_call::ftell}) {
    const kp_file file = stream_of(ldf_string(text));
    const failing fault(call, 1, EIO);
    kp_String read;
    ASSERT_TRUE(_kp_LOG_read_string(file.get(), read));
    EXPECT_EQ(std::string(read.c_str()), text);
    EXPECT_EQ(fault.calls_seen(), 1U);
  }
}
#endif

// ---- hash ----

TEST(NameHash, TheEmptyTextAndNullHashToZero) {
  EXPECT_EQ(my_hashcode(""), 0U);
  EXPECT_EQ(my_hashcode(nullptr), 0U);
}

TEST(NameHash, ShortTextsMultiplyByThirtySeven) {
  EXPECT_EQ(my_hashcode("A"), 65U);
  EXPECT_EQ(my_hashcode("AB"), 2471U);
}

TEST(NameHash, SixteenCharactersAreSampledAtEvenPositionsWithThirtyNine) {
  unsigned expected = 0;
  for (const char c : std::string("acegikmo")) expected = expected * 39 + static_cast<unsigned>(c);
  EXPECT_EQ(my_hashcode("abcdefghijklmnop"), expected);
  EXPECT_EQ(my_hashcode("aXcXeXgXiXkXmXoX"), expected);
}

TEST(NameHash, CharactersCountAsSigned) {
  EXPECT_EQ(my_hashcode("\xFF"), 0xFFFFFFFFU);
  EXPECT_EQ(my_hashcode("\x80"), 0xFFFFFF80U);
}

// The sum of the algorithm's own words, in 64-bit numbers.
static unsigned sum_of_words(const std::string& text) {
  const long length = static_cast<long>(text.size());
  const long step = length >= 16 ? length / 8 : 1;
  const unsigned long factor = length >= 16 ? 39 : 37;
  unsigned long hash = 0;
  long position = 0;
  for (long left = length; left > 0; left -= step, position += step) {
    const long c = static_cast<signed char>(text[static_cast<size_t>(position)]);
    hash = (hash * factor + static_cast<unsigned long>(c)) & 0xFFFFFFFFUL;
  }
  return static_cast<unsigned>(hash);
}

TEST(NameHash, EveryLengthUpToThreeHundredFollowsTheRule) {
  std::string text;
  for (unsigned length = 0; length <= 300; ++length) {
    EXPECT_EQ(my_hashcode(text.c_str()), sum_of_words(text)) << length;
    text += static_cast<char>(1 + (length * 37) % 255);
  }
}

// ---- the page that describes the format ----

// The bytes of the page's worked example: lines "OFFSET  HEX HEX ...  | remark".
static std::string example_of_the_page() {
  std::ifstream page(KPLOG_SOURCE_DIR "/docs/definition-format.md");
  std::string bytes;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.rfind("```", 0) == 0) inside = line == "```hex";
    if (!inside || line.rfind("```", 0) == 0) continue;
    EXPECT_EQ(std::stoul(line.substr(0, 4), nullptr, 16), bytes.size()) << line;
    std::istringstream digits(line.substr(4, line.find('|') - 4));
    for (std::string byte; digits >> byte;)
      bytes += static_cast<char>(std::stoul(byte, nullptr, 16));
  }
  return bytes;
}

TEST(FormatPage, ItsExampleIsTheFileThatItDescribes) {
  const ldf_file described{
      .log_version = "1.0",
      .globals = {{"REASON_CODE", TypeSInt4}},
      .entries = {{.id = 17,
                   .flags = 1,
                   .msg_id = "M17",
                   .msg_text = "paid",
                   .selector = "KIND",
                   .attributes = {{"KIND", TypeUInt1}, {"PAYER", TypeChar32, "WHO"}},
                   .messages = {{0, 2, "M17B", "by card"}}}}};
  EXPECT_EQ(example_of_the_page(), described.bytes());
}

TEST(FormatPage, ItsExampleLoads) {
  const temp_folder folder;
  _kp_LOG_log_definition_tbl table;
  table.set_precompiled_definition_file_path(
      folder.write("example.ldf", example_of_the_page()).c_str());
  const _kp_LOG_log_definition* const found = table.find_entry(17);
  _kp_LOG_log_definition::clear_global_attr_info();
  ASSERT_NE(found, nullptr);
  EXPECT_STREQ(found->get_default_msg_text(), "paid");
  EXPECT_STREQ(found->get_selector_attribute()->get_name(), "KIND");
  EXPECT_STREQ(found->get_selector_msg_by_value(2)->get_msg_text(), "by card");
}
