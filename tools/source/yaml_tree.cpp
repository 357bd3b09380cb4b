#include "tools/source/yaml_tree.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/null.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <sstream>
#include <unordered_map>

#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/source/scalar_place.h"
#include "tools/source/yaml_lines.h"

// Thrown out of the parser when going on is of no use; the diagnostic stands already.
struct yaml_reading_stopped {};

static text_place place_of(const text_file& source, const YAML::Mark& mark) {
  if (mark.is_null() || mark.line < 0 || mark.column < 0) return {&source, 0};
  return {&source,
          source.line_start(static_cast<size_t>(mark.line)) + static_cast<size_t>(mark.column)};
}

static const char* kind_name(yaml_node::kinds kind) {
  switch (kind) {
    case yaml_node::kinds::null:
      return "nothing";
    case yaml_node::kinds::scalar:
      return "a text";
    case yaml_node::kinds::sequence:
      return "a list";
    case yaml_node::kinds::map:
      return "a map";
  }
  return "";
}

// Builds the tree from the parser's events.
class yaml_tree_builder final : public YAML::EventHandler {
 public:
  yaml_tree_builder(const text_file& source, diagnostic_list& found)
      : source_(source), found_(found) {}

  // What was read; the maps and lists that are still open are not whole.
  yaml_node take_root() {
    while (!open_.empty()) {
      open_.back().is_whole = false;
      close();
    }
    return std::move(root_);
  }

  // Whatever stands before a syntax error in its line may be a piece of something else, and so may
  // a text that runs on into that line.
  void doubt_last_value(size_t line, bool runs_on) {
    if (open_.empty() || open_.back().children.empty()) return;
    yaml_node& last = open_.back().children.back();
    const bool is_before = last.place(source_).line() != line && !(runs_on && last.plain);
    last.is_whole = last.is_whole && is_before;
  }

  // Whether it is written with braces or brackets.
  bool is_flow(const yaml_node& node) const {
    const std::string_view rest = source_.bytes().substr(node.place(source_).offset());
    return rest.starts_with('{') || rest.starts_with('[');
  }

  // The map or list around the next value; null when there is none.
  const yaml_node* innermost() const { return open_.empty() ? nullptr : &open_.back(); }

