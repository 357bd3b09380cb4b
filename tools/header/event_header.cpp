#include "tools/header/event_header.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "recording/files/path.h"
#include "recording/text/escape.h"
#include "recording/text/number.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"
#include "tools/definitions/cpp_name.h"

// The type of the parameter that takes a value of a type; "" for what no operation of the library
// adds: a GUID, and unknown types.
static std::string parameter_of(kp_AttributeType type) {
  const attribute_type* const row = find_type(type);
  if (row == nullptr) return "";
  if (row->number != nullptr) return std::string("::kp_LOG_EventNumber<") + row->number + ">";
  if (row->unit != text_unit::none)
    return std::string("::kp_LOG_EventText<::kp_LOG_text_unit::") +
           (row->unit == text_unit::byte ? "byte" : "character") + ", " +
           std::to_string(row->longest) + ">";
  return is_time_attribute(type) ? "::kp_LOG_EventTime" : "";
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

// What a value of the selector attribute is called: by its message's name, or by its ID, which
// often begins with the event's name, or by its number.
static std::string selector_value_name(const event_model& event, const message_model& message) {
  if (message.name.is_given()) return message.name.value;
  std::string_view id = message.id.value;
  const std::string& name = event.name.value;
  const bool has_own_id =
      !id.empty() && id != name && id != name + "." + std::to_string(message.index.value);
  if (!has_own_id) return "value_" + std::to_string(message.value.value);
  const bool is_prefixed =
      id.starts_with(name) && (id[name.size()] == '.' || id[name.size()] == '_');
  if (is_prefixed && id.size() > name.size() + 1) id.remove_prefix(name.size() + 1);
  return std::string(id);
}

static std::string message_comment(const message_model& message, const char* what) {
  if (message.text.is_given()) return what + in_quotes(message.text.value);
  if (!message.template_bytes.empty())
    return what + ("template " + in_quotes(message.template_bytes));
  return "";
}

class event_header_writer {
 public:
  event_header_writer(const definition_set& set, const std::string& name_space)
      : set_(set), name_space_(name_space), scope_("::" + name_space + "::") {}

  std::string write() {
    line("\nnamespace " + name_space_ + " {");
    write_constants();
    for (const attribute_model& global : set_.globals) write_global(global);
    for (const event_model& event : set_.events) write_event(event);
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
    line("\n#if __cplusplus < 202002L\n#error \"this header needs C++20\"\n#endif");
    line("\n#include <cstdint>\n\n#include \"kp_LOG_EventValue.h\"");
  }

  // Whatever the program and other libraries call their macros, this header compiles.
  void put_macros_aside() {
    if (!bare_names_.empty())
      line("\n// Macros of these names are put aside while the classes are written.");
    for (const std::string& name : bare_names_)
      ((text_ += "#pragma push_macro(\"") += name + "\")\n#undef ") += name + '\n';
  }

  void bring_macros_back() {
    if (!bare_names_.empty()) line("\n// The macros are as they were.");
    for (const std::string& name : bare_names_) (text_ += "#pragma pop_macro(\"") += name + "\")\n";
  }

  // --- constants

  void write_constants() {
    line("\n// The log version of every entry.");
    line("inline constexpr char log_version[] = " + cpp_literal(set_.log_version.value) + ";");
    write_flags();
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

  // --- global attributes

  void write_global(const attribute_model& global) {
    const std::string parameter = parameter_of(global.type);
    if (parameter.empty()) return;
    const std::string& name = global.name.value;
    line("");
    text_ += cpp_comment("A global attribute, which every entry may carry.", "");
    text_ += cpp_comment(global.note, "");
    line("inline void " + adders_.of(name) + "(::kp_LOG_LogEntry& entry, " + parameter +
         " value) {");
    line("  value.add_to(entry, " + names_.of(name) + ");\n}");
  }

  // --- events

  void write_event(const event_model& event) {
    const std::string& name = classes_.of(event.name.value);
    line("");
    text_ += cpp_comment(event.name.value + ", ID " + std::to_string(event.id.value), "");
    text_ += cpp_comment(event.note, "");
    text_ += cpp_comment(message_comment(event.message, "Message: "), "");
    write_left_out(event);
    line("class " + name + " : public ::kp_LOG_LogEntry {\n public:");
    line("  static constexpr ::std::uint32_t id = " + scope_ + ids_.of(event.name.value) + ";");
    write_question(event);
    const std::vector<numbered_attribute> attributes = addable_attributes(event);
    if (attributes.empty())
      line("\n  explicit " + name + "(unsigned log_level) : kp_LOG_LogEntry(id, log_level) {}");
    else
      write_attributes(event, name, attributes);
    line("};");
  }

  void write_question(const event_model& event) {
    line("  static constexpr ::std::uint32_t property_flags = 0x" + hexadecimal(event.flags, 8) +
         ";");
    line("\n  // Whether the filter takes such an event of that level. Asked before one is built.");
    line("  static bool accepted_by(const ::_kp_LOG_entry_filter& filter, unsigned log_level) {");
    line("    return filter.accepts(log_level, property_flags);\n  }");
  }

  // An attribute, and its number among those of the definition.
  using numbered_attribute = std::pair<const attribute_model*, size_t>;

  // Those that the library has an operation for, in their order. Of a name that comes twice, as the
  // selector's may, the last one counts: the definition has no other.
  static std::vector<numbered_attribute> addable_attributes(const event_model& event) {
    std::map<std::string_view, const attribute_model*> last;
    for (const attribute_model& attribute : event.attributes)
      last[attribute.name.value] = &attribute;
    std::vector<numbered_attribute> addable;
    size_t number = 0;
    for (const attribute_model& attribute : event.attributes) {
      if (last[attribute.name.value] != &attribute) continue;
      if (!parameter_of(attribute.type).empty()) addable.emplace_back(&attribute, number);
      ++number;
    }
    return addable;
  }

  void write_left_out(const event_model& event) {
    for (const attribute_model& attribute : event.attributes)
      if (parameter_of(attribute.type).empty())
        text_ += cpp_comment("Without " + attribute.name.value +
                                 ": the library has no operation that adds a value of its type.",
                             "");
  }

  void write_attributes(const event_model& event, const std::string& name,
                        const std::vector<numbered_attribute>& attributes) {
    for (const auto& [attribute, number] : attributes)
      if (is_enumerated(event, *attribute)) write_enumeration(event, name, *attribute);
    line("\n  struct values {");
    for (const auto& [attribute, number] : attributes) write_member(event, name, *attribute);
    line("  };");
    line("\n  " + name + "(unsigned log_level, const values& given)");
    line("      : kp_LOG_LogEntry(id, log_level) {");
    for (const auto& [attribute, number] : attributes) {
      const std::string& attribute_name = attribute->name.value;
      line("    given." + members_.of(attribute_name) + ".add_to(*this, ::kp_LOG_attribute_key<" +
           scope_ + names_.of(attribute_name) + ", " + std::to_string(number) + ">);");
    }
    line("  }");
  }

  // The enumeration is named from outermost to innermost: a member may be called as it is, or as
  // the class.
  void write_member(const event_model& event, const std::string& class_name,
                    const attribute_model& attribute) {
    text_ += cpp_comment(attribute.note, "    ");
    const std::string& member = *bare_names_.insert(members_.of(attribute.name.value)).first;
    line("    " +
         (is_enumerated(event, attribute) ? "::kp_LOG_EventNumber<" + scope_ + class_name +
                                                "::" + enumeration_name(class_name, attribute) + ">"
                                          : parameter_of(attribute.type)) +
         " " + member + ";");
  }

  static bool is_enumerated(const event_model& event, const attribute_model& attribute) {
    return attribute.name.value == event.selector.value && !event.messages.empty() &&
           is_selecting_type(attribute.type);
  }

  static std::string enumeration_name(const std::string& class_name,
                                      const attribute_model& attribute) {
    const std::string name = cpp_identifier(attribute.name.value + "_value");
    return name == class_name ? name + "_2" : name;
  }

  // Values without a message of their own are made with static_cast.
  void write_enumeration(const event_model& event, const std::string& class_name,
                         const attribute_model& attribute) {
    cpp_identifiers names("");
    std::set<std::string> given = reserve_names(event, names);
    line("\n  // The values that have a message.");
    line("  enum class " + *bare_names_.insert(enumeration_name(class_name, attribute)).first +
         " : " + find_type(attribute.type)->number + " {");
    for (const message_model& message : event.messages) {
      std::string name = selector_value_name(event, message);
      if (!message.name.is_given() && !given.insert(name).second)
        name += "_" + std::to_string(message.value.value);
      text_ += cpp_comment(message_comment(message, ""), "    ");
      line("    " + *bare_names_.insert(names.of(name)).first + " = " +
           std::to_string(message.value.value) + ",");
    }
    line("  };");
  }

  // The names that messages have of their own, which stay as they are.
  static std::set<std::string> reserve_names(const event_model& event, cpp_identifiers& names) {
    std::set<std::string> reserved;
    for (const message_model& message : event.messages)
      if (message.name.is_given()) reserved.insert(names.of(message.name.value));
    return reserved;
  }

  const definition_set& set_;
  const std::string& name_space_;
  const std::string scope_;  // what stands before names of the namespace, seen from anywhere
  cpp_identifiers ids_{"id_"};
  cpp_identifiers classes_{"entry_"};
  cpp_identifiers members_{"", {"values"}};  // as the structure that they stand in is called
  cpp_identifiers names_{"name_"};
  cpp_identifiers adders_{"add_"};
  cpp_identifiers flags_{"flag_"};
  std::set<std::string> bare_names_;  // without a prefix, so that a macro may have them
  std::string text_;
};

std::string event_header_text(const definition_set& set, const std::string& name_space) {
  return event_header_writer(set, name_space).write();
}
