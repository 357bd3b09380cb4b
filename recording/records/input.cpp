#include "recording/records/input.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/kp_clib.h"
#include "recording/files/dated_name.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

static constexpr size_t file_piece = size_t{256} << 10;

// --- Lines ---

void check_length(const record_line& line) {
  if (line.is_given_up)
    throw record_error("record-syntax"_rule,
                       {line.text.size(), "the end of the line did not come in time"});
  if (line.too_long)
    throw record_error("record-syntax"_rule,
                       {0, "the line is longer than " + std::to_string(line.limit) + " bytes"});
}

void record_lines::make_room() {
  if (begin_ != 0) std::memmove(bytes_.data(), bytes_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  const size_t needed = end_ + room_;
  if (bytes_.size() < needed) bytes_.resize(std::max(needed, bytes_.size() * 2));
}

void record_lines::add(std::string_view bytes) {
  while (!bytes.empty()) {
    make_room();
    const size_t part = std::min(bytes.size(), room_);
    std::memcpy(bytes_.data() + end_, bytes.data(), part);
    end_ += part;
    bytes.remove_prefix(part);
  }
}

ssize_t record_lines::read_from(int descriptor, size_t most) {
  make_room();
  ssize_t got = -1;
  do got = KP_read(descriptor, bytes_.data() + end_, std::min(room_, most));
  while (got < 0 && errno == EINTR);
  if (got > 0) end_ += static_cast<size_t>(got);
  return got;
}

static std::string_view without_mark(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return text;
}

static size_t limit_of_line(std::string_view line, bool is_first, size_t most) {
  return std::min(size_limit_of(is_first ? without_mark(line) : line), most);
}

bool take_as_line(std::string_view bytes, bool is_first, size_t most, record_line& line) {
  line.limit = limit_of_line(bytes, is_first, most);
  line.too_long = bytes.size() > line.limit;
  line.text = bytes.substr(0, line.limit);
  if (line.text.ends_with('\r')) line.text.remove_suffix(1);
  if (is_first) line.text = without_mark(line.text);
  return line.text.find_first_not_of(" \t\r") != std::string_view::npos;
}

// A line beyond the limit is not waited for: what is there of it is a piece without an end.
bool record_lines::take_piece(piece& taken, bool at_end) {
  const std::string_view rest(bytes_.data() + begin_, end_ - begin_);
  const size_t found = rest.find('\n', scanned_);
  taken = {rest.substr(0, found), found != std::string_view::npos};
  const bool is_beyond_limit = rest.size() > limit_of_line(rest, number_ == 0, most_);
  const bool is_due = taken.has_end || is_beyond_limit || (at_end && !rest.empty());
  scanned_ = is_due ? 0 : rest.size();
  if (is_due) begin_ += taken.text.size() + (taken.has_end ? 1 : 0);
  return is_due;
}

bool record_lines::next(record_line& line, bool at_end) {
  for (piece taken; take_piece(taken, at_end);) {
    const bool is_known = inside_;
    inside_ = !taken.has_end;
    if (is_known) continue;
    line.number = ++number_;
    if (take_as_line(taken.text, number_ == 1, most_, line)) return true;
  }
  return false;
}

bool record_lines::next_at_end(record_line& line) {
  if (next(line, true)) return true;
  inside_ = false;
  return false;
}

// --- Files ---

void raise_record_file_error(const std::string& path) {
  throw file_error(file_use::reading, "read", input_name(path), errno);
}

// Reading waits by poll alone.
open_descriptor open_record_file(const std::string& path) {
  open_descriptor file(KP_open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file.is_open()) raise_record_file_error(path);
  return file;
}

std::string record_file_at(const std::string& path) {
  struct stat status {};
  if (!path.ends_with(segment_ending) || KP_stat(path.c_str(), &status) == 0) return path;
  const std::string compressed = path + std::string(compressed_ending);
  return KP_stat(compressed.c_str(), &status) == 0 ? compressed : path;
}

// Asks without opening: a writer that waits for a FIFO's reader would take this for one.
void check_record_files(const std::vector<std::string>& paths) {
  for (const std::string& path : paths)
    if (path != "-" && KP_access(record_file_at(path).c_str(), R_OK) != 0)
      raise_record_file_error(path);
}

bool is_named_fifo(const std::string& path) {
  struct stat status {};
  struct statfs system {};
  return path != "-" && KP_stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode) &&
         statfs(path.c_str(), &system) == 0 && system.f_type != PIPEFS_MAGIC;
}

record_files::record_files(std::vector<std::string> paths)
    : paths_(std::move(paths)), lines_(file_piece) {
  open_next();
}

std::vector<std::string> record_files::behind() const {
  return {paths_.begin() + static_cast<std::ptrdiff_t>(std::min(next_, paths_.size())),
          paths_.end()};
}

