// The events that records may name: what the definition files say of them, and the library set up
// to make entries of them.
#ifndef RECORDING_RECORDS_EVENT_SET_H
#define RECORDING_RECORDS_EVENT_SET_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kp_LOG_AttributeType.h"
#include "recording/definitions/compiled_file.h"
#include "recording/report/diagnostics.h"

// An attribute that entries of an event may carry.
struct known_attribute {
  std::string name;
  kp_AttributeType type = TypeUnknown;
};

struct known_event {
  uint32_t id = 0;
  std::string name;                         // the default message's ID; empty when there is none
  std::vector<known_attribute> attributes;  // its own, then those of every event, as in the files

  // Null for a name that entries of this event may not carry.
  const known_attribute* find(std::string_view attribute) const;
};

// Where the definitions and messages are, and how messages are told.
struct event_set_options {
  std::string definitions;  // the standard file
  std::string aux;          // empty: none
  std::string catalog;      // folder of the message catalog; empty: the texts of the definitions
  std::string locale;       // empty: that of the environment
};

// A definition file that is damaged, and where.
class damaged_definitions : public std::runtime_error {
 public:
  damaged_definitions(std::shared_ptr<const definition_file> file, diagnostic_list found);

  void write(std::ostream& out, diagnostic_format format, bool color) const;

 private:
  std::shared_ptr<const definition_file> file_;  // what was found points into it
  diagnostic_list found_;
};

class event_set {
 public:
  // Sets the process-wide configuration of the library: definitions, catalog and locale. Inside the
  // process texts are UTF-8, whatever the code page of the output. Every event can be given a time
  // afterwards: the attributes that the library keeps its zone in are declared where the files do
  // not. Raises damaged_definitions, and std::runtime_error, with the path in front, for a file
  // that cannot be read or is refused by the library, and for a name that is no locale's.
  explicit event_set(const event_set_options& options);
  // Events are handed out by address.
  event_set(const event_set&) = delete;
  event_set& operator=(const event_set&) = delete;

  // Event 0 is kplog.lost (recording/records/lost.h) where the files have none.
  const known_event* find(uint32_t id) const;
  // By the default message's ID. Null as well when two events share it: is_ambiguous says so.
  const known_event* find(std::string_view name) const;
  bool is_ambiguous(std::string_view name) const;

  const std::string& version() const { return version_; }  // the log version of the standard file
  const std::vector<known_event>& events() const { return events_; }  // of the files, by ID

 private:
  void index_events();

  std::string version_;
  std::vector<known_event> events_;
  std::unordered_map<uint32_t, const known_event*> by_id_;
  std::unordered_map<std::string_view, const known_event*> by_name_;  // null: ambiguous
};

#endif
