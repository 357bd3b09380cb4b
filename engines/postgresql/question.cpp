#include "engines/postgresql/question.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <set>

#include "engines/postgresql/batch_facts.h"
#include "engines/postgresql/copy_rows.h"
#include "recording/text/json_text.h"

std::string pg_statement::value(std::string value) {
  values_.emplace_back(std::move(value));
  return "$" + std::to_string(values_.size());
}

// The events of all groups together; nothing where a group takes any.
static std::optional<std::set<int64_t>> pg_asked_events(const archive_query& query) {
  std::set<int64_t> events;
  for (const asked_group& group : query.groups) {
    if (!group.events) return std::nullopt;
    events.insert(group.events->begin(), group.events->end());
  }
  if (query.groups.empty()) return std::nullopt;
  return events;
}

template <typename Numbers>
static std::string pg_number_array(const Numbers& numbers) {
  std::string text = "{";
  for (const auto number : numbers) text += (text.size() > 1 ? "," : "") + std::to_string(number);
  return text + "}";
}

void add_segment_conditions(pg_statement& statement, const archive_query& query) {
  statement.text(" and s.records > 0 and not s.is_pruned");
  if (std::optional<std::set<int64_t>> events = pg_asked_events(query)) {
    events->insert(pg_unknown_event);
    statement.text(" and s.events && ").add(pg_number_array(*events)).text("::bigint[]");
  }
  if (query.since)
    statement.text(" and (s.has_timeless or s.latest >= ")
        .add(std::to_string(*query.since))
        .text("::bigint)");
  if (query.until)
    statement.text(" and (s.has_timeless or s.earliest <= ")
        .add(std::to_string(*query.until))
        .text("::bigint)");
}

// A double and its neighbour as numbers of any precision: a text that means the double lies between
// its neighbours.
static std::string pg_exact(double value) {
  std::array<char, 1100> digits;
  const int size = std::snprintf(digits.data(), digits.size(), "%.800e", value);
  return {digits.data(), static_cast<size_t>(size)};
}

static std::string pg_comparison_sign(asked_comparison comparison) {
  switch (comparison) {
    case asked_comparison::equal:
      return " = ";
    case asked_comparison::less:
      return " < ";
    case asked_comparison::at_most:
      return " <= ";
    case asked_comparison::greater:
      return " > ";
    case asked_comparison::at_least:
      break;
  }
  return " >= ";
}

// How a number compares with a double, which is what the nearest double of it does.
static std::string pg_real_condition(pg_statement& statement, const std::string& number,
                                     asked_comparison comparison, double real) {
  if (!std::isfinite(real)) return "true";
  static constexpr double endless = std::numeric_limits<double>::infinity();
  const double below = std::nextafter(real, -endless);
  const double above = std::nextafter(real, endless);
  const bool has_least =
      comparison != asked_comparison::less && comparison != asked_comparison::at_most;
  const bool has_most =
      comparison != asked_comparison::greater && comparison != asked_comparison::at_least;
  std::string condition = "true";
  if (has_least && std::isfinite(below))
    condition += " and " + number + " >= " + statement.value(pg_exact(below)) + "::numeric";
  if (has_most && std::isfinite(above))
    condition += " and " + number + " <= " + statement.value(pg_exact(above)) + "::numeric";
  return "(" + condition + ")";
}

static std::string pg_number_condition(pg_statement& statement, const asked_attribute& asked,
                                       const std::string& number) {
  std::string condition = asked.others_fit && !asked.integer && !asked.real ? "true" : "false";
  if (asked.integer)
    condition += " or " + number + pg_comparison_sign(asked.comparison) +
                 statement.value(std::to_string(*asked.integer)) + "::numeric";
  if (asked.real)
    condition += " or " + pg_real_condition(statement, number, asked.comparison, *asked.real);
  return condition;
}

// Texts that are not equal may be moments, or in an order that a database does not know.
static std::string pg_text_condition(pg_statement& statement, const asked_attribute& asked,
                                     const std::string& text) {
  if (!asked.text) return asked.others_fit || asked.real ? "true" : "false";
  if (asked.comparison != asked_comparison::equal) return "true";
  std::string condition = text + " = " + statement.value(*asked.text);
  if (asked.real) condition += " or " + text + " in ('NaN', 'Infinity', '-Infinity')";
  return condition;
}

