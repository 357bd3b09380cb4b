#include "tools/compile_command.h"

#include <cerrno>
#include <deque>
#include <ostream>
#include <system_error>

#include "tools/atomic_file.h"
#include "tools/definition_check.h"
#include "tools/definition_source.h"
#include "tools/definition_writer.h"
#include "tools/terminal_text.h"

static std::string system_text(int error) {
  return std::generic_category().message(error);
}

static std::string counted(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

static bool read_sources(const compile_options& options, std::deque<source_text>& sources,
                         std::ostream& log) {
  bool good = true;
  for (const std::string& path : options.sources) {
    std::string bytes;
    if (read_source_bytes(path, bytes)) {
      sources.emplace_back(path == "-" ? "<stdin>" : path, std::move(bytes));
      continue;
    }
    log << "kplog: cannot read " << terminal_text(path) << ": " << system_text(errno) << '\n';
    good = false;
  }
  return good;
}

static void report(const compile_options& options, const definition_set& set,
                   const diagnostic_list& found, std::ostream& log) {
  found.write(log, set.sources, options.format, options.color);
  if (!options.quiet && options.format == diagnostic_format::text)
    log << "kplog: " << counted(found.size(), "error") << ", nothing written\n";
}

static command_outcome write_output(const compile_options& options, const definition_set& set,
                                    std::ostream& log) {
  if (!write_atomic_file(options.output, definition_file_bytes(set))) {
    log << "kplog: cannot write " << terminal_text(options.output) << ": " << system_text(errno)
        << '\n';
    return command_outcome::file_error;
  }
  if (!options.quiet && options.format == diagnostic_format::text)
    log << "kplog: wrote " << terminal_text(options.output) << ": "
        << counted(set.events.size(), "event") << ", "
        << counted(set.globals.size(), "global attribute") << '\n';
  return command_outcome::good;
}

command_outcome run_compile_command(const compile_options& options, std::ostream& log) {
  std::deque<source_text> sources;
  if (!read_sources(options, sources, log)) return command_outcome::file_error;
  definition_set set;
  diagnostic_list found;
  for (const source_text& source : sources) read_definition_source(source, set, found);
  complete_definition_set(set, found);
  if (found.empty()) return write_output(options, set, log);
  report(options, set, found, log);
  return command_outcome::findings;
}
