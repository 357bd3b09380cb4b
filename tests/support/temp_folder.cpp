#include "tests/support/temp_folder.h"

#include <stdlib.h>
#include <time.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "logging/logentry_i.h"

temp_folder::temp_folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "kplog-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + pattern);
  path_ = pattern;
}

temp_folder::~temp_folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string temp_folder::write(std::string_view name, std::string_view content) const {
  std::ofstream(path_ / name, std::ios::binary) << content;
  return file(name);
}

std::string read_whole_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

working_folder::working_folder(const std::string& path) : before_(std::filesystem::current_path()) {
  std::filesystem::current_path(path);
}

working_folder::~working_folder() {
  std::error_code ignored;
  std::filesystem::current_path(before_, ignored);
}

environment_value::environment_value(const char* name, const char* value) : name_(name) {
  if (const char* old = getenv(name)) before_ = old;
  put(value);
}

environment_value::~environment_value() {
  put(before_ ? before_->c_str() : nullptr);
}

void environment_value::put(const char* value) const {
  if (value != nullptr)
    setenv(name_.c_str(), value, 1);
  else
    unsetenv(name_.c_str());
  if (name_ == "TZ") tzset();
}

debug_log_in_temp_folder::debug_log_in_temp_folder(int level)
    : here_(folder_.path()), level_before_(GetDebugLogLevel()) {
  EnableDebugLog(level);
}

debug_log_in_temp_folder::~debug_log_in_temp_folder() {
  EnableDebugLog(static_cast<int>(level_before_));
}

std::string debug_log_in_temp_folder::raw() const {
  return read_whole_file(folder_.file("zel_debug.log"));
}

std::vector<std::string> debug_log_in_temp_folder::lines() const {
  static const std::regex prefix(
      R"(^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\(pid=\d+\)\(tid=-?\d+\):(?:([A-Za-z_/]+):\d+ )?)");
  std::vector<std::string> result;
  std::istringstream in(raw());
  for (std::string line; std::getline(in, line);) {
    // std::regex recurses per character, so it is shown no more than a prefix can be.
    const std::string start = line.substr(0, 200);
    std::smatch found;
    if (std::regex_search(start, found, prefix)) {
      const std::string source = found[1].matched ? found[1].str() + ":N " : "";
      line = source + line.substr(static_cast<size_t>(found.length()));
    }
    result.push_back(line);
  }
  return result;
}

settings_guard::settings_guard()
    : icu_(b_is_icu_enabled),
      action_(action_on_exceed),
      mode_(_kp_LOG_log_entry_imp::global_operation_mode),
      debug_level_(debug_log_level),
      major_(_kp_LOG_log_entry_imp::log_major_version),
      minor_(_kp_LOG_log_entry_imp::log_minor_version),
      locale_(kp_LOG_LogConfig::GetLocale().get_name()) {}

settings_guard::~settings_guard() {
  kp_LOG_LogConfig::ClearDefinitions();
  kp_LOG_LogConfig::SetConfigurationSource(nullptr, KP_CONFIG_FILE);
  kp_LOG_LogConfig::SetICUEnabled(true);
  kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
  kp_LOG_LogConfig::SetICUEnabled(icu_);
  kp_LOG_LogConfig::SetLocale(locale_.c_str());
  action_on_exceed = action_;
  _kp_LOG_log_entry_imp::global_operation_mode = mode_;
  _kp_LOG_log_entry_imp::log_major_version = major_;
  _kp_LOG_log_entry_imp::log_minor_version = minor_;
  debug_log_level = debug_level_;
}
