#include "tools/ship/archived_versions.h"

#include <stdexcept>
#include <utility>

#include "recording/files/file_error.h"
#include "recording/text/check_sum.h"

archived_versions::archived_versions(event_set_options options, kit_fault fault)
    : options_(std::move(options)), fault_(std::move(fault)) {}

void archived_versions::take(const std::vector<archived_kit>& kits) {
  if (!folder_) folder_.emplace();
  std::map<journal_identity, std::map<uint64_t, std::vector<size_t>>> used;  // by their begin
  for (const archived_kit& kit : kits)
    for (const kit_user& user : kit.users) used[user.journal][user.since] = places_of(kit);
  for (const auto& [journal, in_order] : used) {
    std::vector<size_t>& places = of_journals_[journal];
    places.clear();
    for (const auto& [since, of_kit] : in_order)
      places.insert(places.end(), of_kit.begin(), of_kit.end());
  }
}

const std::vector<size_t>& archived_versions::places_of(const archived_kit& kit) {
  const auto [known, is_new] = of_kits_.try_emplace(check_sum(kit.kit.bytes));
  if (!is_new) return known->second;
  const auto leave_out = [&](const std::exception& error) {
    are_whole_ = false;
    fault_(kit, error.what());
  };
  try {
    unpack(kit, known->second);
  } catch (const std::runtime_error& error) {
    leave_out(error);
  } catch (const std::invalid_argument& error) {
    leave_out(error);
  }
  return known->second;
}

void archived_versions::unpack(const archived_kit& kit, std::vector<size_t>& places) {
  const kit_folder::unpacked files = folder_->unpack(kit.kit);
  event_set_options options = options_;
  if (options.aux.empty()) options.aux = files.aux;
  if (options.catalog.empty()) options.catalog = files.catalog;
  for (auto& version : versions_of(files.definitions, options)) {
    places.push_back(all_.size());
    all_.push_back(std::move(version));
  }
}

size_t archived_versions::place_of(const parsed_record& record,
                                   const journal_identity& journal) const {
  static const std::vector<size_t> any;
  const auto known = of_journals_.find(journal);
  return version_of(record, all_, known == of_journals_.end() ? any : known->second);
}
