#include "tools/emit/pipeline.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "recording/files/descriptor.h"

// A batch ends at whichever comes first.
static constexpr size_t batch_output = size_t{256} << 10;
static constexpr size_t batch_input = size_t{1} << 20;

// Whatever else comes in: blank lines, perhaps, or halves of lines, without end.
static constexpr std::chrono::milliseconds longest_wait_for_batch(500);

// So much has come at once that it is worth other threads' while.
static constexpr size_t busy_input = size_t{256} << 10;

emit_pipeline::emit_pipeline(definition_version& definitions, const emit_filter& filter,
                             emit_outputs& outputs, emit_report& report, batch_patience& patience,
                             record_rules rules, size_t threads)
    : definitions_(definitions),
      filter_(filter),
      outputs_(outputs),
      report_(report),
      patience_(patience),
      rules_(std::move(rules)),
      making_(definitions.events(), filter, rules_.skew),
      threads_(threads) {
  figures_.output_bytes.resize(outputs.sinks.size());
}

void emit_pipeline::take(const record_line& line) {
  if (has_stopped_) return;
  if (!has_unwritten()) write_due_ = clock::now() + longest_wait_for_batch;
  ++taken_;
  figures_.input_bytes += line.text.size();
  taken_since_write_ += line.text.size();
  if (is_busy())
    take_in_pack(line);
  else
    take_alone(line);
}

// --- One record ---

void emit_pipeline::take_alone(const record_line& line) {
  ++done_;
  if (line.client != nullptr) progress_[line.client] = line.client_number;
  batch_input_ += line.text.size();
  const record_making::outcome outcome = making_.make(line);
  if (outcome == record_making::outcome::refused) {
    refuse(line, making_.event(), making_.error());
  } else {
    emit_tally& tally = tallies_[making_.event()];
    ++tally.read;
    if (outcome == record_making::outcome::rejected)
      ++tally.rejected;
    else
      add(making_.entry());
  }
  if (is_batch_large()) write_batch();
}

void emit_pipeline::add(const sink_entry& entry) {
  if (entry.is_message_from_definition) report_.definition_message(*entry.made.event);
  for (const auto& sink : outputs_.sinks) sink->add(entry);
  if (outputs_.counts != nullptr && !entry.made.is_lost())
    outputs_.counts->add(entry.time, entry.made.entry.GetEntryID());
}

void emit_pipeline::refuse(const record_line& line, const known_event* event,
                           const record_error& error) {
  report_.bad_record(line, error);
  emit_tally& tally = tallies_[event];
  ++tally.read;
  ++tally.bad;
  if (outputs_.quarantine != nullptr) {
    (bad_lines_ += line.text) += '\n';
    ++bad_line_count_;
  }
  if (line.client != nullptr && line.client->hearing != nullptr)
    line.client->hearing->hear_refused(line.client_number, error.rule()->code, error.text());
  if (line.source->sender != nullptr) line.source->sender->hear_bad(line);
  has_stopped_ = rules_.stops;
}

// --- Many records ---

// From then on until everything that has come is written.
bool emit_pipeline::is_busy() {
  if (pack_ != nullptr) return true;
  if (threads_ == 0 || taken_since_write_ < busy_input) return false;
  try {
    if (makers_ == nullptr)
      makers_ = std::make_unique<entry_makers>(threads_, [this] { return new_maker(); });
  } catch (const std::system_error&) {
    threads_ = 0;  // the system has none left
  }
  return threads_ != 0;
}

std::unique_ptr<pack_maker> emit_pipeline::new_maker() const {
  std::vector<std::unique_ptr<line_form>> forms;
  for (const auto& sink : outputs_.sinks) forms.push_back(sink->form().another());
  return std::make_unique<pack_maker>(definitions_, filter_, rules_, std::move(forms));
}

void emit_pipeline::take_in_pack(const record_line& line) {
  if (pack_ != nullptr && !pack_->has_room_for(line)) {
    makers_->submit(std::move(pack_));
    if (makers_->has_enough()) merge(makers_->next());
    while (auto made = makers_->next_if_made()) merge(std::move(made));
    if (has_stopped_) return;
  }
  if (pack_ == nullptr) pack_ = empty_pack();
  pack_->add(line);
}

std::unique_ptr<line_pack> emit_pipeline::empty_pack() {
  if (spare_packs_.empty()) return std::make_unique<line_pack>();
  std::unique_ptr<line_pack> pack = std::move(spare_packs_.back());
  spare_packs_.pop_back();
  return pack;
}

// All that are on their way.
void emit_pipeline::take_packs() {
  if (pack_ != nullptr) makers_->submit(std::move(pack_));
  while (auto made = makers_ == nullptr ? nullptr : makers_->next()) merge(std::move(made));
}

// Whether somebody who minds bad records has sent one, or was closed for others: of the lines
// behind such a record some are not to be taken.
static bool may_lines_be_left_out(const line_pack& pack) {
  const std::vector<record_line>& lines = pack.lines();
  const auto& refused = pack.result.refused;
  return std::any_of(refused.begin(), refused.end(),
                     [&](const auto& one) { return lines[one.line].source->sender != nullptr; }) ||
         std::any_of(lines.begin(), lines.end(),
                     [](const record_line& line) { return line.source->is_closed; });
}

void emit_pipeline::merge(std::unique_ptr<line_pack> pack) {
  if (pack->result.failure) std::rethrow_exception(pack->result.failure);
  if (!has_stopped_ && may_lines_be_left_out(*pack))
    take_one_by_one(*pack);
  else if (!has_stopped_)
    merge_made(*pack);
  pack->clear();
  spare_packs_.push_back(std::move(pack));
  if (is_batch_large()) write_batch();
}

