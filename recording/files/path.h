// Files by their folder and name.
#ifndef RECORDING_FILES_PATH_H
#define RECORDING_FILES_PATH_H

#include <string>
#include <string_view>
#include <vector>

struct file_place {
  std::string folder;  // "." where the path has none
  std::string name;    // empty where the path ends with a slash
};

// The path, cut at its last slash.
file_place place_of(const std::string& path);

// How the name of a counter file ends (docs/counter-file.md).
inline constexpr std::string_view counter_ending = ".cnt";

// Bytes of a name that a serial number or a lock's ending is added to.
constexpr size_t longest_file_name = 200;

// Why no file can have that name, which is called `what`; empty when one can: "lacks the name of
// its file".
std::string fault_of_file_name(const char* what, const std::string& name);

// The path with the folder's links followed, so that two paths to one file are the same text. The
// folder need not be there.
std::string plain_path_of(const file_place& place);

// What a path is called in texts: "<stdin>" and "<stdout>" for "-". Not escaped.
std::string input_name(const std::string& path);
std::string output_name(const std::string& path);

// Whether "-" is given more than once.
bool reads_standard_input_twice(const std::vector<std::string>& paths);

#endif
