// kplog compile --std: AUX sets beside their STD set.
#include <gmock/gmock.h>

#include <filesystem>

#include "kp_LOG.h"
#include "logging/ldf_load.h"
#include "logging/log_definition.h"
#include "recording/report/rules.h"
#include "tests/command/command_run.h"
#include "tests/command/golden_file.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

using testing::HasSubstr;
using testing::StartsWith;

static std::string source_of(const std::string& events, const std::string& keys = "") {
  return "kplog: 1\nlog_version: \"1.0\"\n" + keys + "events:\n" + events;
}

// Compiles an AUX source beside an STD source, both as the source and as the compiled file, and
// expects the same of the two.
class AuxSets : public testing::Test {
 protected:
  command_result compile(const std::string& std_source, const std::string& aux_source) const {
    folder_.write("std.yaml", std_source);
    folder_.write("aux.yaml", aux_source);
    run("compile -q std.yaml -o std.ldf");
    command_result from_source = run("compile -q aux.yaml --std std.yaml -o aux.ldf");
    const command_result from_file = run("compile -q aux.yaml --std std.ldf -o other.ldf");
    EXPECT_EQ(from_source.status, from_file.status) << from_source.err << from_file.err;
    EXPECT_EQ(read_whole_file(folder_.file("aux.ldf")), read_whole_file(folder_.file("other.ldf")));
    return from_source;
  }

  command_result run(const std::string& arguments) const {
    return run_kplog(folder_.path(), arguments);
  }

  // What the library says when it loads both files; "" when it takes them.
  std::string load() const {
    try {
      kp_LOG_LogConfig::SetDefinitionPath(folder_.file("std.ldf").c_str());
      kp_LOG_LogConfig::SetAuxDefinitionPath(folder_.file("aux.ldf").c_str());
    } catch (const KPX_logging_invalid_definition& error) {
      return error.what();
    }
    return "";
  }

  static const _kp_LOG_log_definition& definition(unsigned id) {
    return *kp_LOG_LogConfig::GetDefinitionTable()->find_entry(id);
  }

  const temp_folder& folder() const { return folder_; }

 private:
  settings_guard guard_;
  temp_folder folder_;
};

static std::string data_file(const std::string& name) {
  return read_whole_file(test_data_folder() + "/" + name);
}

static std::string headlines(const std::string& text) {
  std::string found;
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    if (line.find(": error[") != std::string::npos || line.find(": note: ") != std::string::npos)
      found += line + "\n";
    at = end + 1;
  }
  return found;
}

// --- what goes along

TEST_F(AuxSets, SoundOneIsMergedByTheLibrary) {
  const auto run = compile(data_file("standard.yaml"), data_file("auxiliary.yaml"));
  ASSERT_EQ(run.err, "");
  ASSERT_EQ(load(), "");
  EXPECT_EQ(definition(1).get_n_attributes(), 3);
  EXPECT_STREQ(definition(1).get_selector_attribute()->get_name(), "OUTCOME");
  EXPECT_EQ(definition(1).get_n_selector_msgs(), 3);
  EXPECT_STREQ(definition(1).get_default_msg_text(), "%s%USER% logged in%x%TIMESTAMP%");
  EXPECT_STREQ(definition(2).get_selector_attribute()->get_name(), "HOST");
  EXPECT_EQ(definition(2).get_selector_attribute()->get_type(), TypeUInt2);
  EXPECT_EQ(definition(2).get_property_flags(), 2u);
  EXPECT_EQ(definition(3).get_n_attributes(), 0);
  EXPECT_EQ(definition(1000).get_n_attributes(), 1);
}

TEST_F(AuxSets, MessagesShowAttributesOfTheStdSet) {
  ASSERT_EQ(compile(data_file("standard.yaml"), data_file("auxiliary.yaml")).err, "");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  ASSERT_EQ(load(), "");
  kp_LOG_LogEntry entry(1, 1);
  entry.AddAttribMBStr("USER", "Ada");
  entry.AddAttribStr("PEER", "home");
  entry.AddAttrib1u("OUTCOME", 2);
  EXPECT_EQ(kp_LOG_RenderMessage(entry), "Ada of home waits, 2");
}

