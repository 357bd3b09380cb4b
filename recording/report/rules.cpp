#include "recording/report/rules.h"

// --- Each rule by its code

#define RULE(rule_code, rule_kind_name, rule_severity_name, rule_summary)                         \
  template <>                                                                                     \
  diagnostic_rule operator""_rule<rule_code>() {                                                  \
    static constexpr diagnostic_rule_row row = {rule_code, rule_kind::rule_kind_name,             \
                                                rule_severity::rule_severity_name, rule_summary}; \
    return diagnostic_rule(row);                                                                  \
  }
#define CHANGE(change_code, ...)                                       \
  template <>                                                          \
  change_rule operator""_change<change_code>() {                       \
    static constexpr change_rule_row row = {change_code, __VA_ARGS__}; \
    return change_rule(row);                                           \
  }
#include "recording/report/rules.def"
#undef RULE
#undef CHANGE

// --- All of them

std::span<const diagnostic_rule> diagnostic_rules() {
#define RULE(rule_code, ...) operator""_rule<rule_code>(),
#define CHANGE(...)
  static const auto rules = std::to_array<diagnostic_rule>({
#include "recording/report/rules.def"
  });
#undef RULE
#undef CHANGE
  return rules;
}

std::span<const change_rule> change_rules() {
#define RULE(...)
#define CHANGE(change_code, ...) operator""_change<change_code>(),
  static const auto rules = std::to_array<change_rule>({
#include "recording/report/rules.def"
  });
#undef RULE
#undef CHANGE
  return rules;
}

template <class Rule>
static Rule of_code(std::span<const Rule> rules, std::string_view code) {
  for (const Rule rule : rules)
    if (rule->code == code) return rule;
  return {};
}

diagnostic_rule rule_of_code(std::string_view code) {
  return of_code(diagnostic_rules(), code);
}

change_rule change_of_code(std::string_view code) {
  return of_code(change_rules(), code);
}

std::vector<std::string_view> change_codes() {
  std::vector<std::string_view> codes;
  for (const change_rule rule : change_rules()) codes.emplace_back(rule->code);
  return codes;
}
