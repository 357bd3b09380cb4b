// Lines that one thread makes entries of, and what they have become: where much is to be read,
// several threads have a pack each.
#ifndef TOOLS_EMIT_LINE_PACK_H
#define TOOLS_EMIT_LINE_PACK_H

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "recording/files/client_numbers.h"
#include "recording/files/dated_name.h"
#include "recording/records/definition_version.h"
#include "recording/records/input.h"
#include "recording/sinks/line_form.h"
#include "tools/emit/record_making.h"
#include "tools/emit/run_report.h"

// What has become of a pack's lines.
struct pack_result {
  struct refused_line {
    size_t line;  // its index
    const known_event* event;
    diagnostic_rule rule;
    std::optional<record_finding> finding;  // nothing: it has not been looked for
  };
  // Lines of outputs, of records that follow each other and are of one day.
  struct day_lines {
    log_day day;
    std::vector<size_t> ends;  // in the text of each output
  };

  std::vector<std::string> texts;  // by output
  std::vector<day_lines> days;
  std::map<std::pair<log_day, uint32_t>, uint64_t> counts;  // of events
  emit_tallies tallies;                                     // of what is not refused
  std::set<const known_event*> from_definition;             // whose messages the catalog lacks
  std::vector<refused_line> refused;
  client_progress progress;
  std::exception_ptr failure;  // that ended it

  void clear();
};

class line_pack {
 public:
  // Whether the line has room in it. In an empty one any has.
  bool has_room_for(const record_line& line) const {
    return lines_.empty() || text_.size() + line.text.size() <= most_text;
  }
  void add(const record_line& line);
  void clear();
  bool empty() const { return lines_.empty(); }
  const std::vector<record_line>& lines() const { return lines_; }
  size_t bytes() const { return text_.size(); }
  const kp_Time& begun() const { return begun_; }  // when the first line came

  pack_result result;

 private:
  static constexpr size_t most_text = size_t{128} << 10;

  kp_Time begun_;
  std::string text_;  // of the lines, which point into it
  std::vector<record_line> lines_;
};

// Makes entries of packs, one thread at a time.
class pack_maker {
 public:
  // The definitions and the filter must live as long.
  pack_maker(definition_version& definitions, const emit_filter& filter, const record_rules& rules,
             std::vector<std::unique_ptr<line_form>> forms);

  // Fills its result. What is raised is its failure.
  void make(line_pack& pack);

 private:
  void make_lines(const line_pack& pack, pack_result& result);
  void add(const sink_entry& entry, pack_result& result);

  definition_version& definitions_;
  record_making making_;
  std::vector<std::unique_ptr<line_form>> forms_;  // of the outputs
  bool stops_;                                     // at a line that is refused
};

#endif
