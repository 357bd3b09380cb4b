#include <algorithm>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <unordered_set>

#include "recording/files/path.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/compare/report.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"

static constexpr const char* fail_on_any = "any";

// "EVENT:CODE=REASON", or "EVENT:CODE/NAME=REASON", in its pieces.
struct accept_option {
  std::string written;
  std::string event;
  std::string code;
  std::string name;  // empty: whatever it is
  std::string reason;
};

struct diff_options {
  std::string before;  // "-": standard input
  std::string now;
  std::string standard;               // empty: the sets stand alone
  std::vector<std::string> fail_on;   // classes, or "any"
  std::vector<std::string> accepted;  // EVENT:CODE[/NAME]=REASON
  std::string format = "text";
  report_options report;
};

// Cuts "EVENT:CODE/NAME" where a code stands, as names may hold both signs; else at the last colon.
static void read_accepted_subject(const std::string& text, accept_option& accepted) {
  for (size_t colon = text.rfind(':'); colon != std::string::npos;
       colon = colon == 0 ? std::string::npos : text.rfind(':', colon - 1)) {
    const size_t slash = std::min(text.find('/', colon), text.size());
    const std::string code = text.substr(colon + 1, slash - colon - 1);
    if (!change_of_code(code) && !accepted.code.empty()) continue;
    accepted.event = text.substr(0, colon);
    accepted.code = code;
    accepted.name = text.substr(std::min(slash + 1, text.size()));
    if (change_of_code(code)) return;
  }
}

// Raises std::invalid_argument for a text that is none.
static accept_option read_accepted(const std::string& text) {
  accept_option accepted;
  accepted.written = text;
  const size_t equals = std::min(text.find('='), text.size());
  read_accepted_subject(text.substr(0, equals), accepted);
  if (equals + 1 >= text.size() || accepted.code.empty())
    throw std::invalid_argument("EVENT:CODE=REASON is expected, not " + in_quotes(text));
  accepted.reason = text.substr(equals + 1);
  if (!change_of_code(accepted.code))
    throw std::invalid_argument("no difference " + in_quotes(accepted.code) +
                                nearest_name_hint(accepted.code, change_codes()));
  return accepted;
}

// Judges differences by what the new set and the command line accept, and knows what neither is.
class change_judge {
 public:
  change_judge(const compared_set& before, const compared_set& now,
               const std::vector<accept_option>& options)
      : before_(before), now_(now), options_(options) {}

  judged_change judge(const definition_change& change) { return {change, reason(change)}; }

  // What was accepted, and differs in nothing that was judged.
  void report_unused(diagnostic_list& found) const {
    for (const accepted_difference& accepted : now_.set.accepted) report_unused(accepted, found);
    for (const event_model& event : now_.set.events)
      for (const accepted_difference& accepted : event.accepted) report_unused(accepted, found);
    for (const accept_option& option : options_)
      if (used_.count(&option) == 0)
        found.add("unused-accept"_rule, {&command_line_, 0},
                  "--accept " + option.written + ": nothing of this is different");
  }

 private:
  // The first one of those who accept it; empty for what is not accepted.
  std::string reason(const definition_change& change) {
    std::vector<std::string> reasons;
    for (const accept_option& option : options_)
      if (accepts(option, change)) used_.insert(&option), reasons.push_back(option.reason);
    const event_model* const event = change.event.now;
    for (const accepted_difference& accepted :
         event != nullptr ? event->accepted : now_.set.accepted)
      if (accepts(accepted, change))
        used_.insert(&accepted), reasons.push_back(accepted.reason.value);
    return reasons.empty() ? "" : reasons.front();
  }

  static bool concerns(const definition_change& change, const std::string& code,
                       const std::string& name) {
    return change.rule->code == code &&
           std::find(change.names.begin(), change.names.end(), name) != change.names.end();
  }

  static bool accepts(const accept_option& option, const definition_change& change) {
    const auto is_named = [&](const event_model* event) {
      return event != nullptr && event->name.value == option.event;
    };
    return (is_named(change.event.now) || is_named(change.event.before)) &&
           (option.name.empty() ? change.rule->code == option.code
                                : concerns(change, option.code, option.name));
  }

  bool accepts(const accepted_difference& accepted, const definition_change& change) const {
    return accepted.since.value == before_.set.log_version.value &&
           concerns(change, accepted.code, accepted.name);
  }

