#include "tools/find/file_from_end.h"

#include <sys/stat.h>

#include <utility>

#include "recording/files/compression.h"
#include "recording/files/path.h"

// More than are shown in a minute.
static constexpr size_t most_remembered = 1000;

file_from_end::file_from_end(open_descriptor file, uint64_t size, const std::string& path)
    : file_(std::move(file)),
      path_(path),
      source_(std::make_shared<line_source>(line_source{.name = input_name(path)})),
      lines_(file_.get(), size, path) {}

std::unique_ptr<file_from_end> file_from_end::open(const std::string& path) {
  const std::string found = record_file_at(path);
  if (found.ends_with(compressed_ending)) return nullptr;
  open_descriptor file = open_record_file(found);
  struct stat status {};
  const bool is_of_known_size =
      KP_fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
  if (!is_of_known_size) return nullptr;
  return std::unique_ptr<file_from_end>(
      new file_from_end(std::move(file), static_cast<uint64_t>(status.st_size), found));
}

bool file_from_end::next(record_line& line) {
  if (line.source != source_) line.source = source_;
  return lines_.next(line);
}

void file_from_end::remember() {
  remembered_.push_front(lines_.place());
  if (remembered_.size() <= most_remembered) return;
  remembered_.pop_back();
  ++forgotten_;
}

void file_from_end::for_each_remembered(const record_taker& take) {
  numbered_record_lines lines(file_.get(), path_);
  record_line line;
  line.source = source_;
  for (const line_place& place : remembered_) {
    lines.read(place, line);
    take(line);
  }
}
