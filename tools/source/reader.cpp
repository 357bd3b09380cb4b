#include "tools/source/reader.h"

#include <algorithm>
#include <array>

#include "recording/text/code_page.h"
#include "recording/text/words.h"
#include "tools/source/type_hint.h"
#include "tools/source/values.h"
#include "tools/source/yaml_tree.h"

static constexpr std::array<const char*, 3> renderer_names = {"icu", "bytes", "both"};

// Reads one source into the set. Each kind of map has a table of its keys.
class definition_source_reader : private source_value_reader {
 public:
  definition_source_reader(const text_file& source, definition_set& set, diagnostic_list& found)
      : source_value_reader(source, found), set_(set) {}

  void read(const yaml_node& root) {
    const size_t first_event = set_.events.size();
    read_map(root, file_keys, *this, "a source");
    for (size_t i = first_event; i < set_.events.size(); ++i) complete(set_.events[i]);
  }

 private:
  using reader = definition_source_reader;

  // With what its source says of all events.
  void complete(event_model& event) {
    event.renderer = renderer_;
    event.has_own_level = event.level.is_given();
    if (!event.has_own_level) event.level = level_;
  }

  template <class Target>
  struct key_row {
    std::string_view name;
    void (reader::*read)(const yaml_node& value, Target& target);
    bool is_required = false;
  };

  static const std::array<key_row<reader>, 13> file_keys;
  static const std::array<key_row<event_model>, 11> event_keys;
  static const std::array<key_row<attribute_model>, 4> attribute_keys;
  static const std::array<key_row<accepted_difference>, 2> accepted_keys;
  static const std::array<key_row<message_model>, 3> message_keys;
  static const std::array<key_row<message_model>, 6> selector_message_keys;

  // --- maps by table

  template <class Target, size_t N>
  void read_map(const yaml_node& node, const std::array<key_row<Target>, N>& rows, Target& target,
                const char* what) {
    if (!is_map(node, std::string(what) + " is a map of keys and values")) return;
    for (size_t i = 0; i < node.children.size(); i += 2)
      read_key(node.children[i], node.children[i + 1], rows, target, what);
    for (const key_row<Target>& row : rows)
      if (row.is_required && node.is_whole && !has_key(node, row.name))
        add("missing-key"_rule, node, std::string(what) + " needs the key " + in_quotes(row.name));
  }

