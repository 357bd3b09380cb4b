// The definition table: entry definitions loaded on demand from the STD and AUX definition files.
#ifndef KP_LOG_LDF_LOAD_H
#define KP_LOG_LDF_LOAD_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>

#include "base/kp_clib.h"
#include "base/kp_lock.h"
#include "base/kp_nocopy.h"
#include "base/kp_string.h"
#include "logging/hash_tbl.h"
#include "logging/log_definition.h"

class _kp_LOG_ldf_view;
struct _kp_LOG_ldf_header_struct;

// Where an entry type's record lies.
struct _kp_LOG_log_definition_file_info_holder {
  unsigned char is_aux;  // not 0: in the AUX file
  unsigned offset;       // absolute, in bytes
};

// An attribute that the program declared for an entry type, beside those of its record.
struct _kp_LOG_declared_attribute {
  kp_String name;
  unsigned char type;  // a kp_AttributeType, or 25
};

// Setting a file reads its header, global attributes and mapping table; an entry type's record is
// read when it is first asked for, and the definition is kept in a cache of 128. An AUX file adds
// entry types to the STD file's and merges those that both hold. Files stay open as long as they
// are set, and are read through views of their own, so that a child process may go on loading
// beside its parent. Global attributes of successive files accumulate; clear() leaves them alone.
//
// A definition that loses its place in the cache is held on to. When it is asked for again, and is
// as it was read, and its file has not changed since, and no entry uses it, it comes back into the
// cache as if its record had been read again, without the writer side. Definitions outside the
// cache are let go when the records of all together take more than about 32 MiB of memory.
//
// find_entry, acquire_entry and declare_attribute may be called by any number of threads. The
// operations that set files and clear are called under the process-wide lock, one at a time; the
// others go on meanwhile, and find what was there before or what is there behind them. Setting an
// STD file replaces everything in one step, when the new file has been read: an entry type that
// both files have is found throughout.
//
// Errors, all KPX_logging_invalid_definition with "<KPX_logging_invalid_definition> " and:
// - "user should set STD definition file before set AUX definition file."
// - "Unable to access definition file \"PATH\"."
//   the file cannot be opened, or is not regular
// - "Unable to access definition file successfully."
//   a read in it failed
// - "The definition file is corrupted."
//   a record is not the one it should be, or holds more than 255 items of a kind; or the mapping
//   records of an AUX file name records within each other, or again and again by turns, so that
//   merging them would handle more than 16 times the bytes of both files
// - "selector_attribute name conflict."
//   AUX against STD
// - "attribute NAME already exist."
//   AUX against STD, or twice in a record
// - "selector message index in AUX definition file conflict with STD definition"
// and KPX_memory_alloc.
class KP_API _kp_LOG_log_definition_tbl : kp_UTIL_no_inadvertant_copies {
 public:
  static constexpr unsigned cache_size = 128;

  _kp_LOG_log_definition_tbl() noexcept;
  ~_kp_LOG_log_definition_tbl();

  // Sets the STD file; forgets both files and all definitions first. After a failure no file is
  // set, but an AUX file may be.
  void set_precompiled_definition_file_path(const char* path);
  // Sets the AUX file, after an STD file, and merges it into every entry type that both hold. After
  // a failure the former AUX file is still set when the header or the global attributes could not
  // be read, none when a mapping record could not, and the new one otherwise; definitions merged so
  // far stay merged.
  void set_precompiled_aux_definition_file_path(const char* path);

  // The definition of that entry type, null when neither file has it. Valid until its place in the
  // cache is reused (128 further entry types loaded) or the table is cleared.
  // A merged definition that is loaded again holds the AUX record's content alone, and the
  // attributes that were declared for it.
  _kp_LOG_log_definition* find_entry(unsigned id) const;
  // The same, shared: it stays valid as long as the reference lives.
  _kp_LOG_definition_ref acquire_entry(unsigned id) const;

