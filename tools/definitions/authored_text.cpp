#include "tools/definitions/authored_text.h"

#include "tools/definitions/template_text.h"

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
    if (character == '\'' && begins_or_ends_quote()) return toggle_quote();
    if (character == '{' && !is_quoted_) return skip_pattern();
    take(1, character == '{' || character == '}' ? std::string(2, character)
                                                 : std::string(1, character));
  }

  bool begins_or_ends_quote() const {
    return is_quoted_ || (text_.size() > 1 && (text_[1] == '{' || text_[1] == '}'));
  }

  void toggle_quote() {
    is_quoted_ = !is_quoted_;
    text_.remove_prefix(1);
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

static std::string authored_placeholder(const template_piece& piece, kp_AttributeType type) {
  if (!piece.shows_value()) return "";
  const char* chosen = "";
  if (piece.format == 'C') chosen = ":currency";
  if (piece.format == 'P') chosen = ":percent";
  if (piece.format == 'D' && type != TypeDate) chosen = ":date";
  if (piece.format == 'T' && type != TypeTime) chosen = ":time";
  return "{" + std::string(piece.text) + chosen + "}";
}

// ICU drops literal text before "%%", so that none was authored there.
static bool is_dropped(const std::vector<template_piece>& pieces, size_t i) {
  return i + 1 < pieces.size() && pieces[i + 1].kind == template_piece::kinds::percent;
}

static std::string likely_text(std::string_view bytes, const attribute_type_of& type_of) {
  const std::vector<template_piece> pieces = scan_template(bytes);
  std::string text;
  for (size_t i = 0; i < pieces.size(); ++i) {
    const template_piece& piece = pieces[i];
    if (piece.kind == template_piece::kinds::percent) text += '%';
    if (piece.kind == template_piece::kinds::literal && !is_dropped(pieces, i))
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
