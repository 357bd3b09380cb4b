// kplog dump, from outside.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/command/command_run.h"
#include "tests/command/golden_file.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

using testing::HasSubstr;
using testing::StartsWith;

// The example set, compiled to set.ldf.
class DumpCommand : public testing::Test {
 protected:
  void SetUp() override {
    const auto run = run_kplog(test_data_folder(),
                               "compile -q package_manager.yaml -o " + folder_.file("set.ldf"));
    ASSERT_EQ(run.status, 0) << run.err;
  }

  command_result dump(const std::string& arguments) {
    return run_kplog(folder_.path(), "dump " + arguments);
  }

  // The YAML of a file, which compiles to the same bytes.
  std::string yaml_of(const ldf_file& file) {
    folder_.write("f.ldf", file.bytes());
    const auto run = dump("f.ldf > f.yaml");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run_kplog(folder_.path(), "compile -q f.yaml -o again.ldf").err, "");
    EXPECT_EQ(read_whole_file(folder_.file("again.ldf")), file.bytes());
    return read_whole_file(folder_.file("f.yaml"));
  }

  temp_folder folder_;
};

// --- YAML

TEST_F(DumpCommand, GoldenYamlCompilesToTheSameBytes) {
  const auto run = dump("set.ldf > again.yaml");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  expect_golden_file("package_manager.dump.yaml", read_whole_file(folder_.file("again.yaml")));
  EXPECT_EQ(run_kplog(folder_.path(), "compile -q again.yaml -o again.ldf").status, 0);
  EXPECT_EQ(read_whole_file(folder_.file("again.ldf")), read_whole_file(folder_.file("set.ldf")));
}

TEST_F(DumpCommand, EveryTypeComesBack) {
  EXPECT_THAT(yaml_of(ldf_with_every_type("%s%A9%")), HasSubstr("      A24: GUID\n"));
}

TEST_F(DumpCommand, TemplatesThatNobodyAuthoredStayRaw) {
  const std::string yaml =
      yaml_of({.entries = {{.id = 1, .msg_id = "A", .msg_text = "lost"},
                           {.id = 2, .msg_id = "B", .msg_text = "%z%TIMESTAMP%"},
                           {.id = 3, .msg_id = "C", .msg_text = "100 %%"},
                           {.id = 5, .msg_id = "E", .msg_text = "{0}x{"}}});
  EXPECT_THAT(yaml, HasSubstr("    message: {raw: lost}\n"));
  EXPECT_THAT(yaml, HasSubstr("    message: {raw: \"%z%TIMESTAMP%\"}\n"));
  EXPECT_THAT(yaml, HasSubstr("    message: {raw: \"100 %%\"}\n"));
  EXPECT_THAT(yaml, HasSubstr("    message: {raw: \"{0}x{\"}\n"));
}

TEST_F(DumpCommand, MessagesWithoutIdsKeepHavingNone) {
  const std::string yaml =
      yaml_of({.entries = {{.id = 1, .messages = {{1, 2, "", "x"}, {2, 3, "", ""}}}}});
  EXPECT_THAT(yaml, HasSubstr("  EVENT_1:\n    id: 1\n    message: {id: \"\"}\n"));
  EXPECT_THAT(yaml, HasSubstr("- {index: 1, value: 2, id: \"\", raw: x}\n"));
  EXPECT_THAT(yaml, HasSubstr("- {index: 2, value: 3, id: \"\"}\n"));
}

TEST_F(DumpCommand, WordsWithAMeaningInYamlAreQuoted) {
  const std::string yaml = yaml_of({.globals = {{"null", TypeUInt1},
                                                {"NO", TypeUInt1},
                                                {"<<", TypeUInt1},
                                                {"17", TypeUInt1},
                                                {"- a: #b", TypeUInt1},
                                                {" x ", TypeUInt1},
                                                {"\xC3\xA4\xE2\x80\xAE\"\\", TypeUInt1}}});
  EXPECT_THAT(yaml, HasSubstr("  \"null\": UInt1\n  \"NO\": UInt1\n  \"<<\": UInt1\n"));
  EXPECT_THAT(yaml, HasSubstr("  \"\xC3\xA4\\u202E\\\"\\\\\": UInt1\n"));
}

