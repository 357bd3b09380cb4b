#include "recording/records/event_set.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "kp_LOG_errors.h"
#include "logging/own_settings.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/compiled_file.h"
#include "recording/definitions/merged_set.h"
#include "recording/files/file_error.h"
#include "recording/files/whole_file.h"
#include "recording/records/lost.h"
#include "recording/text/words.h"

[[noreturn]] static void fail(const std::string& path, const std::string& reason) {
  throw std::runtime_error(path + ": " + reason);
}

// ---- the files ----

// The definitions of a sound file.
static definition_set read_set(const std::string& path) {
  std::string bytes;
  try {
    bytes = read_file(path, definition_file_size_limit);
  } catch (const file_error& error) {
    fail(path, strerror(error.error()));
  }
  auto file = std::make_shared<definition_file>(path, std::move(bytes));
  diagnostic_list found;
  if (!read_definition_file(*file, found)) throw damaged_definitions(file, std::move(found));
  return std::move(file->set);
}

damaged_definitions::damaged_definitions(std::shared_ptr<const definition_file> file,
                                         diagnostic_list found)
    : std::runtime_error("the definition file is damaged"),
      file_(std::move(file)),
      found_(std::move(found)) {}

void damaged_definitions::write(std::ostream& out, diagnostic_format format, bool color) const {
  found_.write(out, file_->set.sources, format, color);
}

static definition_set read_sets(const event_set_options& options) {
  definition_set standard = read_set(options.definitions);
  const definition_set aux = options.aux.empty() ? definition_set() : read_set(options.aux);
  return merged_set(std::move(standard), aux);
}

// By ID. An event's own attribute hides that of every event.
static std::vector<known_event> known_events(definition_set&& set) {
  std::vector<known_event> events;
  for (event_model& from : set.events) {
    known_event& event = events.emplace_back();
    event.id = from.id.value;
    event.name = std::move(from.message.id.value);
    for (attribute_model& attribute : from.attributes)
      event.attributes.push_back({std::move(attribute.name.value), attribute.type});
    for (const attribute_model& global : set.globals)
      if (event.find(global.name.value) == nullptr)
        event.attributes.push_back({global.name.value, global.type});
  }
  std::sort(events.begin(), events.end(),
            [](const known_event& a, const known_event& b) { return a.id < b.id; });
  return events;
}

// ---- the library ----

// Runs a step of the configuration; `subject` is what its error is about.
template <class Step>
static void configure(const std::string& subject, Step step) {
  try {
    step();
  } catch (const KPX_logging_all& error) {
    fail(subject, error.what());
  }
}

static void load_definitions(const event_set_options& options) {
  kp_LOG_LogConfig::ClearDefinitions();
  configure(options.definitions,
            [&] { kp_LOG_LogConfig::SetDefinitionPath(options.definitions.c_str()); });
  if (!options.aux.empty())
    configure(options.aux, [&] { kp_LOG_LogConfig::SetAuxDefinitionPath(options.aux.c_str()); });
}

static void set_messages(const event_set_options& options) {
  kp_log_set_default_code_page("UTF-8");  // of the texts of definitions
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  configure("the locale " + in_quotes(options.locale),
            [&] { kp_LOG_LogConfig::SetLocale(options.locale.c_str()); });
  if (options.catalog.empty()) return kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
  // A relative path would be looked for among ICU's own data.
  const std::string path = std::filesystem::absolute(options.catalog).string();
  configure(options.catalog, [&] { kp_LOG_LogConfig::SetMessageCatalogPath(path.c_str()); });
}

static void declare_zone(const event_set_options& options, const std::vector<known_event>& events) {
  for (const auto& [name, type] : zone_attributes) {
    for (const known_event& event : events) {
      const known_attribute* const held = event.find(name);
      if (held != nullptr && held->type != type)
        fail(options.definitions, std::string("the event ") + std::to_string(event.id) +
                                      " declares " + name + " as a " + short_type_name(held->type) +
                                      "; records need a " + short_type_name(type) +
                                      " there for their time");
    }
    configure(options.definitions, [attribute = name, code = type] {
      kp_LOG_LogEntry::AddAttributeDefinition(0, attribute, code);
    });
  }
}

// ---- the set ----

const known_attribute* known_event::find(std::string_view attribute) const {
  const auto found = std::find_if(attributes.begin(), attributes.end(),
                                  [&](const known_attribute& a) { return a.name == attribute; });
  return found == attributes.end() ? nullptr : &*found;
}

event_set::event_set(const event_set_options& options) {
  definition_set set = read_sets(options);
  version_ = std::move(set.log_version.value);
  events_ = known_events(std::move(set));
  index_events();
  load_definitions(options);
  declare_zone(options, events_);
  set_messages(options);
}

void event_set::index_events() {
  for (const known_event& event : events_) {
    by_id_.emplace(event.id, &event);
    if (event.name.empty()) continue;
    const auto [place, is_new] = by_name_.emplace(event.name, &event);
    if (!is_new) place->second = nullptr;
  }
  if (by_id_.emplace(lost_event().id, &lost_event()).second)
    by_name_.emplace(lost_event().name, &lost_event());
}

const known_event* event_set::find(uint32_t id) const {
  const auto found = by_id_.find(id);
  return found == by_id_.end() ? nullptr : found->second;
}

const known_event* event_set::find(std::string_view name) const {
  const auto found = by_name_.find(name);
  return found == by_name_.end() ? nullptr : found->second;
}

bool event_set::is_ambiguous(std::string_view name) const {
  const auto found = by_name_.find(name);
  return found != by_name_.end() && found->second == nullptr;
}
