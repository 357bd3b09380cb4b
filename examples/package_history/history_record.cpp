#include "history_record.h"

#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "history_events.h"
#include "logging/logentry_i.h"

using nlohmann::ordered_json;

// Every attribute that an event of the history may have.
constexpr const char* attribute_names[] = {
    history_events::name_PACKAGE, history_events::name_VERSION, history_events::name_OLD_VERSION,
    history_events::name_STATE,   history_events::name_COMMAND, history_events::name_FILE,
    history_events::name_DECISION};

static ordered_json attributes_of(kp_LOG_LogEntry& entry) {
  ordered_json attributes = ordered_json::object();
  for (const char* name : attribute_names) {
    unsigned char number = 0;
    const char* text = nullptr;
    kp_AttributeType type = TypeUnknown;
    if (entry.CheckAttribute(name, type) != 0) continue;
    if (is_integer_attribute(type) && entry.GetAttrib1u(name, number))
      attributes[name] = number;
    else if (entry.GetAttribMBStr(name, text))
      attributes[name] = text;
  }
  return attributes;
}

static std::string time_of(const kp_LOG_LogEntry& entry) {
  char text[32];
  entry.GetAttribTime("TIMESTAMP").print_out(text, std::size(text));
  return text;
}

std::string history_record_of(kp_LOG_LogEntry& entry) {
  const ordered_json record = {{"event", entry._get_imp().get_definition()->get_default_msg_id()},
                               {"level", entry.GetLogLevel()},
                               {"time", time_of(entry)},
                               {"attributes", attributes_of(entry)}};
  try {
    return record.dump();
  } catch (const ordered_json::type_error&) {
    throw std::runtime_error("the line is not UTF-8");
  }
}
