// What a run found fault with, and how it is shown.
#ifndef RECORDING_REPORT_DIAGNOSTICS_H
#define RECORDING_REPORT_DIAGNOSTICS_H

#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "recording/report/rules.h"
#include "recording/report/text_file.h"

struct diagnostic_note {
  text_place place;
  std::string text;
};

struct diagnostic {
  diagnostic_rule rule;
  text_place place;
  std::string text;
  std::vector<diagnostic_note> notes = {};  // the other places of a conflict
};

enum class diagnostic_format { text, json };

class diagnostic_list {
 public:
  // Says how severe findings of a rule are from now on; `off` drops them.
  void set_severity(diagnostic_rule rule, rule_severity severity) {
    severities_.emplace_back(rule, severity);
  }

  void add(diagnostic found) {
    if (severity_of(found.rule) != rule_severity::off) found_.push_back(std::move(found));
  }
  void add(diagnostic_rule rule, const text_place& place, std::string text) {
    add({rule, place, std::move(text)});
  }
  // With a note for the place that came first.
  void add(diagnostic_rule rule, const text_place& place, std::string text, const text_place& other,
           std::string note) {
    add({rule, place, std::move(text), {{other, std::move(note)}}});
  }

  bool empty() const { return found_.empty(); }
  size_t size() const { return found_.size(); }
  size_t count(rule_severity severity) const;
  bool has(diagnostic_rule rule) const;

  // Writes all in the order of the sources in `sources` and of their places there, and flushes
  // behind each.
  //   text: "FILE:LINE:COLUMN: error[CODE]: text", or "warning", the line, a caret; notes the same
  //         way.
  //   json: one object per line: file, line, column, severity, code, text, notes.
  // In a file that is no text, "FILE:0xOFFSET" and its bytes, and "offset" in JSON. Of a file that
  // was not opened, "kplog: text", and no place in JSON.
  void write(std::ostream& out, const std::vector<const text_file*>& sources,
             diagnostic_format format, bool color) const;
  // The same of the first `limit` of them; the result is how many are left.
  size_t write_first(size_t limit, std::ostream& out, const std::vector<const text_file*>& sources,
                     diagnostic_format format, bool color) const;

 private:
  rule_severity severity_of(diagnostic_rule rule) const;

  std::vector<diagnostic> found_;
  std::vector<std::pair<diagnostic_rule, rule_severity>> severities_;  // that were set, in turn
};

#endif
