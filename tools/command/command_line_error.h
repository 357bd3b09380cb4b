// What a wrong command line is answered with.
#ifndef TOOLS_COMMAND_COMMAND_LINE_ERROR_H
#define TOOLS_COMMAND_COMMAND_LINE_ERROR_H

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

// "kplog: TEXT" and, on a second line, the command whose help says more. Names a word that nothing
// takes, and what was probably meant, before anything that is missing. Ends with a line feed.
std::string command_line_error(const CLI::App& kplog, const CLI::ParseError& error);

#endif
