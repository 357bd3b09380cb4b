#include "engines/postgresql/archive.h"

#include <algorithm>
#include <thread>

#include "engines/postgresql/batch_facts.h"
#include "engines/postgresql/question.h"
#include "recording/text/number.h"
#include "tools/find/name_pattern.h"

using pg_archive_clock = std::chrono::steady_clock;

pg_archive::pg_archive(const engine_options& options, const archive_query& query)
    : options_(options),
      query_(query),
      arriving_(query),
      connection_(options, false, pg_needs_read),
      contained_(contained_attributes(query)) {
  arriving_.groups.clear();
}

bool pg_archive::is_asked_host(std::string_view host) const {
  return query_.hosts.empty() ||
         std::any_of(query_.hosts.begin(), query_.hosts.end(),
                     [&](const std::string& asked) { return fits_name_pattern(host, asked); });
}

// Names that are patterns are left to is_asked_host.
static void add_pg_host_condition(pg_statement& statement, const archive_query& query) {
  if (query.hosts.empty() ||
      std::any_of(query.hosts.begin(), query.hosts.end(),
                  [](const std::string& host) { return is_name_pattern(host); }))
    return;
  statement.text(" and s.host = any (").add(pg_array(query.hosts)).text("::text[])");
}

std::vector<archived_kit> pg_archive::kits() {
  connection_.connect();
  pg_statement used;
  used.text(
      "select s.host, s.journal, k.kit from kplog.segment s"
      " cross join lateral unnest(s.kits) with ordinality k (kit, place)"
      " where s.tenant = kplog.tenant()");
  add_pg_host_condition(used, query_);
  add_segment_conditions(used, query_);
  used.text(" group by 1, 2, 3 order by max(array[s.id, k.place])");
  const pg_result found = connection_.ask(used.text(), used.values());
  std::map<std::string, std::vector<kit_user>, std::less<>> users;  // by their hashes
  std::vector<std::string> hashes;
  for (int row = 0; row < found.rows(); ++row) {
    if (!is_asked_host(found.value(row, 0))) continue;
    const auto [user, is_new] = users.try_emplace(std::string(found.value(row, 2)));
    if (is_new) hashes.push_back(user->first);
    user->second.push_back({{std::string(found.value(row, 0)), std::string(found.value(row, 1))},
                            static_cast<uint64_t>(row)});
  }
  const pg_result contents = connection_.ask(
      "select hash, bytes from kplog.content where tenant = kplog.tenant()"
      " and hash = any ($1::text[]) order by added, hash",
      {pg_array(hashes)}, true);
  std::vector<archived_kit> kits;
  kits.reserve(hashes.size());
  for (int row = 0; row < contents.rows(); ++row)
    kits.push_back(
        {{std::string(contents.value(row, 1))}, users.find(contents.value(row, 0))->second});
  return kits;
}

// A page of those behind the last one, as there may be many.
bool pg_archive::next_journal() {
  static constexpr int page = 1000;
  while (journals_.empty() && !has_all_journals_) {
    pg_statement statement;
    statement.text("select s.host, s.journal from kplog.journal s where s.tenant = kplog.tenant()");
    add_pg_host_condition(statement, query_);
    if (last_journal_) {
      statement.text(" and (s.host, s.journal) > (").add(last_journal_->host).text("::text, ");
      statement.add(last_journal_->journal).text("::text)");
    }
    statement.text(" order by s.host, s.journal limit " + std::to_string(page));
    const pg_result found = connection_.ask(statement.text(), statement.values());
    has_all_journals_ = found.rows() < page;
    for (int row = 0; row < found.rows(); ++row) {
      last_journal_ = {std::string(found.value(row, 0)), std::string(found.value(row, 1))};
      if (is_asked_host(last_journal_->host)) journals_.push_back(*last_journal_);
    }
  }
  if (journals_.empty()) return false;
  const journal_identity journal = journals_.front();
  journals_.pop_front();
  list_segments(journal.host, journal.journal);
  return true;
}

