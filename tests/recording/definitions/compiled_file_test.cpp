// Compiled files as the tools read them: values with their offsets, faults, oddities, hostile
// bytes.
#include "recording/definitions/compiled_file.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

#include "recording/definitions/template.h"
#include "tests/support/ldf_bytes.h"
#include "tools/compiled/writer.h"
#include "tools/dump/yaml.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

static ldf_file small_file() {
  return {.log_version = "2.0",
          .globals = {{"SEVERITY_CODE", TypeUInt1}},
          .entries = {{.id = 17,
                       .second_word = 3,
                       .flags = 0x80000001,
                       .msg_id = "PAID",
                       .msg_text = "%s%PAYER% paid",
                       .selector = "KIND",
                       .attributes = {{"KIND", TypeUInt1}, {"PAYER", TypeChar32, "WHO"}},
                       .messages = {{0, 2, "PAID.0", "by card"}}},
                      {.id = 18, .msg_id = "OPENED"}}};
}

// Offsets in the bytes of small_file: header, one global attribute, two mapping rows.
static constexpr size_t mapping_offset = 128 + 4 + 14 + 4 + 4;
static constexpr size_t first_record = mapping_offset + 16;

static std::string with_int4(std::string bytes, size_t offset, uint32_t value) {
  return bytes.replace(offset, 4, ldf_int4(value));
}

// What reading the bytes finds, as people see it.
static std::string found_in(const std::string& bytes) {
  definition_file file("f.ldf", bytes);
  diagnostic_list found;
  read_definition_file(file, found);
  std::ostringstream text;
  found.write(text, file.set.sources, diagnostic_format::text, false);
  return text.str();
}

// --- values

TEST(DefinitionFile, GivesTheModelThatSourcesGive) {
  definition_file file("f.ldf", small_file().bytes());
  diagnostic_list found;
  ASSERT_TRUE(read_definition_file(file, found));
  EXPECT_TRUE(found.empty());
  EXPECT_EQ(definition_file_bytes(file.set), file.source.bytes());
  EXPECT_EQ(file.set.events[0].name.value, "PAID");
  EXPECT_EQ(file.set.events[0].messages[0].raw.value, "by card");
}

TEST(DefinitionFile, KnowsWhereEverythingLies) {
  definition_file file("f.ldf", small_file().bytes());
  diagnostic_list found;
  ASSERT_TRUE(read_definition_file(file, found));
  EXPECT_EQ(file.globals.begin, 128u);
  EXPECT_EQ(file.globals.end, mapping_offset);
  EXPECT_EQ(file.records[0].begin, first_record);
  EXPECT_EQ(file.records[0].end, file.records[1].begin);
  EXPECT_EQ(file.records[1].end, file.source.bytes().size());
  EXPECT_EQ(file.set.events[0].second_word.place.offset(), first_record + 4);
  EXPECT_EQ(file.set.events[0].message.id.place.offset(), first_record + 12);
}

TEST(DefinitionFile, KeepsTheWordsThatNobodyInterprets) {
  const std::string bytes =
      with_int4(with_int4(with_int4(small_file().bytes(), 8, 5), 52, 6), 124, 7);
  definition_file file("f.ldf", bytes);
  diagnostic_list found;
  EXPECT_TRUE(read_definition_file(file, found));
  EXPECT_EQ(file.header.word2, 5u);
  EXPECT_EQ(file.header.word52, 6u);
  EXPECT_EQ(file.header.words60[16], 7u);
}

TEST(DefinitionFile, EventsWithoutUsableMessageIdAreNamedByTheirNumber) {
  const ldf_file unnamed{.entries = {{.id = 1, .msg_id = "SAME"},
                                     {.id = 2, .msg_id = "SAME"},
                                     {.id = 3},
                                     {.id = 4, .msg_id = "a\x1b"},
                                     {.id = 5, .msg_id = "\xFF"},
                                     {.id = 6, .msg_id = "EVENT_7"},
                                     {.id = 7}}};
  definition_file file("f.ldf", unnamed.bytes());
  diagnostic_list found;
  ASSERT_TRUE(read_definition_file(file, found));
  std::vector<std::string> names;
  for (const event_model& event : file.set.events) names.push_back(event.name.value);
  EXPECT_THAT(names, testing::ElementsAre("SAME", "EVENT_2", "EVENT_3", "EVENT_4", "EVENT_5",
                                          "EVENT_7", "EVENT_7_"));
}

// --- faults

TEST(DefinitionFileFault, OtherFilesAreRefusedByTheirFirstBytes) {
  EXPECT_EQ(found_in("\x7F"
                     "ELF and more"),
            "f.ldf:0x0: error[file-magic]: a definition file begins with 2E 4C 44 46, and this one "
            "with 7F 45 4C 46\n  7F 45 4C 46 20 61 6E 64 20 6D 6F 72 65  .ELF and more\n");
  EXPECT_THAT(found_in(""), EndsWith("and this one with nothing\n"));
}

