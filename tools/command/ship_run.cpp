#include "tools/command/ship_run.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include "base/kp_clib.h"
#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "recording/journal/segments.h"
#include "recording/report/standard_error.h"
#include "tools/command/engine_program.h"
#include "tools/emit/loop.h"
#include "tools/emit/service_manager.h"
#include "tools/emit/watch.h"
#include "tools/find/versions.h"
#include "tools/ship/figures.h"
#include "tools/ship/kit.h"
#include "tools/ship/shipping.h"

using std::chrono::milliseconds;
using run_clock = std::chrono::steady_clock;

// --- What the options say ---

static std::string password_in(const std::string& path) {
  constexpr size_t longest = 4096;
  std::string text = read_file(path, longest);
  text.resize(std::min(text.find_first_of("\r\n"), text.size()));
  if (text.empty() || text.size() > longest)
    throw file_error(file_use::reading, "read", path, "its first line is no password");
  return text;
}

engine_options options_of(const engine_access& access) {
  engine_options options;
  options.address = access.address;
  options.user = access.user;
  if (!access.password_file.empty()) options.password = password_in(access.password_file);
  options.tls_ca = access.tls_ca;
  options.stream = access.stream;
  options.tenant = access.tenant;
  options.replicas = access.replicas;
  options.has_live_index = access.has_live_index;
  return options;
}

journal_place place_of_journal(const ship_options& options, append_rules rules) {
  const file_place place = place_of(std::filesystem::absolute(options.journal).string());
  rules.line_start = stored_record_start;
  return {place.folder, place.name, std::move(rules)};
}

static std::string name_of_machine() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0)
    throw std::system_error(errno, std::generic_category(), "gethostname");
  return name.data();
}

journal_identity identity_of(const ship_options& options) {
  const journal_place place = place_of_journal(options, {});
  return {options.host.empty() ? name_of_machine() : options.host,
          plain_path_of({place.folder, place.name})};
}

// What the file beside the journal calls the engine.
static std::string name_of_engine(const engine_access& access) {
  return access.address + (access.stream == engine_access{}.stream ? "" : "#" + access.stream) +
         (access.tenant.empty() ? "" : "@" + access.tenant);
}

// --- A run ---

static append_rules rules_of_lock(emit_report& report, const lock_waiting& waiting) {
  return {.report =
              [&report](const std::string& note) { report.problem("unfinished-line"_rule, note); },
          .waiting = waiting};
}

// What is made of files, which SIGHUP has read again.
class ship_session {
 public:
  // Raises what is wrong with the files.
  ship_session(const ship_options& options, engine_options engine, emit_report& report,
               ship_tally& tally, const lock_waiting& waiting)
      : versions_(versions_of(options.definitions, options.events)),
        engine_(engine_at(options.engine.address).open(engine)),
        shipping_(*engine_, versions_.back()->events(),
                  make_kit(options.definitions, options.events),
                  place_of_journal(options, rules_of_lock(report, waiting)), identity_of(options),
                  name_of_engine(options.engine), report, tally, waiting) {}

  shipping& sending() { return shipping_; }
  journal_state state() const { return shipping_.state(); }

 private:
  definition_versions versions_;
  std::unique_ptr<ship_engine> engine_;
  shipping shipping_;
};

