#include <chrono>
#include <memory>
#include <ostream>

#include "recording/records/stored_start.h"
#include "recording/sinks/counter_record.h"
#include "recording/text/duration.h"
#include "recording/text/escape.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/engine_options.h"
#include "tools/command/engine_program.h"
#include "tools/command/options.h"

struct fleet_options {
  engine_access engine;
  std::string format = "text";
  std::string keep;    // "90d"
  std::string before;  // "2026-11-15"
};

static std::unique_ptr<fleet_view> view_of(const engine_access& access) {
  check_engine_access(access);
  const engine_row& engine = engine_at(access.address);
  if (engine.view == nullptr)
    throw wrong_usage(std::string(engine.scheme) + ":// keeps nothing that could be told of");
  return engine.view(options_of(access));
}

// --- kplog fleet status ---

static std::string moment_text(const std::optional<int64_t>& moment) {
  return moment ? text_of_instant(*moment) : "-";
}

static std::string given_up_text(const journal_state& state) {
  return (state.is_given_up_exact ? "" : ">=") + std::to_string(state.given_up);
}

static std::string fleet_table(const std::vector<fleet_row>& rows) {
  std::vector<text_row> table = {
      {"host", "journal", "records", "newest", "told", "bytes behind", "given up"}};
  for (const fleet_row& row : rows)
    table.push_back({terminal_text(row.journal.host), terminal_text(row.journal.journal),
                     std::to_string(row.records), moment_text(row.newest), moment_text(row.told),
                     std::to_string(row.state.waiting_bytes), given_up_text(row.state)});
  return in_columns(table, {2, 5, 6});
}

static std::string fleet_json(const std::vector<fleet_row>& rows) {
  std::string text;
  for (const fleet_row& row : rows) {
    json_text json(text);
    json.begin_object().key("host").text(row.journal.host).key("journal").text(row.journal.journal);
    json.key("records").number(row.records);
    if (row.newest) json.key("newest").text(text_of_instant(*row.newest));
    if (row.told) json.key("told").text(text_of_instant(*row.told));
    json.key("waiting_bytes").number(row.state.waiting_bytes);
    json.key("given_up").number(row.state.given_up);
    json.key("given_up_exact").written(row.state.is_given_up_exact ? "true" : "false");
    json.end_object();
    text += '\n';
  }
  return text;
}

static command_outcome show_fleet(const fleet_options& options, std::ostream& out) {
  const std::vector<fleet_row> rows = view_of(options.engine)->rows();
  out << (options.format == "json" ? fleet_json(rows) : fleet_table(rows));
  return command_outcome::good;
}

// --- kplog fleet prune ---

static std::string first_kept_day(const fleet_options& options) {
  if (options.keep.empty() == options.before.empty())
    throw wrong_usage("kplog fleet prune takes --keep or --before, one of them");
  auto day = options.before.empty() ? std::optional<counter_day>() : read_day(options.before);
  if (!options.before.empty() && !day)
    throw wrong_usage("--before: " + in_quotes(options.before) +
                      " is no day; one like 2026-11-15 is expected");
  if (!day) {
    const auto kept = duration_of(options.keep);
    if (!kept)
      throw wrong_usage("--keep: " + in_quotes(options.keep) + " is no duration; " + duration_form);
    day = counter_day_of(
        std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now() - *kept));
  }
  const auto today =
      counter_day_of(std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()));
  if (today < *day)
    throw wrong_usage("--before: " + day_text(*day) +
                      " is to come; what is sent of the days before it would be lost");
  std::string text = day_text(*day);
  std::erase(text, '-');
  return text;
}

static command_outcome prune_fleet(const fleet_options& options, std::ostream& out) {
  const std::string before = first_kept_day(options);
  for (const std::string& line : view_of(options.engine)->prune(before)) out << line << '\n';
  return command_outcome::good;
}

// --- Options ---

using fleet_action = command_outcome (*)(const fleet_options&, std::ostream&);

static void add_address(CLI::App& command, fleet_options& options) {
  add_text_option(command, {"ADDRESS", "ADDRESS", "The engine: postgresql:// or nats://"},
                  options.engine.address, option_need::required);
  add_engine_options(command, options.engine);
}

static CLI::App& describe_status_of_fleet(CLI::App& fleet, fleet_options& options) {
  CLI::App& command = add_sub_command(
      fleet, "status", "Show which machines there are, and how far behind each of them is",
      "  kplog fleet status postgresql://reader@db.example/fleet\n"
      "  kplog fleet status --format json nats://broker1 | jq 'select(.waiting_bytes > 0)'\n");
  add_address(command, options);
  add_choice_option(command, "--format", options.format, {"text", "json"},
                    "How it is shown; text is the default, json an object a line");
  return command;
}

static CLI::App& describe_prune(CLI::App& fleet, fleet_options& options) {
  CLI::App& command = add_sub_command(
      fleet, "prune", "Remove old days; they stay removed",
      "  kplog fleet prune --keep 90d postgresql://owner@db.example/fleet\n"
      "  kplog fleet prune --before 2026-08-01 postgresql://owner@db.example/fleet\n");
  add_address(command, options);
  add_text_option(command, {"--keep", "TIME", "Days that are older than that go: 90d"},
                  options.keep);
  add_text_option(command, {"--before", "DAY", "Days before that one go"}, options.before);
  return command;
}

static command_action describe_fleet(CLI::App& command) {
  const auto options = std::make_shared<fleet_options>();
  const CLI::App& status = describe_status_of_fleet(command, *options);
  describe_prune(command, *options);
  return [options, &status](std::ostream& out, std::ostream& log) {
    const fleet_action run = is_given(status) ? show_fleet : prune_fleet;
    return outcome_of(
        {}, log, [&] { return outcome_of_engine({}, log, [&] { return run(*options, out); }); });
  };
}

constexpr kplog_command_row fleet_command = {
    "fleet", "Look at all machines whose records an engine has, and remove old days",
    "  kplog fleet status postgresql://reader@db.example/fleet\n"
    "  kplog fleet prune --keep 90d postgresql://owner@db.example/fleet\n",
    describe_fleet};
