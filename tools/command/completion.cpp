// kplog completion: scripts that complete the commands, their options, and the values of options:
// choices, files, folders. Each goes where its shell looks for completions of "kplog".
#include <array>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tools/command/command_line.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"

static std::string joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

static std::string path_text(const command_description& command) {
  return joined(command.path, " ");
}

// The path of the command that this one belongs to.
static std::string path_above(const command_description& command) {
  return joined({command.path.begin(), command.path.end() - 1}, " ");
}

// Between single quotes, as all of the shells read them.
static std::string shell_text(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

static std::vector<std::string> command_names(const command_description& command) {
  std::vector<std::string> names;
  for (const command_description& below : command.commands) names.push_back(below.path.back());
  return names;
}

static const option_description* positional_of(const command_description& command) {
  for (const option_description& option : command.options)
    if (option.is_positional) return &option;
  return nullptr;
}

// --- bash

static constexpr const char* bash_head =
    "# Completion of kplog for bash, as `kplog completion bash` writes it.\n"
    "_kplog() {\n"
    "  local current=${COMP_WORDS[COMP_CWORD]} at=$((COMP_CWORD - 1))\n"
    "  local path= word i values= previous key= list= taken=\n"
    "  # The shell takes each \"=\" for a word of its own.\n"
    "  if [[ $current == = || ${COMP_WORDS[at]} == = ]]; then\n"
    "    if [[ $current == = ]]; then current=; else at=$((at - 1)); fi\n"
    "    if [[ ${COMP_WORDS[at]} != -* && at -gt 1 ]]; then\n"
    "      key=${COMP_WORDS[at]}=\n"
    "      at=$((at - 1))\n"
    "      if [[ ${COMP_WORDS[at]} == = ]]; then at=$((at - 1)); fi\n"
    "    fi\n"
    "  fi\n"
    "  previous=${COMP_WORDS[at]}\n"
    "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
    "    word=${COMP_WORDS[i]}\n"
    "    case \"$path/$word\" in\n";

static constexpr const char* bash_tail =
    "  case $values in\n"
    "    FILE) COMPREPLY=($(compgen -f -- \"$current\")) ;;\n"
    "    FOLDER) COMPREPLY=($(compgen -d -- \"$current\")) ;;\n"
    "    *)\n"
    "      if [[ $list && $current == *,* ]]; then taken=${current%,*},; fi\n"
    "      COMPREPLY=($(compgen -W \"$values\" -- \"$key${current#\"$taken\"}\"))\n"
    "      COMPREPLY=(\"${COMPREPLY[@]#\"$key\"}\")\n"
    "      COMPREPLY=(\"${COMPREPLY[@]/#/$taken}\") ;;\n"
    "  esac\n"
    "}\n"
    "complete -o filenames -F _kplog kplog\n";

// What `values` is for one that takes this: words, or a kind of file.
static std::string bash_values(const option_description& option) {
  return option.offers.empty() ? option.value : joined(option.offers, " ");
}

static bool is_completed(const option_description& option) {
  return !option.offers.empty() || option.value == "FILE" || option.value == "FOLDER";
}

static std::string bash_option_case(const command_description& command,
                                    const option_description& option) {
  std::string patterns;
  for (const std::string& name : option.names)
    patterns += (patterns.empty() ? "" : "|") + ("\"" + path_text(command)) + ":" + name + "\"";
  return "    " + patterns +
         ") values=" + shell_text(is_completed(option) ? bash_values(option) : "") +
         (option.is_list ? " list=1" : "") + " ;;\n";
}

static std::string bash_command_case(const command_description& command) {
  std::vector<std::string> dashed;
  for (const option_description& option : command.options)
    if (!option.is_positional)
      dashed.insert(dashed.end(), option.names.begin(), option.names.end());
  const option_description* const positional = positional_of(command);
  std::string other = joined(command_names(command), " ");
  if (positional != nullptr) other = bash_values(*positional);
  return "    " + shell_text(path_text(command)) +
         ":-*) values=" + shell_text(joined(dashed, " ")) + " ;;\n    " +
         shell_text(path_text(command)) + ":*) values=" + shell_text(other) + " ;;\n";
}

static std::string bash_completion(const command_description& kplog) {
  std::string paths;
  std::string options;
  std::string commands;
  for (const command_description* command : all_commands(kplog)) {
    if (!command->path.empty())
      paths += "      " + shell_text(path_above(*command) + "/" + command->path.back()) +
               ") path=" + shell_text(path_text(*command)) + " ;;\n";
    for (const option_description& option : command->options)
      if (!option.is_positional && !option.value.empty())
        options += bash_option_case(*command, option);
    commands += bash_command_case(*command);
  }
  return bash_head + paths + "    esac\n  done\n  case \"$path:$previous\" in\n" + options +
         "    *) case \"$path:$current\" in\n" + commands + "    esac ;;\n  esac\n" + bash_tail;
}

// --- zsh

static std::string zsh_escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

static std::string zsh_action(const option_description& option) {
  if (option.is_list) return "_values -s , value " + joined(option.offers, " ");
  if (!option.offers.empty()) return "(" + joined(option.offers, " ") + ")";
  if (option.value == "FILE") return "_files";
  return option.value == "FOLDER" ? "_files -/" : " ";
}

static std::string zsh_message(const option_description& option) {
  return option.offers.empty() ? option.value : "value";
}

static std::string zsh_option(const option_description& option) {
  const std::string value =
      option.value.empty() ? "" : ":" + zsh_escaped(zsh_message(option)) + ":" + zsh_action(option);
  if (option.is_positional)
    return "    " + shell_text((option.is_repeatable ? "*:" : ":") + option.names.front() + ":" +
                               zsh_action(option));
  std::string specs;
  for (const std::string& name : option.names) {
    const std::string exclusive =
        option.is_repeatable ? "*" : "(" + joined(option.names, " ") + ")";
    std::string spec = exclusive;
    spec.append(name).append("[").append(zsh_escaped(option.text)).append("]").append(value);
    specs.append(specs.empty() ? "" : " \\\n").append("    ").append(shell_text(spec));
  }
  return specs;
}

static std::string zsh_function_name(const command_description& command) {
  return "_" + command.name("_");
}

static std::string zsh_below(const command_description& command) {
  std::string names;
  std::string calls;
  for (const command_description& below : command.commands) {
    names += "    " + shell_text(below.path.back() + ":" + zsh_escaped(below.text)) + "\n";
    calls += "        " + below.path.back() + ") " + zsh_function_name(below) + " ;;\n";
  }
  return "  local -a commands=(\n" + names +
         "  )\n  case $state in\n    command) _describe command commands ;;\n    arguments)\n"
         "      case $words[1] in\n" +
         calls + "      esac ;;\n  esac\n";
}

static std::string zsh_function(const command_description& command) {
  const bool has_commands = !command.commands.empty();
  std::string text = zsh_function_name(command) + "() {\n";
  if (has_commands) text += "  local context state state_descr line\n  typeset -A opt_args\n";
  text += has_commands ? "  _arguments -C" : "  _arguments";
  for (const option_description& option : command.options) text += " \\\n" + zsh_option(option);
  if (has_commands) text += " \\\n    '1: :->command' \\\n    '*:: :->arguments'";
  return text + "\n" + (has_commands ? zsh_below(command) : "") + "}\n\n";
}

static std::string zsh_completion(const command_description& kplog) {
  std::string script =
      "#compdef kplog\n# Completion of kplog for zsh, as `kplog completion zsh` writes it.\n\n";
  for (const command_description* command : all_commands(kplog)) script += zsh_function(*command);
  return script + "_kplog \"$@\"\n";
}

// --- fish

static constexpr const char* fish_head =
    "# Completion of kplog for fish, as `kplog completion fish` writes it.\n"
    "function __kplog_path\n"
    "  set -l path\n"
    "  for word in (commandline -opc)[2..-1]\n"
    "    switch \"$path/$word\"\n";

static std::string fish_condition(const command_description& command) {
  return "complete -c kplog -n " +
         shell_text("test (__kplog_path) = \"" + path_text(command) + "\"");
}

static std::string fish_argument(const option_description& option) {
  if (!option.offers.empty()) return " -a " + shell_text(joined(option.offers, " "));
  return option.value == "FOLDER" ? " -a '(__fish_complete_directories)'" : " -F";
}

static std::string fish_value(const option_description& option) {
  if (option.is_list)
    return " -x -a " + shell_text("(__fish_append , " + joined(option.offers, " ") + ")");
  if (!option.offers.empty()) return " -x -a " + shell_text(joined(option.offers, " "));
  if (option.value == "FILE") return " -r -F";
  if (option.value == "FOLDER") return " -x -a '(__fish_complete_directories)'";
  return option.value.empty() ? "" : " -x";
}

static std::string fish_option(const command_description& command,
                               const option_description& option) {
  std::string line = fish_condition(command);
  if (option.is_positional) return line + fish_argument(option) + "\n";
  for (const std::string& name : option.names)
    line += name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1);
  return line + fish_value(option) + " -d " + shell_text(option.text) + "\n";
}

