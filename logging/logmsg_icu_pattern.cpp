#include "logging/logmsg_icu_pattern.h"

#include <unicode/messagepattern.h>

#include <algorithm>
#include <utility>

#include "logging/logmsg.h"
#include "logging/logmsg_icu_depth.h"
#include "logging/raise.h"

struct logmsg_pattern_row {
  logmsg_kind kind;
  const char16_t* behind_number;
  const char16_t* whole;  // with the number 0
};

static constexpr logmsg_pattern_row pattern_rows[] = {
    {logmsg_kind::nothing, u"", u""},
    {logmsg_kind::string, u"}", u"{0}"},
    {logmsg_kind::integer, u",number,##########}", u"{0,number,##########}"},
    {logmsg_kind::floating, u",number}", u"{0,number}"},
    {logmsg_kind::currency, u",number,currency}", u"{0,number,currency}"},
    {logmsg_kind::percent, u",number,percent}", u"{0,number,percent}"},
    {logmsg_kind::date, u",date}", u"{0,date}"},
    {logmsg_kind::time, u",time}", u"{0,time}"},
};

const char16_t* logmsg_pattern_of(logmsg_kind kind) {
  return pattern_rows[static_cast<size_t>(kind)].whole;
}

logmsg_icu_pattern::logmsg_icu_pattern(const icu::UnicodeString& text) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_string(text, list);
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr;) token = take(token);
  if (pattern_.isBogus()) kp_log_raise_alloc();
  if (is_within_limits()) read_pattern();
  if (has_bogus_text()) kp_log_raise_alloc();
}

// Takes the token in, and for a format token the one behind it; returns the next.
const _kp_LOG_msg_token* logmsg_icu_pattern::take(const _kp_LOG_msg_token* token) {
  // Literal text is not quoted: its apostrophes and braces mean what they mean in a pattern.
  if (const auto* literal = dynamic_cast<const _kp_LOG_string_token*>(token)) {
    pattern_.append(literal->text);
  } else if (const auto* format = dynamic_cast<const _kp_LOG_fmt_spec_token*>(token)) {
    const _kp_LOG_msg_token* behind = token->next;
    steps_.push_back({{}, logmsg_placeholder(*format, behind), false});
    append_piece(steps_.back().placeholder.kind());
    return behind != nullptr ? behind->next : nullptr;
  }
  return token->next;
}

void logmsg_icu_pattern::append_piece(logmsg_kind kind) {
  if (kind == logmsg_kind::nothing) return;
  const size_t number = pieces_.size();
  pieces_.push_back({pattern_.length(), steps_.size() - 1});
  if (number >= logmsg_most_arguments) return;
  const char16_t digit = static_cast<char16_t>(u'0' + number);
  pattern_.append(u'{').append(digit).append(pattern_rows[static_cast<size_t>(kind)].behind_number,
                                             -1);
}

bool logmsg_icu_pattern::is_within_limits() const {
  return pieces_.size() <= logmsg_most_arguments &&
         logmsg_pattern_depth(pattern_, logmsg_deepest_pattern).deepest() <= logmsg_deepest_pattern;
}

// A text that found no memory on the way marks itself as bogus, and reads as empty.
bool logmsg_icu_pattern::has_bogus_text() const {
  return rest_.isBogus() || std::any_of(steps_.begin(), steps_.end(),
                                        [](const step& shown) { return shown.before.isBogus(); });
}

static bool has_high_argument(const icu::MessagePattern& pattern) {
  for (int i = 0; i < pattern.countParts(); ++i) {
    const icu::MessagePattern::Part& part = pattern.getPart(i);
    if (part.getType() == UMSGPAT_PART_TYPE_ARG_NUMBER &&
        part.getValue() >= static_cast<int>(logmsg_most_arguments)) {
      return true;
    }
  }
  return false;
}

// Walks the top level of the pattern as ICU does when it formats. Parts between literal texts
// (quotes, doubled apostrophes) are left out; an argument that is not one of our pieces ends the
// direct road.
void logmsg_icu_pattern::read_pattern() {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessagePattern parsed(pattern_, nullptr, status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  if (U_FAILURE(status) || has_high_argument(parsed)) return;
  road_ = logmsg_road::pattern;
  int literal_start = 0;
  auto own = pieces_.cbegin();
  for (int i = 1; i < parsed.countParts(); ++i) {
    const icu::MessagePattern::Part& part = parsed.getPart(i);
    rest_.append(pattern_, literal_start, part.getIndex() - literal_start);
    literal_start = part.getLimit();
    if (part.getType() != UMSGPAT_PART_TYPE_ARG_START) continue;
    own = std::find_if(own, pieces_.cend(),
                       [&](const piece& p) { return p.offset == part.getIndex(); });
    if (own == pieces_.cend()) return;
    step& shown = steps_[own->step];
    shown.before = std::exchange(rest_, {});
    shown.is_shown = true;
    i = parsed.getLimitPartIndex(i);
    literal_start = parsed.getPart(i).getLimit();
  }
  road_ = logmsg_road::direct;
}
