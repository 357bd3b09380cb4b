#include <endian.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "base/kp_clib.h"
#include "base/kp_time.h"
#include "kp_LOG_EntryCounter.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/log_util_raise.h"

static constexpr const char* debug_source = "logging/logentrycounter";

// --- Records as bytes: docs/counter-file.md ---

static constexpr int64_t record_size = 32;
static constexpr size_t key_offset = 4;  // year, month, day, entry ID
static constexpr size_t key_size = 16;
static constexpr size_t date_size = 12;  // the first three fields of the key
static constexpr size_t count_offset = 20;
static constexpr size_t reserved_offset = 24;

// Records that one read call fetches.
static constexpr int64_t block_size = 512 * record_size;

struct _kp_LOG_EntryCounter::place {
  int64_t offset;  // a multiple of record_size
  unsigned char bytes[record_size];
};

static void put_word(unsigned char* bytes, uint32_t word) {
  const uint32_t big_endian = htobe32(word);
  memcpy(bytes, &big_endian, sizeof big_endian);
}

static uint32_t get_word(const unsigned char* bytes) {
  uint32_t big_endian = 0;
  memcpy(&big_endian, bytes, sizeof big_endian);
  return be32toh(big_endian);
}

static int32_t get_signed(const unsigned char* bytes) {
  return static_cast<int32_t>(get_word(bytes));
}

static void encode(const _kp_LOG_EntryCounterElement& element, unsigned char* bytes) {
  put_word(bytes, element.length);
  put_word(bytes + key_offset, static_cast<uint32_t>(element.year));
  put_word(bytes + key_offset + 4, static_cast<uint32_t>(element.month));
  put_word(bytes + key_offset + 8, static_cast<uint32_t>(element.day));
  put_word(bytes + key_offset + date_size, static_cast<uint32_t>(element.entry_id));
  put_word(bytes + count_offset, element.count);
  memcpy(bytes + reserved_offset, element.reserved, sizeof element.reserved);
}

static void decode(const unsigned char* bytes, _kp_LOG_EntryCounterElement& element) {
  element.length = get_word(bytes);
  element.year = get_signed(bytes + key_offset);
  element.month = get_signed(bytes + key_offset + 4);
  element.day = get_signed(bytes + key_offset + 8);
  element.entry_id = get_signed(bytes + key_offset + date_size);
  element.count = get_word(bytes + count_offset);
  memcpy(element.reserved, bytes + reserved_offset, sizeof element.reserved);
}

static bool is_same_key(const unsigned char* bytes, const unsigned char* other) {
  return memcmp(bytes + key_offset, other + key_offset, key_size) == 0;
}

static bool is_free_slot(const unsigned char* bytes) {
  static constexpr unsigned char no_date[date_size] = {};
  return memcmp(bytes + key_offset, no_date, date_size) == 0;
}

static int64_t to_whole_records(int64_t bytes) {
  return (bytes + record_size - 1) / record_size * record_size;
}

static int seek_error(int line) {
  LogDebugMessage(1, "%s:%d Seek error!\n", debug_source, line);
  return -1;
}

// --- Opening and closing ---

static kp_String counter_path(const char* directory, const char* name) {
  size_t length = strlen(directory);
  while (length > 0 && directory[length - 1] == '/') --length;
  kp_String path(directory, static_cast<unsigned>(length));
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

  const int error = is_there(path.c_str()) ? EEXIST : create(path.c_str());
  if (error != 0 && error != EEXIST) {
    opened_ = false;
    return 0;
  }
  if (error == EEXIST) open_existing(path.c_str());
  adopt_stream();
  directory_ = std::move(given_directory);
  name_ = std::move(given_name);
  return 0;
}

