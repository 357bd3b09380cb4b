// The differences between two sets.
#ifndef TOOLS_COMPARE_CHANGES_H
#define TOOLS_COMPARE_CHANGES_H

#include <string>
#include <vector>

#include "recording/definitions/merged_set.h"
#include "recording/definitions/model.h"
#include "recording/report/rules.h"

struct event_pair {
  const event_model* before = nullptr;  // null: the event is new
  const event_model* now = nullptr;     // null: the event is gone
};

struct definition_change {
  change_rule rule{};
  event_pair event = {};   // both null: a difference of the set
  text_place before = {};  // where the difference stands; source null: nowhere
  text_place now = {};
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

// --- What the files of this room share

// Every event of both sets once: those of `now` in their order, then those that are gone. An event
// is known by its ID and its name, then by its ID unless everything else differs, then by its name,
// then by having the same attributes and message.
std::vector<event_pair> pair_events(const definition_set& before, const definition_set& now);

// Adds the differences between an event and what it is now.
void add_event_changes(const compared_set& before, const compared_set& now, const event_pair& event,
                       std::vector<definition_change>& changes);

// Adds the differences between the messages of the two, the default message's ID apart. The sets
// know the types of attributes.
void add_message_changes(const compared_set& before, const compared_set& now,
                         const event_pair& event, std::vector<definition_change>& changes);

// Where differences of a message stand.
text_place message_place(const message_model& message, const event_model& event);

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
  const char* what;      // "the attribute "
  event_pair event;      // both null: global attributes
  bool has_notes;        // both sides are sources
  text_place elsewhere;  // what stands for the place of an attribute that is gone
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
