// The tokens of a message template.
#ifndef KP_LOG_LOGMSG_TOKEN_H
#define KP_LOG_LOGMSG_TOKEN_H

#include <unicode/unistr.h>

#include "base/kp_nocopy.h"
#include "base/kp_string.h"

enum _kp_LOG_token_type : int {
  _KP_STRING_TOKEN = 0,         // literal text
  _KP_FMT_SPECIFIER_TOKEN = 1,  // a format character
  _KP_ARG_SPECIFIER_TOKEN = 2   // an attribute name
};

// The base of all tokens. A token owns the one behind it: deleting the first of a chain deletes the
// chain, however long, without recursion.
class KP_API _kp_LOG_msg_token : kp_UTIL_no_inadvertant_copies {
 public:
  virtual ~_kp_LOG_msg_token();
  int get_type() const noexcept { return type; }

  const int type;                     // a _kp_LOG_token_type
  _kp_LOG_msg_token* next = nullptr;  // owned; null at the end

 protected:
  explicit _kp_LOG_msg_token(int token_type) noexcept : type(token_type) {}
};

class KP_API _kp_LOG_string_token final : public _kp_LOG_msg_token {
 public:
  explicit _kp_LOG_string_token(const icu::UnicodeString& literal);
  ~_kp_LOG_string_token() override;
  icu::UnicodeString text;
};

class KP_API _kp_LOG_kpString_token final : public _kp_LOG_msg_token {
 public:
  explicit _kp_LOG_kpString_token(const kp_String& literal);
  ~_kp_LOG_kpString_token() override;
  kp_String text;
};

class KP_API _kp_LOG_fmt_spec_token final : public _kp_LOG_msg_token {
 public:
  explicit _kp_LOG_fmt_spec_token(char format_character);
  ~_kp_LOG_fmt_spec_token() override;
  char format;
};

class KP_API _kp_LOG_arg_spec_token final : public _kp_LOG_msg_token {
 public:
  explicit _kp_LOG_arg_spec_token(const kp_String& attribute_name);
  ~_kp_LOG_arg_spec_token() override;
  kp_String name;  // bytes; UTF-8 when it came from a UnicodeString
};

// A chain of tokens, owned through its head.
class KP_API _kp_LOG_msg_token_list : kp_UTIL_no_inadvertant_copies {
 public:
  _kp_LOG_msg_token_list() noexcept = default;
  ~_kp_LOG_msg_token_list();
  // Takes ownership; the token's own next is not touched.
  void add_to_tail(_kp_LOG_msg_token* token) noexcept;

  _kp_LOG_msg_token* head = nullptr;
  _kp_LOG_msg_token* tail = nullptr;
};

#endif
