// The files that records are looked for in: those of journals (docs/journal.md).
#ifndef TOOLS_FIND_JOURNAL_FILES_H
#define TOOLS_FIND_JOURNAL_FILES_H

#include <optional>
#include <string>
#include <vector>

#include "recording/journal/segment_index.h"

struct searched_file {
  std::string path;
  std::optional<segment_index> index = {};  // of a segment; nothing where there is none that fits
};

// Of each path: the segments of the journal DIR/NAME, in their order; where there is none, and
// where there is a file of that name, the path itself. Of a segment that has two forms it is the
// plain one.
std::vector<searched_file> searched_files_of(const std::vector<std::string>& paths);

#endif
