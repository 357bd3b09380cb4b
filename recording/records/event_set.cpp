#include "recording/records/event_set.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_LogEntry.h"
#include "kp_LOG_errors.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/reader.h"
#include "recording/files/read_file.h"
#include "recording/text/words.h"

[[noreturn]] static void fail(const std::string& path, const std::string& reason) {
  throw std::runtime_error(path + ": " + reason);
}

// ---- the files ----

// The definitions of a sound file.
static definition_set read_set(const std::string& path) {
  std::string bytes;
  if (!read_file(path, bytes, definition_file_size_limit)) fail(path, strerror(errno));
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

static auto find_by_name(std::vector<known_attribute>& attributes, const std::string& name) {
  return std::find_if(attributes.begin(), attributes.end(),
                      [&](const known_attribute& held) { return held.name == name; });
}

// As the library keeps attributes: one that is declared again moves to the end.
static void declare(std::vector<known_attribute>& attributes, const attribute_model& added) {
  const auto held = find_by_name(attributes, added.name.value);
  if (held != attributes.end()) attributes.erase(held);
  attributes.push_back({added.name.value, added.type});
}

// What the files say, in the order in which the library loads them.
class event_collection {
 public:
  // A file that adds to another keeps the other's default message, unless it brings a whole one.
  void add(const definition_set& set) {
    for (const attribute_model& global : set.globals) declare(globals_, global);
    for (const event_model& added : set.events) {
      const auto [place, is_new] = events_.try_emplace(added.id.value);
      known_event& event = place->second;
      event.id = added.id.value;
      const message_model& message = added.message;
      if (is_new || !(message.id.value.empty() || message.raw.value.empty()))
        event.name = message.id.value;
      for (const attribute_model& attribute : added.attributes)
        declare(event.attributes, attribute);
    }
  }

  // By ID. An event's own attribute hides that of every event.
  std::vector<known_event> take() {
    std::vector<known_event> taken;
    for (auto& [id, event] : events_) {
      for (const known_attribute& global : globals_)
        if (event.find(global.name) == nullptr) event.attributes.push_back(global);
      taken.push_back(std::move(event));
    }
    return taken;
  }

 private:
  std::vector<known_attribute> globals_;
  std::map<uint32_t, known_event> events_;
};

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
  // Texts of the definitions come by ICU's default converter.
  ucnv_setDefaultName("UTF-8");
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
  event_collection collection;
  const definition_set standard = read_set(options.definitions);
  version_ = standard.log_version.value;
  collection.add(standard);
  if (!options.aux.empty()) collection.add(read_set(options.aux));
  events_ = collection.take();
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
