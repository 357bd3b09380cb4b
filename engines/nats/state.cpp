#include "engines/nats/state.h"

#include "engines/nats/json.h"
#include "recording/text/number.h"

static void nats_begin_state(json_text& json, const journal_identity& journal) {
  json.begin_object();
  write_any_text(json, "host", journal.host);
  write_any_text(json, "journal", journal.journal);
}

static std::optional<journal_identity> nats_journal_of(const nats_json& json) {
  auto host = json.any_text("host");
  auto journal = json.any_text("journal");
  if (!host || !journal) return std::nullopt;
  return journal_identity{.host = std::move(*host), .journal = std::move(*journal)};
}

std::string nats_text_of(const nats_position& position) {
  std::string text;
  json_text json(text);
  nats_begin_state(json, position.journal);
  write_any_text(json, "segment", position.position.segment);
  const line_extent& extent = position.position.extent;
  json.key("first").text(hexadecimal(position.position.first, 16));
  json.key("lines").number(extent.lines).key("bytes").number(extent.bytes);
  json.key("last").number(extent.last).key("digest").text(hexadecimal(extent.digest, 16));
  json.key("records").number(position.records);
  if (position.newest) json.key("newest").number(*position.newest);
  json.key("created").number(position.created);
  json.key("sequence").number(position.stored.sequence).key("id").text(position.stored.id);
  json.end_object();
  return text;
}

std::optional<nats_position> nats_position_of(std::string_view text) {
  const nats_json json(text);
  auto journal = nats_journal_of(json);
  auto segment = json.any_text("segment");
  const auto first = json.digest("first");
  const auto lines = json.number("lines");
  const auto bytes = json.number("bytes");
  const auto last = json.number("last");
  const auto digest = json.digest("digest");
  const auto sequence = json.number("sequence");
  auto id = json.text("id");
  if (!journal || !segment || !first || !lines || !bytes || !last || !digest || !sequence || !id)
    return std::nullopt;
  return nats_position{
      .journal = std::move(*journal),
      .position = {.segment = std::move(*segment),
                   .first = *first,
                   .extent = {.lines = *lines, .bytes = *bytes, .last = *last, .digest = *digest}},
      .records = json.number("records").value_or(0),
      .newest = json.signed_number("newest"),
      .created = json.signed_number("created").value_or(0),
      .stored = {.sequence = *sequence, .id = std::move(*id)}};
}

std::string nats_text_of(const nats_told_state& told) {
  std::string text;
  json_text json(text);
  nats_begin_state(json, told.journal);
  json.key("waiting_bytes").number(told.state.waiting_bytes);
  json.key("given_up").number(told.state.given_up);
  json.key("exact").written(told.state.is_given_up_exact ? "true" : "false");
  json.end_object();
  return text;
}

std::optional<nats_told_state> nats_told_state_of(std::string_view text) {
  const nats_json json(text);
  auto journal = nats_journal_of(json);
  if (!journal) return std::nullopt;
  return nats_told_state{.journal = std::move(*journal),
                         .state = {.waiting_bytes = json.number("waiting_bytes").value_or(0),
                                   .given_up = json.number("given_up").value_or(0),
                                   .is_given_up_exact = json.is_true("exact")}};
}
