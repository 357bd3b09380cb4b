// kplog check on compiled files.
#include <gmock/gmock.h>

#include <random>
#include <sstream>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "logging/log_definition.h"
#include "tests/command/command_run.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"
#include "tools/compiled/verify.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static ldf_file small_file() {
  return {.log_version = "2.0",
          .globals = {{"SEVERITY_CODE", TypeUInt1}},
          .entries = {{.id = 17,
                       .flags = 1,
                       .msg_id = "PAID",
                       .msg_text = "%s%PAYER% paid %d%KIND%",
                       .selector = "KIND",
                       .attributes = {{"KIND", TypeUInt1}, {"PAYER", TypeChar32, "WHO"}},
                       .messages = {{1, 2, "PAID.1", "by card on %D%TIMESTAMP%"}}},
                      {.id = 18, .msg_id = "OPENED", .msg_text = "%d%SEVERITY_CODE%"}}};
}

static std::string shown(const definition_file& file, const diagnostic_list& found) {
  std::ostringstream text;
  found.write(text, file.set.sources, diagnostic_format::text, false);
  return text.str();
}

// What checking the bytes finds, as people see it.
static std::string found_in(const std::string& bytes) {
  definition_file file("f.ldf", bytes);
  diagnostic_list found;
  read_definition_file(file, found);
  verify_definition_file(file, nullptr, found);
  return shown(file, found);
}

static std::string found_in_entry(ldf_entry entry) {
  entry.id = 1;
  return found_in(ldf_file{.entries = {entry}}.bytes());
}

// --- what is found

TEST(CheckFile, SoundFileHasNothingAgainstIt) {
  EXPECT_EQ(found_in(small_file().bytes()), "");
  EXPECT_EQ(found_in(ldf_file{}.bytes()), "");
}

TEST(CheckFile, AttributeComesAgain) {
  EXPECT_EQ(found_in_entry({.attributes = {{"A", TypeUInt1}, {"A", TypeUInt2}}}),
            "f.ldf:0xB2: error[file-attribute]: the attribute \"A\" comes again in this record\n"
            "  00 00 00 02 41 00 00 00 00 04 00 00 00 00 00 00  ....A...........\n"
            "f.ldf:0xA4: note: it comes first here\n"
            "  00 00 00 02 41 00 00 00 00 02 00 00 00 00 00 00  ....A...........\n");
}

TEST(CheckFile, SelectorMayComeAgain) {
  EXPECT_EQ(found_in_entry({.selector = "A", .attributes = {{"A", TypeUInt1}, {"A", TypeUInt1}}}),
            "");
}

TEST(CheckFile, AttributesHaveNames) {
  EXPECT_THAT(found_in_entry({.attributes = {{"", TypeUInt1}}}),
              StartsWith("f.ldf:0xA4: error[bad-name]: an attribute has a name\n"));
}

TEST(CheckFile, SelectorIsDeclared) {
  EXPECT_THAT(found_in_entry({.selector = "K"}),
              StartsWith("f.ldf:0x9C: warning[file-selector]: no attribute \"K\" to select by is "
                         "declared here\n"));
}

TEST(CheckFile, SelectorHasASelectingType) {
  for (const kp_AttributeType type : {TypeUInt1, TypeUInt2, TypeUInt4})
    EXPECT_EQ(found_in_entry({.selector = "K", .attributes = {{"K", static_cast<unsigned>(type)}}}),
              "");
  for (const kp_AttributeType type : {TypeBool, TypeSInt4, TypeChar32, TypeDate})
    EXPECT_THAT(
        found_in_entry({.selector = "K", .attributes = {{"K", static_cast<unsigned>(type)}}}),
        HasSubstr("error[selector-attribute]: an attribute of type UInt1, UInt2 or UInt4 "
                  "selects a message\n"));
}

TEST(CheckFile, MessagesHideOneAnother) {
  const std::string found =
      found_in_entry({.messages = {{1, 1, "", ""}, {1, 2, "", ""}, {2, 1, "", ""}}});
  EXPECT_THAT(found, HasSubstr("warning[file-hidden]: an earlier selector message of this index "
                               "hides this one\n"));
  EXPECT_THAT(found, HasSubstr("warning[file-hidden]: an earlier selector message of this value "
                               "hides this one\n"));
}

