#include "engines/postgresql/sender.h"

#include <algorithm>

#include "engines/common/digest.h"
#include "engines/postgresql/batch_facts.h"
#include "engines/postgresql/copy_rows.h"
#include "engines/postgresql/segment_day.h"

// Check sums have 64 bits, and so have the numbers of a database, which have a sign.
static std::string pg_signed(uint64_t number) {
  return std::to_string(static_cast<int64_t>(number));
}

pg_sender::pg_sender(const engine_options& options)
    : options_(options),
      connection_(options, true, pg_needs_ship),
      finishing_(options, true, pg_needs_ship) {}

// Rows go to a table of the session first, since COPY does not go into one with policies for its
// rows.
void pg_sender::make_batch_table() {
  connection_.when_denied(
      "a sender makes a table of its session: GRANT TEMPORARY ON DATABASE ... TO ...");
  connection_.run(
      "create temp table kplog_batch (line bigint not null, digest bigint not null,"
      " time timestamptz, event bigint, level smallint, record text collate \"C\" not null)"
      " on commit delete rows");
}

// What this connection knows ends with it.
void pg_sender::connect() {
  if (!connection_.connect()) return;
  ids_.clear();
  offered_.clear();
  try {
    make_batch_table();
  } catch (...) {
    connection_.close();
    connection_.when_denied(pg_needs_ship);
    throw;
  }
  connection_.when_denied(pg_needs_ship);
}

std::optional<std::vector<segment_position>> pg_sender::positions(const journal_identity& journal) {
  connect();
  const pg_result found = connection_.ask(
      "select name, first, lines, bytes, last, digest from kplog.segment"
      " where tenant = kplog.tenant() and host = $1 and journal = $2 order by name, id",
      {journal.host, journal.journal});
  std::vector<segment_position> positions;
  for (int row = 0; row < found.rows(); ++row) {
    const auto number = [&](int column) {
      return static_cast<uint64_t>(found.number(row, column));
    };
    positions.push_back(
        {.segment = std::string(found.value(row, 0)),
         .first = number(1),
         .extent = {
             .lines = number(2), .bytes = number(3), .last = number(4), .digest = number(5)}});
  }
  return positions;
}

const std::string& pg_sender::hash_of(const record_kit& kit) {
  if (kit_hash_.empty() || kit.bytes != kit_) {
    kit_ = kit.bytes;
    kit_hash_ = content_hash(kit.bytes);
  }
  return kit_hash_;
}

static std::string pg_bytea(std::string_view bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::string text = "\\x";
  text.reserve(2 + bytes.size() * 2);
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 0xF];
  }
  return text;
}

void pg_sender::offer(const record_kit& kit) {
  connect();
  offer_kit(kit);
}

void pg_sender::offer_kit(const record_kit& kit) {
  const std::string& hash = hash_of(kit);
  if (offered_ == hash) return;
  const pg_result found = connection_.ask(
      "select 1 from kplog.content where tenant = kplog.tenant() and hash = $1", {hash});
  if (found.rows() == 0)
    connection_.ask(
        "insert into kplog.content (tenant, hash, bytes) values (kplog.tenant(), $1, $2)"
        " on conflict do nothing",
        {hash, pg_bytea(kit.bytes)});
  offered_ = hash;
}

std::string pg_sender::id_of(const ship_batch& batch) {
  const segment_key key{batch.journal, batch.after.segment, batch.after.first};
  if (const auto found = ids_.find(key); found != ids_.end()) return found->second;
  const pg_result begun = connection_.ask(
      "select id, is_new_day from kplog.begin_segment($1, $2, $3, $4,"
      " date '2000-01-01' + $5::integer)",
      {batch.journal.host, batch.journal.journal, batch.after.segment, pg_signed(batch.after.first),
       std::to_string(pg_segment_day(batch.after.segment))});
  std::string id(begun.value(0, 0));
  if (begun.truth(0, 1)) begin_finishing();
  static constexpr size_t most = 1024;
  if (ids_.size() >= most) ids_.clear();
  ids_.emplace(key, id);
  return id;
}

// Behind this the segment is this sender's, until the transaction ends, and rows can be copied.
pg_sender::segment_state pg_sender::begin_batch(const ship_batch& batch, const std::string& id) {
  const std::string begin = "begin; select is_pruned, top from kplog.segment where id = " + id +
                            " for no key update; set local kplog.segment = '" + id + "'";
  const std::string copy = "; copy pg_temp.kplog_batch from stdin (format binary)";
  const std::vector<pg_result> results =
      connection_.run(batch.records.empty() ? begin : begin + copy);
  if (results.at(1).rows() != 1) connection_.fail("the position of the segment is gone");
  return {.is_pruned = results.at(1).truth(0, 0),
          .top = static_cast<uint64_t>(results.at(1).number(0, 1))};
}

void pg_sender::copy_records(const ship_batch& batch) {
  static constexpr size_t enough = size_t{64} * 1024;
  rows_ = pg_copy_begin();
  for (const shipped_record& record : batch.records) {
    append_pg_row(rows_, record);
    if (record.text.size() < enough) {
      rows_ += record.text;
    } else {  // it is not copied once more
      connection_.copy(rows_);
      rows_.clear();
      connection_.copy(record.text);
    }
    if (rows_.size() < enough) continue;
    connection_.copy(rows_);
    rows_.clear();
  }
  rows_ += pg_copy_end();
  connection_.copy(rows_);
  connection_.end_copy();
}

