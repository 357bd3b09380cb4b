#include "logging/logmsg_token.h"

#include <memory>

#include "base/kp_clib.h"
#include "kp_LOG_errors.h"
#include "logging/icu_text.h"
#include "logging/logmsg.h"
#include "logging/raise.h"

// --- Tokens and their list ---

static void delete_chain(_kp_LOG_msg_token* token) noexcept {
  while (token != nullptr) {
    _kp_LOG_msg_token* const rest = token->next;
    token->next = nullptr;
    delete token;
    token = rest;
  }
}

_kp_LOG_msg_token::~_kp_LOG_msg_token() {
  delete_chain(next);
}

_kp_LOG_string_token::_kp_LOG_string_token(const icu::UnicodeString& literal)
    : _kp_LOG_msg_token(_KP_STRING_TOKEN), text(literal) {
  if (text.isBogus() && !literal.isBogus()) kp_log_raise_alloc();
}
_kp_LOG_string_token::~_kp_LOG_string_token() = default;

_kp_LOG_kpString_token::_kp_LOG_kpString_token(const kp_String& literal)
    : _kp_LOG_msg_token(_KP_STRING_TOKEN), text(literal) {}
_kp_LOG_kpString_token::~_kp_LOG_kpString_token() = default;

_kp_LOG_fmt_spec_token::_kp_LOG_fmt_spec_token(char format_character)
    : _kp_LOG_msg_token(_KP_FMT_SPECIFIER_TOKEN), format(format_character) {}
_kp_LOG_fmt_spec_token::~_kp_LOG_fmt_spec_token() = default;

_kp_LOG_arg_spec_token::_kp_LOG_arg_spec_token(const kp_String& attribute_name)
    : _kp_LOG_msg_token(_KP_ARG_SPECIFIER_TOKEN), name(attribute_name) {}
_kp_LOG_arg_spec_token::~_kp_LOG_arg_spec_token() = default;

_kp_LOG_msg_token_list::~_kp_LOG_msg_token_list() {
  delete head;
}

void _kp_LOG_msg_token_list::add_to_tail(_kp_LOG_msg_token* token) noexcept {
  (head == nullptr ? head : tail->next) = token;
  tail = token;
}

unsigned _kp_LOG_log_message::_get_number_of_attributes(const _kp_LOG_msg_token_list& list) {
  unsigned count = 0;
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) {
    if (token->get_type() == _KP_FMT_SPECIFIER_TOKEN) ++count;
  }
  return count;
}

// --- What both tokenizers share ---

enum class template_state { text, after_format, in_name };

// A list that already holds tokens is a caller's mistake; it is emptied.
static void expect_empty(_kp_LOG_msg_token_list& list) {
  if (list.head == nullptr) return;
  KP_assertion_violation("list.head == nullptr", "logging/logmsg", __LINE__);
  delete list.head;
  list.head = list.tail = nullptr;
}

template <class Token, class... Argument>
static void emit(_kp_LOG_msg_token_list& list, const Argument&... argument) {
  list.add_to_tail(new Token(argument...));
}

// --- The byte tokenizer ---

class logmsg_byte_tokenizer {
 public:
  logmsg_byte_tokenizer(const kp_String& text, _kp_LOG_msg_token_list& list)
      : text_(text.c_str()), end_(text.length()), list_(list) {}

  void run() {
    while (at_ < end_) {
      if (text_[at_] != '%') {
        ++at_;
      } else if (!percent()) {
        return;
      }
    }
    emit_text(end_);
  }

 private:
  // Handles the "%" at the position; false ends the walk at once.
  bool percent() {
    const unsigned behind = at_ + 1;
    if (behind == end_) return last_percent();
    if (text_[behind] == '%') {
      escape();
    } else {
      (this->*on_percent[static_cast<int>(state_)])(behind);
    }
    return true;
  }

  bool last_percent() {
    if (state_ == template_state::after_format) return false;
    if (state_ == template_state::text) {
      emit_text(at_);
      kp_log_raise<KPX_index_out_of_bounds>(nullptr);
    }
    close_name(at_ + 1);
    return true;
  }

  // The text before an escape is dropped, and what the escape leaves is 37 NULs, not a percent
  // sign: templates in use depend on the messages that this gives.
  void escape() {
    emit<_kp_LOG_kpString_token>(list_, kp_String(37U, '\0'));
    start_ = at_ = at_ + 2;
  }

  void open_format(unsigned behind) {
    emit_text(at_);
    emit<_kp_LOG_fmt_spec_token>(list_, text_[behind]);
    state_ = template_state::after_format;
    at_ = behind;
  }

