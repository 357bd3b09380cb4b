#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "base/kp_clib.h"
#include "base/kp_time.h"
#include "kp_LOG_EntryCounter.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/counter_format.h"
#include "logging/raise.h"

static constexpr const char* debug_source = "logging/logentrycounter";

// --- Records as bytes ---

// Records that one read call fetches.
static constexpr int64_t block_size = int64_t{512} * kp_counter_record_size;

// No record lies behind it: its own end could not be told.
static constexpr int64_t end_of_offsets =
    std::numeric_limits<int64_t>::max() / kp_counter_record_size * kp_counter_record_size;

struct _kp_LOG_EntryCounter::place {
  int64_t offset;  // a multiple of kp_counter_record_size
  unsigned char bytes[kp_counter_record_size];
};

static bool is_same_key(const unsigned char* bytes, const unsigned char* other) {
  return memcmp(bytes + kp_counter_key_offset, other + kp_counter_key_offset,
                kp_counter_key_size) == 0;
}

static bool is_free_slot(const unsigned char* bytes) {
  static constexpr unsigned char no_date[kp_counter_date_size] = {};
  return memcmp(bytes + kp_counter_key_offset, no_date, kp_counter_date_size) == 0;
}

static int64_t to_whole_records(int64_t bytes) {
  return (bytes + kp_counter_record_size - 1) / kp_counter_record_size * kp_counter_record_size;
}

static int seek_error(int line) {
  LogDebugMessage(1, "%s:%d Seek error!\n", debug_source, line);
  return -1;
}

// --- Opening and closing ---

static kp_String counter_path(const char* directory, const char* name) {
  size_t length = strlen(directory);
  while (length > 0 && directory[length - 1] == '/') --length;
  kp_String path(directory, kp_log_string_length(length));
  path.append("/");
  path.append(name);
  path.append(".cnt");
  return path;
}

static bool is_there(const char* path) {
  struct stat status = {};
  return KP_stat(path, &status) == 0;
}

_kp_LOG_EntryCounter::~_kp_LOG_EntryCounter() {
  CloseEntryCounterFile();
}

int _kp_LOG_EntryCounter::OpenEntryCounterFile(const char* directory, const char* name) {
  if (directory == nullptr || name == nullptr) return -1;
  const kp_String path = counter_path(directory, name);
  kp_String given_directory(directory);
  kp_String given_name(name);
  CloseEntryCounterFile();

  if (is_there(path.c_str())) {
    open_existing(path.c_str());
  } else if (!create(path.c_str())) {
    opened_ = false;
    return 0;
  }
  adopt_stream();
  directory_ = std::move(given_directory);
  name_ = std::move(given_name);
  return 0;
}

// False when there is no file and none can be made. The first attempt is exclusive, so that a file
// which another process has created in the meantime keeps its content; a link that leads nowhere is
// in its way as well, and has its target made.
bool _kp_LOG_EntryCounter::create(const char* path) {
  file_ = KP_fopen(path, "wb+xe");
  if (file_ == nullptr && errno == EEXIST) {
    if (is_there(path)) {
      open_existing(path);
      return true;
    }
    if (errno == ENOENT) file_ = KP_fopen(path, "wb+e");
  }
  if (file_ == nullptr) return false;
  opened_ = true;
  writable_ = true;
  return true;
}

void _kp_LOG_EntryCounter::open_existing(const char* path) {
  opened_ = true;
  file_ = KP_fopen(path, "rb+e");
  if (file_ != nullptr) {
    writable_ = true;
    return;
  }
  file_ = KP_fopen(path, "rbe");
  if (file_ == nullptr) {
    kp_log_raise<KPX_logging_file_operation_failed>(
        "Cannot open file with read mode!\n",
        kp_log_told("%s:%d Error: Cannot open file %s with read mode!\n", debug_source, __LINE__,
                    path));
  }
  writable_ = false;
}

// Records are read and written past the stream, which therefore must not hold bytes of its own.
void _kp_LOG_EntryCounter::adopt_stream() {
  static_cast<void>(setvbuf(file_, nullptr, _IONBF, 0));
  descriptor_ = KP_fileno(file_);
  struct stat status = {};
  holds_records_ = KP_fstat(descriptor_, &status) != 0 || S_ISREG(status.st_mode);
  position_ = 0;
  stream_shared_ = false;
}

int _kp_LOG_EntryCounter::CloseEntryCounterFile() {
  if (file_ != nullptr) KP_fclose(file_);
  file_ = nullptr;
  return 0;
}

// --- The file's position ---

FILE* _kp_LOG_EntryCounter::GetFilePointer() {
  if (file_ == nullptr || stream_shared_) return file_;
  stream_shared_ = true;
  put_position();
  return file_;
}

