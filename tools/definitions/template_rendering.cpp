#include "tools/definitions/template_rendering.h"

#include <unicode/locid.h>
#include <unicode/messagepattern.h>
#include <unicode/msgfmt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_icu_depth.h"
#include "recording/definitions/built_in_attributes.h"
#include "recording/definitions/template.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

// ---- the pattern ----

// The message pattern that ICU makes of a template, with the places of its parts in the template.
class template_pattern {
 public:
  // The template in pieces, none of them a fault.
  explicit template_pattern(const std::vector<template_piece>& pieces);

  // Whether all formats of the pattern end for every value. Adds a problem for each other one.
  bool is_safe(std::vector<template_problem>& problems) const;
  // Adds a problem for each placeholder that stands within quotes.
  void find_quoted(std::vector<template_problem>& problems) const;
  // Whether it has arguments beside those of the placeholders.
  bool has_own_arguments() const { return arguments_ > placeholders_.size(); }
  // Why the library refuses to render the template, which says `refusal`.
  template_problem fault(const std::string& refusal) const;

 private:
  struct placeholder {
    int begin;                    // in the pattern
    const template_piece* piece;  // of the template
  };

  void append_literal(const template_piece& piece);
  void append_placeholder(const template_piece& piece);
  void parse();
  size_t open_argument() const;
  template_problem syntax_fault() const;
  bool has_formatter(int start_part) const;
  std::optional<template_problem> argument_fault() const;
  size_t own_argument() const;
  size_t offset_of(int index) const;

  const std::vector<template_piece>& pieces_;
  icu::UnicodeString pattern_;
  std::vector<size_t> offsets_;            // in the template, of each unit of the pattern
  std::vector<placeholder> placeholders_;  // that show values
  bool is_deep_ = false;                   // too deep to be parsed
  UErrorCode status_ = U_ZERO_ERROR;
  icu::MessagePattern parsed_{status_};
  UParseError error_{};
  size_t arguments_ = 0;
};

template_pattern::template_pattern(const std::vector<template_piece>& pieces) : pieces_(pieces) {
  for (size_t i = 0; i < pieces.size(); ++i) {
    const template_piece& piece = pieces[i];
    const bool is_dropped =
        i + 1 == pieces.size() || pieces[i + 1].kind == template_piece::kinds::percent;
    if (piece.kind == template_piece::kinds::literal && !is_dropped) append_literal(piece);
    if (piece.kind == template_piece::kinds::percent) {
      pattern_.append(u'%');
      offsets_.push_back(piece.offset);
    }
    if (piece.shows_value()) append_placeholder(piece);
  }
  parse();
}

void template_pattern::append_literal(const template_piece& piece) {
  for (const utf8_character& character : utf8(piece.text)) {
    pattern_.append(character.valid ? static_cast<UChar32>(character.code_point) : 0xFFFD);
    offsets_.resize(static_cast<size_t>(pattern_.length()), piece.offset + character.offset);
  }
}

// How the argument is formatted does not matter here.
void template_pattern::append_placeholder(const template_piece& piece) {
  placeholders_.push_back({pattern_.length(), &piece});
  pattern_.append(u"{0}", 3);
  offsets_.resize(static_cast<size_t>(pattern_.length()), piece.offset);
}

void template_pattern::parse() {
  is_deep_ =
      logmsg_pattern_depth(pattern_, logmsg_deepest_pattern).deepest() > logmsg_deepest_pattern;
  if (is_deep_) return;
  parsed_.parse(pattern_, &error_, status_);
  for (int i = 0; i < parsed_.countParts(); ++i)
    if (parsed_.getPartType(i) == UMSGPAT_PART_TYPE_ARG_START) ++arguments_;
}

size_t template_pattern::offset_of(int index) const {
  const auto at = static_cast<size_t>(index);
  return at < offsets_.size() ? offsets_[at] : offsets_.empty() ? 0 : offsets_.back();
}

// --- What is in the pattern

// ICU takes these names of formats in any case, between blanks.
static bool is_endless(icu::UnicodeString format) {
  format.trim().toLower(icu::Locale::getRoot());
  return format == u"spellout" || format == u"ordinal" || format == u"duration";
}

bool template_pattern::is_safe(std::vector<template_problem>& problems) const {
  bool is_safe = true;
  for (int i = 0; i < parsed_.countParts(); ++i) {
    const icu::MessagePattern::Part& part = parsed_.getPart(i);
    if (part.getType() != UMSGPAT_PART_TYPE_ARG_TYPE) continue;
    const icu::UnicodeString format = parsed_.getSubstring(part);
    if (!is_endless(format)) continue;
    std::string name;
    problems.push_back({"template-format"_rule, offset_of(part.getIndex()),
                        "the format " + in_quotes(format.toUTF8String(name)) +
                            " may keep ICU busy for ever; show the number as it is"});
    is_safe = false;
  }
  return is_safe;
}

static void add_quoted(const template_piece& piece, std::vector<template_problem>& problems) {
  problems.push_back({"template-quoted"_rule, piece.offset,
                      "the apostrophe before it quotes this placeholder, so that ICU does not show "
                      "its value; an apostrophe is written ''"});
}