// Between two tries of an engine that fails.
static constexpr milliseconds first_pause(250);
static constexpr milliseconds longest_pause(15'000);

class ship_run {
 public:
  ship_run(const ship_options& options, emit_report& report, emit_signals& signals)
      : options_(options),
        report_(report),
        signals_(signals),
        waiting_{[this] {
                   look_around();
                   return signals_.ending() != 0;
                 },
                 [&report](const std::string& note) { report.problem("lock-held"_rule, note); }} {
    open();
    metrics_.emplace(
        options.metrics, [this] { return metrics_text(figures()); }, report);
  }

  command_outcome run();

 private:
  void open();
  void look_around();
  ship_figures figures() const;
  bool send();
  void note_failure();
  void fail(diagnostic_rule rule, const std::string& text);
  void was_reached();
  void answer(int signal);
  void reload();
  void wait(milliseconds patience);
  milliseconds patience();
  void tell();
  void end();
  void tell_totals();

  const ship_options& options_;
  emit_report& report_;
  emit_signals& signals_;
  lock_waiting waiting_;
  service_manager manager_{{"Sending records", "Telling how far they were sent"}};
  ship_tally tally_;
  std::optional<ship_session> session_;
  std::optional<metrics_file> metrics_;  // as soon as all is open
  std::chrono::system_clock::time_point began_ = std::chrono::system_clock::now();
  uint64_t failures_ = 0;
  std::optional<std::chrono::system_clock::time_point> failing_since_;
  std::string trouble_;  // that was told, and is not over
  milliseconds pause_ = first_pause;
  run_clock::time_point next_try_{};
  bool is_ending_ = false;
  bool is_all_sent_ = false;  // that was there
};

void ship_run::open() {
  engine_options engine = options_of(options_.engine);
  engine.is_to_end = [this] {
    look_around();
    return signals_.ending() != 0;
  };
  engine.tell = [this](const std::string& text) { report_.note(text); };
  engine.put_off = [this] { note_failure(); };
  session_.reset();
  session_.emplace(options_, std::move(engine), report_, tally_, waiting_);
}

// What goes on while the engine or a lock is waited for.
void ship_run::look_around() {
  if (metrics_) metrics_->look();
  manager_.look();
}

ship_figures ship_run::figures() const {
  ship_figures told;
  told.name = options_.journal;
  told.to = options_.engine.address;
  told.began = began_;
  told.tally = tally_;
  if (session_) told.state = session_->state();
  told.failures = failures_;
  told.failing_since = failing_since_;
  return told;
}

void ship_run::note_failure() {
  ++failures_;
  if (!failing_since_) failing_since_ = std::chrono::system_clock::now();
}

void ship_run::fail(diagnostic_rule rule, const std::string& text) {
  note_failure();
  if (trouble_ != text) report_.problem(rule, text);
  trouble_ = text;
  next_try_ = run_clock::now() + pause_;
  pause_ = std::min(pause_ * 2, longest_pause);
}

void ship_run::was_reached() {
  if (!trouble_.empty() && !options_.is_once) report_.note("records are sent again");
  failing_since_.reset();
  trouble_.clear();
  pause_ = first_pause;
}

// Whether there is more to be sent now.
bool ship_run::send() {
  if (run_clock::now() < next_try_) return false;
  try {
    const bool has_more = session_->sending().step();
    is_all_sent_ = !has_more;
    was_reached();
    return has_more;
  } catch (const engine_error& error) {
    if (signals_.ending() == 0) fail("engine"_rule, error.what());
  } catch (const lock_given_up&) {
  } catch (const file_error& error) {
    fail(error.use() == file_use::reading ? "unreadable"_rule : "unwritable"_rule, error.what());
  }
  return false;
}

milliseconds ship_run::patience() {
  milliseconds least = shorter_wait(metrics_->patience(), manager_.patience());
  if (!failing_since_) return shorter_wait(least, session_->sending().queue().patience());
  const auto left = std::chrono::ceil<milliseconds>(next_try_ - run_clock::now());
  return shorter_wait(least, std::max(left, milliseconds(0)));
}

void ship_run::wait(milliseconds patience) {
  constexpr milliseconds between_tells(5'000);
  std::array<pollfd, 2> watched = {pollfd{signals_.descriptor(), POLLIN, 0},
                                   session_->sending().queue().watched()};
  if (failing_since_) watched[1].fd = -1;
  const auto most = shorter_wait(patience, between_tells);
  if (poll(watched.data(), watched.size(), static_cast<int>(most.count())) < 0 && errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "poll");
  if (!options_.is_once) session_->sending().queue().look_around();
}

void ship_run::answer(int signal) {
  if (signal != SIGHUP) {
    is_ending_ = true;
    return;
  }
  manager_.reloading();
  reload();
  manager_.ready();
}

// A run goes on with what it has, where what it would have instead is not sound.
void ship_run::reload() {
  const command_outcome outcome = report_.report_failures([this] {
    static_cast<void>(options_of(options_.engine));
    static_cast<void>(versions_of(options_.definitions, options_.events));
    static_cast<void>(make_kit(options_.definitions, options_.events));
    return command_outcome::good;
  });
  if (outcome != command_outcome::good)
    return report_.note("records are sent on with the definitions and the password as they were");
  tell();
  open();
}

void ship_run::tell_totals() {
  report_.tell_hidden();
  if (options_.report.with_summary()) report_.note(summary_text(tally_));
}

// What the engine does not hear it hears from the next run.
void ship_run::tell() {
  try {
    session_->sending().tell();
  } catch (const engine_error& error) {
    if (options_.is_once && trouble_.empty()) fail("engine"_rule, error.what());
  } catch (const file_error& error) {
    fail("unwritable"_rule, error.what());
  }
}

void ship_run::end() {
  tell();
  metrics_->end();
  tell_totals();
}

command_outcome ship_run::run() {
  if (!options_.is_once)
    report_.note("sending " + options_.journal + " to " + options_.engine.address);
  manager_.ready();
  bool has_more = true;
  while (!is_ending_) {
    has_more = send();
    look_around();
    const bool is_done = options_.is_once && !has_more;
    if (is_done) break;
    wait(has_more ? milliseconds(0) : patience());
    for (int signal = signals_.take(); signal != 0; signal = signals_.take()) answer(signal);
  }
  manager_.stopping();
  end();
  if (options_.is_once && signals_.ending() != 0 && !is_all_sent_)
    return signals_.ending() == SIGINT ? command_outcome::interrupted : command_outcome::terminated;
  const bool has_failed = !trouble_.empty() || session_->sending().queue().has_unreadable();
  if (options_.is_once && has_failed) return command_outcome::file_error;
  return tally_.bad + tally_.refused != 0 ? command_outcome::findings : command_outcome::good;
}

// A service waits for its journal; what is to be sent once should be there.
static void require_journal(const ship_options& options) {
  const journal_place place = place_of_journal(options, {});
  const open_descriptor folder(KP_open(place.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.is_open()) throw file_error(file_use::reading, "read", place.folder, errno);
  if (segments_of(folder.get(), place.folder, place.name).empty())
    throw file_error(file_use::reading, "read", options.journal,
                     "no journal of that name is there");
}

command_outcome run_ship(const ship_options& options) {
  emit_signals signals;
  standard_error messages(STDERR_FILENO, [&signals] { return signals.ending() != 0; });
  emit_report report(messages, options.report, false);
  return report.report_failures([&] {
    if (options.is_once) require_journal(options);
    try {
      return ship_run(options, report, signals).run();
    } catch (const lock_given_up& error) {
      report.problem("lock-held"_rule, error.what());
      return signals.ending() == SIGINT ? command_outcome::interrupted
                                        : command_outcome::terminated;
    }
  });
}
