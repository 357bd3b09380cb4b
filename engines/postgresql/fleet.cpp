#include "engines/postgresql/fleet.h"

#include "engines/postgresql/segment_day.h"

// Counted, not remembered: so that they prove something. An unknown event counts as
// event_of_unknown says.
day_counts pg_fleet::counts(const journal_identity& journal, const std::string& since_day) {
  connection_.connect();
  const std::string since = since_day.empty() ? "00000101" : since_day;
  const pg_result found = connection_.ask(
      "select s.day - date '2000-01-01', r.event, sum(r.records)"
      " from kplog.segment s cross join lateral (select r.event, count(*) as records"
      " from kplog.record r where r.segment = s.id and r.part = s.part and r.event is not null"
      " group by 1 union all select"
      " substring(split_part(r.record, '\"event\":', 2) from '^([0-9]{1,10})[,}]')::bigint,"
      " count(*)"
      " from kplog.record r where r.segment = s.id and r.part = s.part and r.event is null"
      " group by 1) r"
      " where s.tenant = kplog.tenant() and s.host = $1 and s.journal = $2"
      " and s.day >= date '2000-01-01' + $3::integer and not s.is_pruned group by 1, 2",
      {journal.host, journal.journal, std::to_string(pg_day_number(since))});
  day_counts counts;
  for (int row = 0; row < found.rows(); ++row) {
    const int64_t event = found.is_null(row, 1) ? 0 : found.number(row, 1);
    const day_event key{.day = pg_day_text(found.number(row, 0)),
                        .event = event > UINT32_MAX ? 0 : static_cast<uint32_t>(event)};
    counts[key] += static_cast<uint64_t>(found.number(row, 2));
  }
  return counts;
}

std::vector<fleet_row> pg_fleet::rows() {
  connection_.connect();
  const pg_result found = connection_.ask(
      "select j.host, j.journal, greatest(coalesce(sum(s.records) filter (where not s.is_pruned), "
      "0), 0),"
      " extract(epoch from j.told)::bigint, max(s.latest), greatest(j.waiting_bytes, 0),"
      " greatest(j.given_up, 0),"
      " j.is_given_up_exact from kplog.journal j left join kplog.segment s"
      " on s.tenant = j.tenant and s.host = j.host and s.journal = j.journal"
      " where j.tenant = kplog.tenant() group by j.tenant, j.host, j.journal"
      " order by j.host, j.journal");
  std::vector<fleet_row> rows;
  for (int row = 0; row < found.rows(); ++row) {
    const auto if_any = [&](int column) {
      return found.is_null(row, column) ? std::nullopt : std::optional(found.number(row, column));
    };
    fleet_row& journal = rows.emplace_back();
    journal.journal = {std::string(found.value(row, 0)), std::string(found.value(row, 1))};
    journal.records = static_cast<uint64_t>(found.number(row, 2));
    journal.told = if_any(3);
    journal.newest = if_any(4);
    journal.state = {.waiting_bytes = static_cast<uint64_t>(found.number(row, 5)),
                     .given_up = static_cast<uint64_t>(found.number(row, 6)),
                     .is_given_up_exact = found.truth(row, 7)};
  }
  return rows;
}

// Left to the senders by who may remove days and not that.
void pg_fleet::finish_days() {
  if (!connection_.ask("select has_function_privilege('kplog.finish_day()', 'execute')")
           .truth(0, 0))
    return;
  while (!connection_.ask("select kplog.finish_day()").is_null(0, 0)) {
  }
}

std::vector<std::string> pg_fleet::prune(const std::string& before_day) {
  const std::string number = std::to_string(pg_day_number(before_day));
  connection_.connect();
  connection_.when_denied("days are removed by the owner of the schema");
  const pg_result gone = connection_.ask(
      "select p.day - date '2000-01-01', p.records"
      " from kplog.prune(date '2000-01-01' + $1::integer) p",
      {number});
  std::vector<std::string> lines;
  lines.reserve(static_cast<size_t>(gone.rows()));
  for (int row = 0; row < gone.rows(); ++row)
    lines.push_back(day_with_dashes(pg_day_text(gone.number(row, 0))) + ": " +
                    std::string(gone.value(row, 1)) +
                    (gone.number(row, 1) == 1 ? " record" : " records"));
  finish_days();
  return lines;
}
