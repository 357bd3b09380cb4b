// Tokens of templates, written out for comparing.
#ifndef TESTS_SUPPORT_MESSAGE_TOKENS_H
#define TESTS_SUPPORT_MESSAGE_TOKENS_H

#include <string>
#include <vector>

#include "logging/logmsg.h"
#include "logging/logmsg_token.h"

// Each token as "text:...", "format:..." or "name:...", Unicode in UTF-8.
inline std::vector<std::string> written_out(const _kp_LOG_msg_token_list& list) {
  std::vector<std::string> result;
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) {
    if (const auto* bytes = dynamic_cast<const _kp_LOG_kpString_token*>(token)) {
      result.push_back("text:" + std::string(bytes->text.c_str(), bytes->text.length()));
    } else if (const auto* units = dynamic_cast<const _kp_LOG_string_token*>(token)) {
      std::string utf8;
      units->text.toUTF8String(utf8);
      result.push_back("text:" + utf8);
    } else if (const auto* format = dynamic_cast<const _kp_LOG_fmt_spec_token*>(token)) {
      result.push_back(std::string("format:") + format->format);
    } else if (const auto* name = dynamic_cast<const _kp_LOG_arg_spec_token*>(token)) {
      result.push_back(std::string("name:") + name->name.c_str());
    }
  }
  return result;
}

// The tokens of a byte template.
inline std::vector<std::string> byte_tokens(const std::string& text) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_kpString(
      kp_String(text.data(), static_cast<unsigned>(text.size())), list);
  return written_out(list);
}

// The tokens of a Unicode template, given in UTF-8.
inline std::vector<std::string> unicode_tokens(const std::string& utf8) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_string(icu::UnicodeString::fromUTF8(utf8), list);
  return written_out(list);
}

#endif
