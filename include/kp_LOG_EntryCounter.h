// _kp_LOG_EntryCounter: how many entries of each kind were logged on each day, kept in a file.
#ifndef KP_LOG_ENTRYCOUNTER_H
#define KP_LOG_ENTRYCOUNTER_H

#include <cstdint>
#include <cstdio>

#include "base/kp_export.h"
#include "base/kp_nocopy.h"
#include "base/kp_string.h"

class kp_Time;

// One record of a counter file, in the order of the file's fields (docs/counter-file.md) and in the
// host's byte order.
struct _kp_LOG_EntryCounterElement {
  uint32_t length = 32;       // of the record in bytes
  int32_t year = 0;           // year, month and day all 0: a free slot
  int32_t month = 0;          // 1 to 12
  int32_t day = 0;            // 1 to 31
  int32_t entry_id = 0;       //
  uint32_t count = 0;         // wraps to 0 behind 4294967295
  uint32_t reserved[2] = {};  // not interpreted; stands in the file as it does in memory
};

// A counter file: records of 32 bytes, searched in file order. The key of a record is year, month,
// day and entry ID; every search takes the first record with the key. Dates are not checked. What
// is in the file is read anew by every operation, so that changes which another process has made
// are seen.
//
// Statuses: 0 for success and for nothing to do, -1 for failure. Every operation that writes does
// nothing and returns 0 when no file was opened or it is read-only, and returns -1 after
// CloseEntryCounterFile. A read, write or seek that fails writes the level-1 debug line
// "%s:%d Seek error!\n" and returns -1; the record may then be unchanged.
//
// After a status of 0 the record is in the kernel's hands: the end of the process loses nothing. A
// power cut may lose the records written last; fdatasync(fileno(GetFilePointer())) rules that out.
//
// One object is used by one thread at a time. No lock is taken: of two processes that count the
// same new key at once both may append a record, and the first in the file is used from then on.
class KP_API _kp_LOG_EntryCounter : kp_UTIL_no_inadvertant_copies {
 public:
  _kp_LOG_EntryCounter() = default;  // no file
  ~_kp_LOG_EntryCounter();           // closes the file

  // Opens directory/name.cnt or creates it, after closing the file that was open. "/" at the end of
  // the directory is dropped; an empty directory is the root. A file that can only be read is
  // opened so; of a link that leads nowhere the target is created. 0 also when the file does not
  // exist and cannot be created; -1, without doing anything, when `directory` or `name` is null.
  // Raises KPX_memory_alloc before anything has changed, and KPX_logging_file_operation_failed
  // "Cannot open file with read mode!\n", after the level-1 debug line
  // "%s:%d Error: Cannot open file %s with read mode!\n", for an existing file that cannot be read.
  int OpenEntryCounterFile(const char* directory, const char* name);

  // Adds 1 to the count of the key, creating a record with the count 1 when there is none. As long
  // as the same entry ID is counted again and the record counted last still has its key, the count
  // goes to that record, whatever date is given: this is meant.
  int IncreaseCount(int year, int month, int day, int entry_id);

  // Sets the count of the key, creating the record when there is none.
  int UpdateEntryCount(int year, int month, int day, int entry_id, int count);

  // Makes the first record with the key a free slot.
  int DeleteEntryElement(int year, int month, int day, int entry_id);

  // Makes every record from the file's current position on a free slot whose year, month and day
  // lie, each of them on its own, between those of the two times. A range that runs over the end of
  // a month therefore clears less than its days. -1 when `from` is later than `to`. Rewind
  // GetFilePointer() first to have the whole file searched; a position inside a record stands for
  // the next one.
  int DeleteEntryElement(const kp_Time& from, const kp_Time& to);

  // Writes the record into the first free slot, or behind the last record. -1 for null.
  int addElement(_kp_LOG_EntryCounterElement* element);

  // Closes the file if one is open; always 0.
  int CloseEntryCounterFile();

  // The open file, unbuffered, or null. It belongs to the counter and lives until the file is
  // closed. Its position is
  // - after a record was written: behind it,
  // - after a search without result: at the end of the file,
  // - after a range was cleared: at the end of the file, or behind a torn last record that was made
  //   whole; where it was when that lies beyond,
  // - after a failed read or write: before the first record that could not be read or written.
  // A position that cannot be set is a failure found before the record concerned is written.
  FILE* GetFilePointer();

 private:
  struct place;  // a record as it stands in the file

  template <class Change>
  int change_file(Change change);
  template <class Visit>
  int visit_records(int64_t start, Visit visit);
  int find_key(const _kp_LOG_EntryCounterElement& wanted, place& found);
  int write(const place& record);
  int seek_behind(const place& record);
  int write_sought(const place& record);
  bool recall_counted(int entry_id, place& counted);
  int increase_by_search(const _kp_LOG_EntryCounterElement& first);
  int add_counted(const _kp_LOG_EntryCounterElement& first);
  int add(const _kp_LOG_EntryCounterElement& element);
  int clear_range(const kp_Time& from, const kp_Time& to);
  int take_position();
  int put_position();
  bool create(const char* path);
  void open_existing(const char* path);
  void adopt_stream();

  FILE* file_ = nullptr;          // null: none
  kp_String directory_;           // of the last open, as given
  kp_String name_;                // of the last open
  int32_t cached_entry_id_ = -1;  // counted last; -1: none yet
  int32_t cached_position_ = -1;  // of the record counted or added last; -1: none, or too far
  _kp_LOG_EntryCounterElement cached_record_;  // counted last
  bool writable_ = false;                      // open for reading and writing
  bool opened_ = false;                        // the last open found or created the file

  int descriptor_ = -1;         // the file's, while one is open
  int64_t position_ = 0;        // where the file's position is, or would be if the stream were used
  bool stream_shared_ = false;  // the caller has the stream: its position is kept up to date
  bool holds_records_ = false;  // a regular file; anything else counts as empty
};

#endif