TEST(DefinitionFileFault, HeaderTakes128Bytes) {
  const std::string bytes = ldf_file{}.bytes();
  EXPECT_EQ(found_in(bytes), "");
  EXPECT_THAT(found_in(bytes.substr(0, 127)),
              StartsWith("f.ldf:0x0: error[file-short]: the header takes 128 bytes, and 127 are "
                         "left\n"));
}

TEST(DefinitionFileFault, SectionsBeyondTheEndAreRefused) {
  const std::string bytes = small_file().bytes();
  EXPECT_THAT(found_in(with_int4(bytes, 44, 0xFFFFFFFF)), StartsWith("f.ldf:0x"));
  EXPECT_THAT(found_in(with_int4(bytes, 44, 0xFFFFFFFF)),
              HasSubstr("error[file-short]: the global attribute section takes 12 bytes, and 0 are "
                        "left\n"));
  EXPECT_THAT(found_in(with_int4(bytes, 48, 0xFFFFFFFF)),
              HasSubstr("f.ldf:0x9A: error[file-short]: the mapping table takes 34359738360 bytes, "
                        "and "));
}

TEST(DefinitionFileFault, StringsBeyondTheEndAreRefused) {
  const std::string bytes = small_file().bytes();
  EXPECT_THAT(
      found_in(with_int4(bytes, first_record + 12, 0x7FFFFFFF)),
      HasSubstr("f.ldf:0xBA: error[file-short]: a message ID takes 2147483647 bytes, and "));
}

TEST(DefinitionFileFault, RecordOfAnotherIdNamesBothPlaces) {
  const std::string found = found_in(with_int4(small_file().bytes(), first_record, 99));
  EXPECT_THAT(found, StartsWith("f.ldf:0xAA: error[file-record]: the record of the ID 17 is "
                                "expected here, and this is 99\n"));
  EXPECT_THAT(found, HasSubstr("\nf.ldf:0x9A: note: the mapping table points here\n"));
}

TEST(DefinitionFileFault, CountsAbove255AreRefused) {
  const ldf_file file{.entries = {{.id = 1}}};
  const std::string bytes = file.bytes();
  const size_t counts = bytes.size() - 8;
  EXPECT_THAT(found_in(with_int4(bytes, counts, 256)),
              HasSubstr("error[too-many]: an entry has at most 255 attributes, and the count is "
                        "256\n"));
  EXPECT_THAT(found_in(with_int4(bytes, counts + 4, 300)),
              HasSubstr("an entry has at most 255 selector messages, and the count is 300\n"));
  EXPECT_THAT(found_in(with_int4(bytes, counts, 255)),
              HasSubstr("error[file-short]: 255 attributes, which takes 3060 bytes, and 4 are "
                        "left\n"));
  EXPECT_THAT(
      found_in(with_int4(bytes, 40, 256)),
      HasSubstr("f.ldf:0x28: error[too-many]: a file has at most 255 global attributes, and "
                "the count is 256\n"));
}

TEST(DefinitionFileFault, OneBadRecordLeavesTheOthers) {
  const std::string bytes = with_int4(small_file().bytes(), first_record, 99);
  definition_file file("f.ldf", bytes);
  diagnostic_list found;
  EXPECT_FALSE(read_definition_file(file, found));
  ASSERT_EQ(file.set.events.size(), 1u);
  EXPECT_EQ(file.set.events[0].id.value, 18u);
}

// A record with a text that holds many records in turn, each a little shorter, would take memory
// without end.
TEST(DefinitionFileFault, RecordsWithinOneAnotherEndTheReading) {
  const size_t count = 2000;
  ldf_file nested;
  for (uint32_t id = 1; id <= count; ++id) nested.entries.push_back({.id = id});
  std::string bytes = nested.bytes();
  const size_t record = 128 + 8 * count;
  const std::string text(100000, 'x');
  bytes.resize(record);
  for (uint32_t id = 1; id <= count; ++id) {
    bytes = with_int4(bytes, 128 + 8 * (id - 1) + 4, static_cast<uint32_t>(record + 16 * (id - 1)));
    bytes += ldf_int4(id) + ldf_int4(0) + ldf_int4(0) +
             ldf_int4(static_cast<uint32_t>(text.size() + 16 * (count - id)));
  }
  bytes += text + std::string(16, '\0');
  EXPECT_THAT(found_in(bytes), HasSubstr("error[file-overlap]: the records up to here take more "
                                         "than 16 times the bytes of the file\n"));
}

TEST(DefinitionFileFault, JsonHasOffsets) {
  definition_file file("f.ldf", "no");
  diagnostic_list found;
  EXPECT_FALSE(read_definition_file(file, found));
  std::ostringstream text;
  found.write(text, file.set.sources, diagnostic_format::json, false);
  EXPECT_THAT(text.str(), StartsWith(R"({"file":"f.ldf","offset":0,"severity":"error",)"));
}