  template <class Target, size_t N>
  void read_key(const yaml_node& key, const yaml_node& value,
                const std::array<key_row<Target>, N>& rows, Target& target, const char* what) {
    // A key given twice is refused; a map that stands there is read, for what is wrong within.
    const bool is_second_value = key.is_refused && value.kind != yaml_node::kinds::map;
    if (key.kind != yaml_node::kinds::scalar || is_second_value) return;
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const auto& r) { return r.name == key.text; });
    if (row != rows.end()) return (this->*row->read)(value, target);
    std::vector<std::string_view> names(rows.size());
    std::transform(rows.begin(), rows.end(), names.begin(), [](const auto& r) { return r.name; });
    add("unknown-key"_rule, key,
        std::string(what) + " has no key " + in_quotes(key.text) +
            key_hint(key.text, value, names));
  }

  // What to say of a key that is none of `names`.
  static std::string key_hint(const std::string& key, const yaml_node& value,
                              const std::vector<std::string_view>& names) {
    if (value.kind == yaml_node::kinds::null && !has_row(selector_message_keys, key) &&
        std::find(names.begin(), names.end(), "raw") != names.end())
      return "; a text that begins with a placeholder needs quotes";
    std::string nearest = nearest_name_hint(key, names);
    if (!nearest.empty()) return nearest;
    const char* const owner = has_row(file_keys, key)               ? "a source"
                              : has_row(event_keys, key)            ? "an event"
                              : has_row(attribute_keys, key)        ? "an attribute"
                              : has_row(selector_message_keys, key) ? "a selector message"
                                                                    : nullptr;
    return (owner == nullptr
                ? std::string()
                : "; " + std::string(owner) + " has it, and so the indentation may be wrong") +
           "; its keys are " + listed(names);
  }

  template <class Rows>
  static bool has_row(const Rows& rows, std::string_view name) {
    return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.name == name; });
  }

  static bool has_key(const yaml_node& map, std::string_view name) {
    for (size_t i = 0; i < map.children.size(); i += 2)
      if (map.children[i].text == name) return true;
    return false;
  }

  // --- a source

  void read_format(const yaml_node& node, reader&) {
    if (node.kind == yaml_node::kinds::scalar && node.text == "1") return;
    add("source-format"_rule, node,
        "definition sources of format 1 are read here, and this is another");
  }

  void read_log_version(const yaml_node& node, reader&) {
    placed<std::string> version;
    if (!read_text(node, version)) return;
    check_log_version(node, version.value);
    if (set_.log_version.is_given() && set_.log_version.value != version.value)
      return found().add("log-version"_rule, version.place,
                         "the sources of a set have one log version, and this is another",
                         set_.log_version.place, "the log version is given here first");
    if (!set_.log_version.is_given()) set_.log_version = version;
  }

  void read_renderer(const yaml_node& node, reader&) {
    const auto name = std::find(renderer_names.begin(), renderer_names.end(), node.text);
    if (name == renderer_names.end())
      return add("renderer"_rule, node, "a renderer is one of icu, bytes, both");
    renderer_ = static_cast<message_renderer>(name - renderer_names.begin());
  }

  void read_flags(const yaml_node& node, reader&) {
    if (!is_map(node, "flags are a map of names and numbers")) return;
    for (size_t i = 0; i < node.children.size(); i += 2)
      read_flag(node.children[i], node.children[i + 1]);
  }

  void read_flag(const yaml_node& key, const yaml_node& node) {
    placed<std::string> name;
    flag_model bits;
    const bool has_name = !key.is_refused && read_name(key, name);
    if (!read_number(node, bits) || !has_name) return;
    bits.name_place = name.place;
    if (name.value == "DEBUG" && bits.value != definition_debug_flag)
      return found().add("flag-value"_rule, bits.place, "DEBUG is 0x04000000 in every set");
    const auto [first, is_new] = set_.flags.emplace(name.value, bits);
    if (!is_new && first->second.value != bits.value)
      found().add("flag-value"_rule, bits.place,
                  "the flag " + in_quotes(name.value) + " has another value already",
                  first->second.place, "its value is given here first");
  }

  // --- levels

  void read_levels(const yaml_node& node, reader&) {
    if (!is_map(node, "levels are a map of names and numbers")) return;
    for (size_t i = 0; i < node.children.size(); i += 2)
      read_named_level(node.children[i], node.children[i + 1]);
  }

  void read_named_level(const yaml_node& key, const yaml_node& node) {
    placed<std::string> name;
    placed<uint32_t> level;
    const bool has_name = !key.is_refused && read_enumerator(key, "a level's name", name);
    if (!read_level_number(node, level) || !has_name) return;
    const auto [first, is_new] = set_.levels.emplace(name.value, level);
    if (!is_new && first->second.value != level.value)
      found().add("level-value"_rule, level.place,
                  "the level " + in_quotes(name.value) + " has another value already",
                  first->second.place, "its value is given here first");
  }

  void read_source_level(const yaml_node& node, reader&) {
    read_level(node, level_);
    if (level_.is_given()) set_.source_levels.push_back(level_);
  }

  void read_event_level(const yaml_node& node, event_model& event) {
    read_level(node, event.level);
  }

  void read_globals(const yaml_node& node, reader&) {
    std::vector<attribute_model> globals;
    read_attributes(node, globals);
    for (attribute_model& global : globals) add_global(std::move(global));
  }

  // Sources of one set may state the same global attribute, each for its readers.
  void add_global(attribute_model global) {
    if (global.redirection.is_given())
      found().add("redirect-global"_rule, global.redirection.place,
                  "a global attribute cannot be redirected");
    const auto first = std::find_if(set_.globals.begin(), set_.globals.end(), [&](const auto& g) {
      return g.name.value == global.name.value;
    });
    if (first == set_.globals.end()) return set_.globals.push_back(std::move(global));
    const bool is_sure = first->type != TypeUnknown && global.type != TypeUnknown;
    if (is_sure && first->type != global.type)
      found().add(
          "global-conflict"_rule, global.name.place,
          "the global attribute " + in_quotes(global.name.value) + " has another type already",
          first->name.place, "it is declared here first");
  }

  void read_retired(const yaml_node& node, reader&) {
    read_ids(node, "retired IDs are a list", set_.retired);
  }

  void read_id_ranges(const yaml_node& node, reader&) {
    read_ids(node, "ranges of IDs are a list", set_.id_ranges);
  }

  void read_code_pages(const yaml_node& node, reader&) {
    if (!is_list(node, "code pages are a list of their names")) return;
    for (const yaml_node& item : node.children) {
      placed<std::string> name;
      if (!read_name(item, name)) continue;
      if (is_known_code_page(name.value))
        set_.code_pages.push_back(name);
      else
        add("unknown-code-page"_rule, item, "no code page " + in_quotes(name.value));
    }
  }

  void read_source_silence(const yaml_node& node, reader&) { read_silence(node, set_.silenced); }

  void read_source_accepted(const yaml_node& node, reader&) { read_accepted(node, set_.accepted); }

  void read_events(const yaml_node& node, reader&) {
    if (!is_map(node, "events are a map of their names")) return;
    for (size_t i = 0; i < node.children.size(); i += 2)
      read_event(node.children[i], node.children[i + 1]);
  }

  // --- an event

  void read_event(const yaml_node& key, const yaml_node& node) {
    event_model event;
    event.is_whole = node.is_whole;
    if (!key.is_refused) read_name(key, event.name);
    read_map(node, event_keys, event, "an event");
    set_.events.push_back(std::move(event));
  }

  void read_event_id(const yaml_node& node, event_model& event) { read_number(node, event.id); }

  void read_second_word(const yaml_node& node, event_model& event) {
    read_number(node, event.second_word);
  }

  void read_event_flags(const yaml_node& node, event_model& event) {
    if (!is_list(node, "the flags of an event are a list")) return;
    for (const yaml_node& item : node.children) {
      placed<std::string> name;
      if (read_text(item, name)) event.flag_names.push_back(name);
    }
  }

  void read_event_note(const yaml_node& node, event_model& event) { read_note(node, event.note); }

  void read_event_attributes(const yaml_node& node, event_model& event) {
    read_attributes(node, event.attributes);
  }

  void read_select(const yaml_node& node, event_model& event) { read_name(node, event.selector); }

  void read_event_accepted(const yaml_node& node, event_model& event) {
    read_accepted(node, event.accepted);
  }

  void read_event_silence(const yaml_node& node, event_model& event) {
    read_silence(node, event.silenced);
  }

  void read_message(const yaml_node& node, event_model& event) {
    if (node.kind == yaml_node::kinds::scalar) {
      read_text(node, event.message.text);
      return;
    }
    if (!is_map(node, "a message is a text, or a map of keys and values")) return;
    read_map(node, message_keys, event.message, "a message");
    check_message_text(node, event.message);
  }

  void read_messages(const yaml_node& node, event_model& event) {
    if (!is_list(node, "selector messages are a list")) return;
    for (const yaml_node& item : node.children) {
      message_model message;
      message.place = place(item);
      read_map(item, selector_message_keys, message, "a selector message");
      check_message_text(item, message);
      event.messages.push_back(std::move(message));
    }
  }

  // --- accepted differences

  void read_accepted(const yaml_node& node, std::vector<accepted_difference>& all) {
    if (!is_map(node, "accepted differences are a map of CODE/NAME and what is said of them"))
      return;
    for (size_t i = 0; i < node.children.size(); i += 2) {
      accepted_difference accepted;
      const yaml_node& value = node.children[i + 1];
      if (!read_accepted_name(node.children[i], accepted) ||
          !is_map(value,
                  "an accepted difference is a map of since, the log version of the earlier set, "
                  "and reason"))
        continue;
      read_map(value, accepted_keys, accepted, "an accepted difference");
      all.push_back(std::move(accepted));
    }
  }

  void read_accepted_since(const yaml_node& node, accepted_difference& accepted) {
    if (read_text(node, accepted.since)) check_log_version(node, accepted.since.value);
  }

  void read_accepted_reason(const yaml_node& node, accepted_difference& accepted) {
    read_reason(node, "accept"_rule, "an accepted difference", accepted.reason);
  }

  // --- attributes

  void read_attributes(const yaml_node& node, std::vector<attribute_model>& attributes) {
    if (!is_map(node, "attributes are a map of names and types")) return;
    for (size_t i = 0; i < node.children.size(); i += 2) {
      attribute_model attribute;
      placed<std::string> short_form;
      const yaml_node& value = node.children[i + 1];
      const bool has_name =
          !node.children[i].is_refused && read_name(node.children[i], attribute.name);
      if (value.kind == yaml_node::kinds::map)
        read_map(value, attribute_keys, attribute, "an attribute");
      else if (read_text(value, short_form, "an attribute is a type, or a map of keys and values"))
        read_type(value, attribute.type);
      if (has_name) attributes.push_back(std::move(attribute));
    }
  }

  void read_attribute_type(const yaml_node& node, attribute_model& attribute) {
    read_type(node, attribute.type);
  }

  void read_redirect(const yaml_node& node, attribute_model& attribute) {
    read_name(node, attribute.redirection);
  }

  void read_attribute_note(const yaml_node& node, attribute_model& attribute) {
    read_note(node, attribute.note);
  }

  void read_attribute_silence(const yaml_node& node, attribute_model& attribute) {
    read_silence(node, attribute.silenced);
  }

  // --- messages

  void check_message_text(const yaml_node& node, const message_model& message) {
    if (node.kind != yaml_node::kinds::map || !node.is_whole) return;
    if (message.text.is_given() && message.raw.is_given())
      found().add("message-text"_rule, message.raw.place,
                  "a message has a text or a raw template, not both", message.text.place,
                  "its text is given here");
    if (!has_key(node, "text") && !has_key(node, "raw") && !has_key(node, "id"))
      add("message-text"_rule, node,
          "a message needs a text, a raw template, or the ID of one in the catalogs");
  }

  // An empty ID is none: the message is not looked up in catalogs.
  void read_message_id(const yaml_node& node, message_model& message) {
    const bool is_empty = node.kind == yaml_node::kinds::scalar && node.text.empty();
    if (is_empty)
      read_text(node, message.id);
    else
      read_name(node, message.id);
  }
  void read_message_name(const yaml_node& node, message_model& message) {
    read_enumerator(node, "a message's name", message.name);
  }
  void read_message_text(const yaml_node& node, message_model& message) {
    read_text(node, message.text);
  }
  void read_message_raw(const yaml_node& node, message_model& message) {
    read_text(node, message.raw);
  }
  void read_message_index(const yaml_node& node, message_model& message) {
    read_number(node, message.index);
  }
  void read_message_value(const yaml_node& node, message_model& message) {
    read_number(node, message.value);
  }

  definition_set& set_;
  message_renderer renderer_ = message_renderer::icu;
  placed<std::string> level_;
};

