#include "recording/records/entry.h"

#include <algorithm>

#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "recording/records/time_text.h"
#include "recording/records/values.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

static record_error fault_at(diagnostic_rule rule, size_t offset, std::string text) {
  return record_error(rule, record_finding{offset, std::move(text)});
}

// ---- events ----

template <class Names, class Of>
static std::string hint_for(std::string_view name, const Names& known, Of name_of) {
  constexpr size_t most = 512;  // more take too long for an error
  if (known.size() > most) return "";
  std::vector<std::string_view> names;
  names.reserve(known.size());
  for (const auto& one : known) names.push_back(name_of(one));
  return nearest_name_hint(name, names);
}

const known_event* find_event(const event_set& events, const record_value& event) {
  if (event.kind == record_value_kind::text) return events.find(event.text);
  const std::optional<uint32_t> id = number_of<uint32_t>(event.text);
  return id ? events.find(*id) : nullptr;
}

static std::string no_event_text(const event_set& events, const record_value& event) {
  std::string text = "no event " + shown_record_value(event);
  if (event.kind != record_value_kind::text) return text;
  if (events.is_ambiguous(event.text))
    return "several events have the name " + in_quotes(shortened(event.text)) + "; give the ID";
  return text + hint_for(event.text, events.events(),
                         [](const known_event& e) { return std::string_view(e.name); });
}

// A name that the definitions know must be the event's.
bool entry_maker::has_own_name(const known_event& event, const record_value& name) {
  const bool is_known = events_.find(name.text) != nullptr || events_.is_ambiguous(name.text);
  if (!is_known || event.name == name.text) return true;
  error_ = fault_at("record-event"_rule, name.offset,
                    "\"name\" is that of another event than " + std::to_string(event.id));
  return false;
}

const known_event* entry_maker::event_of(const parsed_record& record) {
  const known_event* const event = find_event(events_, record.event);
  if (event == nullptr)
    error_ = record_error("record-event"_rule,
                          [&events = events_, told = record.event]() -> record_finding {
                            return {told.offset, no_event_text(events, told)};
                          });
  else if (record.name.has_value() && !has_own_name(*event, *record.name))
    return nullptr;
  return event;
}

// ---- entries ----

// Successive records often have one time, and reading it takes as long as adding several values.
bool entry_maker::read_time(const record_value& told) {
  if (told.text == time_text_ && !time_text_.empty()) return true;
  text_.assign(told.text);
  fraction_ = take_second_fraction(text_);
  if (text_ == time_text_ && !time_text_.empty()) return true;
  time_text_.clear();
  if (text_.find('\0') != std::string::npos || !read_record_time(text_.c_str(), time_)) {
    error_ = fault_at(
        "record-value"_rule, told.offset,
        std::string("\"time\" is ") + record_time_example + ", not " + shown_record_value(told));
    return false;
  }
  time_text_ = text_;
  return true;
}

// The seconds are those of the entry, with its offset.
void entry_maker::take_recorded() {
  if (fraction_.empty() || !made_.origin.recorded.empty()) return;
  constexpr size_t behind_second = sizeof "2026-11-15T17:02:56" - 1;
  recorded_ = record_time_text().of(time_);
  recorded_.insert(behind_second, fraction_);
  made_.origin.recorded = recorded_;
}

bool entry_maker::set_time(const parsed_record& record) {
  if (record.time.has_value() && !read_time(*record.time)) return false;
  const kp_Time time = record.time.has_value() ? time_ : now();
  made_.entry._get_imp().set_timestamp(time, time.is_GMT_time_mode());
  return true;
}

static record_error unknown_attribute(const known_event& event, const record_attribute& attribute) {
  return record_error(
      "record-attribute"_rule,
      [&event, name = attribute.name, offset = attribute.offset]() -> record_finding {
        return {offset, "the event " + std::to_string(event.id) + " has no attribute " +
                            in_quotes(shortened(name)) +
                            hint_for(name, event.attributes, [](const known_attribute& a) {
                              return std::string_view(a.name);
                            })};
      });
}

// Most records tell their attributes in the order of the definitions.
const known_attribute* entry_maker::known(std::string_view attribute) {
  const std::vector<known_attribute>& attributes = made_.event->attributes;
  if (next_ < attributes.size() && attributes[next_].name == attribute) return &attributes[next_++];
  const known_attribute* const found = made_.event->find(attribute);
  if (found != nullptr) next_ = static_cast<size_t>(found - attributes.data()) + 1;
  return found;
}

