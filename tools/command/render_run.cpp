#include "tools/command/render_run.h"

#include <poll.h>

#include <algorithm>
#include <ostream>
#include <span>
#include <stdexcept>

#include "recording/text/code_page.h"

// A group of conditions may be about events or attributes that only some versions have.
static void require_sound_groups(const std::vector<std::vector<std::string>>& faults) {
  for (size_t group = 0; group < faults.front().size(); ++group)
    if (std::none_of(faults.begin(), faults.end(),
                     [group](const auto& of_one) { return of_one[group].empty(); }))
      throw std::invalid_argument(faults.back()[group]);
}

record_rendering::shown_version::shown_version(const render_options& options,
                                               const event_set& its_events, size_t event_width,
                                               bool is_of_several,
                                               std::chrono::system_clock::time_point now)
    : events(its_events),
      conditions(options.find, events, now, is_of_several),
      view(events),
      form(record_format_of(options.by.empty() ? options.format : "text"), events,
           options.code_page, event_width, options.report.output_color) {}

record_rendering::record_rendering(const render_options& options,
                                   const definition_versions& versions, std::ostream& out,
                                   emit_report& report)
    : options_(options), definitions_(versions), out_(out), report_(report) {
  for (const auto& version : versions)
    event_width_ = std::max(event_width_, event_column_width(version->events()));
  std::vector<std::vector<std::string>> faults;
  for (const auto& version : versions) {
    add_version(*version);
    faults.push_back(versions_.back()->conditions.group_faults());
  }
  if (!options.are_versions_to_come) require_sound_groups(faults);
  if (!options.by.empty()) counts_.emplace(options.by, now_);
  if (options.last != 0) last_.emplace(options.last);
}

void record_rendering::add_version(definition_version& version) {
  const auto within = version.scope();
  const bool are_of_several = definitions_.size() > 1 || options_.are_versions_to_come;
  versions_.push_back(std::make_unique<shown_version>(options_, version.events(), event_width_,
                                                      are_of_several, now_));
}

size_t record_rendering::place_of(const parsed_record& record) {
  if (choice_ == nullptr) return version_of(record, definitions_);
  const size_t place = (*choice_)(record);
  while (versions_.size() < definitions_.size()) add_version(*definitions_[versions_.size()]);
  return place;
}

// To be counted a record needs its message only where that decides.
bool record_rendering::take_if_it_fits(const parsed_record& record) {
  const size_t place = place_of(record);
  shown_version& version = *versions_[place];
  if (!version.conditions.fit(record)) return false;
  if (!counts_ || version.conditions.ask_for_messages()) {
    const auto within = definitions_[place]->scope();
    const viewed_record viewed = version.view.view(record);
    if (!version.conditions.fit_message(viewed.text)) return false;
    if (!counts_) show(version, viewed);
  }
  if (counts_) {
    counts_->add(record, version.events);
    ++tally_.counted;
  }
  return true;
}

// As an index tells of segments.
bool record_rendering::leaves_out(const searched_file& file) {
  const bool is_vain =
      file.index && std::none_of(versions_.begin(), versions_.end(), [&](const auto& version) {
        return version->conditions.may_fit(*file.index);
      });
  if (is_vain) tally_.left_out += file.index->records;
  return is_vain;
}

const parsed_record& record_rendering::parse(std::string_view line) {
  return stored_lines_.read(line, stored_) ? stored_ : parser_.parse(line);
}

void record_rendering::take_record(const record_line& line) {
  check_length(line);
  if (!take_if_it_fits(parse(line.text))) ++tally_.left_out;
}

void record_rendering::take(const record_line& line) {
  try {
    take_record(line);
  } catch (const record_error& error) {
    report_.bad_record(line, error);
    ++tally_.bad;
  }
}

void record_rendering::show(shown_version& version, const viewed_record& viewed) {
  if (last_) return keep(version, viewed);
  if (viewed.is_message_from_definition) report_.definition_message(*viewed.made->event);
  version.form.append(lines_, viewed);
  ++(viewed.made != nullptr ? tally_.rendered : tally_.marked);
}

void record_rendering::keep(shown_version& version, const viewed_record& viewed) {
  kept_record& kept = is_from_end_ ? last_->before_all() : last_->behind();
  version.form.append(kept.text, viewed);
  kept.is_marked = viewed.made == nullptr;
  const bool is_from_definition = viewed.made != nullptr && viewed.is_message_from_definition;
  if (is_from_definition) kept.from_definition = viewed.made->event;
}

void record_rendering::take_kept() {
  if (!last_) return;
  last_->close_input();
  tally_.left_out += last_->dropped();
  for (const kept_record& kept : last_->records()) {
    if (kept.from_definition != nullptr) report_.definition_message(*kept.from_definition);
    lines_ += kept.text;
    ++(kept.is_marked ? tally_.marked : tally_.rendered);
  }
}

void record_rendering::take_line(const record_line& line, const version_choice& choice) {
  choice_ = &choice;
  take(line);
}