TEST_F(AuxSets, SelectorOfTheStdEventNeedNotBeNamedAgain) {
  const std::string standard = source_of("  E: {id: 1, attributes: {K: UInt1}, select: K}\n");
  const auto with_value = [&](const char* value) {
    return "  E: {id: 1, messages: [{index: 1, value: " + std::string(value) + ", text: t}]}\n";
  };
  EXPECT_EQ(compile(standard, source_of(with_value("255"))).err, "");
  EXPECT_THAT(compile(standard, source_of(with_value("256"))).err,
              HasSubstr("error[selector-value]: \"K\" never holds a value above 255\n"));
}

TEST_F(AuxSets, SetOfTheSameSourceAloneIsNoAuxSet) {
  EXPECT_EQ(compile(data_file("standard.yaml"), source_of("  X: {id: 50}\n")).err, "");
  EXPECT_EQ(run("compile -q aux.yaml -o alone.ldf").err, "");
  EXPECT_EQ(read_whole_file(folder().file("alone.ldf")), read_whole_file(folder().file("aux.ldf")));
}

// --- what does not

TEST_F(AuxSets, GoldenListOfEverythingWrongBesideAnStdSet) {
  const auto run =
      run_kplog(test_data_folder(), "compile bad_auxiliary.yaml --std standard.yaml -o /dev/null");
  EXPECT_EQ(run.status, 1);
  expect_golden_file("bad_auxiliary.expected", run.err);
  for (const diagnostic_rule rule : diagnostic_rules())
    if (rule->severity == rule_severity::error &&
        std::string_view(rule->code).starts_with("std-")) {
      EXPECT_THAT(run.err, HasSubstr(std::string("error[") + rule->code + "]: "));
    }
}

// What a message lacks is no number that the STD event could have already.
TEST_F(AuxSets, MessagesWithoutIndexOrValueAreComparedWithNone) {
  const std::string standard = source_of(
      "  E: {id: 1, attributes: {A: UInt1}, select: A, messages: [{index: 1, value: 0, id: M}]}\n");
  const auto result = compile(standard, source_of("  E:\n    id: 1\n    messages:\n"
                                                  "      - {index: 2, id: N}\n"
                                                  "      - {value: 2, id: O}\n"));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(headlines(result.err),
            "aux.yaml:7:9: error[missing-key]: a selector message needs the key \"value\"\n"
            "aux.yaml:8:9: error[missing-key]: a selector message needs the key \"index\"\n");
}

TEST_F(AuxSets, PlacesInACompiledStdFileAreOffsets) {
  folder().write("std.yaml", source_of("  E: {id: 1, attributes: {A: UInt1}}\n"));
  folder().write("aux.yaml", source_of("  E: {id: 1, attributes: {A: UInt1}}\n"));
  run("compile -q std.yaml -o std.ldf");
  EXPECT_EQ(run("compile aux.yaml --std std.ldf -o aux.ldf").err,
            "aux.yaml:4:27: error[std-attribute]: the STD event has the attribute \"A\" already\n"
            "  E: {id: 1, attributes: {A: UInt1}}\n"
            "                          ^\n"
            "std.ldf:0xA6: note: it is declared here\n"
            "  00 00 00 02 41 00 00 00 00 02 00 00 00 00 00 00  ....A...........\n"
            "kplog: 1 error, nothing written\n");
  EXPECT_FALSE(std::filesystem::exists(folder().file("aux.ldf")));
}

TEST_F(AuxSets, SelectorThatTheStdEventDoesNotSelectByMustBeDeclared) {
  const std::string standard = source_of("  E: {id: 1, attributes: {K: UInt1}}\n");
  EXPECT_THAT(compile(standard, source_of("  E: {id: 1, select: K}\n")).err,
              HasSubstr("error[selector-attribute]: the event itself has no attribute \"K\"\n"));
  EXPECT_EQ(compile(standard, source_of("  E: {id: 1, attributes: {K: UInt1}, select: K}\n")).err,
            "");
}

TEST_F(AuxSets, RetiredIdOfACompiledStdFileIsNotKnown) {
  folder().write("std.yaml", source_of("  A: {id: 1}\n", "retired: [7]\n"));
  folder().write("aux.yaml", source_of("  B: {id: 7}\n"));
  run("compile -q std.yaml -o std.ldf");
  EXPECT_EQ(headlines(run("compile aux.yaml --std std.yaml -o aux.ldf").err),
            "aux.yaml:4:11: error[retired-id]: the ID 7 is retired\n"
            "std.yaml:3:11: note: it is retired here\n");
  EXPECT_EQ(run("compile aux.yaml --std std.ldf -o aux.ldf").status, 0);
}

