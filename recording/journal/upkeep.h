// What becomes of a journal's segments: they get an index, are compressed when they are done, and
// are removed when they are too old, or too many (docs/journal.md).
#ifndef RECORDING_JOURNAL_UPKEEP_H
#define RECORDING_JOURNAL_UPKEEP_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "recording/journal/rules.h"
#include "recording/journal/segment_work.h"
#include "recording/journal/segments.h"
#include "recording/journal/sent_positions.h"

// Those that are to be removed, at that time: beyond `keep`, up to the first that is `awaited`, and
// the oldest that are too many; never the one that was written to last.
std::vector<journal_segment> outlived(
    std::vector<journal_segment> segments, const journal_rules& rules, timespec now,
    const std::function<bool(const journal_segment&)>& is_awaited = {});

// Works in parts of some milliseconds, between batches: no lock is held when it begins and when it
// ends. Any number of processes may do so for one journal. Used by one thread at a time.
class journal_upkeep {
 public:
  using clock = std::chrono::steady_clock;

  // `tell` hears of records that are removed though they were to be sent to an engine.
  journal_upkeep(journal_place journal, journal_rules rules,
                 std::function<void(const std::string& text)> tell = {})
      : journal_(std::move(journal)), rules_(rules), tell_(std::move(tell)) {}

  // Does a part, if there is one to be done by now. How long there is nothing to be done behind it;
  // 0: not at all. Raises file_error; the segment that could not be worked on waits for a minute.
  std::chrono::milliseconds step();
  // There are more segments by now.
  void hurry();
  // All is looked through by the next step, whenever that was done last.
  void hurry_up() { next_look_ = {}; }

 private:
  struct job {
    journal_segment segment;
    bool compresses = false;
  };

  void look();
  std::vector<journal_segment> found_in(int folder) const;
  void clear_up(const journal_segment& segment);
  void remove_outlived(int folder, const std::vector<journal_segment>& segments);
  void remove(const journal_segment& segment, const std::vector<sent_positions>& given_up_by);
  void remove_file(int folder, const std::string& name) const;
  void remove_unfinished(int folder, const std::string& name) const;
  bool is_indexed(int folder, const journal_segment& segment);
  void add_job(int folder, const journal_segment& segment, bool is_done);
  void begin_job();

  journal_place journal_;
  journal_rules rules_;
  std::function<void(const std::string& text)> tell_;
  std::deque<job> jobs_;
  std::unique_ptr<segment_work> work_;
  std::string working_on_;        // its segment
  std::set<std::string> failed_;  // segments that could not be worked on at the last look
  std::map<std::string, uint64_t> indexed_;  // files whose index fits, and their sizes
  clock::time_point looked_{};
  clock::time_point next_look_{};
};

#endif
