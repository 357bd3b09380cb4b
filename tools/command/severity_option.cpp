#include "tools/command/severity_option.h"

#include <algorithm>
#include <array>

#include "recording/text/words.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

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

static std::string unknown_rule(const std::string& code) {
  std::vector<std::string_view> codes;
  for (const diagnostic_rule_row& row : diagnostic_rules)
    if (is_severity_free(row)) codes.emplace_back(row.code);
  return "no rule \"" + code + "\"" + nearest_name_hint(code, codes);
}

// Takes "CODE=SEVERITY" over, or says why it is none.
static std::string set_severity(const std::string& text, diagnostic_list& found) {
  const size_t equals = std::min(text.find('='), text.size());
  const std::string code = text.substr(0, equals);
  const diagnostic_rule_row* const row = rule_of_code(code);
  if (row == nullptr) return unknown_rule(code);
  if (!is_severity_free(*row)) return "findings of \"" + code + "\" are always errors";
  for (const severity_name_row& known : severity_names) {
    if (text.substr(equals) != std::string("=") + known.name) continue;
    found.set_severity(row->rule, known.severity);
    return "";
  }
  return code + "=off, " + code + "=warning or " + code + "=error is expected, not \"" + text +
         "\"";
}

command_outcome apply_severities(const std::vector<std::string>& settings, diagnostic_list& found,
                                 std::ostream& log) {
  for (const std::string& text : settings) {
    const std::string problem = set_severity(text, found);
    if (!problem.empty()) return usage_error(log, problem);
  }
  return command_outcome::good;
}
