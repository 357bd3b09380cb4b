#include "logging/ldf_load.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "kp_LOG_debug_log.h"
#include "logging/def_read_items.h"
#include "logging/def_read_view.h"
#include "logging/ldf_load_record.h"
#include "logging/log_definition_errors.h"

// What the location table is sized for; KP_recommended_hash_size makes thousands of buckets of it.
static constexpr unsigned location_table_size = 23;

_kp_LOG_log_definition_tbl::_kp_LOG_log_definition_tbl() noexcept = default;

_kp_LOG_log_definition_tbl::~_kp_LOG_log_definition_tbl() {
  clear();
}

void _kp_LOG_log_definition_tbl::_throw_file_io_error() {
  kp_log_raise_unreadable_definition();
}

void _kp_LOG_log_definition_tbl::clear() {
  const kp_LOG_CWriterSentry hold(lock_);
  std_file_.reset();
  aux_file_.reset();
  for (unsigned i = 0; i < n_entry_definitions_cached; ++i) {
    std::exchange(cached_definitions_[i], nullptr)->_unpin();
    cached_ids_[i] = 0;
  }
  n_entry_definitions_cached = 0;
  replacement_ = 0;
  locations_.clear();
  declared_attributes_.clear();
  is_std_set_ = false;
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::clear() \n", kp_ldf_load_source, __LINE__);
}

// ---- setting files ----

void _kp_LOG_log_definition_tbl::set_precompiled_definition_file_path(const char* path) {
  kp_file file(_set_definition_file_path(path, false));
  const kp_LOG_CWriterSentry hold(lock_);
  std_file_ = std::move(file);
}

void _kp_LOG_log_definition_tbl::set_precompiled_aux_definition_file_path(const char* path) {
  _set_definition_file_path(path, true);
}

static kp_file open_definition_file(const char* path) {
  kp_file file(KP_open_regular(path));
  if (file == nullptr)
    kp_log_raise<KPX_logging_invalid_definition>(
        {"<KPX_logging_invalid_definition> Unable to access definition file \"", path, "\"."});
  return file;
}

static void copy_version(char (&version)[16], const _kp_LOG_ldf_header_struct& header) noexcept {
  std::memset(version, 0, sizeof version);
  std::memcpy(version, header.log_version, sizeof header.log_version);
}

void _kp_LOG_log_definition_tbl::load_globals(_kp_LOG_ldf_view& view, unsigned count,
                                              unsigned offset) {
  view.seek(offset);
  for (unsigned i = 0; i < count; ++i) {
    kp_String name, redirection;
    kp_AttributeType type = TypeUnknown;
    if (!kp_ldf_read_attribute(view, name, type, redirection)) kp_ldf_raise_file_error(__LINE__);
    const kp_LOG_CWriterSentry hold(lock_);
    _kp_LOG_log_definition::add_global_attr_info(name.c_str(), static_cast<unsigned char>(type));
  }
}

void _kp_LOG_log_definition_tbl::begin_file(bool is_aux) {
  if (is_aux && !is_std_set_)
    kp_log_raise<KPX_logging_invalid_definition>(
        "<KPX_logging_invalid_definition> user should set STD definition file before set AUX "
        "definition file.");
  if (!is_aux) clear();
  const kp_LOG_CWriterSentry hold(lock_);
  is_std_set_ = true;  // for an AUX file it is already
  if (locations_.bucket_count() == 0) locations_.set_size(location_table_size);
}

void _kp_LOG_log_definition_tbl::keep_version(const _kp_LOG_ldf_header_struct& header,
                                              bool is_aux) noexcept {
  const kp_LOG_CWriterSentry hold(lock_);
  copy_version(is_aux ? aux_version_ : std_version_, header);
}

FILE* _kp_LOG_log_definition_tbl::_set_definition_file_path(const char* path, bool is_aux) {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_set_definition_file_path\n",
                  kp_ldf_load_source, __LINE__);
  begin_file(is_aux);
  kp_file file = open_definition_file(path);
  FILE* const stream = file.get();
  _kp_LOG_ldf_view view(stream);
  _kp_LOG_ldf_header_struct header = {};
  if (!kp_ldf_read_header(view, header)) kp_ldf_raise_file_error(__LINE__);
  keep_version(header, is_aux);
  load_globals(view, header.n_global_attributes, header.global_attributes_offset);
  if (is_aux) {
    const kp_LOG_CWriterSentry hold(lock_);
    aux_file_.reset(file.release());
  }
  load_mapping(view, header.n_entries, header.mapping_offset, is_aux);
  static_cast<void>(file.release());  // now the table's own, or the caller's
  return stream;
}

