#include "recording/files/dated_name.h"

#include <algorithm>
#include <memory>

#include "kp_LOG_filenames.h"

static constexpr size_t date_and_serial_size = 14;  // ".YYYYMMDD.NNNN"

std::optional<dated_name> dated_name_of(std::string_view name, const std::string& prefix) {
  const std::string log(name.substr(0, prefix.size() + date_and_serial_size));
  dated_name found;
  unsigned short serial = 0;
  if (is_a_valid_text_log(log.c_str(), prefix.c_str(), &found.day.year, &found.day.month,
                          &found.day.day, &serial) != 1)
    return std::nullopt;
  found.serial = serial;
  found.ending = name.substr(log.size());
  return found;
}

std::string dated_name_text(const std::string& prefix, const log_day& day, unsigned serial,
                            std::string_view ending) {
  const std::unique_ptr<char[]> name(
      make_text_log_filename(prefix.c_str(), day.year, day.month, day.day, serial, nullptr));
  return name.get() + std::string(ending);
}

bool is_closed_form(std::string_view ending, std::string_view of) {
  const std::string_view form = ending.substr(std::min(of.size(), ending.size()));
  if (!ending.starts_with(of) || !form.starts_with('.')) return false;
  if (of == segment_ending)
    return !form.ends_with(index_ending) && !form.ends_with(unfinished_ending);
  return form != segment_ending && !form.starts_with(std::string(segment_ending) + ".");
}

bool is_dated_file(std::string_view name, const std::string& prefix) {
  const auto found = dated_name_of(name, prefix);
  return found && (found->ending.empty() || found->ending == segment_ending);
}
