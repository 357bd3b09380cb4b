#include <memory>
#include <ostream>

#include "recording/files/path.h"
#include "recording/report/standard_error.h"
#include "recording/ring/recovery.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/emit/run_report.h"

struct recover_options {
  std::vector<std::string> places;
  std::vector<std::string> outputs;  // that rings may name, wherever they are
  report_options report;
};

static void write_summary(const recovered_events& found, const report_options& report,
                          std::ostream& log) {
  if (report.quiet) return;
  if (report.format == diagnostic_format::json) {
    std::string line;
    json_text json(line);
    json.begin_object().key("summary").begin_object();
    json.key("rings").number(found.rings).key("recovered").number(found.recovered);
    json.key("left").number(found.staying).key("damaged").number(found.damaged);
    json.key("failed").number(found.failures).key("in_use").number(found.in_use);
    json.end_object().end_object();
    log << line << '\n';
  } else {
    log << "kplog: " << counted(found.rings, "ring") << ": " << counted(found.recovered, "event")
        << " recovered"
        << (found.in_use == 0 ? "" : ", " + counted(found.in_use, "ring") + " in use") << '\n';
  }
}

static void add(recovered_events& sum, const recovered_events& more) {
  sum.rings += more.rings;
  sum.recovered += more.recovered;
  sum.staying += more.staying;
  sum.damaged += more.damaged;
  sum.failures += more.failures;
  sum.in_use += more.in_use;
}

static command_outcome recover(const recover_options& options, std::ostream& log) {
  emit_report report(log, options.report, false);
  return report.report_failures([&] {
    recovery_rules rules;
    rules.known_outputs = options.outputs;
    rules.known_outputs.insert(rules.known_outputs.end(), options.places.begin(),
                               options.places.end());
    rules.report = [&](const std::string& text) { report.note(text); };
    rules.fault = [&](const std::string& text) { report.problem("ring-left"_rule, text); };
    rules.waiting.report = [&](const std::string& text) { report.problem("lock-held"_rule, text); };
    recovered_events found;
    for (const std::string& place : options.places) add(found, recover_rings(place, rules));
    write_summary(found, options.report, log);
    const bool is_whole = found.staying + found.damaged + found.failures == 0;
    return is_whole ? command_outcome::good : command_outcome::findings;
  });
}

static command_action describe_recover(CLI::App& command) {
  const auto options = std::make_shared<recover_options>();
  add_arguments(command,
                {"PLACE", "DIR/NAME",
                 "The place of a recorder: its text logs, or its first output where it has none, "
                 "as it was told; its rings are PLACE.ring.*"},
                options->places);
  add_texts_option(
      command,
      {"--output", "PATH", "An output in another folder that the recorder had; may be given again"},
      options->outputs);
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return recover(*options, log); });
  };
}

constexpr kplog_command_row recover_command = {
    "recover", "Bring what recorders that died left behind into their outputs",
    "  kplog recover /var/log/shop/shop\n"
    "  kplog recover /dev/shm/shop --output /var/log/shop/shop --output /var/log/shop/shop.jsonl\n",
    describe_recover};
