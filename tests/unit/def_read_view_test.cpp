// A file read through the bounded window of a view.
#include "logging/def_read_view.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "logging/def_read_items.h"
#include "tests/support/byte_stream.h"
#include "tests/support/ldf_bytes.h"

// `n` bytes that tell where they stand.
static std::string numbered_bytes(size_t n) {
  std::string bytes;
  for (unsigned i = 0; bytes.size() < n; ++i) bytes += ldf_int4(i * 2654435761U);
  return bytes.substr(0, n);
}

// The next n bytes of the view, "(none)" when it cannot read them.
static std::string next(_kp_LOG_ldf_view& view, size_t n) {
  std::string bytes(n, '?');
  return view.read(bytes.data(), n) ? bytes : "(none)";
}

TEST(FileView, ReadsAroundTheSizeOfItsWindowGiveTheBytesOfTheFile) {
  const std::string bytes = numbered_bytes(20000);
  const kp_file file = stream_of(bytes);
  for (const size_t first : {0U, 1U, 4095U, 4096U, 4097U})
    for (const size_t n : {1U, 4U, 4095U, 4096U, 4097U, 8192U}) {
      _kp_LOG_ldf_view view(file.get());
      view.seek(first);
      EXPECT_EQ(next(view, n), bytes.substr(first, n)) << first << " " << n;
      EXPECT_EQ(next(view, 3), bytes.substr(first + n, 3)) << first << " " << n;
    }
}

TEST(FileView, FilesAroundTheSizeOfItsWindowEndWhereTheyEnd) {
  for (const size_t size : {4095U, 4096U, 4097U}) {
    const std::string bytes = numbered_bytes(size);
    const kp_file file = stream_of(bytes);
    _kp_LOG_ldf_view view(file.get());
    for (size_t i = 0; i < size; ++i) ASSERT_EQ(next(view, 1), bytes.substr(i, 1)) << i;
    EXPECT_TRUE(view.may_hold(0));
    EXPECT_FALSE(view.may_hold(1));
    EXPECT_EQ(next(view, 1), "(none)");
    EXPECT_EQ(next(view, 0), "");
  }
}

TEST(FileView, TextsAroundTheSizeOfItsWindowAreReadWhole) {
  for (const size_t size : {4091U, 4092U, 4095U, 4096U, 4097U, 8191U, 8192U, 8193U}) {
    const std::string text(size, 'x');
    const kp_file file = stream_of(ldf_string(text) + ldf_int4(7));
    _kp_LOG_ldf_view view(file.get());
    kp_String read;
    unsigned behind = 0;
    ASSERT_TRUE(kp_ldf_read_string(view, read)) << size;
    EXPECT_EQ(std::string(read.c_str()), text);
    EXPECT_TRUE(kp_ldf_read_int4(view, behind));
    EXPECT_EQ(behind, 7U);
  }
}

TEST(FileView, ANumberMayStandAcrossTheEndOfTheWindow) {
  const std::string bytes = std::string(4094, '.') + ldf_int4(0x01020304);
  const kp_file file = stream_of(bytes);
  _kp_LOG_ldf_view view(file.get());
  EXPECT_EQ(next(view, 4094), bytes.substr(0, 4094));
  unsigned value = 0;
  EXPECT_TRUE(kp_ldf_read_int4(view, value));
  EXPECT_EQ(value, 0x01020304U);
}

TEST(FileView, ItNeverMovesTheStream) {
  const kp_file file = stream_of(numbered_bytes(10000));
  _kp_LOG_ldf_view view(file.get());
  EXPECT_NE(next(view, 5000), "(none)");
  EXPECT_EQ(std::ftell(file.get()), 0);
}

TEST(FileView, OffsetsBeyondTheEndHoldNothing) {
  const kp_file file = stream_of("abcd");
  _kp_LOG_ldf_view view(file.get());
  for (const uint64_t offset : {uint64_t{5}, uint64_t{0xFFFFFFFF}, ~uint64_t{0}}) {
    view.seek(offset);
    EXPECT_FALSE(view.may_hold(0));
    EXPECT_EQ(next(view, 1), "(none)");
  }
  view.seek(0);
  EXPECT_EQ(next(view, 4), "abcd");
}

TEST(FileView, AFileShortenedSinceIsReadUpToItsNewEnd) {
  const std::string bytes = numbered_bytes(10000);
  const kp_file file = stream_of(bytes);
  _kp_LOG_ldf_view view(file.get());
  ASSERT_EQ(ftruncate(fileno(file.get()), 5000), 0);
  view.seek(4990);
  EXPECT_EQ(next(view, 10), bytes.substr(4990, 10));
  EXPECT_EQ(next(view, 1), "(none)");
  view.seek(0);
  EXPECT_EQ(next(view, 5001), "(none)");
  view.seek(0);
  EXPECT_EQ(next(view, 5000), bytes.substr(0, 5000));
}

TEST(FileView, AFileGrownSinceEndsWhereItDid) {
  const kp_file file = stream_of("abcd");
  _kp_LOG_ldf_view view(file.get());
  ASSERT_EQ(pwrite(fileno(file.get()), "efgh", 4, 4), 4);
  EXPECT_EQ(next(view, 5), "(none)");
  EXPECT_EQ(next(view, 4), "abcd");
}