void _kp_LOG_log_definition_tbl::load_mapping(_kp_LOG_ldf_view& view, unsigned count,
                                              unsigned offset, bool is_aux) {
  view.seek(offset);
  for (unsigned i = 0; i < count; ++i) {
    unsigned id = 0, record_offset = 0;
    if (!kp_ldf_read_mapping(view, id, record_offset)) {
      const kp_LOG_CWriterSentry hold(lock_);
      if (is_aux) aux_file_.reset();
      kp_ldf_raise_file_error(__LINE__);
    }
    load_mapping_record(id, record_offset, is_aux);
  }
}

// The definition that the table had so far is loaded from its former place before it is merged.
void _kp_LOG_log_definition_tbl::load_mapping_record(unsigned id, unsigned offset, bool is_aux) {
  const bool is_merged = acquire_entry(id) && is_aux;
  const kp_LOG_CWriterSentry hold(lock_);
  _kp_LOG_log_definition* known = is_merged ? cached(id) : nullptr;
  // Another thread's look-ups may have reused its place since.
  if (is_merged && known == nullptr) known = load(id);
  set_location(id, {static_cast<unsigned char>(is_aux), offset});
  if (known != nullptr) _retrieve_entry_definition(id, *known, aux_file_.get());
}

void _kp_LOG_log_definition_tbl::set_location(unsigned id,
                                              _kp_LOG_log_definition_file_info_holder location) {
  if (auto* const node = locations_.find(id))
    node->value = location;
  else
    locations_.insert(id, location);
}

static void trace_not_located(int line) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_retrieve_entry_definition return false\n",
                  kp_ldf_load_source, line);
}

static void trace_not_found(int line, unsigned n_cached) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_find_entry_non_const return 0 %d\n",
                  kp_ldf_load_source, line, static_cast<int>(n_cached));
}

bool _kp_LOG_log_definition_tbl::_retrieve_entry_definition(unsigned id,
                                                            _kp_LOG_log_definition& def,
                                                            FILE* merge_file) {
  if (merge_file == nullptr) def.clear_attr_info();
  const auto* const location = locations_.find(id);
  if (location == nullptr) {
    trace_not_located(__LINE__);
    return false;
  }
  const bool is_aux = merge_file != nullptr || location->value.is_aux != 0;
  FILE* const file = (is_aux ? aux_file_ : std_file_).get();
  if (file == nullptr) {
    LogDebugMessage(
        3, "%s:%d _kp_LOG_log_definition_tbl::_retrieve_entry_definition return false pfile=0\n",
        kp_ldf_load_source, __LINE__);
    return false;
  }
  _kp_LOG_ldf_view view(file);
  view.seek(location->value.offset);
  kp_ldf_load_record(view, {is_aux, is_aux ? aux_version_ : std_version_}, id, def);
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_retrieve_entry_definition return true\n",
                  kp_ldf_load_source, __LINE__);
  return true;
}

// ---- finding ----

// IDs that are compared at once.
static constexpr unsigned id_block = 16;
static_assert(_kp_LOG_log_definition_tbl::cache_size % id_block == 0);

