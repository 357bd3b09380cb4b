#include "recording/records/growing_file.h"

#include <algorithm>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"

bool growing_file::is_of(const struct stat& status) const {
  file_identity own;
  return own.take(file_.get()) && own.is_of(status);
}

bool growing_file::next(record_line& line) {
  while (!lines_.next(line))
    if (!read_more()) return false;
  return true;
}

// --- Reading ---

std::string growing_file::read(uint64_t offset, size_t size) const {
  try {
    return read_part(file_.get(), offset, size, "read", path_);
  } catch (const file_error& error) {
    throw file_error(file_use::reading, error.what());
  }
}

// False when there is nothing more at the moment.
bool growing_file::read_more() {
  struct stat status {};
  if (KP_fstat(file_.get(), &status) == 0 && static_cast<uint64_t>(status.st_size) < offset_)
    go_back();
  const size_t checked = std::min(known_.size(), checked_size);
  const std::string bytes = read(offset_ - checked, checked + piece);
  const std::string_view known = std::string_view(known_).substr(known_.size() - checked);
  if (!std::string_view(bytes).starts_with(known)) {
    go_back();
    return true;
  }
  if (bytes.size() == checked) return false;
  const std::string_view more = std::string_view(bytes).substr(checked);
  offset_ += more.size();
  known_ += more;
  if (known_.size() > 2 * known_size) known_.erase(0, known_.size() - known_size);
  add(more);
  return true;
}

// --- Lines that come again ---

// Where the line begins of which a part has come again.
size_t growing_file::again_line() const {
  return again_at_ == 0 ? 0 : again_.rfind('\n', again_at_ - 1) + 1;
}

uint64_t growing_file::lines_again() const {
  const auto end = again_.begin() + static_cast<std::ptrdiff_t>(again_at_);
  return static_cast<uint64_t>(std::count(again_.begin(), end, '\n'));
}

// As long as they come as they were, nothing is to be handed out.
void growing_file::add(std::string_view bytes) {
  if (!again_.empty()) {
    const std::string_view rest = std::string_view(again_).substr(again_at_);
    const auto differing = std::mismatch(bytes.begin(), bytes.end(), rest.begin(), rest.end());
    const auto same = static_cast<size_t>(differing.first - bytes.begin());
    again_at_ += same;
    bytes.remove_prefix(same);
    if (bytes.empty() && again_at_ < again_.size()) return;
    lines_.count_from(lines_.line_count() + lines_again());
    const size_t line = again_line();
    lines_.add(std::string_view(again_).substr(line, again_at_ - line));
    again_.clear();
    again_at_ = 0;
  }
  lines_.add(bytes);
}

// Bytes that were read and belong to no line that was handed out.
size_t growing_file::unshown_size() const {
  return lines_.rest_size() + again_at_ - again_line();
}

line_position growing_file::position() const {
  return {offset_ - unshown_size(), lines_.line_count() + lines_again()};
}

// The file was cut, and may have grown again: behind the last line that is as it was it is read
// anew, and where there is none, from its beginning on.
void growing_file::go_back() {
  is_cut_ = true;
  const uint64_t begin = offset_ - known_.size();
  const std::string now = read(begin, known_.size());
  const auto differing = std::mismatch(known_.begin(), known_.end(), now.begin(), now.end());
  const auto same = static_cast<size_t>(differing.first - known_.begin());
  const size_t kept = same == 0 ? 0 : known_.rfind('\n', same - 1) + 1;
  const uint64_t lines = position().lines;
  const size_t shown = known_.size() - std::min(known_.size(), unshown_size());
  std::string lost = known_.substr(kept, std::max(kept, shown) - kept);
  const auto lost_count = static_cast<uint64_t>(std::count(lost.begin(), lost.end(), '\n'));
  lost += std::string_view(again_).substr(again_line());
  if (how_ == lost_lines::handed_over) lost_ += std::exchange(lost, "");
  if (kept == 0 && begin != 0) {
    std::string handed_over = std::move(lost_);
    *this = growing_file(std::move(file_), std::move(path_), {}, how_);
    lost_ = std::move(handed_over);
    is_cut_ = true;
    return;
  }
  offset_ = begin + kept;
  known_.resize(kept);
  again_ = std::move(lost);
  again_at_ = 0;
  lines_ = record_lines(piece);
  lines_.count_from(lines - std::min(lines, lost_count));
}