  void OnDocumentStart(const YAML::Mark& mark) override {
    if (++documents_ > 1)
      stop("yaml-feature"_rule, mark, "a source is one document; this begins a second one");
  }
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& mark, YAML::anchor_t) override {
    yaml_node node = make(yaml_node::kinds::null, mark);
    node.at = static_cast<uint32_t>(place_of_nothing(node.place(source_)).at);
    finish(std::move(node));
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override {
    refuse(mark, "aliases are not allowed here; write the value out");
    yaml_node node = make(yaml_node::kinds::null, mark);
    node.is_refused = true;
    finish(std::move(node));
  }
  void OnAnchor(const YAML::Mark& mark, const std::string&) override {
    refuse(mark, "anchors are not allowed here");
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t,
                const std::string& value) override {
    check_tag(mark, tag);
    yaml_node node = make(yaml_node::kinds::scalar, mark);
    if (!is_quote_closed(node.place(source_)))
      stop("yaml-syntax"_rule, mark, "the text that begins here has no closing quote");
    node.plain = tag == "?";
    node.text = value;
    finish(std::move(node));
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t,
                       YAML::EmitterStyle::value) override {
    open(yaml_node::kinds::sequence, mark, tag);
  }
  void OnSequenceEnd() override { close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t,
                  YAML::EmitterStyle::value) override {
    open(yaml_node::kinds::map, mark, tag);
  }
  void OnMapEnd() override { close(); }

 private:
  yaml_node make(yaml_node::kinds kind, const YAML::Mark& mark) {
    const text_place place = place_of(source_, mark);
    if (++nodes_ > yaml_node_limit) stop("too-large"_rule, mark, "too many values");
    return {.kind = kind, .at = static_cast<uint32_t>(place.at)};
  }

  void open(yaml_node::kinds kind, const YAML::Mark& mark, const std::string& tag) {
    check_tag(mark, tag);
    if (open_.size() >= yaml_depth_limit)
      stop("too-deep"_rule, mark,
           "values are nested more than " + std::to_string(yaml_depth_limit) + " deep");
    open_.push_back(make(kind, mark));
  }

  void close() {
    yaml_node node = std::move(open_.back());
    open_.pop_back();
    if (node.kind == yaml_node::kinds::map) check_keys(node);
    finish(std::move(node));
  }

  // --- places of nothing

  // The parser places a value that is left out where the next one begins. People look for it at its
  // key, or at the dash of a list.
  text_place place_of_nothing(const text_place& place) const {
    if (open_.empty() || is_written_out(place)) return place;
    const yaml_node& around = open_.back();
    if (around.kind == yaml_node::kinds::map)
      return around.children.size() % 2 == 1 ? around.children.back().place(source_) : place;
    return is_flow(around) ? place : place_of_dash_before(place);
  }

  // "~", or "null": as a value, and not as the key that follows a value left out.
  bool is_written_out(const text_place& place) const {
    const std::string_view rest = source_.line(place.line()).substr(place.byte());
    const size_t size = std::min(rest.find_first_of(" \t,]}"), rest.size());
    return size != 0 && YAML::IsNullString(std::string(rest.substr(0, size)));
  }

  text_place place_of_dash_before(const text_place& place) const {
    size_t size = place.byte();  // of the line's part that is before
    for (size_t line = place.line() + 1; line-- > 0; size = std::string_view::npos) {
      const std::string_view before = source_.line(line).substr(0, size);
      const size_t comment = before.starts_with('#') ? 0 : before.find(" #");
      const size_t last = before.substr(0, comment).find_last_not_of(" \t");
      if (last != std::string_view::npos) return {&source_, source_.line_start(line) + last};
    }
    return place;
  }

  // --- checks

  void finish(yaml_node node) {
    (open_.empty() ? root_ : open_.back().children.emplace_back()) = std::move(node);
  }

  void check_tag(const YAML::Mark& mark, const std::string& tag) {
    // Quoted scalars have the tag "!" without a tag being there.
    const text_place place = place_of(source_, mark);
    const bool is_tagged = source_.bytes().substr(place.offset()).starts_with('!');
    if (is_tagged || (!tag.empty() && tag != "?" && tag != "!"))
      refuse(mark, "tags are not allowed here");
  }

  // Refuses keys that are not names and the second one of a name; leaves out merge keys, and a key
  // behind which the source breaks off.
  void check_keys(yaml_node& map) {
    std::unordered_map<std::string, text_place> known;
    std::vector<yaml_node> kept;
    for (size_t i = 0; i + 1 < map.children.size(); i += 2) {
      yaml_node& key = map.children[i];
      if (is_merge_key(key)) continue;
      key.is_refused = key.is_refused || !key_is_new(key, known);
      kept.push_back(std::move(key));
      kept.push_back(std::move(map.children[i + 1]));
    }
    map.children = std::move(kept);
  }

  bool is_merge_key(const yaml_node& key) {
    if (!key.plain || key.text != "<<") return false;
    found_.add("yaml-feature"_rule, key.place(source_), "merge keys are not allowed here");
    return true;
  }

  bool key_is_new(const yaml_node& key, std::unordered_map<std::string, text_place>& known) {
    const text_place place = key.place(source_);
    if (key.kind != yaml_node::kinds::scalar) {
      found_.add("wrong-kind"_rule, place,
                 std::string("a key must be a name, not ") + kind_name(key.kind));
      return false;
    }
    const auto [first, is_new] = known.emplace(key.text, place);
    if (!is_new)
      found_.add("duplicate-key"_rule, place, in_quotes(key.text) + " is given twice",
                 first->second, in_quotes(key.text) + " is given here first");
    return is_new;
  }

  void refuse(const YAML::Mark& mark, const char* text) {
    found_.add("yaml-feature"_rule, place_of(source_, mark), text);
  }

  [[noreturn]] void stop(diagnostic_rule rule, const YAML::Mark& mark, std::string text) {
    found_.add(rule, place_of(source_, mark), std::move(text));
    throw yaml_reading_stopped();
  }

  const text_file& source_;
  diagnostic_list& found_;
  yaml_node root_{.is_refused = true};  // until there is one
  std::vector<yaml_node> open_;         // the maps and lists around the next value, outermost first
  size_t nodes_ = 0;
  size_t documents_ = 0;
};

static bool is_forbidden_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t' && c != '\n' && c != '\r') || byte == 0x7F;
}

static bool check_bytes(const text_file& source, diagnostic_list& found) {
  const std::string_view bytes = source.bytes();
  if (bytes.size() > source_size_limit) {
    found.add("too-large"_rule, {&source, 0}, "the source is larger than 16 MiB");
    return false;
  }
  if (const size_t bad = utf8_first_invalid(bytes); bad != std::string_view::npos) {
    found.add("encoding"_rule, {&source, bad}, "the source is not valid UTF-8");
    return false;
  }
  const auto* control = std::find_if(bytes.begin(), bytes.end(), is_forbidden_control);
  if (control == bytes.end()) return true;
  found.add("encoding"_rule, {&source, static_cast<size_t>(control - bytes.begin())},
            "the source holds a control character; write it as \"\\xNN\" between double quotes");
  return false;
}

