// Records as rows of COPY in its binary form.
#ifndef ENGINES_POSTGRESQL_COPY_ROWS_H
#define ENGINES_POSTGRESQL_COPY_ROWS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/ship/shipped_record.h"

// Microseconds since 2000, as timestamptz has them; nothing for what it cannot hold.
std::optional<int64_t> pg_moment(int64_t seconds);

// What stands before the first row and behind the last.
std::string_view pg_copy_begin();
std::string_view pg_copy_end();

// The row of a record, but for the bytes of its text, which go last: line, digest, time, event,
// level, record.
void append_pg_row(std::string& rows, const shipped_record& record);

#endif
