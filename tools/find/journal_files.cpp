#include "tools/find/journal_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "base/kp_clib.h"
#include "recording/files/path.h"
#include "recording/journal/segment_work.h"
#include "recording/journal/segments.h"

static searched_file searched_segment(int folder, const journal_place& journal,
                                      const journal_segment& segment) {
  searched_file file{journal.path(segment.file_name())};
  auto index = read_segment_index(folder, journal, segment);
  const uintmax_t size = segment.plain ? segment.plain->size : segment.compressed->size;
  if (index && index->fits(segment.file_name(), size)) file.index = std::move(index);
  return file;
}

static std::vector<searched_file> segments_at(const std::string& path) {
  std::vector<searched_file> files;
  struct stat status {};
  if (path == "-" || KP_stat(path.c_str(), &status) == 0) return files;
  const file_place place = place_of(path);
  const open_descriptor folder(KP_open(place.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.is_open()) return files;
  const journal_place journal{place.folder, place.name};
  for (const journal_segment& segment : segments_of(folder.get(), place.folder, place.name))
    if (segment.is_there()) files.push_back(searched_segment(folder.get(), journal, segment));
  return files;
}

std::vector<searched_file> searched_files_of(const std::vector<std::string>& paths) {
  std::vector<searched_file> all;
  for (const std::string& path : paths) {
    std::vector<searched_file> segments = segments_at(path);
    if (segments.empty()) segments.push_back({path});
    std::move(segments.begin(), segments.end(), std::back_inserter(all));
  }
  return all;
}
