#include "tools/definitions/authored_text.h"

#include <algorithm>
#include <array>

#include "recording/definitions/template.h"
#include "recording/text/words.h"

// A placeholder that renders as nothing, and keeps the text before it from being dropped.
static constexpr std::string_view nothing_placeholder = "%x%TIMESTAMP%";

// Values as texts speak of them, with the MessageFormat piece that shows nothing of one ("#" stands
// for the argument's number), which must be of a kind that the argument's own kind allows.
struct value_family {
  bool (*holds)(kp_AttributeType);
  const char* name;
  const char* icu_nothing;
};

static constexpr std::array<value_family, 3> value_families = {{
    {is_number_attribute, "a number", "{#,plural,other{}}"},
    {is_any_string_attribute, "a string", "{#,select,other{}}"},
    {is_time_attribute, "a time", "{#,date,l}"},  // "l" is ICU's letter for nothing
}};

// Null for codes that are no types.
static const value_family* family_of(kp_AttributeType type) {
  const auto* family = std::find_if(value_families.begin(), value_families.end(),
                                    [&](const value_family& f) { return f.holds(type); });
  return family == value_families.end() ? nullptr : family;
}

// The authored text in pieces.
struct authored_piece {
  enum class kinds { text, brace, apostrophe, percent, placeholder };
  kinds kind = kinds::text;
  size_t offset = 0;           // in the authored text
  std::string_view text = {};  // a placeholder's: between its braces
};

// Cuts an authored text into pieces.
class authored_text_reader {
 public:
  authored_text_reader(std::string_view text, std::vector<template_problem>& problems)
      : text_(text), problems_(problems) {}

  std::vector<authored_piece> read() {
    while (at_ < text_.size()) read_piece();
    return std::move(pieces_);
  }

 private:
  void read_piece() {
    switch (text_[at_]) {
      case '{':
        return read_opening_brace();
      case '}':
        return read_closing_brace();
      case '%':
        return add(authored_piece::kinds::percent, 1);
      case '\'':
        return add(authored_piece::kinds::apostrophe, 1);
      default:
        return add(authored_piece::kinds::text,
                   std::min(text_.find_first_of("{}%'", at_), text_.size()) - at_);
    }
  }

  void add(authored_piece::kinds kind, size_t size) {
    pieces_.push_back({kind, at_, text_.substr(at_, size)});
    at_ += size;
  }

  void add_brace() {
    add(authored_piece::kinds::brace, 1);
    ++at_;
  }

  void read_opening_brace() {
    if (text_.substr(at_).starts_with("{{")) return add_brace();
    const size_t end = text_.find_first_of("{}", at_ + 1);
    if (is_icu_form(text_.substr(at_ + 1, std::min(end, text_.size()) - at_ - 1)))
      return skip_icu_form();
    if (end == std::string_view::npos || text_[end] == '{')
      return skip("this brace has no partner; write {{ for a brace");
    if (end == at_ + 1) return skip("an attribute's name is missing between the braces");
    pieces_.push_back(
        {authored_piece::kinds::placeholder, at_, text_.substr(at_ + 1, end - at_ - 1)});
    at_ = end + 1;
  }

  void read_closing_brace() {
    if (text_.substr(at_).starts_with("}}")) return add_brace();
    skip("this brace has no partner; write }} for a brace");
  }

  // "NAME, plural, ...", as ICU writes it.
  static bool is_icu_form(std::string_view text) {
    const size_t comma = text.find(',');
    if (comma == std::string_view::npos) return false;
    text.remove_prefix(std::min(text.find_first_not_of(' ', comma + 1), text.size()));
    const std::string_view kind = text.substr(0, text.find_first_of(", "));
    static constexpr std::array<std::string_view, 10> kinds = {
        "plural", "select", "selectordinal", "choice",  "number",
        "date",   "time",   "spellout",      "ordinal", "duration"};
    return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
  }