// The stream's position becomes the counter's own.
int _kp_LOG_EntryCounter::take_position() {
  const off_t position = KP_ftell(file_);
  if (position < 0) return seek_error(__LINE__);
  position_ = position;
  return 0;
}

// The counter's position becomes the stream's, as soon as somebody else has the stream.
int _kp_LOG_EntryCounter::put_position() {
  if (!stream_shared_ || KP_fseek(file_, position_, SEEK_SET) == 0) return 0;
  return seek_error(__LINE__);
}

// Runs a change of the file where one is allowed, from the position where the caller left the
// stream.
template <class Change>
int _kp_LOG_EntryCounter::change_file(Change change) {
  if (!opened_ || !writable_) return 0;
  if (file_ == nullptr) return -1;
  if (stream_shared_ && take_position() != 0) return -1;
  return change();
}

// --- Reading and writing records ---

// Reads up to `wanted` bytes from `offset` on, as far as the file reaches, and fills a last record
// that is cut short up with zeros: the bytes read, or -1.
static ssize_t read_records(int descriptor, unsigned char* bytes, int64_t wanted, int64_t offset) {
  wanted = std::min(wanted, end_of_offsets - offset);
  ssize_t done = 0;
  while (done < wanted) {
    const ssize_t got =
        KP_pread(descriptor, bytes + done, static_cast<size_t>(wanted - done), offset + done);
    if (got < 0) return -1;
    if (got == 0) break;
    done += got;
  }
  const int64_t missing = to_whole_records(done) - done;
  if (missing > 0) memset(bytes + done, 0, static_cast<size_t>(missing));
  return done;
}

// Calls visit(offset, bytes) for the records that begin at `start` or behind it, in file order. 1:
// a visit returned true, which ends them and leaves the position to the visitor. 0: all were
// visited, and the position is the end of the file, or `start` when that lies beyond. -1: a failed
// read, and the position is before the first record that was not read.
template <class Visit>
int _kp_LOG_EntryCounter::visit_records(int64_t start, Visit visit) {
  unsigned char block[block_size];
  ssize_t got = holds_records_ ? block_size : 0;
  position_ = start;
  for (int64_t offset = start - start % kp_counter_record_size; got == block_size; offset += got) {
    got = read_records(descriptor_, block, block_size, offset);
    if (got < 0) {
      static_cast<void>(put_position());
      return seek_error(__LINE__);
    }
    for (int64_t i = offset < start ? kp_counter_record_size : 0; i < got;
         i += kp_counter_record_size)
      if (visit(offset + i, block + i)) return 1;
    position_ = std::max(position_, offset + got);  // a last record cut short may have been written
  }
  return put_position();
}

// The first record with the key of `wanted`: 1 found, 0 none, -1 a failed read. A free slot has no
// key.
int _kp_LOG_EntryCounter::find_key(const _kp_LOG_EntryCounterElement& wanted, place& found) {
  unsigned char key[kp_counter_record_size];
  kp_counter_encode(wanted, key);
  return visit_records(0, [&](int64_t offset, const unsigned char* bytes) {
    if (!is_same_key(bytes, key) || is_free_slot(bytes)) return false;
    found.offset = offset;
    memcpy(found.bytes, bytes, kp_counter_record_size);
    return true;
  });
}

int _kp_LOG_EntryCounter::write(const place& record) {
  return seek_behind(record) == 0 ? write_sought(record) : -1;
}

// Goes where the writing of the record will lead, so that a seek which fails is found before
// anything has changed.
int _kp_LOG_EntryCounter::seek_behind(const place& record) {
  position_ = record.offset + kp_counter_record_size;
  return put_position();
}

int _kp_LOG_EntryCounter::write_sought(const place& record) {
  if (KP_pwrite(descriptor_, record.bytes, kp_counter_record_size, record.offset) ==
      kp_counter_record_size)
    return 0;
  position_ = record.offset;
  static_cast<void>(put_position());
  return seek_error(__LINE__);
}

// --- Counting ---

// What the cache holds of an offset: -1 for one that it cannot tell, so that its record is
// searched.
static int32_t to_cached_position(int64_t offset) {
  return offset <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(offset) : -1;
}

static void add_one(unsigned char* bytes) {
  kp_counter_put_count(bytes, kp_counter_get_count(bytes) + 1);
}

static _kp_LOG_EntryCounterElement new_element(int year, int month, int day, int entry_id,
                                               int count) {
  _kp_LOG_EntryCounterElement element;
  element.year = year;
  element.month = month;
  element.day = day;
  element.entry_id = entry_id;
  element.count = static_cast<uint32_t>(count);
  return element;
}

int _kp_LOG_EntryCounter::IncreaseCount(int year, int month, int day, int entry_id) {
  return change_file([&] {
    place counted;
    if (recall_counted(entry_id, counted)) {
      add_one(counted.bytes);
      return write(counted);
    }
    return increase_by_search(new_element(year, month, day, entry_id, 1));
  });
}

