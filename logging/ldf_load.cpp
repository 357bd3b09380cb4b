#include "logging/ldf_load.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kp_LOG_debug_log.h"
#include "logging/def_read_items.h"
#include "logging/def_read_view.h"
#include "logging/ldf_load_record.h"
#include "logging/ldf_load_trace.h"
#include "logging/log_definition_globals.h"
#include "logging/raise.h"

// What the location table is sized for; KP_recommended_hash_size makes thousands of buckets of it.
static constexpr unsigned location_table_size = 23;

_kp_LOG_log_definition_tbl::_kp_LOG_log_definition_tbl() noexcept = default;

_kp_LOG_log_definition_tbl::~_kp_LOG_log_definition_tbl() {
  clear();
  const kp_LOG_CWriterSentry hold(lock_);
  while (living_ != nullptr) std::exchange(living_, living_->next_living_)->_unpin();
}

void _kp_LOG_log_definition_tbl::_throw_file_io_error() {
  kp_log_raise_unreadable_definition();
}

static void trace_clear(int line) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::clear() \n", kp_ldf_load_source, line);
}

void _kp_LOG_log_definition_tbl::clear() {
  const kp_LOG_CWriterSentry hold(lock_);
  forget();
  std_file_.reset();
  aux_file_.reset();
  if (locations_ != nullptr) locations_->clear();
  is_std_set_ = false;
  trace_clear(__LINE__);
}

// The definitions, and what was declared for them.
void _kp_LOG_log_definition_tbl::forget() noexcept {
  for (unsigned i = 0; i < n_entry_definitions_cached; ++i)
    places_[i].load(std::memory_order_relaxed)->is_cached.store(false, std::memory_order_relaxed);
  n_entry_definitions_cached = 0;
  replacement_.store(0, std::memory_order_relaxed);
  let_go_uncached();
  most_bytes_held_ = usual_most_bytes_held;
  declared_attributes_.clear();
}

static void trace_set(int line) noexcept {
  LogDebugMessage(3, "%s:%d _kp_LOG_log_definition_tbl::_set_definition_file_path\n",
                  kp_ldf_load_source, line);
}

// ---- reading files ----

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

static void read_globals(_kp_LOG_ldf_view& view, const _kp_LOG_ldf_header_struct& header,
                         _kp_LOG_global_change& globals) {
  view.seek(header.global_attributes_offset);
  for (unsigned i = 0; i < header.n_global_attributes; ++i) {
    kp_String name, redirection;
    kp_AttributeType type = TypeUnknown;
    if (!kp_ldf_read_attribute(view, name, type, redirection)) kp_ldf_raise_file_error(__LINE__);
    globals.add(name.c_str(), static_cast<unsigned char>(type));
  }
}

// All of them in one step, also where a later one cannot be had.
static void load_globals(_kp_LOG_ldf_view& view, const _kp_LOG_ldf_header_struct& header) {
  if (header.n_global_attributes == 0) return;
  _kp_LOG_global_change globals;
  try {
    read_globals(view, header, globals);
  } catch (...) {
    globals.publish_what_can_be();
    throw;
  }
  globals.publish();
}

// What was read from the former place is not brought back.
void _kp_LOG_log_definition_tbl::set_location(location_table& locations, unsigned id,
                                              _kp_LOG_log_definition_file_info_holder where) {
  if (auto* const node = locations.find(id)) {
    node->value.where = where;
    node->value.generation = 0;
  } else {
    locations.insert(id, located_record(where));
  }
}

// ---- setting an STD file ----

struct _kp_LOG_log_definition_tbl::std_load {
  std::unique_ptr<location_table> locations;
  char version[16] = {};
  bool has_version = false;
  kp_file file;
};

void _kp_LOG_log_definition_tbl::set_precompiled_definition_file_path(const char* path) {
  load_std(path, true);
}

