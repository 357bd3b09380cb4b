#include <algorithm>
#include <memory>
#include <ostream>

#include "recording/files/path.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/definitions/cpp_name.h"
#include "tools/header/event_header.h"
#include "tools/report/outcome.h"

struct header_options : definition_output_options {
  std::string name_space;  // empty: by the output's name
  std::string only;        // "ids"; empty: everything
};

// "events" for "include/events.h".
static std::string name_space_of_file(const std::string& path) {
  if (path == "-") return "log_events";
  const std::string name = place_of(path).name;
  return cpp_identifier(name.substr(0, name.rfind('.')));
}

// std, and its future versions, into which nobody may write.
static bool is_of_language(std::string_view name_space) {
  if (!name_space.starts_with("std")) return false;
  const size_t version_end = name_space.find_first_not_of("0123456789", 3);
  return version_end == std::string_view::npos || name_space.substr(version_end).starts_with("::");
}

// Identifiers as names of files give them, with "::" between them, and not std.
static bool is_name_space(std::string_view text) {
  if (is_of_language(text)) return false;
  for (;;) {
    const std::string_view part = text.substr(0, text.find("::"));
    if (cpp_identifier(part) != part) return false;
    if (part.size() == text.size()) return true;
    text.remove_prefix(part.size() + 2);
  }
}

static command_outcome header(const header_options& options, std::ostream& log) {
  if (!options.name_space.empty() && !is_name_space(options.name_space))
    throw wrong_usage(in_quotes(options.name_space) + " is no name space");
  definition_input input;
  const std::string name_space =
      options.name_space.empty() ? name_space_of_file(options.output) : options.name_space;
  if (is_of_language(name_space))
    throw wrong_usage("the header's name makes the namespace " + in_quotes(name_space) +
                      ", which belongs to C++; give another with --namespace");
  standard_input standard;
  read_definitions_to_output(options, standard, input, log);
  const header_content content =
      options.only == "ids" ? header_content::ids : header_content::classes;
  return write_definition_output(options, event_header_text(input.set(), name_space, content),
                                 counted(input.set().events.size(), "event"), log);
}

static command_action describe_header(CLI::App& command) {
  const auto options = std::make_shared<header_options>();
  options->takes_compiled = true;
  add_arguments(command,
                {"INPUT", "FILE", "Definition sources, or one compiled file; - is standard input"},
                options->inputs);
  add_text_option(command, {"-o,--output", "FILE", "The header to write; - is standard output"},
                  options->output, option_need::required);
  add_text_option(command,
                  {"--namespace", "NAME",
                   "The namespace of everything in it; by the header's name when not given"},
                  options->name_space);
  add_choice_option(command, "--only", options->only, {"ids"},
                    "The constants alone, without classes; everything when not given");
  add_standard_option(command, options->standard);
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return header(*options, log); });
  };
}

constexpr kplog_command_row header_command = {
    "header", "Write a C++ header with a class for each event",
    "  kplog header events.yaml -o events.h\n"
    "  kplog header events.ldf -o events.h                 of a compiled file\n"
    "  kplog header --only ids events.yaml -o event_ids.h\n"
    "  kplog header --namespace shop::log events.yaml -o shop_events.h\n",
    describe_header};