// Reads the record counted last; false unless it is of that entry ID and still has its key. After a
// record that could not be added, the memory is of two records.
bool _kp_LOG_EntryCounter::recall_counted(int entry_id, place& counted) {
  if (cached_entry_id_ != entry_id || cached_record_.entry_id != entry_id) return false;
  if (cached_position_ == -1) return false;
  counted.offset = cached_position_;
  unsigned char key[kp_counter_record_size];
  kp_counter_encode(cached_record_, key);
  return read_records(descriptor_, counted.bytes, kp_counter_record_size, counted.offset) > 0 &&
         is_same_key(counted.bytes, key);
}

// Counts `first`, which becomes the record when there is none with its key.
int _kp_LOG_EntryCounter::increase_by_search(const _kp_LOG_EntryCounterElement& first) {
  place found;
  const int status = find_key(first, found);
  if (status < 0) return -1;
  if (status == 0) return add_counted(first);
  if (seek_behind(found) != 0) return -1;
  cached_position_ = to_cached_position(found.offset);
  cached_entry_id_ = first.entry_id;
  add_one(found.bytes);
  kp_counter_decode(found.bytes, cached_record_);
  return write_sought(found);
}

int _kp_LOG_EntryCounter::add_counted(const _kp_LOG_EntryCounterElement& first) {
  cached_record_ = first;
  if (add(first) != 0) return -1;
  cached_entry_id_ = first.entry_id;
  return 0;
}

int _kp_LOG_EntryCounter::UpdateEntryCount(int year, int month, int day, int entry_id, int count) {
  return change_file([&] {
    const _kp_LOG_EntryCounterElement wanted = new_element(year, month, day, entry_id, count);
    place found;
    const int status = find_key(wanted, found);
    if (status < 0) return -1;
    if (status == 0) return add(wanted);
    kp_counter_put_count(found.bytes, wanted.count);
    return write(found);
  });
}

int _kp_LOG_EntryCounter::addElement(_kp_LOG_EntryCounterElement* element) {
  return change_file([&] { return element != nullptr ? add(*element) : -1; });
}

int _kp_LOG_EntryCounter::add(const _kp_LOG_EntryCounterElement& element) {
  place record = {0, {}};
  int64_t end = 0;
  const int status = visit_records(0, [&](int64_t offset, const unsigned char* bytes) {
    record.offset = offset;
    end = offset + kp_counter_record_size;
    return is_free_slot(bytes);
  });
  if (status < 0) return -1;
  if (status == 0) record.offset = end;
  kp_counter_encode(element, record.bytes);
  if (seek_behind(record) != 0) return -1;
  cached_position_ = to_cached_position(record.offset);
  return write_sought(record);
}

// --- Deleting ---

// Makes a record a free slot; its reserved words stay.
static void clear_record(unsigned char* bytes) {
  unsigned char reserved[kp_counter_record_size - kp_counter_reserved_offset];
  memcpy(reserved, bytes + kp_counter_reserved_offset, sizeof reserved);
  kp_counter_encode(_kp_LOG_EntryCounterElement(), bytes);
  memcpy(bytes + kp_counter_reserved_offset, reserved, sizeof reserved);
}

int _kp_LOG_EntryCounter::DeleteEntryElement(int year, int month, int day, int entry_id) {
  return change_file([&] {
    place found;
    const int status = find_key(new_element(year, month, day, entry_id, 0), found);
    if (status <= 0) return status;
    clear_record(found.bytes);
    return write(found);
  });
}

int _kp_LOG_EntryCounter::DeleteEntryElement(const kp_Time& from, const kp_Time& to) {
  return change_file([&] { return from.compare_time(to) > 0 ? -1 : clear_range(from, to); });
}

// Each field of the date by itself: this is no comparison of dates.
static bool is_within(const unsigned char* bytes, const kp_Time& from, const kp_Time& to) {
  _kp_LOG_EntryCounterElement element;
  kp_counter_decode(bytes, element);
  return from.get_year() <= element.year && element.year <= to.get_year() &&
         from.get_month() <= element.month && element.month <= to.get_month() &&
         from.get_day() <= element.day && element.day <= to.get_day();
}

int _kp_LOG_EntryCounter::clear_range(const kp_Time& from, const kp_Time& to) {
  const int status = visit_records(position_, [&](int64_t offset, const unsigned char* bytes) {
    if (is_free_slot(bytes) || !is_within(bytes, from, to)) return false;
    place record = {offset, {}};
    memcpy(record.bytes, bytes, kp_counter_record_size);
    clear_record(record.bytes);
    return write(record) != 0;
  });
  return status == 0 ? 0 : -1;
}
