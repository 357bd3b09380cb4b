// A set of definitions as its sources state it.
#ifndef RECORDING_DEFINITIONS_MODEL_H
#define RECORDING_DEFINITIONS_MODEL_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kp_LOG_AttributeType.h"
#include "recording/definitions/template.h"
#include "recording/definitions/types.h"
#include "recording/report/text_file.h"

constexpr uint32_t definition_debug_flag = 1u << 26;  // the bit named DEBUG in every set
constexpr size_t log_version_limit = 7;               // bytes
constexpr uint32_t log_level_limit = 9;
constexpr uint32_t usual_log_level = 3;  // of an event whose source says nothing

// A value together with where it was given.
template <class T>
struct placed {
  T value{};
  text_place place{};

  bool is_given() const { return place.source != nullptr; }
};

// Advice that a source does not want, "silence: {CODE: REASON}".
struct silenced_rule {
  placed<std::string> code;
  std::string reason;
};

// A difference from an earlier set that is meant, "accept: {CODE/NAME: {since: VERSION, reason:
// TEXT}}".
struct accepted_difference {
  text_place place{};  // of CODE/NAME
  std::string code;
  std::string name;           // of what is different
  placed<std::string> since;  // the log version of the earlier set
  placed<std::string> reason;

  std::string written() const { return code + "/" + name; }
};

struct attribute_model {
  placed<std::string> name;
  kp_AttributeType type = TypeUnknown;
  placed<std::string> redirection;
  std::string note;
  std::vector<silenced_rule> silenced;
};

// The default message of an event, or one of its selector messages.
struct message_model {
  text_place place{};
  placed<uint32_t> index;  // index, value and name: selector messages only
  placed<uint32_t> value;
  placed<std::string> name;  // of its value in generated headers
  placed<std::string> id;
  placed<std::string> text;    // as authored
  placed<std::string> raw;     // a template as it stands
  std::string template_bytes;  // made of one of the two
};

struct event_model {
  placed<std::string> name;
  message_renderer renderer = message_renderer::icu;  // of its file
  placed<uint32_t> id;
  placed<uint32_t> second_word;
  std::vector<placed<std::string>> flag_names;
  uint32_t flags = 0;  // made of the names
  // The level that programs log it with: a number or a name, its own or its source's. A source
  // says it to generated headers; compiled files do not hold it.
  placed<std::string> level;
  bool has_own_level = false;
  uint32_t default_level = usual_log_level;  // made of it
  std::string note;
  std::vector<attribute_model> attributes;
  placed<std::string> selector;
  message_model message;
  std::vector<message_model> messages;
  std::vector<silenced_rule> silenced;
  std::vector<accepted_difference> accepted;
  bool is_whole = true;  // false: its source breaks off within it
};

// The bits of a flag.
struct flag_model : placed<uint32_t> {
  text_place name_place{};
};

struct id_range {
  uint32_t first = 0;
  uint32_t last = 0;
  text_place place{};

  bool holds(uint32_t id) const { return id >= first && id <= last; }
};

// All sources of a run together.
struct definition_set {
  std::vector<const text_file*> sources;  // not owned
  bool is_whole = true;                   // every source could be read to its end
  bool may_be_auxiliary = false;          // an STD set that is not known may add to it
  placed<std::string> log_version;
  std::map<std::string, flag_model, std::less<>> flags;
  std::map<std::string, placed<uint32_t>, std::less<>> levels;  // by names of identifiers
  std::vector<placed<std::string>> source_levels;               // of sources that give one
  std::vector<attribute_model> globals;
  std::vector<placed<std::string>> code_pages;  // of each source, what its texts fit into
  std::vector<id_range> retired;
  std::vector<id_range> id_ranges;            // of each source, what its events' IDs lie in
  std::vector<silenced_rule> silenced;        // of each source, for all that it defines
  std::vector<accepted_difference> accepted;  // of what concerns no event
  std::vector<event_model> events;            // in the order of the sources
};

#endif
