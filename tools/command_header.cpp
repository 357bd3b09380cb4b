#include "tools/command_header.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <ostream>
#include <regex>

#include "tools/atomic_file.h"
#include "tools/command_options.h"
#include "tools/cpp_text.h"
#include "tools/definition_input.h"
#include "tools/definition_standard.h"
#include "tools/header_writer.h"

struct header_options {
  std::vector<std::string> inputs;  // "-": standard input
  std::string standard;             // empty: the set stands alone
  std::string output;               // "-": standard output
  std::string name_space;           // empty: by the output's name
  report_options report;
};

// "events" for "include/events.h".
static std::string name_space_of_file(const std::string& path) {
  if (path == "-") return "log_events";
  const std::string name = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
  return cpp_identifier(name.substr(0, name.rfind('.')));
}

// Identifiers with "::" between them, none of them a word of the language, and not std.
static bool is_name_space(const std::string& text) {
  static const std::regex form("[A-Za-z][A-Za-z0-9_]*(::[A-Za-z][A-Za-z0-9_]*)*");
  if (!std::regex_match(text, form) || text == "std" || text.rfind("std::", 0) == 0) return false;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find("::", begin), text.size());
    const std::string part = text.substr(begin, end - begin);
    if (cpp_identifier(part) != part) return false;
    begin = end + 2;
  }
  return true;
}

static command_outcome write_header(const header_options& options, const definition_set& set,
                                    std::ostream& log) {
  const std::string name_space =
      options.name_space.empty() ? name_space_of_file(options.output) : options.name_space;
  if (!write_atomic_file(options.output, event_header_text(set, name_space)))
    return write_error(log, options.report, options.output, errno);
  note_written(log, options.report, options.output, counted(set.events.size(), "event"));
  return command_outcome::good;
}

static command_outcome header(const header_options& options, std::ostream& log) {
  if (!options.name_space.empty() && !is_name_space(options.name_space))
    return usage_error(log, "\"" + options.name_space + "\" is no name space");
  if (would_replace_input(options.output, options.inputs, log) ||
      would_replace_input(options.output, {options.standard}, log))
    return command_outcome::usage;
  standard_input standard;
  definition_input input;
  diagnostic_list found;
  command_outcome outcome = standard.read(options.standard, options.report, log);
  if (outcome == command_outcome::good)
    outcome = read_definition_input(options.inputs, input, found, options.report, log,
                                    standard.definitions());
  if (outcome != command_outcome::good) return outcome;
  found.write(log, input.set().sources, options.report.format, options.report.color);
  const size_t errors = found.count(rule_severity::error);
  if (errors == 0) return write_header(options, input.set(), log);
  if (options.report.with_summary())
    log << "kplog: " << counted(errors, "error") << ", nothing written\n";
  return command_outcome::findings;
}

static command_action describe_header(CLI::App& command) {
  const auto options = std::make_shared<header_options>();
  command
      .add_option("INPUT", options->inputs,
                  "Definition sources, or one compiled file; - is standard input")
      ->required()
      ->type_name("FILE");
  command.add_option("-o,--output", options->output, "The header to write; - is standard output")
      ->required()
      ->type_name("FILE");
  command
      .add_option("--namespace", options->name_space,
                  "The namespace of everything in it; by the header's name when not given")
      ->type_name("NAME");
  add_standard_option(command, options->standard);
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) { return header(*options, log); };
}

constexpr kplog_command_row header_command = {
    "header", "Write a C++ header with a class for each event",
    "  kplog header events.yaml -o events.h\n"
    "  kplog header events.ldf -o events.h                 of a compiled file\n"
    "  kplog header --namespace shop::log events.yaml -o shop_events.h\n",
    describe_header};
