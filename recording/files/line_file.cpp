#include "recording/files/line_file.h"

#include <utility>

// Where the path leads to no file that can be written, no lock is made beside it either.
line_file::line_file(std::string folder, std::string name, append_rules rules)
    : folder_(std::move(folder)), name_(std::move(name)), rules_(std::move(rules)) {
  check_written_path("append to", folder_ + "/" + name_);
  append_batch batch(folder_, name_, rules_);
  batch.open_existing(name_);
  batch.commit();
}

void line_file::append(std::string& lines, bool synced) {
  if (lines.empty()) return;
  rules_.synced = synced;
  append_batch batch(folder_, name_, rules_);
  batch.open(name_);
  batch.append(lines);
  batch.commit();
  lines.clear();
}
