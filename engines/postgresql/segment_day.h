// Days of segments, by the names of these.
#ifndef ENGINES_POSTGRESQL_SEGMENT_DAY_H
#define ENGINES_POSTGRESQL_SEGMENT_DAY_H

#include <cstdint>
#include <string>
#include <string_view>

// Days since 2000-01-01 of "shop.20261115.0001.jsonl"; of a name that has none of the calendar's
// days, the first of the year 0000.
int64_t pg_segment_day(std::string_view segment);

// Days since 2000-01-01 of "20261115", and back. Raises engine_error for what is no day.
int64_t pg_day_number(std::string_view day);
std::string pg_day_text(int64_t number);

#endif
