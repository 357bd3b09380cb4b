// How many records there are, by what they have in common.
#ifndef TOOLS_FIND_COUNTS_H
#define TOOLS_FIND_COUNTS_H

#include <chrono>
#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/kp_time.h"
#include "recording/records/event_set.h"
#include "recording/records/parser.h"

// In the order of their names: see count_key_names.
enum class count_key { event, level, host, hour, day, month };

const std::vector<std::string>& count_key_names();

// In the order of their names: see count_format_names.
enum class count_format { table, json, csv, svg };

const std::vector<std::string>& count_format_names();
count_format count_format_of(const std::string& name);

class record_counts {
 public:
  // So many rows; what belongs into further ones is counted together in one more.
  static constexpr size_t most_rows = 100'000;

  // Keys are by their names; one that comes again counts for nothing. `now` is the time of records
  // that tell none.
  record_counts(const std::vector<std::string>& keys, std::chrono::system_clock::time_point now);

  // `events` are those that the record is of.
  void add(const parsed_record& record, const event_set& events);

  // The rows in UTF-8, ordered by their keys from the first to the last: events and hosts by name,
  // levels by number, times by instant, told in the zone of this machine.
  //   table  columns; with a bar for each row where `width`, the cells of a line, leaves room
  //   json   one object, with an object for each row
  //   csv    below a heading
  //   svg    a picture with a bar for each row
  std::string shown(count_format format, size_t width) const;

 private:
  // What a row has for a key. The text of one that has nothing is empty.
  struct row_value {
    int64_t order = 0;  // of levels and times
    std::string text;

    auto operator<=>(const row_value&) const = default;
  };
  using row_key = std::vector<row_value>;

  void take(count_key key, const parsed_record& record, const event_set& events, row_value& value);
  void take_time(count_key key, const parsed_record& record, row_value& value);
  void tell_time(const parsed_record& record);
  std::vector<std::string> key_names() const;
  uint64_t total() const;
  std::string table(size_t width) const;
  std::string json() const;
  std::string csv() const;
  std::string picture() const;

  std::vector<count_key> keys_;
  kp_Time now_;
  std::map<row_key, uint64_t> counts_;
  uint64_t rest_ = 0;      // of records without a row
  row_key key_;            // of the record at hand; reused
  std::string time_text_;  // that was told last, most often that of the next record
  kp_Time told_;           // the same in the zone of this machine
  bool is_told_ = false;   // the record at hand has a time
};

#endif
