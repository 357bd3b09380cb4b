#include "history.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "history_entry.h"

static void read_line(std::string_view line, package_history& history) {
  ++history.n_lines;
  if (line.ends_with('\r')) line.remove_suffix(1);
  try {
    const history_record record = parse_history_line(line);
    history.events.push_back(
        {record.kind, history_day_of(record.time), make_history_entry(record)});
  } catch (const history_line_error& error) {
    history.faults.push_back({history.n_lines, error.what()});
  } catch (const KPX_logging_invalid_attribute_value& error) {
    history.faults.push_back({history.n_lines, error.what()});
  }
}

package_history read_package_history(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
  package_history history;
  for (std::string line; std::getline(in, line);) read_line(line, history);
  if (in.bad()) throw std::runtime_error("cannot read " + path);
  return history;
}
