// What a record's attribute is compared with: "PORT>=1024".
#ifndef TOOLS_FIND_COMPARISON_H
#define TOOLS_FIND_COMPARISON_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/kp_time.h"
#include "recording/records/event_set.h"
#include "recording/records/parser.h"
#include "tools/find/condition_text.h"
#include "tools/find/expression.h"

// How values of types are compared.
enum class comparison_family { none, boolean, integer, real, text, time };

class attribute_comparison {
 public:
  // "ATTRIBUTE OPERATOR VALUE", blanks around the operator or not: = != < <= > >=, and ~ for a
  // regular expression that fits a part of a text. Attribute and value may stand in the quotes and
  // escapes of JSON. Raises std::invalid_argument for what is no comparison, for an attribute that
  // no event declares, and for a value that none of its types holds.
  attribute_comparison(const std::string& text, const event_set& events);

  // Whether the record has the attribute, and its value compares like this: numbers by what they
  // are, texts by code points, times by instant. `event` is the record's, null when it is not
  // known. A value that is not of the type that the event declares is compared as what it looks
  // like.
  bool holds(const parsed_record& record, const known_event* event) const;

 private:
  void take_values(const std::string& value, const event_set& events);
  void take_value(const known_event& event, const known_attribute& attribute,
                  const std::string& value);
  bool holds_as(comparison_family family, const record_value& value) const;
  bool holds_real(const record_value& value) const;
  bool holds_time(const record_value& value) const;
  comparison_family family_of_unknown(const record_value& value) const;

  std::string name_;
  comparison_operator operator_ = comparison_operator::equal;
  // What it is compared with, as each family that has types of the attribute.
  std::optional<bool> boolean_;
  std::optional<int64_t> integer_;
  std::optional<double> real_;
  std::optional<std::string> text_;
  std::optional<kp_Time> time_;
  std::optional<text_expression> expression_;  // of a text
};

#endif
