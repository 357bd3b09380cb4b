// Records as they come: of several places, merged by their times.
#ifndef TOOLS_FIND_FOLLOW_H
#define TOOLS_FIND_FOLLOW_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recording/journal/followed_place.h"
#include "recording/records/parser.h"

// What ends a run that follows.
struct follow_end {
  int descriptor = -1;              // can be read when the run is perhaps to end
  std::function<bool()> is_to_end;  // whether it is
  int reader = -1;                  // an output; where nobody reads it any more, nothing is to come
};

// Lines in the order of their records' times: of each place the next one is looked at, and the
// earliest is handed out; where two tell the same time, that of the first place. A line that tells
// no time comes behind the one before it. Holds a line of each place, however many come.
class followed_records {
 public:
  // The places of at least one path. Raises file_error.
  followed_records(const std::vector<std::string>& paths, const follow_rules& rules,
                   follow_end end);

  // The earliest of the lines that are there by now; valid until the next call. False: there is
  // none at the moment, or the run is to end.
  bool next(record_line& line);
  // Waits until there may be more. False: nothing will come, or the run is to end and what was
  // there when that was said has been handed out, as far as there was time.
  bool wait();
  // Whether the run is to end before all was handed out that was there at the begin.
  bool is_cut_short() const { return deadline_ && !has_waited_; }
  // Whether nobody reads the output any more.
  bool is_unread() const { return is_unread_; }

 private:
  using clock = std::chrono::steady_clock;
  using instant = std::chrono::system_clock::time_point;
  // The line that is next of a place.
  struct waiting_line {
    bool is_there = false;
    record_line line = {};
    instant time = {};
    bool is_over = false;  // the place has none at the moment
  };

  bool is_time_over();
  void fill(size_t place);
  std::optional<instant> instant_of(const record_line& line);
  void wait_for_places();

  std::vector<std::unique_ptr<followed_place>> places_;
  std::vector<waiting_line> waiting_;
  record_parser parser_;
  follow_end end_;
  std::vector<pollfd> watched_;
  size_t handed_out_ = 0;
  bool has_waited_ = false;
  bool is_unread_ = false;
  std::optional<clock::time_point> deadline_;  // the run is to end
};

#endif