  // To the brace that ends it, over those within it.
  void skip_icu_form() {
    problems_.push_back(
        {"text-brace"_rule, at_,
         "a text has none of ICU's forms; a raw template has them, as {0,plural,...} for its first "
         "placeholder, and selector messages give each case a text"});
    size_t depth = 0;
    do {
      if (text_[at_] == '{') ++depth;
      if (text_[at_] == '}') --depth;
      ++at_;
    } while (depth != 0 && at_ < text_.size());
  }

  // A brace without partner stays out; an empty pair is passed over as a whole.
  void skip(const char* why) {
    problems_.push_back({"text-brace"_rule, at_, why});
    at_ += text_.substr(at_).starts_with("{}") ? size_t{2} : size_t{1};
  }

  std::string_view text_;
  std::vector<template_problem>& problems_;
  std::vector<authored_piece> pieces_;
  size_t at_ = 0;
};

// A placeholder with its attribute found and its format chosen.
struct resolved_placeholder {
  std::string_view name;
  char format = '\0';
  kp_AttributeType type = TypeUnknown;
  const char* icu_nothing = "";
};

// Writes the template, piece by piece.
class template_text_writer {
 public:
  template_text_writer(message_renderer renderer, const template_attributes& attributes,
                       std::vector<template_problem>& problems)
      : icu_(renderer != message_renderer::bytes),
        bytes_(renderer != message_renderer::icu),
        attributes_(attributes),
        problems_(problems) {}

  std::string write(const std::vector<authored_piece>& pieces) {
    for (size_t i = 0; i < pieces.size(); ++i)
      write_piece(pieces[i], i + 1 < pieces.size() ? &pieces[i + 1] : nullptr);
    close_quote();
    if (last_ == last_kinds::literal && icu_) template_ += nothing_placeholder;
    return std::move(template_);
  }

 private:
  enum class last_kinds { nothing, literal, placeholder };  // nothing: the start, or "%%"

  void write_piece(const authored_piece& piece, const authored_piece* next) {
    switch (piece.kind) {
      case authored_piece::kinds::text:
        return write_literal(piece.text);
      case authored_piece::kinds::brace:
        return write_brace(piece);
      case authored_piece::kinds::apostrophe:
        return write_apostrophe(piece, next);
      case authored_piece::kinds::percent:
        return write_percent(piece);
      case authored_piece::kinds::placeholder:
        return write_placeholder(piece);
    }
  }

  void write_literal(std::string_view text) {
    close_quote();
    append_literal(text);
  }

  void append_literal(std::string_view text) {
    template_ += text;
    last_ = last_kinds::literal;
  }

  void write_brace(const authored_piece& piece) {
    if (icu_ && bytes_)
      problem("text-quote"_rule, piece.offset,
              "a brace is quoted for ICU, and the byte renderer would show the quotes");
    if (icu_ && !quote_is_open_) {
      append_literal("'");
      quote_is_open_ = true;
    }
    append_literal(piece.text);
  }

  // Within quotes and outside, ICU reads two apostrophes as one. A single one stands for itself
  // too, except before a brace or another apostrophe; that is how both renderers can show it.
  void write_apostrophe(const authored_piece& piece, const authored_piece* next) {
    if (icu_ && bytes_ && next != nullptr &&
        (next->kind == authored_piece::kinds::apostrophe ||
         next->kind == authored_piece::kinds::placeholder))
      problem("text-quote"_rule, piece.offset,
              "an apostrophe here is doubled for ICU, and the byte renderer would show both");
    append_literal(bytes_ ? "'" : "''");
  }

  void write_percent(const authored_piece& piece) {
    if (bytes_)
      problem("text-percent"_rule, piece.offset, "the byte renderer cannot show a percent sign");
    close_quote();
    if (last_ == last_kinds::literal) template_ += nothing_placeholder;
    if (last_ != last_kinds::nothing) template_ += ' ';
    template_ += "%%";
    last_ = last_kinds::nothing;
  }

