#include "tools/record_quarantine.h"

#include "tools/file_place.h"

record_quarantine::record_quarantine(const std::string& path, decltype(append_rules::report) report)
    : report_(std::move(report)) {
  const file_place place = place_of(path);
  folder_ = place.folder;
  name_ = place.name;
  append_batch batch(folder_, name_, {.report = report_});
  batch.open_existing(name_);
  batch.commit();
}

void record_quarantine::add(std::string_view line) {
  (pending_ += line) += '\n';
}

void record_quarantine::write(bool synced) {
  if (pending_.empty()) return;
  append_batch batch(folder_, name_, {.synced = synced, .report = report_});
  batch.open(name_);
  batch.append(pending_);
  batch.commit();
  pending_.clear();
}
