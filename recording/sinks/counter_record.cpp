#include "recording/sinks/counter_record.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "logging/counter_format.h"
#include "recording/text/number.h"
#include "recording/text/words.h"

counter_day counter_day_of(const std::chrono::year_month_day& day) {
  return {int{day.year()}, static_cast<int32_t>(unsigned{day.month()}),
          static_cast<int32_t>(unsigned{day.day()})};
}

std::optional<std::chrono::year_month_day> calendar_day(const counter_day& day) {
  if (day.year < 1 || day.year > 9999 || day.month < 1 || day.month > 12 || day.day < 1 ||
      day.day > 31)
    return std::nullopt;
  const auto found = std::chrono::year(day.year) / day.month / day.day;
  return found.ok() ? std::optional(found) : std::nullopt;
}

std::string day_text(const counter_day& day) {
  char text[64];
  static_cast<void>(snprintf(text, sizeof text, "%04d-%02d-%02d", day.year, day.month, day.day));
  return text;
}

std::optional<counter_day> read_day(const std::string& text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  const auto number = [&](size_t first, size_t digits) {
    return number_of<uint16_t>(std::string_view(text).substr(first, digits)).value_or(0);
  };
  const counter_day day = {number(0, 4), number(5, 2), number(8, 2)};
  return calendar_day(day) ? std::optional(day) : std::nullopt;
}

static _kp_LOG_EntryCounterElement element_at(std::string_view bytes, size_t offset) {
  char record[kp_counter_record_size] = {};
  if (offset < bytes.size()) bytes.copy(record, sizeof record, offset);
  _kp_LOG_EntryCounterElement element;
  kp_counter_decode(record, element);
  return element;
}

uint32_t counter_record_length(std::string_view bytes, size_t offset) {
  return element_at(bytes, offset).length;
}

counted_entries counter_record_at(std::string_view bytes, size_t offset) {
  const _kp_LOG_EntryCounterElement element = element_at(bytes, offset);
  return {{element.year, element.month, element.day},
          static_cast<uint32_t>(element.entry_id),
          element.count};
}

std::string new_counter_record(const counted_entries& record) {
  _kp_LOG_EntryCounterElement element;
  element.year = record.day.year;
  element.month = record.day.month;
  element.day = record.day.day;
  element.entry_id = static_cast<int32_t>(record.id);
  element.count = static_cast<uint32_t>(record.count);
  std::string bytes(kp_counter_record_size, '\0');
  kp_counter_encode(element, bytes.data());
  return bytes;
}

void set_counter_count(std::string& record, uint32_t count) {
  kp_counter_put_count(record.data(), count);
}

// Records with one thing odd about them: the first of them, and how many there are.
struct odd_records {
  size_t first = 0;
  size_t count = 0;

  void add(size_t offset) {
    if (count++ == 0 || offset < first) first = offset;
  }
  std::string others() const {
    if (count < 2) return "";
    return count == 2 ? "; so is 1 more record" : "; so are " + counted(count - 1, "more record");
  }
};

struct placed_count {
  counted_entries entries;
  size_t offset = 0;

  auto key() const { return std::tie(entries.day, entries.id); }
};

void visit_counts(std::string_view bytes,
                  const std::function<void(const counted_entries& record, size_t offset)>& visit) {
  for (size_t offset = 0; offset < bytes.size(); offset += kp_counter_record_size) {
    const counted_entries record = counter_record_at(bytes, offset);
    if (record.day != counter_day{}) visit(record, offset);
  }
}

static std::vector<placed_count> records_of(std::string_view bytes) {
  std::vector<placed_count> records;
  visit_counts(bytes, [&](const counted_entries& entries, size_t offset) {
    records.push_back({entries, offset});
  });
  return records;
}

static void check_records(const text_file& file, const std::vector<placed_count>& records,
                          diagnostic_list& found) {
  odd_records lengths;
  odd_records days;
  for (const placed_count& record : records) {
    if (counter_record_length(file.bytes(), record.offset) != kp_counter_record_size)
      lengths.add(record.offset);
    if (!calendar_day(record.entries.day)) days.add(record.offset);
  }
  if (lengths.count != 0)
    found.add("counter-length"_rule, {&file, lengths.first},
              "this record is " +
                  std::to_string(counter_record_length(file.bytes(), lengths.first)) +
                  " bytes long by its own account, not 32" + lengths.others());
  if (days.count != 0)
    found.add("counter-day"_rule, {&file, days.first + kp_counter_key_offset},
              "the calendar has no day " +
                  day_text(counter_record_at(file.bytes(), days.first).day) + days.others());
}

static void check_end(const text_file& file, diagnostic_list& found) {
  const size_t rest = file.bytes().size() % kp_counter_record_size;
  if (rest == 0) return;
  found.add("counter-torn"_rule, {&file, file.bytes().size() - rest},
            "the last record is cut off behind " + counted(rest, "byte") +
                "; zeros are taken for the others");
}

// Leaves the first record of each key, in the order of the keys.
static void leave_first_records(const text_file& file, std::vector<placed_count>& records,
                                diagnostic_list& found) {
  std::sort(records.begin(), records.end(), [](const placed_count& a, const placed_count& b) {
    return std::tuple(a.key(), a.offset) < std::tuple(b.key(), b.offset);
  });
  odd_records again;
  size_t of_first = 0;
  size_t kept = 0;
  for (const placed_count& record : records) {
    if (kept == 0 || records[kept - 1].key() != record.key()) {
      records[kept++] = record;
      continue;
    }
    again.add(record.offset);
    if (again.first == record.offset) of_first = records[kept - 1].offset;
  }
  records.resize(kept);
  if (again.count == 0) return;
  found.add(
      "counter-duplicate"_rule, {&file, again.first},
      "this record is not counted: another of this day and ID stands before it" + again.others(),
      {&file, of_first}, "this one is counted");
}

std::vector<counted_entries> read_counter_file(const text_file& file, diagnostic_list& found) {
  std::vector<placed_count> records = records_of(file.bytes());
  check_records(file, records, found);
  check_end(file, found);
  leave_first_records(file, records, found);
  std::vector<counted_entries> counts(records.size());
  std::transform(records.begin(), records.end(), counts.begin(),
                 [](const placed_count& record) { return record.entries; });
  return counts;
}
