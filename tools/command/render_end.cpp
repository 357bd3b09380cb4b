#include "tools/command/render_end.h"

#include <cerrno>
#include <ostream>

#include "recording/text/json_text.h"
#include "recording/text/words.h"

static void write_summary(const record_rendering& rendering, const render_options& options,
                          emit_report& report, std::ostream& log) {
  const render_tally& tally = rendering.tally();
  const bool may_leave_out = options.find.has_any() || options.last != 0;
  if (options.report.quiet) return;
  if (options.report.format == diagnostic_format::json) {
    std::string line;
    json_text json(line);
    json.begin_object().key("summary").begin_object();
    json.key("read").number(tally.total()).key("rendered").number(tally.rendered);
    json.key("marked").number(tally.marked);
    if (!options.by.empty()) json.key("counted").number(tally.counted);
    json.key("bad").number(tally.bad);
    if (may_leave_out) json.key("left_out").number(tally.left_out);
    if (options.last != 0)
      json.key("begin_unread").written(rendering.is_begin_unread() ? "true" : "false");
    json.end_object().end_object();
    log << line << '\n';
  } else {
    const auto part = [](uint64_t count, const char* what) {
      return std::to_string(count) + " " + what;
    };
    const std::string shown =
        options.by.empty() ? part(tally.rendered, "rendered, ") + part(tally.marked, "marked, ")
                           : part(tally.counted, "counted, ");
    report.note(counted(tally.total(), "record") + ": " + shown + part(tally.bad, "bad") +
                (may_leave_out ? ", " + part(tally.left_out, "left out") : "") +
                (rendering.is_begin_unread() ? "; what is before them was not read" : ""));
  }
}

command_outcome output_failed(const ending_output& shown, std::ostream& out) {
  if (shown.error() != 0) out.setstate(std::ios::badbit);
  errno = shown.error();
  return command_outcome::file_error;
}

command_outcome end_of(const record_rendering& rendering, const render_options& options,
                       emit_report& report, std::ostream& log) {
  write_summary(rendering, options, report, log);
  const bool is_whole = rendering.tally().marked == 0 && rendering.tally().bad == 0;
  if (!rendering.is_all_read()) return command_outcome::file_error;
  return is_whole ? command_outcome::good : command_outcome::findings;
}
