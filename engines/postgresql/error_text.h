// What goes wrong with a database, in one line, and what would help.
#ifndef ENGINES_POSTGRESQL_ERROR_TEXT_H
#define ENGINES_POSTGRESQL_ERROR_TEXT_H

#include <string>
#include <string_view>

// What libpq says, in one line: "FATAL: ..., DETAIL: ...".
std::string pg_one_line(std::string_view text);

// What would help against an error of that code (SQLSTATE, empty where there is none) and text: "",
// or words that go behind it.
std::string pg_advice(std::string_view code, std::string_view text);

#endif
