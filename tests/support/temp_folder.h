// Folders, files and process-wide settings that put back what they found.
#ifndef TESTS_SUPPORT_TEMP_FOLDER_H
#define TESTS_SUPPORT_TEMP_FOLDER_H

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A fresh folder of its own, removed with everything in it.
class temp_folder {
 public:
  temp_folder();
  ~temp_folder();
  temp_folder(const temp_folder&) = delete;
  temp_folder& operator=(const temp_folder&) = delete;

  std::string path() const { return path_.string(); }
  std::string file(std::string_view name) const { return (path_ / name).string(); }
  // Writes a file of that content (replacing it) and returns its path.
  std::string write(std::string_view name, std::string_view content) const;

 private:
  std::filesystem::path path_;
};

// The whole content of a file; "" when it cannot be opened.
std::string read_whole_file(const std::string& path);

// The working directory, for a scope.
class working_folder {
 public:
  explicit working_folder(const std::string& path);
  ~working_folder();

 private:
  std::filesystem::path before_;
};

// An environment variable, for a scope; nullptr removes it. "TZ" takes effect at once (tzset).
class environment_value {
 public:
  environment_value(const char* name, const char* value);
  ~environment_value();

 private:
  void put(const char* value) const;
  std::string name_;
  std::optional<std::string> before_;
};

// A temporary working folder with the debug log on, for a scope: what the library logs meanwhile.
class debug_log_in_temp_folder {
 public:
  explicit debug_log_in_temp_folder(int level = 3);
  ~debug_log_in_temp_folder();

  // The lines written so far, without their prefix of time, process and thread, and with the line
  // number behind the source name replaced by "N": "logging/logcfg:N kp_LOG_LogConfig::... ok!".
  // A line without a newline of its own runs into the next one, as in the file.
  std::vector<std::string> lines() const;
  std::string raw() const;  // the file as it stands
  const temp_folder& folder() const { return folder_; }

 private:
  temp_folder folder_;
  working_folder here_;
  unsigned level_before_;
};

// Every process-wide setting of the library, put back at the end of the scope: ICU switch, action
// on over-long values, operation mode, debug level, log version, locale, definitions and catalog
// (cleared).
class settings_guard {
 public:
  settings_guard();
  ~settings_guard();

 private:
  bool icu_;
  unsigned action_, mode_, debug_level_, major_, minor_;
  std::string locale_;
};

// The descriptors that the process has open, and one with which they are listed.
inline size_t open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

#endif