  void write_placeholder(const authored_piece& piece) {
    close_quote();
    const resolved_placeholder placeholder = resolve(piece);
    if (last_ == last_kinds::placeholder) separate(piece);
    ((((template_ += '%') += placeholder.format) += '%') += placeholder.name) += '%';
    last_ = last_kinds::placeholder;
    before_ = placeholder.icu_nothing;
    if (++arguments_ == icu_argument_limit + 1 && icu_)
      problems_.push_back(eleventh_placeholder(piece.offset));
  }

  // Between two placeholders.
  void separate(const authored_piece& piece) {
    if (bytes_)
      return problem("text-adjacent"_rule, piece.offset,
                     "the byte renderer needs some text between two placeholders");
    std::string nothing = before_;
    nothing.replace(nothing.find('#'), nothing.empty() ? 0 : 1, std::to_string(arguments_ - 1));
    template_ += nothing;
  }

  void close_quote() {
    if (quote_is_open_) template_ += '\'';
    quote_is_open_ = false;
  }

  resolved_placeholder resolve(const authored_piece& piece) {
    const size_t colon = piece.text.rfind(':');
    resolved_placeholder placeholder{.name = piece.text.substr(0, colon)};
    check_name(piece, placeholder.name);
    placeholder.type = attributes_.type_of(placeholder.name);
    const value_family* const family = family_of(placeholder.type);
    if (family == nullptr) {
      refuse_name(piece, placeholder.name);
      placeholder.icu_nothing = "#";
      return placeholder;
    }
    if (const auto unshown = unshown_type_problem(placeholder.type, piece.offset + 1))
      problems_.push_back(*unshown);
    placeholder.icu_nothing = family->icu_nothing;
    placeholder.format = colon == std::string_view::npos
                             ? default_format(piece, placeholder.type)
                             : chosen_format(piece, placeholder.type, colon);
    return placeholder;
  }

  // An attribute that is there, and of no type, is no fault of the text.
  void refuse_name(const authored_piece& piece, std::string_view name) {
    const std::vector<std::string_view> names = attributes_.names();
    if (is_shown_as_mbchar(name))
      return problem("text-attribute"_rule, piece.offset + 1, unknown_attribute_text(name));
    if (std::find(names.begin(), names.end(), name) != names.end()) return;
    problem("text-attribute"_rule, piece.offset + 1,
            unknown_attribute_text(name) + nearest_name_hint(name, names));
  }

  char default_format(const authored_piece& piece, kp_AttributeType type) {
    for (const template_format& format : template_formats)
      if (format.is_default(type)) return format.character;
    problem("text-format"_rule, piece.offset + 1,
            "a timestamp needs a format: {" + std::string(piece.text) + ":date} or {" +
                std::string(piece.text) + ":time}");
    return 'D';
  }

  char chosen_format(const authored_piece& piece, kp_AttributeType type, size_t colon) {
    const std::string_view word = piece.text.substr(colon + 1);
    const size_t offset = piece.offset + 1 + colon + 1;
    const auto* format =
        std::find_if(template_formats.begin(), template_formats.end(),
                     [&](const template_format& f) { return f.word != nullptr && f.word == word; });
    if (format == template_formats.end()) {
      problem("text-format"_rule, offset,
              "no format " + in_quotes(word) +
                  "; formats are currency and percent of numbers, date and time of times");
      return 'd';
    }
    if (!format->suits(type))
      problem("text-format"_rule, offset,
              "the format " + in_quotes(word) + " is for " +
                  (format->suits(TypeTimestamp) ? "times" : "numbers") + ", and " +
                  in_quotes(piece.text.substr(0, colon)) + " is " + family_of(type)->name);
    return format->character;
  }

  void check_name(const authored_piece& piece, std::string_view name) {
    if (name.find('%') != std::string_view::npos)
      problem("text-name"_rule, piece.offset + 1,
              "a name with a percent sign cannot stand in a message");
    if (icu_ && !is_name_for_icu(name)) problems_.push_back(long_name(piece.offset + 1));
  }

