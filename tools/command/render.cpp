#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/records/input.h"
#include "recording/text/json_text.h"
#include "recording/text/number.h"
#include "recording/text/words.h"
#include "tools/command/archive_run.h"
#include "tools/command/commands.h"
#include "tools/command/ending_signals.h"
#include "tools/command/engine_options.h"
#include "tools/command/engine_program.h"
#include "tools/command/find_options.h"
#include "tools/command/options.h"
#include "tools/command/pager.h"
#include "tools/command/render_end.h"
#include "tools/command/render_run.h"
#include "tools/emit/files.h"
#include "tools/find/follow.h"
#include "tools/find/moment.h"
#include "tools/ship/address.h"

// What comes a record at a time is shown as it comes.
static bool are_regular_files(const std::vector<searched_file>& files) {
  return std::all_of(files.begin(), files.end(), [](const searched_file& file) {
    struct stat status {};
    return file.path != "-" && KP_stat(file.path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
  });
}

static std::vector<std::string> paths_of(const std::vector<searched_file>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const searched_file& file : files) paths.push_back(file.path);
  return paths;
}

static command_outcome show_records(const render_options& options,
                                    const std::vector<searched_file>& searched,
                                    const definition_versions& versions, std::ostream& out,
                                    emit_report& report, std::ostream& log) {
  record_rendering rendering(options, versions, out, report);
  std::optional<pager> pages;
  if (!options.is_unpaged && are_regular_files(searched)) pages.emplace();
  const bool is_shown = options.last != 0 && are_regular_files(searched)
                            ? rendering.show_last(searched)
                            : rendering.show(searched);
  if (!is_shown || !rendering.show_counts(options)) return command_outcome::file_error;
  report.tell_hidden();
  pages.reset();
  return end_of(rendering, options, report, log);
}

// What is shown at the end of an input that may have none is shown at a signal.
static command_outcome show_until_signal(const render_options& options,
                                         const std::vector<searched_file>& searched,
                                         const definition_versions& versions, std::ostream& out,
                                         emit_report& report, std::ostream& log) {
  const ending_signals signals;
  ending_output shown(signals);
  record_rendering rendering(options, versions, shown, report);
  if (!rendering.show(searched, &signals) || !rendering.show_counts(options))
    return output_failed(shown, out);
  report.tell_hidden();
  const int signal = rendering.is_cut_short() ? signals.ending() : 0;
  const command_outcome outcome = end_of(rendering, options, report, log);
  if (signal == 0) return outcome;
  return signal == SIGINT ? command_outcome::interrupted : command_outcome::terminated;
}

// Raises std::invalid_argument where nothing that comes can fit.
static void check_followed_until(const find_options& find) {
  const auto now = std::chrono::system_clock::now();
  if (find.until && moment_of(*find.until, moment_edge::last, now).compare_time(kp_Time(now)) <= 0)
    throw std::invalid_argument("--until " + in_quotes(*find.until) +
                                " has passed, and nothing that comes can fit; leave --follow out");
}

// A signal is how it ends.
static command_outcome follow_records(const render_options& options,
                                      const definition_versions& versions, std::ostream& out,
                                      emit_report& report, std::ostream& log) {
  const ending_signals signals;
  ending_output shown(signals);
  record_rendering rendering(options, versions, shown, report);
  check_followed_until(options.find);
  follow_rules rules;
  rules.tell = [&report](const std::string& text) { report.problem("followed-file"_rule, text); };
  rules.fail = [&rendering](const file_error& error) { rendering.tell_unreadable(error.what()); };
  rules.is_vain = [&rendering](const segment_index& index) {
    return rendering.leaves_out({.path = "", .index = index});
  };
  if (!options.find.has_any()) rules.last = options.last;
  rules.leave_out = [&rendering](const segment_index& index) { rendering.leave_out(index); };
  followed_records records(
      options.records, rules,
      {signals.descriptor(), [&signals] { return signals.ending() != 0; }, STDOUT_FILENO});
  if (!rendering.follow(records)) return output_failed(shown, out);
  if (records.is_unread()) static_cast<void>(raise(SIGPIPE));
  report.tell_hidden();
  return end_of(rendering, options, report, log);
}

// Messages that are read as records again would be shown for ever. Raises wrong_usage.
static void check_files(const std::vector<std::string>& records) {
  if (reads_standard_input_twice(records)) throw wrong_usage("standard input can be read once");
  emit_files outputs;
  outputs.add_standard_output();
  for (const std::string& path : records) outputs.check_input(path);
}

// Raises wrong_usage for a form that what is shown does not have.
static void check_form(render_options& options) {
  const bool is_counted = !options.by.empty();
  if (options.format.empty()) options.format = is_counted ? "table" : "text";
  const std::vector<std::string>& formats =
      is_counted ? count_format_names() : record_format_names();
  if (std::find(formats.begin(), formats.end(), options.format) == formats.end())
    throw wrong_usage("--format " + options.format +
                      (is_counted ? " shows records; with --by they are counted"
                                  : " shows counts: say with --by what to count by"));
  if (!is_counted) return;
  if (options.follows)
    throw wrong_usage(
        "--by shows counts at the end, and with --follow there is none; leave it out");
  if (options.last != 0) throw wrong_usage("--by counts every record that fits; leave --last out");
  if ((options.format == "json" || options.format == "svg") && !is_in_utf8(options))
    throw wrong_usage(options.format + " is in UTF-8; leave --codepage out");
}

