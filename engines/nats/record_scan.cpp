#include "engines/nats/record_scan.h"

#include <algorithm>

#include "recording/files/file_error.h"
#include "recording/text/check_sum.h"

nats_link& lasting_link::get() {
  if (!link_) link_ = std::make_unique<nats_link>(options_);
  return *link_;
}

void for_each_piece(std::string_view message,
                    const std::function<void(const record_piece& piece)>& take) {
  const std::optional<nats_message_head> head = read_nats_message(message);
  if (!head) return;
  record_piece piece{.place = {.journal = head->journal, .segment = head->segment},
                     .part = head->part,
                     .bytes = message};
  if (head->part) {
    piece.place.line = head->lines.front();
    piece.place.digest = head->part->digest;
    return take(piece);
  }
  for (const uint64_t line : head->lines) {
    const size_t end = message.find('\n');
    if (end == std::string_view::npos) return;
    piece.bytes = message.substr(0, end);
    message.remove_prefix(end + 1);
    piece.place.line = line;
    piece.place.digest = check_sum(piece.bytes);
    take(piece);
  }
}

nats_record_scan::nats_record_scan(lasting_link& link, record_choice choice)
    : link_(link), choice_(std::move(choice)) {}

// --- In: messages, as pieces.

void nats_record_scan::read_all() {
  try {
    nats_link& link = link_.get();
    const auto info = link.stream_info(link.subjects().records_stream());
    if (!info)
      link.fail("there is no stream " + link.subjects().records_stream() +
                "; another name is told with --stream");
    if (!end_) {
      end_ = info->State.LastSeq;
      end_time_ = info->State.LastTime;
    }
    // A new leader, that has not read its log yet; its numbers may be others.
    if (info->State.LastSeq < *end_ && info->State.LastTime < end_time_)
      link.fail("the stream " + link.subjects().records_stream() + " has less than it had");
    for (; read_ < choice_.subjects.size(); ++read_, from_ = 1)
      read_subject(link, choice_.subjects[read_]);
  } catch (const engine_error&) {
    link_.give_up();
    throw;
  }
}

void nats_record_scan::read_subject(nats_link& link, const std::string& subject) {
  nats_stream_reader reader(link, link.subjects().records_stream(), subject,
                            nats_number_before(from_, nats_again), nats_again);
  while (const nats_message message = reader.next_there()) {
    take(message.get());
    from_ = std::max(from_, reader.sequence() + 1);
  }
}

// A piece waits as "EVENT.LEVEL", a byte that says what it is, and what it holds.
static constexpr char whole_mark = 'w';
static constexpr char inner_mark = 'i';
static constexpr char last_mark = 'l';

void nats_record_scan::take(natsMsg* message) {
  const std::string_view subject = natsMsg_GetSubject(message);
  if (!choice_.is_subject(subject)) return;
  const size_t level = subject.rfind('.');
  const std::string_view kind = subject.substr(subject.rfind('.', level - 1) + 1);
  const std::string_view bytes(natsMsg_GetData(message),
                               static_cast<size_t>(natsMsg_GetDataLength(message)));
  for_each_piece(bytes, [&](const record_piece& piece) {
    if (!choice_.is_place(piece.place)) return;
    value_ = kind;
    value_ += !piece.part ? whole_mark : piece.part->is_last ? last_mark : inner_mark;
    value_ += piece.bytes;
    const nats_part part = piece.part.value_or(nats_part{});
    try {
      sorter_.add(sort_key_of(piece.place, part.size, part.number), value_);
    } catch (const file_error& error) {
      throw engine_error(link_.options().address + ": " + error.what());
    }
  });
}

// --- Out: records.

bool nats_record_scan::next(found_record& record) {
  if (!end_ || read_ < choice_.subjects.size()) read_all();
  std::string_view key;
  std::string_view bytes;
  try {
    while (sorter_.next(key, bytes))
      if (take_piece(key, bytes, record)) return true;
  } catch (const file_error& error) {
    throw engine_error(link_.options().address + ": " + error.what());
  }
  return false;
}

bool nats_record_scan::take_piece(std::string_view key, std::string_view bytes,
                                  found_record& record) {
  const std::string_view place = place_in_sort_key(key);
  if (place == handed_) return false;
  const size_t mark_at = bytes.find_first_of("wil");
  const char mark = bytes[mark_at];
  std::optional<std::string_view> text = bytes.substr(mark_at + 1);
  if (mark != whole_mark) {
    const auto [size, number] = piece_of_sort_key(key);
    const std::string_view joined = key.substr(0, key.size() - sizeof number);
    if (joined != joining_) joiner_ = {};
    joining_ = joined;
    if (number + 1 == joiner_.taken()) return false;  // a repetition
    joiner_.add({.number = number,
                 .is_last = mark == last_mark,
                 .size = size,
                 .digest = place_of_sort_key(key).digest},
                *text);
    text = joiner_.record();
    if (!text) return false;
  }
  handed_ = place;
  record = {.place = place_of_sort_key(key),
            .subject = std::string(bytes.substr(0, mark_at)),
            .text = *text};
  return true;
}
