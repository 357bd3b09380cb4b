// Sends the records of a journal to an engine, batch by batch.
#ifndef TOOLS_SHIP_SHIPPING_H
#define TOOLS_SHIP_SHIPPING_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "recording/files/folder_lock.h"
#include "tools/emit/run_report.h"
#include "tools/ship/engine.h"
#include "tools/ship/journal_queue.h"

// What became of the records so far.
struct ship_tally {
  uint64_t stored = 0;   // by the engine, by this run
  uint64_t known = 0;    // it had them before
  uint64_t pruned = 0;   // of days that were removed there
  uint64_t refused = 0;  // by the engine, for good
  uint64_t bad = 0;      // lines that are no records
  uint64_t batches = 0;
  std::optional<std::chrono::system_clock::time_point> last = {};  // batch

  uint64_t read() const { return stored + known + pruned + refused + bad; }
};

class shipping {
 public:
  // `to` and the host name the file beside the journal; where the engine keeps no positions, that
  // is the position. All but the kit must live as long.
  shipping(ship_engine& engine, const event_set& events, record_kit kit,
           const journal_place& journal, journal_identity identity, std::string to,
           emit_report& report, ship_tally& tally, const lock_waiting& waiting);

  // Sends the next batch, or waits for those on their way; false where there is nothing more at the
  // moment. The first waits for the lock of the file beside the journal, so that one process at a
  // time sends this journal there. Behind an error it begins anew with what the engine says that it
  // has. Raises engine_error and file_error.
  bool step();
  // Waits for the batches that are on their way, tells the engine how the journal is, and writes
  // the file beside it: what the run has come to. Raises engine_error and file_error.
  void tell();

  // What to wait for while there is nothing, and how long at most.
  journal_queue& queue() { return queue_; }
  journal_state state() const { return queue_.state(); }

 private:
  using clock = std::chrono::steady_clock;

  struct sent_batch {
    segment_position after;
    size_t records = 0;
  };

  void begin();
  sent_positions saved_positions() const;
  void send();
  void settle();
  void take_result(const store_result& result);
  void save(bool is_due);

  ship_engine& engine_;
  record_kit kit_;
  journal_identity identity_;
  emit_report& report_;
  ship_tally& tally_;
  journal_place journal_;
  lock_waiting waiting_;
  std::optional<folder_lock> lock_;  // of that file, from the first step on
  std::string path_;                 // of the file beside the journal
  sent_positions positions_;         // that it is to say
  std::string saved_;                // what it says
  clock::time_point next_save_{};
  clock::time_point next_tell_{};
  journal_queue queue_;
  std::deque<sent_batch> on_its_way_;
  bool is_begun_ = false;
  bool keeps_positions_ = true;  // the engine does
};

#endif
