#include "tests/support/catalog_folder.h"

#include <cstdlib>
#include <stdexcept>

static std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + '"';
}

void catalog_folder::add_locale(const std::string& locale,
                                const std::map<std::string, std::string>& templates) {
  std::string source = locale + " {\n  STRING_TABLE {\n";
  for (const auto& [id, text] : templates)
    source += "    " + quoted(id) + " { " + quoted(text) + " }\n";
  add_source(locale, source + "  }\n}\n");
}

void catalog_folder::add_source(const std::string& locale, const std::string& source) {
  const std::string path = folder_.write(locale + ".txt", source);
  const std::string command =
      "genrb -q -e UTF-8 -d '" + folder_.path() + "' '" + path + "' >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) throw std::runtime_error("genrb failed for " + path);
}
