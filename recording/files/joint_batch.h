// A batch that goes into several outputs, and is in all of them or in none, whoever dies meanwhile
// (docs/text-logs.md).
#ifndef RECORDING_FILES_JOINT_BATCH_H
#define RECORDING_FILES_JOINT_BATCH_H

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "recording/files/delivery_note.h"
#include "recording/files/folder_lock.h"
#include "recording/files/line_tail.h"
#include "recording/files/path.h"

// The locks of the outputs. All are held from begin() to the end of the batch, and were taken in an
// order that is the same for all processes. Two outputs with one lock share it, and its note.
class joint_batch {
 public:
  joint_batch(lock_waiting waiting, file_report report)
      : waiting_(std::move(waiting)), report_(std::move(report)) {}

  // Takes the locks, each of what is named in a folder, and clears up behind whoever died under
  // them. Raises file_error: none is held then.
  void begin(const std::vector<file_place>& places, const delivery& of);
  // The lock of one of these places. Raises file_error where the folder is another one by now.
  folder_lock& lock_of(const std::string& folder, const std::string& name);
  // Notes what becomes of a file under that lock, before anything does.
  void note(folder_lock& lock, const noted_file& file, bool synced);
  // Called at finish(): what was gathered for an output is to be forgotten.
  void when_finished(std::function<void()> forget) { forgets_.push_back(std::move(forget)); }
  // The batch is in all outputs, and its ring, or what stands for it, says so.
  void finish() noexcept;
  // It is not: what the notes tell is undone, where that is possible at the moment; else by whoever
  // takes the lock next.
  void take_back() noexcept;

 private:
  // A folder, and a name in it, whatever path leads there.
  using lock_key = std::tuple<dev_t, ino_t, std::string>;
  struct held_lock {
    lock_key key;
    file_place place;  // the first that has it
    std::unique_ptr<folder_lock> lock;
    delivery_note_lines lines;
  };

  static lock_key key_of(const file_place& place);
  void find_locks(const std::vector<file_place>& places, const delivery& of);
  void take_locks();
  void release() noexcept;

  lock_waiting waiting_;
  file_report report_;
  std::vector<held_lock> locks_;  // by their keys
  std::vector<std::function<void()>> forgets_;
};

// Forgets what was gathered for the output of that batch when it is there for good: now, or with
// the other outputs.
void when_written(const delivery* of, std::function<void()> forget);

#endif