// 0, or the error number: EEXIST for a file that another process has created in the meantime.
int _kp_LOG_EntryCounter::create(const char* path) {
  file_ = KP_fopen(path, "wb+xe");
  if (file_ == nullptr) return errno;
  opened_ = true;
  writable_ = true;
  return 0;
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
    LogDebugMessage(1, "%s:%d Error: Cannot open file %s with read mode!\n", debug_source, __LINE__,
                    path);
    kp_log_raise<KPX_logging_file_operation_failed>("Cannot open file with read mode!\n");
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

// The stream's position becomes the counter's own, and the other way round.
int _kp_LOG_EntryCounter::take_position() {
  const off_t position = KP_ftell(file_);
  if (position < 0) return seek_error(__LINE__);
  position_ = position;
  return 0;
}

int _kp_LOG_EntryCounter::put_position() {
  return KP_fseek(file_, position_, SEEK_SET) == 0 ? 0 : seek_error(__LINE__);
}

// Runs a change of the file where one is allowed. The stream stands where it would if the change
// had been made through it; as long as nobody else has the stream, that is noted only.
template <class Change>
int _kp_LOG_EntryCounter::change_file(Change change) {
  if (!opened_ || !writable_) return 0;
  if (file_ == nullptr) return -1;
  if (!stream_shared_) return change();
  if (take_position() != 0) return -1;
  const int status = change();
  return put_position() == 0 ? status : -1;
}

// --- Reading and writing records ---

// Fills the block from `offset` on, as far as the file reaches: the bytes read, or -1.
static ssize_t read_block(int descriptor, unsigned char* block, int64_t offset) {
  ssize_t done = 0;
  while (done < block_size) {
    const ssize_t got =
        KP_pread(descriptor, block + done, static_cast<size_t>(block_size - done), offset + done);
    if (got < 0) return -1;
    if (got == 0) break;
    done += got;
  }
  return done;
}

// Calls visit(offset, bytes) for the records behind `start`, in file order, until it returns true
// or they end. 1: a visit returned true. 0: all were visited. -1: a failed read. The position is
// behind the last record visited. A last record that is cut short reads as filled up with zeros.
template <class Visit>
int _kp_LOG_EntryCounter::visit_records(int64_t start, Visit visit) {
  unsigned char block[block_size];
  ssize_t got = holds_records_ ? block_size : 0;
  position_ = start;
  for (int64_t offset = to_whole_records(start); got == block_size; offset += block_size) {
    got = read_block(descriptor_, block, offset);
    if (got < 0) return seek_error(__LINE__);
    const int64_t whole = to_whole_records(got);
    if (got < whole) memset(block + got, 0, static_cast<size_t>(whole - got));
    for (int64_t i = 0; i < whole; i += record_size) {
      if (!visit(offset + i, block + i)) continue;
      position_ = offset + i + record_size;
      return 1;
    }
    if (got > 0) position_ = offset + got;
  }
  return 0;
}

// The first record with the key of `wanted`: 1 found, 0 none, -1 a failed read. A free slot has no
// key.
int _kp_LOG_EntryCounter::find_key(const _kp_LOG_EntryCounterElement& wanted, place& found) {
  unsigned char key[record_size];
  encode(wanted, key);
  return visit_records(0, [&](int64_t offset, const unsigned char* bytes) {
    if (!is_same_key(bytes, key) || is_free_slot(bytes)) return false;
    found.offset = offset;
    memcpy(found.bytes, bytes, record_size);
    return true;
  });
}

int _kp_LOG_EntryCounter::write(const place& record) {
  position_ = record.offset;
  if (KP_pwrite(descriptor_, record.bytes, record_size, record.offset) != record_size)
    return seek_error(__LINE__);
  position_ += record_size;
  return 0;
}

// --- Counting ---

// What the cache holds of an offset: -1 for one that it cannot tell, so that its record is
// searched.
static int32_t to_cached_position(int64_t offset) {
  return offset <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(offset) : -1;
}

static void add_one(unsigned char* bytes) {
  put_word(bytes + count_offset, get_word(bytes + count_offset) + 1);
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

// Reads the record counted last; false unless it is of that entry ID and still has its key.
bool _kp_LOG_EntryCounter::recall_counted(int entry_id, place& counted) {
  if (cached_entry_id_ != entry_id || cached_position_ == -1) return false;
  counted.offset = cached_position_;
  unsigned char key[record_size];
  encode(cached_record_, key);
  return KP_pread(descriptor_, counted.bytes, record_size, counted.offset) == record_size &&
         is_same_key(counted.bytes, key);
}

// Counts `first`, which becomes the record when there is none with its key.
int _kp_LOG_EntryCounter::increase_by_search(const _kp_LOG_EntryCounterElement& first) {
  place found;
  const int status = find_key(first, found);
  if (status < 0) return -1;
  if (status == 0) {
    if (add(first) != 0) return -1;
    cached_record_ = first;
    cached_entry_id_ = first.entry_id;
    return 0;
  }
  cached_position_ = to_cached_position(found.offset);
  cached_entry_id_ = first.entry_id;
  add_one(found.bytes);
  decode(found.bytes, cached_record_);
  return write(found);
}

int _kp_LOG_EntryCounter::UpdateEntryCount(int year, int month, int day, int entry_id, int count) {
  return change_file([&] {
    const _kp_LOG_EntryCounterElement wanted = new_element(year, month, day, entry_id, count);
    place found;
    const int status = find_key(wanted, found);
    if (status < 0) return -1;
    if (status == 0) return add(wanted);
    put_word(found.bytes + count_offset, wanted.count);
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
    end = offset + record_size;
    return is_free_slot(bytes);
  });
  if (status < 0) return -1;
  if (status == 0) record.offset = end;
  encode(element, record.bytes);
  if (write(record) != 0) return -1;
  cached_position_ = to_cached_position(record.offset);
  return 0;
}

// --- Deleting ---

// Makes a record a free slot; its reserved words stay.
static void clear_record(unsigned char* bytes) {
  unsigned char reserved[record_size - reserved_offset];
  memcpy(reserved, bytes + reserved_offset, sizeof reserved);
  encode(_kp_LOG_EntryCounterElement(), bytes);
  memcpy(bytes + reserved_offset, reserved, sizeof reserved);
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
  decode(bytes, element);
  return from.get_year() <= element.year && element.year <= to.get_year() &&
         from.get_month() <= element.month && element.month <= to.get_month() &&
         from.get_day() <= element.day && element.day <= to.get_day();
}

int _kp_LOG_EntryCounter::clear_range(const kp_Time& from, const kp_Time& to) {
  bool failed = false;
  const int status = visit_records(position_, [&](int64_t offset, const unsigned char* bytes) {
    if (is_free_slot(bytes) || !is_within(bytes, from, to)) return false;
    place record = {offset, {}};
    memcpy(record.bytes, bytes, record_size);
    clear_record(record.bytes);
    failed = write(record) != 0;
    return failed;
  });
  return status < 0 || failed ? -1 : 0;
}
