#include "tools/header/event_header.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "recording/definitions/fingerprint.h"
#include "recording/files/path.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/definitions/cpp_name.h"
#include "tools/header/selector_values.h"

// Whether the library has an operation that adds a value of the type: it has none for a GUID, and
// for unknown types.
static bool is_addable(kp_AttributeType type) {
  const attribute_type* const row = find_type(type);
  return row != nullptr &&
         (row->number != nullptr || row->unit != text_unit::none || is_time_attribute(type));
}

// Small letters stand as capital ones. So small ones are free to stand for all else, and different
// namespaces have different guards: "xc4" is a character by its code point, "_in_" is "::".
static std::string guard_of(const std::string& name_space) {
  std::string guard = "KPLOG_";
  for (size_t i = 0; i < name_space.size();) {
    const utf8_character character = utf8_at(name_space, i);
    const char first = name_space[i];
    if (first >= 'a' && first <= 'z')
      guard += static_cast<char>(first - 'a' + 'A');
    else if ((first >= '0' && first <= '9') || first == '_')
      guard += first;
    else if (first == ':')
      guard += "_in_";
    else
      guard += "x" + hexadecimal(character.code_point, 6);
    i += first == ':' ? 2 : character.bytes.size();
  }
  return guard + (guard.ends_with('_') ? "H" : "_H");
}

// What aggregates have beside their values, and what entries call them. No attribute's member, and
// no aggregate, is called so.
static const std::set<std::string, std::less<>> aggregate_words = {
    "values", "id", "property_flags", "default_level", "fingerprint", "entry", "each_value"};

class event_header_writer {
 public:
  event_header_writer(const definition_set& set, const std::string& name_space,
                      header_content content)
      : set_(set), name_space_(name_space), scope_("::" + name_space + "::"), content_(content) {}

  std::string write() {
    line("\nnamespace " + name_space_ + " {");
    write_constants();
    if (content_ == header_content::classes) write_classes();
    line("\n}  // namespace " + name_space_);
    const std::string body = std::exchange(text_, "");
    write_head();
    put_macros_aside();
    text_ += body;
    bring_macros_back();
    line("\n#endif");
    return std::move(text_);
  }

 private:
  void line(const std::string& text) { (text_ += text) += '\n'; }

  void write_head() {
    const std::string guard = guard_of(name_space_);
    std::string sources;
    for (const text_file* source : set_.sources)
      sources += (sources.empty() ? "" : ", ") + place_of(source->name()).name;
    text_ +=
        cpp_comment("Written by \"kplog header\" from " + sources + ". Changes belong there.", "");
    line("#ifndef " + guard);
    line("#define " + guard);
    if (content_ == header_content::classes) {
      line("\n#if __cplusplus < 202002L\n#error \"this header needs C++20\"\n#endif");
      line("\n#include <cstdint>\n\n#include \"kp_LOG_EventValue.h\"");
    } else {
      line("\n#if __cplusplus < 201703L\n#error \"this header needs C++17\"\n#endif");
      line("\n#include <cstdint>");
    }
  }

  // Whatever the program and other libraries call their macros, this header compiles.
  void put_macros_aside() {
    if (!bare_names_.empty())
      line("\n// Macros of these names are put aside while the header is read.");
    for (const std::string& name : bare_names_)
      ((text_ += "#pragma push_macro(\"") += name + "\")\n#undef ") += name + '\n';
  }

  void bring_macros_back() {
    if (!bare_names_.empty()) line("\n// The macros are as they were.");
    // In this order, since compilers look for the macro that was put aside last.
    for (auto name = bare_names_.rbegin(); name != bare_names_.rend(); ++name)
      (text_ += "#pragma pop_macro(\"") += *name + "\")\n";
  }

  // --- constants

  void write_constants() {
    line("\n// The log version of every entry.");
    line("inline constexpr char log_version[] = " + cpp_literal(set_.log_version.value) + ";");
    write_flags();
    write_levels();
    if (!set_.events.empty()) line("\n// Entry IDs.");
    for (const event_model& event : set_.events)
      line("inline constexpr ::std::uint32_t " + ids_.of(event.name.value) + " = " +
           std::to_string(event.id.value) + ";");
    write_attribute_names();
  }

  void write_flags() {
    if (!set_.flags.empty()) line("\n// Property flags.");
    for (const auto& [name, bits] : set_.flags)
      line("inline constexpr ::std::uint32_t " + flags_.of(name) + " = 0x" +
           hexadecimal(bits.value, 8) + ";");
  }

