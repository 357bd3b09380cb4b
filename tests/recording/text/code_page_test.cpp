// What reaches a line of a log: every byte, every hazard, every code page.
#include <gtest/gtest.h>
#include <unicode/ucnv.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "recording/text/code_page.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "tests/command/characters.h"
#include "tests/support/raised_by.h"

static std::string shown(std::string_view text) {
  std::string line;
  append_log_text(line, text);
  return line;
}

static std::string in_code_page(const std::string& code_page, std::string_view text) {
  log_code_page converter(code_page);
  std::string out;
  converter.append(out, text);
  return out;
}

// --- Escapes ---

TEST(LogText, EveryByteAlone) {
  for (unsigned byte = 0; byte < 0x100; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool is_plain = byte == '\t' || (byte >= 0x20 && byte < 0x7F);
    EXPECT_EQ(shown(text), is_plain ? text : "\\x" + hexadecimal(byte, 2)) << byte;
    EXPECT_EQ(shown("a" + text + "b"), "a" + shown(text) + "b") << byte;
  }
}

TEST(LogText, KeepsBackslashesTabsAndReadableTextOfAnyScript) {
  for (const char* text :
       {"C:\\temp\\new", "\\x1B", "a\tb", "日本語 – Grüße", "😀👍🏽", "नमस्ते", ""})
    EXPECT_EQ(shown(text), text);
}

struct hazard {
  const char* text;
  const char* shown;
};

static void PrintTo(const hazard& text, std::ostream* out) {
  *out << text.shown;
}

class LogTextHazard : public testing::TestWithParam<hazard> {};

