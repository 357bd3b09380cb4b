#include "tools/find/versions.h"

#include <stdexcept>

#include "recording/text/words.h"

definition_versions versions_of(const std::vector<std::string>& definitions,
                                event_set_options options) {
  definition_versions versions;
  for (const std::string& file : definitions) {
    options.definitions = file;
    auto version = std::make_unique<definition_version>(options);
    for (size_t i = 0; i < versions.size(); ++i)
      if (versions[i]->events().version() == version->events().version())
        throw std::invalid_argument("--definitions: " + definitions[i] + " and " + file +
                                    " are both of version " +
                                    in_quotes(version->events().version()));
    versions.push_back(std::move(version));
  }
  return versions;
}

size_t version_of(const parsed_record& record, const definition_versions& versions,
                  const std::vector<size_t>& among) {
  const size_t count = among.empty() ? versions.size() : among.size();
  const auto place = [&](size_t at) { return among.empty() ? at : among[at]; };
  if (record.version)
    for (size_t at = count; at-- > 0;)
      if (versions[place(at)]->events().version() == record.version->text) return place(at);
  return place(count - 1);
}
