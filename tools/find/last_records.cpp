#include "tools/find/last_records.h"

#include <iterator>
#include <utility>

kept_record& last_records::behind() {
  kept_record kept;
  if (size() >= wanted_) {
    kept.text = std::move(of_input_.front().text);  // for its memory
    kept.text.clear();
    of_input_.pop_front();
    ++dropped_;
  }
  return of_input_.emplace_back(std::move(kept));
}

void last_records::close_input() {
  records_.insert(records_.begin(), std::make_move_iterator(of_input_.begin()),
                  std::make_move_iterator(of_input_.end()));
  of_input_.clear();
}
