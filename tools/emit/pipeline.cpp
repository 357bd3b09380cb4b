#include "tools/emit/pipeline.h"

#include <utility>

#include "recording/files/descriptor.h"

// A batch ends at whichever comes first.
static constexpr size_t batch_output = size_t{256} << 10;
static constexpr size_t batch_input = size_t{1} << 20;

emit_pipeline::emit_pipeline(const event_set& events, const emit_filter& filter,
                             emit_outputs& outputs, emit_report& report, batch_patience& patience,
                             record_rules rules)
    : events_(events),
      filter_(filter),
      outputs_(outputs),
      report_(report),
      patience_(patience),
      rules_(std::move(rules)),
      maker_(events),
      form_(events.version()) {
  figures_.output_bytes.resize(outputs.sinks.size());
}

// --- One record ---

void emit_pipeline::take(const record_line& line) {
  if (has_stopped_) return;
  ++taken_;
  if (line.client != nullptr) progress_[line.client] = line.client_number;
  batch_input_ += line.text.size();
  figures_.input_bytes += line.text.size();
  try {
    process(line);
  } catch (const record_error& error) {
    refuse(line, error);
  }
  if (is_batch_large()) write();
}

void emit_pipeline::process(const record_line& line) {
  parsed_ = nullptr;
  check_length(line);
  parsed_ = parser_.try_parse(line.text);
  if (parsed_ == nullptr) return refuse(line, parser_.error());
  if (line.peer != nullptr) take_sender(line);
  const made_entry* const made = maker_.try_make(*parsed_);
  if (made == nullptr) return refuse(line, maker_.error());
  if (parsed_->time && !rules_.skew.allows(made->entry.GetAttribTime("TIMESTAMP")))
    return refuse(line, rules_.skew.fault_of(*parsed_));
  emit_tally& tally = tallies_[made->event];
  if (made->is_lost() || filter_.passes(made->entry))
    add(*made, line.text);
  else
    ++tally.rejected;
  ++tally.read;
}

// What came through a socket is from whom the system says, whatever the record tells.
void emit_pipeline::take_sender(const record_line& line) {
  record_origin& origin = parsed_->origin;
  origin.peer = *line.peer;
  origin.client = line.client == nullptr ? std::string_view() : line.client->name;
  origin.number.reset();
  if (line.client != nullptr) origin.number = line.client_number;
}

// Nothing of a record is taken before its message is there, nor what could not be read again.
void emit_pipeline::add(const made_entry& made, std::string_view line) {
  const entry_text message = entry_message(made);
  if (message.is_from_definition) report_.definition_message(*made.event);
  const sink_entry entry{made, message.text, made.entry.GetAttribTime("TIMESTAMP"),
                         message.is_from_definition};
  form_.require_readable(entry, line);
  for (const auto& sink : outputs_.sinks) sink->add(entry);
  if (outputs_.counts != nullptr && !made.is_lost())
    outputs_.counts->add(entry.time, made.entry.GetEntryID());
}

void emit_pipeline::refuse(const record_line& line, const record_error& error) {
  report_.bad_record(line, error);
  emit_tally& tally = tallies_[parsed_ == nullptr ? nullptr : find_event(events_, parsed_->event)];
  ++tally.read;
  ++tally.bad;
  if (outputs_.quarantine != nullptr) {
    (bad_lines_ += line.text) += '\n';
    ++bad_line_count_;
  }
  if (line.client != nullptr && line.client->hearing != nullptr)
    line.client->hearing->hear_refused(line.client_number, error.rule()->code, error.text());
  if (line.sender != nullptr) line.sender->hear_bad();
  has_stopped_ = rules_.stops;
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
      else if (has_unwritten())
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
  std::vector<size_t> output_bytes;
  for (const auto& sink : outputs_.sinks) output_bytes.push_back(sink->pending());
  write_patiently();
  if (has_unwritten()) count_batch(output_bytes, std::exchange(bad_line_count_, 0));
  tell_clients();
  for (auto& [event, tally] : tallies_) tally.written += tally.unwritten();
  batch_input_ = 0;
  const bool is_acknowledgement_due = has_unwritten() && outputs_.acknowledges;
  acknowledged_ = taken_;
  if (is_acknowledgement_due) {
    std::string number = std::to_string(taken_) + "\n";
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
