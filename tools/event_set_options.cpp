#include "tools/event_set_options.h"

void add_event_set_options(CLI::App& command, event_set_options& options, std::string& code_page) {
  command.add_option("--definitions", options.definitions, "The compiled STD set")
      ->type_name("FILE")
      ->required();
  command.add_option("--aux", options.aux, "The compiled AUX set beside it")->type_name("FILE");
  command
      .add_option("--catalog", options.catalog,
                  "The message catalog; without it the messages are those of the definitions")
      ->type_name("FOLDER");
  command
      .add_option("--locale", options.locale,
                  "The language of messages, as de_DE; that of the environment when not given")
      ->type_name("LOCALE");
  command.add_option("--codepage", code_page, "The code page of text; UTF-8 by default")
      ->type_name("NAME");
}
