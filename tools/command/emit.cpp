#include <unistd.h>

#include <algorithm>
#include <memory>
#include <ostream>

#include "recording/files/file_error.h"
#include "recording/records/log_line.h"
#include "recording/records/service.h"
#include "recording/report/standard_error.h"
#include "tools/command/commands.h"
#include "tools/command/emit_options.h"
#include "tools/emit/filter.h"
#include "tools/emit/loop.h"
#include "tools/emit/pipeline.h"
#include "tools/emit/run_report.h"
#include "tools/report/outcome.h"

// --- Inputs and outputs ---

static lock_waiting waiting_for_locks(const emit_signals& signals, emit_report& report) {
  return {[&signals] { return signals.ending() != 0; },
          [&report](const std::string& note) { report.problem(diagnostic_rule::lock_held, note); }};
}

static emit_outputs open_outputs(const emit_options& options, const event_set& events,
                                 emit_report& report, const lock_waiting& waiting) {
  emit_outputs outputs;
  // Only text is written in it, but a name that is none is an error for all.
  static_cast<void>(log_code_page(options.code_page));
  const std::function<void(const std::string&)> tell = [&report](const std::string& note) {
    report.problem(diagnostic_rule::unfinished_line, note);
  };
  const sink_options shared{events.version(), options.code_page, tell, waiting};
  for (const std::string& sink : options.sinks)
    outputs.sinks.push_back(make_record_sink(sink, shared));
  if (!options.count.empty())
    outputs.counts = std::make_unique<emit_counts>(options.count, waiting);
  if (const auto path = options.quarantine())
    outputs.quarantine = std::make_unique<record_quarantine>(
        *path, append_rules{.report = tell, .waiting = waiting});
  outputs.acknowledges = options.acknowledges;
  outputs.synced = options.synced;
  return outputs;
}

static std::vector<std::unique_ptr<record_input>> open_inputs(const emit_options& options,
                                                              const lock_waiting& waiting) {
  std::vector<std::unique_ptr<record_input>> inputs;
  if (!options.records.empty()) inputs.push_back(std::make_unique<record_files>(options.records));
  if (!options.listen.empty())
    inputs.push_back(std::make_unique<record_service>(options.socket_path(), waiting));
  return inputs;
}

// --- A run ---

// A service ends by a signal; for other runs it comes too early.
static command_outcome outcome_of_signal(const emit_options& options, int signal) {
  if (!options.listen.empty()) return command_outcome::good;
  return signal == SIGINT ? command_outcome::interrupted : command_outcome::terminated;
}

class emit_run {
 public:
  emit_run(const emit_options& options, emit_report& report, emit_signals& signals)
      : options_(options),
        report_(report),
        events_(options.events),
        filter_(options.filter),
        outputs_(open_outputs(options, events_, report, waiting_for_locks(signals, report))),
        inputs_(open_inputs(options, waiting_for_locks(signals, report))),
        pipeline_(events_, filter_, outputs_, report, options.on_error == "stop") {}

  command_outcome run(emit_signals& signals);

 private:
  void reload();
  command_outcome read_all(emit_signals& signals);
  command_outcome outcome_of(const emit_end& end);
  command_outcome fail(diagnostic_rule rule, const std::string& text);

  const emit_options& options_;
  emit_report& report_;
  event_set events_;
  emit_filter filter_;
  emit_outputs outputs_;
  std::vector<std::unique_ptr<record_input>> inputs_;
  emit_pipeline pipeline_;
};

command_outcome emit_run::fail(diagnostic_rule rule, const std::string& text) {
  report_.problem(rule, text);
  return command_outcome::file_error;
}

// A service goes on with the settings it has.
void emit_run::reload() {
  try {
    filter_.reload();
  } catch (const file_error& error) {
    report_.problem(diagnostic_rule::unreadable, error.what());
  }
}

command_outcome emit_run::outcome_of(const emit_end& end) {
  for (const std::string& text : end.unread)
    report_.problem(diagnostic_rule::unread_input, text + ", because a signal ended the run");
  if (end.is_cut_short && options_.listen.empty()) return outcome_of_signal(options_, end.signal);
  return end.unread.empty() ? command_outcome::good : command_outcome::findings;
}

// What was read of a file before it failed is written all the same.
command_outcome emit_run::read_all(emit_signals& signals) {
  command_outcome outcome = command_outcome::good;
  try {
    emit_loop loop(signals, inputs_, pipeline_, [this] { reload(); });
    outcome = outcome_of(loop.run());
  } catch (const file_error& error) {
    if (error.use() == file_use::writing) throw;
    outcome = fail(diagnostic_rule::unreadable, error.what());
  }
  pipeline_.write();
  return outcome;
}

command_outcome emit_run::run(emit_signals& signals) {
  command_outcome outcome = command_outcome::good;
  if (!options_.listen.empty()) report_.note("listening on " + options_.listen);
  try {
    outcome = read_all(signals);
  } catch (const file_error& error) {
    outcome = fail(diagnostic_rule::unwritable, error.what());
  }
  report_.closing(pipeline_.tallies());
  const bool has_findings = total_of(pipeline_.tallies()).bad != 0;
  return outcome == command_outcome::good && has_findings ? command_outcome::findings : outcome;
}

static command_outcome emit(emit_options& options, std::ostream& log) {
  try {
    complete(options);
  } catch (const wrong_usage& error) {
    return usage_error(log, error.what());
  }
  emit_signals signals;
  standard_error messages(STDERR_FILENO, [&signals] { return signals.ending() != 0; });
  emit_report report(messages, options.report, options.writes_standard_output());
  return report.report_failures([&] {
    check_record_files(options.records);
    try {
      return emit_run(options, report, signals).run(signals);
    } catch (const lock_given_up& error) {
      report.problem(diagnostic_rule::lock_held, error.what());
      return outcome_of_signal(options, signals.ending());
    }
  });
}

static command_action describe(CLI::App& command) {
  const auto options = std::make_shared<emit_options>();
  add_emit_options(command, *options);
  return [options](std::ostream&, std::ostream& log) { return emit(*options, log); };
}

static constexpr const char* examples =
    "  kplog emit --definitions events.ldf --to text:/var/log/shop/shop records.jsonl\n"
    "  kplog emit --definitions events.ldf --catalog messages --locale de_DE --to - records.jsonl\n"
    "  generate | kplog emit --definitions events.ldf --to json:entries.jsonl --ack\n"
    "  kplog emit --definitions events.ldf --to text:log/shop,max-size=64M --count log/shop "
    "--listen unix:/run/shop.sock\n";

const kplog_command_row emit_command = {
    "emit", "Make entries of records: filter, render, write and count them", examples, describe};
