// Messages of a stream in their order, whatever happens to the connection of the reader's server.
#ifndef ENGINES_NATS_STREAM_READER_H
#define ENGINES_NATS_STREAM_READER_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "engines/nats/link.h"

// Messages that are read again behind a break, of streams whose readers know what they have. A
// server of a cluster that was killed, or stood still, may number messages otherwise than the
// others until it has caught up with them: by as many as senders had on their way, and sent again.
inline constexpr uint64_t nats_again = 2000;

inline uint64_t nats_number_before(uint64_t number, uint64_t again) {
  return number > again ? number - again : 1;
}

class nats_stream_reader {
 public:
  // Messages of that subject, wildcards allowed, from this number on; behind a break so many once
  // more. The link lives longer.
  nats_stream_reader(nats_link& link, std::string stream, std::string subject, uint64_t from = 1,
                     uint64_t again = 0);
  ~nats_stream_reader();
  nats_stream_reader(const nats_stream_reader&) = delete;
  nats_stream_reader& operator=(const nats_stream_reader&) = delete;

  // The next message; null when none came within the time. Raises engine_error.
  nats_message next(std::chrono::milliseconds patience);
  // All that were there when it was asked for the first time, one by one, and maybe some that came
  // later; null behind them.
  nats_message next_there();

  // The number of the message that was handed out last; 0 before.
  uint64_t sequence() const { return sequence_; }
  int64_t stored() const;  // when it was stored, in seconds since 1970

 private:
  void subscribe();
  void unsubscribe();
  bool is_due(natsMsg* message);
  bool is_held_up();
  bool is_at_end() const;
  void take_removal();

  // A message that is there: by its time, which all servers of a cluster tell alike.
  struct stored_place {
    uint64_t sequence = 0;  // 0: there is none
    int64_t time = 0;       // nanoseconds since 1970
  };
  stored_place last_there();

  nats_link& link_;
  std::string stream_;
  std::string subject_;
  uint64_t from_;  // behind all that were handed out
  uint64_t again_;
  uint64_t start_ = 0;  // of this subscription; 0: there was none yet
  uint64_t sequence_ = 0;
  int64_t time_ = 0;                             // of the message that was handed out last
  uint64_t pending_ = 0;                         // messages behind it, as the server says
  uint64_t delivered_ = 0;                       // messages by this subscription
  std::chrono::steady_clock::time_point heard_;  // of this subscription, or that nothing is there
  std::chrono::milliseconds silence_;            // that is borne until that is asked
  std::optional<int64_t> looked_;  // time of the last message that this subscription knows of
  bool is_end_known_ = false;
  stored_place end_;  // the last message that was there
  int looks_behind_ = 0;
  nats_owned<natsSubscription> subscription_;
};

#endif