void emit_pipeline::take_one_by_one(const line_pack& pack) {
  making_.set_now(pack.begun());
  for (const record_line& line : pack.lines())
    if (line.source->is_closed)
      ++done_;
    else if (!has_stopped_)
      take_alone(line);
  making_.set_now(std::nullopt);
}

void emit_pipeline::merge_made(const line_pack& pack) {
  const pack_result& made = pack.result;
  done_ +=
      rules_.stops && !made.refused.empty() ? made.refused.front().line + 1 : pack.lines().size();
  batch_input_ += pack.bytes();
  merge_lines(made);
  for (const auto& [client, number] : made.progress) progress_[client] = number;
  for (const known_event* event : made.from_definition) report_.definition_message(*event);
  for (const auto& [event, tally] : made.tallies) {
    tallies_[event].read += tally.read;
    tallies_[event].rejected += tally.rejected;
  }
  merge_refused(pack);
}

void emit_pipeline::merge_lines(const pack_result& made) {
  for (size_t i = 0; i < outputs_.sinks.size(); ++i) {
    size_t begin = 0;
    for (const pack_result::day_lines& lines : made.days) {
      const size_t end = lines.ends[i];
      outputs_.sinks[i]->take(std::string_view(made.texts[i]).substr(begin, end - begin),
                              lines.day);
      begin = end;
    }
  }
  if (outputs_.counts == nullptr) return;
  for (const auto& [key, count] : made.counts) outputs_.counts->add(key.first, key.second, count);
}

void emit_pipeline::merge_refused(const line_pack& pack) {
  for (const pack_result::refused_line& refused : pack.result.refused) {
    const record_line& line = pack.lines()[refused.line];
    refuse(line, refused.event, fault_of(line, refused));
  }
}

// Where it has not been found, the record is made once more when somebody asks for it.
record_error emit_pipeline::fault_of(const record_line& line,
                                     const pack_result::refused_line& refused) {
  if (refused.finding) return {refused.rule, *refused.finding};
  return {refused.rule, [this, &line]() -> record_finding {
            making_.make(line);
            return making_.error().finding();
          }};
}

// --- A batch ---

bool emit_pipeline::is_batch_large() const {
  size_t pending = 0;
  for (const auto& sink : outputs_.sinks) pending += sink->pending();
  return pending >= batch_output || batch_input_ >= batch_input;
}

void emit_pipeline::write_outputs(const delivery* of) {
  for (const auto& sink : outputs_.sinks) sink->write(outputs_.synced, of);
  if (outputs_.quarantine != nullptr) outputs_.quarantine->append(bad_lines_, outputs_.synced, of);
  if (outputs_.counts != nullptr) outputs_.counts->write(outputs_.synced, of);
}

void emit_pipeline::write_jointly() {
  delivery batch = outputs_.clients->next_batch();
  batch.joint = outputs_.joint.get();
  outputs_.joint->begin(outputs_.places, batch);
  try {
    write_outputs(&batch);
    outputs_.clients->store(progress_, outputs_.synced);
  } catch (...) {
    outputs_.joint->take_back();
    throw;
  }
  outputs_.joint->finish();
}

void emit_pipeline::tell_clients() {
  for (const auto& [client, number] : std::exchange(progress_, {}))
    if (client->hearing != nullptr) client->hearing->hear_written();
}

void emit_pipeline::write_patiently() {
  for (;;) {
    try {
      if (outputs_.clients == nullptr)
        write_outputs(nullptr);
      else if (has_batch())
        write_jointly();
      return patience_.was_written();
    } catch (const file_error& error) {
      if (!patience_.tries_again(error)) throw;
      keep_up();  // which may make room
    }
  }
}

void emit_pipeline::count_batch(const std::vector<size_t>& output_bytes, size_t bad_lines) {
  ++figures_.batches;
  figures_.last = std::chrono::system_clock::now();
  for (size_t i = 0; i < output_bytes.size(); ++i) figures_.output_bytes[i] += output_bytes[i];
  if (bad_lines == 0) return;
  const size_t left_out = outputs_.quarantine->left_out();
  figures_.quarantined += bad_lines - left_out;
  figures_.not_quarantined += left_out;
  report_.quarantined(left_out);
}

void emit_pipeline::write() {
  take_packs();
  write_batch();
  taken_since_write_ = 0;
}

void emit_pipeline::write_batch() {
  std::vector<size_t> output_bytes;
  for (const auto& sink : outputs_.sinks) output_bytes.push_back(sink->pending());
  write_patiently();
  if (has_batch()) count_batch(output_bytes, std::exchange(bad_line_count_, 0));
  tell_clients();
  for (auto& [event, tally] : tallies_) tally.written += tally.unwritten();
  batch_input_ = 0;
  write_due_ = clock::now() + longest_wait_for_batch;
  const bool is_acknowledgement_due = has_batch() && outputs_.acknowledges;
  acknowledged_ = done_;
  if (is_acknowledgement_due) {
    std::string number = std::to_string(done_) + "\n";
    write_standard_output(number, false);
  }
  report_.progress(tallies_);
  keep_up();
}

// --- Files that are done ---

std::chrono::milliseconds emit_pipeline::keep_up() {
  std::chrono::milliseconds least(-1);
  for (const auto& sink : outputs_.sinks) least = shorter_wait(sink->keep_up(), least);
  return least;
}

void emit_pipeline::hurry_up() {
  for (const auto& sink : outputs_.sinks) sink->hurry_up();
}

void emit_pipeline::reopen() {
  for (const auto& sink : outputs_.sinks) sink->reopen();
}
