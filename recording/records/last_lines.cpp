#include "recording/records/last_lines.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/file_error.h"
#include "recording/files/path.h"

// Reads bytes that were there; where they are gone, that is an error as well.
static void read_bytes_at(int file, const std::string& path, uint64_t offset, char* to,
                          size_t size) {
  while (size > 0) {
    const ssize_t got = KP_pread(file, to, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) raise_record_file_error(path);
    if (got == 0)
      throw file_error(file_use::reading, "read", input_name(path), "it became shorter meanwhile");
    to += got;
    offset += static_cast<uint64_t>(got);
    size -= static_cast<size_t>(got);
  }
}

// --- From the end ---

last_record_lines::last_record_lines(int file, uint64_t size, std::string path, size_t room,
                                     size_t most)
    : file_(file), path_(std::move(path)), room_(room), most_(most), end_(size), offset_(size) {}

// Makes the bytes before offset_ some of those that are held, in front of the others that are still
// to be looked at. A line that is longer than what is held is read in ever larger pieces.
void last_record_lines::read_before() {
  const auto size = static_cast<size_t>(std::min<uint64_t>(offset_, std::max(room_, held_)));
  if (bytes_.size() < size + held_) bytes_.resize(size + held_);
  std::memmove(bytes_.data() + size, bytes_.data(), held_);
  read_bytes_at(file_, path_, offset_ - size, bytes_.data(), size);
  offset_ -= size;
  held_ += size;
}

// What is longer than any line may be is not held.
uint64_t last_record_lines::begin_of_line(uint64_t line_end) {
  for (uint64_t unsearched = line_end;;) {
    const void* const found =
        memrchr(bytes_.data(), '\n', static_cast<size_t>(unsearched - offset_));
    if (found != nullptr)
      return offset_ + static_cast<uint64_t>(static_cast<const char*>(found) - bytes_.data()) + 1;
    if (offset_ == 0) return 0;
    unsearched = offset_;
    if (line_end - offset_ > most_) held_ = 0;
    read_before();
  }
}

std::string_view last_record_lines::bytes_of_line() {
  const auto size = static_cast<size_t>(place_.size);
  if (place_.offset + size <= offset_ + held_)
    return {bytes_.data() + (place_.offset - offset_), size};
  begin_.resize(std::min(size, most_ + 1));
  read_bytes_at(file_, path_, place_.offset, begin_.data(), begin_.size());
  return begin_;
}

bool last_record_lines::next(record_line& line) {
  while (end_ > 0) {
    held_ = std::min(held_, static_cast<size_t>(end_ - offset_));
    if (held_ == 0) read_before();
    const uint64_t line_end = bytes_[held_ - 1] == '\n' ? end_ - 1 : end_;
    const uint64_t begin = begin_of_line(line_end);
    place_ = {begin, line_end - begin};
    end_ = begin;
    line.number = 0;
    if (take_as_line(bytes_of_line(), begin == 0, most_, line)) return true;
  }
  return false;
}

// --- Their numbers ---

static uint64_t line_feeds_in(std::string_view bytes) {
  uint64_t count = 0;
  for (size_t at = bytes.find('\n'); at != bytes.npos; at = bytes.find('\n', at + 1)) ++count;
  return count;
}

void numbered_record_lines::count_to(uint64_t offset) {
  constexpr size_t piece = size_t{1} << 20;
  room_.resize(piece);
  while (counted_ < offset) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(piece, offset - counted_));
    read_bytes_at(file_, path_, counted_, room_.data(), size);
    number_ += line_feeds_in({room_.data(), size});
    counted_ += size;
  }
}

void numbered_record_lines::read(const line_place& place, record_line& line) {
  count_to(place.offset);
  bytes_.resize(static_cast<size_t>(std::min<uint64_t>(place.size, most_ + 1)));
  read_bytes_at(file_, path_, place.offset, bytes_.data(), bytes_.size());
  take_as_line(bytes_, place.offset == 0, most_, line);
  line.number = number_;
}