TEST_F(DumpCommand, LongNamesAndTextsComeBack) {
  const std::string name(5000, 'n');
  const std::string text(100000, 't');
  yaml_of({.globals = {{name, TypeUInt1}},
           .entries = {{.id = 1,
                        .msg_id = name,
                        .msg_text = text + "%d%" + name + "%",
                        .attributes = {{name, TypeUInt1, name}},
                        .messages = {{0, 0, name, text}}}}});
}

TEST_F(DumpCommand, ControlCharactersOfTextsComeBack) {
  EXPECT_THAT(
      yaml_of({.entries = {{.id = 1, .msg_id = "A", .msg_text = "a\n\t\x1b\r%T%TIMESTAMP%"}}}),
      HasSubstr("\"a\\n\\t\\x1B\\x0D"));
}

TEST_F(DumpCommand, WhatASourceCannotSayGivesStatus1AndItsOffset) {
  const ldf_file odd{
      .log_version = "12345678",
      .globals = {{"", TypeUInt1}, {"A", 25}, {"A", TypeUInt1}, {"\xE4", TypeUInt1}}};
  folder_.write("f.ldf", odd.bytes());
  const auto run = dump("f.ldf");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, StartsWith("f.ldf:0x10: error[no-source]: the log version has more than 7 "
                                  "characters, which a source cannot say\n"));
  EXPECT_THAT(run.err, HasSubstr("f.ldf:0x80: error[no-source]: this name is empty, which "));
  EXPECT_THAT(run.err, HasSubstr("this attribute has a type that does not exist, which "));
  EXPECT_THAT(run.err, HasSubstr("this attribute is declared before, which "));
  EXPECT_THAT(run.err, HasSubstr("this text is not UTF-8, which "));
  EXPECT_THAT(run.out, HasSubstr("  \"\\uFFFD\": UInt1\n"));
}

TEST_F(DumpCommand, WhatCompilingRefusesGivesStatus1) {
  folder_.write(
      "f.ldf",
      ldf_file{
          .entries = {{.id = 1, .msg_id = "A", .messages = {{1, 1, "B", "b"}, {1, 2, "C", "c"}}}}}
          .bytes());
  const auto run = dump("f.ldf");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("error[duplicate-selector]: another selector message has this "
                                 "index already\n"));
}

TEST_F(DumpCommand, TemplatesThatIcuRefusesAreForTheByteRenderer) {
  EXPECT_THAT(yaml_of({.entries = {{.id = 1, .msg_id = "A", .msg_text = "{ %x%TIMESTAMP%"},
                                   {.id = 2, .msg_id = "B", .msg_text = "it's %x%TIMESTAMP%"}}}),
              HasSubstr("renderer: bytes\n"));
}

TEST_F(DumpCommand, MessagesThatTheLibraryRefusesGiveStatus1AndTheirOffsets) {
  folder_.write("f.ldf", ldf_file{.entries = {{.id = 1, .msg_id = "A", .msg_text = "%d"},
                                              {.id = 2, .msg_id = "B", .msg_text = "{0}{ %x%NO%"}}}
                             .bytes());
  const auto run = dump("f.ldf");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("error[template-syntax]: the template has a placeholder without a "
                                 "name\n  25 64 00"));
  EXPECT_THAT(run.err, HasSubstr("warning[std-needed]: only an STD event can declare what this "
                                 "message names; beside its set, given with --std, the dump "
                                 "compiles\n  7B 30 7D"));
  EXPECT_THAT(run.out, HasSubstr("    message: {raw: \"{0}{ %x%NO%\"}\n"));
}

TEST_F(DumpCommand, OtherLayoutIsSaidAndStaysAWarning) {
  std::string bytes = read_whole_file(folder_.file("set.ldf"));
  bytes[11] = 7;
  folder_.write("f.ldf", bytes);
  const auto run = dump("f.ldf");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, StartsWith("f.ldf:0xB: warning[file-layout]: from here on the file is laid "
                                  "out otherwise than kplog compile does; "));
}

// --- AUX files

