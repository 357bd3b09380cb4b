#include "tools/compare/report.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

using change_json = nlohmann::ordered_json;

static std::string class_names(unsigned breaks) {
  std::string names;
  for (const change_class_row& row : change_classes)
    if ((breaks & row.bit) != 0) names += (names.empty() ? "" : ", ") + std::string(row.name);
  return names;
}

changes_summary::changes_summary(const std::vector<judged_change>& changes)
    : count(changes.size()) {
  for (const judged_change& judged : changes) {
    if (judged.is_accepted()) ++accepted;
    for (size_t i = 0; i < breaking.size(); ++i)
      if ((judged.breaks() & change_classes[i].bit) != 0) ++breaking[i];
  }
}

std::string changes_summary::text() const {
  std::string breaks;
  for (size_t i = 0; i < breaking.size(); ++i)
    if (breaking[i] != 0)
      breaks += (breaks.empty() ? "; " : ", ") + std::to_string(breaking[i]) +
                (breaking[i] == 1 ? " breaks " : " break ") + change_classes[i].name;
  return counted(count, "difference") + breaks +
         (accepted == 0 ? "" : "; " + std::to_string(accepted) + " accepted");
}

// --- for people

static const text_place& main_place(const definition_change& change) {
  return change.now.source != nullptr ? change.now : change.before;
}

// The colors of what people read; all empty without color.
struct change_colors {
  const char* heading = "";
  const char* breaking = "";
  const char* before = "";
  const char* now = "";
  const char* end = "";
};

static constexpr change_colors no_change_colors;
static constexpr change_colors terminal_change_colors = {"\x1b[1m", "\x1b[1;31m", "\x1b[31m",
                                                         "\x1b[32m", "\x1b[0m"};

static std::string place_text(const text_place& place) {
  if (place.source == nullptr) return "";
  const std::string name = terminal_text(place.source->name()) + ":";
  if (place.source->is_binary())
    return name + "0x" + hexadecimal(static_cast<uint32_t>(place.offset()), 1) + ": ";
  return name + std::to_string(place.line() + 1) + ":" + std::to_string(place.column()) + ": ";
}

static std::string heading(const event_pair& event) {
  const event_model* const shown = event.now != nullptr ? event.now : event.before;
  if (shown == nullptr) return "the set";
  return terminal_text(shown->name.value) + ", ID " + std::to_string(shown->id.value);
}

static std::string judgement(const judged_change& judged) {
  if (judged.is_accepted()) return " (accepted: " + terminal_text(judged.accepted) + ")";
  return judged.breaks() == breaks_nobody ? "" : " (breaks " + class_names(judged.breaks()) + ")";
}

static void write_text(std::ostream& out, const char* color, const char* sign,
                       const std::string& text, const change_colors& colors) {
  if (!text.empty()) out << color << sign << terminal_text(text) << colors.end << '\n';
}

static void write_change(std::ostream& out, const judged_change& judged,
                         const change_colors& colors) {
  const definition_change& change = judged.change;
  const bool is_breaking = judged.breaks() != breaks_nobody;
  out << "  " << place_text(main_place(change)) << (is_breaking ? colors.breaking : "")
      << change.rule->code << (is_breaking ? colors.end : "") << ": " << terminal_text(change.text)
      << judgement(judged) << '\n';
  write_text(out, colors.before, "    - ", change.before_text, colors);
  write_text(out, colors.now, "    + ", change.now_text, colors);
}

void write_changes_text(std::ostream& out, const std::vector<judged_change>& changes, bool color) {
  const change_colors& colors = color ? terminal_change_colors : no_change_colors;
  const event_pair* current = nullptr;
  for (const judged_change& judged : changes) {
    const event_pair& event = judged.change.event;
    const bool is_same =
        current != nullptr && current->before == event.before && current->now == event.now;
    if (!is_same) out << colors.heading << heading(event) << colors.end << '\n';
    current = &event;
    write_change(out, judged, colors);
  }
}

// --- for programs

static change_json json_place(const text_place& place, const std::string& text) {
  change_json object = change_json::object();
  if (place.source == nullptr) return nullptr;
  object["file"] = place.source->name();
  if (place.source->is_binary()) {
    object["offset"] = place.offset();
  } else {
    object["line"] = place.line() + 1;
    object["column"] = place.column();
  }
  if (!text.empty()) object["text"] = text;
  return object;
}

static change_json json_change(const judged_change& judged) {
  const definition_change& change = judged.change;
  const event_model* const event =
      change.event.now != nullptr ? change.event.now : change.event.before;
  change_json object;
  object["code"] = change.rule->code;
  object["breaks"] = change_json::array();
  for (const change_class_row& row : change_classes)
    if ((judged.breaks() & row.bit) != 0) object["breaks"].push_back(row.name);
  if (event != nullptr) {
    object["event"] = event->name.value;
    object["id"] = event->id.value;
  }
  object["text"] = change.text;
  object["accept"] = std::string(change.rule->code) + "/" + change.names.front();
  object["before"] = json_place(change.before, change.before_text);
  object["now"] = json_place(change.now, change.now_text);
  if (judged.is_accepted()) object["accepted"] = judged.accepted;
  return object;
}

void write_changes_json(std::ostream& out, const std::vector<judged_change>& changes) {
  const changes_summary summary(changes);
  change_json object;
  object["differences"] = change_json::array();
  for (const judged_change& judged : changes) object["differences"].push_back(json_change(judged));
  for (size_t i = 0; i < change_classes.size(); ++i)
    object["breaks"][change_classes[i].name] = summary.breaking[i];
  out << object.dump(2, ' ', true, change_json::error_handler_t::replace) << '\n';
}
