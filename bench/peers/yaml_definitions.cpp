#include "bench/peers/yaml_definitions.h"

#include <yaml-cpp/yaml.h>

static peer_yaml_definition definition_of(const YAML::Node& node) {
  peer_yaml_definition definition;
  definition.message_id = node["message_id"].as<std::string>();
  definition.message = node["message"].as<std::string>();
  for (const auto& attribute : node["attributes"])
    definition.attributes.emplace_back(attribute.first.as<std::string>(),
                                       attribute.second.as<unsigned>());
  return definition;
}

peer_yaml_table peer_load_yaml(const std::string& path) {
  peer_yaml_table table;
  for (const auto& event : YAML::LoadFile(path))
    table.emplace(event.first.as<unsigned>(), definition_of(event.second));
  return table;
}
