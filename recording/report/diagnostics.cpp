#include "recording/report/diagnostics.h"

#include <algorithm>
#include <ostream>
#include <tuple>

#include "recording/text/escape.h"
#include "recording/text/json_text.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"

// Bytes of a line that are shown before and behind the caret, in as many cells at most; longer
// lines are cut.
static constexpr size_t excerpt_before = 120;
static constexpr size_t excerpt_behind = 80;
static constexpr size_t excerpt_bytes = 16;  // of a file that is no text

// The colors of a headline's pieces; all empty without color.
struct headline_colors {
  const char* place = "";
  const char* error = "";
  const char* warning = "";
  const char* note = "";
  const char* caret = "";
  const char* end = "";
};

static constexpr headline_colors no_colors;
static constexpr headline_colors terminal_colors = {"\x1b[1m",    "\x1b[1;31m", "\x1b[1;35m",
                                                    "\x1b[1;36m", "\x1b[1;32m", "\x1b[0m"};

static bool is_within_character(std::string_view text, size_t at) {
  return at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// No character takes more than four bytes.
static size_t character_start(std::string_view text, size_t at) {
  for (int steps = 0; steps < 3 && is_within_character(text, at); ++steps) --at;
  return at;
}

// As much of the text's beginning, or of its end, as is shown in that many cells.
static std::string_view first_cells(std::string_view text, size_t cells) {
  while (terminal_width(terminal_text(text)) > cells)
    text = text.substr(0, character_start(text, text.size() - 1));
  return text;
}

static std::string_view last_cells(std::string_view text, size_t cells) {
  while (terminal_width(terminal_text(text)) > cells)
    text.remove_prefix(utf8_at(text, 0).bytes.size());
  return text;
}

// The first bytes at the place, in hexadecimal and as characters.
static void write_bytes_excerpt(std::ostream& out, const text_place& place) {
  const std::string_view bytes = place.source->bytes().substr(place.offset(), excerpt_bytes);
  if (bytes.empty()) return;
  std::string characters;
  out << ' ';
  for (const char byte : bytes) {
    out << ' ' << hexadecimal(static_cast<unsigned char>(byte), 2);
    characters += byte >= ' ' && byte <= '~' ? byte : '.';
  }
  out << "  " << characters << '\n';
}

static void write_excerpt(std::ostream& out, const text_place& place,
                          const headline_colors& colors) {
  if (place.source->is_binary()) return write_bytes_excerpt(out, place);
  const std::string_view line = place.source->line(place.line());
  if (line.empty()) return;
  const size_t at = std::min(place.byte(), line.size());
  const size_t from = at > excerpt_before ? character_start(line, at - excerpt_before) : 0;
  const size_t to = character_start(line, std::min(line.size(), at + excerpt_behind));
  const std::string before =
      terminal_text(last_cells(line.substr(from, at - from), excerpt_before));
  out << before << terminal_text(first_cells(line.substr(at, to - at), excerpt_behind)) << '\n'
      << std::string(terminal_width(before), ' ') << colors.caret << '^' << colors.end << '\n';
}

static void write_place(std::ostream& out, const text_place& place, const headline_colors& colors) {
  out << colors.place << terminal_text(place.source->name()) << ':';
  if (place.source->is_binary())
    out << "0x" << hexadecimal(static_cast<uint32_t>(place.offset()), 1);
  else
    out << place.line() + 1 << ':' << place.column();
  out << ": " << colors.end;
}

static const char* severity_name(rule_severity severity) {
  return severity == rule_severity::error ? "error" : "warning";
}

static void write_text(std::ostream& out, const diagnostic& found, rule_severity severity,
                       const headline_colors& colors) {
  if (found.place.source->is_unopened()) {
    out << "kplog: " << terminal_text(found.text) << '\n';
    return;
  }
  write_place(out, found.place, colors);
  out << (severity == rule_severity::error ? colors.error : colors.warning)
      << severity_name(severity) << '[' << found.rule->code << "]: " << colors.end
      << terminal_text(found.text) << '\n';
  write_excerpt(out, found.place, colors);
  for (const diagnostic_note& note : found.notes) {
    write_place(out, note.place, colors);
    out << colors.note << "note: " << colors.end << terminal_text(note.text) << '\n';
    write_excerpt(out, note.place, colors);
  }
}

static void append_place(json_text& json, const text_place& place) {
  json.key("file").text(place.source->name());
  if (place.source->is_binary())
    json.key("offset").number(place.offset());
  else if (!place.source->is_unopened())
    json.key("line").number(place.line() + 1).key("column").number(place.column());
}

static void write_json(std::ostream& out, const diagnostic& found, rule_severity severity) {
  std::string line;
  json_text json(line);
  append_place(json.begin_object(), found.place);
  json.key("severity").text(severity_name(severity)).key("code").text(found.rule->code);
  json.key("text").text(found.text).key("notes").begin_list();
  for (const diagnostic_note& note : found.notes) {
    append_place(json.begin_object(), note.place);
    json.key("text").text(note.text).end_object();
  }
  json.end_list().end_object();
  out << line << '\n';
}

rule_severity diagnostic_list::severity_of(diagnostic_rule rule) const {
  const auto set = std::find_if(severities_.rbegin(), severities_.rend(),
                                [&](const auto& one) { return one.first == rule; });
  return set == severities_.rend() ? rule->severity : set->second;
}

size_t diagnostic_list::count(rule_severity severity) const {
  return static_cast<size_t>(
      std::count_if(found_.begin(), found_.end(),
                    [&](const diagnostic& found) { return severity_of(found.rule) == severity; }));
}

bool diagnostic_list::has(diagnostic_rule rule) const {
  return std::any_of(found_.begin(), found_.end(),
                     [&](const diagnostic& found) { return found.rule == rule; });
}

void diagnostic_list::write(std::ostream& out, const std::vector<const text_file*>& sources,
                            diagnostic_format format, bool color) const {
  write_first(found_.size(), out, sources, format, color);
}

size_t diagnostic_list::write_first(size_t limit, std::ostream& out,
                                    const std::vector<const text_file*>& sources,
                                    diagnostic_format format, bool color) const {
  const auto order = [&](const diagnostic* found) {
    const auto source = std::find(sources.begin(), sources.end(), found->place.source);
    return std::make_tuple(source, found->place.at);
  };
  std::vector<const diagnostic*> sorted;
  for (const diagnostic& found : found_) sorted.push_back(&found);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&](const auto* a, const auto* b) { return order(a) < order(b); });
  const size_t left = sorted.size() - std::min(limit, sorted.size());
  sorted.resize(sorted.size() - left);
  for (const diagnostic* found : sorted) {
    if (format == diagnostic_format::json)
      write_json(out, *found, severity_of(found->rule));
    else
      write_text(out, *found, severity_of(found->rule), color ? terminal_colors : no_colors);
    out.flush();
  }
  return left;
}
