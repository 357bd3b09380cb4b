// Pieces of records as they arrive, in any order, repeated, and with others among them: a record
// comes out as it was cut, once all its pieces were there, or not at all. Each piece takes four
// bytes, and those of its content: which record, number and whether it is the last, and whether it
// is a piece of that record as it should be or the content as it is.
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engines/nats/record_joiner.h"
#include "recording/text/check_sum.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void require(bool holds) {
  if (!holds) std::abort();
}

// A record, cut into pieces.
struct cut_record {
  record_place place;
  std::string text;
  uint64_t size = 0;  // of the pieces
  std::vector<std::string> pieces = {};

  nats_part part(uint64_t number) const {
    return {.number = number,
            .is_last = number + 1 == pieces.size(),
            .size = size,
            .digest = place.digest};
  }
};

static cut_record cut_record_of(uint64_t line, std::string text, uint64_t size) {
  cut_record record{.place = {.journal = {.host = "web1", .journal = "/var/log/shop/shop"},
                              .segment = "shop.20261115.0001.jsonl",
                              .line = line,
                              .digest = check_sum(text)},
                    .text = std::move(text),
                    .size = size};
  std::string frame(ZSTD_compressBound(record.text.size()), '\0');
  frame.resize(
      ZSTD_compress(frame.data(), frame.size(), record.text.data(), record.text.size(), 1));
  for (size_t begin = 0; begin < frame.size(); begin += size)
    record.pieces.push_back(frame.substr(begin, size));
  return record;
}

// Two of them stand at one place.
static const std::array<cut_record, 4>& cut_records() {
  static const std::array<cut_record, 4> all = {
      cut_record_of(1, "a record without much in it, cut into many pieces", 8),
      cut_record_of(1, std::string(20'000, 'x') + "end", 4),
      cut_record_of(2, "", 5),
      cut_record_of(3, "of one piece", 1000),
  };
  return all;
}

static void require_whole(const cut_record& record, std::string_view joined, bool is_disturbed) {
  require(check_sum(joined) == record.place.digest);
  if (!is_disturbed) require(joined == record.text);
}

// Whatever came before, a record is there when all its pieces come twice: what was left of it may
// complete it the first time, or the second time.
static void require_at_last(arrival_joiner& arrivals, const cut_record& record) {
  size_t whole = 0;
  for (size_t i = 0; i < 2 * record.pieces.size(); ++i) {
    const uint64_t number = i % record.pieces.size();
    const auto joined = arrivals.add(record.place, record.part(number), record.pieces[number]);
    if (joined) require_whole(record, *joined, false);
    if (joined) ++whole;
  }
  require(whole != 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  arrival_joiner arrivals;
  std::array<piece_joiner, 4> in_order;
  std::set<size_t> disturbed;
  for (size_t at = 0; at + 4 <= size;) {
    const size_t index = data[at] % cut_records().size();
    const cut_record& record = cut_records()[index];
    const bool is_genuine = (data[at + 2] & 1) == 0;
    nats_part part = record.part(data[at + 1] % record.pieces.size());
    std::string content = record.pieces[part.number];
    const size_t length = is_genuine ? 0 : std::min<size_t>(data[at + 3], size - at - 4);
    if (!is_genuine) {
      part.number = data[at + 1];
      part.is_last = (data[at + 2] & 2) != 0;
      content.assign(reinterpret_cast<const char*>(data) + at + 4, length);
      disturbed.insert(index);
    }
    at += 4 + length;
    if (const auto joined = arrivals.add(record.place, part, content))
      require_whole(record, *joined, disturbed.contains(index));
    in_order[index].add(part, content);
    if (const auto joined = in_order[index].record())
      require_whole(record, *joined, disturbed.contains(index));
  }
  for (const size_t index : {size_t{0}, size_t{3}})
    if (!disturbed.contains(index)) require_at_last(arrivals, cut_records()[index]);
  return 0;
}
