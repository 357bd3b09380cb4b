// Where a record came from: what a recorder tells beside the event.
#ifndef RECORDING_RECORDS_ORIGIN_H
#define RECORDING_RECORDS_ORIGIN_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "recording/text/line_writer.h"

// What is empty, or nothing, is not known, and no record tells it. The texts belong to whoever made
// this: the parser's live until its next record.
struct record_origin {
  std::string_view recorded;  // when, as record_origin_time_example
  std::string_view host;
  std::string_view recorder;  // the identity of one
  std::optional<uint64_t> pid;
  std::optional<uint64_t> thread;
  std::optional<uint64_t> sequence;  // among the events of its recorder, from 1
};

// Whether the text is a time with an offset, or Z, and up to nine digits of a second's fraction.
inline constexpr char record_origin_time_example[] =
    "a time such as \"2026-11-15T17:02:56.123456789+08:00\"";
bool is_record_origin_time(std::string_view text);

// Appends what is known as members of the stored form, behind another one.
void append_origin(line_writer& line, const record_origin& origin);

#endif
