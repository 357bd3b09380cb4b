// Why accepted entries do not get where they were to go.
#ifndef TOOLS_SINK_ERROR_H
#define TOOLS_SINK_ERROR_H

#include <stdexcept>
#include <string>

// A file that cannot be written. The text names the file and the reason.
class sink_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Raises "cannot ACTION PATH: REASON", the reason being that of errno.
[[noreturn]] void raise_sink_error(const char* action, const std::string& path);

#endif
