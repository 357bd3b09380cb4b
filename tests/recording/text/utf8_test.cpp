#include "recording/text/utf8.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

#include "tests/command/characters.h"

struct byte_range {
  unsigned char first, last;
};

// The well-formed byte sequences as The Unicode Standard lists them (table 3-7).
struct well_formed_row {
  size_t size;
  std::array<byte_range, 4> bytes;
};

static constexpr byte_range tail = {0x80, 0xBF};
static constexpr std::array<well_formed_row, 9> well_formed = {{
    {1, {{{0x00, 0x7F}}}},
    {2, {{{0xC2, 0xDF}, tail}}},
    {3, {{{0xE0, 0xE0}, {0xA0, 0xBF}, tail}}},
    {3, {{{0xE1, 0xEC}, tail, tail}}},
    {3, {{{0xED, 0xED}, {0x80, 0x9F}, tail}}},
    {3, {{{0xEE, 0xEF}, tail, tail}}},
    {4, {{{0xF0, 0xF0}, {0x90, 0xBF}, tail, tail}}},
    {4, {{{0xF1, 0xF3}, tail, tail, tail}}},
    {4, {{{0xF4, 0xF4}, {0x80, 0x8F}, tail, tail}}},
}};

static bool begins_with(std::string_view text, const well_formed_row& row) {
  for (size_t i = 0; i < row.size; ++i) {
    if (i == text.size()) return false;
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < row.bytes[i].first || byte > row.bytes[i].last) return false;
  }
  return true;
}

// Bytes of the well-formed sequence that the text begins with; 0 for none.
static size_t well_formed_size(std::string_view text) {
  for (const well_formed_row& row : well_formed)
    if (begins_with(text, row)) return row.size;
  return 0;
}

// The number that the sequence stands for: six bits of each byte behind the first, and of the first
// what its size leaves.
static uint32_t value_of(std::string_view sequence) {
  uint32_t value = static_cast<unsigned char>(sequence[0]);
  if (sequence.size() > 1) value -= std::array{0xC0u, 0xE0u, 0xF0u}[sequence.size() - 2];
  for (const char byte : sequence.substr(1))
    value = value * 64 + (static_cast<unsigned char>(byte) - 0x80u);
  return value;
}

static void expect_well_read(std::string_view text) {
  size_t offset = 0;
  size_t first_invalid = std::string_view::npos;
  for (const utf8_character& character : utf8(text)) {
    const size_t size = well_formed_size(text.substr(offset));
    const std::string_view bytes = text.substr(offset, std::max(size, size_t{1}));
    ASSERT_EQ(character.offset, offset) << testing::PrintToString(text);
    ASSERT_EQ(character.valid, size != 0) << testing::PrintToString(text);
    ASSERT_EQ(character.bytes.data(), bytes.data());
    ASSERT_EQ(character.bytes.size(), bytes.size()) << testing::PrintToString(text);
    ASSERT_EQ(character.code_point,
              size == 0 ? static_cast<unsigned char>(bytes[0]) : value_of(bytes))
        << testing::PrintToString(text);
    if (size == 0) first_invalid = std::min(first_invalid, offset);
    offset += bytes.size();
  }
  ASSERT_EQ(offset, text.size()) << testing::PrintToString(text);
  ASSERT_EQ(utf8_first_invalid(text), first_invalid);
}

TEST(Utf8, EveryCharacterIsReadAsItself) {
  for (uint32_t code_point = 0; code_point <= 0x10FFFF; ++code_point) {
    if (!is_scalar_value(code_point)) continue;
    const std::string text = utf8_of(code_point);
    const utf8_character character = utf8_at(text, 0);
    ASSERT_TRUE(character.valid) << code_point;
    ASSERT_EQ(character.code_point, code_point);
    ASSERT_EQ(character.bytes, text);
    ASSERT_EQ(utf8_size(code_point), text.size());
  }
}

// First and last bytes of all ranges of the table, and their neighbours.
static constexpr std::string_view edges(
    "\x00\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4"
    "\xF5\xFF",
    25);

TEST(Utf8, ThreeBytesAtTheEdgesAreReadAsTheTableHasThem) {
  for (const char first : edges)
    for (const char second : edges)
      for (const char third : edges) expect_well_read(std::string{first, second, third});
}

TEST(Utf8, AnyBytesAreReadAsTheTableHasThem) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (size_t size = random() % 12; text.size() < size;)
      text += random() % 4 == 0 ? static_cast<char>(random()) : edges[random() % edges.size()];
    ASSERT_NO_FATAL_FAILURE(expect_well_read(text));
  }
}

TEST(Utf8, TextsEndWithACharacterOfNoBytes) {
  EXPECT_TRUE(utf8_at("", 0).bytes.empty());
  EXPECT_TRUE(utf8_at("a", 1).bytes.empty());
  EXPECT_FALSE(utf8_at("a", 1).valid);
}

TEST(Utf8, BrokenFormsAreInvalid) {
  for (const char* broken : {"\x80", "\xC0\xAF", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80",
                             "\xF4\x90\x80\x80", "\xF5", "\xFF", "\xE2\x82"})
    EXPECT_EQ(utf8_first_invalid(broken), 0u) << broken;
  EXPECT_EQ(utf8_first_invalid("aä€😀"), std::string_view::npos);
  EXPECT_EQ(utf8_first_invalid("aä\x80"), 3u);
}

TEST(Utf8, LengthInUtf16CountsPairsTwice) {
  EXPECT_EQ(utf16_length("aä€😀"), 5u);
}

TEST(Utf8, ColumnsAreCountedInCharacters) {
  const std::string line = "aé日😀\xFFz";
  EXPECT_EQ(utf8_column(line, 0), 1u);
  EXPECT_EQ(utf8_column(line, 1), 2u);
  EXPECT_EQ(utf8_column(line, 2), 3u);
  EXPECT_EQ(utf8_column(line, 3), 3u);
  EXPECT_EQ(utf8_column(line, 6), 4u);
  EXPECT_EQ(utf8_column(line, 10), 5u);
  EXPECT_EQ(utf8_column(line, 11), 6u);
  EXPECT_EQ(utf8_column(line, 12), 7u);
  EXPECT_EQ(utf8_column(line, 99), 7u);
}

TEST(Utf8, ControlCharactersAreThoseOfBothRangesAndDel) {
  for (uint32_t code_point = 0; code_point < 0x200; ++code_point)
    EXPECT_EQ(has_control_character("a" + utf8_of(code_point) + "b"),
              code_point < 0x20 || (code_point >= 0x7F && code_point < 0xA0))
        << code_point;
}
