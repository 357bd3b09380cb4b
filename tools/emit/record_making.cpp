#include "tools/emit/record_making.h"

#include <utility>

record_making::record_making(const event_set& events, const emit_filter& filter, time_skew skew)
    : events_(events),
      filter_(filter),
      skew_(std::move(skew)),
      maker_(events),
      form_(events.version()) {}

record_making::outcome record_making::make(const record_line& line) {
  try {
    return make_unrefused(line);
  } catch (const record_error& error) {
    return refuse(error);
  }
}

record_making::outcome record_making::refuse(const record_error& error) {
  error_ = error;
  event_ = parsed_ == nullptr ? nullptr : find_event(events_, parsed_->event);
  return outcome::refused;
}

record_making::outcome record_making::make_unrefused(const record_line& line) {
  parsed_ = nullptr;
  check_length(line);
  parsed_ = parser_.try_parse(line.text);
  if (parsed_ == nullptr) return refuse(parser_.error());
  if (line.source->peer) take_sender(line);
  const made_entry* const made = maker_.try_make(*parsed_);
  if (made == nullptr) return refuse(maker_.error());
  event_ = made->event;
  if (skew_.is_limited() && parsed_->time && !skew_.allows(made->entry.GetAttribTime("TIMESTAMP")))
    return refuse(skew_.fault_of(*parsed_));
  if (!made->is_lost() && !filter_.passes(made->entry)) return outcome::rejected;
  render(*made, line.text);
  return outcome::passed;
}

// What came through a socket is from whom the system says, whatever the record tells.
void record_making::take_sender(const record_line& line) {
  record_origin& origin = parsed_->origin;
  origin.peer = *line.source->peer;
  origin.client = line.client == nullptr ? std::string_view() : line.client->name;
  origin.number.reset();
  if (line.client != nullptr) origin.number = line.client_number;
}

// Nothing of a record is taken before its message is there, nor what could not be read again.
void record_making::render(const made_entry& made, std::string_view line) {
  entry_text message = entry_message(made);
  message_ = std::move(message.text);
  entry_.emplace(sink_entry{made, message_, made.entry.GetAttribTime("TIMESTAMP"),
                            message.is_from_definition});
  form_.require_readable(*entry_, line);
}
