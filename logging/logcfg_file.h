// Configuration sources: where unsigned settings come from.
#ifndef KP_LOG_LOGCFG_FILE_H
#define KP_LOG_LOGCFG_FILE_H

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <forward_list>

#include "base/kp_lock.h"
#include "base/kp_nocopy.h"
#include "base/kp_string.h"
#include "logging/hash_tbl.h"

// A configuration source.
class KP_API _kp_LOG_configuration {
 public:
  // True, setting `value`, when there is a setting for `key` in `section`.
  virtual bool get_integer_value(const char* section, const char* key, unsigned& value) const = 0;
  virtual ~_kp_LOG_configuration();
};

// Settings by section and key. The key of the table is the section's text followed by the key's,
// with nothing between: section "ab" with key "c" and section "a" with key "bc" are one setting, on
// purpose. A null section or key counts as "". Not synchronised.
class KP_API _kp_LOG_log_setting_tbl : kp_UTIL_no_inadvertant_copies {
 public:
  explicit _kp_LOG_log_setting_tbl(unsigned size) : table_(size) {}

  // Stores the value, over an existing one. Raises KPX_memory_alloc.
  void create_entry(const char* section, const char* key, unsigned value);
  // Stores every setting of `other`, over existing ones. Raises KPX_memory_alloc.
  void add_all(const _kp_LOG_log_setting_tbl& other);
  // The stored value, or null. Valid until the table is cleared or sized.
  const unsigned* find_entry(const char* section, const char* key) const;
  void clear() { table_.clear(); }
  void set_size(unsigned size) { table_.set_size(size); }
  unsigned bucket_count() const { return table_.bucket_count(); }

  static void _construct_hash_key_string(const char* section, const char* key, kp_String& out);

 private:
  kp_MISC_hash_tbl<kp_String, unsigned> table_;
};

// Reads lines from a position of its own, which starts at 0 and moves past each line read.
class KP_API read_file {
 public:
  // Reads the next line into `buffer` (at least max + 1 bytes), terminated, without its end. A line
  // ends at a CR or LF, and one more CR or LF behind it belongs to the end as well.
  // 0: a line was read. -1: a failed seek or read, a negative `max`, or a line of more than `max`
  // bytes. -2: the file ended; the rest of it is in `buffer`.
  // The position never passes 2147483647: a line that would move it there is -1 as well.
  int readLine(FILE* stream, char* buffer, int max);

  int position() const noexcept { return position_; }

 private:
  int advance(int64_t bytes, int result);

  int position_ = 0;  // bytes from the start of the file
};

// Goes up behind every change of what look-ups give: another source of the process, a file that was
// read, a file that cannot be read any more. Whoever remembers what a look-up gave compares the
// number of before that look-up; look-ups that may read a file, as long as bCfgReaded is 0, are not
// to be remembered.
extern std::atomic<uint64_t> kp_logcfg_generation;

// A text file of sections and key/value lines, described in docs/configuration-file.md. Read once,
// at the first look-up, and not again as long as bCfgReaded says that a file has been parsed.
// Any thread may look values up: the first parses the file while others wait; after that no lock is
// taken. bCfgReaded belongs to all sources together, with two effects that are meant. A source
// that has not been read when another one sets it has no values. A source that has been read looks
// at its file's time again once the constructor of another one has reset it, and reads a changed
// file anew. Look-ups take no harm from either: each searches one finished table, the one before or
// the one after, and no table changes once it can be found.
class KP_API _kp_LOG_file_configuration : public _kp_LOG_configuration,
                                          kp_UTIL_no_inadvertant_copies {
 public:
  // Remembers the path, resets bCfgReaded. Null counts as "".
  explicit _kp_LOG_file_configuration(const char* path);
  // One that does not share bCfgReaded has a number of its own in its place: it is read once.
  _kp_LOG_file_configuration(const char* path, bool shares_readed);
  ~_kp_LOG_file_configuration() override;

  // The setting of the section, else the one of the section "global". False when there is none or
  // the file cannot be read. Null counts as "". Raises KPX_memory_alloc.
  bool get_integer_value(const char* section, const char* key, unsigned& value) const override;

  // Looks into the settings as they were last read, without a look at the file.
  bool _find_value(const char* section, const char* key, unsigned& value) const;
  // Adds the settings of the file to those held, in a table of its own, which look-ups search from
  // then on: a key that the file no longer has keeps its value; forgetting what was held is a step
  // of the look-up that reads the file. False, with the table before it still searched, when it
  // cannot be opened or is not a regular file. What lies beyond its first 64 MiB is not read.
  // Raises KPX_memory_alloc, also with the table before it. One thread at a time; look-ups may go
  // on meanwhile.
  bool _save_all_from_file() const;

  // For the source of the process, before the one that is to follow it is made. Waits for a reading
  // that goes on. From then on the source sets bCfgReaded no more and minds it no more: to those
  // who still have it it answers with what it has read, whatever becomes of its file, and reads
  // that only where it has not yet.
  void retire() const;

  // Not 0 once a file has been parsed; shared by all sources, reset by every constructor.
  static unsigned bCfgReaded;

 private:
  bool settings_are_announced() const;
  void announce_settings(unsigned announced) const;
  bool _is_up_to_date(const struct stat& status) const;
  bool _read_anew(const struct stat& status) const;
  bool parse_file(const _kp_LOG_log_setting_tbl* held) const;
  bool _look_up(const char* section, const char* key, unsigned& value) const;

  mutable unsigned own_readed_ = 0;
  unsigned* const readed_;  // bCfgReaded, or its own

  // Guarded by lock_.
  mutable time_t last_changed_ = 0;  // the file's modification time at its last reading, in seconds
  mutable bool was_read_ = false;    // whether last_changed_ says anything
  // The newest first. The older ones are kept: threads that take no lock may still search them.
  mutable std::forward_list<_kp_LOG_log_setting_tbl> tables_;

  mutable std::atomic<const _kp_LOG_log_setting_tbl*> current_{nullptr};  // null: no settings
  mutable std::atomic<bool> is_retired_{false};
  mutable kp_LOG_CRWLock lock_;  // writer: whoever reads the file
  kp_String path_;
};

#endif
