// Messages on their way into a stream, and which of them the engine has acknowledged. Everything
// raises engine_error. Used by one thread.
#ifndef ENGINES_NATS_PUBLISHER_H
#define ENGINES_NATS_PUBLISHER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "engines/nats/link.h"

// The newest of the acknowledged messages.
struct nats_stored_message {
  uint64_t sequence = 0;
  std::string id;
};

class nats_publisher {
 public:
  explicit nats_publisher(nats_link& link);
  ~nats_publisher() { link_.retire(std::move(answers_)); }
  nats_publisher(const nats_publisher&) = delete;
  nats_publisher& operator=(const nats_publisher&) = delete;

  // Sends a message of so many records, and waits while too much is on its way. An empty ID is
  // none: the engine takes the message whatever it has.
  void publish(const std::string& subject, const std::string& id, std::string_view bytes,
               size_t records);
  // Waits until all are acknowledged.
  void finish();

  // --- Of the messages since the last call of begin_count:
  void begin_count();
  uint64_t known() const { return known_; }  // records that the engine had before
  const nats_stored_message& newest() const { return newest_; }

 private:
  struct waiting_message {
    std::string id;
    size_t bytes = 0;
    size_t records = 0;
  };

  void send(const std::string& subject, const std::string& id, std::string_view bytes);
  void take_acknowledgement();  // one, or waits for a step
  void take(natsMsg* answer);
  void take_stored(const waiting_message& message, std::string_view answer);

  nats_link& link_;
  std::string inbox_;
  nats_owned<natsSubscription> answers_;
  uint64_t next_ = 0;  // number of a message
  std::map<uint64_t, waiting_message> waiting_;
  size_t waiting_bytes_ = 0;
  std::chrono::steady_clock::time_point heard_;  // when something was acknowledged, or begun
  uint64_t known_ = 0;
  nats_stored_message newest_;
};

#endif
