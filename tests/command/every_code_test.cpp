// Golden lists for what no file beside the tests can hold: compiled files and counter files with
// each fault, sources of a size, files that are not there. And the rule that every code stands in
// some golden list.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "recording/report/rules.h"
#include "tests/command/command_run.h"
#include "tests/command/golden_file.h"
#include "tests/support/counter_folder.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

// Commands and what they say, one after the other.
class transcript {
 public:
  const temp_folder& folder() const { return folder_; }
  const std::string& text() const { return text_; }

  void run(const std::string& arguments) {
    const command_result result = run_kplog(folder_.path(), arguments);
    text_ += "$ kplog " + arguments + "\n" + result.err + "status " +
             std::to_string(result.status) + "\n\n";
  }
  // "kplog check NAME" of a file of that content.
  void check(const std::string& name, const std::string& content) {
    folder_.write(name, content);
    run("check " + name);
  }

 private:
  temp_folder folder_;
  std::string text_;
};

static std::string source_with(const std::string& events) {
  return "kplog: 1\nlog_version: \"1.0\"\nevents:\n" + events;
}

static std::string lines(size_t count, const std::function<std::string(size_t)>& line) {
  std::string text;
  for (size_t i = 1; i <= count; ++i) text += line(i);
  return text;
}

// --- compiled files

static constexpr size_t first_record = 128 + 8;  // of a file with one entry and no globals

static std::string one_entry(ldf_entry entry) {
  entry.id = 17;
  return ldf_file{.entries = {entry}}.bytes();
}

static std::string with_bytes(std::string bytes, size_t offset, const std::string& changed) {
  return bytes.replace(offset, changed.size(), changed);
}

// Records that lie within one another: the text of each holds all that come behind it.
static std::string nested_records() {
  const uint32_t count = 2000;
  ldf_file nested;
  for (uint32_t id = 1; id <= count; ++id) nested.entries.push_back({.id = id});
  std::string bytes = nested.bytes().substr(0, 128 + 8 * count);
  const auto record = static_cast<uint32_t>(bytes.size());
  const uint32_t tail = 100000;
  for (uint32_t i = 0; i < count; ++i) {
    bytes = with_bytes(std::move(bytes), 128 + 8 * i + 4, ldf_int4(record + 16 * i));
    bytes += ldf_int4(i + 1) + ldf_int4(0) + ldf_int4(0) + ldf_int4(tail + 16 * (count - i - 1));
  }
  return bytes + std::string(tail + 16, 'x');
}

TEST(EveryCode, GoldenListOfDamagedCompiledFiles) {
  transcript session;
  const std::string paid = one_entry({.msg_id = "PAID"});
  session.folder().write("magic.ldf", ".LDG and more");
  session.run("dump magic.ldf");
  session.check("short.ldf", paid.substr(0, 150));
  session.check("record.ldf", with_bytes(paid, first_record, ldf_int4(99)));
  session.check("mapping.ldf", ldf_file{.entries = {{.id = 1}, {.id = 1}}}.bytes());
  session.check("string.ldf", with_bytes(paid, first_record + 16 + 4, "!"));
  session.check("type.ldf", ldf_file{.globals = {{"A", 0x102}}}.bytes());
  session.check("attribute.ldf", one_entry({.attributes = {{"A", TypeUInt1}, {"A", TypeUInt2}}}));
  session.check("time.ldf", ldf_file{.globals = {{"DAYLIGHT_SAVING_ACTIVE", TypeSInt1}},
                                     .entries = {{.attributes = {{"TIMEZONE_DIFFERENCE", TypeSInt2},
                                                                 {"TIMESTAMP", TypeMBChar32}}}}}
                                .bytes());
  session.check("name.ldf", one_entry({.attributes = {{"", TypeUInt1}}}));
  session.check("selector.ldf", one_entry({.selector = "K"}));
  session.check("selecting.ldf", one_entry({.selector = "K", .attributes = {{"K", TypeFloat}}}));
  session.check("hidden.ldf", one_entry({.messages = {{1, 1, "", ""}, {1, 2, "", ""}}}));
  session.check("version.ldf", ldf_file{.log_version = "12345678"}.bytes());
  session.check("unused.ldf", paid + "ab");
  session.check("template.ldf", one_entry({.msg_text = "%d%PORT% 50%"}));
  session.folder().write("overlap.ldf", nested_records());
  session.run("check -q --format json --severity file-string=off overlap.ldf");
  expect_golden_file("damaged_files.expected", session.text());
}

