#include "tools/source/values.h"

#include <algorithm>
#include <optional>

#include "recording/report/rules.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

static constexpr const char* leading_zero_fault =
    "a number with a zero in front is octal to some readers of YAML; write it without, or "
    "after 0x";

// Decimal to some readers of YAML, octal to others.
static bool has_leading_zero(std::string_view text) {
  return text.size() > 1 && text.find_first_not_of("0123456789") == text.npos && text[0] == '0';
}

// The number that a whole text is, in decimal, or in hexadecimal after "0x", as YAML has it.
static std::optional<uint32_t> number_from_text(std::string_view text) {
  if (has_leading_zero(text) || text.starts_with("0X")) return std::nullopt;
  return number_of_either_base<uint32_t>(text);
}

// What to say of a value that is no number.
static const char* number_fault(const yaml_node& node) {
  if (has_leading_zero(node.text)) return leading_zero_fault;
  const bool is_quoted = node.kind == yaml_node::kinds::scalar && !node.plain;
  return is_quoted && number_from_text(node.text)
             ? "a number stands here without quotes"
             : "a number from 0 to 4294967295 is expected here, decimal or 0x and hexadecimal";
}

// Whether the value is what the source says, and nothing has been said of it.
static bool is_certain(const yaml_node& node) {
  return node.is_whole && !node.is_refused;
}

void source_value_reader::add(diagnostic_rule rule, const yaml_node& node, std::string text) {
  found_.add(rule, place(node), std::move(text));
}

// `expected` is what to say of a value of another kind, and `nothing` what besides of none.
void source_value_reader::refuse_kind(const yaml_node& node, const std::string& expected,
                                      const char* nothing) {
  if (!is_certain(node)) return;
  const bool is_nothing = node.kind == yaml_node::kinds::null;
  add("wrong-kind"_rule, node,
      is_nothing ? expected + ", and there is nothing here" + nothing : expected);
}

bool source_value_reader::is_map(const yaml_node& node, const std::string& expected) {
  if (node.kind == yaml_node::kinds::map) return true;
  refuse_kind(node, expected, "; what belongs to it is indented further, and an empty one is {}");
  return false;
}

bool source_value_reader::is_list(const yaml_node& node, const std::string& expected) {
  if (node.kind == yaml_node::kinds::sequence) return true;
  refuse_kind(node, expected, "; an empty one is []");
  return false;
}

bool source_value_reader::read_text(const yaml_node& node, placed<std::string>& text,
                                    const char* expected) {
  if (node.kind != yaml_node::kinds::scalar) {
    const bool is_placeholder = node.kind == yaml_node::kinds::map && node.children.size() == 2 &&
                                node.children[1].kind == yaml_node::kinds::null;
    refuse_kind(node,
                is_placeholder
                    ? std::string(expected) + "; one that begins with a placeholder needs quotes"
                    : expected,
                "");
    return false;
  }
  if (node.text.find('\0') != std::string::npos) {
    add("bad-text"_rule, node, "a text cannot hold a NUL");
    return false;
  }
  text = {node.text, place(node)};
  return true;
}

bool source_value_reader::read_name(const yaml_node& node, placed<std::string>& name) {
  if (!read_text(node, name)) return false;
  const char* fault = name.value.empty()                  ? "a name cannot be empty"
                      : has_control_character(name.value) ? "a name cannot hold a control character"
                                                          : nullptr;
  if (fault != nullptr) add("bad-name"_rule, node, fault);
  return fault == nullptr;
}

bool source_value_reader::read_number(const yaml_node& node, placed<uint32_t>& number) {
  const auto value = node.kind == yaml_node::kinds::scalar && node.plain
                         ? number_from_text(node.text)
                         : std::nullopt;
  if (value)
    number = {*value, place(node)};
  else if (is_certain(node))
    add("bad-number"_rule, node, number_fault(node));
  return value.has_value();
}

