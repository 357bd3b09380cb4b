// A folder with a source and translations, in which kplog catalog is run.
#ifndef TESTS_COMMAND_CATALOG_FIXTURE_H
#define TESTS_COMMAND_CATALOG_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "tests/command/command_run.h"
#include "tests/support/temp_folder.h"

inline std::string source_with(const std::string& events) {
  return "kplog: 1\nlog_version: \"1.0\"\nevents:\n" + events;
}

inline constexpr const char* greeting_source =
    "kplog: 1\nlog_version: \"1.0\"\nevents:\n"
    "  GREETED: {id: 1, attributes: {NAME: MBChar64}, message: \"Hello {NAME}\"}\n";

// A message as a translator leaves it.
inline std::string translation(const std::string& context, const std::string& id,
                               const std::string& text, const std::string& before = "") {
  return "\n" + before + "msgctxt \"" + context + "\"\nmsgid \"" + id + "\"\nmsgstr \"" + text +
         "\"\n";
}

inline std::string po_file(const std::string& locale, const std::string& messages) {
  return "msgid \"\"\nmsgstr \"\"\n\"Language: " + locale +
         "\\n\"\n\"Content-Type: text/plain; charset=UTF-8\\n\"\n" + messages;
}

// A folder with the greeting's source and a file of German translations.
class CatalogFolder : public testing::Test {
 protected:
  void write(const std::string& source, const std::string& messages) {
    folder.write("s.yaml", source);
    folder.write("de.po", po_file("de", messages));
  }
  command_result run(const std::string& arguments) {
    return run_kplog(folder.path(), "catalog " + arguments);
  }
  // What merge makes of the file.
  std::string merged() {
    const auto merge = run("merge s.yaml --po de.po");
    EXPECT_EQ(merge.status, 0) << merge.err;
    return read_whole_file(folder.file("de.po"));
  }

  temp_folder folder;
};

#endif