  void open_name(unsigned behind) {
    state_ = template_state::in_name;
    start_ = at_ = behind;
  }

  void close_name(unsigned behind) {
    if (start_ != at_) emit<_kp_LOG_arg_spec_token>(list_, piece(at_));
    state_ = template_state::text;
    start_ = at_ = behind;
  }

  void emit_text(unsigned end) {
    if (start_ < end) emit<_kp_LOG_kpString_token>(list_, piece(end));
  }

  kp_String piece(unsigned end) const { return {text_ + start_, end - start_}; }

  static constexpr void (logmsg_byte_tokenizer::*on_percent[])(unsigned) = {
      &logmsg_byte_tokenizer::open_format, &logmsg_byte_tokenizer::open_name,
      &logmsg_byte_tokenizer::close_name};

  const char* text_;
  unsigned end_;
  _kp_LOG_msg_token_list& list_;
  template_state state_ = template_state::text;
  unsigned start_ = 0;  // of the pending text or name
  unsigned at_ = 0;
};

void _kp_LOG_log_message::_tokenize_kpString(const kp_String& text, _kp_LOG_msg_token_list& list) {
  expect_empty(list);
  kp_log_no_bad_alloc([&] { logmsg_byte_tokenizer(text, list).run(); });
}

// --- The Unicode tokenizer ---

// Attribute names are handed on in UTF-8.
static constinit icu_text_kept_code_page name_code_page;

class logmsg_unicode_tokenizer {
 public:
  logmsg_unicode_tokenizer(const icu::UnicodeString& text, _kp_LOG_msg_token_list& list)
      : text_(text), list_(list) {}

  // What stands behind the last "%" that was handled is not part of the result: templates in use
  // end with a placeholder.
  void run() {
    while (at_ < text_.length()) {
      const int percent = text_.indexOf(u'%', at_);
      if (percent < 0) break;
      handle(percent);
    }
    emit_text(at_);
  }

 private:
  void handle(int percent) {
    const int behind = percent + 1;
    if (behind < text_.length() && text_.charAt(behind) == u'%') {
      emit<_kp_LOG_string_token>(list_, icu::UnicodeString(u'%'));
      start_ = at_ = percent + 2;
      return;
    }
    at_ = behind;
    if (state_ == template_state::text) {
      open_format(percent);
    } else if (state_ == template_state::after_format) {
      state_ = template_state::in_name;
      start_ = behind;
    } else {
      close_name(percent);
    }
  }

  void open_format(int percent) {
    emit_text(percent);
    const bool is_last = at_ == text_.length();
    emit<_kp_LOG_fmt_spec_token>(list_, static_cast<char>(is_last ? 0xFF : text_.charAt(at_)));
    state_ = template_state::after_format;
  }

  void close_name(int percent) {
    if (start_ != percent) emit<_kp_LOG_arg_spec_token>(list_, name_until(percent));
    state_ = template_state::text;
    start_ = at_;
  }

  // Names get two bytes per unit and two more; a longer one is refused, by contract.
  kp_String name_until(int percent) const {
    const icu::UnicodeString name = text_.tempSubStringBetween(start_, percent);
    const int room = 2 * name.length() + 2;
    const auto bytes = std::make_unique<char[]>(static_cast<size_t>(room) + 1);
    int written = 0;
    if (name_code_page.encode(name, bytes.get(), room, written) != icu_text_result::ok) {
      kp_log_raise<KPX_logging_internal_error>(
          "<KPX_logging_internal_error>_kp_LOG_log_message::_tokenize_string:  "
          "UnicodeConverter::fromUnicodeString() failed!");
    }
    bytes[static_cast<size_t>(written)] = '\0';
    return kp_String(bytes.get());
  }

  void emit_text(int end) {
    if (start_ >= end) return;
    emit<_kp_LOG_string_token>(list_, text_.tempSubStringBetween(start_, end));
  }

  const icu::UnicodeString& text_;
  _kp_LOG_msg_token_list& list_;
  template_state state_ = template_state::text;
  int start_ = 0;  // of the pending text or name
  int at_ = 0;
};

static void choose_name_code_page() {
  if (name_code_page.is_chosen() || name_code_page.choose("UTF8")) return;
  kp_log_raise<KPX_logging_internal_error>(
      "<KPX_logging_internal_error> _kp_LOG_log_message::_tokenize_string:  UnicodeConverter "
      "constructor failed!");
}

void _kp_LOG_log_message::_tokenize_string(const icu::UnicodeString& text,
                                           _kp_LOG_msg_token_list& list) {
  expect_empty(list);
  choose_name_code_page();
  kp_log_no_bad_alloc([&] { logmsg_unicode_tokenizer(text, list).run(); });
}
