// Messages of a stream in their order, whatever happens to the connection of the reader's server.
#ifndef ENGINES_NATS_STREAM_READER_H
#define ENGINES_NATS_STREAM_READER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "engines/nats/link.h"

class nats_stream_reader {
 public:
  // Messages of that subject, wildcards allowed, from this number on. The link lives longer.
  nats_stream_reader(nats_link& link, std::string stream, std::string subject, uint64_t from = 1);
  ~nats_stream_reader();
  nats_stream_reader(const nats_stream_reader&) = delete;
  nats_stream_reader& operator=(const nats_stream_reader&) = delete;

  // The next message; null when none came within the time. Raises engine_error.
  nats_message next(std::chrono::milliseconds patience);
  // All that were there when it was asked for the first time, one by one; null behind them. Where
  // the last of them is removed meanwhile, one that came later may be the last.
  nats_message next_there();

  // The number of the message that was handed out last; 0 before.
  uint64_t sequence() const { return sequence_; }
  int64_t stored() const { return stored_; }  // when it was stored, in seconds since 1970

 private:
  void subscribe();
  void unsubscribe();
  bool is_due(natsMsg* message);
  bool is_held_up();
  void take_removal();
  uint64_t last_there();

  nats_link& link_;
  std::string stream_;
  std::string subject_;
  uint64_t from_;  // the next one has this number or a higher one
  uint64_t sequence_ = 0;
  int64_t stored_ = 0;
  uint64_t delivered_ = 0;                       // messages by this subscription
  std::chrono::steady_clock::time_point heard_;  // of this subscription, or that nothing is there
  std::chrono::milliseconds silence_;            // that is borne until that is asked
  bool is_end_known_ = false;
  uint64_t end_ = 0;  // number of the last message that was there; 0: none
  int looks_behind_ = 0;
  nats_owned<natsSubscription> subscription_;
};

#endif
