#include "tools/dump/overview.h"

#include <vector>

#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

static std::string globals_table(const std::vector<attribute_model>& globals) {
  std::vector<text_row> rows = {{"GLOBAL ATTRIBUTE", "TYPE"}};
  for (const attribute_model& global : globals)
    rows.push_back({terminal_text(global.name.value), short_type_name(global.type)});
  return "\n" + in_columns(rows);
}

static text_row event_row(const event_model& event, const file_extent& record) {
  return {std::to_string(event.id.value),
          terminal_text(event.name.value),
          "0x" + hexadecimal(event.flags, 8),
          "0x" + hexadecimal(static_cast<uint32_t>(record.begin), 8),
          std::to_string(record.size()),
          std::to_string(event.attributes.size()),
          std::to_string(event.messages.size()),
          terminal_text(event.message.raw.value)};
}

static std::string events_table(const definition_file& file) {
  std::vector<text_row> rows = {
      {"ID", "EVENT", "FLAGS", "OFFSET", "SIZE", "ATTRIBUTES", "SELECTED", "MESSAGE"}};
  for (size_t i = 0; i < file.set.events.size(); ++i)
    rows.push_back(event_row(file.set.events[i], file.records[i]));
  return "\n" + in_columns(rows);
}

std::string definition_overview(const definition_file& file) {
  std::string text = "log version " + terminal_text(file.set.log_version.value) + ", " +
                     counted(file.set.events.size(), "event") + ", " +
                     counted(file.set.globals.size(), "global attribute") + ", " +
                     counted(file.source.bytes().size(), "byte") + "\n";
  if (!file.set.globals.empty()) text += globals_table(file.set.globals);
  if (!file.set.events.empty()) text += events_table(file);
  return text;
}