TEST(EveryCode, GoldenListOfDumpsThatSayLess) {
  transcript session;
  session.folder().write("version.ldf", ldf_file{.log_version = "12345678"}.bytes());
  session.run("dump version.ldf");
  session.folder().write("layout.ldf", with_bytes(ldf_file{}.bytes(), 11, "\x05"));
  session.run("dump layout.ldf");
  session.folder().write("selector.ldf",
                         one_entry({.selector = "K", .messages = {{1, 1, "M", "text"}}}));
  session.run("dump selector.ldf");
  expect_golden_file("dumps.expected", session.text());
}

TEST(EveryCode, GoldenListOfDamagedCounterFiles) {
  transcript session;
  const std::string good = counter_record(2026, 11, 15, 17, 2);
  session.folder().write("length.cnt", "These 32 bytes are no counter..\n");
  session.folder().write("torn.cnt", good.substr(0, 23));
  session.folder().write("duplicate.cnt", good + good);
  session.folder().write("day.cnt", counter_record(2026, 2, 29, 17, 2));
  for (const std::string name : {"length", "torn", "duplicate", "day"})
    session.run("count --format csv " + name + ".cnt");
  expect_golden_file("damaged_counters.expected", session.text());
}

// --- sources, and files that are not there

TEST(EveryCode, GoldenListOfConfigurationFiles) {
  transcript session;
  session.check("sound.conf",
                "# 5\n#LogLevelLow = 3\n[global]\nLogLevelLow = 0\nLogLevelHigh 0x9\r\n"
                "PropertyMask=0xFFFFFFFF extra\n\n[shop]\nColour = red # dark\nLogLevelMax = 12\n"
                "Retries = -1\nDebugEnabled=1\n\n");
  session.check("last.conf", "[global]\nLogLevelLow = 3\n");
  session.check("open.conf", "[global]\nLogLevelLow = 3");
  session.check("long.conf",
                "[global]\nColour = " + std::string(120, 'x') + "\nLogLevelLow = 12\n\n");
  session.check("faults.conf",
                "LogLevelLow = 1\n[global]\nloglevellow = 1\nLOG_LEVEL_HIGH = 4\nDebugEnable = 1\n"
                "LogLevelHigh = 10\nPropertyMask = 4294967296\nDebugLogLevelLow = high\n"
                "DebugLogLevelHigh\nDebugEnabled = 1 # while testing\nLogLevelLow = 3#\n"
                "[my shop]\nLogLevelLow = -1\n[\nLogLevelLow = 2\n\n");
  session.run("check --format json last.conf");
  session.run("check last.conf open.conf");
  session.run("check none.conf");
  session.check("mark.conf", "\xEF\xBB\xBF[global]\nColour = 1\n\n");
  session.check("nul.conf", std::string("[global]\nLogLevel\0Low = 1\n\n", 27));
  session.check("names.conf",
                "[Global]\nLogLevelLow = 1\n[shop]\nDebugLogLevelLow = 1\nac = 1\n[shopDebug]\n"
                "LogLevelLow = 2\n[shopa]\nc = 1\nPropertyMask:0xFFFF\n\n");
  session.check("debug.conf",
                "[Debug]\nLogLevelLow = 1\n[shopDebug]\nLogLevelLow = 2\nDebugLogLevelHigh = 3\n"
                "ownLogLevelLow = 4\n[globalDebug]\nLogLevelHigh = 5\n[shop]\n"
                "DebugLogLevelLow = 6\n\n");
  expect_golden_file("configuration_files.expected", session.text());
}

TEST(EveryCode, GoldenListOfExtremeSources) {
  transcript session;
  session.check("encoding.yaml", "kplog: \xFF\n");
  session.check("deep.yaml", "kplog: " + std::string(70, '[') + std::string(70, ']') + "\n");
  session.check("many.yaml",
                source_with("  A:\n    id: 1\n    attributes:\n" + lines(256, [](size_t i) {
                              return "      A" + std::to_string(i) + ": UInt1\n";
                            })));
  session.check("large.yaml", "kplog: 1\n" + lines(280000, [](size_t) {
                                return "# " + std::string(60, 'x') + "\n";
                              }));
  session.check("long.yaml", "renderer: bytes\n" +
                                 source_with("  A:\n    id: 1\n    attributes: {A: MBChar2K}\n"
                                             "    message: \"" +
                                             lines(11, [](size_t) { return "{A} "; }) + "\"\n"));
  session.folder().write("std.yaml", source_with(lines(128, [](size_t i) {
                           return "  E" + std::to_string(i) + ": {id: " + std::to_string(i) +
                                  ", message: m}\n";
                         })));
  session.folder().write("aux.yaml", source_with("  E0: {id: 0, message: m}\n"
                                                 "  E7: {id: 7, message: n}\n"));
  session.run("check aux.yaml --std std.yaml");
  expect_golden_file("extreme_sources.expected", session.text());
}