  // Declares an attribute of an entry type, unless its definition or the global list has the name
  // already. True when it is declared now. `found` says whether the table knows the entry type.
  // Every entry of the type has it then, also one whose definition has left the cache or the table.
  // The declaration lasts until the table is cleared: a definition that is loaded again gets it
  // again, unless its record declares the name itself.
  // Raises what find_entry and _kp_LOG_log_definition::add_attr_info raise, and declares nothing
  // then.
  bool declare_attribute(unsigned id, const char* name, unsigned char type, bool& found);

  // Forgets both files, the cache, all locations and all declared attributes.
  void clear();

  // Loads a file's header, global attributes and mapping table; for AUX also merges it, and keeps
  // the stream. Returns the stream: the table's own for AUX, the caller's to close for STD (the
  // table then has no STD file).
  FILE* _set_definition_file_path(const char* path, bool is_aux);
  // Reads the entry record into `def`: afresh, or merging the AUX record into it when `merge_file`
  // is not null. False when the table does not know the ID or its file is not open.
  bool _retrieve_entry_definition(unsigned id, _kp_LOG_log_definition& def, FILE* merge_file);
  [[noreturn]] void _throw_file_io_error();

  unsigned n_entry_definitions_cached = 0;  // filled places of the cache, 0 to 128

 private:
  // Where a record lies, and its definition. The table pins that, and holds on to it when it loses
  // its place in the cache, so that it can come back without being read again.
  struct located_record {
    explicit located_record(_kp_LOG_log_definition_file_info_holder its_place) noexcept
        : where(its_place) {}
    // Of one that has no definition yet.
    located_record(located_record&& other) noexcept : where(other.where) {}

    _kp_LOG_log_definition_file_info_holder where;
    std::atomic<bool> is_cached{false};
    unsigned generation = 0;  // of the files when it was read; 0: does not come back
    _kp_LOG_log_definition* definition = nullptr;  // null: not read yet, or let go
    uint64_t bytes = 0;                            // of memory, about
  };
  using location_table = kp_MISC_hash_tbl<unsigned, located_record>;
  // A file when a record was last read from it.
  struct file_state {
    uint64_t size = 0;
    timespec changed_at = {};
    bool is_trusted = false;  // another change would show
  };
  // What is known behind the reading of a record.
  struct record_read {
    bool is_repeatable = false;  // reading it again into the same definition changes nothing
    unsigned generation = 0;
    uint64_t bytes = 0;
  };
  struct std_load;   // what setting an STD file makes, beside the table
  struct aux_merge;  // what setting an AUX file remembers

