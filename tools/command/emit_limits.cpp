#include "tools/command/emit_limits.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "recording/files/path.h"
#include "recording/text/duration.h"
#include "recording/text/number.h"
#include "recording/text/size.h"
#include "recording/text/words.h"
#include "tools/command/options.h"
#include "tools/report/outcome.h"

// --- Options ---

static std::chrono::seconds read_duration(const std::string& text) {
  if (const auto duration = duration_of(text)) return *duration;
  throw std::invalid_argument(in_quotes(text) + " is no duration; " + duration_form);
}

static uint64_t read_limit(const std::string& text, uint64_t least, uint64_t most) {
  if (const auto limit = number_of<uint64_t>(text); limit && *limit >= least && *limit <= most)
    return *limit;
  throw std::invalid_argument(in_quotes(text) + " is no number from " + std::to_string(least) +
                              (most == UINT64_MAX ? "" : " to " + std::to_string(most)));
}

static void add_record_limits(CLI::App& command, emit_limits& limits) {
  add_read_option(command,
                  {"--max-skew", "TIME",
                   "A record whose time lies farther from now is bad; any is taken by default"},
                  [&limits](const std::string& text) { limits.max_skew = read_duration(text); });
}

static void add_client_limits(CLI::App& command, service_rules& service) {
  add_read_option(command,
                  {"--idle-line", "TIME",
                   "A client's line whose end has not come by then is given up; 60s by default"},
                  [&service](const std::string& text) { service.idle_line = read_duration(text); });
  add_read_option(command,
                  {"--max-user-clients", "NUMBER",
                   "Connections that a user may have at a time; half of all by default"},
                  [&service](const std::string& text) {
                    service.max_user_clients = read_limit(text, 1, UINT64_MAX);
                  });
  add_read_option(command,
                  {"--max-rate", "NUMBER",
                   "Records a second that are read of a client, and of a user's clients together; "
                   "as many as there are by default"},
                  [&service](const std::string& text) {
                    service.max_rate = read_limit(text, 1, record_rate::highest);
                  });
  add_read_option(
      command,
      {"--max-bad", "NUMBER",
       "Bad records a minute of a client, and of a user's clients together; who sends "
       "one more is closed"},
      [&service](const std::string& text) { service.max_bad = read_limit(text, 0, UINT64_MAX); });
}

void add_limit_options(CLI::App& command, emit_limits& limits, service_rules& service) {
  add_client_limits(command, service);
  add_record_limits(command, limits);
}

// --- The quarantine ---

static uintmax_t read_quarantine_size(const std::string& option) {
  static constexpr std::string_view key = "max-size=";
  if (!option.starts_with(key))
    throw wrong_usage("--on-error: the quarantine has the option " + in_quotes(option) +
                      "; the only one is max-size=SIZE");
  const std::string size = option.substr(key.size());
  if (const auto most = size_of(size)) return *most;
  throw wrong_usage("--on-error: the quarantine has the size " + in_quotes(size) + "; " +
                    size_form);
}

std::optional<quarantine_file> quarantine_of(const std::string& policy) {
  static constexpr std::string_view prefix = "quarantine=";
  if (!policy.starts_with(prefix) || policy.size() == prefix.size()) return std::nullopt;
  quarantine_file file{policy.substr(prefix.size())};
  const size_t comma = file.path.find(',', file.path.rfind('/') + 1);
  if (comma == std::string::npos) return file;
  file.most = read_quarantine_size(file.path.substr(comma + 1));
  file.path.resize(comma);
  return file.path.empty() ? std::nullopt : std::optional(file);
}
