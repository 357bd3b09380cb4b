// Every character through every writer of texts, and back through a reader that others wrote, or
// that follows the language's own rules here.
#include "recording/text/escape.h"

#include <gtest/gtest.h>
#include <simdjson.h>
#include <unicode/resbund.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "recording/text/number.h"
#include "tests/command/characters.h"
#include "tests/command/command_run.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"
#include "tools/catalog/bundle.h"
#include "tools/catalog/po.h"
#include "tools/source/yaml_tree.h"

// Behind each character stands what an escape that does not know its end would take for a part of
// itself.
static void append_with_trap(std::string& text, uint32_t code_point) {
  append_utf8(text, code_point);
  text += "0f7"[code_point % 3];
}

// All 1,112,064 scalar values in texts of 4,096, from `first` on.
static std::vector<std::string> every_character(uint32_t first = 0) {
  std::vector<std::string> texts;
  for (uint32_t code_point = first; code_point <= 0x10FFFF; ++code_point) {
    if (!is_scalar_value(code_point)) continue;
    if (texts.empty() || code_point % 0x1000 == 0) texts.emplace_back();
    append_with_trap(texts.back(), code_point);
  }
  return texts;
}

// Of these all that is unsafe on a terminal, and ASCII.
static std::string every_unsafe_character(uint32_t first = 0) {
  std::string text;
  for (uint32_t code_point = first; code_point < 0x80; ++code_point)
    append_with_trap(text, code_point);
  for (const uint32_t code_point : unsafe_characters())
    if (code_point >= 0x80) append_with_trap(text, code_point);
  return text;
}

TEST(TextEscape, EveryCharacterIsThere) {
  size_t units = 0;
  for (const std::string& text : every_character()) units += utf16_length(text);
  EXPECT_EQ(units, 1112064u * 2 + 0x100000u);
}

// Where the texts differ first.
static testing::AssertionResult is_same(std::string_view read, std::string_view text) {
  if (read == text) return testing::AssertionSuccess();
  const size_t common = static_cast<size_t>(
      std::mismatch(read.begin(), read.end(), text.begin(), text.end()).first - read.begin());
  return testing::AssertionFailure()
         << "differ at byte " << common << ": " << read.substr(common, 8) << " for U+"
         << hexadecimal(utf8_at(text, std::min(common, text.size() - 1)).code_point, 4);
}

// Nothing in the text hides or moves anything on a terminal.
static bool is_safe(std::string_view written) {
  for (const utf8_character& character : utf8(written))
    if (!character.valid || is_unsafe_on_terminal(character.code_point)) return false;
  return true;
}

TEST(TextEscape, WhatIsUnsafeIsWrittenOutForProgramsAndForPeople) {
  const std::string text = every_unsafe_character();
  ASSERT_GT(utf16_length(text), 4154u * 2);
  for (const auto write :
       {json_string, yaml_quoted, cpp_literal, genrb_quoted, terminal_text, xml_text})
    EXPECT_TRUE(is_safe(write(text)));
}

// --- JSON

TEST(TextEscape, JsonIsReadAgainByBothParsers) {
  simdjson::dom::parser parser;
  for (const std::string& text : every_character()) {
    const std::string json = json_string(text);
    std::string_view read;
    ASSERT_EQ(parser.parse(json).get(read), simdjson::SUCCESS);
    ASSERT_TRUE(is_same(read, text));
    ASSERT_TRUE(is_same(nlohmann::json::parse(json).get_ref<const std::string&>(), text));
  }
}

TEST(TextEscape, JsonHasSurrogatesForWhatIsAboveTheFirstPlane) {
  EXPECT_EQ(json_string("\U000E0100\U0001F1E6\U0010FFFF"),
            "\"\\uDB40\\uDD00\U0001F1E6\\uDBFF\\uDFFF\"");
  EXPECT_EQ(json_string("a\"b\\c\nd\re\tf\x1B\x7F\xFF"), R"("a\"b\\c\nd\re\tf\u001B\u007F\uFFFD")");
}

// --- YAML

TEST(TextEscape, YamlIsReadAgain) {
  for (const std::string& text : every_character()) {
    const std::string yaml = yaml_quoted(text);
    const text_file source("a.yaml", yaml);
    diagnostic_list found;
    yaml_node root;
    ASSERT_TRUE(read_yaml(source, root, found));
    ASSERT_TRUE(found.empty());
    ASSERT_TRUE(is_same(root.text, text));
  }
}

TEST(TextEscape, YamlHasEightDigitsForWhatIsAboveTheFirstPlane) {
  EXPECT_EQ(yaml_quoted("\U000E0100\u200B\u0085\x01\xFF"), R"("\U000E0100\u200B\x85\x01\uFFFD")");
}

// The percent sign makes a message a template, which needs no escape.
static std::string unsafe_text(char32_t first) {
  std::string text = every_unsafe_character(first);
  std::erase(text, '%');
  return text;
}

