// The differences between two sets.
#ifndef TOOLS_COMPARE_SET_CHANGES_H
#define TOOLS_COMPARE_SET_CHANGES_H

#include <string>
#include <vector>

#include "recording/definitions/model.h"
#include "recording/definitions/standard_set.h"
#include "recording/report/change_rules.h"
#include "tools/compare/pairs.h"

struct definition_change {
  change_rule rule{};
  event_pair event = {};     // both null: a difference of the set
  source_place before = {};  // where the difference stands; source null: nowhere
  source_place now = {};
  std::string text;  // names what differs
  // What differs, as it is called now and as it was: an attribute, a message's ID, a flag, an
  // event.
  std::vector<std::string> names;
  std::string before_text = {};  // of messages and notes
  std::string now_text = {};
};

// A set to compare, and whether it knows what compiled files have no room for: the names of events,
// flags and selector messages, notes, ranges of IDs.
struct compared_set {
  const definition_set& set;
  bool is_source = true;
  const std_definitions* standard = nullptr;  // the STD set of an AUX set
};

// All differences between complete sets, those of the sets first, then event by event.
std::vector<definition_change> definition_changes(const compared_set& before,
                                                  const compared_set& now);

// Shared with definition_changes: adds the differences between an event and what it is now.
void add_event_changes(const compared_set& before, const compared_set& now, const event_pair& event,
                       std::vector<definition_change>& changes);

// Adds the differences between the messages of the two, the default message's ID apart. The sets
// know the types of attributes.
void add_message_changes(const compared_set& before, const compared_set& now,
                         const event_pair& event, std::vector<definition_change>& changes);

// Where differences of a message stand.
source_place message_place(const message_model& message, const event_model& event);

// The rule of an attribute that has another type now.
change_rule type_change_rule(kp_AttributeType before, kp_AttributeType now);

#endif
