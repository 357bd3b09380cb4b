#include "tools/command/archive_run.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <utility>

#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/command/ending_signals.h"
#include "tools/command/engine_program.h"
#include "tools/command/pager.h"
#include "tools/command/render_end.h"
#include "tools/ship/asked_records.h"
#include "tools/ship/kit.h"

// --- Definitions ---

// The versions of all kits, and which of them the records of a journal may be of.
struct archived_versions {
  definition_versions all = {};
  std::map<journal_identity, std::vector<size_t>> of_journals = {};  // those used last at the end
  bool are_whole = true;                                             // no kit was left out

  // Places in `all`; none for a journal without kits: its records may be of any.
  const std::vector<size_t>& of(const journal_identity& journal) const {
    static const std::vector<size_t> any;
    const auto known = of_journals.find(journal);
    return known == of_journals.end() ? any : known->second;
  }
};

// Of each journal, in the order in which it began to use them: places of a kit's versions.
using kits_of_journals = std::map<journal_identity, std::map<uint64_t, std::vector<size_t>>>;

static void take_kit(const archived_kit& kit, const render_options& options, kit_folder& folder,
                     definition_versions& all, kits_of_journals& used) {
  const kit_folder::unpacked files = folder.unpack(kit.kit);
  event_set_options events = options.events;
  if (events.aux.empty()) events.aux = files.aux;
  if (events.catalog.empty()) events.catalog = files.catalog;
  for (auto& version : versions_of(files.definitions, events)) {
    for (const kit_user& user : kit.users) used[user.journal][user.since].push_back(all.size());
    all.push_back(std::move(version));
  }
}

// The records of other journals are shown all the same.
static void tell_bad_kit(const archived_kit& kit, const std::string& text, emit_report& report) {
  const std::string journal =
      kit.users.empty() ? ""
                        : kit.users.front().journal.host + ":" + kit.users.front().journal.journal;
  report.problem("engine"_rule,
                 "definitions that came with " + terminal_text(journal) + ": " + text);
}

// Conditions are held against definitions also where no record is of that time, or that machine:
// then against all that are there.
static std::vector<archived_kit> kits_for(const engine_row& engine, const engine_options& access,
                                          const archive_query& query) {
  std::vector<archived_kit> kits = engine.ask(access, query)->kits();
  return kits.empty() ? engine.ask(access, {})->kits() : std::move(kits);
}

using kit_fault = std::function<void(const archived_kit& kit, const std::string& text)>;

static archived_versions versions_of_kits(const std::vector<archived_kit>& kits,
                                          const render_options& options, kit_folder& folder,
                                          const kit_fault& tell) {
  archived_versions versions;
  kits_of_journals used;
  const auto take_bad = [&](const archived_kit& kit, const std::exception& error) {
    versions.are_whole = false;
    tell(kit, error.what());
  };
  for (const archived_kit& kit : kits) try {
      take_kit(kit, options, folder, versions.all, used);
    } catch (const std::runtime_error& error) {
      take_bad(kit, error);
    } catch (const std::invalid_argument& error) {
      take_bad(kit, error);
    }
  for (const auto& [journal, kits_of_journal] : used)
    for (const auto& [since, places] : kits_of_journal)
      versions.of_journals[journal].insert(versions.of_journals[journal].end(), places.begin(),
                                           places.end());
  return versions;
}

// Those that records are shown by, which came with them where none were given.
static archived_versions versions_to_show(const engine_row& engine, const engine_options& access,
                                          const render_options& options, const archive_query& query,
                                          kit_folder& folder, emit_report& report) {
  if (!options.definitions.empty())
    return {.all = versions_of(options.definitions, options.events)};
  archived_versions versions = versions_of_kits(
      kits_for(engine, access, query), options, folder,
      [&](const archived_kit& kit, const std::string& text) { tell_bad_kit(kit, text, report); });
  if (versions.all.empty())
    throw engine_error(options.engine.address +
                       (versions.are_whole
                            ? ": no records, and no definitions, were ever sent there; "
                              "--definitions gives them, where they were sent without"
                            : ": the definitions there cannot be read; --definitions gives "
                              "others"));
  return versions;
}

