#include "engines/otlp/log_request.h"

#include <simdjson.h>

#include <algorithm>
#include <array>

#include "engines/otlp/attribute_list.h"
#include "recording/text/escape.h"

unsigned otlp_severity(unsigned level) {
  // FATAL, ERROR2, ERROR, WARN, INFO2, INFO, DEBUG, TRACE3, TRACE2, TRACE
  static constexpr std::array<unsigned, 10> severities = {21, 18, 17, 13, 10, 9, 5, 3, 2, 1};
  return severities[std::min<size_t>(level, severities.size() - 1)];
}

otlp_log_request::otlp_log_request(const journal_identity& journal, std::string_view segment)
    : journal_(journal), segment_(segment) {}

// Who logged: what many records have in common.
void otlp_log_request::append_resource(const pipeline_record& record) {
  const record_origin& origin = record.said->origin;
  head_.clear();
  head_.append("{\"resource\":{");
  otlp_attribute_list attributes(head_);
  attributes.add_text("service.name", name_of_journal(journal_));
  if (!origin.recorder.empty()) attributes.add_text("service.instance.id", origin.recorder);
  attributes.add_text("host.name", origin.host.empty() ? journal_.host : origin.host);
  if (origin.pid) attributes.add_number("process.pid", *origin.pid);
  attributes.add_text("kplog.host", journal_.host);
  attributes.add_text("kplog.journal", journal_.journal);
  attributes.end();
  head_.append("},\"scopeLogs\":[{\"scope\":{\"name\":\"kplog\"");
  if (record.said->version) {
    head_.append(",\"version\":");
    append_json_text(head_, record.said->version->text);
  }
  head_.append("},\"logRecords\":[");
}

otlp_log_request::group& otlp_log_request::group_of(const pipeline_record& record) {
  append_resource(record);
  const auto [found, is_new] = places_.try_emplace(std::string(head_.text()), groups_.size());
  if (is_new) {
    groups_.push_back({found->first, ""});
    size_ += found->first.size();
  }
  return groups_[found->second];
}

// Nanoseconds since 1970, which end in the year 2554; 0 stands for no time.
static std::optional<uint64_t> otlp_nanoseconds(std::optional<int64_t> seconds,
                                                std::string_view fraction) {
  constexpr uint64_t second = 1'000'000'000;
  if (!seconds || *seconds < 0 || static_cast<uint64_t>(*seconds) > UINT64_MAX / second)
    return std::nullopt;
  uint64_t behind = 0;
  for (size_t i = 0; i < 9; ++i)
    behind = behind * 10 + (i < fraction.size() ? static_cast<uint64_t>(fraction[i] - '0') : 0);
  const uint64_t begin = static_cast<uint64_t>(*seconds) * second;
  if (begin > UINT64_MAX - behind || begin + behind == 0) return std::nullopt;
  return begin + behind;
}

static void append_otlp_time(line_writer& json, std::string_view name, uint64_t nanoseconds) {
  json.append(name);
  json.append(":\"");
  json.append_number(nanoseconds);
  json.append("\",");
}

// A record's time is a second; that in which it was recorded tells more of it.
bool otlp_log_request::append_times(const pipeline_record& record, uint64_t now) {
  const bool is_one_second = record.time == record.recorded;
  const auto time =
      otlp_nanoseconds(record.time, is_one_second ? std::string_view(record.fraction) : "");
  const auto recorded = otlp_nanoseconds(record.recorded, record.fraction);
  if (time) append_otlp_time(line_, "\"timeUnixNano\"", *time);
  append_otlp_time(line_, "\"observedTimeUnixNano\"", recorded.value_or(now));
  return time.has_value();
}

static bool is_trace_id(std::string_view text, size_t digits) {
  return text.size() == digits &&
         text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos &&
         text.find_first_not_of('0') != std::string_view::npos;
}

// Where the context tells them as the data model does; they stay attributes all the same.
void otlp_log_request::append_trace(std::string_view context) {
  if (context.find("\"trace\":") == std::string_view::npos) return;
  simdjson::ondemand::parser parser;
  const simdjson::padded_string padded(context);
  simdjson::ondemand::document document = parser.iterate(padded);
  std::string_view trace, span;
  if (document.find_field_unordered("trace").get_string().get(trace) != simdjson::SUCCESS) return;
  if (!is_trace_id(trace, 32)) return;
  line_.append(R"("traceId":")");
  line_.append(trace);
  line_.append("\",");
  if (document.find_field_unordered("span").get_string().get(span) != simdjson::SUCCESS) return;
  if (!is_trace_id(span, 16)) return;
  line_.append(R"("spanId":")");
  line_.append(span);
  line_.append("\",");
}

static void add_if_told(otlp_attribute_list& attributes, std::string_view name,
                        const std::optional<uint64_t>& number) {
  if (number) attributes.add_number(name, *number);
}

static void add_origin(otlp_attribute_list& attributes, const record_origin& origin) {
  add_if_told(attributes, "thread.id", origin.thread);
  add_if_told(attributes, "kplog.sequence", origin.sequence);
  if (!origin.client.empty()) attributes.add_text("kplog.client", origin.client);
  add_if_told(attributes, "kplog.number", origin.number);
  if (!origin.peer) return;
  attributes.add_number("kplog.peer.user", origin.peer->user);
  attributes.add_number("kplog.peer.process", origin.peer->process);
}

void otlp_log_request::append_attributes(const shipped_record& shipped,
                                         const pipeline_record& record) {
  const parsed_record& said = *record.said;
  otlp_attribute_list attributes(line_);
  for (const record_attribute& attribute : said.attributes)
    attributes.add(attribute.name, attribute.value);
  attributes.add_text("log.record.uid", identity_text(journal_, segment_, shipped));
  if (record.event) attributes.add_number("kplog.event", *record.event);
  if (record.level) attributes.add_number("kplog.level", *record.level);
  if (said.time) attributes.add_text("kplog.time", said.time->text);
  add_origin(attributes, said.origin);
  if (!said.origin.context.empty()) attributes.add_members("context", said.origin.context);
  attributes.end();
}

bool otlp_log_request::add(const shipped_record& shipped, const pipeline_record& record,
                           uint64_t now) {
  line_.clear();
  line_.append('{');
  const bool has_time = append_times(record, now);
  if (record.level) {
    line_.append("\"severityNumber\":");
    line_.append_number(otlp_severity(*record.level));
    line_.append(',');
  }
  if (!record.name.empty()) {
    line_.append("\"eventName\":");
    append_json_text(line_, record.name);
    line_.append(',');
  }
  if (record.said->message) {
    line_.append("\"body\":{\"stringValue\":");
    append_json_text(line_, record.said->message->text);
    line_.append("},");
  }
  append_trace(record.said->origin.context);
  append_attributes(shipped, record);
  line_.append('}');
  group& place = group_of(record);
  if (!place.logs.empty()) place.logs += ',';
  place.logs += line_.text();
  size_ += line_.text().size() + 1;
  ++records_;
  return has_time || !record.said->time;
}

std::string otlp_log_request::text() const {
  std::string json = "{\"resourceLogs\":[";
  for (const group& one : groups_) {
    if (&one != &groups_.front()) json += ',';
    json += one.head;
    json += one.logs;
    json += "]}]}";
  }
  return json + "]}";
}
