#include "recording/files/settlement.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/dated_name.h"
#include "recording/files/delivery_note.h"
#include "recording/files/ring_start.h"
#include "recording/text/escape.h"

static constexpr const char* take_back_action = "take a batch back from";

// --- Files that a note may lead to ---

// Those that are written under this lock.
static bool is_output(const folder_lock& lock, const noted_file& noted) {
  if (!noted.replaced.empty()) return noted.name == lock.name() + std::string(counter_ending);
  return noted.name == lock.name() || is_dated_file(noted.name, lock.name());
}

// Opens a regular file of one name; nothing where there is none.
static open_descriptor open_noted(const folder_lock& lock, const std::string& name,
                                  struct stat& status) {
  static constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  open_descriptor file(KP_openat(lock.folder(), name.c_str(), flags));
  if (!file.is_open() && says_no_file(errno)) return file;
  if (!file.is_open() || KP_fstat(file.get(), &status) != 0)
    raise_write_error("open", lock.path(name));
  return S_ISREG(status.st_mode) && status.st_nlink == 1 ? std::move(file) : open_descriptor();
}

static void cut_noted_log(const folder_lock& lock, const std::string& name,
                          const file_report& report) {
  if (!is_dated_file(name, lock.name())) return;
  struct stat status {};
  const open_descriptor file = open_noted(lock, name, status);
  if (file.is_open())
    cut_unfinished_line(file.get(), lock.path(name), static_cast<uintmax_t>(status.st_size), "",
                        report);
}

// --- A batch of a ring's events ---

// Puts their output in order. Every step may be the last of this process, too: the next one that
// takes the lock begins anew.
class settlement {
 public:
  settlement(folder_lock& lock, const delivery_note& note, const file_report& report)
      : lock_(lock), note_(note), report_(report) {}

  bool settle();  // whether it was taken back
  // What then remains to be done when the note is gone. Files that are missing by now are told, so
  // that none is removed before.
  void remove_new_files() const;

 private:
  ring_answer ask() const;
  void take_back(const noted_file& noted) const;
  void cut_lines(const noted_file& noted, int file, uint64_t size) const;
  void restore_bytes(const noted_file& noted, int file) const;
  bool restore(int file, const std::string& path, const replaced_bytes& bytes) const;
  void doubt(const std::string& path, const std::string& reason) const;

  folder_lock& lock_;
  const delivery_note& note_;
  const file_report& report_;
};

void settlement::doubt(const std::string& path, const std::string& reason) const {
  report_(terminal_text(path) + ": the events " + std::to_string(note_.first) + " to " +
          std::to_string(note_.last) + " of the recorder " + terminal_text(note_.recorder) +
          " may be there twice, or be missing: " + reason);
}

ring_answer settlement::ask() const {
  if (!lock_.is_own()) return {.fault = "is named by another user's lock"};
  return ask_ring(note_.ring_path, note_.recorder, note_.output);
}

bool settlement::settle() {
  const ring_answer ring = ask();
  if (ring.delivered && *ring.delivered >= note_.last) return false;
  if (note_.is_sound && ring.delivered && *ring.delivered < note_.first) {
    for (auto noted = note_.files.rbegin(); noted != note_.files.rend(); ++noted) take_back(*noted);
    return true;
  }
  for (const noted_file& noted : note_.files) cut_noted_log(lock_, noted.name, report_);
  const std::string why = !note_.is_sound  ? "is named by a damaged note"
                          : ring.delivered ? "has gone on without them"
                                           : ring.fault;
  doubt(lock_.path(lock_.name()), "the ring " + terminal_text(note_.ring_path) + " " + why);
  return false;
}

// --- A batch taken back ---

