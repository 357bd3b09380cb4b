// Message catalogs for tests, built with genrb from texts.
#ifndef TESTS_SUPPORT_CATALOG_FOLDER_H
#define TESTS_SUPPORT_CATALOG_FOLDER_H

#include <map>
#include <string>

#include "tests/support/temp_folder.h"

// A folder of compiled ICU resource bundles, to hand to SetMessageCatalogPath.
class catalog_folder {
 public:
  // Adds the bundle of one locale ("root", "de", "ja", ...) with a table "STRING_TABLE" of message
  // ID to template (UTF-8).
  void add_locale(const std::string& locale, const std::map<std::string, std::string>& templates);
  // Adds a bundle from a genrb source as it stands.
  void add_source(const std::string& locale, const std::string& source);
  std::string path() const { return folder_.path(); }

 private:
  temp_folder folder_;
};

#endif
