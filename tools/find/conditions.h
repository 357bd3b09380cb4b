// Which records are shown.
#ifndef TOOLS_FIND_CONDITIONS_H
#define TOOLS_FIND_CONDITIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/kp_time.h"
#include "recording/journal/segment_index.h"
#include "recording/records/event_set.h"
#include "recording/records/parser.h"
#include "tools/find/comparison.h"
#include "tools/find/context_comparison.h"
#include "tools/find/expression.h"
#include "tools/find/moment.h"

// Conditions that are all to hold, as they were written.
struct condition_group {
  std::vector<std::string> events = {};  // each: names, patterns and IDs, with commas between them
  std::vector<std::string> where = {};
  std::vector<std::string> grep = {};
};

struct level_range {
  unsigned lowest = 0;
  unsigned highest = 9;
};

// "0..3", "3", "..3", "5..". Raises std::invalid_argument for any other text.
level_range level_range_of(const std::string& text);

struct find_options {
  std::vector<condition_group> groups = {};  // of which one is to hold; none: every record fits
  // What is to hold beside that.
  std::optional<level_range> levels = {};
  std::optional<std::string> since = {};
  std::optional<std::string> until = {};
  std::optional<std::string> host = {};  // names and patterns, with commas
  std::optional<uint64_t> pid = {};

  bool has_any() const {
    return !groups.empty() || levels.has_value() || since.has_value() || until.has_value() ||
           host.has_value() || pid.has_value();
  }
};

// "web*,db1": names, patterns and IDs. Raises std::invalid_argument, which names the option, where
// one is empty.
std::vector<std::string> names_between_commas(const std::string& option, const std::string& text);

// What --since or --until tells; nothing where it is not given. Raises std::invalid_argument, which
// names the option, for what is no time.
std::optional<kp_Time> told_moment_of(const char* option, const std::optional<std::string>& text,
                                      moment_edge edge, std::chrono::system_clock::time_point now);

// Raises std::invalid_argument for conditions that are none, whatever definitions there are.
void require_readable(const find_options& options);

class record_conditions {
 public:
  // `now` is what times are told from, and the time of records that tell none. The events must live
  // as long as this. Raises std::invalid_argument for a condition that is none, or that the
  // definitions have nothing for; but where these are one version of several, a group that has
  // nothing in them fits none of their records.
  record_conditions(const find_options& options, const event_set& events,
                    std::chrono::system_clock::time_point now, bool are_of_several = false);

  // Of each group why it fits no record; empty where it may.
  std::vector<std::string> group_faults() const;

  // Whether there may be a record that fits in a segment of a journal.
  bool may_fit(const segment_index& segment) const;
  // Whether the record fits, its message aside.
  bool fit(const parsed_record& record);
  // Whether the record that did so fits with its message, too.
  bool fit_message(std::string_view message) const;
  // Whether messages decide at all.
  bool ask_for_messages() const;

 private:
  // Names, patterns and IDs of which one is to fit.
  struct name_choice {
    std::vector<std::string> patterns;
    std::vector<uint32_t> ids;

    bool fits(std::string_view name) const;
    bool fits(const parsed_record& record, const known_event* event) const;
    bool fits_id(uint32_t id) const;
    // Of an event as an index has it.
    bool may_fit(uint32_t id, std::string_view json_name, const known_event* event) const;
  };
  struct group {
    std::vector<name_choice> events;
    std::vector<attribute_comparison> where;
    std::vector<context_comparison> contexts;
    std::vector<text_expression> grep;
    std::string fault;        // of a condition in it
    bool is_fitting = false;  // the last record, its message aside

    bool fits(const parsed_record& record, const known_event* event) const;
    bool may_fit(const segment_index& segment, const event_set& set) const;
  };

  static name_choice choice_of_events(const std::string& text, const event_set& events);
  static group read_group(const condition_group& from, const event_set& events);
  bool fits_all(const parsed_record& record);
  bool fits_time(const parsed_record& record);

  const event_set& events_;
  std::vector<group> groups_;
  std::optional<level_range> levels_;
  std::optional<kp_Time> since_;
  std::optional<kp_Time> until_;  // the last moment
  int64_t since_seconds_ = INT64_MIN;
  int64_t until_seconds_ = INT64_MAX;
  name_choice hosts_;
  std::optional<uint64_t> pid_;
  kp_Time now_;
  known_day day_;                 // of the record before
  std::string time_text_;         // that was looked at last, most often that of the next record
  bool is_time_fitting_ = false;  // that one
};

#endif
