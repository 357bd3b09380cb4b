// Definitions loaded from a file, and the code page, for a scope.
#ifndef TESTS_SUPPORT_LOADED_DEFINITIONS_H
#define TESTS_SUPPORT_LOADED_DEFINITIONS_H

#include <string>
#include <vector>

#include "base/kp_time.h"
#include "kp_LOG_LogConfig.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

// While it lives, the process-wide definitions are those of the file. Settings that a test changes
// meanwhile are put back.
class loaded_definitions {
 public:
  explicit loaded_definitions(const ldf_file& file) { load(file); }

  // Replaces the definitions by another file's.
  void load(const ldf_file& file) const {
    kp_LOG_LogConfig::SetDefinitionPath(folder_.write("std.ldf", file.bytes()).c_str());
  }

 private:
  settings_guard settings_;
  temp_folder folder_;
};

// While it lives, multibyte texts are read and written in that code page.
class code_page_setting {
 public:
  explicit code_page_setting(const char* code_page) : before_(kp_LOG_LogConfig::GetCodePage()) {
    kp_LOG_LogConfig::SetCodePage(code_page);
  }
  ~code_page_setting() { kp_LOG_LogConfig::SetCodePage(before_.c_str()); }
  code_page_setting(const code_page_setting&) = delete;
  code_page_setting& operator=(const code_page_setting&) = delete;

 private:
  std::string before_;
};

// A definition file with the entry types `ids`.
inline std::string written_definitions(const temp_folder& folder, const char* name,
                                       const std::vector<unsigned>& ids) {
  ldf_file file;
  for (const unsigned id : ids) file.entries.push_back({id});
  return folder.write(name, file.bytes());
}

// --- Entries of ldf_with_every_type()

inline std::string name_of_type(int type) {
  return "A" + std::to_string(type);
}

inline std::string overflow_of(const char* name) {
  return std::string(name) + " Attribute value is overflow under Entry ID 17 !";
}

inline kp_Time some_time() {
  return {2026, 11, 15, 17, 2, 56, true};
}

#endif
