// The options of kplog emit that bound what records and clients may ask of it.
#ifndef TOOLS_COMMAND_EMIT_LIMITS_H
#define TOOLS_COMMAND_EMIT_LIMITS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "recording/records/service.h"

namespace CLI {
class App;
}

struct emit_limits {
  std::optional<std::chrono::seconds> max_skew;  // of times; nothing: any
};

// --idle-line, --max-user-clients, --max-rate, --max-bad, --max-skew
void add_limit_options(CLI::App& command, emit_limits& limits, service_rules& service);

// Where bad lines are kept.
struct quarantine_file {
  std::string path;
  uintmax_t most = UINTMAX_MAX;  // bytes
};

// "quarantine=FILE[,max-size=64M]"; nothing for another policy. Raises wrong_usage.
std::optional<quarantine_file> quarantine_of(const std::string& policy);

#endif