// Whatever fails, the table ends with what could be read, and without a file.
kp_file _kp_LOG_log_definition_tbl::load_std(const char* path, bool keeps_file) {
  trace_set(__LINE__);
  trace_clear(__LINE__);
  std_load loaded;
  try {
    read_std(path, loaded);
  } catch (...) {
    install(loaded, false);
    throw;
  }
  install(loaded, keeps_file);
  return std::move(loaded.file);
}

// Each mapping record is looked up first, as in any file. The lines tell so; what it would find is
// known, because the table that this one makes has no definitions and no file as yet.
void _kp_LOG_log_definition_tbl::read_std(const char* path, std_load& loaded) {
  kp_log_no_bad_alloc([&] { loaded.locations = std::make_unique<location_table>(); });
  loaded.locations->set_size(location_table_size);
  loaded.file = open_definition_file(path);
  _kp_LOG_ldf_view view(loaded.file.get());
  _kp_LOG_ldf_header_struct header = {};
  if (!kp_ldf_read_header(view, header)) kp_ldf_raise_file_error(__LINE__);
  copy_version(loaded.version, header);
  loaded.has_version = true;
  load_globals(view, header);
  view.seek(header.mapping_offset);
  for (unsigned i = 0; i < header.n_entries; ++i) {
    unsigned id = 0, offset = 0;
    if (!kp_ldf_read_mapping(view, id, offset)) kp_ldf_raise_file_error(__LINE__);
    kp_ldf_trace_look_up(__LINE__, 0);
    if (loaded.locations->find(id) != nullptr)
      kp_ldf_trace_no_file(__LINE__);
    else
      kp_ldf_trace_not_located(__LINE__);
    kp_ldf_trace_not_found(__LINE__, 0);
    set_location(*loaded.locations, id, {0, offset});
  }
}

// In one step. What the table held before is given back behind it.
void _kp_LOG_log_definition_tbl::install(std_load& loaded, bool keeps_file) noexcept {
  kp_file aux_before, std_before;
  const kp_LOG_CWriterSentry hold(lock_);
  forget();
  is_std_set_ = true;
  aux_before = std::move(aux_file_);
  std_before = std::move(std_file_);
  if (keeps_file) std_file_ = std::move(loaded.file);
  locations_.swap(loaded.locations);
  if (loaded.has_version) std::memcpy(std_version_, loaded.version, sizeof std_version_);
}

// ---- setting an AUX file ----

struct _kp_LOG_log_definition_tbl::aux_merge {
  kp_file file;  // until the table has it
  // Which record was merged last, and whether merging it again would change nothing.
  struct last_merge {
    unsigned offset;
    bool is_repeatable;
  };
  std::unordered_map<unsigned, last_merge> merged;  // by entry ID
  uint64_t bytes_left = 0;                          // that may still be handled

  bool would_change_nothing(unsigned id, unsigned offset) const {
    const auto last = merged.find(id);
    return last != merged.end() && last->second.is_repeatable && last->second.offset == offset;
  }
  void charge(uint64_t bytes) {
    if (bytes > bytes_left) kp_log_raise_corrupted_definition();
    bytes_left -= bytes;
  }
};

// Files whose records lie one behind the other, each named once, have each byte read once. A file
// that has the same bytes read again and again is refused before it takes the program's time.
void _kp_LOG_log_definition_tbl::bound(aux_merge& merge, const _kp_LOG_ldf_view& aux) const {
  constexpr uint64_t times = 16;
  const uint64_t std_size = std_file_ != nullptr ? _kp_LOG_ldf_view(std_file_.get()).size() : 0;
  merge.bytes_left = times * (std_size + aux.size());
}

void _kp_LOG_log_definition_tbl::set_precompiled_aux_definition_file_path(const char* path) {
  load_aux(path);
}

