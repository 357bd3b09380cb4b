// The definition table: entry definitions loaded on demand from the STD and AUX definition files.
#ifndef KP_LOG_LDF_LOAD_H
#define KP_LOG_LDF_LOAD_H

#include <cstdio>

#include "base/kp_lock.h"
#include "base/kp_nocopy.h"
#include "logging/hash_tbl.h"
#include "logging/log_definition.h"

// Where an entry type's record lies.
struct _kp_LOG_log_definition_file_info_holder {
  unsigned char is_aux;  // not 0: in the AUX file
  unsigned offset;       // absolute, in bytes
};

// Setting a file reads its header, global attributes and mapping table; an entry type's record is
// read when it is first asked for, and the definition is kept in a cache of 128. An AUX file adds
// entry types to the STD file's and merges those that both hold.
//
// find_entry and acquire_entry may be called by any number of threads. The other operations are
// called under the process-wide lock, while no other thread makes entries.
//
// Errors, all KPX_logging_invalid_definition with "<KPX_logging_invalid_definition> " and:
//   "user should set STD definition file before set AUX definition file."
//   "Unable to access definition file \"PATH\"."         the file cannot be opened
//   "Unable to access definition file successfully."    a seek or read in it failed
//   "The definition file is corrupted."                 a record is not the one it should be
//   "selector_attribute name conflict."                 AUX against STD
//   "attribute NAME already exist."                     AUX against STD
//   "selector message index in AUX definition file conflict with STD definition"
// and KPX_memory_alloc.
class KP_API _kp_LOG_log_definition_tbl : kp_UTIL_no_inadvertant_copies {
 public:
  static constexpr unsigned cache_size = 128;

  _kp_LOG_log_definition_tbl();
  ~_kp_LOG_log_definition_tbl();

  // Sets the STD file; forgets both files and all definitions first.
  void set_precompiled_definition_file_path(const char* path);
  // Sets the AUX file, after an STD file, and merges it.
  void set_precompiled_aux_definition_file_path(const char* path);

  // The definition of that entry type, null when neither file has it. Valid until its place in the
  // cache is reused (128 further entry types loaded) or the table is cleared.
  // A merged definition that is loaded again holds the AUX record's content alone.
  _kp_LOG_log_definition* find_entry(unsigned id) const;
  // The same, shared: it stays valid as long as the reference lives.
  _kp_LOG_definition_ref acquire_entry(unsigned id) const;

  // Declares an attribute of an entry type that is loaded or can be loaded, unless it or the global
  // list has the name already (false). Null entry types give false and `found` false.
  bool declare_attribute(unsigned id, const char* name, unsigned char type, bool& found);

  // Forgets both files, the cache and all locations.
  void clear();

  FILE* _set_definition_file_path(const char* path, bool is_aux);
  // Reads the entry record into `def`: afresh, or merging the AUX record into it when `merge_file` is
  // not null. False when the table does not know the ID or its file is not open.
  bool _retrieve_entry_definition(unsigned id, _kp_LOG_log_definition& def, FILE* merge_file);
  [[noreturn]] void _throw_file_io_error();

  unsigned n_entry_definitions_cached = 0;  // filled places of the cache, 0 to 128
};

#endif
