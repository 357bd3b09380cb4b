#include "tools/command/render_run.h"

#include <poll.h>

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "recording/files/file_error.h"
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
    : definitions_(versions), last_(options.last), out_(out), report_(report) {
  const auto now = std::chrono::system_clock::now();
  size_t event_width = 0;
  for (const auto& version : versions)
    event_width = std::max(event_width, event_column_width(version->events()));
  std::vector<std::vector<std::string>> faults;
  for (const auto& version : versions) {
    const auto within = version->scope();
    versions_.push_back(std::make_unique<shown_version>(options, version->events(), event_width,
                                                        versions.size() > 1, now));
    faults.push_back(versions_.back()->conditions.group_faults());
  }
  require_sound_groups(faults);
  if (!options.by.empty()) counts_.emplace(options.by, now);
}

// To be counted a record needs its message only where that decides.
bool record_rendering::take_if_it_fits(const parsed_record& record) {
  const size_t place = version_of(record, definitions_);
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

std::vector<searched_file> record_rendering::without_vain(const std::vector<searched_file>& files) {
  const auto is_vain = [this](const searched_file& file) {
    return file.index && std::none_of(versions_.begin(), versions_.end(), [&](const auto& version) {
             return version->conditions.may_fit(*file.index);
           });
  };
  std::vector<searched_file> left;
  for (const searched_file& file : files)
    if (is_vain(file))
      tally_.left_out += file.index->records;
    else
      left.push_back(file);
  return left;
}

void record_rendering::take(const record_line& line) {
  try {
    check_length(line);
    if (!take_if_it_fits(parser_.parse(line.text))) ++tally_.left_out;
  } catch (const record_error& error) {
    report_.bad_record(line, error);
    ++tally_.bad;
  }
}

void record_rendering::show(shown_version& version, const viewed_record& viewed) {
  if (viewed.is_message_from_definition) report_.definition_message(*viewed.made->event);
  if (last_ != 0) return keep(version, viewed);
  version.form.append(lines_, viewed);
  ++(viewed.made != nullptr ? tally_.rendered : tally_.marked);
}

void record_rendering::keep(shown_version& version, const viewed_record& viewed) {
  kept_record kept;
  if (kept_.size() == last_) {
    kept = std::move(kept_.front());  // with its memory
    kept.line.clear();
    kept_.pop_front();
    ++tally_.left_out;
  }
  version.form.append(kept.line, viewed);
  kept.is_marked = viewed.made == nullptr;
  kept_.push_back(std::move(kept));
}

void record_rendering::take_kept() {
  for (const kept_record& kept : kept_) {
    lines_ += kept.line;
    ++(kept.is_marked ? tally_.marked : tally_.rendered);
  }
  kept_.clear();
}

bool record_rendering::write() {
  out_ << lines_ << std::flush;
  lines_.clear();
  return out_.good();
}

bool record_rendering::show_readable(record_files& files) {
  std::vector<pollfd> watched;
  while (!files.at_end()) {
    watched.clear();
    files.watch(watched);
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    files.read(watched, [this](const record_line& line) { take(line); });
    if (!write()) return false;
    report_.progress({{nullptr, {.read = tally_.total() + kept_.size(), .bad = tally_.bad}}});
  }
  return true;
}

bool record_rendering::show(std::vector<std::string> paths) {
  if (!counts_) versions_.back()->form.append_heading(lines_);
  while (!paths.empty()) {
    std::optional<record_files> files;
    try {
      files.emplace(paths);
      if (!show_readable(*files)) return false;
      paths.clear();
    } catch (const file_error& error) {
      report_.problem("unreadable"_rule, error.what());
      is_all_read_ = false;
      paths = files ? files->behind() : std::vector<std::string>(paths.begin() + 1, paths.end());
    }
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
