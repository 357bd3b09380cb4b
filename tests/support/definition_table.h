// A definition table with a folder for its files, and what its tests compare.
#ifndef TESTS_SUPPORT_DEFINITION_TABLE_H
#define TESTS_SUPPORT_DEFINITION_TABLE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "logging/ldf_load.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/raised.h"
#include "tests/support/temp_folder.h"

// A table, a folder for its files, and no global attributes before and after.
class DefinitionTable : public testing::Test {
 protected:
  DefinitionTable() { _kp_LOG_log_definition::clear_global_attr_info(); }
  ~DefinitionTable() override { _kp_LOG_log_definition::clear_global_attr_info(); }

  std::string write(const char* name, const std::string& bytes) const {
    return folder_.write(name, bytes);
  }
  void set_std(const ldf_file& file) { set_std_bytes(file.bytes()); }
  void set_std_bytes(const std::string& bytes) {
    table_.set_precompiled_definition_file_path(write("std.ldf", bytes).c_str());
  }
  void set_aux(const ldf_file& file) { set_aux_bytes(file.bytes()); }
  void set_aux_bytes(const std::string& bytes) {
    table_.set_precompiled_aux_definition_file_path(write("aux.ldf", bytes).c_str());
  }
  std::string std_error(const std::string& bytes) {
    return raised<KPX_logging_invalid_definition>([&] { set_std_bytes(bytes); });
  }
  std::string aux_error(const ldf_file& file) {
    return raised<KPX_logging_invalid_definition>([&] { set_aux(file); });
  }
  std::string set_aux_error(const std::string& path) {
    return raised<KPX_logging_invalid_definition>(
        [&] { table_.set_precompiled_aux_definition_file_path(path.c_str()); });
  }
  void expect_corrupted(const std::string& aux_bytes) {
    EXPECT_EQ(raised<KPX_logging_invalid_definition>([&] { set_aux_bytes(aux_bytes); }),
              "<KPX_logging_invalid_definition> The definition file is corrupted.");
  }
  std::string find_error(unsigned id) {
    return raised<KPX_logging_invalid_definition>([&] { table_.find_entry(id); });
  }

  temp_folder folder_;
  _kp_LOG_log_definition_tbl table_;
};

inline std::string definition_error(const char* message) {
  return std::string("<KPX_logging_invalid_definition> ") + message;
}

inline constexpr char file_error[] = "Unable to access definition file successfully.";
inline constexpr char corrupted[] = "The definition file is corrupted.";

inline ldf_file file_of(std::vector<ldf_entry> entries) {
  ldf_file file;
  file.entries = std::move(entries);
  return file;
}

// Entries first, first + 1, ..., each with one attribute "N" followed by its ID.
inline ldf_file file_of_ids(unsigned first, unsigned count) {
  ldf_file file;
  for (unsigned id = first; id < first + count; ++id)
    file.entries.push_back(
        {.id = id, .msg_text = "STD", .attributes = {{"N" + std::to_string(id), 6}}});
  return file;
}

inline std::vector<std::string> attribute_names(const _kp_LOG_log_definition& def) {
  std::vector<std::string> names;
  for (unsigned i = 0; i < def.get_n_attributes(); ++i) {
    const char *name = nullptr, *redirection = nullptr;
    unsigned char type = 0;
    def.get_attr_info_by_index(static_cast<unsigned char>(i), name, type, redirection);
    names.emplace_back(name);
  }
  return names;
}

// `bytes` with the int4 at `offset` replaced.
inline std::string with_int4(std::string bytes, size_t offset, unsigned value) {
  return bytes.replace(offset, 4, ldf_int4(value));
}

inline constexpr size_t n_globals_field = 40, globals_offset_field = 44, n_entries_field = 48,
                        mapping_offset_field = 56;

// An AUX file of one entry.
inline ldf_file aux_of(ldf_entry entry) {
  ldf_file file{.log_version = "3.0"};
  file.entries.push_back(std::move(entry));
  return file;
}

#endif
