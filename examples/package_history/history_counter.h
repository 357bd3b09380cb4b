// Counting: a counter file with the events of each day and kind (docs/counter-file.md).
#ifndef PACKAGE_HISTORY_COUNTER_H
#define PACKAGE_HISTORY_COUNTER_H

#include <map>
#include <optional>
#include <string>

#include "history_day.h"
#include "kp_LOG.h"

// Adds to the counts in the counter file of a folder.
class history_counter {
 public:
  // Opens or creates the file. Raises std::runtime_error when it cannot be written to.
  explicit history_counter(const std::string& folder);

  // Counts one entry of that ID on that day. The count is in the kernel on return. Raises
  // std::runtime_error, with nothing counted, when it cannot be written.
  void count(const history_day& day, unsigned entry_id);

  // The path of the file.
  static std::string path_in(const std::string& folder);

 private:
  void open();

  std::string folder_;
  history_day day_;                              // counted last; all 0: none yet
  std::optional<_kp_LOG_EntryCounter> counter_;  // for that day alone
};

// Counts by day, then by entry ID.
using history_counts = std::map<history_day, std::map<unsigned, unsigned>>;

// Reads the counter file of a folder. Raises std::runtime_error where that cannot be done.
history_counts read_history_counts(const std::string& folder);

#endif
