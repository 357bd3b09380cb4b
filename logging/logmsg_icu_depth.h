// How deep a message pattern nests, found without recursion.
#ifndef KP_LOG_LOGMSG_ICU_DEPTH_H
#define KP_LOG_LOGMSG_ICU_DEPTH_H

#include <unicode/unistr.h>

#include <string_view>
#include <vector>

#include "base/kp_export.h"

// ICU reads and formats nested patterns by recursion: the library lets it have no deeper ones.
constexpr int logmsg_deepest_pattern = 100;

// Walks a pattern by the rules of icu::MessagePattern. In message text an apostrophe quotes when a
// brace follows it (in a choice also "|", in a plural also "#"); in the style of a simple argument
// it quotes always. For a pattern that ICU takes the depth is exactly that of its braces, those of
// placeholders included; in any other it is exact up to ICU's first error.
class KP_API logmsg_pattern_depth {
 public:
  // Stops where braces nest more than `limit` deep. The pattern must outlive this object.
  logmsg_pattern_depth(const icu::UnicodeString& pattern, int limit);
  int deepest() const noexcept { return deepest_; }

 private:
  // Choice, plural and select arguments hold messages of their own.
  enum class style { simple, choice, plural, select };
  static style style_named(const icu::UnicodeString& name);

  void read_message_unit();
  void read_apostrophe();
  bool is_quotable() const;
  void read_quoted();
  void end_message();
  void read_argument();
  bool read_to_comma();
  void read_simple_style();
  void open_argument(style kind);
  void find_choice();
  void find_branch();

  void enter();
  void leave() noexcept { --depth_; }
  void move_to_one_of(std::u16string_view units);
  void stop() { at_ = pattern_.length(); }
  bool is_at_end() const { return at_ >= pattern_.length(); }
  char16_t unit() const { return pattern_.charAt(at_); }
  // Of the argument whose message is read; simple outside all arguments.
  style around() const noexcept { return open_.empty() ? style::simple : open_.back(); }

  const icu::UnicodeString& pattern_;
  const int limit_;
  int at_ = 0;
  int depth_ = 0;
  int deepest_ = 0;
  std::vector<style> open_;  // outermost first; never longer than the limit
};

#endif
