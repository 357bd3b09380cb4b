// Definition sources: which faults are found, where, and in what words.
#include "tools/source/reader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <sstream>

#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"
#include "tools/source/completion.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// "LINE:COLUMN: CODE: TEXT" of every fault and "LINE:COLUMN: TEXT" of every note, in their order.
static std::vector<std::string> faults_of_sources(const std::vector<std::string>& texts) {
  std::deque<text_file> sources;
  definition_set set;
  diagnostic_list found;
  for (const std::string& text : texts)
    read_definition_source(sources.emplace_back("s", text), set, found);
  complete_definition_set(set, found);
  std::ostringstream out;
  found.write(out, set.sources, diagnostic_format::text, false);
  std::istringstream lines(out.str());
  std::vector<std::string> faults;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("s:")) continue;
    const size_t kind = line.find(": ") + 2;
    const size_t code = line.find_first_of("[:", kind) + 1;
    faults.push_back(line.substr(2, kind - 2) +
                     line.substr(line[code - 1] == '[' ? code : code + 1));
    if (const size_t end = faults.back().find("]: "); end != std::string::npos)
      faults.back().erase(end, 1);
  }
  return faults;
}

static std::vector<std::string> faults_of(const std::string& text) {
  return faults_of_sources({text});
}

static const std::string head = "kplog: 1\nlog_version: \"1.0\"\n";

// What is wrong with lines of an event, the first of which is line 6.
static std::vector<std::string> faults_of_event(const std::string& lines) {
  return faults_of(head + "events:\n  EVENT:\n    id: 1\n" + lines);
}

// --- sources that break off

TEST(DefinitionSourceFaults, BeforeASyntaxErrorAreReported) {
  EXPECT_THAT(faults_of("kplog: 2\nevents:\n  A: {id: x}\n  B: {id: [}\n"),
              ElementsAre("1:8: source-format: definition sources of format 1 are read here, and "
                          "this is another",
                          "3:11: bad-number: a number from 0 to 4294967295 is expected here, "
                          "decimal or 0x and hexadecimal",
                          "4:12: yaml-syntax: illegal flow end",
                          "4:11: a list that is still open begins here"));
}

TEST(DefinitionSourceFaults, OfWhatMayStandBehindASyntaxErrorAreNone) {
  EXPECT_THAT(faults_of("events:\n"
                        "  A: {id: 1, flags: [F], message: \"{GLOBAL}\"}\n"
                        "  B:\n"
                        "    attributes: {X: UInt1}\n"
                        "    select: Y\n"
                        "    message: a: b\n"),
              ElementsAre("6:15: yaml-syntax: this colon does not stand behind a key; a text with "
                          "\": \" in it needs quotes"));
}

TEST(DefinitionSourceFaults, OfOtherSourcesStayWhenOneBreaksOff) {
  EXPECT_THAT(faults_of_sources({"kplog: 1\nevents: {", "kplog: 2\n"}),
              ElementsAre(HasSubstr("yaml-syntax: "), HasSubstr("a map that is still open"),
                          HasSubstr("1:8: source-format: ")));
}

TEST(DefinitionSourceFaults, BeforeASecondDocumentAndADepthTooGreatAreReported) {
  EXPECT_THAT(faults_of("kplog: 2\n---\nkplog: 2\n"),
              ElementsAre(HasSubstr("1:8: source-format: "),
                          "2:1: yaml-feature: a source is one document; this begins a second one"));
  EXPECT_THAT(faults_of("kplog: 2\nretired: " + std::string(65, '[')),
              ElementsAre(HasSubstr("1:8: source-format: "), HasSubstr("too-deep: ")));
}

TEST(DefinitionSourceFaults, AreFoundInEntriesWithoutAGoodName) {
  EXPECT_THAT(
      faults_of(head + "events:\n  \"\": {id: x}\n  ? [a]\n  : {id: y}\n  \"T\\t\":\n    id: 1\n"
                       "    attributes: {\"\": Fload, \"\\t\": {typ: Bool}}\n"),
      ElementsAre("4:3: bad-name: a name cannot be empty", HasSubstr("4:12: bad-number: "),
                  "5:5: wrong-kind: a key must be a name, not a list",
                  HasSubstr("6:10: bad-number: "),
                  "7:3: bad-name: a name cannot hold a control character",
                  "9:18: bad-name: a name cannot be empty",
                  "9:22: unknown-type: no type \"Fload\"; did you mean \"Float\"?",
                  "9:29: bad-name: a name cannot hold a control character",
                  "9:35: missing-key: an attribute needs the key \"type\"",
                  "9:36: unknown-key: an attribute has no key \"typ\"; did you mean \"type\"?"));
}

