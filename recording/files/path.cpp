#include "recording/files/path.h"

#include <algorithm>
#include <filesystem>

file_place place_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

std::string fault_of_file_name(const char* what, const std::string& name) {
  if (name.empty() || name == "." || name == "..")
    return std::string("lacks the name of its ") + what;
  if (name.size() > longest_file_name)
    return std::string("has a ") + what + " of " + std::to_string(name.size()) +
           " bytes; at most " + std::to_string(longest_file_name) + " are possible";
  return "";
}

std::string plain_path_of(const file_place& place) {
  std::error_code unknown;
  const auto folder = std::filesystem::weakly_canonical(place.folder, unknown);
  return (unknown ? place.folder : folder.string()) + "/" + place.name;
}

std::string input_name(const std::string& path) {
  return path == "-" ? "<stdin>" : path;
}

std::string output_name(const std::string& path) {
  return path == "-" ? "<stdout>" : path;
}

bool reads_standard_input_twice(const std::vector<std::string>& paths) {
  return std::count(paths.begin(), paths.end(), "-") > 1;
}
