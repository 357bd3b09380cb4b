#include "tools/command_diff.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "tools/changes_report.h"
#include "tools/command_options.h"
#include "tools/definition_input.h"
#include "tools/definition_standard.h"
#include "tools/nearest_name.h"

static constexpr const char* fail_on_any = "any";

// "EVENT:CODE=REASON" in its pieces.
struct accepted_change {
  std::string event;
  std::string code;
  std::string reason;
};

struct diff_options {
  std::string before;  // "-": standard input
  std::string now;
  std::string standard;               // empty: the sets stand alone
  std::vector<std::string> fail_on;   // classes, or "any"
  std::vector<std::string> accepted;  // EVENT:CODE=REASON
  std::string format = "text";
  report_options report;
};

// Raises std::invalid_argument for a text that is none.
static accepted_change read_accepted(const std::string& text) {
  const size_t equals = std::min(text.find('='), text.size());
  const size_t colon = text.rfind(':', equals);
  if (equals + 1 >= text.size() || colon == std::string::npos)
    throw std::invalid_argument("EVENT:CODE=REASON is expected, not \"" + text + "\"");
  const std::string code = text.substr(colon + 1, equals - colon - 1);
  if (!is_change_code(code))
    throw std::invalid_argument("no difference \"" + code + "\"" +
                                nearest_name_hint(code, change_codes()));
  return {text.substr(0, colon), code, text.substr(equals + 1)};
}

static std::string reason_in(const std::vector<silenced_rule>& list, const char* code) {
  const auto found = std::find_if(
      list.begin(), list.end(), [&](const auto& accepted) { return accepted.code.value == code; });
  return found == list.end() ? "" : found->reason;
}

// Judges differences by what the new set and the command line accept.
class change_judge {
 public:
  change_judge(const definition_set& now, const std::vector<accepted_change>& accepted)
      : now_(now), accepted_(accepted) {}

  judged_change judge(const definition_change& change) const { return {change, reason(change)}; }

 private:
  std::string reason(const definition_change& change) const {
    const char* const code = change_row(change.rule).code;
    for (const event_model* event : {change.event.now, change.event.before})
      for (const accepted_change& accepted : accepted_)
        if (event != nullptr && accepted.event == event->name.value && accepted.code == code)
          return accepted.reason;
    return reason_in(change.event.now != nullptr ? change.event.now->accepted : now_.accepted,
                     code);
  }

  const definition_set& now_;
  const std::vector<accepted_change>& accepted_;
};

static bool fails(const diff_options& options, const changes_summary& summary) {
  const auto is_named = [&](const char* name) {
    return std::find(options.fail_on.begin(), options.fail_on.end(), name) != options.fail_on.end();
  };
  if (is_named(fail_on_any) && summary.count > summary.accepted) return true;
  for (size_t i = 0; i < change_classes.size(); ++i)
    if (summary.breaking[i] != 0 && is_named(change_classes[i].name)) return true;
  return false;
}

static command_outcome report(const diff_options& options,
                              const std::vector<judged_change>& changes, std::ostream& out,
                              std::ostream& log) {
  const changes_summary summary(changes);
  if (options.format == "json")
    write_changes_json(out, changes);
  else
    write_changes_text(out, changes, options.report.output_color);
  if (options.report.with_summary()) log << "kplog: " << summary.text() << '\n';
  return fails(options, summary) ? command_outcome::findings : command_outcome::good;
}

// A set that is not sound is not compared.
static command_outcome read_side(const diff_options& options, const std::string& path,
                                 const std_definitions* standard, definition_input& input,
                                 std::ostream& log) {
  diagnostic_list found;
  const command_outcome outcome =
      read_definition_input({path}, input, found, options.report, log, standard);
  if (outcome != command_outcome::good) return outcome;
  found.write(log, input.set().sources, options.report.format, options.report.color);
  return found.count(rule_severity::error) == 0 ? command_outcome::good : command_outcome::findings;
}

static command_outcome compare(const diff_options& options,
                               const std::vector<accepted_change>& accepted, std::ostream& out,
                               std::ostream& log) {
  standard_input standard;
  definition_input before;
  definition_input now;
  command_outcome outcome = standard.read(options.standard, options.report, log);
  if (outcome != command_outcome::good) return outcome;
  outcome = read_side(options, options.before, standard.definitions(), before, log);
  outcome = std::max(outcome, read_side(options, options.now, standard.definitions(), now, log));
  if (outcome != command_outcome::good) return outcome;
  const change_judge judge(now.set(), accepted);
  const std::vector<definition_change> changes =
      definition_changes({before.set(), before.file == nullptr, standard.definitions()},
                         {now.set(), now.file == nullptr, standard.definitions()});
  std::vector<judged_change> judged(changes.size());
  std::transform(changes.begin(), changes.end(), judged.begin(),
                 [&](const definition_change& change) { return judge.judge(change); });
  return report(options, judged, out, log);
}

static command_outcome diff(diff_options& options, std::ostream& out, std::ostream& log) {
  if (reads_standard_input_twice({options.before, options.now, options.standard}))
    return usage_error(log, "standard input can be read once");
  std::vector<accepted_change> accepted(options.accepted.size());
  try {
    std::transform(options.accepted.begin(), options.accepted.end(), accepted.begin(),
                   read_accepted);
  } catch (const std::invalid_argument& error) {
    return usage_error(log, error.what());
  }
  if (options.format == "json") options.report.format = diagnostic_format::json;
  return compare(options, accepted, out, log);
}

static command_action describe_diff(CLI::App& command) {
  const auto options = std::make_shared<diff_options>();
  const char* const input = "A source or a compiled file; - is standard input";
  add_text_option(command, {"OLD", "FILE", input}, options->before, option_need::required);
  add_text_option(command, {"NEW", "FILE", input}, options->now, option_need::required);
  std::vector<std::string> classes = names_of(change_classes);
  classes.emplace_back(fail_on_any);
  add_choices_option(command, "--fail-on", options->fail_on, classes,
                     "Status 1 when a difference breaks one of these, several with commas; any: "
                     "when there is a difference");
  add_texts_option(
      command,
      {"--accept", "DIFFERENCE", "A difference that is meant: EVENT:CODE=REASON, again for each"},
      options->accepted);
  add_standard_option(command, options->standard);
  add_choice_option(command, "--format", options->format, {"text", "json"},
                    "For people, the default, or one JSON object");
  add_quiet_option(command, options->report);
  add_color_option(command, options->report);
  return [options](std::ostream& out, std::ostream& log) { return diff(*options, out, log); };
}

constexpr kplog_command_row diff_command = {
    "diff", "Show what changed between two sets, and whom it breaks",
    "  kplog diff old.ldf events.yaml\n"
    "  git show v1:events.yaml | kplog diff - events.yaml --fail-on source,records\n"
    "  kplog diff old.yaml new.yaml --accept 'LOGIN:attribute-removed=never used'\n"
    "  kplog diff --format json old.ldf new.ldf | jq '.differences[].code'\n",
    describe_diff};
