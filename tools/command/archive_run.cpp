#include "tools/command/archive_run.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <ostream>
#include <set>
#include <tuple>
#include <utility>

#include "recording/records/entry.h"
#include "recording/text/escape.h"
#include "tools/command/ending_signals.h"
#include "tools/command/engine_program.h"
#include "tools/command/pager.h"
#include "tools/command/render_end.h"
#include "tools/ship/archived_versions.h"
#include "tools/ship/asked_records.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// An engine, and who asks it.
struct asked_engine {
  const engine_row& row;
  engine_options access;

  std::vector<archived_kit> kits(const archive_query& query) const {
    return row.ask(access, query)->kits();
  }
};

// --- Definitions ---

// The records of other journals are shown all the same.
static void tell_bad_kit(const archived_kit& kit, const std::string& text, emit_report& report) {
  const std::string journal =
      kit.users.empty() ? ""
                        : kit.users.front().journal.host + ":" + kit.users.front().journal.journal;
  report.problem("engine"_rule,
                 "definitions that came with " + terminal_text(journal) + ": " + text);
}

// Those that records are shown by: the given ones, or kits, which are to be taken.
static archived_versions versions_to_show(const render_options& options, emit_report& report) {
  if (!options.definitions.empty())
    return archived_versions(versions_of(options.definitions, options.events));
  return archived_versions(options.events,
                           [&report](const archived_kit& kit, const std::string& text) {
                             tell_bad_kit(kit, text, report);
                           });
}

// Conditions are held against definitions also where no record is of that time, or that machine:
// then against all that are there.
static std::vector<archived_kit> kits_for(const asked_engine& engine, const archive_query& query) {
  std::vector<archived_kit> kits = engine.kits(query);
  return kits.empty() ? engine.kits({}) : std::move(kits);
}

static void take_kits(const asked_engine& engine, const archive_query& query,
                      archived_versions& versions) {
  versions.take(kits_for(engine, query));
  if (versions.all().empty())
    throw engine_error(engine.access.address +
                       (versions.are_whole()
                            ? ": no records, and no definitions, were ever sent there; "
                              "--definitions gives them, where they were sent without"
                            : ": the definitions there cannot be read; --definitions gives "
                              "others"));
}

// The same when something was sent there, or a signal ends that.
static void wait_for_kits(const asked_engine& engine, const archive_query& query,
                          const ending_signals& signals, archived_versions& versions,
                          render_options& options, emit_report& report) {
  static constexpr milliseconds between_tries(500);
  const auto is_there = [&] { return !engine.kits({}).empty(); };
  if (!is_there()) {
    options.are_versions_to_come = true;
    report.problem("followed-file"_rule,
                   engine.access.address + " has no records by now; they are waited for");
    pollfd signal{signals.descriptor(), POLLIN, 0};
    do poll(&signal, 1, between_tries.count());
    while (signals.ending() == 0 && !is_there());
  }
  if (signals.ending() == 0) take_kits(engine, query, versions);
}

// Where definitions that came with records cannot be read, their events may be any.
static archive_query query_to_ask(const asked_engine& engine, const render_options& options,
                                  const archived_versions& versions, const archive_query& query,
                                  std::chrono::system_clock::time_point now) {
  const bool asks_for_events = std::ranges::any_of(
      options.find.groups, [](const condition_group& group) { return !group.events.empty(); });
  archived_versions sent(options.events, [](const archived_kit&, const std::string&) {});
  if (!options.definitions.empty() && asks_for_events) sent.take(kits_for(engine, query));
  archive_query asked = query_of(options.find, versions.all(), sent.all(), now);
  if (!versions.are_whole() || !sent.are_whole())
    for (asked_group& group : asked.groups) group.events.reset();
  return asked;
}

// What of definitions may have come since kits were taken. Those that were given are all that
// count.
class later_kits {
 public:
  later_kits(const asked_engine& engine, archived_versions& versions, bool are_given)
      : engine_(engine), versions_(versions), are_given_(are_given) {}

