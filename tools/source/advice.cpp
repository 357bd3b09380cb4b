#include "tools/source/advice.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <utility>

#include "logging/ldf_load.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/text/escape.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/source/scalar_place.h"
#include "tools/source/silences.h"

// Odd are blanks of every kind, and what a terminal does not show.
static size_t first_odd_character(std::string_view name) {
  for (const utf8_character& character : utf8(name)) {
    const auto code_point = static_cast<UChar32>(character.code_point);
    if (u_charType(code_point) == U_SPACE_SEPARATOR || is_unsafe_on_terminal(character.code_point))
      return character.offset;
  }
  return std::string_view::npos;
}

class definition_adviser {
 public:
  definition_adviser(const definition_set& set, const advice_options& options,
                     diagnostic_list& found)
      : set_(set), options_(options), advice_(set, found) {}

  size_t run() {
    declare_standard_types();
    for (const attribute_model& global : set_.globals) advise_on_attribute(global, nullptr);
    open_code_pages();
    advise_on_flags();
    for (const event_model& event : set_.events) advise_on_event(event);
    advise_on_reloading();
    advice_.add_unused_silences([this](diagnostic_rule rule) { return is_applied(rule); });
    return advice_.silenced_count();
  }

 private:
  // A compiled file has no names of events.
  bool has_standard_names() const {
    return options_.standard != nullptr && !options_.standard->set().sources.front()->is_binary();
  }

  bool is_applied(diagnostic_rule rule) const {
    if (rule == "reused-id"_rule) return has_standard_names();
    if (rule == "std-no-effect"_rule || rule == "std-reload"_rule)
      return options_.standard != nullptr;
    return rule != "code-page"_rule || !options_.code_pages.empty() || !set_.code_pages.empty();
  }

  const event_model* standard_event(const event_model& event) const {
    return options_.standard == nullptr ? nullptr : options_.standard->find(event.id.value);
  }

  void advise_on_event(const event_model& event) {
    advise_on_name(event.name, &event, nullptr);
    advise_on_id(event);
    for (const attribute_model& attribute : event.attributes) {
      advise_on_attribute(attribute, &event);
      advise_on_name(attribute.redirection, &event, &attribute);
    }
    advise_on_message_id(event, event.message);
    for (const message_model& message : event.messages) advise_on_message_id(event, message);
    const event_model* const standard = standard_event(event);
    add_event_advice({set_, options_, event, standard, code_pages_of(event)}, advice_);
    if (standard != nullptr) advise_on_name_of_id(event, *standard);
  }

  // --- names

  void advise_on_name(const placed<std::string>& name, const event_model* event,
                      const attribute_model* attribute) {
    if (!name.is_given()) return;
    const size_t odd = first_odd_character(name.value);
    if (odd != std::string::npos)
      advice_.add({"name-characters"_rule, place_in_scalar(name.place, name.value, odd),
                   "the name " + in_quotes(name.value) + " has a blank or an invisible character"},
                  event, attribute);
  }

  // --- flags

  using named_flag = std::pair<const std::string, flag_model>;

  // In the order of the sources, without DEBUG where none declares it.
  std::vector<const named_flag*> flags_in_order() const {
    std::vector<const named_flag*> flags;
    for (const named_flag& flag : set_.flags)
      if (flag.second.is_given()) flags.push_back(&flag);
    const auto order = [this](const named_flag* flag) {
      const text_place& place = flag->second.name_place;
      const auto source = std::find(set_.sources.begin(), set_.sources.end(), place.source);
      return std::make_tuple(source - set_.sources.begin(), place.at);
    };
    std::sort(flags.begin(), flags.end(),
              [&](const auto* a, const auto* b) { return order(a) < order(b); });
    return flags;
  }

  void advise_on_flags() {
    std::map<uint32_t, const named_flag*> first_of_bits;
    if (options_.standard != nullptr)
      for (const named_flag& flag : options_.standard->set().flags)
        if (flag.second.is_given()) first_of_bits.emplace(flag.second.value, &flag);
    for (const named_flag* flag : flags_in_order()) {
      advise_on_name({flag->first, flag->second.name_place}, nullptr, nullptr);
      advise_on_bits(*flag, *first_of_bits.emplace(flag->second.value, flag).first->second);
    }
  }

  // `first` is the first flag of these bits.
  void advise_on_bits(const named_flag& flag, const named_flag& first) {
    const auto& [name, bits] = flag;
    if (name == "DEBUG") return;
    if (bits.value == 0)
      add_flag_advice(bits, "the flag " + in_quotes(name) + " has no bit");
    else if (bits.value == definition_debug_flag)
      add_flag_advice(bits, "every set has this bit as DEBUG already");
    else if (first.first != name)
      advice_.add({"flag-bits"_rule,
                   bits.place,
                   "the flag " + in_quotes(first.first) + " has these bits already",
                   {{first.second.place, "they are given here first"}}});
  }

  void add_flag_advice(const flag_model& flag, std::string text) {
    advice_.add({"flag-bits"_rule, flag.place, std::move(text)});
  }

  // --- messages

  // A message that is not in the catalogs alone, under its ID.
  void advise_on_message_id(const event_model& event, const message_model& message) {
    advise_on_name(message.id, &event, nullptr);
    if (message.id.value.empty() || message.template_bytes.empty()) return;
    const message_model& first = *first_of_id_.emplace(message.id.value, &message).first->second;
    if (first.template_bytes != message.template_bytes)
      advice_.add({"message-id"_rule,
                   place_of_id(message),
                   "the ID " + in_quotes(message.id.value) + " stands for another text already",
                   {{place_of_id(first), "it is used here first"}}},
                  &event);
  }