  void problem(diagnostic_rule rule, size_t offset, std::string text) {
    problems_.push_back({rule, offset, std::move(text)});
  }

  const bool icu_;    // the ICU renderer must show the text
  const bool bytes_;  // the byte renderer must
  const template_attributes& attributes_;
  std::vector<template_problem>& problems_;
  std::string template_;
  last_kinds last_ = last_kinds::nothing;
  bool quote_is_open_ = false;  // an apostrophe that quotes braces
  unsigned arguments_ = 0;
  std::string before_;  // the piece that renders the last placeholder's argument as nothing
};

std::string template_from_text(std::string_view authored, message_renderer renderer,
                               const template_attributes& attributes,
                               std::vector<template_problem>& problems) {
  const std::vector<authored_piece> pieces = authored_text_reader(authored, problems).read();
  return template_text_writer(renderer, attributes, problems).write(pieces);
}

// ---- back ----

// Undoes the quoting of literal text for MessageFormat, and leaves out the patterns that separate
// placeholders. What it makes of other patterns does not matter: it gives another template.
class quoted_literal_reader {
 public:
  explicit quoted_literal_reader(std::string_view text) : text_(text) {}

  std::string read() {
    while (!text_.empty()) read_character();
    return std::move(authored_);
  }

 private:
  void read_character() {
    const char character = text_.front();
    if (text_.starts_with("''")) return take(2, "'");
    if (character == '\'' && begins_or_ends_quote()) {
      is_quoted_ = !is_quoted_;
      return text_.remove_prefix(1);
    }
    if (character == '{' && !is_quoted_) return skip_pattern();
    take(1, character == '{' || character == '}' ? std::string(2, character)
                                                 : std::string(1, character));
  }

  bool begins_or_ends_quote() const {
    return is_quoted_ || (text_.size() > 1 && (text_[1] == '{' || text_[1] == '}'));
  }

  void skip_pattern() {
    size_t depth = 0;
    do {
      if (text_.front() == '{') ++depth;
      if (text_.front() == '}') --depth;
      text_.remove_prefix(1);
    } while (depth > 0 && !text_.empty());
  }

  void take(size_t size, std::string_view authored) {
    authored_ += authored;
    text_.remove_prefix(size);
  }

  std::string_view text_;
  std::string authored_;
  bool is_quoted_ = false;
};

std::string authored_placeholder(const template_piece& piece, kp_AttributeType type) {
  const template_format* const format = find_format(piece.format);
  if (!piece.shows_value()) return "";
  const bool is_chosen = format->word != nullptr && !format->is_default(type);
  return "{" + std::string(piece.text) + (is_chosen ? ":" + std::string(format->word) : "") + "}";
}

static std::string likely_text(std::string_view bytes, const attribute_type_of& type_of) {
  const std::vector<template_piece> pieces = scan_template(bytes);
  std::string text;
  for (size_t i = 0; i < pieces.size(); ++i) {
    const template_piece& piece = pieces[i];
    if (piece.kind == template_piece::kinds::percent) text += '%';
    // ICU drops literal text before "%%", so that none was authored there.
    const bool is_dropped =
        i + 1 < pieces.size() && pieces[i + 1].kind == template_piece::kinds::percent;
    if (piece.kind == template_piece::kinds::literal && !is_dropped)
      text += quoted_literal_reader(piece.text).read();
    if (piece.kind == template_piece::kinds::placeholder)
      text += authored_placeholder(piece, type_of(piece.text));
  }
  return text;
}

std::optional<std::string> authored_text_of(std::string_view bytes,
                                            const attribute_type_of& type_of) {
  std::string text = likely_text(bytes, type_of);
  std::vector<template_problem> problems;
  const template_attributes attributes{type_of, [] { return std::vector<std::string_view>(); }};
  const bool is_the_one =
      template_from_text(text, message_renderer::icu, attributes, problems) == bytes;
  if (!is_the_one || !problems.empty()) return std::nullopt;
  return text;
}