TEST_P(LogTextHazard, IsWrittenOut) {
  EXPECT_EQ(shown(GetParam().text), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    All, LogTextHazard,
    testing::Values(hazard{"a\r\nb", "a\\x0D\\x0Ab"},                         // a second line
                    hazard{"\x1b[2J\x1b]0;t\x07", "\\x1B[2J\\x1B]0;t\\x07"},  // terminal commands
                    hazard{"\xC2\x9B"
                           "31m",
                           "\\u{009B}31m"},  // CSI as one character
                    hazard{"\x9B"
                           "31m",
                           "\\x9B31m"},  // and as one byte
                    hazard{"a\xC2\x85"
                           "b",
                           "a\\u{0085}b"},                         // next line
                    hazard{"\u2028\u2029", "\\u{2028}\\u{2029}"},  // separators
                    hazard{"\u202A\u202B\u202C\u202D\u202E",
                           "\\u{202A}\\u{202B}\\u{202C}\\u{202D}\\u{202E}"},  // bidi embeddings
                    hazard{"\u2066\u2067\u2068\u2069",
                           "\\u{2066}\\u{2067}\\u{2068}\\u{2069}"},               // bidi isolates
                    hazard{"\u200E\u200F\u061C", "\\u{200E}\\u{200F}\\u{061C}"},  // bidi marks
                    hazard{"\uFEFF", "\\u{FEFF}"},                                // byte order mark
                    hazard{"\x7F", "\\x7F"},                                      // DEL
                    hazard{"\xC0\x8A", "\\xC0\\x8A"},                    // overlong line end
                    hazard{"\xE0\x80\x8A", "\\xE0\\x80\\x8A"},           //
                    hazard{"\xED\xA0\x80", "\\xED\\xA0\\x80"},           // lone surrogate
                    hazard{"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},  // above U+10FFFF
                    hazard{"\xE6\x97", "\\xE6\\x97"},                    // cut short
                    hazard{"\xFF\xFE", "\\xFF\\xFE"}));

TEST(LogText, EveryCharacterThatIsUnsafeOnATerminalAndNoOther) {
  for (uint32_t code_point = 0; code_point < 0x11000; ++code_point) {
    if (code_point >= 0xD800 && code_point < 0xE000) continue;
    const std::string text = utf8_of(code_point);
    const bool is_kept = code_point == '\t' || !is_unsafe_on_terminal(code_point);
    ASSERT_EQ(shown(text) == text, is_kept) << code_point;
  }
}

// --- Code pages ---

TEST(LogCodePage, Utf8UnderItsNamesIsNotConverted) {
  for (const char* name : {"", "UTF-8", "utf8"})
    EXPECT_EQ(in_code_page(name, "é日😀\xFF"), "é日😀\xFF") << name;
}

struct encoded_text {
  const char* code_page;
  const char* text;
  const char* bytes;
};

static void PrintTo(const encoded_text& text, std::ostream* out) {
  *out << text.code_page;
}

class LogCodePageText : public testing::TestWithParam<encoded_text> {};

TEST_P(LogCodePageText, IsWrittenInTheCodePage) {
  EXPECT_EQ(in_code_page(GetParam().code_page, GetParam().text), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    All, LogCodePageText,
    testing::Values(encoded_text{"EUC-JP", "日本 A", "\xC6\xFC\xCB\xDC A"},
                    encoded_text{"Shift_JIS", "日本 A", "\x93\xFA\x96\x7B A"},
                    encoded_text{"ISO-2022-JP", "日本", "\x1B$BF|K\\\x1B(B"},
                    encoded_text{"ISO-2022-JP", "A日", "A\x1B$BF|\x1B(B"},
                    encoded_text{"ISO-8859-1", "Größe",
                                 "Gr\xF6\xDF"
                                 "e"},
                    encoded_text{"GB18030", "日😀", "\xC8\xD5\x94\x39\xFC\x36"},
                    encoded_text{"EUC-JP", "", ""},
                    // What the code page lacks, in any of its modes.
                    encoded_text{"ISO-8859-1", "日é😀!", "\\u{65E5}\xE9\\u{1F600}!"},
                    encoded_text{"EUC-JP", "日😀", "\xC6\xFC\\u{1F600}"},
                    encoded_text{"Shift_JIS", "😀", "\\u{1F600}"},
                    encoded_text{"ISO-2022-JP", "日😀日", "\x1B$BF|\x1B(B\\u{1F600}\x1B$BF|\x1B(B"},
                    encoded_text{"US-ASCII", "\\é", "\\\\u{00E9}"}));

TEST(LogCodePage, EachLineStandsAlone) {
  log_code_page converter("ISO-2022-JP");
  std::string out;
  converter.append(out, "日");
  out += '\n';
  converter.append(out, "日");
  EXPECT_EQ(out, "\x1B$BF|\x1B(B\n\x1B$BF|\x1B(B");
}

TEST(LogCodePage, LongLines) {
  std::string text;
  std::string bytes;
  for (int i = 0; i < 30000; ++i) text += "日";
  for (int i = 0; i < 30000; ++i) bytes += "\xC6\xFC";
  EXPECT_EQ(in_code_page("EUC-JP", text), bytes);
}

TEST(LogCodePage, UnknownOnesAreRefused) {
  EXPECT_EQ(raised_by<std::invalid_argument>([] { log_code_page("no-such\x1B"); }),
            "the code page no-such\\x1B is not known to ICU");
}

TEST(LogCodePage, OnesThatCannotWriteAnEscapeAreRefused) {
  EXPECT_EQ(raised_by<std::invalid_argument>([] { log_code_page("gsm-03.38-2009"); }),
            "the code page gsm-03.38-2009 lacks characters of ASCII");
}

class LogCodePageRefused : public testing::TestWithParam<const char*> {};

TEST_P(LogCodePageRefused, TheByte0AIsNotTheEndOfALine) {
  const std::string name = GetParam();
  EXPECT_EQ(raised_by<std::invalid_argument>([&] { log_code_page{name}; }),
            "in the code page " + name + " the byte 0A is not the end of a line");
}

INSTANTIATE_TEST_SUITE_P(All, LogCodePageRefused,
                         testing::Values("UTF-16", "UTF-16LE", "UTF-16BE", "UTF-32", "UTF-32LE",
                                         "ibm-37", "ibm-1047", "SCSU"));

// Every character of the first plane, as it is or written out, in lines of 256.
static std::vector<std::string> lines_of_every_character() {
  std::vector<std::string> lines(0x100);
  for (uint32_t code_point = 0; code_point < 0x10000; ++code_point)
    if (code_point < 0xD800 || code_point >= 0xE000)
      append_log_text(lines[code_point / 0x100], utf8_of(code_point));
  return lines;
}

// A line that holds any text at all is one line in every code page that is accepted.
TEST(LogCodePage, NoCharacterEndsALineInAnyOfThem) {
  const std::vector<std::string> lines = lines_of_every_character();
  int accepted = 0;
  for (int i = 0; i < ucnv_countAvailable(); ++i) {
    const std::string name = ucnv_getAvailableName(i);
    std::string out;
    try {
      log_code_page converter(name);
      for (const std::string& line : lines) converter.append(out, line);
    } catch (const std::invalid_argument&) {
      continue;
    }
    ++accepted;
    EXPECT_EQ(out.find('\n'), std::string::npos) << name;
    EXPECT_EQ(out.find('\r'), std::string::npos) << name;
  }
  EXPECT_GT(accepted, 100);
}

TEST(LogCodePage, ALineIsWrittenAlikeWhateverWasWrittenBefore) {
  for (int i = 0; i < ucnv_countAvailable(); ++i) {
    const std::string name = ucnv_getAvailableName(i);
    try {
      log_code_page kept(name);
      std::string out;
      for (const char* line : {"\u03B1", "\u00E4", "\u03B1"}) kept.append(out, line);
      const std::string alpha = in_code_page(name, "\u03B1");
      EXPECT_EQ(out, alpha + in_code_page(name, "\u00E4") + alpha) << name;
    } catch (const std::invalid_argument&) {
      continue;  // no code page for lines
    }
  }
}
