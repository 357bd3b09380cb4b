#include "logging/logmsg_icu_depth.h"

#include <algorithm>
#include <string>
#include <string_view>

logmsg_pattern_depth::logmsg_pattern_depth(const icu::UnicodeString& pattern, int limit)
    : pattern_(pattern), limit_(limit) {
  while (!is_at_end()) read_message_unit();
}

void logmsg_pattern_depth::enter() {
  deepest_ = std::max(deepest_, ++depth_);
  if (depth_ > limit_) stop();
}

// Or to the end.
void logmsg_pattern_depth::move_to_one_of(std::u16string_view units) {
  while (!is_at_end() && units.find(unit()) == std::u16string_view::npos) ++at_;
}

// --- Message text ---

void logmsg_pattern_depth::read_message_unit() {
  const char16_t unit = pattern_.charAt(at_++);
  if (unit == u'\'') return read_apostrophe();
  if (unit == u'{') return read_argument();
  if (unit == u'}') return end_message();
  if (unit == u'|' && around() == style::choice) find_choice();
}

void logmsg_pattern_depth::read_apostrophe() {
  if (unit() == u'\'') {
    ++at_;
  } else if (is_quotable()) {
    read_quoted();
  }
}

bool logmsg_pattern_depth::is_quotable() const {
  return unit() == u'{' || unit() == u'}' || (unit() == u'|' && around() == style::choice) ||
         (unit() == u'#' && around() == style::plural);
}

// A doubled apostrophe stands for itself.
void logmsg_pattern_depth::read_quoted() {
  do {
    ++at_;
    move_to_one_of(u"'");
    ++at_;
  } while (unit() == u'\'');
}

// A closing brace outside all arguments is text.
void logmsg_pattern_depth::end_message() {
  if (open_.empty()) return;
  leave();
  if (around() == style::choice) return open_.pop_back();
  find_branch();
}

// --- Arguments ---

void logmsg_pattern_depth::read_argument() {
  enter();
  if (!read_to_comma()) return;
  const int kind_at = at_;
  if (!read_to_comma()) return;
  open_argument(style_named(pattern_.tempSubStringBetween(kind_at, at_ - 1)));
}

// To behind the next comma; false when the argument ends before it.
bool logmsg_pattern_depth::read_to_comma() {
  move_to_one_of(u",{}");
  const char16_t found = unit();
  if (found == u'{') stop();
  if (is_at_end()) return false;
  ++at_;
  if (found == u'}') leave();
  return found == u',';
}

// By its letters: whatever else stands there is white space, or refused by ICU.
logmsg_pattern_depth::style logmsg_pattern_depth::style_named(const icu::UnicodeString& name) {
  std::string letters;
  for (int i = 0; i < name.length(); ++i) {
    const int lower = name.charAt(i) | 0x20;
    if (lower >= 'a' && lower <= 'z') letters += static_cast<char>(lower);
  }
  if (letters == "choice") return style::choice;
  if (letters == "plural" || letters == "selectordinal") return style::plural;
  return letters == "select" ? style::select : style::simple;
}

void logmsg_pattern_depth::open_argument(style kind) {
  if (kind == style::simple) return read_simple_style();
  open_.push_back(kind);
  if (kind == style::choice) return find_choice();
  find_branch();
}

void logmsg_pattern_depth::read_simple_style() {
  const int outside = depth_ - 1;
  while (depth_ != outside && !is_at_end()) {
    move_to_one_of(u"'{}");
    const char16_t found = unit();
    ++at_;
    if (found == u'{') enter();
    if (found == u'}') leave();
    if (found != u'\'') continue;
    move_to_one_of(u"'");
    ++at_;
  }
}

// To behind the sign between a choice's number and its message.
void logmsg_pattern_depth::find_choice() {
  move_to_one_of(u"#<\u2264{}");
  if (unit() == u'{' || unit() == u'}') return stop();
  ++at_;
}

// Into the next message of a plural or a select, or out of the argument.
void logmsg_pattern_depth::find_branch() {
  move_to_one_of(u"{}");
  if (is_at_end()) return;
  if (pattern_.charAt(at_++) == u'{') return enter();
  leave();
  open_.pop_back();
}