bool entry_maker::add(const record_attribute& attribute) {
  const known_attribute* const found = known(attribute.name);
  if (found == nullptr) {
    error_ = unknown_attribute(*made_.event, attribute);
    return false;
  }
  const value_step step{made_.entry, *found, attribute.value, text_, error_};
  try {
    add_value(step);
  } catch (const KPX_logging_all& error) {
    step.fail(std::string(": ") + error.what());
  }
  return !error_.has_value();
}

// ---- kplog.lost ----

// The library would keep the zone as attributes, which an entry without a definition cannot hold;
// the time itself it keeps.
static void set_time_of_lost(kp_LOG_LogEntry& entry, const kp_Time& time) {
  try {
    entry._get_imp().set_timestamp(time, time.is_GMT_time_mode());
  } catch (const KPX_logging_misc&) {
  }
}

void make_lost_entry(made_entry& made, uint32_t count, std::string_view reason, unsigned level) {
  made.entry = kp_LOG_LogEntry();
  made.entry.SetLogLevel(level);
  made.event = &lost_event();
  made.message_index = 0;
  made.origin = {};
  made.lost.count = count;
  made.lost.reason = reason;
  set_time_of_lost(made.entry, kp_Time());
}

bool entry_maker::add_to_lost(const record_attribute& attribute) {
  const known_attribute* const known = lost_event().find(attribute.name);
  if (known == nullptr)
    error_ = unknown_attribute(lost_event(), attribute);
  else
    set_lost_value({made_.entry, *known, attribute.value, text_, error_}, made_.lost);
  return !error_.has_value();
}

bool entry_maker::make_lost(const parsed_record& record) {
  make_lost_entry(made_, 0, "", record.level.value_or(default_record_level));
  if (record.time.has_value() && !read_time(*record.time)) return false;
  set_time_of_lost(made_.entry, record.time.has_value() ? time_ : now());
  for (const record_attribute& attribute : record.attributes)
    if (!add_to_lost(attribute)) return false;
  if (record.attributes.size() == lost_event().attributes.size()) return true;
  error_ =
      fault_at("record-attribute"_rule, record.event.offset,
               in_quotes(lost_event().name) + " has the attributes " +
                   in_quotes(lost_count_attribute) + " and " + in_quotes(lost_reason_attribute));
  return false;
}

bool entry_maker::set_header(const parsed_record& record) {
  try {
    made_.entry.SetEntryID(made_.event->id);
    made_.entry.SetLogLevel(record.level.value_or(default_record_level));
    return set_time(record);
  } catch (const KPX_logging_all& error) {
    error_ = fault_at("record-event"_rule, record.event.offset, error.what());
    return false;
  }
}

bool entry_maker::make_entry(const known_event& event, const parsed_record& record) {
  made_.event = &event;
  made_.entry.ClearAttribs();
  next_ = 0;
  return set_header(record) &&
         std::all_of(record.attributes.begin(), record.attributes.end(),
                     [this](const record_attribute& attribute) { return add(attribute); });
}

const made_entry* entry_maker::try_make(const parsed_record& record) {
  error_.reset();
  fraction_.clear();
  const known_event* const event = event_of(record);
  if (event == nullptr) return nullptr;
  const bool is_made = event == &lost_event() ? make_lost(record) : make_entry(*event, record);
  if (!is_made) return nullptr;
  made_.message_index = record.message_index;
  made_.origin = record.origin;
  take_recorded();
  return &made_;
}

const made_entry& entry_maker::make(const parsed_record& record) {
  if (try_make(record) == nullptr) throw record_error(error());
  return made_;
}

// A catalog has no message without an ID, either.
static entry_text rendered(const made_entry& made) {
  try {
    return {kp_LOG_RenderMessage(made.entry, false, made.message_index)};
  } catch (const KPX_logging_missing_resource&) {
  } catch (const KPX_logging_invalid_definition&) {
  }
  return {kp_LOG_RenderDefinitionMessage(made.entry, false, made.message_index), true};
}

entry_text entry_message(const made_entry& made) {
  if (made.is_lost()) return {lost_message(made.lost)};
  try {
    return rendered(made);
  } catch (const KPX_logging_all& error) {
    throw record_error("record-message"_rule, {0, error.what()});
  }
}
