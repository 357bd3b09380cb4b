// The records of a batch, packed into messages.
#ifndef ENGINES_NATS_RECORD_PACKER_H
#define ENGINES_NATS_RECORD_PACKER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engines/nats/message.h"
#include "engines/nats/publisher.h"
#include "tools/ship/shipped_record.h"

// Records of a subject that stand near each other travel together, so that a message does not
// stand for one record alone where events alternate. Raises engine_error. All that it is given
// lives as long as it does.
class nats_record_packer {
 public:
  nats_record_packer(const nats_link& link, nats_publisher& publisher, const ship_batch& batch,
                     nats_delivery& delivery);

  void put_all();

 private:
  struct record_group {
    std::vector<const shipped_record*> records;
    size_t bytes = 0;
  };
  using record_kind = std::pair<std::optional<uint32_t>, std::optional<unsigned>>;  // event, level

  void put(const shipped_record& record);
  void publish_all();
  void publish(record_group& group);
  void publish_in_parts(const shipped_record& record);
  size_t room_of_part(const shipped_record& record);
  void publish_part(const shipped_record& record, const nats_part& part, std::string_view bytes);

  const nats_link& link_;
  nats_publisher& publisher_;
  const ship_batch& batch_;
  nats_delivery& delivery_;
  size_t most_bytes_;  // of a message, but for its subject and its ID
  std::map<record_kind, record_group> groups_;
  size_t records_ = 0;  // in the groups
  size_t bytes_ = 0;
  std::string message_;
};

#endif
