// The last of the records that fit, of inputs that are read forwards or from their end.
#ifndef TOOLS_FIND_LAST_RECORDS_H
#define TOOLS_FIND_LAST_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "recording/records/event_set.h"

struct kept_record {
  std::string text;  // as it is shown
  bool is_marked = false;
  const known_event* from_definition = nullptr;  // whose message is the definition's own text
};

// In the order in which they are shown. The last input comes first.
class last_records {
 public:
  explicit last_records(size_t wanted) : wanted_(wanted) {}

  bool are_complete() const { return records_.size() >= wanted_; }
  size_t size() const { return records_.size() + of_input_.size(); }

  // Room for a record that comes before all others.
  kept_record& before_all() { return records_.emplace_front(); }
  // Room for one that comes behind those of its input; the first of these goes where there would be
  // too many.
  kept_record& behind();
  // All of that input are there.
  void close_input();

  uint64_t dropped() const { return dropped_; }
  const std::deque<kept_record>& records() const { return records_; }

 private:
  size_t wanted_;
  std::deque<kept_record> records_;
  std::deque<kept_record> of_input_;  // that is read forwards
  uint64_t dropped_ = 0;
};

#endif
