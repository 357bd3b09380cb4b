#include "tools/definitions/template_pattern.h"

#include <unicode/locid.h>
#include <unicode/msgfmt.h>

#include <algorithm>
#include <array>

#include "logging/logmsg_icu_depth.h"
#include "recording/text/utf8.h"
#include "recording/text/words.h"

static bool is_dropped(const std::vector<template_piece>& pieces, size_t i) {
  return i + 1 == pieces.size() || pieces[i + 1].kind == template_piece::kinds::percent;
}

template_pattern::template_pattern(const std::vector<template_piece>& pieces) : pieces_(pieces) {
  for (size_t i = 0; i < pieces.size(); ++i) {
    const template_piece& piece = pieces[i];
    if (piece.kind == template_piece::kinds::literal && !is_dropped(pieces, i))
      append_literal(piece);
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

std::optional<template_problem> template_pattern::name_fault() const {
  for (const template_piece& piece : pieces_)
    if (piece.kind == template_piece::kinds::placeholder && !is_name_for_icu(piece.text))
      return long_name(piece.offset);
  return std::nullopt;
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
  if (const auto name = name_fault()) return *name;
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
