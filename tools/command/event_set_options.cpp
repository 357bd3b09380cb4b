#include "tools/command/event_set_options.h"

#include "tools/command/options.h"

void add_event_set_options(CLI::App& command, event_set_options& options, std::string& code_page) {
  add_text_option(command, {"--definitions", "FILE", "The compiled STD set"}, options.definitions,
                  option_need::required);
  add_text_option(command, {"--aux", "FILE", "The compiled AUX set beside it"}, options.aux);
  add_text_option(command,
                  {"--catalog", "FOLDER",
                   "The message catalog; without it the messages are those of the definitions"},
                  options.catalog);
  add_text_option(command,
                  {"--locale", "LOCALE",
                   "The language of messages, as de_DE; that of the environment when not given"},
                  options.locale);
  add_text_option(command, {"--codepage", "NAME", "The code page of text; UTF-8 by default"},
                  code_page);
}
