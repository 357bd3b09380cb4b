#include "tools/yaml_reader.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <sstream>
#include <unordered_map>

#include "tools/utf8_text.h"

// Thrown out of the parser when going on is of no use; the diagnostic stands already.
struct yaml_reading_stopped {};

static source_place place_of(const source_text& source, const YAML::Mark& mark) {
  if (mark.is_null() || mark.line < 0 || mark.column < 0) return {&source, 0, 0};
  return {&source, static_cast<size_t>(mark.line), static_cast<size_t>(mark.column)};
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
  yaml_tree_builder(const source_text& source, diagnostic_list& found)
      : source_(source), found_(found) {}

  yaml_node take_root() { return std::move(root_); }

  void OnDocumentStart(const YAML::Mark&) override {}
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& mark, YAML::anchor_t) override {
    finish(make(yaml_node::kinds::null, mark));
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override {
    refuse(mark, "aliases are not allowed here; write the value out");
    finish(make(yaml_node::kinds::null, mark));
  }
  void OnAnchor(const YAML::Mark& mark, const std::string&) override {
    refuse(mark, "anchors are not allowed here");
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t,
                const std::string& value) override {
    check_tag(mark, tag);
    yaml_node node = make(yaml_node::kinds::scalar, mark);
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
  void OnMapEnd() override {
    check_keys(open_.back());
    close();
  }

 private:
  yaml_node make(yaml_node::kinds kind, const YAML::Mark& mark) {
    const source_place place = place_of(source_, mark);
    if (++nodes_ > yaml_node_limit) stop(diagnostic_rule::too_large, mark, "too many values");
    return {.kind = kind,
            .line = static_cast<unsigned>(place.line),
            .byte = static_cast<unsigned>(place.byte)};
  }

  void open(yaml_node::kinds kind, const YAML::Mark& mark, const std::string& tag) {
    check_tag(mark, tag);
    if (open_.size() >= yaml_depth_limit)
      stop(diagnostic_rule::too_deep, mark,
           "values are nested more than " + std::to_string(yaml_depth_limit) + " deep");
    open_.push_back(make(kind, mark));
  }

  void close() {
    yaml_node node = std::move(open_.back());
    open_.pop_back();
    finish(std::move(node));
  }

  void finish(yaml_node node) {
    (open_.empty() ? root_ : open_.back().children.emplace_back()) = std::move(node);
  }

  void check_tag(const YAML::Mark& mark, const std::string& tag) {
    if (!tag.empty() && tag != "?" && tag != "!") refuse(mark, "tags are not allowed here");
  }

  // Leaves out keys that are not names and the second value of a key.
  void check_keys(yaml_node& map) {
    std::unordered_map<std::string, source_place> known;
    std::vector<yaml_node> kept;
    for (size_t i = 0; i + 1 < map.children.size(); i += 2) {
      if (!key_is_new(map.children[i], known)) continue;
      kept.push_back(std::move(map.children[i]));
      kept.push_back(std::move(map.children[i + 1]));
    }
    map.children = std::move(kept);
  }

  bool key_is_new(const yaml_node& key, std::unordered_map<std::string, source_place>& known) {
    const source_place place = key.place(source_);
    if (key.kind != yaml_node::kinds::scalar) {
      found_.add(diagnostic_rule::wrong_kind, place,
                 std::string("a key must be a name, not ") + kind_name(key.kind));
      return false;
    }
    if (key.plain && key.text == "<<") {
      found_.add(diagnostic_rule::yaml_feature, place, "merge keys are not allowed here");
      return false;
    }
    const auto [first, is_new] = known.emplace(key.text, place);
    if (!is_new)
      found_.add(diagnostic_rule::duplicate_key, place, "\"" + key.text + "\" is given twice",
                 first->second, "\"" + key.text + "\" is given here first");
    return is_new;
  }

  void refuse(const YAML::Mark& mark, const char* text) {
    found_.add(diagnostic_rule::yaml_feature, place_of(source_, mark), text);
  }

  [[noreturn]] void stop(diagnostic_rule rule, const YAML::Mark& mark, std::string text) {
    found_.add(rule, place_of(source_, mark), std::move(text));
    throw yaml_reading_stopped();
  }

  const source_text& source_;
  diagnostic_list& found_;
  yaml_node root_;
  std::vector<yaml_node> open_;  // the maps and lists around the next value, outermost first
  size_t nodes_ = 0;
};

static source_place place_at(const source_text& source, size_t offset) {
  size_t line = 0;
  while (line + 1 < source.line_count() && source.line_start(line + 1) <= offset) ++line;
  return {&source, line, offset - source.line_start(line)};
}

static bool is_forbidden_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t' && c != '\n' && c != '\r') || byte == 0x7F;
}

static bool check_bytes(const source_text& source, diagnostic_list& found) {
  const std::string_view bytes = source.bytes();
  if (bytes.size() > source_size_limit) {
    found.add(diagnostic_rule::too_large, {&source, 0, 0}, "the source is larger than 16 MiB");
    return false;
  }
  if (const size_t bad = utf8_first_invalid(bytes); bad != std::string_view::npos) {
    found.add(diagnostic_rule::encoding, place_at(source, bad), "the source is not valid UTF-8");
    return false;
  }
  const auto* control = std::find_if(bytes.begin(), bytes.end(), is_forbidden_control);
  if (control == bytes.end()) return true;
  found.add(diagnostic_rule::encoding,
            place_at(source, static_cast<size_t>(control - bytes.begin())),
            "the source holds a control character; write it as \"\\xNN\" between double quotes");
  return false;
}

static bool parse_documents(const source_text& source, yaml_node& root, diagnostic_list& found) {
  std::istringstream stream{std::string(source.bytes())};
  YAML::Parser parser(stream);
  yaml_tree_builder builder(source, found);
  if (!parser.HandleNextDocument(builder)) {
    found.add(diagnostic_rule::missing_key, {&source, 0, 0}, "the source is empty");
    return false;
  }
  root = builder.take_root();
  yaml_tree_builder second(source, found);
  if (!parser.HandleNextDocument(second)) return true;
  found.add(diagnostic_rule::yaml_feature, second.take_root().place(source),
            "a source is one document; this begins a second one");
  return false;
}

bool read_yaml(const source_text& source, yaml_node& root, diagnostic_list& found) {
  if (!check_bytes(source, found)) return false;
  try {
    return parse_documents(source, root, found);
  } catch (const YAML::Exception& error) {
    found.add(diagnostic_rule::yaml_syntax, place_of(source, error.mark), error.msg);
  } catch (const yaml_reading_stopped&) {
    return false;  // the diagnostic stands
  }
  return false;
}
