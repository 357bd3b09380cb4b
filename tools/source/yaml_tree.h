// The YAML of a definition source as a tree in which every value knows its place.
#ifndef TOOLS_SOURCE_YAML_TREE_H
#define TOOLS_SOURCE_YAML_TREE_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/report/diagnostics.h"
#include "recording/report/text_file.h"

constexpr size_t yaml_depth_limit = 64;              // maps and lists within one another
constexpr size_t yaml_node_limit = size_t{2} << 20;  // values of one source

struct yaml_node {
  enum class kinds { null, scalar, sequence, map };

  kinds kind = kinds::null;
  bool plain = false;                    // a scalar written without quotes
  bool is_whole = true;                  // false: the source breaks off within it
  bool is_refused = false;               // a diagnostic stands already, and one is enough
  uint32_t at = 0;                       // bytes before it in the source
  std::string text = {};                 // of a scalar
  std::vector<yaml_node> children = {};  // of a sequence; of a map: keys and values in turn

  text_place place(const text_file& source) const { return {&source, at}; }
};

// Reads the one document of a source into `root`. Diagnostics for what is not UTF-8, not YAML, or
// YAML that definition sources do without: anchors, aliases, merge keys, tags, keys given twice,
// keys that are not names. False when the source cannot be read to its end; `root` is then what
// stands before. Keys that are no names or given before are refused; their values are there.
bool read_yaml(const text_file& source, yaml_node& root, diagnostic_list& found);

#endif
