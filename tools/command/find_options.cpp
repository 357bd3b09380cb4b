#include "tools/command/find_options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <stdexcept>

#include "recording/text/number.h"
#include "recording/text/words.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

// The conditions that --or divides into groups.
struct grouped_option {
  option_words words;
  std::vector<std::string> condition_group::*texts;
};

static const std::array<grouped_option, 3>& grouped_options() {
  static const std::array<grouped_option, 3> options = {{
      {{"--event", "PATTERN",
        "Records of this event: a name, an ID, or a pattern with * and ?; several with commas"},
       &condition_group::events},
      {{"--where", "CONDITION",
        "Records with an attribute like this: 'PORT>=1024'; = != < <= > >=, ~ for a regular "
        "expression; or with a member of their context like this: context.KEY=TEXT"},
       &condition_group::where},
      {{"--grep", "EXPRESSION", "Records with this regular expression in their message"},
       &condition_group::grep},
  }};
  return options;
}

static constexpr char or_option[] = "--or";

static void add_optional_text(CLI::App& command, const option_words& words,
                              std::optional<std::string>& value) {
  add_read_option(command, words, [&value](const std::string& text) { value = text; });
}

void add_find_options(CLI::App& command, find_options& options) {
  for (const grouped_option& option : grouped_options()) {
    CLI::Option& added = *command.add_option(option.words.names, option.words.text);
    added.type_name(option.words.type_name)->expected(1)->allow_extra_args(false);
    added.multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  }
  const std::string or_text = "Between --event, --where and --grep: those before, or those behind";
  command.add_flag(or_option, or_text);
  add_read_option(command, {"--level", "A..B", "Records of these levels: 0..3, or 3"},
                  [&options](const std::string& text) { options.levels = level_range_of(text); });
  add_optional_text(command,
                    {"--since", "TIME", "Records from then on: a time, a day, '2 hours ago'"},
                    options.since);
  add_optional_text(command, {"--until", "TIME", "Records up to then; a day is meant as a whole"},
                    options.until);
  add_optional_text(command, {"--host", "PATTERN", "Records that a recorder made on this host"},
                    options.host);
  add_read_option(command, {"--pid", "NUMBER", "Records that a recorder made in this process"},
                  [&options](const std::string& text) {
                    options.pid = number_of<uint64_t>(text);
                    if (!options.pid)
                      throw std::invalid_argument(in_quotes(text) + " is no process ID");
                  });
}

std::vector<condition_group> condition_groups_of(const CLI::App& command) {
  std::vector<condition_group> groups;
  std::array<size_t, 3> taken = {};  // of each option
  bool is_group_due = true;
  for (const CLI::Option* const given : command.parse_order()) {
    const bool is_or = given == command.get_option(or_option);
    if (is_or && is_group_due) break;
    is_group_due |= is_or;
    for (size_t i = 0; i < taken.size(); ++i) {
      const grouped_option& option = grouped_options()[i];
      if (given != command.get_option(option.words.names)) continue;
      if (is_group_due) groups.emplace_back();
      is_group_due = false;
      (groups.back().*option.texts).push_back(given->results().at(taken[i]++));
    }
  }
  if (is_group_due && command.count(or_option) != 0)
    throw wrong_usage("--or stands between conditions: --event, --where and --grep");
  return groups;
}