// --- what the library takes leniently

TEST(DefinitionFileOddity, RepeatedIdCountsFromItsLastPlace) {
  ldf_file repeated{.entries = {{.id = 1, .msg_id = "A"}, {.id = 1, .msg_id = "B"}}};
  definition_file file("f.ldf", repeated.bytes());
  diagnostic_list found;
  EXPECT_TRUE(read_definition_file(file, found));
  ASSERT_EQ(file.set.events.size(), 1u);
  EXPECT_EQ(file.set.events[0].message.id.value, "B");
  EXPECT_THAT(found_in(repeated.bytes()),
              StartsWith("f.ldf:0x88: warning[file-mapping]: the ID 1 comes again, and counts from "
                         "here\n"));
}

TEST(DefinitionFileOddity, StringWithoutNulIsAllOfItsBytes) {
  std::string bytes = small_file().bytes();
  bytes[first_record + 16 + 4] = '!';
  EXPECT_THAT(found_in(bytes),
              StartsWith("f.ldf:0xB6: warning[file-string]: a message ID has no NUL at its end\n"));
}

TEST(DefinitionFileOddity, BytesBehindANulAreNoted) {
  std::string bytes = small_file().bytes();
  bytes[first_record + 16 + 1] = '\0';
  EXPECT_THAT(found_in(bytes), HasSubstr("warning[file-string]: a message ID has 3 bytes behind "
                                         "its NUL\n"));
}

TEST(DefinitionFileOddity, TypeCodesKeepTheirLowByte) {
  const ldf_file odd{.globals = {{"A", 0x102}, {"B", 0}, {"C", 25}}};
  definition_file file("f.ldf", odd.bytes());
  diagnostic_list found;
  EXPECT_TRUE(read_definition_file(file, found));
  EXPECT_EQ(found.count(rule_severity::warning), 3u);
  EXPECT_EQ(file.set.globals[0].type, TypeUInt1);
  EXPECT_THAT(found_in(odd.bytes()), HasSubstr("warning[file-type]: the code 258 of the "
                                               "attribute's type is none; types are 1 to 24\n"));
}

// --- hostile bytes

static bool declares(const event_model& event, std::string_view name) {
  return std::any_of(event.attributes.begin(), event.attributes.end(),
                     [&](const attribute_model& own) { return own.name.value == name; });
}

// The one STD set beside which selectors, and names in default messages, that the set's own records
// do not declare have a meaning.
static std::string std_with_names_of(const definition_set& set) {
  ldf_file standard;
  for (const event_model& event : set.events) {
    ldf_entry entry{.id = event.id.value};
    if (event.selector.is_given() && selector_of(event) == nullptr) {
      entry.selector = event.selector.value;
      entry.attributes.push_back({event.selector.value, TypeUInt4});
    }
    for (const template_piece& piece : scan_template(event.message.template_bytes))
      if (piece.kind == template_piece::kinds::placeholder && !declares(event, piece.text))
        entry.attributes.push_back({std::string(piece.text), TypeMBChar64});
    if (!entry.attributes.empty()) standard.entries.push_back(entry);
  }
  return standard.bytes();
}

// Dumps the bytes, and compiles the dump where nothing was found against it, beside an STD set that
// declares the names that it says it needs.
static void dump_and_compile(const std::string& bytes) {
  definition_file file("f.ldf", bytes);
  diagnostic_list found;
  read_definition_file(file, found);
  const std::string yaml = definition_yaml(file, found);
  if (found.count(rule_severity::error) != 0) return;
  definition_file std_file("std.ldf", std_with_names_of(file.set));
  diagnostic_list faults;
  ASSERT_TRUE(read_definition_file(std_file, faults));
  const std_definitions standard(std_file.set);
  const bool is_auxiliary = !std_file.set.events.empty();
  const text_file source("f.yaml", yaml);
  definition_set set;
  read_definition_source(source, set, faults);
  complete_definition_set(set, faults, is_auxiliary ? &standard : nullptr);
  EXPECT_EQ(faults.count(rule_severity::error), 0u) << yaml;
  if (found.size() != std_file.set.events.size()) return;
  EXPECT_EQ(definition_file_bytes(set), bytes);
}

TEST(DefinitionFileBytes, EveryTruncationIsReadOrRefused) {
  const std::string bytes = small_file().bytes();
  for (size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_THAT(found_in(bytes.substr(0, size)), HasSubstr("error[file-")) << size;
    dump_and_compile(bytes.substr(0, size));
  }
}

TEST(DefinitionFileBytes, EveryFlippedBitGivesAFaultOrADumpThatCompiles) {
  const std::string bytes = small_file().bytes();
  for (size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    std::string flipped = bytes;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    SCOPED_TRACE("bit " + std::to_string(bit));
    dump_and_compile(flipped);
  }
}