// Lines behind all that there ever were of the segment are new, and need not be looked for: that is
// the quicker by a third. The table's own index keeps watch all the same.
uint64_t pg_sender::insert_records(const ship_batch& batch, const segment_state& state,
                                   const std::string& id) {
  const std::string insert =
      "insert into kplog.record (segment, line, digest, time, event, part, batch, level, tenant,"
      " host, record) select s.id, b.line, b.digest, b.time, b.event, s.part, s.batches + 1,"
      " b.level, s.tenant, s.host, b.record from kplog.segment s, pg_temp.kplog_batch b"
      " where s.id = " +
      id;
  const bool is_again = batch.before.extent.lines < state.top;
  return connection_.run(is_again ? insert + " on conflict do nothing" : insert).at(0).changed();
}

static std::string pg_list(const std::set<int64_t>& numbers) {
  std::string text = "'{";
  for (const int64_t number : numbers)
    text += (text.size() > 2 ? "," : "") + std::to_string(number);
  return text + "}'::bigint[]";
}

static std::string pg_number(const std::optional<int64_t>& number) {
  return number ? std::to_string(*number) : "null";
}

// All of it are numbers, and a hash.
std::string pg_sender::position_text(const ship_batch& batch, const std::string& id,
                                     uint64_t inserted, bool is_again) {
  const line_extent& extent = batch.after.extent;
  const batch_facts facts = facts_of(batch.records);
  const std::string events = pg_list(facts.events);
  const std::string hash = "'" + hash_of(batch.kit) + "'";
  return "update kplog.segment set lines = " + pg_signed(extent.lines) +
         ", bytes = " + pg_signed(extent.bytes) + ", last = " + pg_signed(extent.last) +
         ", digest = " + pg_signed(extent.digest) + ", top = greatest(top, " +
         pg_signed(extent.lines) + "), batches = batches + 1, again = again + " +
         (is_again ? "1" : "0") + ", moved = pg_current_xact_id(), records = records + " +
         std::to_string(inserted) + ", events = case when events @> " + events +
         " then events else array(select distinct e from unnest(events || " + events +
         ") e order by 1) end, kits = array_remove(kits, " + hash + ") || " + hash +
         "::text, earliest = least(earliest, " + pg_number(facts.earliest) +
         "), latest = greatest(latest, " + pg_number(facts.latest) +
         "), has_timeless = has_timeless or " + (facts.has_timeless ? "true" : "false") +
         " where id = " + id + "; commit";
}

store_result pg_sender::store(const ship_batch& batch) {
  connect();
  go_on_finishing();
  offer_kit(batch.kit);
  store_result result;
  try {
    const std::string id = id_of(batch);
    const segment_state state = begin_batch(batch, id);
    uint64_t inserted = 0;
    if (!batch.records.empty()) {
      copy_records(batch);
      if (state.is_pruned)
        result.pruned = batch.records.size();
      else
        inserted = insert_records(batch, state, id);
    }
    const bool is_again = batch.before.extent.lines < state.top;
    connection_.run(position_text(batch, id, inserted, is_again));
    result.known = batch.records.size() - inserted - result.pruned;
  } catch (...) {
    // What is open is undone by the end of the connection, whatever state it was in.
    connection_.close();
    throw;
  }
  return result;
}

void pg_sender::tell(const journal_identity& journal, const journal_state& state) {
  connect();
  connection_.ask(
      "insert into kplog.journal (tenant, host, journal, told, waiting_bytes, given_up,"
      " is_given_up_exact) values (kplog.tenant(), $1, $2, clock_timestamp(), $3, $4, $5)"
      " on conflict (tenant, host, journal) do update set told = excluded.told,"
      " waiting_bytes = excluded.waiting_bytes, given_up = excluded.given_up,"
      " is_given_up_exact = excluded.is_given_up_exact",
      {journal.host, journal.journal, std::to_string(state.waiting_bytes),
       std::to_string(state.given_up), state.is_given_up_exact ? "true" : "false"});
}

// The first sender of a new day makes the indexes of those that are done. What goes wrong with that
// is told, and stops nothing.
void pg_sender::begin_finishing() {
  if (is_finishing_) return;
  try {
    finishing_.connect();
    finishing_.send("select kplog.finish_day()");
    is_finishing_ = true;
  } catch (const engine_error& error) {
    if (options_.tell) options_.tell(error.what());
  }
}

void pg_sender::go_on_finishing() {
  if (!is_finishing_) return;
  try {
    const std::optional<pg_result> answer = finishing_.answer_if_there();
    if (!answer) return;
    is_finishing_ = false;
    if (answer->rows() == 1 && !answer->is_null(0, 0)) begin_finishing();
  } catch (const engine_error& error) {
    is_finishing_ = false;
    if (options_.tell) options_.tell(error.what());
  }
  if (!is_finishing_) finishing_.close();
}
