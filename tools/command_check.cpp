#include "tools/command_check.h"

#include <memory>
#include <ostream>

#include "tools/command_options.h"
#include "tools/definition_advice.h"
#include "tools/definition_file_check.h"
#include "tools/definition_input.h"
#include "tools/definition_standard.h"

struct check_options {
  std::vector<std::string> files;  // sources of one set, or a compiled file; "-": standard input
  std::string standard;            // empty: the set stands alone
  std::vector<std::string> severities;  // CODE=SEVERITY
  std::vector<std::string> code_pages;
  std::string fail_on = "warning";
  report_options report;
};

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
  return row.kind == rule_kind::advice || row.severity == rule_severity::warning;
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

static command_outcome apply_severities(const check_options& options, diagnostic_list& found,
                                        std::ostream& log) {
  for (const std::string& text : options.severities)
    if (!set_severity(text, found))
      return usage_error(log, "no rule and severity: \"" + text +
                                  "\"; CODE=off, CODE=warning or CODE=error is expected, of a rule "
                                  "that is not always an error");
  return command_outcome::good;
}

static command_outcome open_code_pages(const check_options& options, advice_options& advice,
                                       std::ostream& log) {
  for (const std::string& name : options.code_pages) {
    advice.code_pages.emplace_back(name);
    if (!advice.code_pages.back().is_known())
      return usage_error(log, "no code page \"" + name + "\"");
  }
  return command_outcome::good;
}

static std::string summary_of(const diagnostic_list& found, size_t silenced) {
  std::string summary = counted(found.count(rule_severity::error), "error") + ", " +
                        counted(found.count(rule_severity::warning), "warning");
  if (silenced != 0) summary += ", " + std::to_string(silenced) + " silenced";
  return summary;
}

static command_outcome report(const check_options& options, const diagnostic_list& found,
                              const definition_set& set, size_t silenced, std::ostream& log) {
  found.write(log, set.sources, options.report.format, options.report.color);
  if (options.report.with_summary()) log << "kplog: " << summary_of(found, silenced) << '\n';
  const bool fails =
      options.fail_on == "error" ? found.count(rule_severity::error) != 0 : !found.empty();
  return fails ? command_outcome::findings : command_outcome::good;
}

// Advice is for sets that are sound.
static command_outcome check(const check_options& options, std::ostream& log) {
  diagnostic_list found;
  advice_options advice;
  standard_input standard;
  definition_input input;
  command_outcome outcome = apply_severities(options, found, log);
  if (outcome == command_outcome::good) outcome = open_code_pages(options, advice, log);
  if (outcome == command_outcome::good)
    outcome = standard.read(options.standard, options.report, log);
  advice.standard = standard.definitions();
  if (outcome == command_outcome::good)
    outcome =
        read_definition_input(options.files, input, found, options.report, log, advice.standard);
  if (outcome != command_outcome::good) return outcome;
  size_t silenced = 0;
  if (input.file != nullptr)
    check_definition_file(*input.file, advice.standard, found);
  else if (found.empty())
    silenced = add_advice(input.set(), advice, found);
  return report(options, found, input.set(), silenced, log);
}

static command_action describe_check(CLI::App& command) {
  const auto options = std::make_shared<check_options>();
  command
      .add_option("FILE", options->files,
                  "Definition sources of one set, or a compiled file; - is standard input")
      ->required()
      ->type_name("FILE");
  add_standard_option(command, options->standard);
  command
      .add_option("--severity", options->severities,
                  "How severe findings of a rule are: CODE=off, CODE=warning, CODE=error")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("CODE=SEVERITY");
  command.add_option("--codepage", options->code_pages, "A code page that all texts must fit into")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("NAME");
  add_choice_option(command, "--fail-on", options->fail_on, {"error", "warning"},
                    "What makes the exit status 1; warnings, unless given, do so too");
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) { return check(*options, log); };
}

constexpr kplog_command_row check_command = {
    "check", "Find what is wrong with definitions, or probably not meant",
    "  kplog check events.yaml\n"
    "  kplog check product.yaml --std standard.ldf          an AUX set beside its STD set\n"
    "  kplog check events.ldf                               every byte of a compiled file\n"
    "  kplog check events.yaml --codepage ISO-8859-1 --severity no-message=off\n",
    describe_check};
