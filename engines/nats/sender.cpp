#include "engines/nats/sender.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <thread>

#include "engines/common/digest.h"
#include "engines/nats/json.h"
#include "engines/nats/record_packer.h"
#include "engines/nats/stream_reader.h"

using std::chrono::steady_clock;

// A new leader has what was acknowledged, and shows it when it has read its log.
static constexpr std::chrono::seconds nats_new_leader_patience{5};

// A batch whose records are on their way, and then its position.
struct nats_sender::sent_batch {
  journal_identity journal;
  segment_position before;
  segment_position after;
  uint64_t records = 0;
  std::optional<int64_t> newest = {};  // time of the newest of these
  nats_delivery delivery = {};
  bool is_position_sent = false;
  nats_delivery position_delivery = {};
};

struct nats_sender::sender_session {
  explicit sender_session(const engine_options& options) : link(options), publisher(link) {
    link.make_streams();
    const auto info = link.stream_info(link.subjects().records_stream());
    if (!info) link.fail("the stream " + link.subjects().records_stream() + " is gone");
    created = info->Created;
  }

  nats_link link;
  std::deque<sent_batch> on_its_way;
  nats_publisher publisher;
  int64_t created = 0;  // the stream of records
  std::set<std::string> kept_kits;
  std::set<std::pair<journal_identity, std::string>> noted_kits;  // and their hashes
};

nats_sender::nats_sender(engine_options options) : options_(std::move(options)) {}

nats_sender::~nats_sender() = default;

// Behind an error nothing is known: neither the connection nor what the engine has.
template <class Work>
auto nats_sender::connected(const Work& work) -> decltype(work(std::declval<sender_session&>())) {
  try {
    if (!session_) session_ = std::make_unique<sender_session>(options_);
    return work(*session_);
  } catch (const engine_error&) {
    session_.reset();
    journals_.clear();
    throw;
  }
}

// --- Positions.

std::optional<std::vector<segment_position>> nats_sender::positions(
    const journal_identity& journal) {
  return connected([&](sender_session& session) {
    read_positions(session, journal);
    std::vector<segment_position> positions;
    for (const auto& [key, known] : journals_[journal].positions)
      positions.push_back(known.position);
    return std::optional(std::move(positions));
  });
}

void nats_sender::read_positions(sender_session& session, const journal_identity& journal) {
  const nats_subjects& subjects = session.link.subjects();
  nats_stream_reader reader(session.link, subjects.state_stream(), subjects.positions(journal));
  known_journal known;
  while (const nats_message message = reader.next_there())
    if (auto position = nats_position_of(nats_bytes(message));
        position && position->journal == journal)
      known.positions.insert_or_assign({position->position.segment, position->position.first},
                                       std::move(*position));
  // What lies before a message that is there is there, too. So the newest are looked at.
  std::vector<segment_key> newest_first;
  for (const auto& [key, position] : known.positions) newest_first.push_back(key);
  std::ranges::sort(newest_first, std::ranges::greater{},
                    [&](const segment_key& key) { return known.positions[key].stored.sequence; });
  const auto deadline = steady_clock::now() + nats_new_leader_patience;
  for (const segment_key& key : newest_first) {
    if (rests_on_records(session, known.positions[key], deadline)) {
      known.stored = known.positions[key].stored;
      break;
    }
    known.positions.erase(key);
  }
  journals_.insert_or_assign(journal, std::move(known));
}