  // The place of the version that the record is of, which is looked for in the engine where none
  // that is known can be it: once for each journal, version and event.
  size_t place_of(const parsed_record& record, const journal_identity& journal) {
    const size_t place = versions_.place_of(record, journal);
    if (are_given_ || !is_lacking(record, journal, place)) return place;
    try {
      versions_.take(engine_.kits({.hosts = {journal.host}}));
    } catch (const engine_error&) {
      if (!engine_.access.is_to_end || !engine_.access.is_to_end()) throw;
    }
    return versions_.place_of(record, journal);
  }

 private:
  static constexpr unsigned most_looks = 20;  // in a second, beside those for new journals
  using lack = std::tuple<journal_identity, std::string, std::string>;

  bool is_lacking(const parsed_record& record, const journal_identity& journal, size_t place) {
    if (!versions_.has(journal)) return looked_for_.insert({journal, "", ""}).second;
    const event_set& events = versions_.all()[place]->events();
    const bool is_known = !record.version || record.version->text == events.version();
    if (is_known && find_event(events, record.event) != nullptr) return false;
    lack lacking{journal, is_known ? "" : record.version->text, record.event.text};
    if (looked_for_.contains(lacking) || !may_look()) return false;
    looked_for_.insert(std::move(lacking));
    return true;
  }

  bool may_look() {
    const auto now = steady_clock::now();
    if (now - second_ >= std::chrono::seconds(1)) {
      second_ = now;
      looks_ = 0;
    }
    return ++looks_ <= most_looks;
  }

  const asked_engine& engine_;
  archived_versions& versions_;
  bool are_given_;
  std::set<lack> looked_for_;
  steady_clock::time_point second_{};
  unsigned looks_ = 0;  // in that second
};

// --- Showing ---

static constexpr milliseconds patience_of_follower(250);

class archive_run {
 public:
  archive_run(record_archive& archive, later_kits& kits, record_rendering& rendering,
              const ending_signals* signals)
      : archive_(archive), kits_(kits), rendering_(rendering), signals_(signals) {}

  // False when standard output fails.
  bool show() {
    rendering_.begin_lines();
    const milliseconds patience(0);
    archived_record record;
    for (; archive_.next(record, patience); take(record))
      if (is_to_end() || (rendering_.has_much() && !rendering_.write())) break;
    return rendering_.end_lines();
  }
  // The same of what arrives, until a signal comes.
  bool follow() {
    rendering_.begin_lines();
    archived_record record;
    bool is_shown = true;
    while (is_shown && !is_to_end()) {
      while (is_shown && next(record, milliseconds(0))) {
        take(record);
        if (rendering_.has_much()) is_shown = rendering_.write();
      }
      if (is_shown) is_shown = rendering_.end_lines();
      if (is_shown && next(record, patience_of_follower)) take(record);
    }
    return is_shown;
  }

 private:
  // Of a run that is to end there is none.
  bool next(archived_record& record, milliseconds patience) {
    try {
      return !is_to_end() && archive_.next(record, patience);
    } catch (const engine_error&) {
      if (!is_to_end()) throw;
    }
    return false;
  }
  bool is_to_end() const { return signals_ != nullptr && signals_->ending() != 0; }
  void take(const archived_record& record) {
    record_line line;
    const auto is_same = [&] {
      return source_ != nullptr && journal_ == record.journal && segment_ == record.segment;
    };
    if (!is_same()) {
      journal_ = record.journal;
      segment_ = record.segment;
      source_ = std::make_shared<line_source>();
      source_->name = journal_.host + ":" + journal_.journal + ":" + segment_;
    }
    line.source = source_;
    line.text = record.text;
    line.number = record.line;
    rendering_.take_line(line, choice_);
  }

