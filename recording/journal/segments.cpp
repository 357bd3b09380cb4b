#include "recording/journal/segments.h"

#include <fcntl.h>

#include <map>
#include <tuple>
#include <utility>

#include "base/kp_clib.h"
#include "recording/files/folder.h"

using segment_map = std::map<std::pair<log_day, unsigned>, journal_segment>;

// Nothing where it was removed meanwhile, or is nothing that this program made.
static std::optional<segment_file> segment_file_of(int folder, const char* name) {
  struct stat status {};
  if (KP_fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
    return std::nullopt;
  return segment_file{static_cast<uintmax_t>(status.st_size), status.st_mtim};
}

static void take_file(int folder, const char* file, const std::string& name, segment_map& found) {
  const auto dated = dated_name_of(file, name);
  if (!dated || !dated->ending.starts_with(segment_ending)) return;
  const std::string form = dated->ending.substr(segment_ending.size());
  journal_segment segment;
  segment.day = dated->day;
  segment.serial = dated->serial;
  segment.name = dated_name_text(name, dated->day, dated->serial, segment_ending);
  journal_segment& one =
      found.try_emplace({segment.day, segment.serial}, std::move(segment)).first->second;
  if (form.empty()) one.plain = segment_file_of(folder, file);
  if (form == compressed_ending) one.compressed = segment_file_of(folder, file);
  if (form == index_ending) one.has_index = segment_file_of(folder, file).has_value();
  const std::string_view text = file;
  if (text == one.unfinished_name()) one.has_unfinished = segment_file_of(folder, file).has_value();
  if (text == one.unfinished_index_name())
    one.has_unfinished_index = segment_file_of(folder, file).has_value();
}

std::vector<journal_segment> segments_of(int folder, const std::string& path,
                                         const std::string& name) {
  segment_map found;
  for_each_name(folder, path, [&](const char* file) { take_file(folder, file, name, found); });
  std::vector<journal_segment> segments;
  for (auto& [key, segment] : found)
    if (segment.is_there() || segment.has_index || segment.has_unfinished ||
        segment.has_unfinished_index)
      segments.push_back(std::move(segment));
  return segments;
}

bool is_older(const journal_segment& one, const journal_segment& other) {
  const auto key = [](const journal_segment& segment) {
    const timespec written = segment.written();
    return std::tuple(written.tv_sec, written.tv_nsec, segment.day, segment.serial);
  };
  return key(one) < key(other);
}
