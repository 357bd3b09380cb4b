#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <map>
#include <utility>

#include "base/kp_clib.h"
#include "kp_LOG_filenames.h"
#include "recording/files/shared_file.h"
#include "recording/records/time_text.h"
#include "recording/sinks/sink.h"
#include "recording/text/code_page.h"
#include "recording/text/escape.h"

static constexpr unsigned last_serial = 9999;  // four digits; names with more are not recognised

static constexpr size_t log_suffix_size = 14;  // ".YYYYMMDD.NNNN"

// Days whose serials are remembered from batch to batch; records with times all over the calendar
// do not make the memory grow.
static constexpr size_t remembered_days = 64;

// Seconds without a write, behind which a log may be compressed.
static constexpr time_t seconds_at_rest = 60;

struct log_day {
  unsigned short year = 0;
  unsigned short month = 0;
  unsigned short day = 0;

  auto operator<=>(const log_day&) const = default;
};

// One of a day's logs.
struct log_serial {
  unsigned number = 0;     // from 1
  bool is_closed = false;  // there is a compressed form of it: nothing is written to it any more

  auto operator<=>(const log_serial&) const = default;
};

class text_log_sink : public record_sink {
 public:
  text_log_sink(const std::string& folder, const std::string& prefix, uintmax_t max_size,
                const sink_options& options)
      : folder_(folder),
        prefix_(prefix),
        max_size_(max_size),
        rules_{.report = options.report, .waiting = options.waiting},
        code_page_(options.code_page) {
    append_batch(folder_, prefix_, rules_).commit();
  }

  void add(const sink_entry& entry) override;
  size_t pending() const override { return pending_; }
  void write(bool synced, const delivery* of) override;
  void reopen() override { serials_.clear(); }

 private:
  std::string& lines_of(const kp_Time& time);
  std::string log_name(const log_day& day, unsigned serial) const;
  bool read_log_name(std::string_view name, log_day& day, log_serial& serial) const;
  void read_folder(const append_batch& batch);
  void open_last(append_batch& batch, const log_day& day);
  void open_next(append_batch& batch, const log_day& day);
  size_t part_that_fits(std::string_view lines, uintmax_t size) const;
  void append(append_batch& batch, const log_day& day, std::string_view lines);
  void forget_lines();

  std::string folder_;
  std::string prefix_;
  uintmax_t max_size_;
  append_rules rules_;
  log_code_page code_page_;

  record_time_text time_text_;
  line_writer line_;                                           // reused
  std::map<log_day, std::string> days_;                        // the lines gathered
  std::string spare_;                                          // memory for those of the next day
  std::pair<const log_day, std::string>* last_day_ = nullptr;  // of days_, or null
  size_t pending_ = 0;

  std::map<log_day, log_serial> serials_;  // of the logs last written to; number 0: not known
  bool is_folder_read_ = false;            // in this batch: its days not known have no log
};

// --- Gathering ---

std::string& text_log_sink::lines_of(const kp_Time& time) {
  const log_day day = {time.get_year(), time.get_month(), time.get_day()};
  if (last_day_ == nullptr || last_day_->first != day)
    last_day_ = &*days_.try_emplace(day, std::move(spare_)).first;
  return last_day_->second;
}

void text_log_sink::add(const sink_entry& entry) {
  const kp_LOG_LogEntry& made = entry.made.entry;
  line_.clear();
  line_.append(time_text_.of(entry.time));
  line_.append(' ');
  line_.append(static_cast<char>('0' + made.GetLogLevel()));
  line_.append(' ');
  if (entry.made.event != nullptr && !entry.made.event->name.empty())
    append_log_text(line_, entry.made.event->name);
  else
    line_.append_number(made.GetEntryID());
  line_.append(' ');
  append_log_text(line_, entry.message);

  std::string& lines = lines_of(entry.time);
  const size_t before = lines.size();
  code_page_.append(lines, line_.text());
  lines += '\n';
  pending_ += lines.size() - before;
}

// --- Which log ---

std::string text_log_sink::log_name(const log_day& day, unsigned serial) const {
  const std::unique_ptr<char[]> name(
      make_text_log_filename(prefix_.c_str(), day.year, day.month, day.day, serial, nullptr));
  return name.get();
}

struct directory_closer {
  void operator()(DIR* directory) const { closedir(directory); }
};

