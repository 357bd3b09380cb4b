#include "engines/nats/fleet.h"

#include <algorithm>

#include "engines/nats/state.h"
#include "recording/files/dated_name.h"
#include "recording/text/number.h"

nats_fleet::nats_fleet(engine_options options)
    : link_(std::move(options)), subjects_(link_.options().address, link_.options().stream) {}

// "20261115" of a segment of the journal; empty for what is none.
static std::string nats_day_of(const journal_identity& journal, const std::string& segment) {
  const std::string prefix = journal.journal.substr(journal.journal.rfind('/') + 1);
  if (!dated_name_of(segment, prefix)) return "";
  constexpr size_t digits = 8;
  return segment.substr(prefix.size() + 1, digits);
}

day_counts nats_fleet::counts(const journal_identity& journal, const std::string& since_day) {
  nats_record_scan scan(link_,
                        {.subjects = {subjects_.records_of(nats_token(journal.host), "*", "*")},
                         .is_subject = [](std::string_view) { return true; },
                         .is_place =
                             [&](const record_place& place) {
                               return place.journal == journal &&
                                      nats_day_of(journal, place.segment) >= since_day;
                             }});
  day_counts counts;
  nats_record_scan::found_record record;
  while (scan.next(record)) {
    const auto event = number_of<uint32_t>(record.subject.substr(0, record.subject.find('.')));
    ++counts[{.day = nats_day_of(journal, record.place.segment),
              .event = event ? *event : event_of_unknown(record.text)}];
  }
  return counts;
}

static fleet_row& nats_row_of(std::map<journal_identity, fleet_row>& rows,
                              const journal_identity& journal, int64_t told) {
  fleet_row& row = rows[journal];
  row.journal = journal;
  row.told = std::max(row.told.value_or(told), told);
  return row;
}

// Whether some of it may be there: the stream is the one that it was stored in, and does not begin
// behind it. What is removed of streams is removed from their begin on, mostly.
static bool nats_may_have(const nats_position& position, const jsStreamInfo* records) {
  return records != nullptr && records->Created == position.created &&
         records->State.FirstSeq <= position.stored.sequence;
}

void nats_fleet::read_positions(nats_link& link,
                                std::map<journal_identity, fleet_row>& rows) const {
  const auto records = link.stream_info(subjects_.records_stream());
  nats_stream_reader reader(link, subjects_.state_stream(), subjects_.all_positions());
  while (const nats_message message = reader.next_there()) {
    const auto position = nats_position_of(nats_bytes(message));
    if (!position) continue;
    fleet_row& row = nats_row_of(rows, position->journal, reader.stored());
    if (nats_may_have(*position, records.get())) row.records += position->records;
    if (position->newest)
      row.newest = std::max(row.newest.value_or(*position->newest), *position->newest);
  }
}

void nats_fleet::read_told(nats_link& link, std::map<journal_identity, fleet_row>& rows) const {
  nats_stream_reader reader(link, subjects_.state_stream(), subjects_.all_told());
  while (const nats_message message = reader.next_there())
    if (const auto told = nats_told_state_of(nats_bytes(message)))
      nats_row_of(rows, told->journal, reader.stored()).state = told->state;
}

std::vector<fleet_row> nats_fleet::rows() {
  try {
    nats_link& link = link_.get();
    std::map<journal_identity, fleet_row> rows;
    if (!link.stream_info(subjects_.state_stream()))
      link.fail("there is no stream " + subjects_.state_stream() +
                "; another name is told with --stream");
    read_positions(link, rows);
    read_told(link, rows);
    std::vector<fleet_row> listed;
    for (auto& [journal, row] : rows) listed.push_back(std::move(row));
    return listed;
  } catch (const engine_error&) {
    link_.give_up();
    throw;
  }
}

std::vector<std::string> nats_fleet::prune(const std::string&) {
  throw engine_error(link_.options().address +
                     ": JetStream removes records by the limits of the stream " +
                     subjects_.records_stream() +
                     " (max_age, max_bytes), and not by days: set these with the tool of NATS");
}
