#include "tools/dump/load_set.h"

#include <algorithm>

#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "tools/report/outcome.h"
#include "tools/source/completion.h"
#include "tools/source/reader.h"

static size_t limit_of_kind(std::string_view bytes) {
  return is_definition_file(bytes) ? definition_file_size_limit : source_size_limit;
}

static void complete_sources(definition_input& input, const std_definitions* standard,
                             diagnostic_list& found) {
  for (const text_file& source : input.sources)
    read_definition_source(source, input.source_set, found);
  complete_definition_set(input.source_set, found, standard);
}

// The first of the paths that stood there before; null when there is none.
static const std::string* given_twice(const std::vector<std::string>& paths) {
  for (auto path = paths.begin(); path != paths.end(); ++path)
    if (std::find(paths.begin(), path, *path) != path) return &*path;
  return nullptr;
}

void read_definition_input(const std::vector<std::string>& paths, definition_input& input,
                           diagnostic_list& found, const report_options& report, std::ostream& log,
                           const std_definitions* standard) {
  if (reads_standard_input_twice(paths)) throw wrong_usage("standard input can be read once");
  if (const std::string* const twice = given_twice(paths))
    throw wrong_usage(*twice + " is given twice");
  bool are_read = true;
  for (const std::string& path : paths) {
    std::string bytes;
    try {
      bytes = read_file(path, limit_of_kind);
    } catch (const file_error& error) {
      report_file_error(log, report, error);
      input.source_set.is_whole = false;
      are_read = false;
      continue;
    }
    if (is_definition_file(bytes)) {
      if (paths.size() > 1)
        throw wrong_usage(input_name(path) + " is compiled, and so a set of its own");
      input.file = std::make_unique<definition_file>(input_name(path), std::move(bytes));
      read_definition_file(*input.file, found);
    } else {
      input.sources.emplace_back(input_name(path), std::move(bytes));
    }
  }
  if (input.file == nullptr) complete_sources(input, standard, found);
  if (are_read) return;
  found.write(log, input.set().sources, report.format, report.color);
  throw command_ended(command_outcome::file_error);
}
