// A compiled definition file in memory: the model that its sources would give, and what only the
// file knows. docs/definition-format.md describes the layout.
#ifndef RECORDING_DEFINITIONS_COMPILED_FILE_H
#define RECORDING_DEFINITIONS_COMPILED_FILE_H

#include <string>
#include <vector>

#include "logging/ldf_format.h"
#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"
#include "recording/report/text_file.h"

constexpr size_t definition_file_size_limit = size_t{1} << 30;  // bytes; larger files are refused

// Bytes of the file, by their offsets.
struct file_extent {
  size_t begin = 0;
  size_t end = 0;  // behind the last one

  size_t size() const { return end - begin; }
};

class definition_file {
 public:
  // `name` is what diagnostics call the file.
  definition_file(std::string name, std::string bytes);
  // The set points into the file.
  definition_file(const definition_file&) = delete;
  definition_file& operator=(const definition_file&) = delete;

  const text_file source;
  _kp_LOG_ldf_header_struct header{};

  // In the order of the mapping table. The place of every value is its offset. Types are codes as
  // the library keeps them, also where they stand for none; messages are raw templates. A file has
  // no names of events: the default message's ID stands in where it is a name that no other event
  // has, and else "EVENT_" and the ID.
  definition_set set;
  file_extent globals;
  std::vector<file_extent> records;  // of set.events, one for one
};

// Fills in header, set and extents. Adds what keeps the library from loading the file or one of its
// records as errors, with the offset, what was expected and what was found; whatever can be read is
// there all the same. Adds what the library takes leniently as warnings. Of an entry ID that comes
// twice only the last record counts. False when there were errors.
bool read_definition_file(definition_file& file, diagnostic_list& found);

// Whether the bytes are those of a compiled file and not of a source.
bool is_definition_file(std::string_view bytes);

#endif
