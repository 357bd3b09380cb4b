// kplog manual: the manual pages of the command line.
#include <cerrno>
#include <memory>
#include <ostream>
#include <string>

#include "recording/files/whole_file.h"
#include "tools/command/command_line.h"
#include "tools/command/commands.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

// Text as man(7) shows it: hyphens that can be copied, no line that is taken for a request.
static std::string roff(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    const bool begins_line = escaped.empty() || escaped.back() == '\n';
    if (begins_line && (c == '.' || c == '\'')) escaped += "\\&";
    if (c == '\\')
      escaped += "\\e";
    else if (c == '-')
      escaped += "\\-";
    else
      escaped += c;
  }
  return escaped;
}

static std::string bold(const std::string& text) {
  return "\\fB" + roff(text) + "\\fR";
}

static std::string italic(const std::string& text) {
  return "\\fI" + roff(text) + "\\fR";
}

static std::string value_text(const option_description& option) {
  return option.choices().empty() ? italic(option.value) : bold(option.value);
}

static std::string synopsis(const command_description& command) {
  std::string text = ".SH SYNOPSIS\n" + bold(command.name(" ")) + " [" + italic("OPTIONS") + "]";
  if (!command.commands.empty()) text += " " + italic("COMMAND") + " ...";
  for (const option_description& option : command.options) {
    if (!option.is_positional && option.is_required)
      text += " " + bold(option.names.back()) + " " + value_text(option);
    if (option.is_positional)
      text += " " + italic(option.names.front()) + (option.is_repeatable ? "..." : "");
  }
  return text + "\n";
}

static std::string option_heading(const option_description& option) {
  if (option.is_positional) return italic(option.names.front());
  std::string heading;
  for (const std::string& name : option.names)
    heading += (heading.empty() ? "" : ", ") + bold(name);
  return heading + (option.value.empty() ? "" : " " + value_text(option));
}

static std::string options_section(const command_description& command) {
  std::string section = ".SH OPTIONS\n";
  for (const option_description& option : command.options)
    section += ".TP\n" + option_heading(option) + "\n" + roff(option.text) + ".\n";
  return section;
}

// The meaning as a sentence without the marks of Markdown.
static std::string sentence(std::string text) {
  std::erase(text, '`');
  if (text.front() >= 'a' && text.front() <= 'z')
    text.front() = static_cast<char>(text.front() - 'a' + 'A');
  return text + ".";
}

static std::string exit_status_section() {
  std::string section = ".SH EXIT STATUS\n";
  for (const exit_status_row& row : exit_status_rows)
    section += ".TP\n" + std::to_string(row.status()) + "\n" + roff(sentence(row.meaning)) + "\n";
  return section;
}

// The page of a command, or of kplog itself, in the language of man(7). `version` stands in its
// footer. The same command line gives the same bytes.
static std::string manual_page(const command_description& command, const std::string& version) {
  const std::string name = command.name("-");
  std::string page = ".TH " + roff(name) + " 1 \"\" \"kplog " + roff(version) + "\" \"kplog\"\n" +
                     ".SH NAME\n" + roff(name) + " \\- " + roff(command.text) + "\n";
  page += synopsis(command) + ".SH DESCRIPTION\n" + roff(command.text) + ".\n";
  if (!command.commands.empty()) page += ".SH COMMANDS\n";
  for (const command_description& below : command.commands)
    page += ".TP\n.BR " + roff(below.name("-")) + " (1)\n" + roff(below.text) + ".\n";
  page += options_section(command);
  if (!command.examples.empty()) page += ".SH EXAMPLES\n.nf\n" + roff(command.examples) + ".fi\n";
  page += exit_status_section();
  if (!command.path.empty()) page += ".SH SEE ALSO\n.BR kplog (1)\n";
  return page;
}

// "kplog-catalog-build.1"
static std::string manual_page_file(const command_description& command) {
  return command.name("-") + ".1";
}

// --- The command

static command_outcome write_pages(const command_description& kplog, const std::string& version,
                                   const std::string& folder) {
  for (const command_description* command : all_commands(kplog)) {
    const std::string path = folder + "/" + manual_page_file(*command);
    write_whole_file(path, manual_page(*command, version));
  }
  return command_outcome::good;
}

static command_action describe_manual(CLI::App& command) {
  const auto folder = std::make_shared<std::string>();
  add_text_option(command, {"FOLDER", "FOLDER", "Where to write the pages"}, *folder,
                  option_need::required);
  return [folder, &command](std::ostream&, std::ostream& log) {
    return outcome_of({}, log, [&] {
      return write_pages(whole_command_line(command), version_of_command_line(command), *folder);
    });
  };
}

constexpr kplog_command_row manual_command = {
    "manual", "Write the manual pages of kplog and its commands",
    "  kplog manual /usr/local/share/man/man1\n", describe_manual, true};
