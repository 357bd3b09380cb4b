// Records out of what messages hold of them: each once, and whole. In any order, as they arrive, or
// by their places.
#ifndef ENGINES_NATS_RECORD_JOINER_H
#define ENGINES_NATS_RECORD_JOINER_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/nats/message.h"

// Where a record stands, and which it is of those that stand there.
struct record_place {
  journal_identity journal;
  std::string segment;
  uint64_t line = 0;
  uint64_t digest = 0;

  auto operator<=>(const record_place&) const = default;
};

// A text whose bytes are in the order of places, and, behind that, of pieces of a record. `number`
// is that of the piece.
std::string sort_key_of(const record_place& place, uint64_t size, uint64_t number);
// The place that begins a key, and where it ends.
record_place place_of_sort_key(std::string_view key);
std::string_view place_in_sort_key(std::string_view key);
struct sorted_piece {
  uint64_t size = 0;
  uint64_t number = 0;
};
sorted_piece piece_of_sort_key(std::string_view key);

// A record from its pieces, one behind the other.
class piece_joiner {
 public:
  piece_joiner();
  ~piece_joiner();
  piece_joiner(piece_joiner&&) noexcept;
  piece_joiner& operator=(piece_joiner&&) noexcept;

  // Takes the piece; false where it does not fit behind those before, and from then on.
  bool add(const nats_part& part, std::string_view bytes);
  uint64_t taken() const { return next_; }  // pieces
  // The record, when its last piece was taken; nothing before, and where the pieces are no record.
  std::optional<std::string_view> record() const;

 private:
  struct decompressor;

  std::unique_ptr<decompressor> decompressor_;
  std::string text_;
  uint64_t next_ = 0;
  bool is_broken_ = false;
  bool is_whole_ = false;
};

// Records as they arrive.
class arrival_joiner {
 public:
  // Whether it was not seen lately; from now on it was.
  bool is_new(const record_place& place);
  // The record that the piece completes, whatever the order that pieces come in; it lives until the
  // next call.
  std::optional<std::string_view> add(const record_place& place, const nats_part& part,
                                      std::string_view bytes);

 private:
  struct unfinished_record {
    std::map<uint64_t, std::string> pieces;
    std::optional<uint64_t> last;  // number of the last piece
    uint64_t age = 0;
  };
  using unfinished_key = std::pair<record_place, uint64_t>;  // and the size of pieces

  void forget_oldest();

  // Sums of places, in buckets by some of their bits, newest first; empty before the first.
  std::vector<uint64_t> seen_;
  std::map<unfinished_key, unfinished_record> unfinished_;
  uint64_t age_ = 0;
  piece_joiner joined_;
};

#endif
