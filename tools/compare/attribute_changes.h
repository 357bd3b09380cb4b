// The differences between two lists of attributes.
#ifndef TOOLS_COMPARE_ATTRIBUTE_CHANGES_H
#define TOOLS_COMPARE_ATTRIBUTE_CHANGES_H

#include <vector>

#include "tools/compare/set_changes.h"

struct attribute_pair {
  const attribute_model* before;
  const attribute_model* now;
};

// Which attribute of a list was which of an earlier one: every attribute of both once.
struct attribute_pairs {
  // By their names; a name that comes several times, in its order.
  attribute_pairs(const std::vector<attribute_model>& before,
                  const std::vector<attribute_model>& now);

  // Takes `was`, which is gone, and `is`, which is new, for one.
  void join(const attribute_model* was, const attribute_model* is);

  std::vector<attribute_pair> kept;  // in the earlier order
  std::vector<const attribute_model*> gone;
  std::vector<const attribute_model*> added;
};

// Where differences between attributes are reported, and how.
struct attribute_report {
  const char* what;        // "the attribute "
  event_pair event;        // both null: global attributes
  bool has_notes;          // both sides are sources
  source_place elsewhere;  // what stands for the place of an attribute that is gone
  std::vector<definition_change>& changes;

  definition_change& add(change_rule rule, const attribute_model* was, const attribute_model* is,
                         const std::string& text) const;
};

// Adds another type of an attribute. `was` is the one whose place it takes, null when the name had
// its type from elsewhere.
void add_type_change(kp_AttributeType type_before, const attribute_model& is,
                     const attribute_model* was, const attribute_report& report);

// Adds what is different in two attributes that are one, their names apart.
void add_attribute_changes(const attribute_pair& pair, const attribute_report& report);

// Adds `rule` when those that both lists have stand in another order.
void add_attribute_order_change(const attribute_pairs& pairs, change_rule rule,
                                const attribute_report& report);

// Of pointers into one list, the first that stands before its predecessor; null when none does.
template <class T>
const T* first_misplaced(const std::vector<const T*>& order) {
  for (size_t i = 1; i < order.size(); ++i)
    if (order[i] < order[i - 1]) return order[i];
  return nullptr;
}

#endif
