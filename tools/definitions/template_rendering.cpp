#include "tools/definitions/template_rendering.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <memory>
#include <string>

#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "recording/definitions/built_in_attributes.h"
#include "tools/definitions/template_pattern.h"

// The values of one rendering.
struct sample_values {
  unsigned char number;
  double real;
  const char* text;
};

// The first is for all templates; templates with arguments of their own choose by values.
static constexpr std::array<sample_values, 4> samples = {
    {{2, 2.5, "text"}, {0, 0.0, ""}, {1, 1.0, "other"}, {5, -5.0, "1"}}};

// Adds a name and its value, which the library reads as what its type is passed as.
static void add_listed(_kp_LOG_log_entry_imp* entry, ...) {
  va_list list;
  va_start(list, entry);
  entry->add_attributes(list);
  va_end(list);
}

static void add_value(_kp_LOG_log_entry_imp& entry, const char* name, kp_AttributeType type,
                      const sample_values& values) {
  if (is_integer_attribute(type)) add_listed(&entry, name, int{values.number}, nullptr);
  if (is_float_attribute(type)) add_listed(&entry, name, values.real, nullptr);
  if (is_any_string_attribute(type) && type != TypeGUID)
    add_listed(&entry, name, values.text, nullptr);
  if (is_time_attribute(type)) add_listed(&entry, name, "2026-11-15T17:02:56Z", nullptr);
}

class template_rendering {
 public:
  template_rendering(const rendered_template& checked, const std::vector<template_piece>& pieces)
      : checked_(checked), text_(to_units(checked.bytes)) {
    auto definition = std::make_unique<_kp_LOG_log_definition>();
    definition->set_default_msg_text(std::string(checked.bytes).c_str());
    for (const template_piece& piece : pieces)
      if (piece.kind == template_piece::kinds::placeholder) declare(*definition, piece.text);
    definition_ = _kp_LOG_definition_ref(definition.release());
  }

  void by_icu(const sample_values& values) const {
    _kp_LOG_log_entry_imp entry(definition_);
    fill(entry, values);
    _kp_LOG_log_message::_render_template(entry, text_);
  }

  void by_bytes(const sample_values& values) const {
    _kp_LOG_log_entry_imp entry(definition_);
    fill(entry, values);
    _kp_LOG_log_message::get_kpString_message(entry, definition_.get(), true, 0);
  }

 private:
  static icu::UnicodeString to_units(std::string_view bytes) {
    return icu::UnicodeString::fromUTF8({bytes.data(), static_cast<int32_t>(bytes.size())});
  }

  void declare(_kp_LOG_log_definition& definition, std::string_view name) {
    const std::string text(name);
    const kp_AttributeType type = checked_.declared_type(name);
    if (type == TypeUnknown || definition._find_attr_entry_by_name(text.c_str()) != nullptr) return;
    definition.add_attr_info(text.c_str(), static_cast<unsigned char>(type), false, nullptr);
  }

  void fill(_kp_LOG_log_entry_imp& entry, const sample_values& values) const {
    const char* name = nullptr;
    unsigned char type = 0;
    const char* redirection = nullptr;
    for (unsigned char i = 0; i < definition_->get_n_attributes(); ++i) {
      definition_->get_attr_info_by_index(i, name, type, redirection);
      add_value(entry, name, static_cast<kp_AttributeType>(type), values);
    }
  }

  const rendered_template& checked_;
  const icu::UnicodeString text_;
  _kp_LOG_definition_ref definition_;
};

// Calls render(); what the library answers when it refuses, "" when it does not.
template <class Render>
static std::string refusal_of(Render render) {
  try {
    render();
    return "";
  } catch (const KPX_memory_alloc&) {
    throw;
  } catch (const kp_EXCEPTION_base& error) {
    return std::string("the library does not render this: ") + error.what();
  }
}

static void check_by_icu(const template_rendering& rendering, const template_pattern& pattern,
                         std::vector<template_problem>& problems) {
  if (!pattern.is_safe(problems)) return;
  const size_t rounds = pattern.has_own_arguments() ? samples.size() : 1;
  const std::string refusal = refusal_of([&] {
    for (size_t i = 0; i < rounds; ++i) rendering.by_icu(samples[i]);
  });
  if (!refusal.empty()) problems.push_back(pattern.fault(refusal));
}

static void check_by_bytes(const template_rendering& rendering,
                           std::vector<template_problem>& problems) {
  const std::string refusal = refusal_of([&] { rendering.by_bytes(samples.front()); });
  if (!refusal.empty()) problems.push_back({"template-refused"_rule, 0, refusal});
}

rendered_template rendered_template_of(const event_model& event, std::string_view bytes,
                                       message_renderer renderer, const known_attributes& known) {
  return {bytes, renderer,
          [&event, &known](std::string_view name) { return known.declared_type(event, name); }};
}

void check_rendering(const rendered_template& checked, std::vector<template_problem>& problems) {
  if (checked.bytes.empty()) return;
  const std::vector<template_piece> pieces = scan_template(checked.bytes);
  // A name that stands for nothing has a diagnostic of its own.
  const bool names_nothing = std::any_of(pieces.begin(), pieces.end(), [&](const auto& piece) {
    return piece.kind == template_piece::kinds::placeholder && piece.text != own_time_attribute &&
           checked.declared_type(piece.text) == TypeUnknown;
  });
  if (names_nothing) return;
  const template_rendering rendering(checked, pieces);
  const size_t before = problems.size();
  if (checked.renderer != message_renderer::bytes)
    check_by_icu(rendering, template_pattern(pieces), problems);
  if (checked.renderer != message_renderer::icu && problems.size() == before)
    check_by_bytes(rendering, problems);
}

void find_quoted_placeholders(std::string_view bytes, std::vector<template_problem>& problems) {
  const std::vector<template_piece> pieces = scan_template(bytes);
  template_pattern(pieces).find_quoted(problems);
}
