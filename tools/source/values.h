// The kinds of values in a definition source, each read at its place.
#ifndef TOOLS_SOURCE_VALUES_H
#define TOOLS_SOURCE_VALUES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"
#include "tools/source/yaml_tree.h"

// Reads values of one source. What is no value of its kind is a diagnostic, unless one stands there
// already or the source breaks off within it; the result then stays as it was. Source and list
// outlive this.
class source_value_reader {
 public:
  source_value_reader(const text_file& source, diagnostic_list& found)
      : source_(source), found_(found) {}

  diagnostic_list& found() { return found_; }
  text_place place(const yaml_node& node) const { return node.place(source_); }
  void add(diagnostic_rule rule, const yaml_node& node, std::string text);

  // Whether the value is one; `expected` is what to say when it is not.
  bool is_map(const yaml_node& node, const std::string& expected);
  bool is_list(const yaml_node& node, const std::string& expected);

  // A scalar without NULs; `expected` as above.
  bool read_text(const yaml_node& node, placed<std::string>& text,
                 const char* expected = "a text is expected here");
  // A text that is not empty and holds no control character. One that does is in `name` all the
  // same.
  bool read_name(const yaml_node& node, placed<std::string>& name);
  // A number of 32 bits without a sign, without quotes, in decimal or after 0x.
  bool read_number(const yaml_node& node, placed<uint32_t>& number);
  void read_note(const yaml_node& node, std::string& note);
  // A list of numbers and ranges FIRST-LAST of them. `expected` is what to say when it is no list.
  void read_ids(const yaml_node& node, const char* expected, std::vector<id_range>& ranges);
  // A map of codes of advice to reasons.
  void read_silence(const yaml_node& node, std::vector<silenced_rule>& silenced);
  // A text that says why, as `what` must.
  bool read_reason(const yaml_node& node, diagnostic_rule rule, const char* what,
                   placed<std::string>& reason);
  // The CODE/NAME of an accepted difference.
  bool read_accepted_name(const yaml_node& key, accepted_difference& accepted);

  // Values that have a form of their own (values_named.cpp).

  // What is wrong with a log version, if anything.
  void check_log_version(const yaml_node& node, const std::string& version);
  // A name that generated headers have as it is, of what `what` calls it. One that they cannot have
  // is in `name` all the same.
  bool read_enumerator(const yaml_node& node, const char* what, placed<std::string>& name);
  bool read_level_number(const yaml_node& node, placed<uint32_t>& level);
  // A level's number, or a name that the set gives one.
  void read_level(const yaml_node& node, placed<std::string>& level);
  // The name of a type, with or without "Type" before it; TypeUnknown for what is none.
  void read_type(const yaml_node& node, kp_AttributeType& type);

 private:
  void refuse_kind(const yaml_node& node, const std::string& expected, const char* nothing);
  void read_id_range(const yaml_node& item, std::vector<id_range>& ranges);
  void refuse_silence(const yaml_node& key);

  const text_file& source_;
  diagnostic_list& found_;
};

#endif
