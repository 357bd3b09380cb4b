#include "tools/ship/shipping.h"

#include <algorithm>
#include <utility>

#include "recording/files/path.h"
#include "recording/files/whole_file.h"
#include "recording/text/escape.h"

static constexpr std::chrono::seconds between_saves(1);
static constexpr std::chrono::seconds between_tells(5);

static queue_rules rules_of_queue(const ship_engine& engine, std::string sent_name,
                                  emit_report& report, ship_tally& tally) {
  return {.sent_name = std::move(sent_name),
          .batch_bytes = engine.batch_bytes(),
          .bad =
              [&](const record_line& line, const record_error& error) {
                ++tally.bad;
                report.bad_record(line, error);
              },
          .tell = [&](const std::string& text) { report.problem("given-up"_rule, text); },
          .fail = [&](const std::string& text) { report.problem("unreadable"_rule, text); }};
}

shipping::shipping(ship_engine& engine, const event_set& events, record_kit kit,
                   const journal_place& journal, journal_identity identity, std::string to,
                   emit_report& report, ship_tally& tally, const lock_waiting& waiting)
    : engine_(engine),
      kit_(std::move(kit)),
      identity_(std::move(identity)),
      report_(report),
      tally_(tally),
      journal_(journal),
      waiting_(waiting),
      path_(journal.path(sent_positions_name(journal.name, to, identity_.host))),
      queue_(journal, events, rules_of_queue(engine, place_of(path_).name, report, tally)) {
  positions_.to = std::move(to);
  positions_.host = identity_.host;
}

// What the file says, where it is one of this engine and machine; nothing otherwise.
sent_positions shipping::saved_positions() const {
  const std::string text = sent_positions_text(path_);
  auto saved = sent_positions_of(text);
  if (!saved && !text.empty())
    report_.note(terminal_text(path_) + " is damaged: what it said is not known");
  const bool is_own = saved && saved->to == positions_.to && saved->host == positions_.host;
  return is_own ? *std::move(saved) : sent_positions{.to = positions_.to, .host = positions_.host};
}

void shipping::begin() {
  if (!lock_) {
    lock_.emplace(journal_.folder, place_of(path_).name, waiting_);
    lock_->keep();
  }
  settle();
  const sent_positions saved = saved_positions();
  queue_.measure(saved);
  auto confirmed = engine_.positions(identity_);
  keeps_positions_ = confirmed.has_value();
  if (!confirmed) {
    confirmed.emplace();
    for (const auto& [name, segment] : saved.segments) confirmed->push_back(segment.position);
  }
  engine_.offer(kit_);
  queue_.begin(*confirmed, saved);
  is_begun_ = true;
}

void shipping::send() {
  on_its_way_.push_back({queue_.after(), queue_.records().size()});
  take_result(engine_.store({identity_, kit_, queue_.before(), queue_.after(), queue_.records()}));
}

void shipping::settle() {
  if (!on_its_way_.empty()) take_result(engine_.settle());
}

void shipping::take_result(const store_result& result) {
  uint64_t refused = 0;
  for (const refused_record& one : result.refused) {
    const std::string& segment = on_its_way_.front().after.segment;
    const std::string place = one.line == 0 ? "" : segment + ":" + std::to_string(one.line) + ": ";
    report_.problem("record-refused"_rule, place + one.text);
    refused += one.records;
  }
  tally_.known += result.known;
  tally_.pruned += result.pruned;
  tally_.refused += refused;
  uint64_t records = 0;
  for (size_t batch = 0; batch < result.batches; ++batch) {
    records += on_its_way_.front().records;
    queue_.confirm(on_its_way_.front().after);
    on_its_way_.pop_front();
  }
  tally_.stored += records - std::min<uint64_t>(records, result.known + result.pruned + refused);
  tally_.batches += result.batches;
  if (result.batches != 0) tally_.last = std::chrono::system_clock::now();
}

bool shipping::step() {
  try {
    if (!is_begun_) begin();
    const bool has_batch = queue_.fill();
    const bool has_more = has_batch || !on_its_way_.empty();
    if (has_batch)
      send();
    else
      settle();
    const uint64_t given_up = queue_.state().given_up;
    save(!keeps_positions_ || given_up != positions_.given_up || clock::now() >= next_save_);
    if (clock::now() >= next_tell_) {
      engine_.tell(identity_, queue_.state());
      next_tell_ = clock::now() + between_tells;
    }
    return has_more;
  } catch (const engine_error&) {
    on_its_way_.clear();
    is_begun_ = false;
    throw;
  } catch (...) {
    is_begun_ = false;
    throw;
  }
}

void shipping::tell() {
  save(true);  // what is confirmed, whatever becomes of the rest
  settle();
  save(true);
  if (is_begun_) engine_.tell(identity_, queue_.state());
}

void shipping::save(bool is_due) {
  if (!is_due || !is_begun_) return;
  next_save_ = clock::now() + between_saves;
  queue_.tell(positions_);
  std::string text = text_of(positions_);
  if (text != saved_) {
    const bool is_synced = !keeps_positions_ || positions_.notes.bytes != 0;
    write_whole_file(path_, text, is_synced);
    saved_ = std::move(text);
  }
  queue_.remove_counted_notes();
}
