#include "tools/command/description.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "tools/command/severity_option.h"

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

command_description describe_command_line(const CLI::App& app,
                                          const std::vector<std::string>& path) {
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
