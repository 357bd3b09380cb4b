// Sends records, and how far they are, to JetStream (docs/shipping-nats.md).
#ifndef ENGINES_NATS_SENDER_H
#define ENGINES_NATS_SENDER_H

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engines/nats/link.h"
#include "engines/nats/publisher.h"
#include "engines/nats/state.h"
#include "tools/ship/engine.h"

class nats_sender : public ship_engine {
 public:
  explicit nats_sender(engine_options options);
  ~nats_sender() override;

  std::optional<std::vector<segment_position>> positions(const journal_identity& journal) override;
  void offer(const record_kit& kit) override;
  store_result store(const ship_batch& batch) override;
  store_result settle() override;
  void tell(const journal_identity& journal, const journal_state& state) override;

 private:
  // What lives as long as a connection.
  struct sender_session;
  struct sent_batch;
  using segment_key = std::pair<std::string, uint64_t>;  // name, digest of the first line
  struct known_journal {
    std::map<segment_key, nats_position> positions;
    nats_stored_message stored;  // the newest
  };

  template <class Work>
  auto connected(const Work& work) -> decltype(work(std::declval<sender_session&>()));
  void read_positions(sender_session& session, const journal_identity& journal);
  bool rests_on_records(sender_session& session, const nats_position& position,
                        std::chrono::steady_clock::time_point deadline) const;
  void keep_kit(sender_session& session, const record_kit& kit, const std::string& hash);
  void note_kit(sender_session& session, const ship_batch& batch);
  store_result take_stored(sender_session& session);
  void send_position(sender_session& session, sent_batch& sent);
  void publish_position(sender_session& session, sent_batch& sent) const;
  bool is_position_stored(sender_session& session, sent_batch& sent);
  nats_message overtaking(sender_session& session, const std::string& subject,
                          const nats_delivery& delivery) const;
  nats_message look_up(sender_session& session, const std::string& subject) const;
  uint64_t records_before(known_journal& known, const sent_batch& sent) const;

  engine_options options_;
  std::unique_ptr<sender_session> session_;
  std::map<journal_identity, known_journal> journals_;
};

#endif
