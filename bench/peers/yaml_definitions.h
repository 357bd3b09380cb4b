// What a program without a compiled format would load: the same definitions as YAML.
#ifndef BENCH_PEERS_YAML_DEFINITIONS_H
#define BENCH_PEERS_YAML_DEFINITIONS_H

#include <string>
#include <unordered_map>
#include <vector>

struct peer_yaml_definition {
  std::string message_id;
  std::string message;
  std::vector<std::pair<std::string, unsigned>> attributes;  // name and type
};

// Definitions by ID.
using peer_yaml_table = std::unordered_map<unsigned, peer_yaml_definition>;

peer_yaml_table peer_load_yaml(const std::string& path);

#endif
