#include "recording/ring/ring_delivery.h"

#include <exception>
#include <utility>

#include "kp_LOG_errors.h"

static constexpr unsigned text_output = 0, json_output = 1, count_output = 2, journal_output = 3;

ring_delivery::ring_delivery(ring_file& ring, const event_set& events, lock_waiting waiting,
                             ring_report report)
    : ring_(ring), reader_(events) {
  open_outputs(waiting, report, events.version());
  const ring_info& info = ring_.info();
  origin_.host = info.host;
  origin_.recorder = ring_.head().start.identity();
  origin_.pid = info.pid;
  for (unsigned number = 0; number < outputs_.size(); ++number) {
    outputs_[number].last = ring_.head().start.delivered_in(number);
    if (outputs_[number].sink != nullptr) shows_messages_ = true;
  }
}

void ring_delivery::open_outputs(const lock_waiting& waiting, const ring_report& report,
                                 const std::string& version) {
  const ring_info& info = ring_.info();
  const sink_options options{version, info.code_page, report, report, waiting};
  if (!info.text.empty()) {
    const std::string size =
        info.max_size != 0 ? ",max-size=" + std::to_string(info.max_size) : std::string();
    outputs_[text_output].sink = make_record_sink("text:" + info.text + size, options);
  }
  if (!info.json.empty())
    outputs_[json_output].sink = make_record_sink("json:" + info.json, options);
  if (!info.journal.empty())
    outputs_[journal_output].sink = make_record_sink(journal_sink_of(info.journal), options);
  if (!info.count.empty())
    outputs_[count_output].counts = std::make_unique<counter_writer>(info.count, waiting, report);
}

// ---- one event ----

void ring_delivery::give_sequence(frame_head& frame) {
  if (frame.sequence != 0) return;
  ring_store(frame.sequence, ring_.head().assigned + 1);
  ring_store(ring_.head().assigned, frame.sequence);
}

// A message that cannot be rendered does not keep the event out.
std::string ring_delivery::message_of(const made_entry& made, bool& is_from_definition) const {
  try {
    entry_text message = entry_message(made);
    is_from_definition = message.is_from_definition;
    return std::move(message.text);
  } catch (const record_error& error) {
    return "[" + error.text() + "]";
  }
}

bool ring_delivery::is_in_every_output(uint64_t sequence) const {
  for (unsigned number = 0; number < outputs_.size(); ++number)
    if (outputs_[number].is_wanted() && ring_.head().start.delivered_in(number) < sequence)
      return false;
  return true;
}

void ring_delivery::add_to_outputs(uint64_t sequence) {
  const made_entry& made = reader_.made();
  bool is_from_definition = false;
  const std::string message = shows_messages_ ? message_of(made, is_from_definition) : "";
  const sink_entry entry{made, message, reader_.time(), is_from_definition};
  for (place& to : outputs_) {
    if (!to.is_wanted() || sequence <= to.last) continue;
    if (to.sink != nullptr)
      to.sink->add(entry);
    else if (!made.is_lost())
      to.counts->add(entry.time, made.event->id);
    if (to.first == 0) to.first = sequence;
    to.last = sequence;
  }
}

ring_delivery::outcome ring_delivery::add(const ring_event& event) {
  const uint64_t sequence = event.frame->sequence;
  if (sequence != 0 && is_in_every_output(sequence)) return outcome::had;
  event_reader::outcome read = event_reader::outcome::damaged;
  try {
    read = reader_.read(event.bytes);
  } catch (const KPX_logging_all&) {  // what it holds is nothing that the library takes
  }
  if (read == event_reader::outcome::another_definition) return outcome::stays;
  if (read == event_reader::outcome::damaged) return outcome::damaged;
  give_sequence(*event.frame);
  origin_.recorded = reader_.recorded();
  origin_.thread = event.thread;
  origin_.sequence = event.frame->sequence;
  reader_.made().origin = origin_;
  add_to_outputs(event.frame->sequence);
  ++pending_;
  return outcome::taken;
}

// ---- a batch ----

size_t ring_delivery::pending_bytes() const {
  size_t bytes = 0;
  for (const place& to : outputs_)
    if (to.sink != nullptr) bytes += to.sink->pending();
  return bytes;
}

void ring_delivery::write(unsigned number) {
  place& to = outputs_[number];
  if (to.first == 0) return;
  const delivery of{&ring_.head().start, ring_.path(), number, to.first, to.last};
  if (to.sink != nullptr)
    to.sink->write(ring_.info().synced, &of);
  else
    to.counts->write(ring_.info().synced, &of);
  to.first = 0;
}

void ring_delivery::write() {
  std::exception_ptr failure;
  for (unsigned number = 0; number < outputs_.size(); ++number) {
    try {
      write(number);
    } catch (const file_error&) {
      if (!failure) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
  pending_ = 0;
}

// ---- files that are done ----

std::chrono::milliseconds ring_delivery::keep_up() {
  place& journal = outputs_[journal_output];
  return journal.sink == nullptr ? std::chrono::milliseconds(-1) : journal.sink->keep_up();
}
