#include "tools/find/forms.h"

#include <algorithm>
#include <stdexcept>

#include "logging/logentry_i.h"
#include "recording/records/values.h"
#include "recording/text/escape.h"
#include "recording/text/json_text.h"
#include "recording/text/line_writer.h"
#include "tools/find/event_name.h"

const std::vector<std::string>& record_format_names() {
  static const std::vector<std::string> names = {"text", "log", "json", "csv", "table"};
  return names;
}

record_format record_format_of(const std::string& name) {
  const std::vector<std::string>& names = record_format_names();
  return static_cast<record_format>(std::find(names.begin(), names.end(), name) - names.begin());
}

// Of a table's column of events. Longer names push what stands behind them.
static constexpr size_t widest_event = 32;
static constexpr size_t narrowest_event = sizeof "EVENT" - 1;
static constexpr size_t time_width = sizeof "2026-11-15T17:02:56+08:00" - 1;

size_t event_column_width(const event_set& events) {
  size_t width = narrowest_event;
  for (const known_event& event : events.events())
    width = std::max(width, terminal_width(terminal_text(event.name)));
  return std::min(width, widest_event);
}

static const std::string& code_page_for(record_format format, const std::string& code_page) {
  if (format == record_format::json && !code_page.empty() && code_page != "UTF-8")
    throw std::invalid_argument("JSON is in UTF-8; leave --codepage out");
  return code_page;
}

record_form::record_form(record_format format, const event_set& events,
                         const std::string& code_page, size_t event_width, bool has_colors)
    : format_(format),
      events_(events),
      has_colors_(has_colors),
      code_page_(code_page_for(format, code_page)),
      event_width_(event_width),
      stored_(events.version()) {}

// --- What the forms have in common ---

static unsigned level_of(const parsed_record& record) {
  return record.level.value_or(default_record_level);
}

// As the record tells it, whatever that is; of an entry the same for all.
std::string record_form::time_of(const viewed_record& viewed) {
  if (viewed.made != nullptr)
    return std::string(time_text_.of(viewed.made->entry.GetAttribTime("TIMESTAMP")));
  return viewed.record.time ? std::string(viewed.record.time->text) : "-";
}

static std::string_view level_color(unsigned level) {
  if (level < 2) return "\x1b[31m";
  if (level == 2) return "\x1b[33m";
  return level < 6 ? "" : "\x1b[2m";
}

void record_form::append_level(const viewed_record& viewed) {
  const unsigned level = level_of(viewed.record);
  const std::string_view color = has_colors_ ? level_color(level) : "";
  line_.append(color).append(std::to_string(level)).append(color.empty() ? "" : "\x1b[0m");
}

static std::string id_of(const viewed_record& viewed, const event_set& events) {
  const record_value& told = viewed.record.event;
  if (const known_event* const event = find_event(events, told)) return std::to_string(event->id);
  return told.kind == record_value_kind::integer ? std::string(told.text) : "";
}

void record_form::end_line(std::string& lines) {
  code_page_.append(lines, line_);
  lines += '\n';
  line_.clear();
}

static void pad(std::string& line, size_t from, size_t width) {
  const size_t used = terminal_width(std::string_view(line).substr(from));
  line.append(used < width ? width - used : 0, ' ');
}

// --- Texts ---

void record_form::append_text(const viewed_record& viewed) {
  append_log_text(line_, viewed.text);
}

void record_form::append_log(const viewed_record& viewed) {
  append_log_text(line_, time_of(viewed) + " ");
  append_level(viewed);
  append_log_text(line_, " " + event_name_of(viewed.record, events_) + " ");
  append_log_text(line_, viewed.text);
}

void record_form::append_table(const viewed_record& viewed) {
  line_ += terminal_text(time_of(viewed));
  pad(line_, 0, time_width);
  line_ += "  ";
  append_level(viewed);
  line_ += "      ";
  const size_t event_start = line_.size();
  line_ += terminal_text(event_name_of(viewed.record, events_));
  pad(line_, event_start, event_width_);
  line_ += "  " + terminal_text(viewed.text);
}

// --- CSV ---

// Appends one more cell, in quotes where they are needed.
void record_form::append_cell(std::string_view text) {
  if (!line_.empty()) line_ += ',';
  std::string cell;
  append_log_text(cell, text);
  const bool is_bare =
      cell.find_first_of(",\"") == cell.npos && !cell.starts_with(' ') && !cell.ends_with(' ');
  if (is_bare) {
    line_ += cell;
    return;
  }
  line_ += '"';
  for (const char c : cell) line_.append(c == '"' ? 2 : 1, c);
  line_ += '"';
}

static void append_value(json_text& json, std::string_view key, const record_value& value) {
  json.key(key);
  if (value.kind == record_value_kind::text)
    json.text(value.text);
  else
    json.written(value.text);
}

static void append_attributes(json_text& json, const parsed_record& record) {
  json.begin_object();
  for (const record_attribute& attribute : record.attributes)
    append_value(json, attribute.name, attribute.value);
  json.end_object();
}

void record_form::append_csv(const viewed_record& viewed) {
  std::string attributes;
  json_text json(attributes);
  append_attributes(json, viewed.record);
  append_cell(time_of(viewed));
  append_cell(std::to_string(level_of(viewed.record)));
  append_cell(id_of(viewed, events_));
  append_cell(event_name_of(viewed.record, events_));
  append_cell(viewed.text);
  append_cell(attributes);
}

// --- JSON ---

void record_form::append_marked_json(const viewed_record& viewed) {
  const parsed_record& record = viewed.record;
  json_text json(line_);
  json.begin_object();
  append_value(json, "event", record.event);
  if (record.name) append_value(json, "name", *record.name);
  json.key("level").number(level_of(record));
  if (record.time) append_value(json, "time", *record.time);
  line_writer origin;
  origin_text_.append(origin, record.origin);
  line_ += origin.text();
  json.key("attributes");
  append_attributes(json, record);
  json.key("message_index").number(record.message_index);
  if (record.message) append_value(json, "message", *record.message);
  json.end_object();
}

void record_form::append_json(const viewed_record& viewed) {
  if (viewed.made == nullptr) return append_marked_json(viewed);
  stored_.append(line_, {*viewed.made, viewed.text, viewed.made->entry.GetAttribTime("TIMESTAMP"),
                         viewed.is_message_from_definition});
}

// --- The whole ---

void record_form::append_heading(std::string& lines) {
  if (format_ == record_format::csv) {
    line_ = "time,level,id,event,message,attributes";
    end_line(lines);
  }
  if (format_ != record_format::table) return;
  line_ = "TIME";
  pad(line_, 0, time_width);
  line_ += "  LEVEL  EVENT";
  line_.append(event_width_ - narrowest_event, ' ');
  line_ += "  MESSAGE";
  end_line(lines);
}

void record_form::append(std::string& lines, const viewed_record& viewed) {
  switch (format_) {
    case record_format::text:
      append_text(viewed);
      break;
    case record_format::log:
      append_log(viewed);
      break;
    case record_format::json:
      append_json(viewed);
      break;
    case record_format::csv:
      append_csv(viewed);
      break;
    case record_format::table:
      append_table(viewed);
      break;
  }
  end_line(lines);
}