void template_pattern::find_quoted(std::vector<template_problem>& problems) const {
  if (is_deep_ || U_FAILURE(status_)) return;
  auto shown = placeholders_.begin();
  for (int i = 0; i < parsed_.countParts() && shown != placeholders_.end(); ++i) {
    const icu::MessagePattern::Part& part = parsed_.getPart(i);
    if (part.getType() != UMSGPAT_PART_TYPE_ARG_START) continue;
    for (; shown != placeholders_.end() && shown->begin < part.getIndex(); ++shown)
      add_quoted(*shown->piece, problems);
    if (shown != placeholders_.end() && shown->begin == part.getIndex()) ++shown;
  }
  for (; shown != placeholders_.end(); ++shown) add_quoted(*shown->piece, problems);
}

// --- Why ICU refuses it

struct pattern_fault_row {
  UErrorCode status;
  const char* text;
};

static constexpr std::array<pattern_fault_row, 5> pattern_faults = {{
    {U_DEFAULT_KEYWORD_MISSING, "this argument needs a message for \"other\""},
    {U_UNMATCHED_BRACES, "a brace has no partner; a brace is written '{'"},
    {U_PATTERN_SYNTAX_ERROR, "no argument of a message pattern; a brace is written '{'"},
    {U_INDEX_OUTOFBOUNDS_ERROR, "an argument beyond what a message pattern takes"},
    {U_ARGUMENT_TYPE_MISMATCH, "arguments of a message pattern are numbers"},
}};

// Where the innermost argument begins that ICU had not read to its end; 0 outside of all.
size_t template_pattern::open_argument() const {
  std::vector<int> open;
  for (int i = 0; i < parsed_.countParts(); ++i) {
    const icu::MessagePattern::Part& part = parsed_.getPart(i);
    if (part.getType() == UMSGPAT_PART_TYPE_ARG_START) open.push_back(part.getIndex());
    if (part.getType() == UMSGPAT_PART_TYPE_ARG_LIMIT) open.pop_back();
  }
  return open.empty() ? 0 : offset_of(open.back());
}

template_problem template_pattern::syntax_fault() const {
  const auto* row = std::find_if(pattern_faults.begin(), pattern_faults.end(),
                                 [&](const auto& r) { return r.status == status_; });
  const size_t offset = error_.offset > 0 ? offset_of(error_.offset) : open_argument();
  return {"template-refused"_rule, offset,
          row == pattern_faults.end() ? u_errorName(status_) : row->text};
}

// Whether ICU has a formatter for the argument that begins there, taken alone.
bool template_pattern::has_formatter(int start_part) const {
  const int begin = parsed_.getPart(start_part).getIndex();
  const int end = parsed_.getPart(parsed_.getLimitPartIndex(start_part)).getLimit();
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat format(pattern_.tempSubString(begin, end - begin), status);
  return U_SUCCESS(status);
}

// The innermost argument without a formatter, or the first one with a number that is too high.
std::optional<template_problem> template_pattern::argument_fault() const {
  std::optional<template_problem> fault;
  int end = -1;  // of the argument that the fault is in
  for (int i = 0; i < parsed_.countParts(); ++i) {
    const icu::MessagePattern::Part& part = parsed_.getPart(i);
    if (part.getType() == UMSGPAT_PART_TYPE_ARG_NUMBER && part.getValue() > 9)
      return {{"template-refused"_rule, offset_of(part.getIndex()),
               "arguments have the numbers 0 to 9"}};
    if (part.getType() != UMSGPAT_PART_TYPE_ARG_START || (fault && i > end)) continue;
    if (has_formatter(i)) continue;
    fault = {"template-refused"_rule, offset_of(part.getIndex()),
             "ICU has no such format for an argument"};
    end = parsed_.getLimitPartIndex(i);
  }
  return fault;
}

// Where the first argument begins that is no placeholder's, else the template.
size_t template_pattern::own_argument() const {
  for (int i = 0; i < parsed_.countParts(); ++i) {
    const icu::MessagePattern::Part& part = parsed_.getPart(i);
    const bool is_ours = std::any_of(placeholders_.begin(), placeholders_.end(),
                                     [&](const auto& p) { return p.begin == part.getIndex(); });
    if (part.getType() == UMSGPAT_PART_TYPE_ARG_START && !is_ours)
      return offset_of(part.getIndex());
  }
  return 0;
}

template_problem template_pattern::fault(const std::string& refusal) const {
  for (const template_piece& piece : pieces_)
    if (piece.kind == template_piece::kinds::placeholder && !is_name_for_icu(piece.text))
      return long_name(piece.offset);
  if (placeholders_.size() > icu_argument_limit)
    return eleventh_placeholder(placeholders_[icu_argument_limit].piece->offset);
  if (is_deep_)
    return {"template-refused"_rule, 0,
            "braces nest more than 100 deep, and the library hands no such text to ICU"};
  if (U_FAILURE(status_)) return syntax_fault();
  if (const auto argument = argument_fault()) return *argument;
  return {"template-refused"_rule, own_argument(),
          has_own_arguments() ? "ICU cannot show the value of this argument in this way" : refusal};
}

// ---- the rendering ----

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

rendered_template rendered_template_of(const event_model& event, std::string_view bytes,
                                       message_renderer renderer, const attribute_lookup& known) {
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
  if (checked.renderer == message_renderer::icu || problems.size() != before) return;
  const std::string refusal = refusal_of([&] { rendering.by_bytes(samples.front()); });
  if (!refusal.empty()) problems.push_back({"template-refused"_rule, 0, refusal});
}

void find_quoted_placeholders(std::string_view bytes, std::vector<template_problem>& problems) {
  const std::vector<template_piece> pieces = scan_template(bytes);
  template_pattern(pieces).find_quoted(problems);
}
