// Batches as kplog ship makes them, of lines of a test.
#ifndef TESTS_ENGINES_SUPPORT_MADE_BATCH_H
#define TESTS_ENGINES_SUPPORT_MADE_BATCH_H

#include <deque>
#include <string>
#include <vector>

#include "tools/ship/shipped_record.h"

// Records of one segment of the journal /var/log/shop/shop of the machine "shop-1".
class made_batch {
 public:
  explicit made_batch(const std::vector<std::string>& lines, uint64_t first_line = 1);

  ship_batch batch() const;
  journal_identity journal = {"shop-1", "/var/log/shop/shop"};
  std::vector<shipped_record> records;

 private:
  std::deque<std::string> lines_;
  record_kit kit_;
  segment_position before_, after_;
};

#endif