TEST_F(AuxSets, FlagsOfTheStdSourceAreKnown) {
  folder().write("std.yaml", source_of("  A: {id: 1}\n", "flags: {AUDIT: 2}\n"));
  folder().write("aux.yaml", source_of("  B: {id: 7, flags: [AUDIT]}\n"));
  EXPECT_EQ(run("compile -q aux.yaml --std std.yaml -o aux.ldf").err, "");
  const ldf_file expected{.log_version = "1.0", .entries = {{.id = 7, .flags = 2, .msg_id = "B"}}};
  EXPECT_EQ(read_whole_file(folder().file("aux.ldf")), expected.bytes());
  folder().write("aux.yaml", source_of("  B: {id: 7, flags: [AUDITS]}\n"));
  EXPECT_THAT(run("compile aux.yaml --std std.yaml -o aux.ldf").err,
              HasSubstr("error[unknown-flag]: no flag \"AUDITS\"; did you mean \"AUDIT\"?\n"));
}

// --- counts: the compiler refuses the first one that the library refuses

static std::string numbered(size_t first, size_t count, const std::string& before,
                            const std::string& behind) {
  std::string all;
  for (size_t i = first; i < first + count; ++i)
    all.append(before).append(std::to_string(i)).append(behind);
  return all;
}

TEST_F(AuxSets, AttributesAreCountedTogether) {
  const auto event = [](size_t first, size_t count) {
    return source_of("  E:\n    id: 1\n    attributes:\n" +
                     numbered(first, count, "      A", ": UInt1\n"));
  };
  EXPECT_EQ(compile(event(0, 200), event(200, 55)).err, "");
  EXPECT_EQ(load(), "");
  EXPECT_EQ(
      headlines(compile(event(0, 200), event(200, 56)).err),
      "aux.yaml:62:7: error[too-many]: there can be 255 attributes together with those of the "
      "STD event, and this is one more\n");
  EXPECT_EQ(run("compile -q aux.yaml -o aux.ldf").status, 0);
  EXPECT_EQ(load(), "<KPX_logging_invalid_definition> The definition file is corrupted.");
}

TEST_F(AuxSets, SelectorDeclaredAgainIsNoFurtherAttribute) {
  const std::string selector = "      K: UInt1\n    select: K\n";
  const auto event = [&](size_t first, size_t count) {
    return source_of("  E:\n    id: 1\n    attributes:\n" +
                     numbered(first, count, "      A", ": UInt1\n") + selector);
  };
  EXPECT_EQ(compile(event(0, 200), event(200, 54)).err, "");
  EXPECT_EQ(load(), "");
  EXPECT_EQ(definition(1).get_n_attributes(), 255);
}

TEST_F(AuxSets, SelectorMessagesAreCountedTogether) {
  const auto event = [](size_t first, size_t count) {
    std::string messages;
    for (size_t i = first; i < first + count; ++i)
      messages +=
          "      - {index: " + std::to_string(i) + ", value: " + std::to_string(i) + ", text: t}\n";
    return source_of("  E:\n    id: 1\n    messages:\n" + messages);
  };
  EXPECT_EQ(compile(event(0, 100), event(100, 155)).err, "");
  EXPECT_EQ(load(), "");
  EXPECT_EQ(headlines(compile(event(0, 100), event(100, 156)).err),
            "aux.yaml:162:9: error[too-many]: there can be 255 selector messages together with "
            "those of the STD event, and this is one more\n");
  EXPECT_EQ(run("compile -q aux.yaml -o aux.ldf").status, 0);
  EXPECT_EQ(load(), "<KPX_logging_invalid_definition> The definition file is corrupted.");
}

TEST_F(AuxSets, GlobalAttributesAreCountedTogetherByTheirNames) {
  const auto set = [](size_t first, size_t count) {
    return "kplog: 1\nlog_version: \"1.0\"\nattributes:\n" +
           numbered(first, count, "  A", ": UInt1\n");
  };
  EXPECT_EQ(compile(set(0, 200), set(190, 65)).err, "");
  EXPECT_EQ(load(), "");
  kp_LOG_LogConfig::ClearDefinitions();
  EXPECT_EQ(
      headlines(compile(set(0, 200), set(190, 66)).err),
      "aux.yaml:69:3: error[too-many]: there can be 255 global attributes together with those "
      "of the STD set, and this is one more\n");
  EXPECT_EQ(run("compile -q aux.yaml -o aux.ldf").status, 0);
  EXPECT_EQ(load(), "<KPX_logging_invalid_definition> The definition file is corrupted.");
}