int record_files::descriptor() const {
  return path() == "-" ? STDIN_FILENO : descriptor_.get();
}

// The old descriptor of a FIFO goes when the new one is there: what was written meanwhile is kept.
void record_files::open_again() {
  descriptor_ = path() == "-" ? open_descriptor() : open_record_file(path());
}

void record_files::open_next() {
  compressed_.reset();
  if (++next_ > paths_.size()) return;
  paths_[next_ - 1] = record_file_at(path());
  open_again();
  struct stat status {};
  const bool is_compressed = path().ends_with(compressed_ending) &&
                             KP_fstat(descriptor(), &status) == 0 && S_ISREG(status.st_mode);
  if (is_compressed)
    compressed_ = std::make_unique<segment_reader>(open_record_file(path()), path(), true);
  is_fifo_ = is_named_fifo(path());
  source_ = std::make_shared<line_source>(line_source{.name = input_name(path())});
  lines_ = record_lines(file_piece);
}

void record_files::watch(std::vector<pollfd>& descriptors) const {
  descriptors.push_back({at_end() ? -1 : descriptor(), POLLIN, 0});
}

void record_files::hand_over_lines(const record_taker& take) {
  record_line line;
  line.source = source_;
  while (lines_.next(line)) take(line);
}

void record_files::hand_over_end(const record_taker& take) {
  record_line line;
  line.source = source_;
  while (lines_.next_at_end(line)) take(line);
}

void record_files::read_compressed(const record_taker& take) {
  std::string_view bytes;
  try {
    bytes = compressed_->read(file_piece);
  } catch (const file_error& error) {
    throw file_error(file_use::reading, error.what());
  }
  lines_.add(bytes);
  hand_over_lines(take);
  if (!bytes.empty()) return;
  hand_over_end(take);
  open_next();
}

void record_files::read(std::span<const pollfd> watched, const record_taker& take) {
  if (watched.front().revents == 0) return;
  if (compressed_ != nullptr) return read_compressed(take);
  const ssize_t got = lines_.read_from(descriptor());
  if (got < 0 && errno == EAGAIN) return;
  if (got < 0) raise_record_file_error(path());
  hand_over_lines(take);
  if (got > 0) return;
  hand_over_end(take);
  if (is_fifo_)
    open_again();
  else
    open_next();
}

// --- The last of them ---

size_t waiting_bytes(int descriptor) {
  int count = 0;
  return ioctl(descriptor, FIONREAD, &count) == 0 && count > 0 ? static_cast<size_t>(count) : 0;
}

// Whether a read gives bytes, or tells the end, at once.
static bool is_ready(int descriptor) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1 && (waiting.revents & (POLLIN | POLLHUP)) != 0;
}

// What comes in while this reads is left alone, and so cannot keep it busy.
void record_files::read_waiting(const record_taker& take, record_deadline deadline) {
  size_t left = waiting_bytes(descriptor());
  while (left > 0 && is_ready(descriptor())) {
    if (std::chrono::steady_clock::now() >= deadline) {
      has_rest_ = true;
      return;
    }
    const ssize_t got = lines_.read_from(descriptor(), left);
    if (got <= 0) break;
    left -= static_cast<size_t>(got);
    hand_over_lines(take);
  }
  hand_over_end(take);
}

// A file that was read to its last byte has ended, though it has not been asked, and so has a pipe
// whose writers left.
bool record_files::reads_last_of_file(const record_taker& take, record_deadline deadline) {
  struct stat status {};
  if (compressed_ != nullptr) {
    has_rest_ = true;
    return false;
  }
  if (KP_fstat(descriptor(), &status) == 0 && S_ISREG(status.st_mode)) {
    has_rest_ = lseek(descriptor(), 0, SEEK_CUR) < status.st_size;
    if (!has_rest_) hand_over_end(take);
    return !has_rest_;
  }
  read_waiting(take, deadline);
  return !is_fifo_ && !has_rest_ && waiting_bytes(descriptor()) == 0 && is_ready(descriptor());
}

void record_files::read_last(const record_taker& take, record_deadline deadline) {
  while (!at_end() && reads_last_of_file(take, deadline)) open_next();
}

std::string unread_text(const std::string& name, uint64_t lines) {
  return lines == 0 ? name + " was not read"
                    : name + " was read to line " + std::to_string(lines) + " only";
}

std::vector<std::string> record_files::unread() const {
  std::vector<std::string> texts;
  if (has_rest_) texts.push_back(unread_text(source_->name, lines_.line_count()));
  for (size_t i = next_; i < paths_.size(); ++i)
    texts.push_back(unread_text(input_name(paths_[i]), 0));
  return texts;
}
