#include "recording/records/origin.h"

#include <string>

#include "recording/records/values.h"
#include "recording/text/escape.h"

// --- The time

bool is_record_origin_time(std::string_view text) {
  constexpr size_t with_z = sizeof "2026-11-15T17:02:56Z" - 1;
  constexpr size_t with_offset = sizeof "2026-11-15T17:02:56+08:00" - 1;
  constexpr size_t longest = sizeof "2026-11-15T17:02:56.123456789+08:00" - 1;
  if (text.size() > longest || text.find('\0') != std::string_view::npos) return false;
  std::string time(text);
  take_second_fraction(time);
  kp_Time read;
  return (time.size() == with_z || time.size() == with_offset) &&
         read_record_time(time.c_str(), read);
}

// --- The stored form

template <size_t size>
static void append_known(line_writer& line, const char (&key)[size], std::string_view text) {
  if (text.empty()) return;
  line.append(key);
  append_json_text(line, text);
}

template <size_t size>
static void append_known(line_writer& line, const char (&key)[size],
                         const std::optional<uint64_t>& number) {
  if (!number.has_value()) return;
  line.append(key);
  line.append_number(*number);
}

static void append_peer(line_writer& line, const record_peer& peer) {
  line.append(",\"peer\":{\"user\":");
  line.append_number(peer.user);
  line.append(",\"process\":");
  line.append_number(peer.process);
  line.append('}');
}

void record_origin_text::tell(const record_origin& origin) {
  is_told_ = false;
  host_ = origin.host;
  recorder_ = origin.recorder;
  pid_ = origin.pid;
  common_.clear();
  append_known(common_, ",\"host\":", origin.host);
  append_known(common_, ",\"recorder\":", origin.recorder);
  append_known(common_, ",\"pid\":", origin.pid);
  is_told_ = true;
}

void record_origin_text::append(line_writer& line, const record_origin& origin) {
  append_known(line, ",\"recorded\":", origin.recorded);
  if (!is_of(origin)) tell(origin);
  line.append(common_.text());
  append_known(line, ",\"thread\":", origin.thread);
  append_known(line, ",\"sequence\":", origin.sequence);
  append_known(line, ",\"client\":", origin.client);
  append_known(line, ",\"number\":", origin.number);
  if (origin.peer.has_value()) append_peer(line, *origin.peer);
  if (origin.context.empty()) return;
  line.append(",\"context\":");
  line.append(origin.context);
}
