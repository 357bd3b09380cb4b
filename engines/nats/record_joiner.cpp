#include "engines/nats/record_joiner.h"

#include <zstd.h>

#include <algorithm>
#include <new>
#include <span>

#include "recording/text/check_sum.h"

// More than that no record has; and pieces say what they like.
static constexpr size_t most_bytes_of_record = (size_t{16} << 20) + 1;
static constexpr size_t most_unfinished_records = 4;
static constexpr size_t most_seen_places = size_t{1} << 20;
// Places whose sums have some bits in common: of these the oldest makes room.
static constexpr size_t seen_of_bucket = 8;

// --- Keys.

// NUL is written NUL 255, and a text ends with NUL NUL: it comes before those that go on.
static void append_key_text(std::string& key, std::string_view text) {
  for (const char c : text) {
    key += c;
    if (c == '\0') key += '\xFF';
  }
  key.append(2, '\0');
}

static void append_key_number(std::string& key, uint64_t number) {
  for (int shift = 56; shift >= 0; shift -= 8) key += static_cast<char>(number >> shift & 0xFF);
}

std::string sort_key_of(const record_place& place, uint64_t size, uint64_t number) {
  std::string key;
  append_key_text(key, place.journal.host);
  append_key_text(key, place.journal.journal);
  append_key_text(key, place.segment);
  append_key_number(key, place.line);
  append_key_number(key, place.digest);
  append_key_number(key, size);
  append_key_number(key, number);
  return key;
}

static std::string take_key_text(std::string_view& key) {
  std::string text;
  for (size_t at = 0;; ++at) {
    if (key[at] == '\0') {
      const bool is_end = key[++at] == '\0';
      if (is_end) {
        key.remove_prefix(at + 1);
        return text;
      }
      text += '\0';
    } else {
      text += key[at];
    }
  }
}

static uint64_t take_key_number(std::string_view& key) {
  uint64_t number = 0;
  for (size_t i = 0; i < sizeof number; ++i)
    number = number << 8 | static_cast<unsigned char>(key[i]);
  key.remove_prefix(sizeof number);
  return number;
}

record_place place_of_sort_key(std::string_view key) {
  record_place place;
  place.journal.host = take_key_text(key);
  place.journal.journal = take_key_text(key);
  place.segment = take_key_text(key);
  place.line = take_key_number(key);
  place.digest = take_key_number(key);
  return place;
}

std::string_view place_in_sort_key(std::string_view key) {
  return key.substr(0, key.size() - 2 * sizeof(uint64_t));
}

sorted_piece piece_of_sort_key(std::string_view key) {
  key.remove_prefix(place_in_sort_key(key).size());
  sorted_piece piece;
  piece.size = take_key_number(key);
  piece.number = take_key_number(key);
  return piece;
}

// --- Pieces.

struct piece_joiner::decompressor {
  ~decompressor() { ZSTD_freeDCtx(context); }

  ZSTD_DCtx* context = ZSTD_createDCtx();
  size_t left = 1;  // 0: the frame has ended
};

piece_joiner::piece_joiner() = default;
piece_joiner::~piece_joiner() = default;
piece_joiner::piece_joiner(piece_joiner&&) noexcept = default;
piece_joiner& piece_joiner::operator=(piece_joiner&&) noexcept = default;

bool piece_joiner::add(const nats_part& part, std::string_view bytes) {
  if (!decompressor_) decompressor_ = std::make_unique<decompressor>();
  if (decompressor_->context == nullptr) throw std::bad_alloc();
  is_broken_ = is_broken_ || is_whole_ || part.number != next_++;
  ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
  const size_t step = ZSTD_DStreamOutSize();
  for (bool is_full = true; !is_broken_ && (in.pos < in.size || is_full);) {
    const size_t before = text_.size();
    text_.resize(before + step);
    ZSTD_outBuffer out{text_.data() + before, step, 0};
    decompressor_->left = ZSTD_decompressStream(decompressor_->context, &out, &in);
    text_.resize(before + out.pos);
    is_full = out.pos == step;
    is_broken_ = ZSTD_isError(decompressor_->left) != 0 || text_.size() > most_bytes_of_record ||
                 (decompressor_->left == 0 && in.pos < in.size);
    if (decompressor_->left == 0) break;
  }
  if (!part.is_last || is_broken_) return !is_broken_;
  is_whole_ = true;
  is_broken_ = decompressor_->left != 0 || check_sum(text_) != part.digest;
  return !is_broken_;
}

std::optional<std::string_view> piece_joiner::record() const {
  return is_whole_ && !is_broken_ ? std::optional<std::string_view>(text_) : std::nullopt;
}

// --- Arrivals.

bool arrival_joiner::is_new(const record_place& place) {
  if (seen_.empty()) seen_.resize(most_seen_places);
  const uint64_t sum = check_sum(sort_key_of(place, 0, 0));
  const size_t bucket = (sum ^ sum >> 32) % (most_seen_places / seen_of_bucket);
  const std::span seen = std::span(seen_).subspan(bucket * seen_of_bucket, seen_of_bucket);
  if (std::ranges::find(seen, sum) != seen.end()) return false;
  std::ranges::copy_backward(seen.first(seen_of_bucket - 1), seen.end());
  seen.front() = sum;
  return true;
}

std::optional<std::string_view> arrival_joiner::add(const record_place& place,
                                                    const nats_part& part, std::string_view bytes) {
  const unfinished_key key{place, part.size};
  if (!unfinished_.contains(key) && unfinished_.size() == most_unfinished_records) forget_oldest();
  unfinished_record& record = unfinished_[key];
  record.age = ++age_;
  record.pieces.insert_or_assign(part.number, bytes);
  if (part.is_last) record.last = part.number;
  if (!record.last || record.pieces.size() != *record.last + 1) return std::nullopt;
  joined_ = {};
  for (const auto& [number, piece] : record.pieces)
    joined_.add({.number = number,
                 .is_last = number == *record.last,
                 .size = part.size,
                 .digest = place.digest},
                piece);
  unfinished_.erase(key);
  return joined_.record();
}

void arrival_joiner::forget_oldest() {
  unfinished_.erase(std::ranges::min_element(unfinished_, {},
                                             [](const auto& record) { return record.second.age; }));
}