  // Beside a compiled file some differences are not looked for.
  bool is_looked_for(const accepted_difference& accepted) const {
    if (before_.is_source && now_.is_source) return true;
    return !change_of_code(accepted.code)->is_of_sources;
  }

  void report_unused(const accepted_difference& accepted, diagnostic_list& found) const {
    const std::string& version = before_.set.log_version.value;
    if (used_.count(&accepted) != 0) return;
    if (accepted.since.value != version)
      found.add("unused-accept"_rule, accepted.since.place,
                "this is accepted since the log version " + in_quotes(accepted.since.value) +
                    ", and OLD has " + in_quotes(version));
    else if (is_looked_for(accepted))
      found.add("unused-accept"_rule, accepted.place,
                "nothing is different that is " + in_quotes(accepted.written()));
  }

  const compared_set& before_;
  const compared_set& now_;
  const std::vector<accept_option>& options_;
  const text_file command_line_ = text_file::unopened("kplog");
  std::unordered_set<const void*> used_;  // of both kinds
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
                              const std::vector<judged_change>& changes,
                              const diagnostic_list& unused, const definition_set& now,
                              std::ostream& out, std::ostream& log) {
  const changes_summary summary(changes);
  if (options.format == "json")
    write_changes_json(out, changes);
  else
    write_changes_text(out, changes, options.report.output_color);
  unused.write(log, now.sources, options.report.format, options.report.color);
  if (options.report.with_summary()) log << "kplog: " << summary.text() << '\n';
  return fails(options, summary) ? command_outcome::findings : command_outcome::good;
}

// A set that is not sound is not compared.
static command_outcome read_side(const diff_options& options, const std::string& path,
                                 const std_definitions* standard, definition_input& input,
                                 std::ostream& log) {
  return outcome_of(options.report, log, [&] {
    diagnostic_list found;
    read_definition_input({path}, input, found, options.report, log, standard);
    found.write(log, input.set().sources, options.report.format, options.report.color);
    return found.count(rule_severity::error) == 0 ? command_outcome::good
                                                  : command_outcome::findings;
  });
}

static command_outcome compare(const diff_options& options,
                               const std::vector<accept_option>& accepted, std::ostream& out,
                               std::ostream& log) {
  standard_input standard;
  definition_input before;
  definition_input now;
  standard.read(options.standard, options.report, log);
  command_outcome outcome = read_side(options, options.before, standard.definitions(), before, log);
  outcome = std::max(outcome, read_side(options, options.now, standard.definitions(), now, log));
  if (outcome != command_outcome::good) return outcome;
  const compared_set old_set = {before.set(), before.file == nullptr, standard.definitions()};
  const compared_set new_set = {now.set(), now.file == nullptr, standard.definitions()};
  change_judge judge(old_set, new_set, accepted);
  std::vector<judged_change> judged;
  for (const definition_change& change : definition_changes(old_set, new_set))
    judged.push_back(judge.judge(change));
  diagnostic_list unused;
  judge.report_unused(unused);
  return report(options, judged, unused, now.set(), out, log);
}

static command_outcome diff(diff_options& options, std::ostream& out, std::ostream& log) {
  if (reads_standard_input_twice({options.before, options.now, options.standard}))
    throw wrong_usage("standard input can be read once");
  std::vector<accept_option> accepted(options.accepted.size());
  try {
    std::transform(options.accepted.begin(), options.accepted.end(), accepted.begin(),
                   read_accepted);
  } catch (const std::invalid_argument& error) {
    throw wrong_usage(error.what());
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
      {"--accept", "DIFFERENCE",
       "A difference that is meant: EVENT:CODE=REASON or EVENT:CODE/NAME=REASON, again for each"},
      options->accepted);
  add_standard_option(command, options->standard);
  add_choice_option(command, "--format", options->format, {"text", "json"},
                    "For people, the default, or one JSON object");
  add_quiet_option(command, options->report);
  add_color_option(command, options->report);
  return [options](std::ostream& out, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return diff(*options, out, log); });
  };
}

constexpr kplog_command_row diff_command = {
    "diff", "Show what changed between two sets, and whom it breaks",
    "  kplog diff old.ldf events.yaml\n"
    "  git show v1:events.yaml | kplog diff - events.yaml --fail-on source,records\n"
    "  kplog diff old.yaml new.yaml --accept 'LOGIN:attribute-removed=never used'\n"
    "  kplog diff --format json old.ldf new.ldf | jq '.differences[].code'\n",
    describe_diff};
