#include "engines/nats/message.h"

#include <algorithm>

#include "engines/nats/json.h"
#include "recording/text/check_sum.h"
#include "recording/text/number.h"

// "1-64,70": ascending numbers of lines.
static std::string nats_line_ranges(std::span<const shipped_record* const> records) {
  std::string ranges;
  for (size_t i = 0; i < records.size();) {
    const uint64_t from = records[i]->line;
    uint64_t to = from;
    while (++i < records.size() && to != UINT64_MAX && records[i]->line == to + 1) ++to;
    if (!ranges.empty()) ranges += ',';
    ranges += std::to_string(from);
    if (to != from) ranges += '-' + std::to_string(to);
  }
  return ranges;
}

// More lines are in no message, whoever wrote it.
static constexpr uint64_t most_lines_of_message = 1 << 20;

static bool read_nats_line_ranges(std::string_view ranges, std::vector<uint64_t>& lines) {
  while (!ranges.empty()) {
    const size_t end = std::min(ranges.find(','), ranges.size());
    const std::string_view range = ranges.substr(0, end);
    ranges.remove_prefix(std::min(end + 1, ranges.size()));
    const size_t dash = range.find('-');
    const auto from = number_of<uint64_t>(range.substr(0, dash));
    const auto to =
        dash == std::string_view::npos ? from : number_of<uint64_t>(range.substr(dash + 1));
    if (!from || !to || *to < *from || *to - *from >= most_lines_of_message - lines.size())
      return false;
    for (uint64_t line = *from;; ++line) {
      lines.push_back(line);
      if (line == *to) break;
    }
  }
  return !lines.empty();
}

static void begin_nats_message(std::string& message, const journal_identity& journal,
                               const std::string& segment, const std::string& lines) {
  message.clear();
  json_text json(message);
  json.begin_object().key("kplog").number(1);
  write_any_text(json, "host", journal.host);
  write_any_text(json, "journal", journal.journal);
  write_any_text(json, "segment", segment);
  json.key("lines").text(lines);
}

void write_nats_message(std::string& message, const journal_identity& journal,
                        const std::string& segment,
                        std::span<const shipped_record* const> records) {
  begin_nats_message(message, journal, segment, nats_line_ranges(records));
  message += "}\n";
  for (const shipped_record* const record : records) {
    message += record->text;
    message += '\n';
  }
}

void write_nats_part(std::string& message, const journal_identity& journal,
                     const std::string& segment, const shipped_record& record,
                     const nats_part& part, std::string_view bytes) {
  begin_nats_message(message, journal, segment, std::to_string(record.line));
  json_text json(message);
  json.key("digest").text(hexadecimal(part.digest, 16)).key("part").number(part.number);
  json.key("size").number(part.size);
  json.key("last").written(part.is_last ? "true" : "false");
  message += "}\n";
  message += bytes;
}

std::optional<nats_message_head> read_nats_message(std::string_view& message) {
  const size_t end = message.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  const nats_json json(message.substr(0, end));
  auto host = json.any_text("host");
  auto journal = json.any_text("journal");
  auto segment = json.any_text("segment");
  const auto lines = json.text("lines");
  nats_message_head head;
  if (json.number("kplog") != 1 || !host || !journal || !segment || !lines ||
      !read_nats_line_ranges(*lines, head.lines))
    return std::nullopt;
  head.journal = {.host = std::move(*host), .journal = std::move(*journal)};
  head.segment = std::move(*segment);
  if (const auto part = json.number("part")) {
    const auto digest = json.digest("digest");
    const auto size = json.number("size");
    if (!digest || !size || head.lines.size() != 1) return std::nullopt;
    head.part = {
        .number = *part, .is_last = json.is_true("last"), .size = *size, .digest = *digest};
  }
  message.remove_prefix(end + 1);
  return head;
}

static uint64_t nats_sum_of_number(uint64_t number, uint64_t sum) {
  return check_sum({reinterpret_cast<const char*>(&number), sizeof number}, sum);
}

std::string nats_message_id(const journal_identity& journal, const std::string& segment,
                            std::span<const shipped_record* const> records,
                            const std::optional<nats_part>& part) {
  const char end = '\0';
  uint64_t place = check_sum(journal.host);
  place = check_sum(journal.journal, check_sum({&end, 1}, place));
  place = check_sum(segment, check_sum({&end, 1}, place));
  uint64_t content = check_sum_begin;
  for (const shipped_record* const record : records)
    content = nats_sum_of_number(record->digest, nats_sum_of_number(record->line, content));
  const shipped_record& first = *records.front();
  std::string id = hexadecimal(place, 16) + '-' + std::to_string(first.line) + '-' +
                   hexadecimal(first.digest, 16) + '-' + std::to_string(records.size()) + '-' +
                   hexadecimal(content, 16);
  if (part) id += '-' + std::to_string(part->size) + '-' + std::to_string(part->number);
  return id;
}
