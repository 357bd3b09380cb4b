// Random texts: what the library renders from a compiled source equals what was authored, with the
// values in place, by every renderer that the source promises.
#include <gtest/gtest.h>
#include <unicode/ucnv.h>

#include <random>

#include "kp_LOG.h"
#include "tests/support/temp_folder.h"
#include "tools/compiled/writer.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

static constexpr unsigned texts_per_renderer = 3000;
static constexpr unsigned alone_id = 100000;  // events from here on show one placeholder alone

// A placeholder as it is authored, and the template of a message that shows nothing else.
struct shown_placeholder {
  const char* authored;
  const char* alone;
};

static const std::vector<shown_placeholder> shown_placeholders = {
    {"{USER}", "%s%USER%"},
    {"{HOST}", "%s%HOST%"},
    {"{EMPTY}", "%s%EMPTY%"},
    {"{PORT}", "%d%PORT%"},
    {"{DELTA}", "%d%DELTA%"},
    {"{SHARE}", "%f%SHARE%"},
    {"{SHARE:percent}", "%P%SHARE%"},
    {"{PORT:percent}", "%P%PORT%"},
    {"{SHARE:currency}", "%C%SHARE%"},
    {"{DELTA:currency}", "%C%DELTA%"},
    {"{DAY}", "%D%DAY%"},
    {"{DAY:time}", "%T%DAY%"},
    {"{CLOCK}", "%T%CLOCK%"},
    {"{ENDED:date}", "%D%ENDED%"},
    {"{ENDED:time}", "%T%ENDED%"},
    {"{GLOBAL}", "%d%GLOBAL%"},
    {"{READY:percent}", "%P%READY%"},
    {"{GRÖSSE}", "%d%GRÖSSE%"},
};

static const char* const attribute_lines =
    "    attributes: {USER: MBChar64, HOST: Char64, EMPTY: Char32, PORT: UInt2, DELTA: SInt4, "
    "SHARE: Float, DAY: Date, CLOCK: Time, ENDED: Timestamp, READY: UInt1, GRÖSSE: UInt4}\n";

static const std::vector<std::string> literals = {
    " ", "a",  "Port ", "ß", "日本", "😀", "#", "|",  ",",    "0",   "\n",    "\t",
    ":", "\\", "\"",    "$", "x",    "d", "~", "()", "€uro", "<b>", "1,000", "\u200D"};

// What a piece may be beside a literal: its authored form and what it shows.
static const std::vector<std::pair<std::string, std::string>> icu_pieces = {
    {"%", "%"},  {"%%", "%%"}, {"%d", "%d"},     {"'", "'"},     {"''", "''"},
    {"{{", "{"}, {"}}", "}"},  {"{{0}}", "{0}"}, {"'{{'", "'{'"}};
static const std::vector<std::pair<std::string, std::string>> byte_pieces = {
    {"'", "'"}, {"''", "''"}, {"{{", "{"}, {"}}", "}"}};
static const std::vector<std::pair<std::string, std::string>> both_pieces = {{"it's ", "it's "},
                                                                             {"dogs' ", "dogs' "}};

struct random_text {
  std::string authored;
  // What it shows: literal texts, and numbers of placeholders.
  std::vector<std::pair<std::string, int>> shown;
};

// Makes texts of one renderer's kind.
class random_text_source {
 public:
  random_text_source(unsigned seed, const std::vector<std::pair<std::string, std::string>>& pieces,
                     bool may_be_adjacent, size_t most_placeholders)
      : random_(seed),
        pieces_(pieces),
        may_be_adjacent_(may_be_adjacent),
        most_placeholders_(most_placeholders) {}

  random_text make() {
    random_text text;
    bool placeholder_before = false;
    size_t placeholders = 0;
    for (size_t n = below(12); n > 0; --n) {
      const size_t kind = below(4);
      const bool may_place =
          placeholders < most_placeholders_ && (may_be_adjacent_ || !placeholder_before);
      placeholder_before = kind < 2 && may_place;
      placeholders += placeholder_before ? 1 : 0;
      if (placeholder_before)
        add_placeholder(text);
      else
        add_piece(text, kind == 2);
    }
    return text;
  }

 private:
  size_t below(size_t bound) {
    return std::uniform_int_distribution<size_t>(0, bound - 1)(random_);
  }

  void add_placeholder(random_text& text) {
    const size_t number = below(shown_placeholders.size());
    text.authored += shown_placeholders[number].authored;
    text.shown.emplace_back("", static_cast<int>(number));
  }

  void add_piece(random_text& text, bool special) {
    const std::string& literal = literals[below(literals.size())];
    const auto piece = special ? pieces_[below(pieces_.size())] : std::make_pair(literal, literal);
    text.authored += piece.first;
    text.shown.emplace_back(piece.second, -1);
  }

  std::mt19937 random_;
  const std::vector<std::pair<std::string, std::string>>& pieces_;
  bool may_be_adjacent_;
  size_t most_placeholders_;
};