  record_archive& archive_;
  later_kits& kits_;
  record_rendering& rendering_;
  const ending_signals* signals_;
  journal_identity journal_;  // of the record that is shown
  std::string segment_;
  const record_rendering::version_choice choice_ = [this](const parsed_record& record) {
    return kits_.place_of(record, journal_);
  };
  std::shared_ptr<line_source> source_;
};

static command_outcome show_records_of(record_archive& archive, later_kits& kits,
                                       const definition_versions& versions,
                                       const render_options& options, std::ostream& out,
                                       emit_report& report, std::ostream& log) {
  record_rendering rendering(options, versions, out, report);
  std::optional<pager> pages;
  if (!options.is_unpaged) pages.emplace();
  if (!archive_run(archive, kits, rendering, nullptr).show() || !rendering.show_counts(options))
    return command_outcome::file_error;
  report.tell_hidden();
  pages.reset();
  return end_of(rendering, options, report, log);
}

static command_outcome follow_records_of(record_archive& archive, later_kits& kits,
                                         const definition_versions& versions,
                                         const render_options& options,
                                         const ending_signals& signals, std::ostream& out,
                                         emit_report& report, std::ostream& log) {
  ending_output shown(signals);
  record_rendering rendering(options, versions, shown, report);
  if (!archive_run(archive, kits, rendering, &signals).follow()) return output_failed(shown, out);
  report.tell_hidden();
  return end_of(rendering, options, report, log);
}

static command_outcome show_archive_of(const asked_engine& engine, render_options& options,
                                       std::ostream& out, emit_report& report, std::ostream& log) {
  const auto now = std::chrono::system_clock::now();
  const archive_query of_any_event = query_without_events(options.find, now);
  archived_versions versions = versions_to_show(options, report);
  if (options.definitions.empty()) take_kits(engine, of_any_event, versions);
  const archive_query query = query_to_ask(engine, options, versions, of_any_event, now);
  options.find.host.reset();  // that of the machine was asked for
  later_kits kits(engine, versions, !options.definitions.empty());
  const command_outcome outcome = show_records_of(*engine.row.ask(engine.access, query), kits,
                                                  versions.all(), options, out, report, log);
  return versions.are_whole() ? outcome : command_outcome::file_error;
}

// What is sent later may be of any time, and comes with definitions of its own.
static command_outcome follow_archive(const asked_engine& engine, render_options& options,
                                      const ending_signals& signals, std::ostream& out,
                                      emit_report& report, std::ostream& log) {
  const auto now = std::chrono::system_clock::now();
  require_readable(options.find);
  archived_versions versions = versions_to_show(options, report);
  const archive_query of_any_time = {.hosts = query_without_events(options.find, now).hosts};
  if (options.definitions.empty())
    wait_for_kits(engine, of_any_time, signals, versions, options, report);
  archive_query query = query_to_ask(engine, options, versions, of_any_time, now);
  query.follows = true;
  options.find.host.reset();  // that of the machine was asked for
  if (versions.all().empty())
    return end_of(record_rendering(options, versions.all(), out, report), options, report, log);
  later_kits kits(engine, versions, !options.definitions.empty());
  const command_outcome outcome =
      follow_records_of(*engine.row.ask(engine.access, query), kits, versions.all(), options,
                        signals, out, report, log);
  return versions.are_whole() ? outcome : command_outcome::file_error;
}

command_outcome show_archive(const render_options& given, std::ostream& out, emit_report& report,
                             std::ostream& log) {
  render_options options = given;
  asked_engine engine{engine_at(options.engine.address), options_of(options.engine)};
  if (!options.follows) return show_archive_of(engine, options, out, report, log);
  // Held back before an engine's library has threads of its own, which would take them.
  const ending_signals signals;
  engine.access.is_to_end = [&signals] { return signals.ending() != 0; };
  try {
    return follow_archive(engine, options, signals, out, report, log);
  } catch (const engine_error&) {
    if (signals.ending() == 0) throw;
  }
  return command_outcome::good;
}
