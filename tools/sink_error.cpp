#include "tools/sink_error.h"

#include <cerrno>
#include <system_error>

#include "tools/terminal_text.h"

void raise_sink_error(const char* action, const std::string& path) {
  const std::string reason = std::generic_category().message(errno);
  throw sink_error(std::string("cannot ") + action + " " + terminal_text(path) + ": " + reason);
}