TEST(DefinitionSourceFaults, AreFoundBehindAKeyGivenTwice) {
  EXPECT_THAT(
      faults_of(head + "events:\n  A: {id: 1}\n  A: {id: x}\nevents:\n  B: {id: y}\n"),
      ElementsAre("5:3: duplicate-key: \"A\" is given twice", "4:3: \"A\" is given here first",
                  HasSubstr("5:11: bad-number: "), "6:1: duplicate-key: \"events\" is given twice",
                  "3:1: \"events\" is given here first", HasSubstr("7:11: bad-number: ")));
}

// --- one cause, one fault

TEST(DefinitionSourceFaults, OfAnAliasAreOne) {
  EXPECT_THAT(faults_of(head + "events:\n  A: &a {id: 1}\n  B: *a\n"),
              ElementsAre("4:6: yaml-feature: anchors are not allowed here",
                          "5:6: yaml-feature: aliases are not allowed here; write the value out"));
}

TEST(DefinitionSourceFaults, OfAnUnknownTypeAreOne) {
  EXPECT_THAT(faults_of_event("    attributes: {A: UInt5}\n    message: \"{A}\"\n"),
              ElementsAre("6:21: unknown-type: no type \"UInt5\"; did you mean \"UInt1\"?"));
  EXPECT_THAT(
      faults_of_sources({head + "attributes: {A: UInt5}\n", "kplog: 1\nattributes: {A: UInt1}\n"}),
      ElementsAre(HasSubstr("unknown-type")));
}

TEST(DefinitionSourceFaults, OfTypesThatAreCalledOtherwiseElsewhereSayWhatToUse) {
  const auto advice = [](const std::string& type) {
    const std::vector<std::string> faults =
        faults_of_event("    attributes: {A: \"" + type + "\"}\n");
    return faults.size() == 1 ? faults[0].substr(faults[0].find("; ") + 2)
                              : "another number of faults";
  };
  EXPECT_EQ(advice("uint32_t"), "integers count bytes; use a UInt4");
  EXPECT_THAT(advice("int64_t"), testing::StartsWith("there is no integer of 64 bits"));
  EXPECT_THAT(advice("long long"), testing::StartsWith("there is no integer of 64 bits"));
  for (const char* type : {"Char16", "MBChar512", "VARCHAR(255)", "string", "Char 2048"})
    EXPECT_THAT(advice(type), testing::StartsWith("use one of Char32 to Char2K")) << type;
  EXPECT_EQ(advice("Char(64)"), "did you mean \"Char64\"?");
  EXPECT_EQ(advice("mbchar2k"), "did you mean \"MBChar2K\"?");
}

TEST(DefinitionSourceFaults, OfATextThatBeginsWithASignOfYamlsSayThatItNeedsQuotes) {
  EXPECT_THAT(faults_of_event("    message: {raw: %s%A%}\n"),
              testing::Contains("6:20: yaml-syntax: a text that begins with \"%\" needs quotes"));
  EXPECT_THAT(faults_of_event("    message: @home\n"),
              testing::Contains("6:14: yaml-syntax: a text that begins with \"@\" needs quotes"));
}

// --- places

TEST(DefinitionSourcePlaces, OfNothingAreThoseOfItsKey) {
  EXPECT_THAT(
      faults_of(head + "events:\n  EVENT:\n\n  OTHER: ~\n"),
      ElementsAre("4:3: wrong-kind: an event is a map of keys and values, and there is "
                  "nothing here; what belongs to it is indented further, and an empty one is {}",
                  "6:10: wrong-kind: an event is a map of keys and values, and there is "
                  "nothing here; what belongs to it is indented further, and an empty one is {}"));
  EXPECT_THAT(faults_of_event("    note:\n    message:\n"),
              ElementsAre("6:5: wrong-kind: a text is expected here, and there is nothing here",
                          HasSubstr("7:5: wrong-kind: a message is a text, or a map of keys and "
                                    "values, and there is nothing here")));
}

TEST(DefinitionSourcePlaces, OfNothingInAListAreThoseOfTheDash) {
  EXPECT_THAT(faults_of(head + "retired:\n  - # none\n\n  - 1\n  -\n  - ~\n  - \n"),
              ElementsAre(HasSubstr("4:3: bad-number"), HasSubstr("7:3: bad-number"),
                          HasSubstr("8:5: bad-number"), HasSubstr("9:3: bad-number")));
}

TEST(DefinitionSourcePlaces, StandWithinTextsOfEveryNotation) {
  for (const char* message :
       {"one\n      two  \n\n      {N}\n", "'it''s\n      {N}'\n",
        "\"\\u00e4\\n\\\n      \\ b\n\n      {N}\"\n", ">-\n      one\n      {N}\n",
        "|2+ # literal\n        one\n\n      {N}\n"}) {
    const std::string lines = std::string("    message: ") + message;
    const auto line = 5 + std::count(lines.begin(), lines.end() - 1, '\n') + 1;
    EXPECT_THAT(faults_of_event(lines),
                ElementsAre(std::to_string(line) + ":8: text-attribute: no attribute \"N\" here"))
        << message;
  }
}

