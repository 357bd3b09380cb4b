#include "tools/ship/asked_records.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "recording/records/lost.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "tools/find/condition_text.h"
#include "tools/find/context_comparison.h"

// --- What needs no definitions ---

archive_query query_without_events(const find_options& options,
                                   std::chrono::system_clock::time_point now) {
  archive_query query;
  if (options.host && utf8_first_invalid(*options.host) != std::string::npos)
    throw std::invalid_argument("--host: the name of a machine is in UTF-8");
  if (options.host) query.hosts = names_between_commas("--host", *options.host);
  // Moments beyond these are told as the nearest: before or behind them all may fit.
  constexpr int64_t farthest = INT64_MAX / 1'000'000'000;
  const auto seconds = [&](const char* option, const auto& text, moment_edge edge) {
    const auto moment = told_moment_of(option, text, edge, now);
    return moment ? std::optional<int64_t>(seconds_of(*moment)) : std::nullopt;
  };
  query.since = seconds("--since", options.since, moment_edge::first);
  query.until = seconds("--until", options.until, moment_edge::last);
  if (query.since && *query.since <= -farthest) query.since.reset();
  if (query.until && *query.until >= farthest) query.until.reset();
  if (options.levels) {
    query.lowest_level = options.levels->lowest;
    query.highest_level = options.levels->highest;
  }
  return query;
}

// --- Events ---

// Every event that one of the versions has and the conditions fit, and IDs that are given as such.
static std::set<uint32_t> events_that_fit(const std::vector<std::string>& events,
                                          const definition_versions& versions,
                                          std::chrono::system_clock::time_point now) {
  std::set<uint32_t> ids;
  const find_options options{.groups = {{.events = events}}};
  for (const auto& version : versions) {
    record_conditions conditions(options, version->events(), now, true);
    const auto take = [&](const known_event& event) {
      const std::string id = std::to_string(event.id);
      parsed_record record;
      record.event = {record_value_kind::integer, id};
      if (conditions.fit(record)) ids.insert(event.id);
    };
    std::ranges::for_each(version->events().events(), take);
    take(lost_event());
  }
  for (const std::string& list : events)
    for (const std::string& part : names_between_commas("--event", list))
      if (const auto id = number_of<uint32_t>(part)) ids.insert(*id);
  return ids;
}

static std::set<uint32_t> events_of(const definition_versions& versions) {
  std::set<uint32_t> ids;
  for (const auto& version : versions)
    for (const known_event& event : version->events().events()) ids.insert(event.id);
  return ids;
}

// --- Attributes ---

// What an attribute is in all events of all versions that declare it.
struct declared_families {
  bool has_boolean = false;
  bool has_integer = false;
  bool has_text = false;
  bool has_others = false;
};

static void take_type(kp_AttributeType type, declared_families& families) {
  if (type == TypeBool)
    families.has_boolean = true;
  else if (type >= TypeUInt1 && type <= TypeSInt4)
    families.has_integer = true;
  else if (type >= TypeChar32 && type <= TypeMBChar2K)
    families.has_text = true;
  else
    families.has_others = true;
}

static declared_families families_of(const std::string& attribute,
                                     const definition_versions& versions) {
  declared_families families;
  const auto take = [&](const known_event& event) {
    if (const known_attribute* const declared = event.find(attribute))
      take_type(declared->type, families);
  };
  for (const auto& version : versions) std::ranges::for_each(version->events().events(), take);
  take(lost_event());
  return families;
}

static std::optional<asked_comparison> asked_of(comparison_operator operation) {
  switch (operation) {
    case comparison_operator::equal:
      return asked_comparison::equal;
    case comparison_operator::less:
      return asked_comparison::less;
    case comparison_operator::at_most:
      return asked_comparison::at_most;
    case comparison_operator::greater:
      return asked_comparison::greater;
    case comparison_operator::at_least:
      return asked_comparison::at_least;
    case comparison_operator::not_equal:
    case comparison_operator::found:
      break;
  }
  return std::nullopt;
}

// Nothing for what only kplog itself compares: regular expressions, times, floating-point numbers,
// the context.
static std::optional<asked_attribute> asked_attribute_of(const std::string& condition,
                                                         const definition_versions& versions) {
  if (context_comparison::is_one(condition)) return std::nullopt;
  condition_reader reader(condition);
  asked_attribute asked;
  asked.name = reader.name();
  const auto comparison = asked_of(reader.operation());
  const std::string value = reader.value();
  const declared_families families = families_of(asked.name, versions);
  if (!comparison || families.has_others) return std::nullopt;
  asked.comparison = *comparison;
  const bool is_equality = *comparison == asked_comparison::equal;
  if (families.has_boolean && is_equality && (value == "true" || value == "false"))
    asked.boolean = value == "true";
  if (families.has_integer) asked.integer = number_of<int64_t>(value);
  // Line breaks of texts are compared as the two characters that entries keep. An engine may have
  // no NUL, and nothing that is not in UTF-8.
  constexpr std::string_view not_asked("\\\r\n\0", 4);
  if (families.has_text && is_equality && value.find_first_of(not_asked) == std::string::npos &&
      utf8_first_invalid(value) == std::string::npos)
    asked.text = value;
  // What is equal is of the same kind; only a text that is not told may be equal otherwise.
  asked.others_fit = !is_equality || (families.has_text && !asked.text);
  const bool says_something = asked.boolean || asked.integer || asked.text;
  return says_something ? std::optional(asked) : std::nullopt;
}

archive_query query_of(const find_options& options, const definition_versions& versions,
                       const definition_versions& others,
                       std::chrono::system_clock::time_point now) {
  archive_query query = query_without_events(options, now);
  const std::set<uint32_t> known = events_of(versions);
  std::set<uint32_t> foreign = events_of(others);
  std::erase_if(foreign, [&](uint32_t event) { return known.contains(event); });
  for (const condition_group& group : options.groups) {
    asked_group asked;
    if (!group.events.empty()) {
      std::set<uint32_t> ids = events_that_fit(group.events, versions, now);
      ids.insert(foreign.begin(), foreign.end());
      asked.events.emplace(ids.begin(), ids.end());
    }
    for (const std::string& condition : group.where)
      if (auto attribute = asked_attribute_of(condition, versions))
        asked.attributes.push_back(std::move(*attribute));
    query.groups.push_back(std::move(asked));
  }
  return query;
}
