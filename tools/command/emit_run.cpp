#include "tools/command/emit_run.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/records/definition_version.h"
#include "recording/records/input.h"
#include "recording/report/standard_error.h"
#include "recording/ring/recovery.h"
#include "recording/sinks/counter_writer.h"
#include "recording/sinks/sink.h"
#include "recording/text/code_page.h"
#include "tools/emit/figures.h"
#include "tools/emit/loop.h"
#include "tools/emit/patience.h"
#include "tools/emit/run_report.h"
#include "tools/emit/watch.h"

// --- What the options say ---

std::string emit_options::socket_path() const {
  return listen.empty() ? "" : listen.substr(listen_prefix.size());
}

std::string emit_options::numbers_path() const {
  static constexpr const char* ending = ".clients";
  if (listen.empty()) return "";
  for (const std::string& sink : sinks)
    if (const sink_path path = path_of_sink(sink); !path.path.empty()) return path.path + ending;
  return count.empty() ? "" : count + ending;
}

std::string emit_options::no_numbers() const {
  const std::string path = numbers_path();
  return path.empty() ? "the service has no file as its output, and so acknowledges nothing"
                      : "another service has " + path;
}

bool is_standard_output(const std::string& sink) {
  return sink == "-" || sink == "json:-";
}

bool emit_options::writes_standard_output() const {
  return acknowledges || std::any_of(sinks.begin(), sinks.end(), is_standard_output);
}

// --- Inputs and outputs ---

// Meanwhile that is called, many times a second.
static lock_waiting waiting_for_locks(const emit_signals& signals, emit_report& report,
                                      std::function<void()> meanwhile) {
  return {[&signals, meanwhile = std::move(meanwhile)] {
            meanwhile();
            return signals.ending() != 0;
          },
          [&report](const std::string& note) { report.problem("lock-held"_rule, note); }};
}

static std::vector<file_place> places_of_locks(const emit_options& options) {
  std::vector<file_place> places;
  for (const std::string& sink : options.sinks)
    if (const sink_path path = path_of_sink(sink); !path.path.empty())
      places.push_back(place_of(path.path));
  if (const auto kept = options.quarantine()) places.push_back(place_of(kept->path));
  if (options.count.empty()) return places;
  const counter_place place = counter_place_of(options.count);
  places.push_back({place.folder, place.name});
  return places;
}

// Behind the outputs, which take back what a service left that died: the file of the numbers still
// says what it knew.
static void open_numbers(const emit_options& options, emit_outputs& outputs, emit_report& report,
                         joint_batch joint) {
  outputs.clients = client_numbers::open(options.numbers_path());
  if (outputs.clients == nullptr)
    return report.problem("lock-held"_rule,
                          options.no_numbers() + "; clients are not acknowledged to");
  outputs.places = places_of_locks(options);
  outputs.joint = std::make_unique<joint_batch>(std::move(joint));
}

static emit_outputs open_outputs(const emit_options& options, const event_set& events,
                                 emit_report& report, const lock_waiting& waiting) {
  emit_outputs outputs;
  // Only text is written in it, but a name that is none is an error for all.
  static_cast<void>(log_code_page(options.code_page));
  const std::function<void(const std::string&)> tell = [&report](const std::string& note) {
    report.problem("unfinished-line"_rule, note);
  };
  const std::function<void(const std::string&)> tell_upkeep = [&report](const std::string& note) {
    report.problem("journal-upkeep"_rule, note);
  };
  const sink_options shared{events.version(), options.code_page, tell, tell_upkeep, waiting};
  for (const std::string& sink : options.sinks)
    outputs.sinks.push_back(make_record_sink(sink, shared));
  if (!options.count.empty())
    outputs.counts = std::make_unique<counter_writer>(options.count, waiting, tell);
  if (const auto kept = options.quarantine())
    outputs.quarantine = std::make_unique<line_file>(
        kept->path, append_rules{.report = tell, .waiting = waiting}, kept->most);
  outputs.acknowledges = options.acknowledges;
  outputs.synced = options.synced;
  if (!options.numbers_path().empty()) open_numbers(options, outputs, report, {waiting, tell});
  return outputs;
}

static std::unique_ptr<record_service> open_service(const emit_options& options,
                                                    const emit_outputs& outputs,
                                                    emit_report& report,
                                                    const lock_waiting& waiting,
                                                    std::function<std::string()> status) {
  raise_descriptor_limit();
  service_rules rules = options.service;
  rules.waiting = waiting;
  rules.numbers = outputs.clients.get();
  rules.no_numbers = options.no_numbers();
  rules.tell_closed = [&report](const std::string& text) {
    report.problem("client-closed"_rule, text);
  };
  rules.status = std::move(status);
  return std::make_unique<record_service>(options.socket_path(), rules,
                                          handed_over_socket(options.socket_path()));
}

// What recorders left at the places that the run writes to comes there.
static void recover(const emit_options& options, emit_report& report, const lock_waiting& waiting) {
  recovery_rules rules;
  for (const std::string& sink : options.sinks)
    rules.known_outputs.push_back(path_of_sink(sink).path);
  rules.known_outputs.push_back(options.count);
  rules.waiting = waiting;
  rules.report = [&report](const std::string& text) { report.note(text); };
  rules.fault = [&report](const std::string& text) { report.problem("ring-left"_rule, text); };
  for (const std::string& place : rules.known_outputs)
    if (!place.empty()) recover_rings(place, rules);
}

// --- A run ---

