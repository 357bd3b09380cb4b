#include "recording/sinks/dated_lines.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "base/kp_clib.h"
#include "recording/files/folder.h"

// Days whose serials are remembered from batch to batch; records with times all over the calendar
// do not make the memory grow.
static constexpr size_t remembered_days = 64;

// Seconds without a write, behind which a file may be compressed.
static constexpr time_t seconds_at_rest = 60;

dated_lines::dated_lines(dated_place place, append_rules rules)
    : place_(std::move(place)), rules_(std::move(rules)) {
  append_batch(place_.folder, place_.name, rules_).commit();
}

// --- Gathering ---

std::string& dated_lines::lines_of(const log_day& day) {
  if (last_day_ == nullptr || last_day_->first != day)
    last_day_ = &*days_.try_emplace(day, std::move(spare_)).first;
  return last_day_->second;
}

// --- Which file ---

std::string dated_lines::file_name(const log_day& day, unsigned serial) const {
  return dated_name_text(place_.name, day, serial, place_.ending);
}

// Takes note of a file of one of the days, or of a compressed form of one.
void dated_lines::take_name(std::string_view name) {
  const auto found = dated_name_of(name, place_.name);
  if (!found || !days_.contains(found->day)) return;
  const bool is_closed = is_closed_form(found->ending, place_.ending);
  if (!is_closed && found->ending != place_.ending) return;
  serial_number& serial = serials_[found->day];
  serial = std::max(serial, {found->serial, is_closed});
}

// Finds the highest serials of the days to be written. Once for all of them: a folder may have
// many files, and a batch many days.
void dated_lines::read_folder(const append_batch& batch) {
  for (const auto& [day, lines] : days_) serials_[day] = {};
  for_each_name(batch.folder(), place_.folder, [this](const char* name) { take_name(name); });
  is_folder_read_ = true;
}

// Whether nobody wrote to the file of late, or it is gone: it may have been compressed since, or be
// compressed at the moment, to be removed then.
static bool is_at_rest(int folder, const std::string& name) {
  struct stat status {};
  if (KP_fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return true;
  const time_t age = time(nullptr) - status.st_mtime;
  return age < 0 || age >= seconds_at_rest;
}

// Goes on with the file that has the day's highest serial, and makes the first where there is none.
// Another process may have gone on to later ones since this one last wrote.
void dated_lines::open_last(append_batch& batch, const log_day& day) {
  serial_number& serial = serials_[day];
  const bool is_known =
      serial.number != 0 && !is_at_rest(batch.folder(), file_name(day, serial.number));
  if (!is_known && !is_folder_read_) read_folder(batch);
  if (serial.number == 0 || serial.is_closed) return open_next(batch, day);
  batch.open(file_name(day, serial.number));
  while (serial.number < last_dated_serial &&
         batch.open_existing(file_name(day, serial.number + 1)))
    ++serial.number;
}

// Behind all files that are there, compressed ones too.
void dated_lines::open_next(append_batch& batch, const log_day& day) {
  if (!is_folder_read_) read_folder(batch);
  const unsigned number = serials_[day].number + 1;
  if (number > last_dated_serial)
    throw file_error(file_use::writing, "no serial is left behind " + place_.folder + "/" +
                                            file_name(day, last_dated_serial));
  batch.open(file_name(day, number));
  serials_[day] = {number, false};
  ++files_begun_;
}

// --- Writing ---

// Bytes of whole lines that a file of that size takes. A line that is longer than a file goes into
// one of its own.
size_t dated_lines::part_that_fits(std::string_view lines, uintmax_t size) const {
  const uintmax_t room = size < place_.max_size ? place_.max_size - size : 0;
  if (lines.size() <= room) return lines.size();
  const size_t end = room == 0 ? std::string_view::npos : lines.rfind('\n', room - 1);
  if (end != std::string_view::npos) return end + 1;
  return size == 0 ? lines.find('\n') + 1 : 0;
}

void dated_lines::append(append_batch& batch, const log_day& day, std::string_view lines) {
  open_last(batch, day);
  while (!lines.empty()) {
    const bool is_last = serials_[day].number == last_dated_serial;
    const size_t part = is_last ? lines.size() : part_that_fits(lines, batch.size());
    if (part == 0) {
      open_next(batch, day);
      continue;
    }
    batch.append(lines.substr(0, part));
    lines.remove_prefix(part);
  }
}

void dated_lines::write(bool synced, const delivery* of) {
  if (days_.empty()) return store_delivery(of, synced);
  rules_.synced = synced;
  append_batch batch(place_.folder, place_.name, rules_, of);
  is_folder_read_ = false;
  if (serials_.size() > remembered_days) serials_.clear();
  for (const auto& [day, lines] : days_) append(batch, day, lines);
  batch.commit();
  when_written(of, [this] { forget_lines(); });
}

void dated_lines::forget_lines() {
  spare_ = std::move(days_.begin()->second);
  spare_.clear();
  days_.clear();
  last_day_ = nullptr;
  pending_ = 0;
}