  // An ID that is not given stands where the text does.
  static const text_place& place_of_id(const message_model& message) {
    if (message.id.is_given()) return message.id.place;
    return (message.raw.is_given() ? message.raw : message.text).place;
  }

  void open_code_pages() {
    for (const placed<std::string>& name : set_.code_pages)
      repertoires_.try_emplace(name.value, name.value);
  }

  // Those of the options, and those that the event's source declares.
  std::vector<const code_page_repertoire*> code_pages_of(const event_model& event) const {
    std::vector<const code_page_repertoire*> code_pages;
    for (const code_page_repertoire& code_page : options_.code_pages)
      code_pages.push_back(&code_page);
    for (const placed<std::string>& name : set_.code_pages)
      if (name.place.source == event.name.place.source && !holds(code_pages, name.value))
        code_pages.push_back(&repertoires_.at(name.value));
    return code_pages;
  }

  static bool holds(const std::vector<const code_page_repertoire*>& code_pages,
                    const std::string& name) {
    return std::any_of(code_pages.begin(), code_pages.end(),
                       [&](const auto* code_page) { return code_page->name() == name; });
  }

  // --- types

  void declare_standard_types() {
    if (options_.standard == nullptr) return;
    const definition_set& standard = options_.standard->set();
    for (const attribute_model& global : standard.globals)
      first_of_name_.emplace(global.name.value, &global);
    for (const event_model& event : standard.events)
      for (const attribute_model& attribute : event.attributes)
        first_of_name_.emplace(attribute.name.value, &attribute);
  }

  // The library puts global attributes of the AUX set in the place of those of the STD set.
  bool is_standard_global(const attribute_model& attribute) const {
    return options_.standard != nullptr &&
           find_attribute(options_.standard->set().globals, attribute.name.value) == &attribute;
  }

  void advise_on_attribute(const attribute_model& attribute, const event_model* event) {
    advise_on_name(attribute.name, event, &attribute);
    if (const size_t percent = attribute.name.value.find('%'); percent != std::string::npos)
      advice_.add({"name-percent"_rule,
                   place_in_scalar(attribute.name.place, attribute.name.value, percent),
                   "no message can show an attribute with a percent sign in its name"},
                  event, &attribute);
    if (attribute.name.value == own_time_attribute)
      advice_.add(
          {"own-time"_rule, attribute.name.place,
           "messages name \"TIMESTAMP\" without a declaration, and entries answer it with their "
           "own time, whatever they are given"},
          event, &attribute);
    const attribute_model& first =
        *first_of_name_.emplace(attribute.name.value, &attribute).first->second;
    if (first.type == attribute.type) return;
    const char* const beside = event == nullptr && is_standard_global(first)
                                   ? ", also for events of the STD set, where it is a "
                                   : ", and elsewhere a ";
    advice_.add({"attribute-types"_rule,
                 attribute.name.place,
                 in_quotes(attribute.name.value) + " is a " + short_type_name(attribute.type) +
                     " here" + beside + short_type_name(first.type),
                 {{first.name.place, "it is declared here first"}}},
                event, &attribute);
  }

  // --- IDs

  void advise_on_id(const event_model& event) {
    const id_range* first = nullptr;  // of the event's source
    for (const id_range& range : set_.id_ranges) {
      if (range.place.source != event.id.place.source) continue;
      if (range.holds(event.id.value)) return;
      if (first == nullptr) first = &range;
    }
    if (first != nullptr)
      advice_.add({"id-range"_rule,
                   event.id.place,
                   "the ID " + std::to_string(event.id.value) +
                       " lies outside of the ranges of this source",
                   {{first->place, "the first range is given here"}}},
                  &event);
  }

  void advise_on_name_of_id(const event_model& event, const event_model& standard) {
    if (has_standard_names() && event.name.value != standard.name.value)
      advice_.add({"reused-id"_rule,
                   event.id.place,
                   "the STD set gives the ID " + std::to_string(event.id.value) + " to " +
                       in_quotes(standard.name.value) + ", which this event is merged into",
                   {{standard.name.place, "the STD event is here"}}},
                  &event);
  }

  // An event is merged while the AUX file is set; one that is loaded again is not.
  void advise_on_reloading() {
    if (options_.standard == nullptr) return;
    const event_model* merged = nullptr;
    size_t count = options_.standard->set().events.size();
    for (const event_model& event : set_.events) {
      const bool is_merged = standard_event(event) != nullptr;
      if (!is_merged) ++count;
      if (is_merged && merged == nullptr) merged = &event;
    }
    if (merged != nullptr && count > _kp_LOG_log_definition_tbl::cache_size)
      advice_.add({"std-reload"_rule, merged->id.place,
                   "the two sets have " + std::to_string(count) +
                       " events; beyond 128 the library loads events again, and those of both sets "
                       "then come without their STD part"},
                  merged);
  }

  const definition_set& set_;
  const advice_options& options_;
  advice_list advice_;
  std::map<std::string_view, const attribute_model*> first_of_name_;
  std::map<std::string_view, const message_model*> first_of_id_;
  std::map<std::string, code_page_repertoire> repertoires_;  // that sources declare
};

size_t add_advice(const definition_set& set, const advice_options& options,
                  diagnostic_list& found) {
  return definition_adviser(set, options, found).run();
}
