// The documentation's pages, for tests that hold them to what there is.
#ifndef TESTS_COMMAND_DOCUMENTATION_PAGE_H
#define TESTS_COMMAND_DOCUMENTATION_PAGE_H

#include <string>

#include "tests/support/temp_folder.h"

// The page, by its path in docs/.
inline std::string documentation_page(const std::string& page) {
  return read_whole_file(std::string(KPLOG_DOCS) + "/" + page);
}

// The lines of the page's first indented block behind the text, without their indentation.
inline std::string page_block(const std::string& page, const std::string& text) {
  const std::string bytes = documentation_page(page);
  std::string block;
  for (size_t at = bytes.find("\n    ", bytes.find(text)) + 1; at < bytes.size();) {
    const size_t end = bytes.find('\n', at);
    const std::string line = bytes.substr(at, end - at);
    if (!line.empty() && !line.starts_with("    ")) break;
    block += (line.empty() ? line : line.substr(4)) + "\n";
    at = end + 1;
  }
  return block;
}

#endif
