#include "tools/record_quarantine.h"

#include <algorithm>

record_quarantine::record_quarantine(const std::string& path, decltype(append_rules::report) report)
    : report_(std::move(report)) {
  const size_t slash = path.rfind('/');
  folder_ = slash == std::string::npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
  name_ = path.substr(slash + 1);  // npos + 1 is 0
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
