// Differences between two sets, for people and for programs.
#ifndef TOOLS_COMPARE_REPORT_H
#define TOOLS_COMPARE_REPORT_H

#include <array>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/compare/changes.h"

// A difference, and why it is accepted.
struct judged_change {
  definition_change change;
  std::string accepted;  // the reason; empty: it is not accepted

  bool is_accepted() const { return !accepted.empty(); }
  unsigned breaks() const { return is_accepted() ? breaks_nobody : change.rule->breaks; }
};

// How many differences break each class, and how many are accepted.
struct changes_summary {
  explicit changes_summary(const std::vector<judged_change>& changes);

  size_t count = 0;
  size_t accepted = 0;
  std::array<size_t, change_classes.size()> breaking{};

  // "5 differences; 2 break source, 1 breaks records; 1 accepted"
  std::string text() const;
};

// The differences by events, a line for each: "FILE:LINE:COLUMN: CODE: text (breaks CLASS, CLASS)",
// and the texts of messages below. Escaped for a terminal, and colored when wanted.
void write_changes_text(std::ostream& out, const std::vector<judged_change>& changes, bool color);

// One object: "differences", and under "breaks" how many break each class. Plain ASCII.
void write_changes_json(std::ostream& out, const std::vector<judged_change>& changes);

#endif
