#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <memory>
#include <ostream>
#include <string>

#include "recording/files/whole_file.h"
#include "tools/command/commands.h"
#include "tools/command/completion.h"
#include "tools/command/manual.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

struct completion_row {
  const char* name;  // of the shell
  std::string (*script)(const command_description& kplog);
};

static constexpr std::array<completion_row, 3> completions = {{
    {"bash", bash_completion},
    {"zsh", zsh_completion},
    {"fish", fish_completion},
}};

// All of kplog, seen from one of its commands.
static command_description whole_command_line(const CLI::App& command) {
  return describe_command_line(*command.get_parent());
}

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

static command_outcome write_pages(const command_description& kplog, const std::string& version,
                                   const std::string& folder, std::ostream& log) {
  for (const command_description* command : all_commands(kplog)) {
    const std::string path = folder + "/" + manual_page_file(*command);
    if (!write_atomic_file(path, manual_page(*command, version)))
      return write_error(log, {}, path, errno);
  }
  return command_outcome::good;
}

static command_action describe_manual(CLI::App& command) {
  const auto folder = std::make_shared<std::string>();
  add_text_option(command, {"FOLDER", "FOLDER", "Where to write the pages"}, *folder,
                  option_need::required);
  return [folder, &command](std::ostream&, std::ostream& log) {
    const std::string version = command.get_parent()->version();
    return write_pages(whole_command_line(command), version.substr(version.find(' ') + 1), *folder,
                       log);
  };
}

constexpr kplog_command_row manual_command = {
    "manual", "Write the manual pages of kplog and its commands",
    "  kplog manual /usr/local/share/man/man1\n", describe_manual, true};
