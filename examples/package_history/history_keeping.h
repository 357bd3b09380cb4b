// Keeping: the events that a filter accepts are logged and counted.
#ifndef PACKAGE_HISTORY_KEEPING_H
#define PACKAGE_HISTORY_KEEPING_H

#include <cstdint>
#include <map>
#include <string>

#include "history.h"
#include "history_counter.h"
#include "history_text_logs.h"
#include "kp_LOG.h"

// Asks the filter about every event, and writes the message of each one that it accepts, in the
// language that is spoken now, to its day's log and counts it. Returns how many were accepted, by
// kind. Raises std::runtime_error where a log or a count cannot be written; no event is then in
// the logs that is not counted.
history_tally keep_accepted_events(const package_history& history,
                                   const _kp_LOG_entry_filter& filter, history_text_logs& logs,
                                   history_counter& counter);

// What a folder holds of a day, from this run and earlier ones.
struct history_kept_day {
  history_day_logs logs;
  std::map<unsigned, unsigned> counts;  // by entry ID

  uintmax_t n_counted() const;
};

using history_kept = std::map<history_day, history_kept_day>;

// Reads the logs and counts of a folder back. Raises std::runtime_error where that cannot be done.
history_kept read_kept_history(const std::string& folder);

// Whether each day has as many lines as its counts add up to.
bool is_balanced(const history_kept& kept);

#endif
