#include <algorithm>
#include <memory>
#include <ostream>

#include "recording/files/whole_file.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/compiled/verify.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"
#include "tools/source/advice.h"
#include "tools/source/settings_check.h"

struct check_options {
  std::vector<std::string> files;  // sources of one set, or a compiled file; "-": standard input
  std::string standard;            // empty: the set stands alone
  std::vector<std::string> severities;  // CODE=SEVERITY
  std::vector<std::string> code_pages;
  std::string fail_on = "warning";
  unsigned max_findings = 100;  // that are shown; 0: all
  report_options report;
};

static void open_code_pages(const check_options& options, advice_options& advice) {
  for (const std::string& name : options.code_pages) {
    advice.code_pages.emplace_back(name);
    if (!advice.code_pages.back().is_known()) throw wrong_usage("no code page " + in_quotes(name));
  }
}

static std::string summary_of(const diagnostic_list& found, size_t silenced) {
  std::string summary = counted(found.count(rule_severity::error), "error") + ", " +
                        counted(found.count(rule_severity::warning), "warning");
  if (silenced != 0) summary += ", " + std::to_string(silenced) + " silenced";
  return summary;
}

// Whether a compiled file names what only an STD set could declare, and none was given.
static bool may_need_standard(const check_options& options, const definition_input& input,
                              const diagnostic_list& found) {
  return input.file != nullptr && options.standard.empty() &&
         (found.has("template-attribute"_rule) || found.has("file-selector"_rule));
}

// How many findings are not shown.
static void report_left(const check_options& options, size_t left, std::ostream& log) {
  std::string json;
  json_text(json).begin_object().key("not_shown").number(left).end_object();
  if (options.report.format == diagnostic_format::json)
    log << json << '\n';
  else
    log << "kplog: " << left << " more not shown; --max-findings 0 shows all\n";
}

static command_outcome report(const check_options& options, const diagnostic_list& found,
                              const definition_input& input, size_t silenced, std::ostream& log) {
  const size_t limit = options.max_findings == 0 ? found.size() : options.max_findings;
  const size_t left = found.write_first(limit, log, input.set().sources, options.report.format,
                                        options.report.color);
  if (options.report.with_summary()) {
    log << "kplog: " << summary_of(found, silenced) << '\n';
    if (may_need_standard(options, input, found))
      log << "kplog: if this is an AUX file, give its STD set with --std\n";
  }
  if (left != 0) report_left(options, left, log);
  const bool fails =
      options.fail_on == "error" ? found.count(rule_severity::error) != 0 : !found.empty();
  return fails ? command_outcome::findings : command_outcome::good;
}

static bool has_configuration_file(const check_options& options) {
  return std::any_of(options.files.begin(), options.files.end(), is_configuration_path);
}

static command_outcome check_configuration_file(const check_options& options,
                                                diagnostic_list& found, std::ostream& log) {
  if (options.files.size() != 1) throw wrong_usage("a configuration file is checked alone");
  const std::string& path = options.files.front();
  definition_input input;
  input.sources.emplace_back(path, read_file(path, source_size_limit));
  input.source_set.sources.push_back(&input.sources.front());
  check_configuration(input.sources.front(), found);
  return report(options, found, input, 0, log);
}

// Advice is for sets that are sound.
static command_outcome check(const check_options& options, std::ostream& log) {
  diagnostic_list found;
  advice_options advice;
  standard_input standard;
  definition_input input;
  apply_severities(options.severities, found);
  if (has_configuration_file(options)) return check_configuration_file(options, found, log);
  open_code_pages(options, advice);
  standard.read(options.standard, options.report, log);
  advice.standard = standard.definitions();
  read_definition_input(options.files, input, found, options.report, log, advice.standard);
  size_t silenced = 0;
  if (input.file != nullptr)
    verify_definition_file(*input.file, advice.standard, found);
  else if (found.empty())
    silenced = add_advice(input.set(), advice, found);
  return report(options, found, input, silenced, log);
}

static command_action describe_check(CLI::App& command) {
  const auto options = std::make_shared<check_options>();
  add_arguments(
      command,
      {"FILE", "FILE",
       "Definition sources of one set, a compiled file, or a configuration file, FILE.conf; - is "
       "standard input"},
      options->files);
  add_standard_option(command, options->standard);
  add_severity_option(command, options->severities);
  add_texts_option(command, {"--codepage", "NAME", "A code page that all texts must fit into"},
                   options->code_pages);
  add_choice_option(command, "--fail-on", options->fail_on, {"error", "warning"},
                    "What makes the exit status 1; warnings, unless given, do so too");
  add_number_option(
      command, {"--max-findings", "N", "How many findings are shown; 100 unless given, 0 for all"},
      options->max_findings);
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return check(*options, log); });
  };
}

constexpr kplog_command_row check_command = {
    "check", "Find what is wrong with definitions, or probably not meant",
    "  kplog check events.yaml\n"
    "  kplog check product.yaml --std standard.ldf          an AUX set beside its STD set\n"
    "  kplog check events.ldf                               every byte of a compiled file\n"
    "  kplog check shop.conf                                a configuration file of the filter\n"
    "  kplog check events.yaml --codepage ISO-8859-1 --severity no-message=off\n",
    describe_check};
