#include "engines/nats/record_packer.h"

#include <zstd.h>

#include <algorithm>
#include <memory>

static constexpr size_t most_records_of_message = 64;
static constexpr size_t most_bytes_of_group = size_t{256} << 10;
// How far records are looked through for neighbours of one subject.
static constexpr size_t most_records_of_window = 4096;
static constexpr size_t most_bytes_of_window = size_t{1} << 20;
static constexpr size_t room_of_header = 512;      // its ID and what names it
static constexpr size_t least_room_of_part = 512;  // below that nothing can be said with messages

nats_record_packer::nats_record_packer(const nats_link& link, nats_publisher& publisher,
                                       const ship_batch& batch, nats_delivery& delivery)
    : link_(link),
      publisher_(publisher),
      batch_(batch),
      delivery_(delivery),
      most_bytes_(link.largest_message() - std::min(link.largest_message(), room_of_header)) {}

void nats_record_packer::put_all() {
  for (const shipped_record& record : batch_.records) put(record);
  publish_all();
}

void nats_record_packer::put(const shipped_record& record) {
  const size_t bytes = record.text.size() + 1;
  record_group& of_kind = groups_[{record.event, record.level}];
  if (!of_kind.records.empty() &&
      of_kind.bytes + bytes > std::min(most_bytes_of_group, most_bytes_ / 2))
    publish(of_kind);
  of_kind.records.push_back(&record);
  of_kind.bytes += bytes;
  ++records_;
  bytes_ += bytes;
  if (of_kind.records.size() == most_records_of_message) publish(of_kind);
  if (records_ >= most_records_of_window || bytes_ >= most_bytes_of_window) publish_all();
}

// In the order of the records that they begin with.
void nats_record_packer::publish_all() {
  std::vector<record_group*> groups;
  for (auto& [kind, group] : groups_)
    if (!group.records.empty()) groups.push_back(&group);
  std::ranges::sort(groups, {},
                    [](const record_group* group) { return group->records.front()->line; });
  for (record_group* const group : groups) publish(*group);
}

void nats_record_packer::publish(record_group& group) {
  const shipped_record& first = *group.records.front();
  const bool may_fit = group.bytes <= most_bytes_;
  if (may_fit) write_nats_message(message_, batch_.journal, batch_.after.segment, group.records);
  if (!may_fit || message_.size() > most_bytes_) {
    for (const shipped_record* const record : group.records) publish_in_parts(*record);
  } else {
    publisher_.publish(
        {.subject = link_.subjects().record(batch_.journal.host, first),
         .id = nats_message_id(batch_.journal, batch_.after.segment, group.records, {}),
         .bytes = message_,
         .records = group.records.size()},
        delivery_);
  }
  records_ -= group.records.size();
  bytes_ -= group.bytes;
  group.records.clear();
  group.bytes = 0;
}

size_t nats_record_packer::room_of_part(const shipped_record& record) {
  const nats_part longest{
      .number = UINT32_MAX, .is_last = false, .size = UINT32_MAX, .digest = record.digest};
  write_nats_part(message_, batch_.journal, batch_.after.segment, record, longest, {});
  if (message_.size() + least_room_of_part > most_bytes_)
    link_.fail("takes messages of " + std::to_string(link_.largest_message()) +
               " bytes alone: raise max_payload of the server, or max_msg_size of the stream");
  return most_bytes_ - message_.size();
}

struct nats_compressor_deleter {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

void nats_record_packer::publish_in_parts(const shipped_record& record) {
  const std::unique_ptr<ZSTD_CCtx, nats_compressor_deleter> compressor(ZSTD_createCCtx());
  if (!compressor) throw std::bad_alloc();
  ZSTD_CCtx_setPledgedSrcSize(compressor.get(), record.text.size());
  std::string bytes(room_of_part(record), '\0');
  nats_part part{.size = bytes.size(), .digest = record.digest};
  ZSTD_inBuffer in{record.text.data(), record.text.size(), 0};
  for (; !part.is_last; ++part.number) {
    ZSTD_outBuffer out{bytes.data(), bytes.size(), 0};
    size_t left = 1;
    while (left != 0 && out.pos < out.size) {
      left = ZSTD_compressStream2(compressor.get(), &out, &in, ZSTD_e_end);
      if (ZSTD_isError(left) != 0)
        link_.fail(std::string("a record cannot be compressed: ") + ZSTD_getErrorName(left));
    }
    part.is_last = left == 0;
    publish_part(record, part, std::string_view(bytes).substr(0, out.pos));
  }
}

void nats_record_packer::publish_part(const shipped_record& record, const nats_part& part,
                                      std::string_view bytes) {
  write_nats_part(message_, batch_.journal, batch_.after.segment, record, part, bytes);
  const shipped_record* const one = &record;
  publisher_.publish({.subject = link_.subjects().record(batch_.journal.host, record),
                      .id = nats_message_id(batch_.journal, batch_.after.segment, {&one, 1}, part),
                      .bytes = message_,
                      .records = part.is_last ? 1U : 0U},
                     delivery_);
}
