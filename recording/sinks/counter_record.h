// The records of a counter file (docs/counter-file.md), as the library reads them.
#ifndef RECORDING_SINKS_COUNTER_RECORD_H
#define RECORDING_SINKS_COUNTER_RECORD_H

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/report/diagnostics.h"
#include "recording/report/text_file.h"

constexpr size_t counter_file_size_limit = size_t{64} << 20;  // bytes; larger files are refused

// A day as a record gives it, which need not be one of the calendar: any three numbers.
struct counter_day {
  int32_t year = 0;
  int32_t month = 0;  // from 1
  int32_t day = 0;    // from 1

  auto operator<=>(const counter_day&) const = default;
};

counter_day counter_day_of(const std::chrono::year_month_day& day);

// The same of the calendar; nothing where it has no such day, or not in the years 1 to 9999.
std::optional<std::chrono::year_month_day> calendar_day(const counter_day& day);

// "2026-11-15", whatever the numbers are.
std::string day_text(const counter_day& day);

// "2026-11-15", a day of the calendar; nothing for anything else.
std::optional<counter_day> read_day(const std::string& text);

struct counted_entries {
  counter_day day;
  uint32_t id = 0;  // of the event
  uint64_t count = 0;
};

// --- Records as bytes. What a torn one lacks are zeros. ---

// By the record's own account; kp_counter_record_size unless the file is damaged.
uint32_t counter_record_length(std::string_view bytes, size_t offset);
// A day of zeros is a free slot's.
counted_entries counter_record_at(std::string_view bytes, size_t offset);
std::string new_counter_record(const counted_entries& record);
// Of the record, whole; the rest of it stays as it is.
void set_counter_count(std::string& record, uint32_t count);

// Hands over every record of a counter file's bytes that is no free slot, in their order, and its
// offset. The bytes begin with a record, and may end within one.
void visit_counts(std::string_view bytes,
                  const std::function<void(const counted_entries& record, size_t offset)>& visit);

// The counts of the file, a binary source, by day and ID; each key once, as its first record gives
// it. Adds what is odd about the file, once for each kind, with the first place; what is not as it
// should be is counted all the same, as the library does.
std::vector<counted_entries> read_counter_file(const text_file& file, diagnostic_list& found);

#endif
