#include "tools/command/verify_run.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>

#include "recording/files/dated_name.h"
#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "recording/sinks/counter_record.h"
#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/command/engine_options.h"
#include "tools/command/engine_program.h"
#include "tools/emit/run_report.h"
#include "tools/find/versions.h"
#include "tools/ship/journal_queue.h"
#include "tools/ship/reconcile.h"

// "20261115", which orders as the days do.
static std::string compact_day(const counter_day& day) {
  std::string text = day_text(day);
  std::erase(text, '-');
  return text;
}

static std::string first_day(const ship_options& options) {
  if (options.since.empty()) return "";
  const auto day = read_day(options.since);
  if (!day)
    throw wrong_usage("--since: " + in_quotes(options.since) +
                      " is no day; one like 2026-11-15 is expected");
  return compact_day(*day);
}

// "shop.20261115.0001.jsonl": the day, and the serial.
static dated_name dated_part(const std::string& segment, const std::string& journal) {
  return dated_name_of(segment, journal).value_or(dated_name{});
}

static std::string day_of_segment(const dated_name& name) {
  return compact_day({name.day.year, name.day.month, name.day.day});
}

// Reads all of the journal that there is from that day on, and says what it is like.
static command_outcome count_journal(const ship_options& options, const event_set& events,
                                     const std::string& since, emit_report& report,
                                     told_counts& told) {
  const journal_place place = place_of_journal(options, {});
  bool has_bad_lines = false;
  journal_queue queue(
      place, events,
      {.bad =
           [&](const record_line& line, const record_error& error) {
             has_bad_lines = true;
             report.bad_record(line, error);
           },
       .fail = [&](const std::string& text) { report.problem("unreadable"_rule, text); }});
  queue.begin({}, {});
  std::map<std::string, std::set<unsigned>> serials;
  while (queue.fill()) {
    const dated_name name = dated_part(queue.before().segment, place.name);
    const std::string day = day_of_segment(name);
    serials[day].insert(name.serial);
    if (day >= since)
      for (const shipped_record& record : queue.records())
        ++told.journal[{day, record.event ? *record.event : event_of_unknown(record.text)}];
    queue.confirm(queue.after());
  }
  for (const auto& [day, of_day] : serials)
    if (*of_day.rbegin() == of_day.size()) told.whole_days.insert(day);
  report.tell_hidden();
  if (queue.has_unreadable()) return command_outcome::file_error;
  return has_bad_lines ? command_outcome::findings : command_outcome::good;
}

static void count_counters(const std::string& path, const std::string& since, emit_report& report,
                           told_counts& told) {
  if (path.empty()) return;
  const std::string name = path + std::string(counter_ending);
  std::string bytes = read_file(name, counter_file_size_limit);
  if (bytes.size() > counter_file_size_limit)
    throw file_error(file_use::reading, "read", name, EFBIG);
  diagnostic_list found;
  const text_file file = text_file::binary(name, std::move(bytes));
  day_counts counts;
  for (const counted_entries& row : read_counter_file(file, found))
    if (row.count != 0 && compact_day(row.day) >= since)
      counts[{compact_day(row.day), row.id}] = row.count;
  if (found.count(rule_severity::error) + found.count(rule_severity::warning) != 0)
    report.note(terminal_text(name) + " is not as it should be: kplog count shows it");
  told.counters = std::move(counts);
}

static std::string shown_key(const day_event& key, const event_set& events) {
  const known_event* const event = events.find(key.event);
  const std::string name = event == nullptr || event->name.empty() ? "" : event->name + " ";
  return day_with_dashes(key.day) + " " + name + "(" + std::to_string(key.event) + ")";
}

static command_outcome tell_differences(const told_counts& told, const event_set& events,
                                        emit_report& report) {
  constexpr size_t most_shown = 100;
  const std::vector<count_difference> differences = differences_of(told);
  uint64_t records = 0;
  for (const auto& [key, count] : told.engine) records += count;
  for (const count_difference& one :
       std::span(differences).first(std::min(differences.size(), most_shown)))
    report.problem("fleet-difference"_rule, shown_key(one.key, events) + ": " + text_of(one));
  if (differences.size() > most_shown)
    report.problem("fleet-difference"_rule,
                   counted(differences.size() - most_shown, "more difference") + ", not shown");
  report.note(counted(records, "record") + " in the engine; " +
              (differences.empty() ? "all alike" : counted(differences.size(), "difference")));
  return differences.empty() ? command_outcome::good : command_outcome::findings;
}

command_outcome run_verify(const ship_options& options, std::ostream&, std::ostream& log) {
  const engine_row& engine = engine_at(options.engine.address);
  if (engine.view == nullptr)
    throw wrong_usage(std::string(engine.scheme) + ":// keeps nothing that --verify could read");
  const std::string since = first_day(options);
  emit_report report(log, options.report, true);
  return report.report_failures([&] {
    return outcome_of_engine(options.report, log, [&] {
      const definition_versions versions = versions_of(options.definitions, options.events);
      const event_set& events = versions.back()->events();
      told_counts told;
      const command_outcome journal = count_journal(options, events, since, report, told);
      count_counters(options.count, since, report, told);
      told.engine = engine.view(options_of(options.engine))->counts(identity_of(options), since);
      const command_outcome held = tell_differences(told, events, report);
      return journal == command_outcome::good ? held : journal;
    });
  });
}
