#include "tools/severity_option.h"

#include <algorithm>
#include <array>

#include "tools/command_options.h"

struct severity_name_row {
  const char* name;
  rule_severity severity;
};

static constexpr std::array<severity_name_row, 3> severity_names = {{
    {"off", rule_severity::off},
    {"warning", rule_severity::warning},
    {"error", rule_severity::error},
}};

// What is an error for the library stays one.
static bool is_severity_free(const diagnostic_rule_row& row) {
  return row.kind == rule_kind::advice || row.severity != rule_severity::error;
}

std::vector<std::string> severity_settings() {
  std::vector<std::string> settings;
  for (const diagnostic_rule_row& row : diagnostic_rules)
    for (const severity_name_row& known : severity_names)
      if (is_severity_free(row)) settings.push_back(std::string(row.code) + "=" + known.name);
  return settings;
}

void add_severity_option(CLI::App& command, std::vector<std::string>& settings) {
  add_texts_option(command,
                   {"--severity", severity_setting_form,
                    "How severe findings of a rule are: CODE=off, CODE=warning, CODE=error"},
                   settings);
}

// Takes "CODE=SEVERITY" over; false when it is none.
static bool set_severity(const std::string& text, diagnostic_list& found) {
  const size_t equals = std::min(text.find('='), text.size());
  const diagnostic_rule_row* const row = rule_of_code(std::string_view(text).substr(0, equals));
  if (row == nullptr || !is_severity_free(*row) || equals == text.size()) return false;
  for (const severity_name_row& known : severity_names) {
    if (text.compare(equals + 1, std::string::npos, known.name) != 0) continue;
    found.set_severity(row->rule, known.severity);
    return true;
  }
  return false;
}

command_outcome apply_severities(const std::vector<std::string>& settings, diagnostic_list& found,
                                 std::ostream& log) {
  for (const std::string& text : settings)
    if (!set_severity(text, found))
      return usage_error(log, "no rule and severity: \"" + text +
                                  "\"; CODE=off, CODE=warning or CODE=error is expected, of a rule "
                                  "that is not always an error");
  return command_outcome::good;
}
