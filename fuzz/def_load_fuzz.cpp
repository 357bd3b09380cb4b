// Loads definition files of any bytes: the input is a length (four bytes, most significant first),
// an STD file of that length (or of all the rest), and, when bytes are left, an AUX file.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"

// A file in memory, with a path to open it by.
class def_load_memory_file {
 public:
  def_load_memory_file(const uint8_t* bytes, size_t size)
      : descriptor_(memfd_create("definitions", MFD_CLOEXEC)) {
    if (write(descriptor_, bytes, size) != static_cast<ssize_t>(size)) std::abort();
  }
  def_load_memory_file(const def_load_memory_file&) = delete;
  def_load_memory_file& operator=(const def_load_memory_file&) = delete;
  ~def_load_memory_file() { close(descriptor_); }

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

// The one class of errors that damaged files may raise ends here; any other ends the program.
template <class F>
static void allow_invalid_definition(F&& f) {
  try {
    f();
  } catch (const KPX_logging_invalid_definition&) {
    return;
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
  allow_invalid_definition([&] {
    const _kp_LOG_log_definition* const found = table.find_entry(id);
    if (found != nullptr) check(*found, id);
  });
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const size_t wanted =
      size_t{data[0]} << 24 | size_t{data[1]} << 16 | size_t{data[2]} << 8 | data[3];
  const size_t std_size = std::min(wanted, size - 4);
  const def_load_memory_file std_file(data + 4, std_size);
  const def_load_memory_file aux_file(data + 4 + std_size, size - 4 - std_size);
  _kp_LOG_log_definition_tbl table;
  allow_invalid_definition(
      [&] { table.set_precompiled_definition_file_path(std_file.path().c_str()); });
  if (size - 4 > std_size)
    allow_invalid_definition(
        [&] { table.set_precompiled_aux_definition_file_path(aux_file.path().c_str()); });
  for (unsigned id = 0; id < 20; ++id) find(table, id);
  table.clear();
  _kp_LOG_log_definition::clear_global_attr_info();
  return 0;
}
