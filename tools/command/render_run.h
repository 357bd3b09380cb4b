// A run that shows records, or counts them.
#ifndef TOOLS_COMMAND_RENDER_RUN_H
#define TOOLS_COMMAND_RENDER_RUN_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recording/files/file_error.h"
#include "recording/records/event_set.h"
#include "recording/records/input.h"
#include "recording/records/stored_line.h"
#include "recording/records/view.h"
#include "tools/command/ending_signals.h"
#include "tools/command/ship_run.h"
#include "tools/emit/run_report.h"
#include "tools/find/conditions.h"
#include "tools/find/counts.h"
#include "tools/find/file_from_end.h"
#include "tools/find/follow.h"
#include "tools/find/forms.h"
#include "tools/find/journal_files.h"
#include "tools/find/last_records.h"
#include "tools/find/versions.h"
#include "tools/report/outcome.h"

struct render_options {
  engine_access engine;                  // where records are an address
  std::vector<std::string> records;      // "-": standard input; none: that
  std::vector<std::string> definitions;  // of versions; the last is that of records without one
  event_set_options events;              // all but these
  std::string code_page;                 // empty: UTF-8
  find_options find;
  std::string format;           // of what is shown; empty: text, or a table of counts
  size_t last = 0;              // so many of the records that fit; 0: all
  std::vector<std::string> by;  // what records are counted by; none: they are shown
  size_t line_width = 0;        // of the terminal; 0: none
  bool is_unpaged = false;
  bool follows = false;               // shows what comes later, too
  bool are_versions_to_come = false;  // none is there yet: conditions may be about those
  report_options report;
};

bool is_in_utf8(const render_options& options);

// Every record is one of these.
struct render_tally {
  uint64_t rendered = 0;
  uint64_t marked = 0;    // shown by what they hold
  uint64_t counted = 0;   // instead of shown
  uint64_t bad = 0;       // refused
  uint64_t left_out = 0;  // do not fit, or come before the last that are wanted

  uint64_t total() const { return rendered + marked + counted + bad + left_out; }
};

class record_rendering {
 public:
  // Raises std::invalid_argument for conditions that no version has anything for, and for a code
  // page or a form that cannot be had. The options and the versions must live as long.
  record_rendering(const render_options& options, const definition_versions& versions,
                   std::ostream& out, emit_report& report);

  // Shows the records of the files that fit, those of one read at once, so that people who wait for
  // them see them; where the last are wanted, these at the end. What cannot be read of a file is
  // told, and the next is shown; segments in which nothing fits are not read. Where there are
  // signals, one of them ends that: what was sent by then is shown. False, with errno, when
  // standard output fails.
  bool show(const std::vector<searched_file>& files, const ending_signals* signals = nullptr);
  bool is_cut_short() const { return is_cut_short_; }  // by a signal
  // The same of the last that are wanted: the last file is read first, each from its end where that
  // can be, and nothing more when they are found.
  bool show_last(const std::vector<searched_file>& files);
  // The same of records that are followed, until nothing will come; where the last are wanted, of
  // these of what is there at first.
  bool follow(followed_records& records);
  // The same of records that come from elsewhere, one by one: the heading before them, each of them
  // with what says the place of its version, which may have added that to the versions, what was
  // gathered, and what is shown behind them.
  using version_choice = std::function<size_t(const parsed_record& record)>;
  void begin_lines() { versions_.back()->form.append_heading(lines_); }
  void take_line(const record_line& line, const version_choice& choice);
  bool has_much() const;
  bool write();
  bool end_lines();
  // What such records tell: that something cannot be read, that there is a segment in which perhaps
  // nothing fits, that one is not read.
  void tell_unreadable(const std::string& text);
  bool leaves_out(const searched_file& file);
  void leave_out(const segment_index& index) { tally_.left_out += index.records; }
  bool is_all_read() const { return is_all_read_; }
  // Whether records before those that are shown were not looked at.
  bool is_begin_unread() const { return is_begin_unread_; }

  // Of a run that counts: shows the counts. False like show.
  bool show_counts(const render_options& options);

  const render_tally& tally() const { return tally_; }

 private:
  // How records of one version are shown.
  struct shown_version {
    shown_version(const render_options& options, const event_set& events, size_t event_width,
                  bool is_of_several, std::chrono::system_clock::time_point now);

    const event_set& events;
    record_conditions conditions;
    record_view view;
    record_form form;
  };

  void add_version(definition_version& version);
  size_t place_of(const parsed_record& record);
  bool show_readable(record_files& files, const ending_signals* signals = nullptr);
  bool show_last_of(const std::string& path);
  void take_last_of(file_from_end& file);
  void tell_progress();
  void take(const record_line& line);
  void take_record(const record_line& line);
  const parsed_record& parse(std::string_view line);
  bool take_if_it_fits(const parsed_record& record);
  void show(shown_version& version, const viewed_record& viewed);
  void keep(shown_version& version, const viewed_record& viewed);
  void take_kept();

  const render_options& options_;
  const definition_versions& definitions_;
  const version_choice* choice_ = nullptr;  // null: by what the record tells
  const std::chrono::system_clock::time_point now_ = std::chrono::system_clock::now();
  size_t event_width_ = 0;
  std::vector<std::unique_ptr<shown_version>> versions_;
  stored_line_reader stored_lines_;  // most lines are such
  parsed_record stored_;             // that was read so
  record_parser parser_;
  std::optional<record_counts> counts_;  // instead of showing
  std::optional<last_records> last_;     // where these are wanted
  bool is_from_end_ = false;             // what is read
  std::ostream& out_;
  emit_report& report_;
  std::string lines_;  // not written yet
  render_tally tally_;
  bool is_all_read_ = true;
  bool is_cut_short_ = false;
  bool is_begin_unread_ = false;
};

#endif
