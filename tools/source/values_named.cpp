// Values of a source that have a form of their own: log versions, enumerators, levels, types.
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/definitions/cpp_name.h"
#include "tools/source/type_hint.h"
#include "tools/source/values.h"

void source_value_reader::check_log_version(const yaml_node& node, const std::string& version) {
  if (version.size() > log_version_limit)
    add("log-version"_rule, node,
        "a log version has at most 7 bytes in UTF-8, and this one " +
            std::to_string(version.size()));
  if (has_control_character(version))
    add("log-version"_rule, node, "a log version cannot hold a control character");
}

bool source_value_reader::read_enumerator(const yaml_node& node, const char* what,
                                          placed<std::string>& name) {
  if (!read_name(node, name)) return false;
  if (cpp_identifier(name.value) != name.value)
    add("bad-name"_rule, node,
        std::string(what) +
            " is an enumerator of generated headers: letters, digits and single "
            "underscores, none of these first, and no word of C++");
  return true;
}

bool source_value_reader::read_level_number(const yaml_node& node, placed<uint32_t>& level) {
  if (!read_number(node, level)) return false;
  if (level.value <= log_level_limit) return true;
  add("level-value"_rule, node, "a level is a number from 0 to 9");
  return false;
}

void source_value_reader::read_level(const yaml_node& node, placed<std::string>& level) {
  const bool is_number =
      node.kind == yaml_node::kinds::scalar && !node.text.empty() &&
      std::string_view("+-.0123456789").find(node.text.front()) != std::string_view::npos;
  placed<uint32_t> number;
  if (!is_number)
    read_text(node, level, "a level is a number from 0 to 9, or a name that \"levels\" gives one");
  else if (read_level_number(node, number))
    level = {std::to_string(number.value), number.place};
}

void source_value_reader::read_type(const yaml_node& node, kp_AttributeType& type) {
  placed<std::string> name;
  if (!read_text(node, name)) return;
  type = _kp_LOG_get_attribute_type_code(name.value.c_str());
  if (type == TypeUnknown) type = _kp_LOG_get_attribute_type_code(("Type" + name.value).c_str());
  if (type == TypeUnknown)
    add("unknown-type"_rule, node, "no type " + in_quotes(name.value) + type_hint(name.value));
}