// The day and serial of a log, "PREFIX.YYYYMMDD.NNNN", and of its compressed forms, which have a
// dot and anything behind that.
bool text_log_sink::read_log_name(std::string_view name, log_day& day, log_serial& serial) const {
  const std::string log(name.substr(0, prefix_.size() + log_suffix_size));
  unsigned short number = 0;
  if (is_a_valid_text_log(log.c_str(), prefix_.c_str(), &day.year, &day.month, &day.day, &number) !=
      1)
    return false;
  serial = {number, name.size() > log.size()};
  return !serial.is_closed || name[log.size()] == '.';
}

// Finds the highest serials of the days to be written. Once for all of them: a folder may have
// many files, and a batch many days.
void text_log_sink::read_folder(const append_batch& batch) {
  static constexpr const char* action = "read the folder";
  open_descriptor folder(KP_openat(batch.folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.is_open()) raise_write_error(action, folder_);
  const std::unique_ptr<DIR, directory_closer> directory(KP_fdopendir(folder.get()));
  if (directory == nullptr) raise_write_error(action, folder_);
  folder.release();
  for (const auto& [day, lines] : days_) serials_[day] = {};
  errno = 0;
  while (const dirent* const file = KP_readdir(directory.get())) {
    log_day found;
    log_serial serial;
    if (read_log_name(file->d_name, found, serial) && days_.contains(found))
      serials_[found] = std::max(serials_[found], serial);
    errno = 0;
  }
  if (errno != 0) raise_write_error(action, folder_);
  is_folder_read_ = true;
}

// Whether nobody wrote to the log of late, or it is gone: it may have been compressed since, or be
// compressed at the moment, to be removed then.
static bool is_at_rest(int folder, const std::string& name) {
  struct stat status {};
  if (KP_fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return true;
  const time_t age = time(nullptr) - status.st_mtime;
  return age < 0 || age >= seconds_at_rest;
}

// Goes on with the log that has the day's highest serial, and makes the first where there is none.
// Another process may have gone on to later ones since this one last wrote.
void text_log_sink::open_last(append_batch& batch, const log_day& day) {
  log_serial& serial = serials_[day];
  const bool is_known =
      serial.number != 0 && !is_at_rest(batch.folder(), log_name(day, serial.number));
  if (!is_known && !is_folder_read_) read_folder(batch);
  if (serial.number == 0 || serial.is_closed) return open_next(batch, day);
  batch.open(log_name(day, serial.number));
  while (serial.number < last_serial && batch.open_existing(log_name(day, serial.number + 1)))
    ++serial.number;
}

// Behind all logs that are there, compressed ones too.
void text_log_sink::open_next(append_batch& batch, const log_day& day) {
  if (!is_folder_read_) read_folder(batch);
  const unsigned number = serials_[day].number + 1;
  if (number > last_serial)
    throw file_error(file_use::writing,
                     "no serial is left behind " + folder_ + "/" + log_name(day, last_serial));
  batch.open(log_name(day, number));
  serials_[day] = {number, false};
}

// --- Writing ---

// Bytes of whole lines that a log of that size takes. A line that is longer than a log goes into
// one of its own.
size_t text_log_sink::part_that_fits(std::string_view lines, uintmax_t size) const {
  const uintmax_t room = size < max_size_ ? max_size_ - size : 0;
  if (lines.size() <= room) return lines.size();
  const size_t end = room == 0 ? std::string_view::npos : lines.rfind('\n', room - 1);
  if (end != std::string_view::npos) return end + 1;
  return size == 0 ? lines.find('\n') + 1 : 0;
}

void text_log_sink::append(append_batch& batch, const log_day& day, std::string_view lines) {
  open_last(batch, day);
  while (!lines.empty()) {
    const size_t part = part_that_fits(lines, batch.size());
    if (part == 0) {
      open_next(batch, day);
      continue;
    }
    batch.append(lines.substr(0, part));
    lines.remove_prefix(part);
  }
}

void text_log_sink::write(bool synced, const delivery* of) {
  if (days_.empty()) return store_delivery(of, synced);
  rules_.synced = synced;
  append_batch batch(folder_, prefix_, rules_, of);
  is_folder_read_ = false;
  if (serials_.size() > remembered_days) serials_.clear();
  for (const auto& [day, lines] : days_) append(batch, day, lines);
  batch.commit();
  when_written(of, [this] { forget_lines(); });
}

void text_log_sink::forget_lines() {
  spare_ = std::move(days_.begin()->second);
  spare_.clear();
  days_.clear();
  last_day_ = nullptr;
  pending_ = 0;
}

std::unique_ptr<record_sink> make_text_log_sink(const std::string& folder,
                                                const std::string& prefix, uintmax_t max_size,
                                                const sink_options& options) {
  return std::make_unique<text_log_sink>(folder, prefix, max_size, options);
}