void source_value_reader::read_note(const yaml_node& node, std::string& note) {
  placed<std::string> text;
  if (read_text(node, text)) note = text.value;
}

void source_value_reader::read_silence(const yaml_node& node,
                                       std::vector<silenced_rule>& silenced) {
  if (!is_map(node, "silences are a map of codes and reasons")) return;
  for (size_t i = 0; i < node.children.size(); i += 2) {
    const yaml_node& key = node.children[i];
    if (key.is_refused) continue;
    const diagnostic_rule rule = rule_of_code(key.text);
    if (!rule || rule->kind != rule_kind::advice) {
      refuse_silence(key);
      continue;
    }
    placed<std::string> code;
    placed<std::string> reason;
    if (read_text(key, code) &&
        read_reason(node.children[i + 1], "silence"_rule, "a silence", reason))
      silenced.push_back({code, reason.value});
  }
}

bool source_value_reader::read_reason(const yaml_node& node, diagnostic_rule rule, const char* what,
                                      placed<std::string>& reason) {
  if (!read_text(node, reason)) return false;
  const bool is_blank = reason.value.find_first_not_of(' ') == std::string::npos;
  if (is_blank) add(rule, node, std::string(what) + " needs a reason");
  return !is_blank;
}

void source_value_reader::refuse_silence(const yaml_node& key) {
  if (rule_of_code(key.text))
    return add("silence"_rule, key, in_quotes(key.text) + " is a fault, which cannot be silenced");
  std::vector<std::string_view> codes;
  for (const diagnostic_rule rule : diagnostic_rules())
    if (rule->kind == rule_kind::advice) codes.push_back(rule->code);
  add("silence"_rule, key, "no rule " + in_quotes(key.text) + nearest_name_hint(key.text, codes));
}

bool source_value_reader::read_accepted_name(const yaml_node& key, accepted_difference& accepted) {
  placed<std::string> written;
  if (key.is_refused || !read_name(key, written)) return false;
  const size_t slash = std::min(written.value.find('/'), written.value.size());
  accepted.place = written.place;
  accepted.code = written.value.substr(0, slash);
  accepted.name = written.value.substr(std::min(slash + 1, written.value.size()));
  const bool is_known = static_cast<bool>(change_of_code(accepted.code));
  if (!is_known)
    add("accept"_rule, key,
        "no difference " + in_quotes(accepted.code) +
            nearest_name_hint(accepted.code, change_codes()));
  else if (accepted.name.empty())
    add("accept"_rule, key,
        "CODE/NAME is expected, and this is a code alone: NAME is the attribute, the message's ID, "
        "or whatever else is different");
  return is_known && !accepted.name.empty();
}

void source_value_reader::read_ids(const yaml_node& node, const char* expected,
                                   std::vector<id_range>& ranges) {
  if (!is_list(node, expected)) return;
  for (const yaml_node& item : node.children) read_id_range(item, ranges);
}

void source_value_reader::read_id_range(const yaml_node& item, std::vector<id_range>& ranges) {
  const bool is_scalar = item.kind == yaml_node::kinds::scalar;
  const std::string_view text = is_scalar ? std::string_view(item.text) : std::string_view();
  const size_t dash = text.find('-');
  const std::string_view first_text = text.substr(0, dash);
  const std::string_view last_text =
      dash == std::string_view::npos ? first_text : text.substr(dash + 1);
  const auto first = number_from_text(first_text);
  const auto last = number_from_text(last_text);
  if (!first || !last) {
    const bool is_octal = has_leading_zero(first_text) || has_leading_zero(last_text);
    if (is_certain(item))
      add("bad-number"_rule, item,
          is_octal ? leading_zero_fault : "an ID or a range FIRST-LAST of them is expected here");
    return;
  }
  if (*first > *last) return add("backward-range"_rule, item, "this range ends before it begins");
  ranges.push_back({*first, *last, place(item)});
}