// An STD source, and an AUX file that shows its attributes and selects by one of them.
class DumpOfAuxiliaryFile : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("std.yaml",
                  "kplog: 1\nlog_version: \"1\"\nflags: {BIT_0: 2}\nattributes: {SITE: Char32}\n"
                  "events:\n  LOGIN: {id: 1, attributes: {USER: Char64, KIND: UInt1}, "
                  "select: KIND}\n");
    folder_.write("aux.yaml",
                  "kplog: 1\nlog_version: \"1\"\nflags: {LOW: 1}\nevents:\n"
                  "  LOGIN_AGAIN:\n    id: 1\n    flags: [LOW]\n    select: KIND\n"
                  "    message: \"{USER} at {SITE}\"\n"
                  "    messages: [{index: 1, value: 2, text: \"{USER} again\"}]\n");
    EXPECT_EQ(run("compile -q std.yaml -o std.ldf").err, "");
    EXPECT_EQ(run("compile -q --std std.yaml aux.yaml -o aux.ldf").err, "");
  }

  command_result run(const std::string& arguments) { return run_kplog(folder_.path(), arguments); }

  // Whether the YAML compiles to the AUX file beside the STD set.
  void expect_compiles(const std::string& yaml) {
    folder_.write("again.yaml", yaml);
    EXPECT_EQ(run("compile -q --std std.yaml again.yaml -o again.ldf").err, "");
    EXPECT_EQ(read_whole_file(folder_.file("again.ldf")), read_whole_file(folder_.file("aux.ldf")));
  }

  temp_folder folder_;
};

TEST_F(DumpOfAuxiliaryFile, ShowsTextsBesideItsStdSet) {
  for (const std::string standard : {"std.yaml", "std.ldf"}) {
    const auto dump = run("dump aux.ldf --std " + standard);
    EXPECT_EQ(dump.status, 0);
    EXPECT_EQ(dump.err, "");
    EXPECT_THAT(dump.out, HasSubstr("    select: KIND\n    message: \"{USER} at {SITE}\"\n"));
    EXPECT_THAT(dump.out, HasSubstr("text: \"{USER} again\"}\n"));
  }
  expect_compiles(run("dump aux.ldf --std std.yaml").out);
}

TEST_F(DumpOfAuxiliaryFile, KeepsItsFlagsApartFromThoseOfTheStdSet) {
  EXPECT_THAT(run("dump aux.ldf --std std.yaml").out, HasSubstr("flags:\n  BIT_0_: 0x00000001\n"));
}

TEST_F(DumpOfAuxiliaryFile, ShowsTemplatesWithoutItsStdSet) {
  const auto dump = run("dump aux.ldf");
  EXPECT_EQ(dump.status, 0);
  EXPECT_THAT(dump.err, HasSubstr(": warning[std-needed]: only an STD event can have the selector "
                                  "\"KIND\"; beside its set, given with --std, the dump "
                                  "compiles\n"));
  EXPECT_THAT(dump.out,
              HasSubstr("    select: KIND\n    message: {raw: \"%s%USER% at %s%SITE%\"}"));
}

TEST_F(DumpOfAuxiliaryFile, FaultsBesideTheStdSetGiveStatus1) {
  folder_.write("other.yaml",
                "kplog: 1\nlog_version: \"1\"\nevents:\n"
                "  LOGIN: {id: 1, attributes: {SORT: UInt1}, select: SORT}\n");
  const auto dump = run("dump aux.ldf --std other.yaml");
  EXPECT_EQ(dump.status, 1);
  EXPECT_THAT(dump.err, HasSubstr("error[std-selector]: the STD event selects by \"SORT\"\n"));
  EXPECT_THAT(dump.out, HasSubstr("    select: KIND\n"));
}

TEST_F(DumpOfAuxiliaryFile, TakesAnStdSetForYamlAlone) {
  for (const std::string format : {"json", "table"}) {
    const auto dump = run("dump aux.ldf --std std.yaml --format " + format);
    EXPECT_EQ(dump.status, 2);
    EXPECT_EQ(dump.err, "kplog: --std is for the format yaml; the others show the file alone\n");
  }
  EXPECT_EQ(run("dump aux.ldf --std none.ldf").status, 3);
}