TEST(CheckFile, GlobalAttributesHideOneAnother) {
  EXPECT_EQ(found_in(ldf_file{.globals = {{"A", TypeUInt1}, {"A", TypeUInt2}}}.bytes()),
            "f.ldf:0x80: warning[file-hidden]: a later global attribute \"A\" replaces this one\n"
            "  00 00 00 02 41 00 00 00 00 02 00 00 00 00 00 00  ....A...........\n"
            "f.ldf:0x8E: note: it comes again here\n"
            "  00 00 00 02 41 00 00 00 00 04 00 00 00 00  ....A.........\n");
}

TEST(CheckFile, TemplatesNameAttributesThatThereAre) {
  EXPECT_EQ(found_in_entry({.msg_text = "a %d%PORT%"}),
            "f.ldf:0x9E: error[template-attribute]: no attribute \"PORT\" here\n"
            "  25 64 25 50 4F 52 54 25 00 00 00 00 00 00 00 00  %d%PORT%........\n");
  EXPECT_THAT(found_in_entry({.msg_text = "%d%A%", .attributes = {{"A", TypeFloat}}}),
              HasSubstr("error[template-attribute]: the format %d does not suit \"A\", a Float\n"));
}

TEST(CheckFile, TemplatesConsistOfWholePlaceholders) {
  EXPECT_EQ(found_in_entry({.messages = {{1, 1, "", "50%"}}}),
            "f.ldf:0xBA: error[template-syntax]: the template has a percent sign at the end\n"
            "  25 00  %.\n");
}

TEST(CheckFile, LogVersionIsAPaddedText) {
  const std::string at =
      "f.ldf:0x10: warning[file-version]: the log version is a text of at most 7 "
      "characters, filled up with NULs\n";
  std::string bytes = ldf_file{}.bytes();
  EXPECT_THAT(found_in(bytes.replace(16, 8, "12345678")), StartsWith(at));
  EXPECT_THAT(found_in(bytes.replace(16, 8, std::string("1.0\0\0\0x\0", 8))), StartsWith(at));
  EXPECT_EQ(found_in(bytes.replace(16, 8, std::string("1234567\0", 8))), "");
}

TEST(CheckFile, EveryByteBelongsToSomething) {
  EXPECT_EQ(found_in(small_file().bytes() + "ab"),
            "f.ldf:0x17C: warning[file-unused]: 2 bytes from here on: nothing refers to them\n"
            "  61 62  ab\n");
}

TEST(CheckFile, GapBetweenSectionsBelongsToNothing) {
  std::string bytes =
      ldf_file{}.bytes() + "gap" + ldf_int4(1) + ldf_int4(128 + 3 + 8) + std::string(32, '\0');
  bytes.replace(48, 4, ldf_int4(1)).replace(56, 4, ldf_int4(128 + 3)).replace(139, 4, ldf_int4(1));
  EXPECT_THAT(
      found_in(bytes),
      StartsWith(
          "f.ldf:0x80: warning[file-unused]: 3 bytes from here on: nothing refers to them\n"));
}

// --- with an STD set

TEST(CheckFile, AuxFileMayNameWhatIsInItsStdFile) {
  const temp_folder folder;
  folder.write("std.ldf", small_file().bytes());
  const ldf_file auxiliary{
      .entries = {{.id = 17, .selector = "KIND", .messages = {{2, 3, "", "%s%PAYER%"}}}}};
  folder.write("aux.ldf", auxiliary.bytes());
  EXPECT_EQ(run_kplog(folder.path(), "check aux.ldf").status, 1);
  EXPECT_EQ(run_kplog(folder.path(), "check aux.ldf --std std.ldf").err,
            "kplog: 0 errors, 0 warnings\n");
}

