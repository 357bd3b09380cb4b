// What a run found fault with, and how it is shown.
#ifndef TOOLS_DIAGNOSTICS_H
#define TOOLS_DIAGNOSTICS_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/diagnostic_rules.h"
#include "tools/source_text.h"

struct diagnostic_note {
  source_place place;
  std::string text;
};

struct diagnostic {
  diagnostic_rule rule;
  source_place place;
  std::string text;
  std::vector<diagnostic_note> notes = {};  // the other places of a conflict
};

enum class diagnostic_format { text, json };

class diagnostic_list {
 public:
  void add(diagnostic found) { found_.push_back(std::move(found)); }
  void add(diagnostic_rule rule, const source_place& place, std::string text) {
    found_.push_back({rule, place, std::move(text)});
  }
  // With a note for the place that came first.
  void add(diagnostic_rule rule, const source_place& place, std::string text,
           const source_place& other, std::string note) {
    found_.push_back({rule, place, std::move(text), {{other, std::move(note)}}});
  }

  bool empty() const { return found_.empty(); }
  size_t size() const { return found_.size(); }

  // Writes all in the order of the sources in `sources` and of their places there.
  //   text: "FILE:LINE:COLUMN: error[CODE]: text", the line, a caret; notes the same way.
  //   json: one object per line: file, line, column, severity, code, text, notes.
  void write(std::ostream& out, const std::vector<const source_text*>& sources,
             diagnostic_format format, bool color) const;

 private:
  std::vector<diagnostic> found_;
};

#endif