constexpr std::array<definition_source_reader::key_row<definition_source_reader>, 13>
    definition_source_reader::file_keys = {{
        {"kplog", &reader::read_format, true},
        {"log_version", &reader::read_log_version},
        {"renderer", &reader::read_renderer},
        {"code_pages", &reader::read_code_pages},
        {"flags", &reader::read_flags},
        {"levels", &reader::read_levels},
        {"level", &reader::read_source_level},
        {"attributes", &reader::read_globals},
        {"ids", &reader::read_id_ranges},
        {"retired", &reader::read_retired},
        {"silence", &reader::read_source_silence},
        {"accept", &reader::read_source_accepted},
        {"events", &reader::read_events},
    }};

constexpr std::array<definition_source_reader::key_row<event_model>, 11>
    definition_source_reader::event_keys = {{
        {"id", &reader::read_event_id, true},
        {"second_word", &reader::read_second_word},
        {"flags", &reader::read_event_flags},
        {"level", &reader::read_event_level},
        {"note", &reader::read_event_note},
        {"attributes", &reader::read_event_attributes},
        {"select", &reader::read_select},
        {"message", &reader::read_message},
        {"messages", &reader::read_messages},
        {"silence", &reader::read_event_silence},
        {"accept", &reader::read_event_accepted},
    }};