bool nats_sender::rests_on_records(sender_session& session, const nats_position& position,
                                   steady_clock::time_point deadline) const {
  if (position.created != session.created) return false;
  const auto& [sequence, id] = position.stored;
  const std::string& stream = session.link.subjects().records_stream();
  for (;;) {
    const auto info = session.link.stream_info(stream);
    if (info && info->State.LastSeq >= sequence) break;
    if (steady_clock::now() > deadline) return false;
    session.link.go_on();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  const nats_message message = sequence == 0 ? nullptr : session.link.message_at(stream, sequence);
  if (!message) return true;  // it was removed, as the engine's keeper wants it
  const char* found = nullptr;
  const bool has_id = natsMsgHeader_Get(message.get(), nats_id_header, &found) == NATS_OK;
  return (has_id ? std::string_view(found) : std::string_view()) == id;
}

// A position rests on the records before it, so that it is sent when these are there.
void nats_sender::send_position(sender_session& session, sent_batch& sent) {
  known_journal& known = journals_[sent.journal];
  if (sent.delivery.newest.sequence > known.stored.sequence) known.stored = sent.delivery.newest;
  nats_position position{.journal = sent.journal, .position = sent.after};
  const auto before = known.positions.find({sent.after.segment, sent.after.first});
  if (before != known.positions.end()) position.newest = before->second.newest;
  position.records = records_before(known, sent) + sent.records;
  if (sent.newest) position.newest = std::max(position.newest.value_or(*sent.newest), *sent.newest);
  position.created = session.created;
  position.stored = known.stored;
  sent.is_position_sent = true;
  session.publisher.publish(session.link.subjects().position(sent.journal, sent.after), "",
                            nats_text_of(position), 0, sent.position_delivery);
  known.positions.insert_or_assign({sent.after.segment, sent.after.first}, std::move(position));
}

// Where it is not known it is that of the lines.
uint64_t nats_sender::records_before(known_journal& known, const sent_batch& sent) const {
  const auto found = known.positions.find({sent.before.segment, sent.before.first});
  if (found != known.positions.end() && found->second.position.extent == sent.before.extent)
    return found->second.records;
  return sent.before.extent.lines;
}

// --- Kits.

void nats_sender::offer(const record_kit& kit) {
  connected([&](sender_session& session) { keep_kit(session, kit, content_hash(kit.bytes)); });
}

void nats_sender::keep_kit(sender_session& session, const record_kit& kit,
                           const std::string& hash) {
  if (!session.kept_kits.insert(hash).second) return;
  const nats_subjects& subjects = session.link.subjects();
  if (session.link.last_message(subjects.state_stream(), subjects.kit_end(hash))) return;
  const size_t most = session.link.largest_message() / 2;
  size_t parts = 0;
  nats_delivery delivery;
  for (size_t at = 0; at < kit.bytes.size(); at += most, ++parts)
    session.publisher.publish(subjects.kit_part(hash, parts), "",
                              std::string_view(kit.bytes).substr(at, most), 0, delivery);
  session.publisher.finish(delivery);
  std::string end;
  json_text(end).begin_object().key("parts").number(parts).end_object();
  session.publisher.publish_state(subjects.kit_end(hash), end);
}

// That the journal's records are shown by it.
void nats_sender::note_kit(sender_session& session, const ship_batch& batch) {
  const std::string hash = content_hash(batch.kit.bytes);
  if (session.noted_kits.contains({batch.journal, hash})) return;
  keep_kit(session, batch.kit, hash);
  std::string use;
  json_text json(use);
  json.begin_object();
  write_any_text(json, "host", batch.journal.host);
  write_any_text(json, "journal", batch.journal.journal);
  json.key("kit").text(hash).end_object();
  session.publisher.publish_state(session.link.subjects().kit_use(batch.journal, hash), use);
  session.noted_kits.emplace(batch.journal, hash);
}

// --- Records.

static std::optional<int64_t> newest_time_of(std::span<const shipped_record> records) {
  std::optional<int64_t> newest;
  for (const shipped_record& record : records) newest = std::max(newest, record.time);
  return newest;
}

store_result nats_sender::store(const ship_batch& batch) {
  return connected([&](sender_session& session) {
    if (!journals_.contains(batch.journal)) read_positions(session, batch.journal);
    note_kit(session, batch);
    sent_batch& sent =
        session.on_its_way.emplace_back(sent_batch{.journal = batch.journal,
                                                   .before = batch.before,
                                                   .after = batch.after,
                                                   .records = batch.records.size(),
                                                   .newest = newest_time_of(batch.records)});
    nats_record_packer(session.link, session.publisher, batch, sent.delivery).put_all();
    return take_stored(session);
  });
}

store_result nats_sender::settle() {
  return connected([&](sender_session& session) {
    store_result result{.batches = 0};
    while (!session.on_its_way.empty()) {
      const sent_batch& oldest = session.on_its_way.front();
      session.publisher.finish(oldest.is_position_sent ? oldest.position_delivery
                                                       : oldest.delivery);
      const store_result stored = take_stored(session);
      result.batches += stored.batches;
      result.known += stored.known;
    }
    return result;
  });
}

// One position after the other: the last that is stored is the one that holds.
store_result nats_sender::take_stored(sender_session& session) {
  store_result result{.batches = 0};
  while (!session.on_its_way.empty()) {
    sent_batch& oldest = session.on_its_way.front();
    if (oldest.delivery.waiting == 0 && !oldest.is_position_sent) send_position(session, oldest);
    if (!oldest.is_position_sent || oldest.position_delivery.waiting != 0) break;
    ++result.batches;
    result.known += oldest.delivery.known;
    session.on_its_way.pop_front();
  }
  return result;
}

void nats_sender::tell(const journal_identity& journal, const journal_state& state) {
  connected([&](sender_session& session) {
    session.publisher.publish_state(
        session.link.subjects().told(journal),
        nats_text_of(nats_told_state{.journal = journal, .state = state}));
  });
}
