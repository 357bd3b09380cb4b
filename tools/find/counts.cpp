#include "tools/find/counts.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "recording/records/entry.h"
#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/chart/bars.h"
#include "tools/find/event_name.h"
#include "tools/find/moment.h"

const std::vector<std::string>& count_key_names() {
  static const std::vector<std::string> names = {"event", "level", "host", "hour", "day", "month"};
  return names;
}

const std::vector<std::string>& count_format_names() {
  static const std::vector<std::string> names = {"table", "json", "csv", "svg"};
  return names;
}

count_format count_format_of(const std::string& name) {
  const std::vector<std::string>& names = count_format_names();
  return static_cast<count_format>(std::find(names.begin(), names.end(), name) - names.begin());
}

record_counts::record_counts(const std::vector<std::string>& keys,
                             std::chrono::system_clock::time_point now)
    : now_(now) {
  const std::vector<std::string>& names = count_key_names();
  for (const std::string& name : keys) {
    const auto key =
        static_cast<count_key>(std::find(names.begin(), names.end(), name) - names.begin());
    if (std::find(keys_.begin(), keys_.end(), key) == keys_.end()) keys_.push_back(key);
  }
  key_.resize(keys_.size());
}

// --- Counting

// The moment in the zone of this machine; one that its clock does not reach stays as it is told.
static kp_Time told_here(const kp_Time& moment) {
  const kp_Time here(moment.to_time_point());
  return here.compare_time(moment) == 0 ? here : moment;
}

void record_counts::tell_time(const parsed_record& record) {
  const std::string_view text = record.time ? record.time->text : std::string_view();
  if (!text.empty() && text == time_text_) return;
  time_text_ = text;
  const auto moment = record.time ? moment_of(*record.time) : now_;
  is_told_ = moment.has_value();
  if (is_told_) told_ = told_here(*moment);
}

// The start of the hour, the day or the month: "2026-11-15T17:00:00+08:00", "2026-11-15",
// "2026-11".
void record_counts::take_time(count_key key, const parsed_record& record, row_value& value) {
  tell_time(record);
  value = {};
  if (!is_told_) return;
  std::array<char, 64> text;
  told_.print_out(text.data(), static_cast<unsigned>(text.size()));
  value.text = text.data();
  const size_t time = value.text.find('T') + 1;
  if (key != count_key::hour) return value.text.resize(time - (key == count_key::day ? 1 : 4));
  value.text.replace(time + 3, 5, "00:00");
  value.order =
      std::chrono::duration_cast<std::chrono::hours>(told_.to_time_point().time_since_epoch())
          .count();
}

void record_counts::take(count_key key, const parsed_record& record, const event_set& events,
                         row_value& value) {
  switch (key) {
    case count_key::event:
      value.text = shortened(event_name_of(record, events));
      break;
    case count_key::level:
      value.order = record.level.value_or(default_record_level);
      value.text = std::to_string(value.order);
      break;
    case count_key::host:
      value.text = shortened(record.origin.host);
      break;
    case count_key::hour:
    case count_key::day:
    case count_key::month:
      take_time(key, record, value);
      break;
  }
}

void record_counts::add(const parsed_record& record, const event_set& events) {
  for (size_t i = 0; i < keys_.size(); ++i) take(keys_[i], record, events, key_[i]);
  const auto row = counts_.find(key_);
  if (row != counts_.end())
    ++row->second;
  else if (counts_.size() < most_rows)
    counts_.emplace(key_, 1);
  else
    ++rest_;
}

uint64_t record_counts::total() const {
  uint64_t total = rest_;
  for (const auto& [key, count] : counts_) total += count;
  return total;
}

// --- Showing

static constexpr const char* rest_text = "(others)";

std::vector<std::string> record_counts::key_names() const {
  std::vector<std::string> names;
  for (const count_key key : keys_) names.push_back(count_key_names()[static_cast<size_t>(key)]);
  return names;
}

std::string record_counts::table(size_t width) const {
  text_row headings = key_names();
  for (std::string& heading : headings)
    for (char& letter : heading) letter = static_cast<char>(letter - 'a' + 'A');
  std::vector<counted_row> rows;
  for (const auto& [key, count] : counts_) {
    rows.push_back({{}, count});
    for (const row_value& value : key)
      rows.back().cells.push_back(value.text.empty() ? "-" : terminal_text(value.text));
  }
  if (rest_ != 0) rows.push_back({text_row(keys_.size(), rest_text), rest_});
  return bar_table(headings, rows, width);
}

std::string record_counts::json() const {
  using json_value = nlohmann::ordered_json;
  const std::vector<std::string> names = key_names();
  json_value rows = json_value::array();
  for (const auto& [key, count] : counts_) {
    json_value& row = rows.emplace_back();
    for (size_t i = 0; i < names.size(); ++i) {
      const std::string& text = key[i].text;
      if (keys_[i] == count_key::level)
        row[names[i]] = key[i].order;
      else
        row[names[i]] = text.empty() ? json_value() : json_value(text);
    }
    row["count"] = count;
  }
  const json_value object = {{"total", total()}, {"others", rest_}, {"rows", std::move(rows)}};
  return object.dump(2, ' ', true, json_value::error_handler_t::replace) + '\n';
}

std::string record_counts::csv() const {
  text_row headings = key_names();
  headings.emplace_back("count");
  std::string csv = csv_line(headings);
  for (const auto& [key, count] : counts_) {
    text_row fields;
    for (const row_value& value : key) fields.push_back(terminal_text(value.text));
    fields.push_back(std::to_string(count));
    csv += csv_line(fields);
  }
  if (rest_ == 0) return csv;
  text_row fields(keys_.size(), rest_text);
  fields.push_back(std::to_string(rest_));
  return csv + csv_line(fields);
}

std::string record_counts::picture() const {
  std::vector<chart_bar> bars;
  const chart_bar* most = nullptr;
  for (const auto& [key, count] : counts_) {
    std::string name;
    for (const row_value& value : key)
      name += (&value == &key.front() ? "" : ", ") +
              (value.text.empty() ? "-" : terminal_text(value.text));
    bars.push_back({name, count});
  }
  if (rest_ != 0) bars.push_back({rest_text, rest_});
  for (const chart_bar& bar : bars)
    if (most == nullptr || bar.count > most->count) most = &bar;
  std::string title = "Records by";
  for (const std::string& name : key_names()) title += (title.ends_with("by") ? " " : ", ") + name;
  return bar_chart({title, counted(total(), "record"),
                    most == nullptr ? "" : most->name + " with " + entries_text(most->count)},
                   bars);
}

std::string record_counts::shown(count_format format, size_t width) const {
  switch (format) {
    case count_format::table:
      return table(width);
    case count_format::json:
      return json();
    case count_format::csv:
      return csv();
    case count_format::svg:
      return picture();
  }
  return "";
}
