// Records of a stream that were there when it was begun: by their places, each once. Raises
// engine_error; what was read stays read, and the next call goes on. Used by one thread.
#ifndef ENGINES_NATS_RECORD_SCAN_H
#define ENGINES_NATS_RECORD_SCAN_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/nats/piece_sorter.h"
#include "engines/nats/record_filter.h"
#include "engines/nats/record_joiner.h"
#include "engines/nats/stream_reader.h"

// A link that is made when it is needed, and given up behind an error.
class lasting_link {
 public:
  explicit lasting_link(engine_options options) : options_(std::move(options)) {}

  nats_link& get();
  void give_up() { link_.reset(); }
  const engine_options& options() const { return options_; }

 private:
  engine_options options_;
  std::unique_ptr<nats_link> link_;
};

// What a message holds of records: pieces, each with its place.
struct record_piece {
  record_place place;
  std::optional<nats_part> part;  // nothing: it is the record
  std::string_view bytes;
};
void for_each_piece(std::string_view message,
                    const std::function<void(const record_piece& piece)>& take);

class nats_record_scan {
 public:
  // Whether a message, or a record in it, is wanted.
  struct record_choice {
    std::vector<std::string> subjects;
    std::function<bool(std::string_view subject)> is_subject;
    std::function<bool(const record_place& place)> is_place;
  };

  nats_record_scan(lasting_link& link, record_choice choice);

  struct found_record {
    record_place place;
    std::string subject;  // "EVENT.LEVEL", as tokens
    std::string_view text;
  };
  // The next record; its text lives until the next call. False: there are no more.
  bool next(found_record& record);
  // The last message that there was when it was begun.
  uint64_t end() const { return end_.value_or(0); }

 private:
  void read_all();
  void read_subject(nats_link& link, const std::string& subject);
  void take(natsMsg* message);
  bool take_piece(std::string_view key, std::string_view bytes, found_record& record);

  lasting_link& link_;
  record_choice choice_;
  piece_sorter sorter_;
  std::optional<uint64_t> end_;
  int64_t end_time_ = 0;  // of that message, in nanoseconds since 1970
  size_t read_ = 0;       // subjects
  uint64_t from_ = 1;     // of the next one
  std::string handed_;    // place of the record that was handed out last
  std::string joining_;   // place and size of the pieces that are put together
  piece_joiner joiner_;
  std::string value_;
};

#endif
