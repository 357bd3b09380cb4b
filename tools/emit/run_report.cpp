#include "tools/emit/run_report.h"

#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <sstream>
#include <utility>
#include <vector>

#include "recording/files/file_error.h"
#include "recording/text/escape.h"
#include "recording/text/json_text.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/emit/service_manager.h"
#include "tools/report/outcome.h"

static constexpr unsigned shown_limit = 100;  // bad records in a minute
static constexpr std::chrono::milliseconds first_progress(1000);
static constexpr std::chrono::milliseconds progress_interval(200);

emit_tally total_of(const emit_tallies& tallies) {
  emit_tally total;
  for (const auto& [event, tally] : tallies) {
    total.read += tally.read;
    total.written += tally.written;
    total.rejected += tally.rejected;
    total.bad += tally.bad;
  }
  return total;
}

emit_report::emit_report(std::ostream& log, const report_options& options, bool has_output)
    : log_(log),
      options_(options),
      draws_progress_(options.with_summary() && isatty(STDERR_FILENO) != 0 &&
                      !(has_output && isatty(STDOUT_FILENO) != 0)),
      is_for_journal_(does_journal_read_standard_error()) {}

// --- What is told ---

// As syslog numbers them.
static constexpr char error_priority = '3';
static constexpr char warning_priority = '4';
static constexpr char note_priority = '6';

void emit_report::tell(char priority, const std::string& lines) {
  clear_progress();
  if (!is_for_journal_) {
    log_ << lines << std::flush;
    return;
  }
  for (size_t at = 0; at < lines.size();) {
    const size_t end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
    log_ << '<' << priority << '>' << std::string_view(lines).substr(at, end - at);
    at = end;
  }
  log_.flush();
}

void emit_report::tell(char priority, const diagnostic_list& found, const text_file& file) {
  std::ostringstream lines;
  found.write(lines, {&file}, options_.format, options_.color);
  tell(priority, lines.str());
}

// --- Problems ---

bool emit_report::may_show_another() {
  const clock::time_point now = clock::now();
  if (now - minute_ >= std::chrono::minutes(1)) {
    tell_hidden();
    minute_ = now;
    shown_ = 0;
  }
  const bool may = shown_ < shown_limit;
  if (may)
    ++shown_;
  else
    ++hidden_;
  return may;
}

void emit_report::tell_hidden() {
  if (hidden_ == 0) return;
  const std::string text = counted(hidden_, "more bad record") + ", not shown one by one";
  hidden_ = 0;
  problem("record-not-shown"_rule, text);
}

void emit_report::quarantined(size_t left_out) {
  if (left_out == 0) {
    tell_not_kept();
  } else if (is_quarantine_full_) {
    not_kept_ += left_out;
  } else {
    problem("quarantine-full"_rule,
            "the quarantine is full; " + counted(left_out, "bad line") + " not kept");
  }
  is_quarantine_full_ = left_out != 0;
}

void emit_report::tell_not_kept() {
  if (not_kept_ == 0) return;
  const std::string text = counted(std::exchange(not_kept_, 0), "more bad line") + " not kept";
  problem("quarantine-full"_rule, "the quarantine was full; " + text);
}

void emit_report::bad_record(const record_line& line, const record_error& error) {
  if (!may_show_another()) return;
  const text_file source = text_file::one_line(line.source->name, std::string(line.text),
                                               static_cast<size_t>(line.number - 1));
  diagnostic_list found;
  found.add(error.rule(), {&source, error.offset()}, error.text());
  tell(warning_priority, found, source);
}

void emit_report::problem(diagnostic_rule rule, const std::string& text) {
  const text_file nowhere = text_file::unopened("kplog");
  diagnostic_list found;
  found.add(rule, {&nowhere, 0}, text);
  const bool is_error = found.count(rule_severity::error) != 0;
  tell(is_error ? error_priority : warning_priority, found, nowhere);
}

void emit_report::definition_message(const known_event& event) {
  if (!told_.insert(&event).second) return;
  const std::string name = event.name.empty() ? "" : " " + event.name;
  problem("message-from-definition"_rule, "the catalog lacks a message of the event " +
                                              std::to_string(event.id) + name +
                                              "; the definition's own text is taken");
}