// Messages of a definition file, by way of a dump and its compilation.
TEST(TextEscape, DumpedTextsCompileToTheSameBytes) {
  const ldf_file file = {.entries = {{.id = 1, .msg_id = "A", .msg_text = unsafe_text(1)},
                                     {.id = 2, .msg_id = "B", .msg_text = unsafe_text(0x80)}}};
  const temp_folder folder;
  folder.write("f.ldf", file.bytes());
  ASSERT_EQ(run_kplog(folder.path(), "dump f.ldf > f.yaml").err, "");
  EXPECT_EQ(run_kplog(folder.path(), "compile -q f.yaml -o again.ldf").err, "");
  EXPECT_EQ(read_whole_file(folder.file("again.ldf")), file.bytes());
}

// --- C++ and PO

// The text of a literal of C, read by the rules of the language; "" where it has no end.
static std::string read_literal(std::string_view literal) {
  static const std::map<char, char> named = {{'n', '\n'}, {'t', '\t'}, {'r', '\r'}};
  std::string text;
  for (size_t i = 1; i < literal.size(); ++i) {
    if (literal[i] == '"') return i + 1 == literal.size() ? text : "";
    if (literal[i] != '\\') {
      text += literal[i];
      continue;
    }
    ++i;
    unsigned digits = 0;
    unsigned byte = 0;
    for (; digits < 3 && literal[i + digits] >= '0' && literal[i + digits] <= '7'; ++digits)
      byte = byte * 8 + static_cast<unsigned>(literal[i + digits] - '0');
    const auto known = named.find(literal[i]);
    text += digits != 0            ? static_cast<char>(byte)
            : known != named.end() ? known->second
                                   : literal[i];
    i += digits == 0 ? 0 : digits - 1;
  }
  return "";
}

TEST(TextEscape, CppLiteralsAreReadAgain) {
  for (const std::string& text : every_character()) {
    EXPECT_TRUE(is_same(read_literal(cpp_literal(text)), text));
  }
  EXPECT_EQ(cpp_literal("?\?/\"\\\n\x7F\xFF"), R"("\?\?/\"\\\012\177\377")");
}

static std::string numbers_of(std::string_view text) {
  std::string numbers;
  for (const char byte : text) numbers += std::to_string(int{byte}) + ",";
  return numbers;
}

TEST(TextEscape, CompilerReadsCppLiteralsAgain) {
  const std::string text = every_unsafe_character();
  const temp_folder folder;
  folder.write("literal.cpp", "constexpr char literal[] = " + cpp_literal(text) +
                                  ";\nconstexpr char bytes[] = {" + numbers_of(text) +
                                  "0};\nconstexpr bool same() {\n"
                                  "  for (unsigned i = 0; i < sizeof bytes; ++i)\n"
                                  "    if (bytes[i] != literal[i]) return false;\n"
                                  "  return sizeof literal == sizeof bytes;\n}\n"
                                  "static_assert(same());\n");
  const std::string command =
      std::string(KPLOG_COMPILER) + " -std=c++20 -fsyntax-only " + folder.file("literal.cpp");
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): the compiler under test
}

// A text of a PO file cannot hold a NUL, which ends it for other readers.
TEST(TextEscape, PoTextsAreReadAgain) {
  po_document document;
  for (const std::string& text : every_character(1)) {
    po_entry& entry = document.entries.emplace_back();
    entry.context = {"E" + std::to_string(document.entries.size()), true};
    entry.id = {"text", true};
    entry.translation = {text, true};
  }
  const text_file source("de.po", po_text(document));
  diagnostic_list found;
  po_document again;
  ASSERT_TRUE(read_po(source, again, found));
  EXPECT_TRUE(found.empty());
  ASSERT_EQ(again.entries.size(), document.entries.size());
  for (size_t i = 0; i < again.entries.size(); ++i)
    EXPECT_TRUE(is_same(again.entries[i].translation.text, document.entries[i].translation.text));
  const std::string unsafe = every_unsafe_character();
  EXPECT_TRUE(is_same(read_literal(po_quoted(unsafe)), unsafe));
  EXPECT_EQ(po_quoted("a\"b\\c\nd\re\tf\x01\x7F\u200D"),
            "\"a\\\"b\\\\c\\nd\\re\\tf\\001\\177\u200D\"");
}

// --- ICU resource text

// Texts of definitions end at their first NUL, so that bundles need none.
TEST(TextEscape, IcuResourceTextsAreReadAgain) {
  catalog_bundle bundle{"root", {}};
  const std::vector<std::string> texts = every_character(1);
  for (size_t i = 0; i < texts.size(); ++i) {
    bundle.templates["E" + std::to_string(i)] = texts[i];
  }
  const temp_folder folder;
  write_bundles(folder.path(), {bundle});
  UErrorCode status = U_ZERO_ERROR;
  const icu::ResourceBundle opened(folder.path().c_str(), icu::Locale::getRoot(), status);
  const icu::ResourceBundle table = opened.get("STRING_TABLE", status);
  for (size_t i = 0; i < texts.size(); ++i) {
    std::string read;
    table.getStringEx(("E" + std::to_string(i)).c_str(), status).toUTF8String(read);
    ASSERT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    EXPECT_TRUE(is_same(read, texts[i]));
  }
}