// --- JSON and table

TEST_F(DumpCommand, GoldenJson) {
  expect_golden_file("package_manager.dump.json", dump("--format json set.ldf").out);
}

TEST_F(DumpCommand, JsonHoldsWhatYamlCannotSay) {
  const ldf_file odd{.log_version = "12345678", .globals = {{"\xE4\x1b", 25}}};
  folder_.write("f.ldf", odd.bytes());
  const auto run = dump("f.ldf --format json");
  EXPECT_EQ(run.status, 0);
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_EQ(json["log_version"], "12345678");
  EXPECT_EQ(json["attributes"][0]["name"]["hex"], "E41B");
  EXPECT_EQ(json["attributes"][0]["code"], 25);
  EXPECT_EQ(json["attributes"][0]["type"], "TypeUnknown");
}

TEST_F(DumpCommand, GoldenTable) {
  expect_golden_file("package_manager.dump.txt", dump("--format table set.ldf").out);
}

TEST_F(DumpCommand, TextsCannotSteerTheTerminal) {
  folder_.write("f.ldf", ldf_file{.globals = {{"\x1b[2J\xE2\x80\xAE", TypeUInt1}},
                                  .entries = {{.id = 1, .msg_id = "\x9b", .msg_text = "\x07"}}}
                             .bytes());
  for (const char* format : {"yaml", "json", "table"}) {
    const auto run = dump(std::string("f.ldf --format ") + format);
    EXPECT_THAT(run.out + run.err, testing::Not(testing::AnyOf(HasSubstr("\x1b"), HasSubstr("\x07"),
                                                               HasSubstr("\xE2\x80\xAE"))))
        << format;
  }
}

// --- exit statuses, streams

TEST_F(DumpCommand, StandardInputIsRead) {
  EXPECT_EQ(dump("- < set.ldf").out, dump("set.ldf").out);
}

TEST_F(DumpCommand, WhatCanBeReadOfADamagedFileIsDumped) {
  const std::string bytes = read_whole_file(folder_.file("set.ldf"));
  folder_.write("cut.ldf", bytes.substr(0, bytes.size() - 10));
  for (const char* format : {"yaml", "json", "table"}) {
    const auto run = dump(std::string("cut.ldf --format ") + format);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("SIGNATURE_CHECKED"));
    EXPECT_THAT(run.err, HasSubstr("the selector attribute's name takes 4 bytes, and 2 are left"));
  }
}

TEST_F(DumpCommand, NoDefinitionFileGivesStatus1AndNothingElse) {
  folder_.write("no.ldf", "kplog: 1\n");
  const auto run = dump("no.ldf");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, StartsWith("no.ldf:0x0: error[file-magic]: "));
}

TEST_F(DumpCommand, UnreadableFileAndFullDeviceGiveStatus3) {
  EXPECT_EQ(dump("none.ldf").status, 3);
  EXPECT_EQ(dump("none.ldf").err, "kplog: cannot read none.ldf: No such file or directory\n");
  const auto full = dump("set.ldf > /dev/full");
  EXPECT_EQ(full.status, 3);
  EXPECT_EQ(full.err, "kplog: cannot write standard output: No space left on device\n");
}

TEST_F(DumpCommand, JsonComesWithDiagnosticsForPrograms) {
  EXPECT_EQ(dump("none.ldf --format json").err,
            R"({"file":"none.ldf","severity":"error","code":"unreadable",)"
            R"("text":"cannot read none.ldf: No such file or directory","notes":[]})"
            "\n");
  folder_.write("no.ldf", "kplog: 1\n");
  EXPECT_THAT(dump("no.ldf --format json").err,
              StartsWith(R"({"file":"no.ldf","offset":0,"severity":"error","code":"file-magic",)"));
}

TEST_F(DumpCommand, WrongUsageGivesStatus2) {
  for (const char* arguments : {"", "set.ldf set.ldf", "set.ldf --format xml", "--nothing set.ldf"})
    EXPECT_EQ(dump(arguments).status, 2) << arguments;
}
