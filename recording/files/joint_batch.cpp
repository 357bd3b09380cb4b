#include "recording/files/joint_batch.h"

#include <algorithm>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/settlement.h"

// --- Locks ---

joint_batch::lock_key joint_batch::key_of(const file_place& place) {
  struct stat status {};
  if (KP_stat(place.folder.c_str(), &status) != 0)
    raise_write_error("open the folder", place.folder);
  return {status.st_dev, status.st_ino, place.name};
}

// Those of the batch before are gone on with where they are the same.
void joint_batch::find_locks(const std::vector<file_place>& places, const delivery& of) {
  std::vector<held_lock> found;
  for (const file_place& place : places) {
    const lock_key key = key_of(place);
    if (std::ranges::find(found, key, &held_lock::key) == found.end())
      found.push_back({key, place, nullptr, delivery_note_lines(of)});
  }
  std::ranges::sort(found, {}, &held_lock::key);
  for (held_lock& one : found) {
    const auto before = std::ranges::find(locks_, one.key, &held_lock::key);
    if (before != locks_.end()) one.lock = std::move(before->lock);
  }
  locks_ = std::move(found);
}

void joint_batch::take_locks() {
  for (held_lock& one : locks_) {
    if (one.lock != nullptr)
      one.lock->take_again(waiting_);
    else
      one.lock = std::make_unique<folder_lock>(one.place.folder, one.place.name, waiting_);
    settle(*one.lock, report_);
    one.lock->keep();
  }
}

// A failure closes all, so that the next batch begins anew.
void joint_batch::begin(const std::vector<file_place>& places, const delivery& of) {
  forgets_.clear();
  try {
    find_locks(places, of);
    take_locks();
  } catch (...) {
    locks_.clear();
    throw;
  }
}

folder_lock& joint_batch::lock_of(const std::string& folder, const std::string& name) {
  const auto found = std::ranges::find(locks_, key_of({folder, name}), &held_lock::key);
  if (found == locks_.end())
    raise_write_error("write to", folder, "the folder was replaced meanwhile");
  return *found->lock;
}

void joint_batch::release() noexcept {
  for (held_lock& one : locks_) one.lock->release();
}

// --- Notes ---

void joint_batch::note(folder_lock& lock, const noted_file& file, bool synced) {
  for (held_lock& one : locks_) {
    if (one.lock.get() != &lock) continue;
    one.lines.add(file);
    lock.add_to_note(one.lines.take(), synced);
  }
}

// A note that stays tells the next holder what the ring tells it, too.
void joint_batch::finish() noexcept {
  for (const auto& forget : forgets_) forget();
  for (held_lock& one : locks_) {
    try {
      one.lock->write_note("");
    } catch (...) {
    }
  }
  release();
}

void joint_batch::take_back() noexcept {
  for (held_lock& one : locks_) {
    try {
      settle(*one.lock, report_);
    } catch (...) {
    }
  }
  locks_.clear();
}

void when_written(const delivery* of, std::function<void()> forget) {
  if (of != nullptr && of->joint != nullptr)
    of->joint->when_finished(std::move(forget));
  else
    forget();
}