// Where definitions that came with records cannot be read, their events may be any.
static archive_query query_to_ask(const engine_row& engine, const engine_options& access,
                                  const render_options& options, const archived_versions& versions,
                                  const archive_query& query, kit_folder& folder,
                                  std::chrono::system_clock::time_point now) {
  const bool asks_for_events = std::ranges::any_of(
      options.find.groups, [](const condition_group& group) { return !group.events.empty(); });
  archived_versions sent;
  if (!options.definitions.empty() && asks_for_events)
    sent = versions_of_kits(kits_for(engine, access, query), options, folder,
                            [](const archived_kit&, const std::string&) {});
  archive_query asked = query_of(options.find, versions.all, sent.all, now);
  if (!versions.are_whole || !sent.are_whole)
    for (asked_group& group : asked.groups) group.events.reset();
  return asked;
}

// --- Showing ---

static constexpr std::chrono::milliseconds patience_of_follower(250);

class archive_run {
 public:
  archive_run(record_archive& archive, const archived_versions& versions,
              record_rendering& rendering, const ending_signals* signals)
      : archive_(archive), versions_(versions), rendering_(rendering), signals_(signals) {}

  // False when standard output fails.
  bool show() {
    rendering_.begin_lines();
    const std::chrono::milliseconds patience(0);
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
      while (is_shown && next(record, std::chrono::milliseconds(0))) {
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
  bool next(archived_record& record, std::chrono::milliseconds patience) {
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
    rendering_.take_line(line, versions_.of(record.journal));
  }

  record_archive& archive_;
  const archived_versions& versions_;
  record_rendering& rendering_;
  const ending_signals* signals_;
  journal_identity journal_;  // of the record that was shown last
  std::string segment_;
  std::shared_ptr<line_source> source_;
};

static command_outcome show_records_of(record_archive& archive, const archived_versions& versions,
                                       const render_options& options, std::ostream& out,
                                       emit_report& report, std::ostream& log) {
  record_rendering rendering(options, versions.all, out, report);
  std::optional<pager> pages;
  if (!options.is_unpaged) pages.emplace();
  if (!archive_run(archive, versions, rendering, nullptr).show() || !rendering.show_counts(options))
    return command_outcome::file_error;
  report.tell_hidden();
  pages.reset();
  return end_of(rendering, options, report, log);
}

static command_outcome follow_records_of(record_archive& archive, const archived_versions& versions,
                                         const render_options& options,
                                         const ending_signals& signals, std::ostream& out,
                                         emit_report& report, std::ostream& log) {
  ending_output shown(signals);
  record_rendering rendering(options, versions.all, shown, report);
  if (!archive_run(archive, versions, rendering, &signals).follow())
    return output_failed(shown, out);
  report.tell_hidden();
  return end_of(rendering, options, report, log);
}

command_outcome show_archive(const render_options& given, std::ostream& out, emit_report& report,
                             std::ostream& log) {
  const engine_row& engine = engine_at(given.engine.address);
  // Held back before an engine's library has threads of its own, which would take them.
  std::optional<ending_signals> signals;
  if (given.follows) signals.emplace();
  const auto now = std::chrono::system_clock::now();
  render_options options = given;
  engine_options access = options_of(options.engine);
  if (signals) access.is_to_end = [&signals] { return signals->ending() != 0; };
  kit_folder folder;
  const archive_query of_any_event = query_without_events(options.find, now);
  const archived_versions versions =
      versions_to_show(engine, access, options, of_any_event, folder, report);
  archive_query query = query_to_ask(engine, access, options, versions, of_any_event, folder, now);
  query.follows = options.follows;
  options.find.host.reset();  // that of the machine was asked for
  const std::unique_ptr<record_archive> archive = engine.ask(access, query);
  const command_outcome outcome =
      signals ? follow_records_of(*archive, versions, options, *signals, out, report, log)
              : show_records_of(*archive, versions, options, out, report, log);
  return versions.are_whole ? outcome : command_outcome::file_error;
}
