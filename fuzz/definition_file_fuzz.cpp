// Any bytes as a compiled file for the tools: checking and dumping it always end, a file that the
// check has nothing against is loaded by the library, and a dump without faults compiles to the
// file, or, where only the layout is another, to one with the same dump.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/memory_file.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "logging/log_definition.h"
#include "recording/definitions/compiled_file.h"
#include "tools/compiled/verify.h"
#include "tools/compiled/writer.h"
#include "tools/dump/tables.h"
#include "tools/dump/yaml.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

static void require(bool holds) {
  if (!holds) std::abort();
}

// Whether the library takes the file and each of its entries.
static bool library_loads(const definition_file& file) {
  const fuzz_memory_file memory(file.source.bytes());
  _kp_LOG_log_definition_tbl table;
  bool good = true;
  try {
    table.set_precompiled_definition_file_path(memory.path().c_str());
    for (const event_model& event : file.set.events)
      good = table.find_entry(event.id.value) != nullptr && good;
  } catch (const KPX_logging_invalid_definition&) {
    good = false;
  }
  table.clear();
  _kp_LOG_log_definition::clear_global_attr_info();
  return good;
}

// The bytes that a dump compiles to; it was made without errors.
static std::string compiled(const std::string& yaml) {
  const text_file source("dump.yaml", yaml);
  definition_set set;
  diagnostic_list found;
  read_definition_source(source, set, found);
  set.may_be_auxiliary = true;
  complete_definition_set(set, found);
  require(found.count(rule_severity::error) == 0);
  return definition_file_bytes(set);
}

static std::string dumped_again(const std::string& bytes) {
  definition_file file("again.ldf", bytes);
  diagnostic_list found;
  require(read_definition_file(file, found));
  return definition_yaml(file, found);
}

static void check_dump(definition_file& file) {
  require(!definition_json(file).empty() && !definition_overview(file).empty());
  diagnostic_list found;
  const std::string yaml = definition_yaml(file, found);
  require(!yaml.empty());
  if (!file.set.is_whole || found.count(rule_severity::error) != 0) return;
  const std::string bytes = compiled(yaml);
  if (found.empty()) require(bytes == file.source.bytes());
  require(dumped_again(bytes) == yaml);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  definition_file file("fuzz.ldf", std::string(reinterpret_cast<const char*>(data), size));
  diagnostic_list found;
  read_definition_file(file, found);
  verify_definition_file(file, nullptr, found);
  if (found.count(rule_severity::error) == 0) require(library_loads(file));
  if (file.header.magic == kp_ldf_magic) check_dump(file);
  return 0;
}