constexpr std::array<definition_source_reader::key_row<attribute_model>, 4>
    definition_source_reader::attribute_keys = {{
        {"type", &reader::read_attribute_type, true},
        {"redirect", &reader::read_redirect},
        {"note", &reader::read_attribute_note},
        {"silence", &reader::read_attribute_silence},
    }};

constexpr std::array<definition_source_reader::key_row<accepted_difference>, 2>
    definition_source_reader::accepted_keys = {{
        {"since", &reader::read_accepted_since, true},
        {"reason", &reader::read_accepted_reason, true},
    }};

constexpr std::array<definition_source_reader::key_row<message_model>, 3>
    definition_source_reader::message_keys = {{
        {"id", &reader::read_message_id},
        {"text", &reader::read_message_text},
        {"raw", &reader::read_message_raw},
    }};

constexpr std::array<definition_source_reader::key_row<message_model>, 6>
    definition_source_reader::selector_message_keys = {{
        {"index", &reader::read_message_index, true},
        {"value", &reader::read_message_value, true},
        {"name", &reader::read_message_name},
        {"id", &reader::read_message_id},
        {"text", &reader::read_message_text},
        {"raw", &reader::read_message_raw},
    }};

void read_definition_source(const text_file& source, definition_set& set, diagnostic_list& found) {
  set.sources.push_back(&source);
  yaml_node root;
  if (!read_yaml(source, root, found)) set.is_whole = false;
  definition_source_reader(source, set, found).read(root);
}
