// Brings events of a ring into its outputs, each once.
#ifndef RECORDING_RING_RING_DELIVERY_H
#define RECORDING_RING_RING_DELIVERY_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "recording/records/event_set.h"
#include "recording/ring/event_bytes.h"
#include "recording/ring/ring_file.h"
#include "recording/ring/ring_reader.h"
#include "recording/sinks/counter_writer.h"
#include "recording/sinks/sink.h"

// Told in one line, without its end.
using ring_report = std::function<void(const std::string& text)>;

class ring_delivery {
 public:
  enum class outcome {
    taken,
    had,     // every output has it already
    stays,   // the definitions have no such event any more, or another one
    damaged  // and passed over
  };

  // Opens the outputs that the ring names. The library's settings are those of the calling thread;
  // ring and events must live as long. Raises std::invalid_argument and file_error.
  ring_delivery(ring_file& ring, const event_set& events, lock_waiting waiting, ring_report report);

  // Gives the event the next sequence, unless it has one, and takes it for the outputs that do not
  // have it yet.
  outcome add(const ring_event& event);
  // How many events were added since the last write() that went well.
  uint64_t pending() const { return pending_; }
  size_t pending_bytes() const;
  // Writes what was added into all outputs. Raises the file_error of the first output that fails,
  // the others being written: to be called again.
  void write();
  // As record_sink::keep_up, of the journal.
  std::chrono::milliseconds keep_up();

 private:
  // An output, and which events of the batch go there.
  struct place {
    std::unique_ptr<record_sink> sink;
    std::unique_ptr<counter_writer> counts;
    uint64_t first = 0;  // of the batch; 0: none
    uint64_t last = 0;   // that it has, or that is in the batch

    bool is_wanted() const { return sink != nullptr || counts != nullptr; }
  };

  void open_outputs(const lock_waiting& waiting, const ring_report& report,
                    const std::string& version);
  bool is_in_every_output(uint64_t sequence) const;
  void give_sequence(frame_head& frame);
  void add_to_outputs(uint64_t sequence);
  std::string message_of(const made_entry& made, bool& is_from_definition) const;
  void write(unsigned number);

  ring_file& ring_;
  event_reader reader_;
  std::array<place, ring_start::outputs> outputs_;
  bool shows_messages_ = false;  // an output has more than counts
  record_origin origin_;
  uint64_t pending_ = 0;
};

#endif