static std::string pg_truth_condition(const asked_attribute& asked, const std::string& text) {
  if (!asked.boolean) return asked.others_fit ? "true" : "false";
  if (asked.comparison != asked_comparison::equal) return "true";
  return text + " = '" + (*asked.boolean ? "true" : "false") + "'";
}

// Values are looked at by their types: none of it raises, whatever they are.
static std::string pg_attribute_condition(pg_statement& statement, const asked_attribute& asked) {
  const std::string name = statement.value(asked.name) + "::text";
  const std::string text = "(a ->> " + name + ")";
  return "case jsonb_typeof(a -> " + name + ") when 'number' then " +
         pg_number_condition(statement, asked, text + "::numeric") + " when 'string' then " +
         pg_text_condition(statement, asked, text) + " when 'boolean' then " +
         pg_truth_condition(asked, text) + " else a -> " + name + " is not null end";
}

static std::string pg_event_condition(pg_statement& statement, const std::string& events,
                                      bool has_unknown_events) {
  const std::string known = "r.event = any (" + statement.value(events) + "::bigint[])";
  return has_unknown_events ? "(" + known + " or r.event is null)" : known;
}

static std::string pg_group_condition(pg_statement& statement, const asked_group& group,
                                      bool has_unknown_events) {
  std::string condition = "true";
  if (group.events)
    condition = pg_event_condition(statement, pg_number_array(*group.events), has_unknown_events);
  if (group.attributes.empty()) return "(" + condition + ")";
  std::string attributes = "true";
  for (const asked_attribute& asked : group.attributes)
    attributes += " and " + pg_attribute_condition(statement, asked);
  return "(" + condition + " and (select jsonb_typeof(a) <> 'object' or (" + attributes +
         ") from kplog.attributes(r.record) a))";
}

void add_record_conditions(pg_statement& statement, const archive_query& query) {
  if (query.lowest_level > 0)
    statement.text(" and (r.level is null or r.level >= ")
        .add(std::to_string(query.lowest_level))
        .text("::smallint)");
  if (query.highest_level < 9)
    statement.text(" and (r.level is null or r.level <= ")
        .add(std::to_string(query.highest_level))
        .text("::smallint)");
  for (const auto& [bound, sign] : {std::pair(query.since, " >= "), std::pair(query.until, " <= ")})
    if (const std::optional<int64_t> moment = bound ? pg_moment(*bound) : std::nullopt)
      statement.text(std::string(" and (r.time is null or r.time") + sign + "to_timestamp(")
          .add(std::to_string(*bound))
          .text("::float8))");
}

void add_group_conditions(pg_statement& statement, const archive_query& query,
                          bool has_unknown_events) {
  // By these alone an index finds them, also where there are several groups.
  const std::optional<std::set<int64_t>> events = pg_asked_events(query);
  if (events && query.groups.size() > 1)
    statement.text(" and " +
                   pg_event_condition(statement, pg_number_array(*events), has_unknown_events));
  if (query.groups.empty()) return;
  std::string any;
  for (const asked_group& group : query.groups)
    any += (any.empty() ? "" : " or ") + pg_group_condition(statement, group, has_unknown_events);
  statement.text(" and (" + any + ")");
}

static std::string pg_json(std::string_view text) {
  std::string json;
  json_text(json).text(text);
  return json;
}

// What the attribute may be, where only that fits.
static std::vector<std::string> pg_contained(const asked_attribute& asked) {
  if (asked.comparison != asked_comparison::equal || asked.others_fit || asked.real) return {};
  const std::string name = "{" + pg_json(asked.name) + ":";
  std::vector<std::string> objects = {name + "null}"};
  if (asked.boolean) objects.push_back(name + (*asked.boolean ? "true" : "false") + "}");
  if (asked.integer) objects.push_back(name + std::to_string(*asked.integer) + "}");
  if (asked.text) objects.push_back(name + pg_json(*asked.text) + "}");
  return objects;
}

std::optional<std::vector<std::string>> contained_attributes(const archive_query& query) {
  std::vector<std::string> all;
  for (const asked_group& group : query.groups) {
    std::vector<std::string> of_group;
    for (const asked_attribute& asked : group.attributes)
      if (of_group.empty()) of_group = pg_contained(asked);
    if (of_group.empty()) return std::nullopt;
    all.insert(all.end(), of_group.begin(), of_group.end());
  }
  if (all.empty()) return std::nullopt;
  all.emplace_back("\"unreadable\"");
  return all;
}