// An event in which something is often written otherwise than it must be.
static std::string event_with(const std::string& keys) {
  return source_with("  A:\n    id: 1\n    attributes: {N: UInt4, USER: Char64}\n" + keys);
}

TEST(EveryCode, GoldenListOfWordsThatHelp) {
  transcript session;
  session.check("quotes.yaml", event_with("    message: {USER} logged in\n"));
  session.check("map.yaml", event_with("    message: {USER}\n"));
  session.check("text.yaml", event_with("    message: {text: {USER}}\n"));
  session.check("flow.yaml", event_with("    messages:\n"
                                        "      - {index: 1, value: 0, text: {USER} was let in}\n"));
  session.check("less.yaml", event_with("   message: m\n"));
  session.check("more.yaml", source_with("  A:\n    id: 1\n      message: m\n"));
  session.check("same.yaml", source_with("  A:\n  id: 1\n"));
  session.check("level.yaml", source_with("  A:\n    id: 1\n") + "message: m\n");
  session.check("number.yaml", source_with("  A: {id: \"1\"}\n"));
  std::string types;
  for (const std::string type : {"uint8", "UInt8", "int64", "uint32", "double", "string", "MBChar",
                                 "boolean", "datetime", "Bytes16"})
    types += "      " + type + "_: " + type + "\n";
  session.check("types.yaml", source_with("  A:\n    id: 1\n    attributes:\n" + types));
  session.check("key.yaml", event_with("    massage: m\n    severity: 3\n"));
  session.check("format.yaml", event_with("    message: \"{N:hex} {N:currancy}\"\n"));
  session.check(
      "plural.yaml",
      event_with("    message: \"{N, plural, one {# file} other {# files}} of {USER}\"\n"));
  session.folder().write("std.yaml", "kplog: 1\nlog_version: \"1\"\nflags: {AUDIT: 1}\n");
  session.run("compile -q std.yaml -o std.ldf");
  session.folder().write("aux.yaml", source_with("  A: {id: 1, flags: [AUDIT], message: m}\n"));
  session.run("check aux.yaml --std std.ldf");
  session.run("check aux.yaml --std std.yaml");
  session.run("emit --definitions std.yaml --to text:log < std.yaml");
  session.run("dump std.yaml");
  expect_golden_file("words.expected", session.text());
}

TEST(EveryCode, GoldenListOfFilesThatAreNotThere) {
  transcript session;
  session.folder().write("s.yaml", source_with("  A: {id: 1, message: {id: X, text: one}}\n"
                                               "  B: {id: 2, message: {id: X, text: two}}\n"));
  session.run("check --format json none.yaml");
  session.run("compile --format json s.yaml -o none/s.ldf");
  session.run("catalog extract s.yaml -o -");
  expect_golden_file("files.expected", session.text());
}

TEST(EveryCode, GoldenDifferenceOfATemplateAlone) {
  const temp_folder folder;
  folder.write("old.yaml", source_with("  A: {id: 1, message: \"it's\"}\n"));
  folder.write("new.yaml", source_with("  A: {id: 1, message: {raw: \"it's\"}}\n"));
  expect_golden_file("changed_template.expected",
                     run_kplog(folder.path(), "diff old.yaml new.yaml").out);
}

// --- the rule

static std::string golden_files() {
  std::string all;
  for (const auto& file : std::filesystem::directory_iterator(test_data_folder()))
    if (file.path().filename().string().find(".expected") != std::string::npos)
      all += read_whole_file(file.path());
  return all;
}

static bool is_in(const std::string& golden, const std::string& code) {
  for (const std::string& shown :
       {"[" + code + "]: ", "\"code\":\"" + code + "\"", ": " + code + ": "})
    if (golden.find(shown) != std::string::npos) return true;
  return false;
}

TEST(EveryCode, OfDiagnosticsStandsInAGoldenFile) {
  const std::string golden = golden_files();
  for (const diagnostic_rule rule : diagnostic_rules())
    EXPECT_TRUE(is_in(golden, rule->code)) << rule->code;
}

TEST(EveryCode, OfDifferencesStandsInAGoldenFile) {
  const std::string golden = golden_files();
  for (const change_rule rule : change_rules())
    EXPECT_TRUE(is_in(golden, rule->code)) << rule->code;
}
