// kplog: the command line. Options in, exit status out; the work is in the commands.
#include <sys/auxv.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <new>
#include <string>

#include "tools/compile_command.h"

static constexpr const char* exit_status_help =
    "Exit status: 0 good, 1 faults found, 2 wrong usage, 3 a file cannot be read or written.";

static constexpr const char* compile_examples =
    "Examples:\n"
    "  kplog compile events.yaml -o events.ldf\n"
    "  kplog compile base.yaml network.yaml -o all.ldf     several sources, one set\n"
    "  generate | kplog compile - -o - > events.ldf         standard input and output\n"
    "  kplog compile --format json events.yaml -o e.ldf    diagnostics for programs\n\n";

// The options as they are written; texts with few choices are checked by the parser.
struct kplog_command_line {
  compile_options compile;
  std::string color = "auto";
  std::string format = "text";
};

static void describe_compile(CLI::App& app, kplog_command_line& line) {
  CLI::App& compile = *app.add_subcommand("compile", "Compile definition sources to a file");
  compile.footer(std::string(compile_examples) + exit_status_help);
  compile.add_option("SOURCE", line.compile.sources, "Definition sources; - is standard input")
      ->required()
      ->type_name("");
  compile.add_option("-o,--output", line.compile.output, "The file to write; - is standard output")
      ->required()
      ->type_name("FILE");
  compile.add_flag("-q,--quiet", line.compile.quiet, "No summary, only what is wrong");
  compile.add_option("--color", line.color, "Colors in diagnostics; auto: on a terminal")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN");
  compile
      .add_option("--format", line.format,
                  "Diagnostics on standard error as text, or as one JSON object per line")
      ->check(CLI::IsMember({"text", "json"}))
      ->type_name("FORMAT");
}

static bool use_color(const std::string& choice) {
  if (choice != "auto") return choice == "always";
  return isatty(STDERR_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

static command_outcome usage_error(const char* text) {
  std::cerr << "kplog: " << text << '\n';
  return command_outcome::usage;
}

static command_outcome run(int argc, char** argv) {
  CLI::App app("Define, compile and inspect log events", "kplog");
  kplog_command_line line;
  app.set_version_flag("--version", "kplog " KPLOG_VERSION);
  app.require_subcommand(1);
  app.footer(exit_status_help);
  describe_compile(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? command_outcome::good : command_outcome::usage;
  }
  const auto& sources = line.compile.sources;
  if (std::count(sources.begin(), sources.end(), "-") > 1)
    return usage_error("standard input can be read once");
  line.compile.color = use_color(line.color);
  line.compile.format = line.format == "json" ? diagnostic_format::json : diagnostic_format::text;
  return run_compile_command(line.compile, std::cerr);
}

int main(int argc, char** argv) {
  if (getauxval(AT_SECURE) != 0)
    return static_cast<int>(usage_error("this program does not run with raised privileges"));
  // A file that grows too large is an error of the write, not the end of the program.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  try {
    return static_cast<int>(run(argc, argv));
  } catch (const std::bad_alloc&) {
    std::cerr << "kplog: out of memory\n";
  } catch (const std::exception& error) {
    std::cerr << "kplog: " << error.what() << '\n';
  }
  return static_cast<int>(command_outcome::file_error);
}
