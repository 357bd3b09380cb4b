#include <algorithm>
#include <string_view>

#include "recording/text/escape.h"
#include "tools/catalog/po.h"

// Texts of several lines begin with an empty line, as translators' tools write them.
static void add_string(std::string& file, const std::string& before, std::string_view text) {
  file += before;
  const bool has_lines = text.find('\n') < text.size() - 1 && !text.empty();
  if (!has_lines) {
    file += po_quoted(text) + "\n";
    return;
  }
  file += "\"\"\n";
  const std::string continued = before.starts_with("#~") ? "#~ " : "";
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    file += continued + po_quoted(text.substr(0, end)) + "\n";
    text.remove_prefix(end);
  }
}

static void add_lines(std::string& file, const char* mark, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    file += mark;
    if (!line.empty()) (file += ' ') += line;
    file += '\n';
  }
}

static void add_flags(std::string& file, const std::vector<std::string>& flags) {
  if (flags.empty()) return;
  file += "#";
  for (const std::string& flag : flags) file += ", " + flag;
  file += "\n";
}

static void add_entry(std::string& file, const po_entry& entry) {
  const std::string mark = entry.is_obsolete ? "#~ " : "";
  if (!file.empty()) file += "\n";
  add_lines(file, "#", entry.comments);
  add_lines(file, "#.", entry.extracted);
  add_lines(file, "#:", entry.references);
  add_flags(file, entry.flags);
  if (!entry.is_obsolete) add_lines(file, "#|", entry.previous);
  if (entry.context.is_given) add_string(file, mark + "msgctxt ", entry.context.text);
  add_string(file, mark + "msgid ", entry.id.text);
  add_string(file, mark + "msgstr ", entry.translation.text);
}

std::string po_text(const po_document& document) {
  std::string file;
  if (document.header.translation.is_given) add_entry(file, document.header);
  for (const po_entry& entry : document.entries) add_entry(file, entry);
  return file;
}