// Whether the tab that the line begins with, among blanks, is where indentation counts.
static bool is_tab_in_indentation(const text_file& source, size_t line, size_t& tab) {
  const std::string_view text = source.line(line);
  tab = text.find_first_not_of(' ');
  return tab < text.size() && text[tab] == '\t';
}

// Whether the place is where its line begins, blanks apart.
static bool begins_line(const text_place& place) {
  return place.source->line(place.line()).find_first_not_of(' ') >= place.byte();
}

static bool is_first_colon(const text_place& place) {
  return place.source->line(place.line()).find(':') == place.byte();
}

// The placeholder that the place follows in its line, "{NAME} and more" without quotes, by its
// brace; npos when there is none.
static size_t unquoted_placeholder(const text_place& place) {
  const std::string_view before = place.source->line(place.line()).substr(0, place.byte());
  const size_t end = before.find_last_not_of(' ');
  if (end == std::string_view::npos || before[end] != '}') return std::string_view::npos;
  const size_t begin = before.rfind('{', end);
  if (begin == std::string_view::npos || before.substr(begin).find(": ") != std::string_view::npos)
    return std::string_view::npos;
  return begin;
}

static void add_syntax_error(const text_file& source, const YAML::Exception& error,
                             const yaml_tree_builder& builder, diagnostic_list& found) {
  const text_place place = place_of(source, error.mark);
  const yaml_node* const around = builder.innermost();
  const bool is_in_flow = around != nullptr && builder.is_flow(*around);
  const bool is_end =
      error.msg == YAML::ErrorMsg::END_OF_MAP || error.msg == YAML::ErrorMsg::END_OF_SEQ;
  const size_t line_start = source.line_start(place.line());
  size_t tab = 0;
  if (!is_in_flow && is_tab_in_indentation(source, place.line(), tab))
    found.add("yaml-syntax"_rule, {&source, line_start + tab},
              "a tab in the indentation, which YAML makes of blanks alone");
  else if (const size_t brace = unquoted_placeholder(place); brace != std::string_view::npos)
    found.add("yaml-syntax"_rule, {&source, line_start + brace},
              "a text that begins with a placeholder needs quotes");
  else if (error.msg == YAML::ErrorMsg::UNKNOWN_TOKEN)
    found.add("yaml-syntax"_rule, place,
              "a text that begins with " +
                  in_quotes(source.line(place.line()).substr(place.byte(), 1)) + " needs quotes");
  else if (is_in_flow)
    found.add("yaml-syntax"_rule, place, error.msg, around->place(source),
              std::string(kind_name(around->kind)) + " that is still open begins here");
  else if (is_end && begins_line(place))
    found.add("yaml-syntax"_rule, place,
              "this line is indented as none of those that it could belong to");
  else if (error.msg == YAML::ErrorMsg::MAP_VALUE)
    found.add(
        "yaml-syntax"_rule, place,
        is_first_colon(place)
            ? "this colon does not stand behind a key: its line is indented further than the "
              "value above, and so belongs to that"
            : "this colon does not stand behind a key; a text with \": \" in it needs quotes");
  else
    found.add("yaml-syntax"_rule, place, error.msg);
}

static bool read_any_yaml(const text_file& source, yaml_tree_builder& builder,
                          diagnostic_list& found) {
  std::istringstream stream{std::string(source.bytes())};
  YAML::Parser parser(stream);
  const bool is_there = parser.HandleNextDocument(builder);
  if (!is_there) found.add("missing-key"_rule, {&source, 0}, "the source is empty");
  if (is_there) static_cast<void>(parser.HandleNextDocument(builder));  // refuses a second one
  return is_there;
}

bool read_yaml(const text_file& source, yaml_node& root, diagnostic_list& found) {
  root.is_refused = true;
  if (!check_bytes(source, found)) return false;
  yaml_tree_builder builder(source, found);
  bool is_whole = false;
  try {
    is_whole = read_yaml_lines(source, builder) || read_any_yaml(source, builder, found);
  } catch (const YAML::Exception& error) {
    is_whole = false;
    add_syntax_error(source, error, builder, found);
    builder.doubt_last_value(place_of(source, error.mark).line(),
                             error.msg == YAML::ErrorMsg::MAP_VALUE);
  } catch (const yaml_reading_stopped&) {
    is_whole = false;  // the diagnostic stands
  }
  root = builder.take_root();
  return is_whole;
}