  template <class Result>
  Result _find_entry_non_const(unsigned id);
  template <class Result>
  Result find_as_writer(unsigned id);
  _kp_LOG_log_definition* find_or_load(unsigned id) KP_REQUIRES(lock_);
  _kp_LOG_log_definition* find_nothing() const noexcept KP_REQUIRES_SHARED(lock_);
  _kp_LOG_log_definition* cached(unsigned id) const noexcept KP_REQUIRES_SHARED(lock_);
  _kp_LOG_log_definition* held(located_record& location) noexcept KP_REQUIRES_SHARED(lock_);
  bool may_come_back(const located_record& location) const noexcept KP_REQUIRES_SHARED(lock_);
  _kp_LOG_log_definition* brought_back(located_record& location) noexcept KP_REQUIRES_SHARED(lock_);
  void replace_next(located_record& location) noexcept KP_REQUIRES_SHARED(lock_);
  void give_place(located_record& location) noexcept KP_REQUIRES(lock_);
  // Null where no file lists the ID.
  located_record* location_of(unsigned id) const noexcept KP_REQUIRES_SHARED(lock_) {
    auto* const node = locations_ != nullptr ? locations_->find(id) : nullptr;
    return node != nullptr ? &node->value : nullptr;
  }
  FILE* file_of(bool is_aux) const noexcept { return (is_aux ? aux_file_ : std_file_).get(); }
  bool is_file_unchanged(bool is_aux) const noexcept KP_REQUIRES_SHARED(lock_);
  unsigned generation_of(bool is_aux, const _kp_LOG_ldf_view& view);
  _kp_LOG_log_definition* load(unsigned id) KP_REQUIRES(lock_);
  bool retrieve(unsigned id, _kp_LOG_log_definition& def, bool is_merge,
                record_read& read) KP_NO_THREAD_SAFETY_ANALYSIS;
  void declare(unsigned id, const char* name, unsigned char type,
               _kp_LOG_log_definition& definition) KP_REQUIRES(lock_);
  void declare_again(unsigned id, _kp_LOG_log_definition& definition) const
      KP_REQUIRES_SHARED(lock_);
  _kp_LOG_log_definition* hold_definition(located_record& location,
                                          _kp_LOG_log_definition* definition,
                                          const record_read& read) noexcept KP_REQUIRES(lock_);
  void let_go(located_record& location) noexcept KP_REQUIRES(lock_);
  void let_go_uncached() noexcept KP_REQUIRES(lock_);
  void forget_dead() noexcept KP_REQUIRES(lock_);
  void forget() noexcept KP_REQUIRES(lock_);

  kp_file load_std(const char* path, bool keeps_file);
  static void set_location(location_table& locations, unsigned id,
                           _kp_LOG_log_definition_file_info_holder where);
  void read_std(const char* path, std_load& loaded);
  void install(std_load& loaded, bool keeps_file) noexcept;

  FILE* load_aux(const char* path);
  void begin_aux();
  void take_aux_file(aux_merge& merge) noexcept KP_REQUIRES(lock_);
  void bound(aux_merge& merge, const _kp_LOG_ldf_view& aux) const;
  void merge_file(_kp_LOG_ldf_view& view, unsigned count, aux_merge& merge);
  void merge_file_at_once(_kp_LOG_ldf_view& view, unsigned count, aux_merge& merge);
  void merge_record(unsigned id, unsigned offset, aux_merge& merge) KP_REQUIRES(lock_);
  bool merge_into(unsigned id, _kp_LOG_log_definition& known) KP_REQUIRES(lock_);

  bool is_std_set_ = false;  // an STD file was set since the last clear, or tried to be
  // From entry ID to record, and to the definition where it is held; null before the first file.
  std::unique_ptr<location_table> locations_;
  // The cache: what has a place in it, and whose place is reused next once it is full (modulo its
  // size). With the reader side, places change hands one by one.
  std::atomic<located_record*> places_[cache_size] = {};
  std::atomic<unsigned> replacement_{0};
  // Goes up when what was read so far does not come back any more.
  unsigned generation_ = 1;
  file_state file_states_[2];  // of the STD and the AUX file
  // About the memory of the definitions that are held; those outside the cache are let go when it
  // is more than the most, which grows with what is in the cache.
  static constexpr uint64_t usual_most_bytes_held = 32 << 20;
  uint64_t bytes_held_ = 0;
  uint64_t most_bytes_held_ = usual_most_bytes_held;
  // By entry ID, those of one in the order in which they were declared. Every cached definition has
  // them.
  std::multimap<unsigned, _kp_LOG_declared_attribute> declared_attributes_;
  // Definitions that were let go while entries used them, each pinned, linked by next_living_.
  // Those that died since are found out when there are twice as many as there were living ones.
  _kp_LOG_log_definition* living_ = nullptr;
  unsigned n_living_ = 0;
  unsigned most_living_ = 16;
  kp_file std_file_;
  kp_file aux_file_;
  uint64_t bytes_read_ = 0;  // of records so far
  mutable kp_LOG_CRWLock lock_;
  char std_version_[16] = {};  // log version text of each file
  char aux_version_[16] = {};
};

#endif
