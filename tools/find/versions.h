// The versions of one product line's definitions that records were made of.
#ifndef TOOLS_FIND_VERSIONS_H
#define TOOLS_FIND_VERSIONS_H

#include <memory>
#include <string>
#include <vector>

#include "recording/records/definition_version.h"
#include "recording/records/parser.h"

using definition_versions = std::vector<std::unique_ptr<definition_version>>;

// Those of the files, of which the last is the one of records that tell no version, or none of
// these. Raises as event_set does, and std::invalid_argument for two files of one version.
definition_versions versions_of(const std::vector<std::string>& definitions,
                                event_set_options options);

// The place among them of the one that the record is of. Of `among`, places that are not all, the
// last that has the record's version, or the last.
size_t version_of(const parsed_record& record, const definition_versions& versions,
                  const std::vector<size_t>& among = {});

#endif
