// A journal that is followed: all that is written to its segments, old and new ones.
#ifndef RECORDING_JOURNAL_FOLLOWED_JOURNAL_H
#define RECORDING_JOURNAL_FOLLOWED_JOURNAL_H

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "recording/files/file_error.h"
#include "recording/files/path_watch.h"
#include "recording/journal/compressed_lines.h"
#include "recording/journal/followed_place.h"
#include "recording/journal/segment_work.h"
#include "recording/journal/segments.h"
#include "recording/records/growing_file.h"

// Each record is handed out once, also when its segment is compressed or removed meanwhile. At
// first the segments come in their order; then what was written, of the earliest segment first.
class followed_journal : public followed_place {
 public:
  // Its folder need not be there, nor any segment.
  followed_journal(journal_place journal, const follow_rules& rules);

  bool next(record_line& line) override;
  pollfd watched() const override { return {watch_.descriptor(), POLLIN, 0}; }
  std::chrono::milliseconds patience() const override {
    return is_asking() ? path_watch::asking_interval : watch_.patience();
  }
  void look(const pollfd& ready) override;
  bool has_segments() const { return !segments_.empty(); }
  // Why the folder cannot be read at the moment; empty: it can, or is not there.
  const std::string& fault() const { return fault_; }

 private:
  using segment_key = std::pair<log_day, unsigned>;
  struct followed_segment {
    journal_segment listed = {};
    std::shared_ptr<line_source> source = {};  // of the form that was opened last
    line_position shown = {};                  // while neither form is open
    file_identity file = {};                   // of the plain form
    bool is_gone = false;                      // whose name leads to another file since, or to none
    bool is_compressed_known = false;          // in that form there is nothing that was not shown
    std::unique_ptr<growing_file> plain = {};
    std::unique_ptr<compressed_lines> compressed = {};
  };

  // Whether the folder is to be looked at again soon, though nothing is told of it.
  bool is_asking() const { return !fault_.empty() || !put_off_.empty() || watch_.descriptor() < 0; }
  void read_folder();
  void take_folder();
  void take_listed(int folder, const journal_segment& segment);
  bool is_left_out(int folder, followed_segment& one);
  bool is_changed(int folder, followed_segment& one) const;
  void take_lost(growing_file& file);
  bool was_shown(std::string_view line);
  void take_missing(int folder, const std::set<segment_key>& listed);
  bool next_of(followed_segment& one, record_line& line);
  bool open(followed_segment& one);
  bool open_compressed(followed_segment& one);
  void give_up(followed_segment& one, const file_error& error);
  void put_off(const segment_key& key, const file_error& error);
  open_descriptor open_folder() const;
  void open_waiting();
  void close(const segment_key& key);
  void rest(const segment_key& key);
  bool give_way();
  bool with_descriptors(const std::function<bool()>& action);

  journal_place journal_;
  follow_rules rules_;
  path_watch watch_;
  std::map<segment_key, followed_segment> segments_;
  std::set<segment_key> due_;         // of which something may be to be read
  std::set<segment_key> put_off_;     // the same, while there are no descriptors for them
  std::set<segment_key> removed_;     // of these, to be forgotten behind that
  std::vector<segment_key> resting_;  // those that were read last, and are open
  // Lines that were handed out and are gone: a batch was taken back, and comes again, perhaps, in
  // other segments, and behind other lines.
  std::unordered_multiset<std::string> lost_;
  size_t lost_bytes_ = 0;
  std::string fault_;      // of the folder, that was told
  bool is_begun_ = false;  // what was there at first is known
  uint64_t records_ = 0;   // in those segments of it that are read
};

#endif
