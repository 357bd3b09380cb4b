// Options that several commands take, and how the parser is told of choices and files.
//
// The type name of an option is what the help shows, and what completion goes by: "FILE" and
// "FOLDER" are completed as such, "a|b|c" are the choices.
#ifndef TOOLS_COMMAND_OPTIONS_H
#define TOOLS_COMMAND_OPTIONS_H

#include <algorithm>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "recording/report/diagnostics.h"
#include "tools/report/outcome.h"

namespace CLI {
class App;
}
struct event_set_options;

// Whether what goes to the descriptor may be colored: "always", "never", or by whether it is a
// terminal and NO_COLOR is not set.
bool is_color_wanted(const std::string& choice, int descriptor);

// --quiet
void add_quiet_option(CLI::App& command, report_options& options);
// --color
void add_color_option(CLI::App& command, report_options& options);
// --quiet, --color, and --format text|json for diagnostics, or another name for that.
void add_report_options(CLI::App& command, report_options& options,
                        const std::string& format_name = "--format");

// The names of a table's rows.
template <class Rows>
std::vector<std::string> names_of(const Rows& rows) {
  std::vector<std::string> names(rows.size());
  std::transform(rows.begin(), rows.end(), names.begin(), [](const auto& row) { return row.name; });
  return names;
}

// What the help and completion say of an option or argument.
struct option_words {
  std::string names;      // "-o,--output"; of an argument, what it is called
  std::string type_name;  // of what it takes
  std::string text;       // a line that explains it
};

enum class option_need { optional, required };

// One that takes a text; its value is the default before.
void add_text_option(CLI::App& command, const option_words& words, std::string& value,
                     option_need need = option_need::optional);

// One that takes a number without a sign.
void add_number_option(CLI::App& command, const option_words& words, unsigned& value);

// One whose text is taken by `take`, which raises std::invalid_argument for one that it refuses.
void add_read_option(CLI::App& command, const option_words& words,
                     const std::function<void(const std::string&)>& take);

// One that takes a text each time it is given.
void add_texts_option(CLI::App& command, const option_words& words,
                      std::vector<std::string>& values, option_need need = option_need::optional);

// Arguments, or an option, of any number of texts; at least one when required.
void add_arguments(CLI::App& command, const option_words& words, std::vector<std::string>& values,
                   option_need need = option_need::required);

// One that takes nothing.
void add_flag_option(CLI::App& command, const std::string& names, const std::string& text,
                     bool& is_given);

// One that takes one of `choices`; `chosen` is the default before, and one of them after.
void add_choice_option(CLI::App& command, const std::string& names, std::string& chosen,
                       const std::vector<std::string>& choices, const std::string& text,
                       option_need need = option_need::optional);

// One that takes several of them, with commas between them.
void add_choices_option(CLI::App& command, const std::string& names,
                        std::vector<std::string>& chosen, const std::vector<std::string>& choices,
                        const std::string& text);

// What the help says below the options: examples, and the exit statuses.
std::string help_footer(const std::string& examples);

// A command of a command, one of which must be given.
CLI::App& add_sub_command(CLI::App& command, const char* name, const char* summary,
                          const char* examples);
bool is_given(const CLI::App& command);

// The options by which commands are told of events and of how messages are told:
// --definitions, --aux, --catalog, --locale and --codepage; the code page is that of text.
void add_event_set_options(CLI::App& command, event_set_options& options, std::string& code_page);
// The same without --definitions.
void add_message_options(CLI::App& command, event_set_options& options, std::string& code_page);

// --- --severity: how severe findings of a rule are

// What --severity takes, as the help shows it; and all that it takes: the rules that are not always
// errors, with each severity.
constexpr const char* severity_setting_form = "CODE=SEVERITY";
std::vector<std::string> severity_settings();

// An option that may be given several times.
void add_severity_option(CLI::App& command, std::vector<std::string>& settings);

// Sets the severities. Raises wrong_usage for a text that is no setting.
void apply_severities(const std::vector<std::string>& settings, diagnostic_list& found);

// The cells of a line of the terminal; 0 when standard output is none.
size_t terminal_line_width();

#endif
