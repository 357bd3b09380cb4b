#include "recording/journal/segment_work.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/kp_clib.h"
#include "recording/text/escape.h"

static constexpr int reading_flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
static constexpr int making_flags =
    O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
static constexpr mode_t index_mode = S_IRUSR | S_IWUSR | S_IRGRP;

// --- The index ---

std::optional<segment_index> read_segment_index(int folder, const journal_place& journal,
                                                const journal_segment& segment) {
  if (!segment.has_index) return std::nullopt;
  const std::string name = segment.index_name();
  const open_descriptor file(KP_openat(folder, name.c_str(), reading_flags));
  if (!file.is_open()) return std::nullopt;
  struct stat status {};
  if (KP_fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const size_t size = std::min<size_t>(static_cast<size_t>(status.st_size), longest_index + 1);
  return segment_index_of(read_part(file.get(), 0, size, "read", journal.path(name)));
}

uint64_t bytes_of_lines(int folder, const journal_place& journal, const journal_segment& segment) {
  if (segment.plain) return segment.plain->size;
  const auto index = read_segment_index(folder, journal, segment);
  const bool is_known = index && index->fits(segment.file_name(), segment.compressed->size);
  return is_known ? index->lines : UINT64_MAX;
}

// Nobody else makes one while the lock is held: what is in its place was left behind.
void segment_work::write_index(const append_batch& batch, const std::string& file,
                               uint64_t size) const {
  segment_index index = scan_->index();
  index.file = file;
  index.size = size;
  const std::string name = segment_.index_name();
  const std::string unfinished = name + std::string(unfinished_ending);
  const std::string text = text_of(index);
  KP_unlinkat(batch.folder(), unfinished.c_str(), 0);
  const open_descriptor made(
      KP_openat(batch.folder(), unfinished.c_str(), making_flags | O_EXCL, index_mode));
  std::string_view left = text;
  const bool is_made = made.is_open() && write_all(made.get(), left) &&
                       KP_fchmod(made.get(), index_mode) == 0 &&
                       KP_renameat(batch.folder(), unfinished.c_str(), name.c_str()) == 0;
  if (is_made) return;
  const int error = errno;
  KP_unlinkat(batch.folder(), unfinished.c_str(), 0);
  errno = error;
  raise_write_error("write", journal_.path(name));
}

// --- The begin ---

segment_work::segment_work(const journal_place& journal, const journal_segment& segment,
                           bool compresses)
    : journal_(journal), segment_(segment), compresses_(compresses) {
  append_batch batch(journal_.folder, journal_.name, journal_.rules);
  folder_ = open_descriptor(KP_openat(batch.folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_.is_open()) raise_write_error("open the folder", journal_.folder);
  // What a process left that died is cut off, as by whoever appends: later it could not be.
  if (segment_.plain && compresses_) static_cast<void>(batch.open_existing(segment_.name));
  open_source();
  batch.commit();
}

segment_work::~segment_work() {
  if (unfinished_.is_open() && !is_idle_)
    KP_unlinkat(folder_.get(), segment_.unfinished_name().c_str(), 0);
}

// Closed where it is gone by now.
static open_descriptor open_segment(int folder, const std::string& name, const std::string& path,
                                    struct stat& status) {
  open_descriptor file(KP_openat(folder, name.c_str(), reading_flags));
  if (!file.is_open() && errno == ENOENT) return file;
  if (!file.is_open() || KP_fstat(file.get(), &status) != 0) raise_write_error("read", path);
  check_written_file("read", path, status);
  return file;
}

void segment_work::open_source() {
  const std::string name = segment_.file_name();
  open_descriptor file = open_segment(folder_.get(), name, journal_.path(name), source_status_);
  is_idle_ = !file.is_open();
  if (is_idle_) return;
  if (segment_.plain) left_ = static_cast<uint64_t>(source_status_.st_size);
  source_ = std::make_unique<segment_reader>(std::move(file), journal_.path(name), !segment_.plain);
  scan_ = std::make_unique<segment_scan>();
  if (segment_.plain && segment_.compressed) {
    struct stat status {};
    const std::string other_name = segment_.compressed_name();
    open_descriptor other =
        open_segment(folder_.get(), other_name, journal_.path(other_name), status);
    is_idle_ = !other.is_open();
    compressed_ =
        std::make_unique<segment_reader>(std::move(other), journal_.path(other_name), true);
  } else if (segment_.plain && compresses_) {
    open_unfinished();
  } else if (segment_.plain) {
    go_on_behind_index();
  }
}

void segment_work::go_on_behind_index() {
  auto known = read_segment_index(folder_.get(), journal_, segment_);
  if (!known || known->file != segment_.name || known->size > left_ || known->lines != known->size)
    return;
  source_->skip(known->size);
  left_ -= known->size;
  scan_ = std::make_unique<segment_scan>(std::move(*known));
}

// Whoever holds the lock of the file makes it. It has another mode than the segment until it is
// whole.
void segment_work::open_unfinished() {
  const std::string name = segment_.unfinished_name();
  const std::string path = journal_.path(name);
  struct stat status {};
  struct stat named {};
  if (!unfinished_.open(folder_.get(), name, making_flags, S_IRUSR | S_IWUSR))
    raise_write_error("open", path);
  is_idle_ = true;
  if (KP_flock(unfinished_.get(), LOCK_EX | LOCK_NB) != 0) return;
  const bool is_named = KP_fstat(unfinished_.get(), &status) == 0 &&
                        KP_fstatat(folder_.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                        named.st_dev == status.st_dev && named.st_ino == status.st_ino;
  if (!is_named) return;
  check_written_file("write", path, status);
  is_idle_ = false;
  if (KP_ftruncate(unfinished_.get(), 0) != 0) raise_write_error("write", path);
  compressor_ = std::make_unique<segment_compressor>(unfinished_.get(), path, left_);
}

// --- Part by part ---

bool segment_work::advance() {
  if (is_idle_) return false;
  const std::string_view bytes =
      left_ == 0 ? "" : source_->read(std::min<uint64_t>(left_, segment_part));
  if (bytes.empty()) {
    finish();
    return false;
  }
  if (left_ != UINT64_MAX) left_ -= bytes.size();
  scan_->take(bytes);
  if (compressor_ != nullptr) compressor_->take(bytes);
  if (compressed_ != nullptr) compare(bytes);
  return true;
}

// Somebody else's file, perhaps: neither is touched.
void segment_work::refuse_compressed() const {
  raise_write_error("compress", journal_.path(segment_.name),
                    "a compressed form is there, which holds something else");
}

void segment_work::compare(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::string_view other = compressed_->read(bytes.size());
    if (other.empty() || !bytes.starts_with(other)) refuse_compressed();
    bytes.remove_prefix(other.size());
  }
}

// --- The end ---

// Whether the form that was read is there, and as it was, or longer.
bool segment_work::is_unchanged(const append_batch& batch) const {
  struct stat status {};
  const std::string name = segment_.file_name();
  return KP_fstatat(batch.folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_dev == source_status_.st_dev && status.st_ino == source_status_.st_ino &&
         status.st_size >= source_status_.st_size;
}

void segment_work::finish() {
  if (compressor_ != nullptr) return finish_compressed();
  append_batch batch(journal_.folder, journal_.name, journal_.rules);
  if (compressed_ != nullptr)
    replace(batch);
  else if (is_unchanged(batch))
    write_index(batch, segment_.file_name(), static_cast<uint64_t>(source_status_.st_size));
  batch.commit();
}

void segment_work::finish_compressed() {
  const std::string path = journal_.path(segment_.unfinished_name());
  const std::array<timespec, 2> times = {source_status_.st_atim, source_status_.st_mtim};
  compressor_->finish();
  // What it is removed by is the last writing of its records.
  if (futimens(unfinished_.get(), times.data()) != 0 ||
      KP_fchmod(unfinished_.get(), source_status_.st_mode & ALLPERMS) != 0 ||
      KP_fsync(unfinished_.get()) != 0)
    raise_write_error("write", path);
  append_batch batch(journal_.folder, journal_.name, journal_.rules);
  replace(batch);
  batch.commit();
}

// Whether nothing was written to the plain form since.
bool segment_work::is_as_it_was(const append_batch& batch) const {
  struct stat status {};
  return is_unchanged(batch) && left_ == 0 &&
         KP_fstatat(batch.folder(), segment_.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_size == source_status_.st_size;
}

// False where somebody has made one meanwhile.
bool segment_work::name_compressed(const append_batch& batch) {
  struct stat status {};
  const std::string name = segment_.compressed_name();
  if (KP_fstatat(batch.folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return false;
  if (KP_renameat(batch.folder(), segment_.unfinished_name().c_str(), name.c_str()) != 0)
    raise_write_error("write", journal_.path(name));
  unfinished_.close();
  return true;
}

// The plain form goes when the compressed one is on the disk, with all of its lines.
void segment_work::replace(const append_batch& batch) {
  if (!is_as_it_was(batch)) return;
  if (compressed_ != nullptr && !compressed_->read(1).empty()) refuse_compressed();
  if (compressor_ != nullptr && !name_compressed(batch)) return;
  struct stat status {};
  const std::string name = segment_.compressed_name();
  if (KP_fstatat(batch.folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    raise_write_error("write", journal_.path(name));
  // Not every file system can synchronise a folder.
  static_cast<void>(KP_fsync(batch.folder()));
  write_index(batch, name, static_cast<uint64_t>(status.st_size));
  if (KP_unlinkat(batch.folder(), segment_.name.c_str(), 0) != 0)
    raise_write_error("remove", journal_.path(segment_.name));
}
