#include "engines/syslog/message.h"

#include <simdjson.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "recording/records/scalar.h"
#include "recording/text/check_sum.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"

namespace chrono = std::chrono;
namespace ondemand = simdjson::ondemand;

unsigned syslog_severity(unsigned level) {
  constexpr unsigned debug = 7;
  return std::min(level + 1, debug);
}

// ---- names and values ----

static bool is_syslog_printable(char c) {
  return c > ' ' && c <= '~';
}

static bool is_of_syslog_name(char c) {
  return is_syslog_printable(c) && c != '=' && c != ']' && c != '"';
}

std::string syslog_name(std::string_view text) {
  constexpr size_t longest = 32;
  constexpr size_t digits = 8;
  const bool is_name = !text.empty() && text.size() <= longest &&
                       std::all_of(text.begin(), text.end(), is_of_syslog_name);
  if (is_name) return std::string(text);
  std::string name(text.substr(0, longest - digits - 1));
  std::replace_if(name.begin(), name.end(), std::not_fn(is_of_syslog_name), '_');
  return name + "~" + hexadecimal(check_sum(text) & UINT32_MAX, digits);
}

std::string syslog_field(std::string_view text, size_t longest) {
  std::string field(text.substr(0, longest));
  std::replace_if(field.begin(), field.end(), std::not_fn(is_syslog_printable), '_');
  return field.empty() ? "-" : field;
}

// A value between its quotes: what ends it is escaped, and what would do harm on a terminal is
// written out.
static std::string syslog_parameter(std::string_view name, std::string_view value) {
  std::string shown;
  append_log_text(shown, value);
  std::string parameter = " " + syslog_name(name) + "=\"";
  for (const char c : shown) {
    if (c == '"' || c == '\\' || c == ']') parameter += '\\';
    parameter += c;
  }
  return parameter + '"';
}

// ---- times ----

// Of a time with a fraction of its second and without its zone: "2026-11-15T09:02:56".
static std::string utc_text(int64_t seconds) {
  const chrono::sys_seconds moment{chrono::seconds(seconds)};
  const auto day = chrono::floor<chrono::days>(moment);
  const chrono::year_month_day date(day);
  const chrono::hh_mm_ss clock(moment - day);
  const auto digits = [](int64_t number, size_t count) {
    std::string text = std::to_string(number);
    return std::string(count - std::min(count, text.size()), '0') + text;
  };
  return digits(int{date.year()}, 4) + "-" + digits(unsigned{date.month()}, 2) + "-" +
         digits(unsigned{date.day()}, 2) + "T" + digits(clock.hours().count(), 2) + ":" +
         digits(clock.minutes().count(), 2) + ":" + digits(clock.seconds().count(), 2);
}

// Up to microseconds, which are those of when it was recorded, where that is the same second. What
// the record tells as syslog does stays as it is; another time is told in UTC.
static std::string syslog_time(const pipeline_record& record) {
  constexpr size_t second_size = sizeof "2026-11-15T17:02:56" - 1;
  constexpr size_t most_fraction = 6;
  constexpr int64_t last = 253402300799;  // of the year 9999
  constexpr int64_t first = -62167219200;
  if (!record.time || *record.time < first || *record.time > last) return "-";
  std::string text = utc_text(*record.time) + "Z";
  const std::string_view told = record.said->time ? record.said->time->text : "";
  const bool is_plain = told_moment_of(told) == record.time && told[second_size] != '.';
  if (is_plain && (told.ends_with('Z') || told.substr(second_size + 1, 2) < "24")) text = told;
  if (record.recorded == record.time && !record.fraction.empty())
    text.insert(second_size, "." + record.fraction.substr(0, most_fraction));
  return text;
}

// ---- elements ----

// Whole parameters, as many as there is room for.
class syslog_element {
 public:
  syslog_element(std::string& text, const std::string& id, size_t room)
      : text_(text), head_("[" + id), room_(room) {}

  void add(std::string_view name, std::string_view value) {
    const std::string parameter = syslog_parameter(name, value);
    const size_t size = parameter.size() + (is_begun_ ? 0 : head_.size() + 1);
    if (size > room_) {
      is_cut_ = true;
      return;
    }
    room_ -= size;
    if (!is_begun_) text_ += head_;
    is_begun_ = true;
    text_ += parameter;
  }
  // The room that is left.
  size_t end() {
    if (is_begun_) text_ += ']';
    return room_;
  }
  bool is_cut() const { return is_cut_; }

 private:
  std::string& text_;
  std::string head_;
  size_t room_;
  bool is_begun_ = false;
  bool is_cut_ = false;
};

static void add_syslog_members(syslog_element& element, const std::string& prefix,
                               ondemand::object object) {
  for (ondemand::field field : object) {
    const std::string name = prefix + std::string(std::string_view(field.unescaped_key()));
    ondemand::value value = field.value();
    const ondemand::json_type type = value.type();
    if (type == ondemand::json_type::object)
      add_syslog_members(element, name + ".", value.get_object());
    else if (type == ondemand::json_type::array)
      element.add(name, std::string_view(simdjson::to_json_string(value)));
    else if (type == ondemand::json_type::string)
      element.add(name, std::string_view(value.get_string()));
    else
      element.add(name, without_blanks_behind(value.raw_json_token()));
  }
}

