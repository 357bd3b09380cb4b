#include "tools/definition_overview.h"

#include <algorithm>
#include <vector>

#include "tools/command_options.h"
#include "tools/terminal_text.h"

using overview_row = std::vector<std::string>;

// Rows in columns as wide as their widest cell; the last column is as wide as it is.
static std::string in_columns(const std::vector<overview_row>& rows) {
  std::vector<size_t> widths(rows.front().size());
  for (const overview_row& row : rows)
    for (size_t i = 0; i + 1 < row.size(); ++i)
      widths[i] = std::max(widths[i], terminal_width(row[i]));
  std::string table;
  for (const overview_row& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - terminal_width(row[i]) + 2, ' ');
    }
    table += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }
  return table;
}

static std::string globals_table(const std::vector<attribute_model>& globals) {
  std::vector<overview_row> rows = {{"GLOBAL ATTRIBUTE", "TYPE"}};
  for (const attribute_model& global : globals)
    rows.push_back({terminal_text(global.name.value), short_type_name(global.type)});
  return "\n" + in_columns(rows);
}

static overview_row event_row(const event_model& event, const file_extent& record) {
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
  std::vector<overview_row> rows = {
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