  void write_levels() {
    if (set_.levels.empty()) return;
    std::vector<std::pair<uint32_t, std::string>> levels;
    for (const auto& [name, level] : set_.levels) levels.emplace_back(level.value, name);
    std::sort(levels.begin(), levels.end());
    line("\n// Levels.\nenum class " + *bare_names_.insert("level").first + " : unsigned {");
    for (const auto& [level, name] : levels)
      line("  " + *bare_names_.insert(name).first + " = " + std::to_string(level) + ",");
    line("};");
  }

  void write_attribute_names() {
    std::set<std::string_view> written;
    const auto write_names = [&](const std::vector<attribute_model>& attributes) {
      for (const attribute_model& attribute : attributes) {
        const std::string_view name = attribute.name.value;
        if (!written.insert(name).second) continue;
        if (written.size() == 1) line("\n// Attribute names.");
        line("inline constexpr char " + names_.of(name) + "[] = " + cpp_literal(name) + ";");
      }
    };
    write_names(set_.globals);
    for (const event_model& event : set_.events) write_names(event.attributes);
  }

  void write_classes() {
    collect_enumerations();
    name_aggregates();
    write_shared_enumerations();
    for (const attribute_model& global : set_.globals) write_global(global);
    for (const event_model& event : set_.events) write_event(event);
  }

  // --- global attributes

  void write_global(const attribute_model& global) {
    if (!is_addable(global.type)) return;
    line("");
    text_ += cpp_comment("A global attribute, which every entry may carry.", "");
    text_ += cpp_comment(global.note, "");
    line("inline void " + adders_.of(global.name.value) + "(::kp_LOG_LogEntry& entry, " +
         value_class(global, "") + " value) {");
    line("  value.add_to(entry, " + names_.of(global.name.value) + ");\n}");
  }

  // The class of an attribute's values; `enumeration` is "" of those that are none.
  std::string value_class(const attribute_model& attribute, const std::string& enumeration) {
    const std::string type = std::string("<::") +
                             _kp_LOG_get_attribute_type_string(attribute.type) + ", " + scope_ +
                             names_.of(attribute.name.value);
    if (!enumeration.empty()) return "::kp_LOG_EventEnumerator" + type + ", " + enumeration + ">";
    const attribute_type& row = *find_type(attribute.type);
    const char* const family = row.number != nullptr         ? "Number"
                               : row.unit != text_unit::none ? "Text"
                                                             : "Time";
    return "::kp_LOG_Event" + (family + type) + ">";
  }

  // --- enumerations

  // Those that stand in the namespace: all events that select by such an attribute agree.
  void collect_enumerations() {
    for (const event_model& event : set_.events)
      for (const auto& [attribute, number] : addable_attributes(event)) {
        if (!is_enumerated(event, *attribute)) continue;
        const selector_values enumeration = selector_values_of(event, *attribute);
        const auto [known, is_new] = shared_.try_emplace(attribute->name.value, enumeration);
        if (is_new) shared_names_.push_back(attribute->name.value);
        if (!is_new && !known->second.agrees_with(enumeration)) known->second.type = TypeUnknown;
      }
  }

  bool is_shared(const attribute_model& attribute) const {
    return shared_.find(attribute.name.value)->second.type != TypeUnknown;
  }

  void write_shared_enumerations() {
    for (const std::string_view name : shared_names_) {
      const selector_values& enumeration = shared_.find(name)->second;
      if (enumeration.type == TypeUnknown) continue;
      line("");
      text_ += cpp_comment("The values of " + std::string(name) + " that have a message.", "");
      write_enumeration(enumerations_.of(name), enumeration, "");
    }
  }

  // Values without a message of their own are made with static_cast.
  void write_enumeration(const std::string& name, const selector_values& enumeration,
                         const std::string& indent) {
    line(indent + "enum class " + *bare_names_.insert(name).first + " : " +
         find_type(enumeration.type)->number + " {");
    for (const auto& [value_name, value] : enumeration.values)
      line(indent + "  " + *bare_names_.insert(value_name).first + " = " + std::to_string(value) +
           ",");
    line(indent + "};");
  }

  // --- events

  void write_event(const event_model& event) {
    const std::vector<numbered_attribute> attributes = addable_attributes(event);
    line("");
    text_ += cpp_comment(event.name.value + ", ID " + std::to_string(event.id.value), "");
    text_ += cpp_comment(event.note, "");
    write_left_out(event);
    write_aggregate(event, attributes);
    write_class(event, attributes);
  }

  // An attribute, and its number among those of the definition.
  using numbered_attribute = std::pair<const attribute_model*, size_t>;

