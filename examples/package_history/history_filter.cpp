#include "history_filter.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

constexpr unsigned debug_property = 0x04000000;

// The library takes a source that it cannot read for one without values; a user who names a file
// wants to know.
static void use_configuration(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error) || !std::ifstream(path))
    throw std::runtime_error("cannot read the configuration file " + path);
  kp_LOG_LogConfig::SetConfigurationSource(path.c_str(), KP_CONFIG_FILE);
}

_kp_LOG_entry_filter make_history_filter(const history_options& options) {
  if (options.config != nullptr) use_configuration(options.config);
  _kp_LOG_entry_filter filter;
  filter.set_filter_log_level(options.min_level, options.max_level);
  filter.set_property_mask(~debug_property);
  filter.set_section(options.section);
  return filter;
}