void _kp_LOG_log_definition_tbl::begin_aux() {
  if (!is_std_set_)
    kp_log_raise<KPX_logging_invalid_definition>(
        "<KPX_logging_invalid_definition> user should set STD definition file before set AUX "
        "definition file.");
  const kp_LOG_CWriterSentry hold(lock_);
  if (locations_ == nullptr)
    kp_log_no_bad_alloc([&] { locations_ = std::make_unique<location_table>(); });
  if (locations_->bucket_count() == 0) locations_->set_size(location_table_size);
}

FILE* _kp_LOG_log_definition_tbl::load_aux(const char* path) {
  trace_set(__LINE__);
  begin_aux();
  aux_merge merge;
  merge.file = open_definition_file(path);
  FILE* const stream = merge.file.get();
  _kp_LOG_ldf_view view(stream);
  _kp_LOG_ldf_header_struct header = {};
  if (!kp_ldf_read_header(view, header)) kp_ldf_raise_file_error(__LINE__);
  {
    const kp_LOG_CWriterSentry hold(lock_);
    copy_version(aux_version_, header);
    ++generation_;
  }
  load_globals(view, header);
  bound(merge, view);
  view.seek(header.mapping_offset);
  if (aux_file_ == nullptr)
    merge_file(view, header.n_entries, merge);
  else
    merge_file_at_once(view, header.n_entries, merge);
  return stream;
}

// What was read of the former one is not brought back.
void _kp_LOG_log_definition_tbl::take_aux_file(aux_merge& merge) noexcept {
  aux_file_ = std::move(merge.file);
  ++generation_;
}

// Record by record: until it is that record's turn, every entry type is found as before.
void _kp_LOG_log_definition_tbl::merge_file(_kp_LOG_ldf_view& view, unsigned count,
                                            aux_merge& merge) {
  {
    const kp_LOG_CWriterSentry hold(lock_);
    take_aux_file(merge);
  }
  for (unsigned i = 0; i < count; ++i) {
    unsigned id = 0, offset = 0;
    const bool is_read = kp_ldf_read_mapping(view, id, offset);
    const kp_LOG_CWriterSentry hold(lock_);
    if (!is_read) {
      aux_file_.reset();
      kp_ldf_raise_file_error(__LINE__);
    }
    merge_record(id, offset, merge);
  }
}

// The places of a former AUX file's records mean nothing in the new one: nobody looks up between
// the exchange of the files and the end.
void _kp_LOG_log_definition_tbl::merge_file_at_once(_kp_LOG_ldf_view& view, unsigned count,
                                                    aux_merge& merge) {
  const kp_LOG_CWriterSentry hold(lock_);
  take_aux_file(merge);
  for (unsigned i = 0; i < count; ++i) {
    unsigned id = 0, offset = 0;
    if (!kp_ldf_read_mapping(view, id, offset)) {
      aux_file_.reset();
      kp_ldf_raise_file_error(__LINE__);
    }
    merge_record(id, offset, merge);
  }
}

// The definition that the table had so far is loaded from its former place before it is merged.
void _kp_LOG_log_definition_tbl::merge_record(unsigned id, unsigned offset, aux_merge& merge) {
  const uint64_t read_before = bytes_read_;
  _kp_LOG_log_definition* const known = find_or_load(id);
  set_location(*locations_, id, {1, offset});
  if (known == nullptr) return;
  if (merge.would_change_nothing(id, offset)) {
    kp_ldf_trace_retrieved(__LINE__);
  } else {
    // One that is in use is copied for each merge; the first one goes without saying.
    if (known->_is_shared() && merge.merged.contains(id)) merge.charge(known->bytes());
    const bool is_repeatable = merge_into(id, *known);
    kp_log_no_bad_alloc([&] {
      merge.merged.insert_or_assign(id, aux_merge::last_merge{offset, is_repeatable});
    });
  }
  merge.charge(bytes_read_ - read_before);
}

