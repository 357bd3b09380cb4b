// The errors that the content of a definition file may raise.
#ifndef TESTS_SUPPORT_DEFINITION_ERRORS_H
#define TESTS_SUPPORT_DEFINITION_ERRORS_H

#include <set>
#include <string>

// Whether `error` is the whole text of an error of a definition file that could be opened.
inline bool is_definition_content_error(const std::string& error) {
  static const std::set<std::string> fixed_errors = {
      "<KPX_logging_invalid_definition> Unable to access definition file successfully.",
      "<KPX_logging_invalid_definition> The definition file is corrupted.",
      "<KPX_logging_invalid_definition> selector_attribute name conflict.",
      "<KPX_logging_invalid_definition> selector message index in AUX definition file conflict "
      "with STD definition"};
  static const std::string first = "<KPX_logging_invalid_definition> attribute ",
                           last = " already exist.";
  if (fixed_errors.count(error) != 0) return true;
  return error.rfind(first, 0) == 0 && error.size() >= first.size() + last.size() &&
         error.compare(error.size() - last.size(), last.size(), last) == 0;
}

#endif