// --- words

TEST(DefinitionSourceWords, TellNothingFromAnEmptyMapOrList) {
  EXPECT_THAT(
      faults_of(head + "flags:\nattributes:\nretired:\nevents:\n"),
      ElementsAre("3:1: wrong-kind: flags are a map of names and numbers, and there is "
                  "nothing here; what belongs to it is indented further, and an empty one is {}",
                  "4:1: wrong-kind: attributes are a map of names and types, and there is "
                  "nothing here; what belongs to it is indented further, and an empty one is {}",
                  "5:1: wrong-kind: retired IDs are a list, and there is nothing here; an "
                  "empty one is []",
                  "6:1: wrong-kind: events are a map of their names, and there is nothing "
                  "here; what belongs to it is indented further, and an empty one is {}"));
  EXPECT_THAT(faults_of(head + "flags: {}\nattributes: {}\nretired: []\nevents: {}\n"), IsEmpty());
}

TEST(DefinitionSourceWords, SayWhatMayStandInPlaceOfAList) {
  EXPECT_THAT(faults_of_event("    attributes: {A: [UInt1]}\n    message: [a]\n"),
              ElementsAre("6:21: wrong-kind: an attribute is a type, or a map of keys and values",
                          "7:14: wrong-kind: a message is a text, or a map of keys and values"));
}

TEST(DefinitionSourceWords, SayThatATabIsNoIndentation) {
  const std::string fault =
      "yaml-syntax: a tab in the indentation, which YAML makes of blanks alone";
  EXPECT_THAT(faults_of(head + "events:\n\tA: {id: 1}\n"), ElementsAre("4:1: " + fault));
  EXPECT_THAT(faults_of(head + "events:\n  A:\n    id: 1\n  \tnote: x\n"),
              ElementsAre("6:3: " + fault));
}

TEST(DefinitionSourceWords, SayThatAQuoteIsNotClosed) {
  const std::string fault = "yaml-syntax: the text that begins here has no closing quote";
  EXPECT_THAT(faults_of("kplog: \"1\n"), ElementsAre("1:8: " + fault));
  EXPECT_THAT(faults_of("kplog: 'it''s\n"), ElementsAre("1:8: " + fault));
}

TEST(DefinitionSourceWords, CountALogVersionInBytes) {
  EXPECT_THAT(faults_of("kplog: 1\nlog_version: größer\n"),
              ElementsAre("2:14: log-version: a log version has at most 7 bytes in UTF-8, and this "
                          "one 8"));
  EXPECT_THAT(faults_of("kplog: 1\nlog_version: \"1\\t2\"\n"),
              ElementsAre("2:14: log-version: a log version cannot hold a control character"));
  EXPECT_THAT(faults_of("kplog: 1\nlog_version: größe\n"), IsEmpty());
}

TEST(DefinitionSourceWords, SayThatANumberWithAZeroInFrontIsTwoNumbers) {
  const std::string fault =
      "bad-number: a number with a zero in front is octal to some readers of YAML; write it "
      "without, or after 0x";
  EXPECT_THAT(
      faults_of(head + "retired: [0, 010, 1-09, 01-2]\nevents: {A: {id: 007}, B: {id: 0x07}}\n"),
      ElementsAre("3:14: " + fault, "3:19: " + fault, "3:25: " + fault, "4:18: " + fault));
}

TEST(DefinitionSourceWords, NameACodePageThatIsNone) {
  EXPECT_THAT(faults_of(head + "code_pages: [UTF-8, klingon, ibm-858]\n"),
              ElementsAre("3:21: unknown-code-page: no code page \"klingon\""));
}

// --- hostile bytes

static void read_and_write(const std::string& text) {
  const text_file source("s", text);
  definition_set set;
  diagnostic_list found;
  read_definition_source(source, set, found);
  complete_definition_set(set, found);
  std::ostringstream out;
  found.write(out, {&source}, diagnostic_format::json, false);
}

TEST(DefinitionSource, EveryTruncationIsReadOrRefused) {
  const std::string text = read_whole_file(test_data_folder() + "/package_manager.yaml");
  for (size_t size = 0; size < text.size(); ++size) read_and_write(text.substr(0, size));
}

TEST(DefinitionSource, EveryFlippedByteIsReadOrRefused) {
  std::string text = read_whole_file(test_data_folder() + "/package_manager.yaml");
  for (size_t i = 0; i < text.size(); ++i) {
    const char before = text[i];
    for (const int bit : {1, 2, 16}) {
      text[i] = static_cast<char>(before ^ bit);
      read_and_write(text);
    }
    text[i] = before;
  }
}
