#include <memory>
#include <ostream>

#include "recording/files/file_error.h"
#include "recording/files/path.h"
#include "recording/records/event_set.h"
#include "recording/records/input.h"
#include "recording/records/view.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/emit/files.h"
#include "tools/emit/run_report.h"
#include "tools/report/outcome.h"

struct render_options {
  std::vector<std::string> records;  // "-": standard input; none: that
  event_set_options events;
  std::string code_page;  // empty: UTF-8
  report_options report;
};

// Every record is one of these.
struct render_tally {
  uint64_t rendered = 0;
  uint64_t marked = 0;  // shown by what they hold
  uint64_t bad = 0;     // refused

  uint64_t total() const { return rendered + marked + bad; }
};

// A run.
class record_rendering {
 public:
  record_rendering(const render_options& options, const event_set& events, std::ostream& out,
                   emit_report& report)
      : view_(events, options.code_page,
              [&report](const known_event& event) { report.definition_message(event); }),
        out_(out),
        report_(report) {}

  // Shows all records of the files, those of one read at once, so that people who wait for them see
  // them. False, with errno, when standard output fails. Raises file_error.
  bool show(record_files& files);

  const render_tally& tally() const { return tally_; }

 private:
  void take(const record_line& line);
  bool write();

  record_view view_;
  std::ostream& out_;
  emit_report& report_;
  std::string lines_;  // not written yet
  render_tally tally_;
};

void record_rendering::take(const record_line& line) {
  try {
    check_length(line);
    const record_shown shown = view_.append(lines_, line.text);
    ++(shown == record_shown::message ? tally_.rendered : tally_.marked);
  } catch (const record_error& error) {
    report_.bad_record(line, error);
    ++tally_.bad;
  }
}

bool record_rendering::write() {
  out_ << lines_ << std::flush;
  lines_.clear();
  return out_.good();
}

bool record_rendering::show(record_files& files) {
  std::vector<pollfd> watched;
  while (!files.at_end()) {
    watched.clear();
    files.watch(watched);
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    files.read(watched, [this](const record_line& line) { take(line); });
    if (!write()) return false;
  }
  return true;
}

static void write_summary(const render_tally& tally, const report_options& report,
                          std::ostream& log) {
  if (report.quiet) return;
  if (report.format == diagnostic_format::json) {
    std::string line;
    json_text json(line);
    json.begin_object().key("summary").begin_object();
    json.key("read").number(tally.total()).key("rendered").number(tally.rendered);
    json.key("marked").number(tally.marked).key("bad").number(tally.bad);
    json.end_object().end_object();
    log << line << '\n';
  } else {
    log << "kplog: " << counted(tally.total(), "record") << ": " << tally.rendered << " rendered, "
        << tally.marked << " marked, " << tally.bad << " bad\n";
  }
}

static command_outcome show_records(const render_options& options, record_rendering& rendering,
                                    emit_report& report, std::ostream& log) {
  command_outcome outcome = command_outcome::good;
  try {
    record_files files(options.records);
    if (!rendering.show(files)) return command_outcome::file_error;
  } catch (const file_error& error) {
    report.problem("unreadable"_rule, error.what());
    outcome = command_outcome::file_error;
  }
  report.tell_hidden();
  write_summary(rendering.tally(), options.report, log);
  const bool is_whole = rendering.tally().total() == rendering.tally().rendered;
  return outcome == command_outcome::good && !is_whole ? command_outcome::findings : outcome;
}

// Messages that are read as records again would be shown for ever. Raises wrong_usage.
static void check_files(const std::vector<std::string>& records) {
  if (reads_standard_input_twice(records)) throw wrong_usage("standard input can be read once");
  emit_files outputs;
  outputs.add_standard_output();
  for (const std::string& path : records) outputs.check_input(path);
}

static command_outcome render(render_options& options, std::ostream& out, std::ostream& log) {
  if (options.records.empty()) options.records = {"-"};
  check_files(options.records);
  emit_report report(log, options.report, true);
  return report.report_failures([&] {
    check_record_files(options.records);
    const event_set events(options.events);
    record_rendering rendering(options, events, out, report);
    return show_records(options, rendering, report, log);
  });
}

static command_action describe_render(CLI::App& command) {
  const auto options = std::make_shared<render_options>();
  add_arguments(command,
                {"RECORDS", "FILE",
                 "Files of records, one JSON object a line; - is standard input, the default"},
                options->records, option_need::optional);
  add_event_set_options(command, options->events, options->code_page);
  add_report_options(command, options->report);
  return [options](std::ostream& out, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return render(*options, out, log); });
  };
}

constexpr kplog_command_row render_command = {
    "render", "Show stored records as messages",
    "  kplog render --definitions events.ldf entries.jsonl\n"
    "  kplog render --definitions events.ldf --catalog messages --locale ja_JP --codepage EUC-JP "
    "entries.jsonl\n"
    "  grep USER_LOGIN entries.jsonl | kplog render --definitions events.ldf --locale de_DE\n",
    describe_render};