syslog_message_writer::syslog_message_writer(const journal_identity& journal,
                                             std::string_view segment, const syslog_form& form)
    : journal_(journal), segment_(segment), form_(form) {}

std::string syslog_message_writer::header_of(const pipeline_record& record) const {
  constexpr size_t host_size = 255, application_size = 48, process_size = 128;
  constexpr unsigned usual_level = 3;  // of records that tell none
  const record_origin& origin = record.said->origin;
  const unsigned priority =
      form_.facility * 8 + syslog_severity(record.level.value_or(usual_level));
  const std::string id = record.event ? std::to_string(*record.event) : "-";
  return "<" + std::to_string(priority) + ">1 " + syslog_time(record) + " " +
         syslog_field(origin.host.empty() ? journal_.host : origin.host, host_size) + " " +
         syslog_field(name_of_journal(journal_), application_size) + " " +
         syslog_field(origin.pid ? std::to_string(*origin.pid) : "", process_size) + " " +
         (record.name.empty() ? id : syslog_name(record.name)) + " ";
}

// The characters of the text that fit.
static std::string_view syslog_part(std::string_view text, size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80) --size;
  return text.substr(0, size);
}

// A text that other texts need not be told from by more than so much.
static std::string syslog_short(std::string_view text) {
  constexpr size_t longest = 255, digits = 8;
  if (text.size() <= longest) return std::string(text);
  return std::string(syslog_part(text, longest - digits - 1)) + "~" +
         hexadecimal(check_sum(text) & UINT32_MAX, digits);
}

void syslog_message_writer::add_own(syslog_element& element, const shipped_record& shipped,
                                    const pipeline_record& record) const {
  const record_origin& origin = record.said->origin;
  const auto add = [&](const char* name, std::string_view value) {
    if (!value.empty()) element.add(name, syslog_short(value));
  };
  const auto add_number = [&](const char* name, const auto& number) {
    if (number) add(name, std::to_string(*number));
  };
  add("id", identity_text(journal_, segment_, shipped));
  if (record.said->version) add("version", record.said->version->text);
  add_number("event", record.event);
  add("name", record.name);
  add_number("level", record.level);
  add("recorded", origin.recorded);
  add("recorder", origin.recorder);
  add_number("thread", origin.thread);
  add_number("sequence", origin.sequence);
  add("client", origin.client);
  add_number("number", origin.number);
  if (origin.peer) add("peer.user", std::to_string(origin.peer->user));
  if (origin.peer) add("peer.process", std::to_string(origin.peer->process));
}

// Attributes and context, as far as there is room. False where there is too little.
bool syslog_message_writer::append_elements(std::string& text, const pipeline_record& record,
                                            size_t room) const {
  syslog_element attributes(text, "attributes@" + form_.enterprise, room);
  for (const record_attribute& attribute : record.said->attributes)
    attributes.add(attribute.name, attribute.value.text);
  room = attributes.end();
  const std::string_view json = record.said->origin.context;
  if (json.empty()) return !attributes.is_cut();
  syslog_element context(text, "context@" + form_.enterprise, room);
  ondemand::parser parser;
  const simdjson::padded_string padded(json);
  ondemand::document document = parser.iterate(padded);
  add_syslog_members(context, "", document.get_object());
  context.end();
  return !attributes.is_cut() && !context.is_cut();
}

bool syslog_message_writer::append(std::string& frames, const shipped_record& shipped,
                                   const pipeline_record& record) {
  constexpr std::string_view begin_of_message = " \xEF\xBB\xBF";  // which says that it is UTF-8
  constexpr std::string_view cut = " cut=\"true\"";
  std::string shown;
  if (record.said->message) append_log_text(shown, record.said->message->text);
  std::string text = header_of(record);
  const size_t spent = text.size() + begin_of_message.size() + cut.size();
  syslog_element own(text, "kplog@" + form_.enterprise,
                     form_.longest - std::min(form_.longest, spent));
  add_own(own, shipped, record);
  const size_t end_of_own = text.size();
  const size_t room = own.end();
  // Of what is too long, the message has half.
  const bool is_all = append_elements(text, record, room - std::min(shown.size(), room / 2));
  bool is_whole = is_all && !own.is_cut();
  if (!shown.empty()) {
    const size_t used = text.size() + begin_of_message.size() + cut.size();
    const auto part = syslog_part(shown, form_.longest - std::min(form_.longest, used));
    is_whole = is_whole && part.size() == shown.size();
    text += begin_of_message;
    text += part;
  }
  if (!is_whole) text.insert(end_of_own, cut);
  frames += std::to_string(text.size()) + " " + text;
  return is_whole;
}