// --- the STD set itself

TEST_F(AuxSets, FaultsOfTheStdSourceAreShown) {
  folder().write("std.yaml", source_of("  A: {id: x}\n"));
  folder().write("aux.yaml", source_of("  B: {id: 7}\n"));
  const auto result = run("compile aux.yaml --std std.yaml -o aux.ldf");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, StartsWith("std.yaml:4:11: error[bad-number]: "));
  EXPECT_THAT(result.err, HasSubstr("\nkplog: 1 error in the STD set std.yaml\n"));
  EXPECT_FALSE(std::filesystem::exists(folder().file("aux.ldf")));
}

TEST_F(AuxSets, StdFileThatTheLibraryRefusesIsShown) {
  const ldf_file twice{.entries = {{.id = 1, .attributes = {{"A", TypeUInt1}, {"A", TypeUInt1}}}}};
  folder().write("std.ldf", twice.bytes());
  folder().write("aux.yaml", source_of("  B: {id: 1}\n"));
  const auto result = run("compile aux.yaml --std std.ldf -o aux.ldf");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("error[file-attribute]: the attribute \"A\" comes again in "
                                    "this record\n"));
}

TEST_F(AuxSets, UnreadableStdSetGivesStatus3) {
  folder().write("aux.yaml", source_of("  B: {id: 7}\n"));
  const auto result = run("compile aux.yaml --std none.ldf -o aux.ldf");
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.err, "kplog: cannot read none.ldf: No such file or directory\n");
  EXPECT_EQ(run("compile aux.yaml --std - -o aux.ldf").status, 2);
}

TEST_F(AuxSets, MergedFileNeedsNoMergingAtRunTime) {
  std::string std_events;
  for (unsigned id = 1; id <= 140; ++id)
    std_events += "  E" + std::to_string(id) + ": {id: " + std::to_string(id) +
                  ", attributes: {X: UInt2}, message: \"It is {X}\"}\n";
  ASSERT_EQ(compile(source_of(std_events),
                    source_of("  E1: {id: 1, attributes: {Y: UInt1}}\n  MORE: {id: 141}\n"))
                .err,
            "");
  EXPECT_EQ(run("compile aux.yaml --std std.ldf --merged -o all.ldf").err,
            "kplog: wrote all.ldf: 141 events, 0 global attributes\n");
  EXPECT_EQ(run("check all.ldf").err, "kplog: 0 errors, 0 warnings\n");
  std::string records;
  for (unsigned round = 0; round < 2; ++round)
    for (unsigned id = 1; id <= 140; ++id)
      records += "{\"event\":" + std::to_string(id) + ",\"attributes\":{\"X\":1" +
                 (id == 1 ? ",\"Y\":2" : "") + "}}\n";
  folder().write("records", records);
  EXPECT_EQ(run("emit --definitions std.ldf --aux aux.ldf records --to json:none -q").status, 1);
  const auto emitted = run("emit --definitions all.ldf records --to json:all -q");
  EXPECT_EQ(emitted.status, 0) << emitted.err;
}

TEST_F(AuxSets, MergedFileTakesBothSets) {
  ASSERT_EQ(compile(source_of("  A: {id: 1}\n"), source_of("  B: {id: 2}\n")).err, "");
  EXPECT_EQ(run("compile aux.yaml --merged -o all.ldf").err,
            "kplog: --merged needs the STD set, given with --std\n");
  EXPECT_EQ(run("compile aux.yaml --merged -o all.ldf").status, 2);
  run("compile -q aux.yaml --std std.yaml --merged -o all.ldf");
  run("compile -q aux.yaml --std std.ldf --merged -o other.ldf");
  EXPECT_EQ(read_whole_file(folder().file("all.ldf")), read_whole_file(folder().file("other.ldf")));
}

TEST_F(AuxSets, CompiledFileIsNoSource) {
  EXPECT_EQ(compile(data_file("standard.yaml"), source_of("  X: {id: 50}\n")).err, "");
  const auto result = run("compile std.ldf -o other.ldf");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "kplog: std.ldf is compiled already, and a source is expected\n");
}