  // Those that the definition has, in their order. Of a name that comes twice, as the selector's
  // may, the last one counts: the definition has no other.
  static std::vector<const attribute_model*> defined_attributes(const event_model& event) {
    std::map<std::string_view, const attribute_model*> last;
    for (const attribute_model& attribute : event.attributes)
      last[attribute.name.value] = &attribute;
    std::vector<const attribute_model*> defined;
    for (const attribute_model& attribute : event.attributes)
      if (last[attribute.name.value] == &attribute) defined.push_back(&attribute);
    return defined;
  }

  static std::vector<numbered_attribute> addable_attributes(const event_model& event) {
    std::vector<numbered_attribute> addable;
    size_t number = 0;
    for (const attribute_model* attribute : defined_attributes(event)) {
      if (is_addable(attribute->type)) addable.emplace_back(attribute, number);
      ++number;
    }
    return addable;
  }

  static uint64_t fingerprint_of(const event_model& event) {
    event_fingerprint fingerprint(event.id.value);
    for (const attribute_model* attribute : defined_attributes(event))
      fingerprint.add(attribute->name.value, attribute->type);
    return fingerprint.value();
  }

  void write_left_out(const event_model& event) {
    for (const attribute_model& attribute : event.attributes)
      if (!is_addable(attribute.type))
        text_ += cpp_comment("Without " + attribute.name.value +
                                 ": the library has no operation that adds a value of its type.",
                             "");
  }

  const std::string& aggregate_of(const event_model& event) {
    return *bare_names_.insert(aggregates_.of(event.name.value)).first;
  }

  void write_aggregate(const event_model& event,
                       const std::vector<numbered_attribute>& attributes) {
    const std::string& name = classes_.of(event.name.value);
    line("class " + name + ";");
    line("struct " + aggregate_of(event) + " {");
    write_id_and_flags(event);
    line("  static constexpr unsigned default_level = " + std::to_string(event.default_level) +
         ";");
    line("  static constexpr ::std::uint64_t fingerprint = 0x" +
         hexadecimal(fingerprint_of(event), 16) + "u;");
    line("  using entry = " + scope_ + name + ";");
    for (const auto& [attribute, number] : attributes)
      if (is_enumerated(event, *attribute) && !is_shared(*attribute)) {
        line("");
        text_ += cpp_comment("The values of " + attribute->name.value +
                                 " that have a message here; in other events they are others.",
                             "  ");
        write_enumeration(own_enumeration(event, *attribute), selector_values_of(event, *attribute),
                          "  ");
      }
    if (!attributes.empty()) line("");
    for (const auto& [attribute, number] : attributes) write_member(event, *attribute);
    write_visit(attributes);
    line("};\n");
  }

  void write_id_and_flags(const event_model& event) {
    line("  static constexpr ::std::uint32_t id = " + scope_ + ids_.of(event.name.value) + ";");
    line("  static constexpr ::std::uint32_t property_flags = 0x" + hexadecimal(event.flags, 8) +
         ";");
  }

  // The enumeration is named from outermost to innermost: a member may be called as it is.
  void write_member(const event_model& event, const attribute_model& attribute) {
    text_ += cpp_comment(attribute.note, "  ");
    const std::string& member = *bare_names_.insert(members_.of(attribute.name.value)).first;
    line("  " +
         value_class(attribute,
                     is_enumerated(event, attribute) ? enumeration_type(event, attribute) : "") +
         " " + member + ";");
  }

  void write_visit(const std::vector<numbered_attribute>& attributes) {
    if (attributes.empty()) {
      line("\n  template <class Visitor>\n  void each_value(Visitor&&) const {}");
      return;
    }
    line("\n  // Calls visit(number in the definition, value) for each.");
    line(
        "  template <class Visitor>\n  [[gnu::always_inline]] void each_value(Visitor&& visit) "
        "const {");
    for (const auto& [attribute, number] : attributes)
      line("    visit(" + std::to_string(number) + ", this->" + members_.of(attribute->name.value) +
           ");");
    line("  }");
  }

  std::string enumeration_type(const event_model& event, const attribute_model& attribute) {
    if (is_shared(attribute)) return scope_ + enumerations_.of(attribute.name.value);
    return scope_ + aggregate_of(event) + "::" + own_enumeration(event, attribute);
  }

  // Of an enumeration within the event's aggregate.
  std::string own_enumeration(const event_model& event, const attribute_model& attribute) {
    std::set<std::string, std::less<>> taken = aggregate_words;
    taken.insert(aggregate_of(event));
    for (const auto& [other, number] : addable_attributes(event))
      taken.insert(members_.of(other->name.value));
    return cpp_identifiers("", taken).of(attribute.name.value + "_value");
  }