static const std::string pg_segment_columns =
    "select s.id, s.part, s.host, s.journal, s.name, s.lines, s.batches, s.again, s.events @> '{" +
    std::to_string(pg_unknown_event) + "}' from kplog.segment s where s.tenant = kplog.tenant()";
static const std::string pg_segment_order = " order by s.host, s.journal, s.name, s.id";

void pg_archive::list_segments(const std::string& host, const std::string& journal) {
  pg_statement statement;
  statement.text(pg_segment_columns).text(" and s.host = ").add(host);
  statement.text(" and s.journal = ").add(journal);
  add_segment_conditions(statement, query_);
  statement.text(pg_segment_order);
  take_segments(connection_.ask(statement.text(), statement.values()), false);
}

// Of a segment whose lines were sent again from an earlier one on, new records may be anywhere.
void pg_archive::take_segments(const pg_result& found, bool is_moved) {
  for (int row = 0; row < found.rows(); ++row) {
    if (is_moved && !is_asked_host(found.value(row, 2))) continue;
    segment_part segment;
    segment.id = found.value(row, 0);
    segment.part = found.value(row, 1);
    segment.host = found.value(row, 2);
    segment.journal = found.value(row, 3);
    segment.name = found.value(row, 4);
    segment.batch = found.number(row, 6);
    segment.has_unknown_events = found.truth(row, 8);
    if (query_.follows) {
      shown_part& shown = shown_[segment.id];
      const shown_part now{segment.batch, found.number(row, 5), found.number(row, 7)};
      segment.batch_before = shown.batch;
      if (shown.again == now.again) segment.lines_before = shown.lines;
      shown = now;
    }
    if (is_moved) segment.first_arrival = first_arrival_of(segment);
    if (segment.batch_before < segment.batch && may_hold(segment))
      segments_.push_back(std::move(segment));
  }
}

// Of a segment that was left out before because nothing in it fits, it is the last batch: they are
// looked for more often than they come.
int64_t pg_archive::first_arrival_of(const segment_part& segment) const {
  const bool was_left_out =
      segment.batch_before == 0 && number_of<int64_t>(segment.id).value_or(0) <= last_segment_;
  return was_left_out ? segment.batch : segment.batch_before + 1;
}

// Where an index over attributes says so for the day, a segment is left out.
bool pg_archive::may_hold(const segment_part& segment) {
  if (!contained_ || query_.follows) return true;
  const std::optional<std::set<std::string>>& found = candidates(segment.part);
  return !found || found->contains(segment.id);
}

const std::optional<std::set<std::string>>& pg_archive::candidates(const std::string& part) {
  static constexpr int most = 10'000;  // records that are looked up
  if (const auto known = candidates_.find(part); known != candidates_.end()) return known->second;
  const pg_result found = connection_.ask(
      "select f.id from (select kplog.segments_with($1, $2::jsonb[], " + std::to_string(most) +
          ") as ids) w left join lateral unnest(w.ids) f (id) on true where w.ids is not null",
      {part, pg_array(*contained_)});
  std::optional<std::set<std::string>> ids;
  if (found.rows() > 0) ids.emplace();
  for (int row = 0; row < found.rows(); ++row)
    if (!found.is_null(row, 0)) ids->emplace(found.value(row, 0));
  return candidates_.emplace(part, std::move(ids)).first->second;
}

// So many rows at a time: the statement has ended before they are shown, mostly, and holds up
// nobody while a reader takes a break.
static constexpr int pg_page_size = 2000;