// --- for people

// Undoes \xNN and \u{N}.
static std::string read_for_people(std::string_view shown) {
  std::string text;
  for (size_t i = 0; i < shown.size(); ++i) {
    const bool is_byte = shown.substr(i).starts_with("\\x");
    if (!is_byte && !shown.substr(i).starts_with("\\u{")) {
      text += shown[i];
      continue;
    }
    const size_t first = i + (is_byte ? 2 : 3);
    const size_t end = is_byte ? first + 2 : shown.find('}', first);
    append_utf8(text, static_cast<uint32_t>(
                          std::stoul(std::string(shown.substr(first, end - first)), nullptr, 16)));
    i = is_byte ? end - 1 : end;
  }
  return text;
}

static std::string with_blanks_for_tabs(std::string text) {
  std::replace(text.begin(), text.end(), '\t', ' ');
  return text;
}

TEST(TextEscape, WhatPeopleSeeSaysWhichCharacterItIs) {
  for (const std::string& text : every_character()) {
    std::string line;
    append_log_text(line, text);
    EXPECT_TRUE(is_same(read_for_people(line), text));
  }
}

static std::string read_xml(std::string_view xml) {
  static const std::map<std::string_view, char> entities = {
      {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}};
  std::string text;
  for (size_t i = 0; i < xml.size(); ++i) {
    EXPECT_NE(xml[i], '<');
    if (xml[i] != '&') {
      text += xml[i];
      continue;
    }
    const size_t end = xml.find(';', i);
    text += entities.at(xml.substr(i, end + 1 - i));
    i = end;
  }
  return text;
}

TEST(TextEscape, XmlIsReadAgain) {
  for (const std::string& text : every_character()) {
    EXPECT_TRUE(is_same(read_for_people(read_xml(xml_text(text))), with_blanks_for_tabs(text)));
  }
}

// --- Terminals

TEST(TerminalText, WhatMovesOrHidesIsWrittenOut) {
  EXPECT_EQ(terminal_text("a\x1b[31mb"), "a\\x1B[31mb");
  EXPECT_EQ(terminal_text(std::string("nul\0", 4)), "nul\\x00");
  EXPECT_EQ(terminal_text("\xC2\x9B"
                          "1m"),
            "\\u{009B}1m");
  EXPECT_EQ(terminal_text("\x9B"), "\\x9B");
  EXPECT_EQ(terminal_text("\u202Egnp.exe"), "\\u{202E}gnp.exe");
  EXPECT_EQ(terminal_text("a\u2028b\u2066c"), "a\\u{2028}b\\u{2066}c");
  EXPECT_EQ(terminal_text("a\tb\x7F"), "a b\\x7F");
  EXPECT_EQ(terminal_text("Größe 日本 \\n"), "Größe 日本 \\n");
}

// First and last of each range that a terminal shows as nothing, or shows others by.
TEST(TerminalText, WhatIsInvisibleIsWrittenOut) {
  constexpr std::array<std::array<uint32_t, 2>, 22> ranges = {{
      {0xAD, 0xAD},       {0x34F, 0x34F},       {0x61C, 0x61C},     {0x115F, 0x1160},
      {0x17B4, 0x17B5},   {0x180B, 0x180F},     {0x200B, 0x200F},   {0x2028, 0x2029},
      {0x202A, 0x202E},   {0x2060, 0x206F},     {0x3164, 0x3164},   {0xFDD0, 0xFDEF},
      {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},     {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},
      {0xFFFE, 0xFFFF},   {0x1D173, 0x1D17A},   {0x1FFFE, 0x1FFFF}, {0xE0000, 0xE0FFF},
      {0xEFFFE, 0xEFFFF}, {0x10FFFE, 0x10FFFF},
  }};
  for (const auto& [first, last] : ranges)
    for (uint32_t code_point = first; code_point <= last; ++code_point)
      EXPECT_TRUE(is_unsafe_on_terminal(code_point)) << std::hex << code_point;
  EXPECT_EQ(terminal_text("a\u00ADb\U000E0041c"), "a\\u{00AD}b\\u{E0041}c");
}

TEST(TerminalText, WhatCanBeSeenIsNotWrittenOut) {
  for (const uint32_t code_point :
       {0x20u, 0x7Eu, 0xA0u, 0xE4u, 0x301u, 0x600u, 0x2010u, 0x3000u, 0xE000u, 0xFFFDu, 0x1F600u})
    EXPECT_FALSE(is_unsafe_on_terminal(code_point)) << std::hex << code_point;
}

TEST(TerminalText, EveryByteComesOutPrintable) {
  for (int byte = 0; byte < 256; ++byte)
    for (const char shown : terminal_text(std::string(1, static_cast<char>(byte))))
      EXPECT_TRUE(shown >= 0x20 && shown < 0x7F) << byte;
}

TEST(TerminalText, WideCharactersTakeTwoCells) {
  EXPECT_EQ(terminal_width("ab"), 2u);
  EXPECT_EQ(terminal_width("日本"), 4u);
  EXPECT_EQ(terminal_width("e\u0301"), 1u);
}