  void write_class(const event_model& event, const std::vector<numbered_attribute>& attributes) {
    const std::string& name = classes_.of(event.name.value);
    const std::string aggregate = scope_ + aggregate_of(event);
    line("class " + name + " : public ::kp_LOG_LogEntry {\n public:");
    write_id_and_flags(event);
    line("  using values = " + aggregate + ";");
    for (const auto& [attribute, number] : attributes)
      if (is_enumerated(event, *attribute))
        line("  using " + *bare_names_.insert(enumeration_alias(name, *attribute)).first + " = " +
             enumeration_type(event, *attribute) + ";");
    line("\n  // Whether the filter takes such an event of that level. Asked before one is built.");
    line("  static bool accepted_by(const ::_kp_LOG_entry_filter& filter, unsigned log_level) {");
    line("    return filter.accepts(log_level, property_flags);\n  }\n");
    write_constructors(name, attributes);
    if (!set_.levels.empty()) write_overloads_for_levels(name, attributes.empty());
    line("};");
  }

  static std::string enumeration_alias(const std::string& class_name,
                                       const attribute_model& attribute) {
    const std::string name = cpp_identifier(attribute.name.value + "_value");
    return name == class_name ? name + "_2" : name;
  }

  void write_constructors(const std::string& name,
                          const std::vector<numbered_attribute>& attributes) {
    if (attributes.empty()) {
      line("  explicit " + name + "(unsigned log_level, const values& = {})");
      line("      : kp_LOG_LogEntry(id, log_level) {}");
      return;
    }
    line("  " + name + "(unsigned log_level, const values& given)");
    line("      : kp_LOG_LogEntry(id, log_level) {");
    for (const auto& [attribute, number] : attributes)
      line("    given." + members_.of(attribute->name.value) +
           ".add_to(*this, ::kp_LOG_attribute_key<" + scope_ + names_.of(attribute->name.value) +
           ", " + std::to_string(number) + ">);");
    line("  }");
  }

  // What takes a level as a number takes it by its name, too.
  void write_overloads_for_levels(const std::string& name, bool is_plain) {
    const std::string number = "static_cast<unsigned>(log_level)";
    const std::string level = scope_ + "level log_level";
    line("  " + std::string(is_plain ? "explicit " : "") + name + "(" + level +
         ", const values& given" + (is_plain ? " = {}" : "") + ")");
    line("      : " + name + "(" + number + ", given) {}");
    line("  static bool accepted_by(const ::_kp_LOG_entry_filter& filter, " + level + ") {");
    line("    return accepted_by(filter, " + number + ");\n  }");
  }

  // --- names

  // Aggregates and enumerations have no prefix: they are called otherwise than all that has one,
  // and an enumeration otherwise than any aggregate.
  void name_aggregates() {
    std::set<std::string, std::less<>> taken = prefixed_names();
    taken.insert(aggregate_words.begin(), aggregate_words.end());
    aggregates_ = cpp_identifiers("", taken);
    for (const event_model& event : set_.events) taken.insert(aggregates_.of(event.name.value));
    enumerations_ = cpp_identifiers("", std::move(taken));
  }

  std::set<std::string, std::less<>> prefixed_names() {
    std::set<std::string, std::less<>> names = {"log_version"};
    if (!set_.levels.empty()) names.insert("level");
    const auto add_names_of = [&](const std::vector<attribute_model>& attributes) {
      for (const attribute_model& attribute : attributes)
        names.insert(names_.of(attribute.name.value));
    };
    for (const auto& [name, bits] : set_.flags) names.insert(flags_.of(name));
    add_names_of(set_.globals);
    for (const attribute_model& global : set_.globals)
      if (is_addable(global.type)) names.insert(adders_.of(global.name.value));
    for (const event_model& event : set_.events) {
      names.insert(ids_.of(event.name.value));
      names.insert(classes_.of(event.name.value));
      add_names_of(event.attributes);
    }
    return names;
  }

  const definition_set& set_;
  const std::string& name_space_;
  const std::string scope_;  // what stands before names of the namespace, seen from anywhere
  const header_content content_;
  cpp_identifiers ids_{"id_"};
  cpp_identifiers classes_{"entry_"};
  cpp_identifiers members_{"", aggregate_words};
  cpp_identifiers names_{"name_"};
  cpp_identifiers adders_{"add_"};
  cpp_identifiers flags_{"flag_"};
  cpp_identifiers aggregates_{""};
  cpp_identifiers enumerations_{""};
  std::map<std::string_view, selector_values> shared_;  // by attribute; TypeUnknown: disagreed
  std::vector<std::string_view> shared_names_;          // in the order of the events
  std::set<std::string> bare_names_;  // without a prefix, so that a macro may have them
  std::string text_;
};

std::string event_header_text(const definition_set& set, const std::string& name_space,
                              header_content content) {
  return event_header_writer(set, name_space, content).write();
}
