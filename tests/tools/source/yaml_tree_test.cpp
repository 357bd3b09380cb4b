// Sources that are read line by line, beside what the parser for all of YAML makes of them.
#include "tools/source/yaml_tree.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "tools/source/yaml_lines.h"

// Takes what it is told, and says whether there was anything.
class deaf_handler final : public YAML::EventHandler {
 public:
  bool was_told = false;

  void OnDocumentStart(const YAML::Mark&) override { was_told = true; }
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark&, YAML::anchor_t) override { was_told = true; }
  void OnAlias(const YAML::Mark&, YAML::anchor_t) override { was_told = true; }
  void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t,
                const std::string&) override {
    was_told = true;
  }
  void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                       YAML::EmitterStyle::value) override {
    was_told = true;
  }
  void OnSequenceEnd() override {}
  void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                  YAML::EmitterStyle::value) override {
    was_told = true;
  }
  void OnMapEnd() override {}
};

static bool is_read_by_lines(const std::string& text) {
  const text_file source("s", text);
  deaf_handler handler;
  const bool is_read = read_yaml_lines(source, handler);
  EXPECT_EQ(is_read, handler.was_told) << text;
  return is_read;
}

static void write(std::ostream& out, const yaml_node& node) {
  out << static_cast<int>(node.kind) << node.plain << node.is_whole << node.is_refused << '@'
      << node.at << ' ' << node.text << '(';
  for (const yaml_node& child : node.children) write(out, child);
  out << ")\n";
}

// The tree, and the diagnostics.
static std::string reading_of(const std::string& text) {
  const text_file source("s", text);
  diagnostic_list found;
  yaml_node root;
  std::ostringstream out;
  out << read_yaml(source, root, found) << '\n';
  write(out, root);
  found.write(out, {&source}, diagnostic_format::json, false);
  return out.str();
}

// A tab is for the parser alone. This one changes nothing but that.
static std::string for_the_parser(const std::string& text) {
  return text + "\n#\t\n";
}

static bool is_read_by_lines_as_by_the_parser(const std::string& text) {
  if (!is_read_by_lines(text)) return false;
  EXPECT_FALSE(is_read_by_lines(for_the_parser(text)));
  EXPECT_EQ(reading_of(text), reading_of(for_the_parser(text))) << text;
  return true;
}

TEST(YamlLines, AreReadAsByTheParser) {
  for (const char* text :
       {"a: 1",
        "a: 1\n",
        "# first\n\n  # second\na: b c # third\n\n# fourth",
        "a: \"\"",
        "a: \" b: {c} # \"   # d",
        "a: b:c#d \"e\" {f} [g], h!",
        "a:\n  b: 1\n  c:\n     d: 1\ne: 2",
        "a:   # of b\n  - b\n  - \"c\"\n  - {d: e}\n",
        "a:\n - b: 1\n   c: 2\n - d: 3\n",
        "a:\n  -   b: 1\n      c:\n        - 1\n",
        "a: []\nb: {}\nc: [ ]",
        "a: [b c , \"d\",[e]]",
        "a: {b: 1-2 , c: [d], e: {f: \"}\"}}",
        "a: 0x00000001\nb.c-d: 1x",
        "a: 1\na: 2\n",
        "a: \"\xC3\xA9\xE6\x97\xA5\xE2\x80\xA8\xEF\xBB\xBF\"\nb: c\xC3\xA9\xC2\x85 d",
        "1: 2",
        "a: b -c - d ? e",
        "a: it's \\ 100% @ `",
        "a: y\nb: true\nc: nul"})
    EXPECT_TRUE(is_read_by_lines_as_by_the_parser(text)) << text;
}

TEST(YamlLines, OfAnyOtherNotationAreLeftToTheParser) {
  for (const char* text : {"",
                           "a",
                           "# a",
                           " a: 1",
                           "- a",
                           "a:",
                           "a: b: c",
                           "a: b:",
                           "a: b\n  c",
                           "a: \"b\n  c\"",
                           "a: \"b\\n\"",
                           "a: \"b\" c",
                           "a: \"b\"#c",
                           "a: 'b'",
                           "a: |\n  b",
                           "a: >\n  b",
                           "a: &b c",
                           "a: *b",
                           "a: !b c",
                           "a: ~",
                           "a: null",
                           "Null: 1",
                           "<<: a",
                           "\"a\": b",
                           "? a\n: b",
                           "a:b",
                           "a: [b",
                           "a: [b,]",
                           "a: [b: c]",
                           "a: [b]c",
                           "a: {b}",
                           "a: {b: }",
                           "a: {b c",
                           "a: {b:c}",
                           "a: {b: c\n  }",
                           "a: [b #c]",
                           "a:\n- b",
                           "a:\n  - - b",
                           "a:\n  -\n    b: c",
                           "a:\n  b\n",
                           "a:\n    b: 1\n  c: 2",
                           "a: 1\n  b: 2",
                           "a: 1\n b: 2",
                           "---\na: 1",
                           "a: 1\n---\na: 1",
                           "a: 1\n...\n",
                           "%YAML 1.2\n---\na: 1",
                           "a: 1\r\n",
                           "a:\t1",
                           "a: @b",
                           "a: %b",
                           "a: `b",
                           "a: -1",
                           "a: #b"})
    EXPECT_FALSE(is_read_by_lines(text)) << text;
}

