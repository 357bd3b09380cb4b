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
static constexpr int nats_most_overtaken = 100;

// A batch whose records are on their way, and then its position.
struct nats_sender::sent_batch {
  journal_identity journal;
  segment_position before;
  segment_position after;
  uint64_t records = 0;
  std::optional<int64_t> newest = {};  // time of the newest of these
  nats_delivery delivery = {};
  std::string position = {};  // as it is sent; empty: it is not yet
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
  std::map<std::string, uint64_t> states;  // numbers of the last messages of subjects
  int overtaken = 0;                       // states, one after the other
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
  while (const nats_message message = reader.next_there()) {
    session.states[natsMsg_GetSubject(message.get())] = reader.sequence();
    if (auto position = nats_position_of(nats_bytes(message));
        position && position->journal == journal)
      known.positions.insert_or_assign({position->position.segment, position->position.first},
                                       std::move(*position));
  }
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
  sent.position = nats_text_of(position);
  known.positions.insert_or_assign({sent.after.segment, sent.after.first}, std::move(position));
  publish_position(session, sent);
}

void nats_sender::publish_position(sender_session& session, sent_batch& sent) const {
  const std::string subject = session.link.subjects().position(sent.journal, sent.after);
  sent.position_delivery = {};
  session.publisher.publish(
      {.subject = subject, .bytes = sent.position, .behind = session.states[subject]},
      sent.position_delivery);
}

// A state is not stored where another came before it: that of another sender, or one of this
// journal that was still on its way with a connection that is gone, and without the order of these
// would take the place of what was sent since. That other one; nothing where it was stored.
nats_message nats_sender::overtaking(sender_session& session, const std::string& subject,
                                     const nats_delivery& delivery) const {
  if (!delivery.is_overtaken) {
    session.states[subject] = delivery.newest.sequence;
    session.overtaken = 0;
    return nullptr;
  }
  if (++session.overtaken > nats_most_overtaken)
    session.link.fail("others change " + subject + " all the time");
  nats_message last = look_up(session, subject);
  if (!last) session.link.fail("has lost " + subject);
  return last;
}

nats_message nats_sender::look_up(sender_session& session, const std::string& subject) const {
  nats_message last = session.link.last_message(session.link.subjects().state_stream(), subject);
  session.states[subject] = last ? natsMsg_GetSequence(last.get()) : 0;
  return last;
}

// Whether the position is there, or one of another sender that is farther; otherwise it is sent
// again.
bool nats_sender::is_position_stored(sender_session& session, sent_batch& sent) {
  const std::string subject = session.link.subjects().position(sent.journal, sent.after);
  const nats_message other = overtaking(session, subject, sent.position_delivery);
  if (!other) return true;
  auto position = nats_position_of(nats_bytes(other));
  if (position && position->journal == sent.journal &&
      position->position.extent.lines >= sent.after.extent.lines &&
      rests_on_records(session, *position, steady_clock::now())) {
    journals_[sent.journal].positions.insert_or_assign({sent.after.segment, sent.after.first},
                                                       std::move(*position));
    return true;
  }
  publish_position(session, sent);
  return false;
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
    session.publisher.publish({.subject = subjects.kit_part(hash, parts),
                               .bytes = std::string_view(kit.bytes).substr(at, most)},
                              delivery);
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
      session.publisher.finish(oldest.position.empty() ? oldest.delivery
                                                       : oldest.position_delivery);
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
    if (oldest.delivery.waiting == 0 && oldest.position.empty()) send_position(session, oldest);
    if (oldest.position.empty() || oldest.position_delivery.waiting != 0) break;
    if (!is_position_stored(session, oldest)) break;
    ++result.batches;
    result.known += oldest.delivery.known;
    session.on_its_way.pop_front();
  }
  return result;
}

void nats_sender::tell(const journal_identity& journal, const journal_state& state) {
  connected([&](sender_session& session) {
    const std::string subject = session.link.subjects().told(journal);
    const std::string text = nats_text_of(nats_told_state{.journal = journal, .state = state});
    if (!session.states.contains(subject)) look_up(session, subject);
    nats_delivery delivery;
    do {
      delivery = {};
      session.publisher.publish(
          {.subject = subject, .bytes = text, .behind = session.states[subject]}, delivery);
      session.publisher.finish(delivery);
    } while (overtaking(session, subject, delivery));
  });
}
