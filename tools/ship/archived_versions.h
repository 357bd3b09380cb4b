// Definitions that came with the records of an engine: those of each journal, as far as they were
// asked for.
#ifndef TOOLS_SHIP_ARCHIVED_VERSIONS_H
#define TOOLS_SHIP_ARCHIVED_VERSIONS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/find/versions.h"
#include "tools/ship/engine.h"
#include "tools/ship/kit.h"

class archived_versions {
 public:
  // What is wrong with a kit, which is left out then.
  using kit_fault = std::function<void(const archived_kit& kit, const std::string& text)>;

  // Of sets that were given instead: every record may be of any of them.
  explicit archived_versions(definition_versions given) : all_(std::move(given)) {}
  // Of kits. The options' AUX set and catalog stand for those in a kit.
  archived_versions(event_set_options options, kit_fault fault);

  // What an engine has of these journals, or all of them. Raises file_error.
  void take(const std::vector<archived_kit>& kits);

  // More come behind these as kits are taken.
  const definition_versions& all() const { return all_; }
  // No kit was left out.
  bool are_whole() const { return are_whole_; }
  bool has(const journal_identity& journal) const { return of_journals_.contains(journal); }
  // The place of the one that a record of the journal is of, as version_of has it.
  size_t place_of(const parsed_record& record, const journal_identity& journal) const;

 private:
  // Places of the versions of a kit; none of one that was left out.
  const std::vector<size_t>& places_of(const archived_kit& kit);
  void unpack(const archived_kit& kit, std::vector<size_t>& places);

  definition_versions all_;
  std::map<journal_identity, std::vector<size_t>> of_journals_;  // those used last at the end
  event_set_options options_;
  kit_fault fault_;
  std::optional<kit_folder> folder_;
  std::map<uint64_t, std::vector<size_t>> of_kits_;  // by the sums of their bytes
  bool are_whole_ = true;
};

#endif