TEST(YamlLines, AreNestedNoDeeperThanIsSafe) {
  const auto nested = [](size_t depth) {
    return "a: " + std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(is_read_by_lines_as_by_the_parser(nested(32)));
  EXPECT_FALSE(is_read_by_lines(nested(33)));
  EXPECT_FALSE(is_read_by_lines(nested(100000)));
}

TEST(YamlLines, AreNoMoreThanMayBeRead) {
  std::string text = "a: [[]";
  for (size_t i = 0; i < yaml_node_limit; i += 2) text.append(",[]");  // which begins and ends
  EXPECT_FALSE(is_read_by_lines(text + "]"));
}

// Writes sources of which many are simple, and some broken.
class random_source {
 public:
  explicit random_source(unsigned seed) : random_(seed) {}

  std::string source() {
    std::string text = map("", 0);
    if (below(2) == 0) return text;
    const size_t at = below(text.size() + 1);
    if (below(2) == 0)
      return text.insert(at, one_of({"\"", " ", "#", ": ", "\n", "-", "[", "}", ",", "\\", "  ",
                                     "- ", "'", "x", "~", "|"}));
    return text.erase(at, below(3));
  }

 private:
  size_t below(size_t limit) { return random_() % limit; }
  std::string one_of(const std::vector<const char*>& texts) { return texts[below(texts.size())]; }

  std::string key() { return one_of({"a", "b", "id", "A_1", "x.y", "c-d", "7"}); }
  std::string text() {
    return one_of({"a", "b c", "1-2", "\"\"", "\"{A:time} # b: c, d\"", "0x1F", "e:f", "g#h",
                   "i, j", "k \"l\"", "m {n}", "\xC3\xA9", "\"\xE6\x97\xA5 \"", "UInt1", "null",
                   "'o'", "p?"});
  }
  std::string comment() { return one_of({"", "", "", "  # q: \"r\"", " #", " "}); }

  std::string flow(unsigned depth) {
    const size_t kind = below(depth > 2 ? 1 : 3);
    if (kind == 0) return one_of({"a", "b c", "\"d, e\"", "1-2", "f", "+g", "h "});
    std::string items;
    for (size_t i = below(4); i > 0; --i)
      items += (kind == 2 ? key() + ": " : "") + flow(depth + 1) +
               (i > 1 ? one_of({", ", ",", " , "}) : "");
    return kind == 1 ? "[" + items + "]" : "{" + items + "}";
  }

  std::string value(const std::string& indent, unsigned depth) {
    const size_t kind = below(depth > 3 ? 3 : 5);
    const std::string deeper = indent + one_of({" ", "  ", "   "});
    if (kind < 2) return " " + text() + comment() + "\n";
    if (kind == 2) return "  " + flow(0) + comment() + "\n";
    return comment() + "\n" + (kind == 3 ? map(deeper, depth + 1) : list(deeper, depth + 1));
  }

  std::string map(const std::string& indent, unsigned depth) {
    std::string lines;
    for (size_t i = 1 + below(4); i > 0; --i)
      lines += one_of({"", "", "", "\n", "   # s\n"}) + indent + key() + ":" + value(indent, depth);
    return lines;
  }

  std::string list(const std::string& indent, unsigned depth) {
    std::string lines;
    for (size_t i = 1 + below(3); i > 0; --i) {
      const std::string item = below(2) == 0 ? map(indent + "  ", depth + 1) : "";
      const bool is_map =
          item.starts_with(indent + "  ") && item.find_first_not_of(' ') == indent.size() + 2;
      lines +=
          indent + "- " + (is_map ? item.substr(indent.size() + 2) : text() + comment() + "\n");
    }
    return lines;
  }

  std::mt19937 random_;
};

TEST(YamlLines, OfRandomSourcesAreReadAsByTheParser) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_source random(seed);
  int read_by_lines = 0;
  for (int i = 0; i < 1000 && !HasFailure(); ++i)
    read_by_lines += is_read_by_lines_as_by_the_parser(random.source()) ? 1 : 0;
  EXPECT_GT(read_by_lines, 100);
}
