// The message pattern of ICU that a template stands for, and how it reads.
#ifndef KP_LOG_LOGMSG_ICU_PATTERN_H
#define KP_LOG_LOGMSG_ICU_PATTERN_H

#include <unicode/unistr.h>

#include <vector>

#include "logging/logmsg_placeholder.h"

// How a message is made of a template.
enum class logmsg_road {
  direct,   // literal text and our own arguments only: written one after the other
  pattern,  // literal text adds arguments of its own: ICU formats the whole pattern
  refused   // ICU, or the limit of ten arguments, refuses the pattern
};

// Message patterns number their arguments from 0 to 9.
constexpr size_t logmsg_most_arguments = 10;

// Everything about a Unicode template that depends neither on the entry nor on the locale: its
// placeholders, its message pattern, and how that pattern reads.
class logmsg_icu_pattern {
 public:
  struct step {
    icu::UnicodeString before;  // literal text as ICU shows it; on the direct road only
    logmsg_placeholder placeholder;
    bool is_shown;  // on the direct road: false inside quotes, and without a meaning
  };

  // Raises KPX_memory_alloc, and what the tokenizer raises.
  explicit logmsg_icu_pattern(const icu::UnicodeString& text);

  logmsg_road taken() const noexcept { return road_; }
  const std::vector<step>& steps() const noexcept { return steps_; }
  const icu::UnicodeString& rest() const noexcept {
    return rest_;
  }  // literal text behind the steps
  const icu::UnicodeString& pattern() const noexcept { return pattern_; }

 private:
  struct piece {
    int offset;   // of the argument in the pattern
    size_t step;  // whose argument it is
  };

  const _kp_LOG_msg_token* take(const _kp_LOG_msg_token* token);
  void append_piece(logmsg_kind kind);
  bool is_within_limits() const;
  bool has_bogus_text() const;
  void read_pattern();

  icu::UnicodeString pattern_;
  std::vector<step> steps_;
  std::vector<piece> pieces_;
  icu::UnicodeString rest_;
  logmsg_road road_ = logmsg_road::refused;
};

// The piece of a message pattern that shows a value of that kind as argument 0, "" for nothing.
const char16_t* logmsg_pattern_of(logmsg_kind kind);

#endif
