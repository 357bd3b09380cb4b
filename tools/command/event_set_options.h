// The options by which commands are told of events and of how messages are told.
#ifndef TOOLS_COMMAND_EVENT_SET_OPTIONS_H
#define TOOLS_COMMAND_EVENT_SET_OPTIONS_H

#include <string>

#include "recording/records/event_set.h"

namespace CLI {
class App;
}

// --definitions, --aux, --catalog, --locale and --codepage; the code page is that of text.
void add_event_set_options(CLI::App& command, event_set_options& options, std::string& code_page);

#endif
