// Definition sets from files of either kind: sources, or a compiled file.
#ifndef TOOLS_DUMP_LOAD_SET_H
#define TOOLS_DUMP_LOAD_SET_H

#include <deque>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "recording/definitions/compiled_file.h"
#include "recording/definitions/merged_set.h"
#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"
#include "recording/report/text_file.h"
#include "tools/report/outcome.h"

struct definition_input {
  definition_set& set() { return file == nullptr ? source_set : file->set; }
  const definition_set& set() const { return file == nullptr ? source_set : file->set; }

  std::unique_ptr<definition_file> file;  // null: sources
  std::deque<text_file> sources;
  definition_set source_set;
};

// Reads one compiled file, known by its first bytes, or one or several sources, checked and
// completed as one set; "-" is standard input. Faults go to `found`. Raises wrong_usage when the
// paths cannot be one set, and command_ended when a file cannot be read: `log` then says so, and
// what is found in the files that can be read. With an STD set, sources are those of an AUX set.
void read_definition_input(const std::vector<std::string>& paths, definition_input& input,
                           diagnostic_list& found, const report_options& report, std::ostream& log,
                           const std_definitions* standard = nullptr);

#endif
