#include "tools/command/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <ostream>
#include <sstream>
#include <utility>

#include "recording/text/escape.h"
#include "recording/text/words.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"

// --- As data

std::vector<std::string> option_description::choices() const {
  std::vector<std::string> list;
  if (value.find('|') == std::string::npos) return list;
  std::istringstream pieces(value);
  for (std::string choice; std::getline(pieces, choice, '|');) list.push_back(choice);
  return list;
}

std::string command_description::name(const char* separator) const {
  std::string name = "kplog";
  for (const std::string& word : path) name += separator + word;
  return name;
}

static option_description describe_option(const CLI::Option& option) {
  option_description described;
  described.is_positional = option.get_positional();
  described.is_required = option.get_required();
  described.is_repeatable = option.get_items_expected_max() > 1 ||
                            option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  described.text = option.get_description();
  described.is_list = option.get_delimiter() == ',';
  if (option.get_items_expected_max() > 0) described.value = option.get_type_name();
  described.offers =
      described.value == severity_setting_form ? severity_settings() : described.choices();
  if (described.is_positional)
    described.names = {option.get_name(true)};
  else
    for (const std::string& name : option.get_snames()) described.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) described.names.push_back("--" + name);
  return described;
}

// The lines behind "Examples:", without their indentation.
static std::string examples_in(const std::string& footer) {
  std::istringstream lines(footer);
  std::string examples;
  std::string line;
  if (!std::getline(lines, line) || line != "Examples:") return "";
  while (std::getline(lines, line) && !line.empty())
    examples += line.substr(std::min(line.find_first_not_of(' '), line.size())) + '\n';
  return examples;
}

// `app` is a command or the whole of them; `path` is how it is reached.
static command_description describe_command_line(const CLI::App& app,
                                                 const std::vector<std::string>& path = {}) {
  command_description described;
  described.path = path;
  described.text = app.get_description();
  described.examples = examples_in(app.get_footer());
  for (const CLI::Option* option : app.get_options())
    described.options.push_back(describe_option(*option));
  const auto is_shown = [](const CLI::App* command) { return !command->get_group().empty(); };
  for (const CLI::App* command : app.get_subcommands(is_shown)) {
    std::vector<std::string> below = path;
    below.push_back(command->get_name());
    described.commands.push_back(describe_command_line(*command, below));
  }
  return described;
}

std::vector<const command_description*> all_commands(const command_description& command) {
  std::vector<const command_description*> all = {&command};
  for (const command_description& below : command.commands) {
    const std::vector<const command_description*> more = all_commands(below);
    all.insert(all.end(), more.begin(), more.end());
  }
  return all;
}

command_description whole_command_line(const CLI::App& command) {
  return describe_command_line(*command.get_parent());
}

std::string version_of_command_line(const CLI::App& command) {
  const std::string version = command.get_parent()->version();
  return version.substr(version.find(' ') + 1);
}

// --- What is wrong with it

// The last of the commands that were given, with its name as people write it.
struct given_command {
  const CLI::App* app;
  std::string name;
};

static given_command last_given_command(const CLI::App& kplog) {
  given_command command = {&kplog, kplog.get_name()};
  for (auto parsed = kplog.get_subcommands(); !parsed.empty();
       parsed = command.app->get_subcommands()) {
    command.app = parsed.front();
    command.name += ' ' + command.app->get_name();
  }
  return command;
}

static bool is_option(const std::string& word) {
  return word.size() > 1 && word.front() == '-';
}

static std::string unknown_option(const given_command& command, const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  const command_description description = describe_command_line(*command.app);
  std::vector<std::string_view> names;
  for (const option_description& option : description.options)
    if (!option.is_positional) names.insert(names.end(), option.names.begin(), option.names.end());
  return command.name + " has no option " + in_quotes(name) + nearest_name_hint(name, names);
}

static std::string unknown_word(const given_command& command, const std::string& word) {
  if (is_option(word)) return unknown_option(command, word);
  const command_description description = describe_command_line(*command.app);
  if (description.commands.empty()) return command.name + " takes nothing more: " + in_quotes(word);
  std::vector<std::string_view> names;
  for (const command_description& one : description.commands) names.push_back(one.path.back());
  return command.name + " has no command " + in_quotes(word) + nearest_name_hint(word, names);
}

static std::string missing_command(const given_command& command) {
  std::string text = command.name + " needs a command:";
  for (const command_description& one : describe_command_line(*command.app).commands)
    text += ' ' + one.path.back();
  return text;
}

// "kplog: TEXT" and, on a second line, the command whose help says more. Names a word that nothing
// takes, and what was probably meant, before anything that is missing. Ends with a line feed.
static std::string command_line_error(const CLI::App& kplog, const CLI::ParseError& error) {
  const given_command command = last_given_command(kplog);
  const std::vector<std::string> unknown = kplog.remaining(true);
  const bool is_command_missing =
      command.app->get_require_subcommand_min() > 0 && command.app->get_subcommands().empty();
  const std::string text = !unknown.empty()     ? unknown_word(command, unknown.front())
                           : is_command_missing ? missing_command(command)
                                                : error.what();
  return "kplog: " + terminal_text(text) + "\nTry '" + command.name + " --help'.\n";
}

// --- Help

static std::vector<const CLI::App*> shown_commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

