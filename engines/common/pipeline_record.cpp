#include "engines/common/pipeline_record.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

#include "recording/records/values.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"

namespace ondemand = simdjson::ondemand;

struct pipeline_record_reader::state {
  record_parser parser;
  ondemand::parser types;
  std::vector<char> buffer;
};

pipeline_record_reader::pipeline_record_reader() : state_(std::make_unique<state>()) {}
pipeline_record_reader::~pipeline_record_reader() = default;

// Whether a value of the type Float may be written like that and look like one of another type.
static bool is_perhaps_real(const record_value& value) {
  static constexpr std::array<std::string_view, 3> specials = {"NaN", "Infinity", "-Infinity"};
  return value.kind == record_value_kind::integer ||
         (value.kind == record_value_kind::text &&
          std::find(specials.begin(), specials.end(), value.text) != specials.end());
}

// The line is one that the parser of records has taken: all of it is JSON.
static void mark_reals(std::string_view line, std::vector<char>& buffer, ondemand::parser& parser,
                       std::vector<record_attribute>& attributes) {
  buffer.assign(line.begin(), line.end());
  buffer.resize(line.size() + simdjson::SIMDJSON_PADDING);
  auto document = parser.iterate(buffer.data(), line.size(), buffer.size());
  ondemand::object types;
  if (document.find_field_unordered("types").get(types) != simdjson::SUCCESS) return;
  for (auto field : types) {
    std::string_view name, type;
    if (field.unescaped_key().get(name) != simdjson::SUCCESS) return;
    if (field.value().get(type) != simdjson::SUCCESS) return;
    if (type != "Float") continue;
    for (record_attribute& attribute : attributes)
      if (attribute.name == name) attribute.value.kind = record_value_kind::real;
  }
}

// The digits of a pattern like "####-##-##T##:##:##", as numbers; nothing for what is not like it.
static std::optional<std::vector<int>> numbers_like(std::string_view pattern,
                                                    std::string_view text) {
  if (text.size() != pattern.size()) return std::nullopt;
  std::vector<int> numbers(1);
  for (size_t i = 0; i < text.size(); ++i) {
    const bool is_digit = text[i] >= '0' && text[i] <= '9';
    if (is_digit != (pattern[i] == '#') || (!is_digit && text[i] != pattern[i])) return {};
    if (is_digit)
      numbers.back() = numbers.back() * 10 + (text[i] - '0');
    else
      numbers.push_back(0);
  }
  return numbers;
}

std::optional<int64_t> told_moment_of(std::string_view text) {
  constexpr size_t zone_at = sizeof "2026-11-15T17:02:56" - 1;
  constexpr size_t most_fraction = sizeof ".123456789" - 1;
  const auto clock = numbers_like("####-##-##T##:##:##", text.substr(0, zone_at));
  if (!clock) return std::nullopt;
  text.remove_prefix(zone_at);
  if (text.starts_with('.')) {
    const size_t end = std::min(text.find_first_not_of("0123456789", 1), text.size());
    if (end == 1 || end > most_fraction) return std::nullopt;
    text.remove_prefix(end);
  }
  int64_t offset = 0;
  if (text != "Z") {
    const bool is_behind = text.starts_with('-');
    const auto zone = numbers_like(is_behind ? "-##:##" : "+##:##", text);
    if (!zone) return std::nullopt;
    offset = (int64_t{zone->at(1)} * 60 + zone->at(2)) * (is_behind ? -60 : 60);
  }
  const std::chrono::year_month_day day{std::chrono::year(clock->at(0)),
                                        std::chrono::month(static_cast<unsigned>(clock->at(1))),
                                        std::chrono::day(static_cast<unsigned>(clock->at(2)))};
  if (!day.ok() || clock->at(3) > 23 || clock->at(4) > 59 || clock->at(5) > 59) return std::nullopt;
  const int64_t days = std::chrono::sys_days(day).time_since_epoch().count();
  return ((days * 24 + clock->at(3)) * 60 + clock->at(4)) * 60 + clock->at(5) - offset;
}

static void read_times(const parsed_record& said, const shipped_record& shipped,
                       pipeline_record& record) {
  if (said.time) record.time = told_moment_of(said.time->text);
  if (!record.time) record.time = shipped.time;
  if (said.origin.recorded.empty()) return;
  record.recorded = told_moment_of(said.origin.recorded);
  std::string recorded(said.origin.recorded);
  const std::string fraction = take_second_fraction(recorded);
  if (!fraction.empty()) record.fraction = fraction.substr(1);
}

const pipeline_record* pipeline_record_reader::read(const shipped_record& record) {
  parsed_record* const said = state_->parser.try_parse(record.text);
  if (said == nullptr) {
    fault_ = "is no record: " + terminal_text(state_->parser.error().text());
    return nullptr;
  }
  const auto is_unclear = [](const record_attribute& a) { return is_perhaps_real(a.value); };
  if (std::any_of(said->attributes.begin(), said->attributes.end(), is_unclear))
    mark_reals(record.text, state_->buffer, state_->types, said->attributes);
  record_ = {.said = said, .event = record.event, .level = record.level};
  const bool has_id = said->event.kind == record_value_kind::integer;
  if (!record_.event && has_id) record_.event = number_of<uint32_t>(said->event.text);
  if (said->name) record_.name = said->name->text;
  if (record_.name.empty() && !has_id) record_.name = said->event.text;
  if (!record_.level) record_.level = said->level;
  read_times(*said, record, record_);
  return &record_;
}

std::string_view name_of_journal(const journal_identity& journal) {
  const std::string_view path = journal.journal;
  return path.substr(path.rfind('/') + 1);
}

std::string identity_text(const journal_identity& journal, std::string_view segment,
                          const shipped_record& record) {
  return journal.host + ":" + journal.journal + ":" + std::string(segment) + ":" +
         std::to_string(record.line) + ":" + hexadecimal(record.digest, 16);
}