static std::string fish_completion(const command_description& kplog) {
  std::string paths;
  std::string lines = "complete -c kplog -f\n";
  for (const command_description* command : all_commands(kplog)) {
    if (!command->path.empty())
      paths += "      case " + shell_text(path_above(*command) + "/" + command->path.back()) +
               "\n        set path " + shell_text(path_text(*command)) + "\n";
    for (const command_description& below : command->commands)
      lines += fish_condition(*command) + " -a " + below.path.back() + " -d " +
               shell_text(below.text) + "\n";
    for (const option_description& option : command->options)
      lines += fish_option(*command, option);
  }
  return fish_head + paths + "    end\n  end\n  echo \"$path\"\nend\n\n" + lines;
}

// --- The command

struct completion_row {
  const char* name;  // of the shell
  std::string (*script)(const command_description& kplog);
};

static constexpr std::array<completion_row, 3> completions = {{
    {"bash", bash_completion},
    {"zsh", zsh_completion},
    {"fish", fish_completion},
}};

static command_action describe_completion(CLI::App& command) {
  const auto shell = std::make_shared<std::string>();
  add_choice_option(command, "SHELL", *shell, names_of(completions),
                    "The shell that the script is for", option_need::required);
  return [shell, &command](std::ostream& out, std::ostream&) {
    for (const completion_row& row : completions)
      if (*shell == row.name) out << row.script(whole_command_line(command));
    return command_outcome::good;
  };
}

constexpr kplog_command_row completion_command = {
    "completion", "Write a script that completes command lines of kplog",
    "  kplog completion bash > /usr/share/bash-completion/completions/kplog\n"
    "  kplog completion zsh > /usr/share/zsh/site-functions/_kplog\n"
    "  kplog completion fish > ~/.config/fish/completions/kplog.fish\n",
    describe_completion, true};