// Whether one of `id_block` IDs equals `id`. Written in vectors, because compilers make none of the
// plain loop at every level of optimisation.
static bool block_holds(const unsigned* block, unsigned id) noexcept {
  using four_ids = unsigned __attribute__((vector_size(4 * sizeof(unsigned))));
  four_ids held[id_block / 4];
  std::memcpy(held, block, sizeof held);
  const auto hits = (held[0] == id) | (held[1] == id) | (held[2] == id) | (held[3] == id);
  return (hits[0] | hits[1] | hits[2] | hits[3]) != 0;
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::cached(unsigned id) const noexcept {
  const unsigned n = n_entry_definitions_cached;
  for (unsigned first = 0; first < n; first += id_block) {
    if (!block_holds(cached_ids_ + first, id)) continue;
    const unsigned end = std::min(n, first + id_block);
    for (unsigned i = first; i < end; ++i)
      if (cached_ids_[i] == id) return cached_definitions_[i];
  }
  return nullptr;
}

template <class Result>
Result _kp_LOG_log_definition_tbl::_find_entry_non_const(unsigned id) {
  {
    const kp_LOG_CReaderSentry hold(lock_);
    LogDebugMessage(
        3,
        "%s:%d _kp_LOG_log_definition_tbl::_find_entry_non_const n_entry_definitions_cached:%d\n",
        kp_ldf_load_source, __LINE__, static_cast<int>(n_entry_definitions_cached));
    if (auto* const definition = cached(id)) return Result(definition);
    // Without waiting for the writer side: no file lists the ID.
    if (locations_.find(id) == nullptr) {
      trace_not_located(__LINE__);
      trace_not_found(__LINE__, n_entry_definitions_cached);
      return Result(nullptr);
    }
  }
  const kp_LOG_CWriterSentry hold(lock_);
  if (auto* const definition = cached(id)) return Result(definition);
  return Result(load(id));
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::load(unsigned id) {
  std::unique_ptr<_kp_LOG_log_definition> definition(new (std::nothrow) _kp_LOG_log_definition);
  if (definition == nullptr) kp_log_raise_alloc();
  if (!_retrieve_entry_definition(id, *definition, nullptr)) {
    trace_not_found(__LINE__, n_entry_definitions_cached);
    return nullptr;
  }
  declare_again(id, *definition);
  return keep(definition.release());
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::keep(
    _kp_LOG_log_definition* definition) noexcept {
  definition->_pin();
  unsigned place = n_entry_definitions_cached;
  if (place < cache_size) {
    ++n_entry_definitions_cached;
    LogDebugMessage(
        3, "%s:%d _kp_LOG_log_definition_tbl::_find_entry_non_const return p_entry_definition %d\n",
        kp_ldf_load_source, __LINE__, static_cast<int>(n_entry_definitions_cached));
  } else {
    place = replacement_;
    replacement_ = (replacement_ + 1) % cache_size;
    cached_definitions_[place]->_unpin();
  }
  cached_definitions_[place] = definition;
  cached_ids_[place] = definition->get_entry_id();
  return definition;
}

_kp_LOG_log_definition* _kp_LOG_log_definition_tbl::find_entry(unsigned id) const {
  auto* const self = const_cast<_kp_LOG_log_definition_tbl*>(this);
  return self->_find_entry_non_const<_kp_LOG_log_definition*>(id);
}

_kp_LOG_definition_ref _kp_LOG_log_definition_tbl::acquire_entry(unsigned id) const {
  auto* const self = const_cast<_kp_LOG_log_definition_tbl*>(this);
  return self->_find_entry_non_const<_kp_LOG_definition_ref>(id);
}

// ---- declaring attributes ----

bool _kp_LOG_log_definition_tbl::declare_attribute(unsigned id, const char* name,
                                                   unsigned char type, bool& found) {
  for (;;) {
    const _kp_LOG_definition_ref entry = acquire_entry(id);
    found = static_cast<bool>(entry);
    if (!found) return false;
    const kp_LOG_CWriterSentry hold(lock_);
    // Its place may have been reused since it was found; then it is no longer the one to change.
    _kp_LOG_log_definition* const current = cached(id);
    if (current != entry.get()) continue;
    if (current->get_attr_info_by_name(name) != nullptr) return false;
    declare(id, name, type, *current);
    return true;
  }
}

// Whatever fails, fails before the declaration is kept; keeping it moves it.
void _kp_LOG_log_definition_tbl::declare(unsigned id, const char* name, unsigned char type,
                                         _kp_LOG_log_definition& definition) {
  std::multimap<unsigned, _kp_LOG_declared_attribute> declared;
  kp_log_no_bad_alloc([&] {
    declared.emplace(id, _kp_LOG_declared_attribute{kp_String(name), type});
  });
  definition.add_attr_info(name, type, false, nullptr);
  declared_attributes_.merge(declared);
}

// A name that the global list took up since is declared again all the same: the entry type's own
// declaration came first and comes first in every look-up.
void _kp_LOG_log_definition_tbl::declare_again(unsigned id,
                                               _kp_LOG_log_definition& definition) const {
  const auto [first, last] = declared_attributes_.equal_range(id);
  for (auto it = first; it != last; ++it) {
    const auto& [name, type] = it->second;
    if (definition._find_attr_entry_by_name(name.c_str()) == nullptr)
      definition.add_attr_info(name.c_str(), type, false, nullptr);
  }
}