void settlement::take_back(const noted_file& noted) const {
  const std::string path = lock_.path(noted.name);
  if (!is_output(lock_, noted)) return doubt(path, "it is not written under this lock");
  struct stat status {};
  const open_descriptor file = open_noted(lock_, noted.name, status);
  if (!file.is_open() || !file_identity{noted.device, noted.inode}.is_of(status))
    return doubt(path, "it was moved, removed or replaced");
  if (noted.replaced.empty())
    cut_lines(noted, file.get(), static_cast<uint64_t>(status.st_size));
  else
    restore_bytes(noted, file.get());
  // Before the note goes: a power cut must not bring the batch back without it.
  if (KP_fsync(file.get()) != 0) raise_write_error(take_back_action, path);
}

void settlement::cut_lines(const noted_file& noted, int file, uint64_t size) const {
  const std::string path = lock_.path(noted.name);
  if (size < noted.size) return doubt(path, "it was cut short");
  if (size - noted.size > noted.appended) return doubt(path, "others have written to it");
  const bool is_behind_a_line =
      noted.size == 0 || read_part(file, noted.size - 1, 1, take_back_action, path) == "\n";
  if (!is_behind_a_line) return doubt(path, "it was changed");
  if (size != noted.size && KP_ftruncate(file, static_cast<off_t>(noted.size)) != 0)
    raise_write_error(take_back_action, path);
}

void settlement::restore_bytes(const noted_file& noted, int file) const {
  const std::string path = lock_.path(noted.name);
  bool is_restored = true;
  for (auto bytes = noted.replaced.rbegin(); bytes != noted.replaced.rend(); ++bytes)
    is_restored = restore(file, path, *bytes) && is_restored;
  if (!is_restored) doubt(path, "it was changed");
}

// False when there is something else by now. What was behind the end becomes the end again, or
// zeros where others have gone on behind it.
bool settlement::restore(int file, const std::string& path, const replaced_bytes& bytes) const {
  const auto& [offset, before, after] = bytes;
  const std::string now = read_part(file, offset, after.size(), take_back_action, path);
  const std::string zeros(after.size(), '\0');
  const bool was_behind_end = before.size() < after.size();
  if (now == before || (was_behind_end && now == zeros)) return true;
  const bool is_torn = was_behind_end && now.size() >= before.size() && after.starts_with(now);
  if (now != after && !is_torn) return false;
  struct stat status {};
  if (KP_fstat(file, &status) != 0) raise_write_error(take_back_action, path);
  const bool is_end = static_cast<uint64_t>(status.st_size) == offset + now.size();
  const bool is_cut = was_behind_end && is_end;
  if ((is_cut && KP_ftruncate(file, static_cast<off_t>(offset + before.size())) != 0) ||
      !write_all_at(file, was_behind_end && !is_end ? zeros : before, static_cast<off_t>(offset)))
    raise_write_error(take_back_action, path);
  return true;
}

void settlement::remove_new_files() const {
  for (const noted_file& noted : note_.files) {
    struct stat status {};
    const bool is_left =
        noted.is_new && is_output(lock_, noted) &&
        KP_fstatat(lock_.folder(), noted.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        file_identity{noted.device, noted.inode}.is_of(status) && S_ISREG(status.st_mode) &&
        status.st_size == 0;
    if (is_left) KP_unlinkat(lock_.folder(), noted.name.c_str(), 0);
  }
}

// --- Any note ---

static void settle_delivery(folder_lock& lock, const delivery_note& note,
                            const file_report& report) {
  settlement output(lock, note, report);
  const bool is_taken_back = note.last != 0 && output.settle();
  if (note.last == 0 && !note.is_sound)
    report(terminal_text(lock.path(lock.name())) +
           ": the note in its lock is damaged; events may be there twice, or be missing");
  lock.clear_note();
  if (is_taken_back) output.remove_new_files();
}

void settle(folder_lock& lock, const file_report& report) {
  const std::string& text = lock.read_note();
  if (text.empty()) return;
  if (auto note = delivery_note::read(text)) {
    if (text.size() > folder_lock::longest_note) note->is_sound = false;
    return settle_delivery(lock, *note, report);
  }
  cut_noted_log(lock, text, report);
  lock.write_note("");
}
