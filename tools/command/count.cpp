#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <ostream>

#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "recording/sinks/counter_record.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/counts/chart.h"
#include "tools/counts/report.h"
#include "tools/dump/load_set.h"
#include "tools/report/outcome.h"

struct count_options {
  std::vector<std::string> files;  // "-": standard input
  std::vector<std::string> by;     // names of count_groups; none: day and event
  std::string from;                // empty: the first day there is
  std::string to;                  // empty: the last one
  std::string format = "table";
  std::string definitions;  // empty: events are shown by their IDs
  std::string aux;          // empty: none
  report_options report;
};

struct count_format_row {
  const char* name;
  std::string (*show)(const counter_report& report, const day_range& range);
};

static constexpr std::array<count_format_row, 4> count_formats = {{
    {"table", [](const counter_report& report,
                 const day_range&) { return counter_table(report, terminal_line_width()); }},
    {"json", counter_json},
    {"csv", [](const counter_report& report, const day_range&) { return counter_csv(report); }},
    {"svg", [](const counter_report& report, const day_range&) { return counter_chart(report); }},
}};

static std::string shown(const std::string& format, const counter_report& report,
                         const day_range& range) {
  for (const count_format_row& row : count_formats)
    if (format == row.name) return row.show(report, range);
  return "";
}

// --- What the command line asks for

static bool is_grouped_by(const count_options& options, const char* group) {
  return std::find(options.by.begin(), options.by.end(), group) != options.by.end();
}

static report_grouping grouping_of(const count_options& options) {
  report_grouping grouping;
  if (options.by.empty()) return grouping;
  const bool is_by_day = is_grouped_by(options, "day");
  const bool is_by_month = is_grouped_by(options, "month");
  if (is_by_day && is_by_month) throw wrong_usage("--by takes day or month, not both");
  grouping.period = is_by_day     ? report_period::day
                    : is_by_month ? report_period::month
                                  : report_period::none;
  grouping.by_event = is_grouped_by(options, "event");
  return grouping;
}

static std::optional<counter_day> end_of_range(const char* option, const std::string& text) {
  if (text.empty()) return std::nullopt;
  const std::optional<counter_day> day = read_day(text);
  if (!day)
    throw wrong_usage(std::string(option) + ": " + in_quotes(text) +
                      " is no day; one like 2026-11-15 is expected");
  return day;
}

static day_range range_of(const count_options& options) {
  day_range range;
  range.from = end_of_range("--from", options.from);
  range.to = end_of_range("--to", options.to);
  if (range.from && range.to && *range.to < *range.from)
    throw wrong_usage("--from " + options.from + " is later than --to " + options.to);
  return range;
}

// --- What files say

static void take_names(const definition_set& set, counter_report& report) {
  for (const event_model& event : set.events)
    report.names.emplace(event.id.value, event.name.value);
}

static void read_aux_names(const count_options& options, const std_definitions& standard,
                           counter_report& report, std::ostream& log) {
  definition_input input;
  diagnostic_list found;
  read_definition_input({options.aux}, input, found, options.report, log, &standard);
  found.write(log, input.set().sources, options.report.format, options.report.color);
  if (found.count(rule_severity::error) != 0) throw command_ended(command_outcome::findings);
  take_names(input.set(), report);
}

static void read_names(const count_options& options, counter_report& report, std::ostream& log) {
  if (options.definitions.empty()) return;
  standard_input standard;
  standard.read(options.definitions, options.report, log);
  report.has_names = true;
  take_names(standard.definitions()->set(), report);
  if (!options.aux.empty()) read_aux_names(options, *standard.definitions(), report, log);
}

static command_outcome read_counts(const count_options& options, const std::string& path,
                                   std::vector<counted_entries>& counts, std::ostream& log) {
  std::string bytes = read_file(path, counter_file_size_limit);
  if (bytes.size() > counter_file_size_limit)
    throw file_error(file_use::reading, "read", input_name(path), EFBIG);
  const text_file file = text_file::binary(input_name(path), std::move(bytes));
  diagnostic_list found;
  const std::vector<counted_entries> read = read_counter_file(file, found);
  counts.insert(counts.end(), read.begin(), read.end());
  found.write(log, {&file}, options.report.format, options.report.color);
  return found.count(rule_severity::error) == 0 ? command_outcome::good : command_outcome::findings;
}

// The worst of all files.
static command_outcome read_all_counts(const count_options& options,
                                       std::vector<counted_entries>& counts, std::ostream& log) {
  command_outcome worst = command_outcome::good;
  for (const std::string& path : options.files)
    worst = std::max(worst, outcome_of(options.report, log,
                                       [&] { return read_counts(options, path, counts, log); }));
  return worst;
}

static void write_summary(const count_options& options, const counter_report& report,
                          std::ostream& log) {
  if (!options.report.with_summary()) return;
  log << "kplog: " << report.total << (report.total == 1 ? " entry of " : " entries of ")
      << counted(report.events, "event") << " on " << counted(report.days, "day") << '\n';
}

// Sums of some files only would be taken for those of all.
static command_outcome count(count_options& options, std::ostream& out, std::ostream& log) {
  if (options.format == "json") options.report.format = diagnostic_format::json;
  if (reads_standard_input_twice(options.files))
    throw wrong_usage("standard input can be read once");
  if (!options.aux.empty() && options.definitions.empty())
    throw wrong_usage("--aux needs --definitions");
  counter_report report;
  report.grouping = grouping_of(options);
  const day_range range = range_of(options);
  read_names(options, report, log);
  std::vector<counted_entries> counts;
  const command_outcome outcome = read_all_counts(options, counts, log);
  if (outcome == command_outcome::file_error) return outcome;
  add_up(counts, range, report);
  out << shown(options.format, report, range);
  write_summary(options, report, log);
  return outcome;
}

static void add_range_options(CLI::App& command, count_options& options) {
  add_choices_option(command, "--by", options.by, {"day", "event", "month"},
                     "What has a row of its own; day,event, the default: each event of each day");
  add_text_option(command, {"--from", "DAY", "The first day to count"}, options.from);
  add_text_option(command, {"--to", "DAY", "The last day to count"}, options.to);
}

static void add_name_options(CLI::App& command, count_options& options) {
  add_text_option(
      command,
      {"--definitions", "FILE", "The STD set, compiled or a source: shows events by their names"},
      options.definitions);
  add_text_option(command, {"--aux", "FILE", "The AUX set beside it"}, options.aux);
}

static command_action describe_count(CLI::App& command) {
  const auto options = std::make_shared<count_options>();
  add_arguments(command, {"FILE", "FILE", "Counter files, added up; - is standard input"},
                options->files);
  add_range_options(command, *options);
  add_name_options(command, *options);
  add_choice_option(command, "--format", options->format, names_of(count_formats),
                    "table, the default: with bars on a terminal; json and csv, for programs; svg: "
                    "a chart");
  add_quiet_option(command, options->report);
  add_color_option(command, options->report);
  return [options](std::ostream& out, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return count(*options, out, log); });
  };
}

constexpr kplog_command_row count_command = {
    "count", "Show how many entries were counted",
    "  kplog count history.cnt                              each event of each day\n"
    "  kplog count history.cnt --by event --definitions events.ldf\n"
    "  kplog count *.cnt --by month --from 2026-01-01 --format csv\n"
    "  kplog count history.cnt --format svg > history.svg   a chart\n",
    describe_count};