command_outcome emit_report::report_failures(const std::function<command_outcome()>& run) {
  try {
    return run();
  } catch (const std::invalid_argument& error) {
    return usage_error(log_, error.what());
  } catch (const file_error& error) {
    const bool is_read = error.use() == file_use::reading;
    problem(is_read ? "unreadable"_rule : "unwritable"_rule, error.what());
  } catch (const damaged_definitions& error) {
    std::ostringstream lines;
    error.write(lines, options_.format, options_.color);
    tell(error_priority, lines.str());
  } catch (const std::runtime_error& error) {
    problem("unreadable"_rule, error.what());
  }
  return command_outcome::file_error;
}

void emit_report::note(const std::string& text) {
  if (options_.with_summary()) tell(note_priority, "kplog: " + terminal_text(text) + "\n");
}

// --- Progress ---

void emit_report::clear_progress() {
  if (is_progress_shown_) log_ << "\r\x1b[K";
  is_progress_shown_ = false;
}

void emit_report::progress(const emit_tallies& tallies) {
  if (!draws_progress_) return;
  const clock::time_point now = clock::now();
  if (now - began_ < first_progress || now - drawn_ < progress_interval) return;
  drawn_ = now;
  clear_progress();
  const emit_tally total = total_of(tallies);
  const std::chrono::duration<double> taken = now - began_;
  log_ << counted(total.read, "record") << ", "
       << static_cast<uint64_t>(static_cast<double>(total.read) / taken.count()) << "/s, "
       << total.bad << " bad" << std::flush;
  is_progress_shown_ = true;
}

// --- Closing ---

static std::string event_text(const known_event* event) {
  if (event == nullptr) return "(not known)";
  const std::string id = std::to_string(event->id);
  return event->name.empty() ? id : terminal_text(event->name) + " (" + id + ")";
}

std::vector<const emit_tallies::value_type*> rows_by_id(const emit_tallies& tallies) {
  const auto rank = [](const emit_tallies::value_type* row) {
    return row->first == nullptr ? uint64_t{1} << 32 : uint64_t{row->first->id};
  };
  std::vector<const emit_tallies::value_type*> rows;
  for (const auto& row : tallies) rows.push_back(&row);
  std::sort(rows.begin(), rows.end(),
            [&](const auto* a, const auto* b) { return rank(a) < rank(b); });
  return rows;
}

static text_row cells_of(const emit_tallies::value_type& row) {
  const auto& [event, tally] = row;
  return {event_text(event), std::to_string(tally.read), std::to_string(tally.written),
          std::to_string(tally.rejected), std::to_string(tally.bad)};
}

std::string emit_report::table(const emit_tallies& tallies) {
  const emit_tally total = total_of(tallies);
  std::ostringstream lines;
  lines << "kplog: " << counted(total.read, "record") << ": " << total.written << " written, "
        << total.rejected << " rejected by the filter, " << total.bad << " bad";
  if (total.unwritten() != 0) lines << ", " << total.unwritten() << " not written";
  lines << '\n';
  if (tallies.empty()) return lines.str();
  std::vector<text_row> rows = {{"event", "read", "written", "rejected", "bad"}};
  for (const emit_tallies::value_type* row : rows_by_id(tallies)) rows.push_back(cells_of(*row));
  return lines.str() + in_columns(rows, {1, 2, 3, 4});
}

static void append_tally(json_text& json, const emit_tally& tally) {
  json.key("read").number(tally.read).key("written").number(tally.written);
  json.key("rejected").number(tally.rejected).key("bad").number(tally.bad);
}

static void append_event(json_text& json, const known_event* event) {
  json.key("event");
  if (event == nullptr)
    json.written("null");
  else
    json.number(event->id).key("name").text(event->name);
}

std::string emit_report::json(const emit_tallies& tallies) {
  std::string line;
  json_text json(line);
  append_tally(json.begin_object().key("summary").begin_object(), total_of(tallies));
  json.key("events").begin_list();
  for (const emit_tallies::value_type* row : rows_by_id(tallies)) {
    append_event(json.begin_object(), row->first);
    append_tally(json, row->second);
    json.end_object();
  }
  json.end_list().end_object().end_object();
  return line + '\n';
}

void emit_report::closing(const emit_tallies& tallies) {
  clear_progress();
  tell_hidden();
  tell_not_kept();
  if (!options_.quiet && options_.format == diagnostic_format::json)
    tell(note_priority, json(tallies));
  if (options_.with_summary()) tell(note_priority, table(tallies));
}