// Whether merging the same again would change nothing. A definition that nobody else uses is
// changed itself, any other one gets its new content when that is complete; what was merged before
// an error stays in both cases.
bool _kp_LOG_log_definition_tbl::merge_into(unsigned id, _kp_LOG_log_definition& known) {
  record_read read;
  if (!known._is_shared()) {
    retrieve(id, known, true, read);
    return read.is_repeatable;
  }
  std::unique_ptr<_kp_LOG_log_definition> changed = known.copy();
  try {
    retrieve(id, *changed, true, read);
  } catch (...) {
    known.replace_content(std::move(changed));
    throw;
  }
  known.replace_content(std::move(changed));
  return read.is_repeatable;
}

FILE* _kp_LOG_log_definition_tbl::_set_definition_file_path(const char* path, bool is_aux) {
  return is_aux ? load_aux(path) : load_std(path, false).release();
}

// ---- reading a record ----

bool _kp_LOG_log_definition_tbl::_retrieve_entry_definition(unsigned id,
                                                            _kp_LOG_log_definition& def,
                                                            FILE* merge_file) {
  record_read read;
  return retrieve(id, def, merge_file != nullptr, read);
}

// Called with the writer side, and by whoever has a table for itself.
bool _kp_LOG_log_definition_tbl::retrieve(unsigned id, _kp_LOG_log_definition& def, bool is_merge,
                                          record_read& read) {
  if (!is_merge) def.clear_attr_info();
  const located_record* const location = location_of(id);
  if (location == nullptr) {
    kp_ldf_trace_not_located(__LINE__);
    return false;
  }
  const bool is_aux = is_merge || location->where.is_aux != 0;
  FILE* const file = file_of(is_aux);
  if (file == nullptr) {
    kp_ldf_trace_no_file(__LINE__);
    return false;
  }
  _kp_LOG_ldf_view view(file);
  view.seek(location->where.offset);
  read.generation = generation_of(is_aux, view);
  read.is_repeatable =
      kp_ldf_load_record(view, {is_aux, is_aux ? aux_version_ : std_version_}, id, def);
  read.bytes = view.position() - location->where.offset;
  bytes_read_ += read.bytes;
  kp_ldf_trace_retrieved(__LINE__);
  return true;
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

// A definition and the attribute that it is to get.
struct pending_attribute {
  _kp_LOG_log_definition* definition;
  std::unique_ptr<_kp_LOG_attribute_entry> attribute;
};

// Makes the attribute, and room for it. Raises KPX_memory_alloc.
static pending_attribute prepare(_kp_LOG_log_definition& definition, const char* name,
                                 unsigned char type) {
  definition.reserve_attributes(1);
  return {&definition, std::make_unique<_kp_LOG_attribute_entry>(name, nullptr, type)};
}

// Whatever fails, fails before the declaration is kept; keeping it moves it. The definitions that
// only entries still use get the attribute as well, where they have room and no such name.
void _kp_LOG_log_definition_tbl::declare(unsigned id, const char* name, unsigned char type,
                                         _kp_LOG_log_definition& definition) {
  std::multimap<unsigned, _kp_LOG_declared_attribute> declared;
  std::vector<pending_attribute> pending;
  forget_dead();
  kp_log_no_bad_alloc([&] {
    declared.emplace(id, _kp_LOG_declared_attribute{kp_String(name), type});
    pending.push_back(prepare(definition, name, type));
    for (_kp_LOG_log_definition* at = living_; at != nullptr; at = at->next_living_)
      if (at->get_entry_id() == id && at->get_n_attributes() < kp_ldf_max_count &&
          at->_find_attr_entry_by_name(name) == nullptr)
        pending.push_back(prepare(*at, name, type));
  });
  for (pending_attribute& next : pending) {
    const bool was_changed = next.definition->was_changed_;
    next.definition->add_attr_info(std::move(next.attribute), false);
    next.definition->was_changed_ = was_changed;  // declared again, it would be the same
  }
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
