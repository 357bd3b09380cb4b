// Any bytes as a message of JetStream's: the records that it holds make a message that holds the
// same, a piece of a record one that is that piece, and the keys that they are sorted by tell where
// they stand, in the order of places.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/nats/record_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void require(bool holds) {
  if (!holds) std::abort();
}

static bool is_same(const record_piece& one, const record_piece& other) {
  const bool has_part = one.part.has_value();
  return one.place == other.place && one.bytes == other.bytes &&
         has_part == other.part.has_value() &&
         (!has_part ||
          (one.part->number == other.part->number && one.part->is_last == other.part->is_last &&
           one.part->size == other.part->size && one.part->digest == other.part->digest));
}

static std::vector<record_piece> pieces_of(std::string_view message) {
  std::vector<record_piece> pieces;
  for_each_piece(message, [&](const record_piece& piece) {
    require(piece.bytes.data() >= message.data() &&
            piece.bytes.data() + piece.bytes.size() <= message.data() + message.size());
    pieces.push_back(piece);
  });
  return pieces;
}

static std::string message_of(const std::vector<record_piece>& pieces) {
  const record_piece& first = pieces.front();
  std::vector<shipped_record> records;
  for (const record_piece& piece : pieces) {
    shipped_record& record = records.emplace_back();
    record.text = piece.bytes;
    record.line = piece.place.line;
    record.digest = piece.place.digest;
  }
  std::string message;
  if (first.part) {
    write_nats_part(message, first.place.journal, first.place.segment, records.front(), *first.part,
                    first.bytes);
    return message;
  }
  std::vector<const shipped_record*> all;
  for (const shipped_record& record : records) all.push_back(&record);
  write_nats_message(message, first.place.journal, first.place.segment, all);
  require(!nats_message_id(first.place.journal, first.place.segment, all, std::nullopt).empty());
  return message;
}

static void check_key(const record_piece& piece, const record_piece& before) {
  const nats_part part = piece.part.value_or(nats_part{});
  const std::string key = sort_key_of(piece.place, part.size, part.number);
  require(place_of_sort_key(key) == piece.place);
  const sorted_piece sorted = piece_of_sort_key(key);
  require(sorted.size == part.size && sorted.number == part.number);
  const std::string key_before = sort_key_of(before.place, 0, 0);
  require((place_in_sort_key(key_before) <=> place_in_sort_key(key)) ==
          (before.place <=> piece.place));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view message(reinterpret_cast<const char*>(data), size);
  const std::vector<record_piece> pieces = pieces_of(message);
  if (pieces.empty()) return 0;
  for (const record_piece& piece : pieces) {
    check_key(piece, pieces.front());
    record_piece other = pieces.front();
    std::swap(other.place.journal.host, other.place.segment);
    check_key(piece, other);
  }
  const std::string written = message_of(pieces);
  const std::vector<record_piece> again = pieces_of(written);
  require(again.size() == pieces.size());
  for (size_t i = 0; i < pieces.size(); ++i) require(is_same(again[i], pieces[i]));
  require(message_of(again) == written);
  return 0;
}
