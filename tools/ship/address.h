// Addresses of engines: "postgresql://logs@db.example/fleet".
#ifndef TOOLS_SHIP_ADDRESS_H
#define TOOLS_SHIP_ADDRESS_H

#include <string>
#include <string_view>

// What stands before "://"; empty where that is not there.
std::string_view scheme_of(std::string_view address);

// Whether the text is an address, and no path of a file: it has a scheme of letters, digits and
// "+".
bool is_engine_address(std::string_view text);

// Raises std::invalid_argument, without saying it, for an address that holds a password: command
// lines are read by others.
void refuse_password(std::string_view address);

#endif
