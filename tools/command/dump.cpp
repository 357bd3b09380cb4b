#include <array>
#include <memory>
#include <ostream>

#include "recording/definitions/compiled_file.h"
#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/dump/tables.h"
#include "tools/dump/yaml.h"
#include "tools/report/outcome.h"

struct dump_options {
  std::string path;      // "-": standard input
  std::string standard;  // empty: none
  std::string format = "yaml";
  report_options report;
};

struct dump_format_row {
  const char* name;
  std::string (*dump)(definition_file& file, diagnostic_list& found,
                      const std_definitions* standard);
};

static constexpr std::array<dump_format_row, 3> dump_formats = {{
    {"yaml", definition_yaml},
    {"json", [](definition_file& file, diagnostic_list&,
                const std_definitions*) { return definition_json(file); }},
    {"table", [](definition_file& file, diagnostic_list&,
                 const std_definitions*) { return definition_overview(file); }},
}};

static std::string dumped(const dump_options& options, definition_file& file,
                          diagnostic_list& found, const std_definitions* standard) {
  for (const dump_format_row& row : dump_formats)
    if (options.format == row.name) return row.dump(file, found, standard);
  return "";
}

// Whatever can be read is dumped, whatever cannot is reported.
static command_outcome dump(dump_options& options, std::ostream& out, std::ostream& log) {
  if (options.format == "json") options.report.format = diagnostic_format::json;
  if (!options.standard.empty() && options.format != "yaml")
    throw wrong_usage("--std is for the format yaml; the others show the file alone");
  standard_input standard;
  standard.read(options.standard, options.report, log);
  definition_file file(input_name(options.path),
                       read_file(options.path, definition_file_size_limit));
  diagnostic_list found;
  if (read_definition_file(file, found) || file.header.magic == kp_ldf_magic)
    out << dumped(options, file, found, standard.definitions());
  found.write(log, file.set.sources, options.report.format, options.report.color);
  const bool is_whole = found.count(rule_severity::error) == 0;
  return is_whole ? command_outcome::good : command_outcome::findings;
}

static command_action describe_dump(CLI::App& command) {
  const auto options = std::make_shared<dump_options>();
  add_text_option(command, {"FILE", "FILE", "A compiled file; - is standard input"}, options->path,
                  option_need::required);
  add_standard_option(command, options->standard);
  add_choice_option(command, "--format", options->format, names_of(dump_formats),
                    "yaml, the default: a source that compiles to this file; json: everything in "
                    "it, for programs; table: a line for each event");
  add_quiet_option(command, options->report);
  add_color_option(command, options->report);
  return [options](std::ostream& out, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return dump(*options, out, log); });
  };
}

constexpr kplog_command_row dump_command = {
    "dump", "Show what a compiled file says",
    "  kplog dump events.ldf > events.yaml                 a source that compiles to the file\n"
    "  kplog dump product.ldf --std standard.ldf           an AUX file beside its STD set\n"
    "  kplog dump --format json events.ldf | jq .events    everything in it, for programs\n"
    "  kplog dump --format table events.ldf | less -S      a line for each event\n",
    describe_dump};