static command_outcome no_command(const CLI::App& app, const std::string& word, std::ostream& log) {
  std::vector<std::string_view> names;
  for (const CLI::App* command : shown_commands(app)) names.push_back(command->get_name());
  return usage_error(log, "no command " + in_quotes(word) + nearest_name_hint(word, names));
}

static command_outcome help(const CLI::App& kplog, const std::vector<std::string>& words,
                            std::ostream& out, std::ostream& log) {
  const CLI::App* command = &kplog;
  std::string name = kplog.get_name();
  for (const std::string& word : words) {
    const auto found = command->get_subcommands(
        [&](const CLI::App* candidate) { return candidate->get_name() == word; });
    if (found.empty()) return no_command(*command, word, log);
    command = found.front();
    name += " " + word;
  }
  out << command->get_formatter()->make_help(command, name, CLI::AppFormatMode::Normal);
  return command_outcome::good;
}

// The commands that the table lists before this one.
static std::string command_choices(const CLI::App& kplog) {
  std::string choices;
  for (const CLI::App* command : shown_commands(kplog))
    choices += (choices.empty() ? "" : "|") + command->get_name();
  return choices;
}

static command_action describe_help(CLI::App& command) {
  const auto words = std::make_shared<std::vector<std::string>>();
  add_arguments(command,
                {"COMMAND", command_choices(*command.get_parent()),
                 "A command, and one of its own commands; none: all of kplog"},
                *words, option_need::optional);
  return [words, &command](std::ostream& out, std::ostream& log) {
    return help(*command.get_parent(), *words, out, log);
  };
}

constexpr kplog_command_row help_command = {"help", "Explain a command, as its option --help does",
                                            "  kplog help\n"
                                            "  kplog help compile\n"
                                            "  kplog help catalog build\n",
                                            describe_help};

// --- The commands

static constexpr std::array command_rows = {
    &compile_command,    &check_command,  &dump_command,    &diff_command,   &header_command,
    &catalog_command,    &emit_command,   &send_command,    &status_command, &render_command,
    &ship_command,       &fleet_command,  &recover_command, &count_command,  &help_command,
    &completion_command, &manual_command,
};

struct kplog_command_line::parser {
  explicit parser(const char* version);

  // The words with the options that stand before the command moved behind its name.
  std::vector<std::string> with_options_behind_command(std::vector<std::string> words) const;

  CLI::App app;
  std::string unused;  // the value of an option that no command came to take
  std::vector<std::pair<const CLI::App*, command_action>> actions;
};

kplog_command_line::parser::parser(const char* version)
    : app("Define, compile and inspect log events", "kplog") {
  app.set_version_flag("--version", std::string("kplog ") + version);
  app.require_subcommand(1);
  app.footer(help_footer(""));
  // Commands take these behind their names; here they are found for the help.
  app.add_flag("-q,--quiet")->description("As the command's option of this name");
  app.add_option("--color", unused, "As the command's option of this name")
      ->type_name("auto|always|never");
  app.add_option("--format", unused, "As the command's option of this name")->type_name("FORMAT");
  for (const kplog_command_row* row : command_rows) {
    CLI::App& command = *app.add_subcommand(row->name, row->summary);
    if (row->is_hidden) command.group("");
    command.footer(help_footer(row->examples));
    actions.emplace_back(&command, row->describe(command));
  }
}

static const CLI::App* command_of(const CLI::App& app, const std::string& name) {
  const auto commands =
      app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
  return commands.empty() ? nullptr : commands.front();
}

std::vector<std::string> kplog_command_line::parser::with_options_behind_command(
    std::vector<std::string> words) const {
  size_t options = 0;
  while (options < words.size() && words[options].size() > 1 && words[options].front() == '-') {
    const std::string name = words[options].substr(0, words[options].find('='));
    const CLI::Option* const option = app.get_option_no_throw(name);
    if (option == nullptr) break;
    const bool takes_next = option->get_items_expected_max() > 0 && name == words[options];
    options += takes_next ? 2 : 1;
  }
  size_t names = options;
  for (const CLI::App* command = &app; names < words.size(); ++names) {
    command = command_of(*command, words[names]);
    if (command == nullptr) break;
  }
  if (names > options)
    std::rotate(words.begin(), words.begin() + static_cast<ptrdiff_t>(options),
                words.begin() + static_cast<ptrdiff_t>(names));
  return words;
}

kplog_command_line::kplog_command_line(const char* version)
    : parser_(std::make_unique<parser>(version)) {}

kplog_command_line::~kplog_command_line() = default;

command_description kplog_command_line::description() const {
  return describe_command_line(parser_->app);
}

// What could not be written is an error of every command.
static command_outcome flushed(command_outcome outcome, std::ostream& out, std::ostream& log) {
  if (out.flush()) return outcome;
  return report_file_error(log, {},
                           file_error(file_use::writing, "write", "standard output", errno));
}

command_outcome kplog_command_line::run(int argc, const char* const* argv, std::ostream& out,
                                        std::ostream& log) {
  try {
    std::vector<std::string> words =
        parser_->with_options_behind_command({argv + std::min(argc, 1), argv + argc});
    std::reverse(words.begin(), words.end());  // as the parser takes them
    parser_->app.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      log << command_line_error(parser_->app, error);
      return command_outcome::usage;
    }
    parser_->app.exit(error, out, log);
    return flushed(command_outcome::good, out, log);
  }
  for (const auto& [command, action] : parser_->actions) {
    if (!command->parsed()) continue;
    return flushed(action(out, log), out, log);
  }
  return command_outcome::usage;
}