void pg_archive::begin_page() {
  const segment_part& segment = segments_.front();
  if (line_.empty()) {
    line_ = std::to_string(segment.lines_before);
    digest_ = std::to_string(std::numeric_limits<int64_t>::max());
  }
  pg_statement statement;
  statement.text("select r.line, r.digest, r.record from kplog.record r where r.part = ");
  statement.add(segment.part).text("::date and r.segment = ").add(segment.id).text("::bigint");
  statement.text(" and (r.line, r.digest) > (").add(line_).text("::bigint, ");
  statement.add(digest_).text("::bigint) and r.batch <= ").add(std::to_string(segment.batch));
  if (segment.batch_before > 0)
    statement.text(" and r.batch > ").add(std::to_string(segment.batch_before));
  add_record_conditions(statement, query_);
  if (!segment.first_arrival) {
    add_group_conditions(statement, query_, segment.has_unknown_events);
  } else if (*segment.first_arrival > segment.batch_before + 1) {
    statement.text(" and (r.batch >= ").add(std::to_string(*segment.first_arrival));
    statement.text("::bigint or (true");
    add_group_conditions(statement, query_, segment.has_unknown_events);
    statement.text("))");
  }
  if (const auto found = candidates_.find(segment.part);
      found != candidates_.end() && found->second)
    statement.text(" and r.line in (select kplog.lines_with(")
        .add(segment.part)
        .text("::date, ")
        .add(segment.id)
        .text("::bigint, ")
        .add(pg_array(*contained_))
        .text("::jsonb[]))");
  statement.text(" order by r.line, r.digest limit " + std::to_string(pg_page_size));
  connection_.begin_rows(statement.text(), statement.values());
  is_in_page_ = true;
  page_rows_ = 0;
}

// False: the segment has no more.
bool pg_archive::next_in_page() {
  for (;;) {
    if (!is_in_page_) begin_page();
    if (std::optional<pg_result> row = connection_.next_row()) {
      row_ = std::move(*row);
      line_ = row_.value(0, 0);
      digest_ = row_.value(0, 1);
      ++page_rows_;
      return true;
    }
    is_in_page_ = false;
    if (page_rows_ < pg_page_size) return false;
  }
}

bool pg_archive::next_stored() {
  while (!segments_.empty() || (!is_following_ && next_journal())) {
    if (segments_.empty()) continue;
    if (next_in_page()) return true;
    segments_.pop_front();
    line_.clear();
  }
  return false;
}

// Transactions that had not ended when they were looked for are looked for again; what is shown of
// a segment already is known by its batches.
void pg_archive::list_moved() {
  pg_statement statement;
  statement.text(pg_segment_columns).text(" and s.moved >= ").add(moved_since_).text("::xid8");
  add_pg_host_condition(statement, arriving_);
  add_segment_conditions(statement, arriving_);
  statement.text(pg_segment_order);
  try {
    // Both see the same.
    connection_.run("begin isolation level repeatable read read only");
    const pg_result now = connection_.ask("select pg_snapshot_xmin(pg_current_snapshot())");
    const pg_result found = connection_.ask(statement.text(), statement.values());
    connection_.run("commit");
    moved_since_ = now.value(0, 0);
    take_segments(found, true);
  } catch (...) {
    connection_.close();  // and with it what is open
    throw;
  }
}

bool pg_archive::await_moved(std::chrono::milliseconds patience) {
  static constexpr std::chrono::milliseconds pause(250);
  const auto end = pg_archive_clock::now() + patience;
  for (;;) {
    list_moved();
    if (next_stored()) return true;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - pg_archive_clock::now());
    if (left <= std::chrono::milliseconds(0)) return false;
    std::this_thread::sleep_for(std::min(left, pause));
    if (options_.is_to_end && options_.is_to_end()) return false;
  }
}

void pg_archive::tell(archived_record& record) const {
  const segment_part& segment = segments_.front();
  record.text = row_.value(0, 2);
  record.journal = {segment.host, segment.journal};
  record.segment = segment.name;
  record.line = static_cast<uint64_t>(row_.number(0, 0));
}

bool pg_archive::next(archived_record& record, std::chrono::milliseconds patience) {
  if (connection_.connect()) is_in_page_ = false;  // which goes on behind the last record
  if (query_.follows && moved_since_.empty()) {
    const pg_result now = connection_.ask(
        "select pg_snapshot_xmin(pg_current_snapshot()), coalesce(max(id), 0) from kplog.segment");
    moved_since_ = now.value(0, 0);
    last_segment_ = now.number(0, 1);
  }
  bool has_one = next_stored();
  if (!has_one && query_.follows) {
    is_following_ = true;
    has_one = await_moved(patience);
  }
  if (has_one) tell(record);
  return has_one;
}
