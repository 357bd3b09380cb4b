// Batches of records into a database.
#ifndef ENGINES_POSTGRESQL_SENDER_H
#define ENGINES_POSTGRESQL_SENDER_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "engines/postgresql/connection.h"
#include "tools/ship/engine.h"

class pg_sender : public ship_engine {
 public:
  explicit pg_sender(const engine_options& options);

  std::optional<std::vector<segment_position>> positions(const journal_identity& journal) override;
  void offer(const record_kit& kit) override;
  store_result store(const ship_batch& batch) override;
  void tell(const journal_identity& journal, const journal_state& state) override;

 private:
  using segment_key = std::tuple<journal_identity, std::string, uint64_t>;
  struct segment_state {
    bool is_pruned = false;
    uint64_t top = 0;
  };

  void connect();
  void make_batch_table();
  void offer_kit(const record_kit& kit);
  const std::string& hash_of(const record_kit& kit);
  std::string id_of(const ship_batch& batch);
  segment_state begin_batch(const ship_batch& batch, const std::string& id);
  void copy_records(const ship_batch& batch);
  uint64_t insert_records(const ship_batch& batch, const segment_state& state,
                          const std::string& id);
  std::string position_text(const ship_batch& batch, const std::string& id, uint64_t inserted,
                            bool is_again);
  void begin_finishing();
  void go_on_finishing();

  engine_options options_;
  pg_connection connection_;
  // By which days are finished: that takes minutes, while the batches go on.
  pg_connection finishing_;
  bool is_finishing_ = false;
  std::map<segment_key, std::string> ids_;  // of segments that this connection has seen
  std::string kit_;                         // and its hash
  std::string kit_hash_;
  std::string offered_;  // the hash of the kit that the database has
  std::string rows_;
};

#endif
