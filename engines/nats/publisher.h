// Messages on their way into a stream, and which of them the engine has acknowledged. Everything
// raises engine_error. Used by one thread.
#ifndef ENGINES_NATS_PUBLISHER_H
#define ENGINES_NATS_PUBLISHER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "engines/nats/link.h"

// The newest of the acknowledged messages.
struct nats_stored_message {
  uint64_t sequence = 0;
  std::string id;
};

// What became of messages that belong together.
struct nats_delivery {
  size_t waiting = 0;  // of them, that are not acknowledged
  uint64_t known = 0;  // records that the engine had before
  nats_stored_message newest = {};
  bool is_overtaken = false;  // one is not stored, since another came before it
};

// A message that is to be stored.
struct nats_posting {
  std::string subject;
  std::string id = {};  // empty: the engine takes it whatever it has
  std::string_view bytes;
  size_t records = 0;  // in it
  // The number of the subject's last message, 0: there is none. Where it is not that any more this
  // one is not stored, whenever it comes.
  std::optional<uint64_t> behind = {};
};

class nats_publisher {
 public:
  explicit nats_publisher(nats_link& link);
  ~nats_publisher() { link_.retire(std::move(answers_)); }
  nats_publisher(const nats_publisher&) = delete;
  nats_publisher& operator=(const nats_publisher&) = delete;

  // Sends a message, and waits while too much is on its way. The delivery lives until all of it is
  // acknowledged, or as long as this.
  void publish(const nats_posting& posting, nats_delivery& delivery);
  // Waits until all of it is acknowledged.
  void finish(const nats_delivery& delivery);
  // Sends one that has no records and no ID, and waits until it is acknowledged.
  void publish_state(const std::string& subject, std::string_view bytes);

 private:
  struct waiting_message {
    nats_delivery* delivery = nullptr;
    std::string id;
    size_t bytes = 0;
    size_t records = 0;
  };

  void send(const nats_posting& posting);
  void take_acknowledgement();  // one, or waits for a step
  void take(natsMsg* answer);
  void take_stored(const waiting_message& message, std::string_view answer) const;

  nats_link& link_;
  std::string inbox_;
  nats_owned<natsSubscription> answers_;
  uint64_t next_ = 0;  // number of a message
  std::map<uint64_t, waiting_message> waiting_;
  size_t waiting_bytes_ = 0;
  std::chrono::steady_clock::time_point heard_;  // when something was acknowledged, or begun
};

#endif
