#include "tools/dump/yaml.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "recording/definitions/merged_set.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "tools/compiled/writer.h"
#include "tools/definitions/authored_text.h"
#include "tools/source/completion.h"

// Keys up to this size stand before their colon; YAML wants longer ones announced.
static constexpr size_t plain_key_limit = 512;

static constexpr std::array<std::string_view, 9> words_with_meaning = {
    "null", "true", "false", "yes", "no", "on", "off", "y", "n"};

static bool is_word_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

static bool begins_word(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

static bool has_meaning(std::string_view word) {
  const auto same = [](char a, char b) { return a == (b | 0x20); };
  return std::any_of(words_with_meaning.begin(), words_with_meaning.end(), [&](auto known) {
    return std::equal(known.begin(), known.end(), word.begin(), word.end(), same);
  });
}

static std::string yaml_scalar(std::string_view text) {
  if (!text.empty() && begins_word(text.front()) && !has_meaning(text) &&
      std::all_of(text.begin(), text.end(), is_word_character))
    return std::string(text);
  return yaml_quoted(text);
}

static std::string yaml_number(uint32_t number) {
  return "0x" + hexadecimal(number, 8);
}

class definition_yaml_writer {
 public:
  definition_yaml_writer(const definition_set& set, diagnostic_list& found,
                         const std_definitions* standard)
      : set_(set), found_(found), std_(standard), known_(set, standard) {}

  std::string write() {
    write_log_version();
    write_flags();
    write_attributes(set_.globals, "", false);
    if (!set_.events.empty()) yaml_ += "events:\n";
    for (const event_model& event : set_.events) write_event(event);
    return std::move(yaml_);
  }

 private:
  void lose(const text_place& place, const std::string& what) {
    found_.add("no-source"_rule, place, what + ", which a source cannot say");
  }

  std::string text(const placed<std::string>& text) {
    if (utf8_first_invalid(text.value) != std::string_view::npos)
      lose(text.place, "this text is not UTF-8");
    return yaml_scalar(text.value);
  }

  std::string name(const placed<std::string>& name) {
    if (name.value.empty()) lose(name.place, "this name is empty");
    if (has_control_character(name.value)) lose(name.place, "this name holds a control character");
    return text(name);
  }

  void write_log_version() {
    yaml_ = "kplog: 1\nlog_version: " + text(set_.log_version) + "\n";
    if (!set_.events.empty() && set_.events.front().renderer == message_renderer::bytes)
      yaml_ += "renderer: bytes\n";
    if (set_.log_version.value.size() > log_version_limit)
      lose(set_.log_version.place, "the log version has more than 7 characters");
    if (has_control_character(set_.log_version.value))
      lose(set_.log_version.place, "the log version holds a control character");
  }

  // Another name than those that the STD set gives to other bits.
  std::string flag_name(unsigned bit) const {
    if (1u << bit == definition_debug_flag) return "DEBUG";
    std::string name = "BIT_" + std::to_string(bit);
    while (std_ != nullptr && std_->set().flags.count(name) != 0) name += '_';
    return name;
  }

  void write_flags() {
    uint32_t used = 0;
    for (const event_model& event : set_.events) used |= event.flags;
    if (used == 0) return;
    yaml_ += "flags:\n";
    for (unsigned bit = 0; bit < 32; ++bit)
      if ((used & 1u << bit) != 0)
        yaml_ += "  " + flag_name(bit) + ": " + yaml_number(1u << bit) + "\n";
  }

  // --- attributes

  void write_attributes(const std::vector<attribute_model>& attributes, const std::string& indent,
                        bool with_redirections) {
    if (attributes.empty()) return;
    yaml_ += indent + "attributes:\n";
    std::unordered_set<std::string_view> known;
    for (const attribute_model& attribute : attributes) {
      if (!known.insert(attribute.name.value).second)
        lose(attribute.name.place, "this attribute is declared before");
      write_attribute(attribute, indent + "  ", with_redirections);
    }
  }

  void write_attribute(const attribute_model& attribute, const std::string& indent,
                       bool with_redirection) {
    const std::string key = name(attribute.name);
    yaml_ += indent + (key.size() > plain_key_limit ? "? " + key + "\n" + indent : key) + ": ";
    if (with_redirection && attribute.redirection.is_given())
      yaml_ += "{type: " + type(attribute) + ", redirect: " + name(attribute.redirection) + "}\n";
    else
      yaml_ += type(attribute) + "\n";
  }

  std::string type(const attribute_model& attribute) {
    if (find_type(attribute.type) != nullptr) return short_type_name(attribute.type);
    lose(attribute.name.place, "this attribute has a type that does not exist");
    return std::to_string(attribute.type);
  }

  // --- an event

  void write_event(const event_model& event) {
    yaml_ += "  " + yaml_scalar(event.name.value) + ":\n    id: " + std::to_string(event.id.value);
    yaml_ += '\n';
    if (event.second_word.value != 0)
      yaml_ += "    second_word: " + std::to_string(event.second_word.value) + "\n";
    write_event_flags(event.flags);
    write_attributes(event.attributes, "    ", true);
    if (event.selector.is_given()) yaml_ += "    select: " + name(event.selector) + "\n";
    write_message(event);
    if (!event.messages.empty()) yaml_ += "    messages:\n";
    for (const message_model& message : event.messages) write_selector_message(event, message);
  }

  void write_event_flags(uint32_t flags) {
    if (flags == 0) return;
    std::string names;
    for (unsigned bit = 0; bit < 32; ++bit)
      if ((flags & 1u << bit) != 0) names += (names.empty() ? "" : ", ") + flag_name(bit);
    yaml_ += "    flags: [" + names + "]\n";
  }

  void write_message(const event_model& event) {
    const message_model& message = event.message;
    const bool has_default_id = message.id.value == event.name.value;
    const std::string content = message_content(event, message, has_default_id);
    if (has_default_id && message.raw.value.empty()) return;
    yaml_ += "    message: " + content + "\n";
  }

  // A text alone, or a map.
  std::string message_content(const event_model& event, const message_model& message,
                              bool has_default_id) {
    const auto authored = authored_text(event, message);
    if (has_default_id && authored) return yaml_scalar(*authored);
    const char* const separator = message.raw.value.empty() ? "" : ", ";
    return "{" + (has_default_id ? "" : "id: " + message_id(message) + separator) +
           message_text(message, authored) + "}";
  }

  std::string message_text(const message_model& message,
                           const std::optional<std::string>& authored) {
    if (message.raw.value.empty()) return "";
    return authored ? "text: " + yaml_scalar(*authored) : "raw: " + text(message.raw);
  }

  void write_selector_message(const event_model& event, const message_model& message) {
    const std::string default_id = event.name.value + "." + std::to_string(message.index.value);
    const bool has_default_id = message.id.value == default_id;
    yaml_ += "      - {index: " + std::to_string(message.index.value) +
             ", value: " + std::to_string(message.value.value);
    if (!has_default_id) yaml_ += ", id: " + message_id(message);
    if (!message.raw.value.empty())
      yaml_ += ", " + message_text(message, authored_text(event, message));
    else if (has_default_id)
      yaml_ += ", text: \"\"";
    yaml_ += "}\n";
  }

  std::string message_id(const message_model& message) {
    return message.id.value.empty() ? "\"\"" : name(message.id);
  }

  std::optional<std::string> authored_text(const event_model& event,
                                           const message_model& message) const {
    if (event.renderer != message_renderer::icu) return std::nullopt;
    if (utf8_first_invalid(message.raw.value) != std::string_view::npos) return std::nullopt;
    return authored_text_of(message.raw.value,
                            [&](std::string_view name) { return known_.type_of(event, name); });
  }

  const definition_set& set_;
  diagnostic_list& found_;
  const std_definitions* const std_;  // null: none is known
  const attribute_lookup known_;
  std::string yaml_;
};

// Warns of the first byte that compiling would give otherwise.
static void compare_bytes(const definition_file& file, diagnostic_list& found) {
  const std::string compiled = definition_file_bytes(file.set);
  const std::string_view bytes = file.source.bytes();
  if (compiled == bytes) return;
  const auto differing =
      std::mismatch(bytes.begin(), bytes.end(), compiled.begin(), compiled.end());
  found.add(
      "file-layout"_rule, {&file.source, static_cast<size_t>(differing.first - bytes.begin())},
      "from here on the file is laid out otherwise than kplog compile does; the compiled dump "
      "says the same with other bytes");
}

// Whether there is a template that ICU refuses, and the byte renderer does not.
static bool is_for_bytes(const diagnostic_list& found) {
  return found.has("template-refused"_rule) || found.has("template-format"_rule) ||
         found.has("text-too-many"_rule) || found.has("text-name"_rule);
}

// A file does not say which renderer it is for: ICU's, when that takes all templates.
static void complete_file_set(definition_set& set, diagnostic_list& found,
                              const std_definitions* standard) {
  diagnostic_list found_for_icu = found;
  complete_definition_set(set, found_for_icu, standard);
  if (!is_for_bytes(found_for_icu)) {
    found = std::move(found_for_icu);
    return;
  }
  for (event_model& event : set.events) event.renderer = message_renderer::bytes;
  complete_definition_set(set, found, standard);
}

std::string definition_yaml(definition_file& file, diagnostic_list& found,
                            const std_definitions* standard) {
  file.set.may_be_auxiliary = true;
  complete_file_set(file.set, found, standard);
  std::string yaml = definition_yaml_writer(file.set, found, standard).write();
  if (yaml.size() > source_size_limit)
    found.add("no-source"_rule, {&file.source, 0},
              "the dump is larger than 16 MiB, which a source cannot be");
  if (found.count(rule_severity::error) == 0) compare_bytes(file, found);
  return yaml;
}
