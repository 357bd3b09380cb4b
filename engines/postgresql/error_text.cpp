#include "engines/postgresql/error_text.h"

#include <algorithm>
#include <array>

std::string pg_one_line(std::string_view text) {
  std::string line;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    std::string_view part = text.substr(at, end - at);
    at = end + 1;
    while (!part.empty() && (part.front() == ' ' || part.front() == '\t')) part.remove_prefix(1);
    if (part.empty()) continue;
    if (!line.empty()) line += line.back() == ':' ? " " : ", ";
    line += part;
  }
  return line;
}

struct pg_advice_row {
  std::string_view code;  // of an error, or of its class, which has two characters
  std::string_view words;
};

static constexpr std::array pg_advice_rows = {
    pg_advice_row{"3D000", "there is no such database: createdb makes one"},
    pg_advice_row{"55P03", "somebody reads or sends there: pg_stat_activity tells who"},
    pg_advice_row{"53100", "its disk is full"},
    pg_advice_row{"53300", "it has no connection left: max_connections"},
    pg_advice_row{"25006", "it only reads: a standby?"},
    pg_advice_row{"57P", "it is ending or beginning"},
};

// Errors of a connection that is not there yet have no code.
static constexpr std::array pg_connection_rows = {
    pg_advice_row{"database \"", "createdb makes a database"},
    pg_advice_row{"no password supplied", "--password-file says which"},
    pg_advice_row{"password authentication failed", "--user and --password-file say who"},
    pg_advice_row{"certificate verify failed", "--tls-ca FILE names who signs its certificate"},
    pg_advice_row{"root certificate file", "--tls-ca FILE names who signs its certificate"},
    pg_advice_row{"server does not support SSL", "without TLS: ?sslmode=disable in the address"},
};

std::string pg_advice(std::string_view code, std::string_view text) {
  for (const pg_advice_row& row : pg_advice_rows)
    if (!code.empty() && code.starts_with(row.code)) return std::string(row.words);
  for (const pg_advice_row& row : pg_connection_rows)
    if (code.empty() && text.find(row.code) != std::string_view::npos)
      return std::string(row.words);
  return "";
}