// Of places that are followed, what is not there is waited for.
static std::vector<std::string> to_be_there(std::vector<std::string> paths, bool follows) {
  if (follows)
    std::erase_if(paths, [](const std::string& path) {
      return path != "-" && KP_access(path.c_str(), F_OK) != 0;
    });
  return paths;
}

// Records that an engine has, in the place of files.
static command_outcome render_archive(render_options& options, std::ostream& out,
                                      std::ostream& log) {
  if (options.records.size() != 1)
    throw wrong_usage("the address of an engine stands alone in the place of files");
  options.engine.address = options.records.front();
  check_engine_access(options.engine);
  const engine_row& engine = engine_at(options.engine.address);
  if (engine.ask == nullptr)
    throw wrong_usage(std::string(engine.scheme) + ":// keeps no records that could be shown");
  check_form(options);
  check_files({});
  options.line_width = terminal_line_width();
  emit_report report(log, options.report, true);
  return report.report_failures([&] {
    if (options.follows) check_followed_until(options.find);
    return outcome_of_engine(options.report, log,
                             [&] { return show_archive(options, out, report, log); });
  });
}

static command_outcome render(render_options& options, std::ostream& out, std::ostream& log) {
  if (options.records.empty()) options.records = {"-"};
  if (std::ranges::any_of(options.records, is_engine_address))
    return render_archive(options, out, log);
  if (options.definitions.empty())
    throw wrong_usage("--definitions is needed: the compiled STD set of these records");
  const std::vector<searched_file> searched = searched_files_of(options.records);
  check_form(options);
  check_files(paths_of(searched));
  options.line_width = terminal_line_width();
  emit_report report(log, options.report, true);
  return report.report_failures([&] {
    check_record_files(to_be_there(paths_of(searched), options.follows));
    const definition_versions versions = versions_of(options.definitions, options.events);
    if (options.follows) return follow_records(options, versions, out, report, log);
    const bool is_shown_at_end = !options.by.empty() || options.last != 0;
    const auto show =
        is_shown_at_end && !are_regular_files(searched) ? show_until_signal : show_records;
    return show(options, searched, versions, out, report, log);
  });
}

// All that --last keeps is in memory.
static constexpr size_t most_last = 1'000'000;

static void add_shown_options(CLI::App& command, render_options& options) {
  std::vector<std::string> formats = record_format_names();
  formats.emplace_back("svg");
  add_choice_option(command, "--format", options.format, formats,
                    "The form of what is shown; text, the default: the messages; of counts table, "
                    "the default, json, csv and svg");
  add_choices_option(command, "--by", options.by, count_key_names(),
                     "Count the records by these, with commas, instead of showing them");
  add_read_option(
      command, {"--last", "N", "The last N of these records, at most 1000000"},
      [&options](const std::string& text) {
        options.last = number_of<size_t>(text).value_or(0);
        if (options.last == 0 || options.last > most_last)
          throw std::invalid_argument(in_quotes(text) + " is no number from 1 to 1000000");
      });
  add_flag_option(command, "--follow",
                  "Show what is there, and then what is written to these files and journals, until "
                  "a signal comes; those of several merged by time",
                  options.follows);
  add_flag_option(command, "--no-pager",
                  "Not through $KPLOG_PAGER, $PAGER or less, as files are shown on a terminal",
                  options.is_unpaged);
}

static command_action describe_render(CLI::App& command) {
  const auto options = std::make_shared<render_options>();
  add_arguments(
      command,
      {"RECORDS", "FILE",
       "Files of records, one JSON object a line, also FILE.zst; journals DIR/NAME; - is standard "
       "input, the default; or the address of an engine: postgresql:// or nats://"},
      options->records, option_need::optional);
  add_texts_option(command,
                   {"--definitions", "FILE",
                    "The compiled STD set; several times: the version that a record tells; an "
                    "engine has what was sent with the records"},
                   options->definitions);
  add_message_options(command, options->events, options->code_page);
  add_find_options(command, options->find);
  add_shown_options(command, *options);
  add_engine_options(command, options->engine);
  add_report_options(command, options->report, "--diagnostics");
  return [options, &command](std::ostream& out, std::ostream& log) {
    return outcome_of(options->report, log, [&] {
      options->find.groups = condition_groups_of(command);
      return render(*options, out, log);
    });
  };
}

constexpr kplog_command_row render_command = {
    "render", "Find stored records, and show them as messages",
    "  kplog render --definitions events.ldf entries.jsonl\n"
    "  kplog render --definitions events.ldf --catalog messages --locale ja_JP --codepage EUC-JP "
    "entries.jsonl\n"
    "  grep USER_LOGIN entries.jsonl | kplog render --definitions events.ldf --locale de_DE\n"
    "  kplog render --definitions events.ldf --since yesterday --event 'USER_*' --where "
    "'PORT>=1024' entries.jsonl\n"
    "  kplog render --definitions events.ldf --last 20 --format table entries.jsonl\n"
    "  kplog render --definitions events.ldf --since today --by event,hour entries.jsonl\n"
    "  kplog render --definitions events.ldf --follow --last 10 --locale ja_JP "
    "/var/log/shop/shop\n"
    "  kplog render --host 'web*' --since yesterday --locale ja_JP "
    "postgresql://reader@db.example/fleet\n",
    describe_render};
