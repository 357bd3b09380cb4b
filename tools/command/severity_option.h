// --severity: how severe findings of a rule are.
#ifndef TOOLS_COMMAND_SEVERITY_OPTION_H
#define TOOLS_COMMAND_SEVERITY_OPTION_H

#include <iosfwd>
#include <string>
#include <vector>

#include "recording/report/diagnostics.h"
#include "tools/report/outcome.h"

namespace CLI {
class App;
}

// What --severity takes, as the help shows it; and all that it takes: the rules that are not always
// errors, with each severity.
constexpr const char* severity_setting_form = "CODE=SEVERITY";
std::vector<std::string> severity_settings();

// An option that may be given several times.
void add_severity_option(CLI::App& command, std::vector<std::string>& settings);

// Sets the severities; a usage error, told on `log`, for a text that is no setting.
command_outcome apply_severities(const std::vector<std::string>& settings, diagnostic_list& found,
                                 std::ostream& log);

#endif
