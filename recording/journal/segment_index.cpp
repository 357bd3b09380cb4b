#include "recording/journal/segment_index.h"

#include <simdjson.h>

#include <algorithm>
#include <new>
#include <utility>

#include "recording/records/parser.h"
#include "recording/text/json_text.h"
#include "recording/text/summed_json.h"

// --- Text ---

static void append_events(json_text& json, const segment_index& index) {
  json.key("events").begin_list();
  for (const auto& [event, records] : index.events) {
    json.begin_object().key("event").number(event.first);
    if (!event.second.empty()) json.key("name").written("\"" + event.second + "\"");
    json.key("records").number(records).end_object();
  }
  json.end_list();
}

std::string text_of(const segment_index& index) {
  std::string text;
  json_text json(text);
  json.begin_object().key("journal_index").number(1);
  json.key("segment").text(index.file).key("size").number(index.size);
  json.key("lines").number(index.lines).key("records").number(index.records);
  json.key("others").number(index.others);
  if (index.records != 0)
    json.key("first")
        .text(text_of_instant(index.first))
        .key("last")
        .text(text_of_instant(index.last));
  append_events(json, index);
  return summed_object(std::move(text));
}

using index_value = simdjson::dom::object;

static bool read_event(index_value object, segment_index& index) {
  uint64_t event = 0, records = 0;
  if (object["event"].get(event) != simdjson::SUCCESS || event > UINT32_MAX ||
      object["records"].get(records) != simdjson::SUCCESS)
    return false;
  std::string name;
  std::string_view told;
  if (object["name"].get(told) == simdjson::SUCCESS) {
    json_text(name).text(told);
    name = name.substr(1, name.size() - 2);
  }
  index.events[{static_cast<uint32_t>(event), name}] += records;
  return true;
}

static bool read_instant(index_value object, const char* key, int64_t& instant) {
  std::string_view text;
  if (object[key].get(text) != simdjson::SUCCESS) return false;
  const auto read = instant_of(text);
  instant = read.value_or(0);
  return read.has_value();
}

static bool read_index(index_value object, segment_index& index) {
  uint64_t form = 0;
  std::string_view file;
  simdjson::dom::array events;
  const auto number = [&](const char* key, uint64_t& value) {
    return object[key].get(value) == simdjson::SUCCESS;
  };
  if (!number("journal_index", form) || form != 1 || !number("size", index.size) ||
      !number("lines", index.lines) || !number("records", index.records) ||
      !number("others", index.others) || object["segment"].get(file) != simdjson::SUCCESS ||
      object["events"].get(events) != simdjson::SUCCESS)
    return false;
  index.file = file;
  if (index.records != 0 &&
      (!read_instant(object, "first", index.first) || !read_instant(object, "last", index.last)))
    return false;
  return std::ranges::all_of(events, [&](const simdjson::dom::element& event) {
    index_value one;
    return event.get(one) == simdjson::SUCCESS && read_event(one, index);
  });
}

std::optional<segment_index> segment_index_of(std::string_view text) {
  const auto object_text = text.size() <= longest_index ? unsummed_object(text) : std::nullopt;
  if (!object_text) return std::nullopt;
  simdjson::dom::parser parser;
  index_value object;
  const simdjson::error_code error = parser.parse(*object_text).get(object);
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  segment_index index;
  return error == simdjson::SUCCESS && read_index(object, index) ? std::optional(std::move(index))
                                                                 : std::nullopt;
}

// --- A segment ---

void segment_scan::take_line(std::string_view line) {
  index_.lines += line.size() + std::exchange(dropped_, 0) + 1;
  const auto start = reader_.read(line);
  if (!start) {
    ++index_.others;
    return;
  }
  if (last_count_ == nullptr || last_event_.first != start->event ||
      last_event_.second != start->name) {
    last_event_ = {start->event, std::string(start->name)};
    last_count_ = &index_.events[last_event_];
  }
  ++*last_count_;
  index_.first = index_.records == 0 ? start->instant : std::min(index_.first, start->instant);
  index_.last = index_.records == 0 ? start->instant : std::max(index_.last, start->instant);
  ++index_.records;
}

void segment_scan::take(std::string_view bytes) {
  for (size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
    if (rest_.empty()) {
      take_line(bytes.substr(0, end));
    } else {
      add_to_rest(bytes.substr(0, end));
      take_line(rest_);
      rest_.clear();
    }
    bytes.remove_prefix(end + 1);
  }
  add_to_rest(bytes);
}

// A line that is longer than any that is read is none of a record, whatever it holds.
void segment_scan::add_to_rest(std::string_view bytes) {
  const size_t room = stored_record_size_limit + 1 - rest_.size();
  rest_ += bytes.substr(0, room);
  dropped_ += bytes.size() - std::min(room, bytes.size());
}

segment_index segment_scan::index() const {
  segment_index told = index_;
  if (!rest_.empty()) ++told.others;
  return told;
}