// For threads beside the one that reads and writes.
static size_t spare_processors() {
  static constexpr unsigned most = 8;  // they would wait for the one
  return std::clamp(std::thread::hardware_concurrency(), 1U, most) - 1;
}

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
        definitions_(options.events),
        within_(definitions_.scope()),
        filter_(options.filter),
        outputs_(open_outputs(options, definitions_.events(), report,
                              waiting_for_locks(signals, report, [this] { look_around(); }))),
        patience_(options.waits_for_outputs(), signals, report, [this] { look_around(); }),
        pipeline_(definitions_, filter_, outputs_, report, patience_,
                  {options.on_error == "stop", time_skew(options.limits.max_skew)},
                  options.threads.value_or(spare_processors())),
        signals_(signals) {
    open_inputs();
    recover(options_, report_, waiting_for_locks(signals_, report_, [this] { manager_.look(); }));
    metrics_.emplace(
        options_.metrics, [this] { return metrics_text(figures()); }, report_);
  }

  command_outcome run();

 private:
  void open_inputs();
  void look_around();
  emit_figures figures() const;
  void reload();
  command_outcome read_all();
  void keep_up();
  command_outcome outcome_of(const emit_end& end);
  command_outcome fail(diagnostic_rule rule, const std::string& text);

  const emit_options& options_;
  emit_report& report_;
  service_manager manager_{{"Taking records", "Writing what was sent"}};
  definition_version definitions_;
  const kp_log_own_settings::scope within_;
  emit_filter filter_;
  record_service* service_ = nullptr;    // of the inputs; null: there is none, or none yet
  std::optional<metrics_file> metrics_;  // as soon as all is open
  emit_outputs outputs_;
  std::vector<std::unique_ptr<record_input>> inputs_;
  emit_patience patience_;
  emit_pipeline pipeline_;
  emit_signals& signals_;
  figure_time began_ = std::chrono::system_clock::now();
};

void emit_run::open_inputs() {
  if (!options_.records.empty())
    inputs_.push_back(std::make_unique<record_files>(options_.records));
  if (options_.listen.empty()) return;
  auto service = open_service(options_, outputs_, report_,
                              waiting_for_locks(signals_, report_, [this] { manager_.look(); }),
                              [this] { return status_json(figures()); });
  service_ = service.get();
  inputs_.push_back(std::move(service));
}

// What goes on while the outputs cannot be written, or another process holds their lock.
void emit_run::look_around() {
  if (service_ != nullptr) service_->answer_status();
  if (metrics_) metrics_->look();
  manager_.look();
}

emit_figures emit_run::figures() const {
  emit_figures told;
  told.name = options_.listen.empty() ? options_.sinks.front() : options_.listen;
  told.process = getpid();
  told.began = began_;
  told.now = std::chrono::system_clock::now();
  told.sinks = options_.sinks;
  told.tallies = pipeline_.tallies();
  told.batches = pipeline_.figures();
  told.failures = patience_.figures();
  if (service_ != nullptr) told.clients = service_->figures();
  return told;
}

command_outcome emit_run::fail(diagnostic_rule rule, const std::string& text) {
  report_.problem(rule, text);
  return command_outcome::file_error;
}

// A service goes on with the settings it has.
void emit_run::reload() {
  try {
    filter_.reload();
  } catch (const file_error& error) {
    report_.problem("unreadable"_rule, error.what());
  }
  try {
    recover(options_, report_, waiting_for_locks(signals_, report_, [this] { manager_.look(); }));
  } catch (const file_error& error) {
    report_.problem("ring-left"_rule, error.what());
  }
}

command_outcome emit_run::outcome_of(const emit_end& end) {
  for (const std::string& text : end.unread)
    report_.problem("unread-input"_rule, text + ", because a signal ended the run");
  if (end.is_cut_short && options_.listen.empty()) return outcome_of_signal(options_, end.signal);
  return end.unread.empty() ? command_outcome::good : command_outcome::findings;
}

// What was read of a file before it failed is written all the same.
command_outcome emit_run::read_all() {
  command_outcome outcome = command_outcome::good;
  try {
    emit_loop loop(signals_, inputs_, pipeline_, *metrics_, manager_, [this] { reload(); });
    outcome = outcome_of(loop.run());
  } catch (const file_error& error) {
    if (error.use() == file_use::writing) throw;
    outcome = fail("unreadable"_rule, error.what());
  }
  pipeline_.write();
  keep_up();
  return outcome;
}

// A run that has come to its end does all that is left to be done to its journals. What a signal
// ends leaves it to others.
void emit_run::keep_up() {
  pipeline_.hurry_up();
  while (signals_.ending() == 0 && pipeline_.keep_up().count() == 0) {
  }
}

command_outcome emit_run::run() {
  command_outcome outcome = command_outcome::good;
  if (!options_.listen.empty()) report_.note("listening on " + options_.listen);
  manager_.ready();
  try {
    outcome = read_all();
  } catch (const file_error& error) {
    outcome = fail("unwritable"_rule, error.what());
  }
  metrics_->end();
  report_.closing(pipeline_.tallies());
  const bool has_findings = total_of(pipeline_.tallies()).bad != 0;
  return outcome == command_outcome::good && has_findings ? command_outcome::findings : outcome;
}

command_outcome run_emit(const emit_options& options) {
  emit_signals signals;
  standard_error messages(STDERR_FILENO, [&signals] { return signals.ending() != 0; });
  emit_report report(messages, options.report, options.writes_standard_output());
  return report.report_failures([&] {
    check_record_files(options.records);
    try {
      return emit_run(options, report, signals).run();
    } catch (const lock_given_up& error) {
      report.problem("lock-held"_rule, error.what());
      return outcome_of_signal(options, signals.ending());
    }
  });
}
