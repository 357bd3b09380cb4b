#include <memory>
#include <ostream>

#include "recording/definitions/merged_set.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/command/set_command.h"
#include "tools/compiled/writer.h"
#include "tools/report/outcome.h"

static command_outcome compile(const definition_output_options& options, std::ostream& log) {
  if (options.is_merged && options.standard.empty())
    throw wrong_usage("--merged needs the STD set, given with --std");
  standard_input standard;
  definition_input input;
  read_definitions_to_output(options, standard, input, log);
  const definition_set set =
      options.is_merged ? merged_set(standard.definitions()->set(), input.set()) : input.set();
  return write_definition_output(
      options, definition_file_bytes(set),
      counted(set.events.size(), "event") + ", " + counted(set.globals.size(), "global attribute"),
      log);
}

static command_action describe_compile(CLI::App& command) {
  const auto options = std::make_shared<definition_output_options>();
  add_arguments(command, {"SOURCE", "FILE", "Definition sources; - is standard input"},
                options->inputs);
  add_text_option(command, {"-o,--output", "FILE", "The file to write; - is standard output"},
                  options->output, option_need::required);
  add_standard_option(command, options->standard);
  add_flag_option(command, "--merged",
                  "One STD file of both sets, so that a program merges nothing; with --std",
                  options->is_merged);
  add_report_options(command, options->report);
  return [options](std::ostream&, std::ostream& log) {
    return outcome_of(options->report, log, [&] { return compile(*options, log); });
  };
}

constexpr kplog_command_row compile_command = {
    "compile", "Compile definition sources to a file",
    "  kplog compile events.yaml -o events.ldf\n"
    "  kplog compile base.yaml network.yaml -o all.ldf     several sources, one set\n"
    "  kplog compile product.yaml --std standard.ldf -o product.ldf   an AUX set, checked beside "
    "its STD set\n"
    "  kplog compile product.yaml --std standard.ldf --merged -o all.ldf   one STD file of both\n"
    "  generate | kplog compile - -o - > events.ldf        standard input and output\n"
    "  kplog compile --format json events.yaml -o e.ldf    diagnostics for programs\n",
    describe_compile};