bool record_rendering::end_lines() {
  take_kept();
  last_.reset();
  return write();
}

bool record_rendering::write() {
  out_ << lines_ << std::flush;
  lines_.clear();
  return out_.good();
}

void record_rendering::tell_progress() {
  const uint64_t kept = last_ ? last_->size() + last_->dropped() : 0;
  report_.progress({{nullptr, {.read = tally_.total() + kept, .bad = tally_.bad}}});
}

void record_rendering::tell_unreadable(const std::string& text) {
  report_.problem("unreadable"_rule, text);
  is_all_read_ = false;
}

static constexpr size_t written_at_a_time = size_t{64} << 10;

bool record_rendering::has_much() const {
  return lines_.size() >= written_at_a_time;
}

// --- From the begin ---

// For what had been sent when a signal came.
static constexpr std::chrono::milliseconds patience_at_signal(1500);

bool record_rendering::show_readable(record_files& files, const ending_signals* signals) {
  const record_taker taker = [this](const record_line& line) { take(line); };
  std::vector<pollfd> watched;
  while (!files.at_end()) {
    watched.clear();
    files.watch(watched);
    if (signals != nullptr) watched.push_back({signals->descriptor(), POLLIN, 0});
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    is_cut_short_ = signals != nullptr && signals->ending() != 0;
    if (is_cut_short_) {
      files.read_last(taker, std::chrono::steady_clock::now() + patience_at_signal);
      return write();
    }
    files.read(std::span(watched).first(1), taker);
    if (!write()) return false;
    tell_progress();
  }
  return true;
}

bool record_rendering::show(const std::vector<searched_file>& searched,
                            const ending_signals* signals) {
  std::vector<std::string> paths;
  for (const searched_file& file : searched)
    if (!leaves_out(file)) paths.push_back(file.path);
  if (!counts_) versions_.back()->form.append_heading(lines_);
  while (!paths.empty()) {
    std::optional<record_files> files;
    try {
      files.emplace(paths);
      if (!show_readable(*files, signals)) return false;
      paths.clear();
    } catch (const file_error& error) {
      tell_unreadable(error.what());
      paths = files ? files->behind() : std::vector<std::string>(paths.begin() + 1, paths.end());
    }
  }
  take_kept();
  return write();
}

// --- What comes ---

bool record_rendering::follow(followed_records& records) {
  versions_.back()->form.append_heading(lines_);
  do {
    for (record_line line; records.next(line);) {
      take(line);
      if (has_much() && !write()) return false;
    }
    if (records.is_cut_short()) {
      if (last_) tally_.left_out += last_->size() + last_->dropped();
      return write();
    }
    take_kept();
    last_.reset();
    if (!write()) return false;
  } while (records.wait());
  return true;
}

// --- From the end ---

// Numbers of lines are not known meanwhile: what is bad is told behind that.
void record_rendering::take_last_of(file_from_end& file) {
  constexpr unsigned lines_between_progress = 4096;
  is_from_end_ = true;
  record_line line;
  for (unsigned lines = 1; !last_->are_complete() && file.next(line); ++lines) {
    try {
      take_record(line);
    } catch (const record_error&) {
      file.remember();
      ++tally_.bad;
    }
    if (lines % lines_between_progress == 0) tell_progress();
  }
}

// False when standard output fails.
bool record_rendering::show_last_of(const std::string& path) {
  const std::unique_ptr<file_from_end> file = file_from_end::open(path);
  is_from_end_ = file != nullptr;
  if (!file) {
    record_files files({path});
    return show_readable(files);
  }
  try {
    take_last_of(*file);
  } catch (const file_error& error) {
    tell_unreadable(error.what());
  }
  is_begin_unread_ |= last_->are_complete() && !file->is_at_begin();
  file->for_each_remembered([this](const record_line& line) {
    try {
      check_length(line);
      parser_.parse(line.text);
    } catch (const record_error& error) {
      report_.bad_record(line, error);
    }
  });
  report_.not_shown(file->forgotten());
  return true;
}

bool record_rendering::show_last(const std::vector<searched_file>& files) {
  versions_.back()->form.append_heading(lines_);
  for (auto file = files.rbegin(); file != files.rend(); ++file) {
    if (leaves_out(*file)) continue;
    if (last_->are_complete()) {
      is_begin_unread_ = true;
      continue;
    }
    try {
      if (!show_last_of(file->path)) return false;
    } catch (const file_error& error) {
      tell_unreadable(error.what());
    }
    last_->close_input();
  }
  take_kept();
  return write();
}

bool is_in_utf8(const render_options& options) {
  return options.code_page.empty() || options.code_page == "UTF-8";
}

bool record_rendering::show_counts(const render_options& options) {
  if (!counts_) return true;
  const bool may_have_bars = is_in_utf8(options);
  log_code_page(options.code_page)
      .append(lines_, counts_->shown(count_format_of(options.format),
                                     may_have_bars ? options.line_width : 0));
  return write();
}