static std::string yaml_quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c == '\n' ? std::string("\\n") : c == '\t' ? "\\t" : std::string(1, c);
  }
  return quoted + '"';
}

static std::string event_lines(unsigned id, const std::string& message) {
  const std::string number = std::to_string(id);
  return "  E" + number + ":\n    id: " + number + "\n" + attribute_lines +
         "    message: " + message + "\n";
}

static std::string source_of(const std::string& renderer, const std::vector<random_text>& texts) {
  std::string source = "kplog: 1\nlog_version: \"1.0\"\nrenderer: " + renderer +
                       "\nattributes: {GLOBAL: UInt4}\nevents:\n";
  for (unsigned i = 0; i < texts.size(); ++i)
    source += event_lines(i + 1, yaml_quoted(texts[i].authored));
  for (unsigned i = 0; i < shown_placeholders.size(); ++i)
    source += event_lines(alone_id + i, "{raw: " + yaml_quoted(shown_placeholders[i].alone) + "}");
  return source;
}

static std::string compiled(const std::string& text) {
  const text_file source("random.yaml", text);
  definition_set set;
  diagnostic_list found;
  read_definition_source(source, set, found);
  complete_definition_set(set, found);
  std::ostringstream shown;
  found.write(shown, {&source}, diagnostic_format::text, false);
  EXPECT_EQ(shown.str(), "");
  return definition_file_bytes(set);
}

static std::string rendered(unsigned id) {
  kp_LOG_LogEntry entry(id, 1);
  entry.AddAttribMBStr("USER", "J'osé {0} %d%");
  entry.AddAttribStr("HOST", "a''b{c}%%");
  entry.AddAttribStr("EMPTY", "");
  entry.AddAttrib2u("PORT", 8080);
  entry.AddAttrib4("DELTA", -12345);
  entry.AddAttribFloat8("SHARE", 0.25);
  entry.AddAttrib1u("READY", 1);
  entry.AddAttrib4u("GRÖSSE", 7);
  entry.AddAttrib4u("GLOBAL", 1234567);
  for (const char* time : {"DAY", "CLOCK", "ENDED"})
    entry.AddAttribTime(time, kp_Time(2026, 11, 15, 17, 2, 56));
  return kp_LOG_RenderMessage(entry);
}

// The library's settings for texts in UTF-8, with a compiled source loaded.
class loaded_texts {
 public:
  loaded_texts(bool icu, const std::string& source, const char* locale = "en_US") {
    ucnv_setDefaultName("UTF-8");
    kp_LOG_LogConfig::SetCodePage("UTF-8");
    kp_LOG_LogConfig::SetLocale(locale);
    kp_LOG_LogConfig::SetICUEnabled(icu);
    kp_LOG_LogConfig::SetDefinitionPath(folder_.write("random.ldf", compiled(source)).c_str());
  }

 private:
  settings_guard guard_;
  temp_folder folder_;
};

static void expect_authored(const std::vector<random_text>& texts) {
  std::vector<std::string> alone;
  for (unsigned i = 0; i < shown_placeholders.size(); ++i) alone.push_back(rendered(alone_id + i));
  for (unsigned i = 0; i < texts.size(); ++i) {
    std::string expected;
    for (const auto& [literal, number] : texts[i].shown)
      expected += number < 0 ? literal : alone[static_cast<size_t>(number)];
    ASSERT_EQ(rendered(i + 1), expected) << "authored: " << texts[i].authored;
  }
}

static std::vector<random_text> many_texts(random_text_source source) {
  std::vector<random_text> texts;
  for (unsigned i = 0; i < texts_per_renderer; ++i) texts.push_back(source.make());
  return texts;
}

TEST(AuthoredText, IcuShowsWhatWasAuthored) {
  const auto texts = many_texts(random_text_source(1, icu_pieces, true, 10));
  const loaded_texts loaded(true, source_of("icu", texts));
  expect_authored(texts);
}

TEST(AuthoredText, BytesShowWhatWasAuthored) {
  const auto texts = many_texts(random_text_source(2, byte_pieces, false, 20));
  const loaded_texts loaded(false, source_of("bytes", texts));
  expect_authored(texts);
}

TEST(AuthoredText, TextForBothIsShownByEach) {
  const auto texts = many_texts(random_text_source(3, both_pieces, false, 10));
  const std::string source = source_of("both", texts);
  {
    const loaded_texts loaded(true, source);
    expect_authored(texts);
  }
  const loaded_texts loaded(false, source);
  expect_authored(texts);
}

TEST(AuthoredText, EveryLocaleShowsWhatWasAuthored) {
  random_text_source source(4, icu_pieces, true, 10);
  std::vector<random_text> texts;
  for (unsigned i = 0; i < 100; ++i) texts.push_back(source.make());
  const std::string yaml = source_of("icu", texts);
  for (const char* locale : {"de_CH", "ja_JP", "ar_EG", "fa_IR", "hi_IN", "th_TH", "he_IL"}) {
    const loaded_texts loaded(true, yaml, locale);
    expect_authored(texts);
  }
}