TEST(CheckFile, AuxFileMustGoAlongWithItsStdFile) {
  const temp_folder folder;
  folder.write("std.ldf", small_file().bytes());
  const ldf_file auxiliary{.entries = {{.id = 17,
                                        .selector = "OTHER",
                                        .attributes = {{"PAYER", TypeChar32}, {"OTHER", TypeUInt1}},
                                        .messages = {{1, 3, "", ""}}}}};
  folder.write("aux.ldf", auxiliary.bytes());
  const auto run = run_kplog(folder.path(), "check aux.ldf --std std.ldf");
  EXPECT_EQ(run.status, 1);
  for (const char* code : {"std-selector", "std-attribute", "std-message"})
    EXPECT_THAT(run.err, HasSubstr(std::string("error[") + code + "]: "));
  EXPECT_THAT(run.err, HasSubstr("kplog: 3 errors, 0 warnings\n"));
}

// --- the command

TEST(CheckFile, CommandKnowsACompiledFileByItsFirstBytes) {
  const temp_folder folder;
  folder.write("events.yaml", small_file().bytes() + "x");
  const auto run = run_kplog(folder.path(), "check events.yaml");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "events.yaml:0x17C: warning[file-unused]: 1 byte from here on: nothing refers to them\n"
            "  78  x\nkplog: 0 errors, 1 warning\n");
  EXPECT_EQ(run_kplog(folder.path(), "check --fail-on error events.yaml").status, 0);
  EXPECT_EQ(run_kplog(folder.path(), "check --severity file-unused=off events.yaml").status, 0);
  EXPECT_EQ(run_kplog(folder.path(), "check --severity template-quoted=off events.yaml").status, 1);
}

TEST(CheckFile, DamagedFileIsReportedOnce) {
  const temp_folder folder;
  folder.write("f.ldf", small_file().bytes().substr(0, 150));
  const auto run = run_kplog(folder.path(), "check f.ldf");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("error[file-short]"));
  EXPECT_THAT(run.err, Not(HasSubstr("file-unused")));
  folder.write("f.ldf", ".LD");
  EXPECT_THAT(run_kplog(folder.path(), "check f.ldf").err, HasSubstr("error["));
}

// --- hostile bytes

// Whether the library loads the file and every entry type that it lists.
static bool is_loaded(const std::string& path, const definition_set& set) {
  kp_LOG_LogConfig::ClearDefinitions();
  try {
    kp_LOG_LogConfig::SetDefinitionPath(path.c_str());
    for (const event_model& event : set.events)
      if (kp_LOG_LogConfig::GetDefinitionTable()->find_entry(event.id.value) == nullptr)
        return false;
  } catch (const KPX_logging_invalid_definition&) {
    return false;
  }
  return true;
}

// A file without errors is loaded whole.
static bool expect_agreement(const temp_folder& folder, const std::string& bytes) {
  definition_file file("f.ldf", bytes);
  diagnostic_list found;
  read_definition_file(file, found);
  verify_definition_file(file, nullptr, found);
  const bool is_sound = found.count(rule_severity::error) == 0;
  const bool fails = is_sound && !is_loaded(folder.write("f.ldf", bytes), file.set);
  EXPECT_FALSE(fails);
  return is_sound;
}

TEST(CheckFileHostile, EveryTruncationIsAnErrorOrLoads) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string bytes = small_file().bytes();
  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_FALSE(expect_agreement(folder, bytes.substr(0, size))) << size;
}

TEST(CheckFileHostile, EveryFlippedBitIsAnErrorOrLoads) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string bytes = small_file().bytes();
  for (size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    std::string flipped = bytes;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
    expect_agreement(folder, flipped);
    ASSERT_FALSE(testing::Test::HasFailure()) << "bit " << bit;
  }
}

TEST(CheckFileHostile, SeveralChangedBytesAreErrorsOrLoad) {
  const settings_guard guard;
  const temp_folder folder;
  const std::string bytes = small_file().bytes();
  std::mt19937 random(3);  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run tries the same cases
  std::uniform_int_distribution<size_t> place(0, bytes.size() - 1);
  for (int i = 0; i < 3000; ++i) {
    std::string changed = bytes;
    for (int n = 0; n < 3; ++n) changed[place(random)] = static_cast<char>(random() % 20);
    expect_agreement(folder, changed);
    ASSERT_FALSE(testing::Test::HasFailure()) << "case " << i;
  }
}
