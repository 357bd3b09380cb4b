// The records of a journal on their way to an engine: the journal itself is the queue.
#ifndef TOOLS_SHIP_JOURNAL_QUEUE_H
#define TOOLS_SHIP_JOURNAL_QUEUE_H

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recording/files/compression.h"
#include "recording/files/path_watch.h"
#include "recording/journal/segments.h"
#include "recording/journal/sent_positions.h"
#include "recording/records/event_set.h"
#include "recording/records/input.h"
#include "recording/records/stored_line.h"
#include "tools/ship/engine.h"

struct queue_rules {
  // The name of the file beside the journal that tells how far it was sent; empty: there is none.
  std::string sent_name = {};
  // A batch ends with the line that makes it so large.
  size_t batch_bytes = size_t{4} << 20;
  // Hears of each line that is no record: it stays in the journal, and is not sent.
  std::function<void(const record_line& line, const record_error& error)> bad = {};
  // Hears of segments that were removed before all of them was sent, a line for each.
  std::function<void(const std::string& text)> tell = {};
  // Hears of segments that cannot be read: others go on, and it is tried again a minute later.
  std::function<void(const std::string& text)> fail = {};
};

// Hands out what is there for good: a batch that its writer may still take back is waited for.
// Bounded in memory, whatever the journal has. Used by one thread at a time; raises file_error.
class journal_queue {
 public:
  // The events must live as long.
  journal_queue(journal_place journal, const event_set& events, queue_rules rules);

  // Goes on behind what the engine has of the segments; what the file beside the journal knows
  // spares reading segments again that were sent. What was handed out counts for nothing.
  void begin(const std::vector<segment_position>& confirmed, const sent_positions& known);

  // Makes the next batch of what is there, behind the one before it: false where there is nothing
  // more at the moment, or nothing before all is confirmed that was handed out.
  bool fill();
  // Of that batch, until the next call of fill().
  std::span<const shipped_record> records() const { return records_; }
  segment_position before() const;
  segment_position after() const;
  // The engine has a batch up to there, and all before it.
  void confirm(const segment_position& position);

  // What the file beside the journal is to say.
  void tell(sent_positions& positions) const;
  // It says so: the notes of what was given up go, whose sum is in it.
  void remove_counted_notes();
  journal_state state() const;
  // What state() is to say of the bytes that wait until the engine's positions are known: behind
  // those that are. Raises file_error.
  void measure(const sent_positions& known);
  // Whether there is a segment that cannot be read.
  bool has_unreadable() const;

  // What to wait for while there is nothing, and how long at most; negative: for ever.
  pollfd watched() const { return {watch_.descriptor(), POLLIN, 0}; }
  std::chrono::milliseconds patience() const;
  // Takes note of what happened; called behind each wait.
  void look_around();

 private:
  // Bytes at the end of a line that it is known by.
  static constexpr size_t tail_bytes = size_t{64} << 10;

  struct queued_segment {
    journal_segment listed = {};
    segment_position confirmed = {};
    uint64_t there = 0;  // bytes of lines; UINT64_MAX: not known
    std::optional<uint64_t> lines_there = {};
    file_stamp stamp = {};    // of the form that `there` is about
    file_stamp checked = {};  // of the form that was held against the position
    bool is_checked = false;  // that is the form that is there
    file_stamp left_at = {};  // when there was nothing in it
    std::string fault = {};   // why it cannot be read; was told
    std::chrono::steady_clock::time_point next_try = {};
  };

  void look();
  void list(int folder, std::map<std::string, queued_segment>& found);
  void take_listed(int folder, const journal_segment& segment, queued_segment& one) const;
  void take_missing(const queued_segment& one, std::map<std::string, queued_segment>& found);
  void take_noted(const std::string& name, const given_up_notes::noted_lines& noted);
  void give_up(const std::string& segment, std::optional<uint64_t> lines);
  queued_segment* due();
  bool is_open(const queued_segment& one) const;
  bool is_ahead() const;
  bool open(queued_segment& one);
  bool open_behind_confirmed(queued_segment& one);
  bool open_at(queued_segment& one, uint64_t offset);
  bool fill_from(queued_segment& one);
  bool leave(queued_segment& one);
  void pass_over(queued_segment& one, const std::string& fault);
  void read_lines(queued_segment& one);
  std::string_view read(size_t most);
  void make_room();
  void pass_over_line();
  void take_lines();
  void take_line(std::string_view bytes);
  shipped_record shipped(const record_line& line, const parsed_record& record) const;
  void close();

  journal_place journal_;
  const event_set& events_;
  queue_rules rules_;
  path_watch watch_;
  bool is_look_due_ = true;
  std::chrono::steady_clock::time_point next_look_{};

  std::multimap<std::string, segment_position> engine_;  // what it had when this began
  std::map<std::string, queued_segment> segments_;       // by their names
  uint64_t given_up_ = 0;
  bool is_given_up_exact_ = true;
  counted_notes notes_;  // that are in it
  std::optional<uint64_t> measured_waiting_;

  std::string open_name_;  // of the segment that is being read; empty: none
  std::unique_ptr<segment_reader> reader_;
  uint64_t read_ = 0;         // bytes of it that were read
  std::string lines_;         // of the batch, and what was read behind it
  size_t taken_ = 0;          // bytes of the batch
  uint64_t passed_over_ = 0;  // bytes of the line that is read, which is too long
  size_t passed_limit_ = 0;   // what it may have, by how it begins
  line_extent before_;        // where the batch begins
  line_extent after_;         // and ends
  std::vector<shipped_record> records_;
  std::shared_ptr<line_source> source_ = std::make_shared<line_source>();
  stored_line_reader stored_lines_;
  parsed_record stored_;
  record_parser parser_;
};

#endif
