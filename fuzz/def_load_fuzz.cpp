// Loads definition files of any bytes: the input is a length (four bytes, most significant first),
// an STD file of that length (or of all the rest), and, when bytes are left, an AUX file.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "fuzz/memory_file.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "tests/support/definition_errors.h"

// The errors that damaged files may raise end here; any other ends the program.
template <class F>
static void allow_content_errors(F&& f) {
  try {
    f();
  } catch (const KPX_logging_invalid_definition& error) {
    if (!is_definition_content_error(error.what())) std::abort();
  }
}

static void check(const _kp_LOG_log_definition& def, unsigned id) {
  if (def.get_entry_id() != id) std::abort();
  for (unsigned i = 0; i < def.get_n_attributes(); ++i) {
    const char *name = nullptr, *redirection = nullptr;
    unsigned char type = 0;
    def.get_attr_info_by_index(static_cast<unsigned char>(i), name, type, redirection);
    if (def._find_attr_entry_by_name(name) == nullptr) std::abort();
  }
  const _kp_LOG_attribute_entry* const selector = def.get_selector_attribute();
  if (selector != nullptr && def._find_attr_entry_by_name(selector->get_name()) != selector)
    std::abort();
}

static void find(const _kp_LOG_log_definition_tbl& table, unsigned id) {
  allow_content_errors([&] {
    const _kp_LOG_log_definition* const found = table.find_entry(id);
    if (found != nullptr) check(*found, id);
  });
}

// The list as it is published, and what look-ups find, are one.
static void check_globals() {
  const unsigned count = _kp_LOG_log_definition::n_global_attr_entries;
  _kp_LOG_attribute_entry* const* const entries = _kp_LOG_log_definition::p_global_attr_entries;
  if ((entries == nullptr) != (count == 0)) std::abort();
  for (unsigned i = 0; i < count; ++i) {
    const char* name = nullptr;
    unsigned char type = 0;
    _kp_LOG_log_definition::get_global_attr_info_by_index(static_cast<unsigned char>(i), name,
                                                          type);
    if (name != entries[i]->get_name() || type != entries[i]->get_type()) std::abort();
    if (_kp_LOG_log_definition::_find_global_attr_entry_by_name(name) != entries[i]) std::abort();
  }
}

static size_t int4_at(const uint8_t* bytes) {
  return size_t{bytes[0]} << 24 | size_t{bytes[1]} << 16 | size_t{bytes[2]} << 8 | bytes[3];
}

// The IDs of a file's mapping table, as far as it lies in the file.
static void collect_ids(const uint8_t* file, size_t size, std::set<unsigned>& ids) {
  if (size < 128) return;
  const size_t count = int4_at(file + 48), start = int4_at(file + 56);
  for (size_t i = 0; i < count && start + 8 * i + 8 <= size && ids.size() < 500; ++i)
    ids.insert(static_cast<unsigned>(int4_at(file + start + 8 * i)));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const size_t std_size = std::min(int4_at(data), size - 4);
  const uint8_t* const aux_data = data + 4 + std_size;
  const size_t aux_size = size - 4 - std_size;
  const fuzz_memory_file std_file({reinterpret_cast<const char*>(data) + 4, std_size});
  const fuzz_memory_file aux_file({reinterpret_cast<const char*>(aux_data), aux_size});
  _kp_LOG_log_definition_tbl table;
  allow_content_errors(
      [&] { table.set_precompiled_definition_file_path(std_file.path().c_str()); });
  if (aux_size != 0)
    allow_content_errors(
        [&] { table.set_precompiled_aux_definition_file_path(aux_file.path().c_str()); });
  std::set<unsigned> ids = {0, 1, 2, 3};
  collect_ids(data + 4, std_size, ids);
  collect_ids(aux_data, aux_size, ids);
  for (const unsigned id : ids) find(table, id);
  check_globals();
  table.clear();
  _kp_LOG_log_definition::clear_global_attr_info();
  check_globals();
  return 0;
}
