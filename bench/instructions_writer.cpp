// What a recorder's writer does for an event: from its bytes in the ring to lines in the outputs'
// batches, and the batches written.
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/instructions.h"
#include "kp_LOG_LogConfig.h"
#include "recording/ring/event_bytes.h"
#include "recording/ring/ring_delivery.h"
#include "tests/support/temp_folder.h"

// --- The event as bytes -------------------------------------------------------------------------

template <class Value>
static void put(std::string& bytes, const Value& value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class Value>
static void put_number(std::string& bytes, uint16_t number, kp_AttributeType type, Value value) {
  put(bytes, value_head{number, static_cast<uint8_t>(type)});
  put(bytes, value);
}

static void put_text(std::string& bytes, uint16_t number, kp_AttributeType type,
                     std::string_view text) {
  put_number(bytes, number, type, static_cast<uint16_t>(text.size()));
  bytes += text;
}

static std::string event_in_bytes(const known_event& event) {
  event_head head{};
  head.time = 1'794'762'176'123'456'789;
  head.event = event.id;
  head.fingerprint = folded_fingerprint(event);
  head.zone.bias = -480;
  head.level = 5;
  std::string bytes;
  put(bytes, head);
  put_text(bytes, 0, TypeMBChar32, shop_value);
  put_text(bytes, 1, TypeMBChar64, customer_value);
  put_number(bytes, 2, TypeUInt4, items_value);
  put_number(bytes, 3, TypeFloat, price_value);
  put_number(bytes, 4, TypeSInt4, balance_value);
  return bytes;
}

// --- A ring whose events are read and delivered over and over -----------------------------------

class delivered_ring {
 public:
  delivered_ring(bool text, bool json, bool count)
      : events_({.definitions = kp_LOG_LogConfig::GetDefinitionPath(), .locale = "en_US"}) {
    ring_info info;
    info.locale = "en_US";
    info.host = "shop-4.example.org";
    info.pid = static_cast<uint64_t>(getpid());
    if (text) info.text = folder_.file("shop");
    if (json) info.json = folder_.file("shop.jsonl");
    if (count) info.count = folder_.file("shop-count");
    ring_ = ring_file::make(folder_.file("shop"), ring_file::least_size, info);
    delivery_ =
        std::make_unique<ring_delivery>(*ring_, events_, lock_waiting(), [](const std::string&) {});
    fill(event_in_bytes(*events_.find(event_id)));
  }

  // Takes the block's next event for the outputs; behind the last one reads the block again, and
  // now and then writes what the outputs have.
  void deliver_next() {
    if (next_ == events_read_.size()) start_again();
    ring_event& event = events_read_[next_++];
    event.frame->sequence = 0;
    if (delivery_->add(event) != ring_delivery::outcome::taken) std::abort();
  }

 private:
  static constexpr size_t events_of_a_block = 25, events_of_a_batch = 250;

  void fill(const std::string& bytes) {
    block_head& block = ring_->block(0);
    block.lane = block.serial = 1;
    block.thread = static_cast<uint32_t>(gettid());
    auto* at = reinterpret_cast<unsigned char*>(&block + 1);
    for (size_t i = 0; i < events_of_a_block; ++i) {
      auto& frame = *reinterpret_cast<frame_head*>(at);
      frame.size = static_cast<uint32_t>(framed_size(bytes.size()));
      frame.event_size = static_cast<uint32_t>(bytes.size());
      frame.part = frame_part::whole;
      std::memcpy(&frame + 1, bytes.data(), bytes.size());
      frame.sum = sum_of(block, frame);
      at += frame.size;
      block.used += frame.size;
    }
  }
  void start_again() {
    if (delivery_->pending() >= events_of_a_batch) delivery_->write();
    events_read_.clear();
    next_ = 0;
    reader_.read(ring_->block(0), 0, events_read_);
    if (events_read_.size() != events_of_a_block) std::abort();
  }

  const temp_folder folder_;
  const event_set events_;
  std::unique_ptr<ring_file> ring_;
  std::unique_ptr<ring_delivery> delivery_;
  lane_reader reader_;
  std::vector<ring_event> events_read_;
  size_t next_ = 0;
};

static void count_delivering(long times, bool text, bool json, bool count) {
  delivered_ring ring(text, json, count);
  count_operation(times, [&] { ring.deliver_next(); });
}

std::vector<counted_operation> writer_operations() {
  return {
      {"write_text", [](long times) { count_delivering(times, true, false, false); }},
      {"write_stored", [](long times) { count_delivering(times, false, true, false); }},
      {"write_all", [](long times) { count_delivering(times, true, true, true); }},
  };
}
