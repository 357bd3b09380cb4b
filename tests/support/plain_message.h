// The ICU renderer spelt out: the described steps, one after the other, with nothing kept from one
// message to the next. Slow, and what the library's own renderer is measured against.
#ifndef TESTS_SUPPORT_PLAIN_MESSAGE_H
#define TESTS_SUPPORT_PLAIN_MESSAGE_H

#include <unicode/fieldpos.h>
#include <unicode/msgfmt.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "kp_LOG_LogConfig.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_token.h"

// Renders templates whose placeholders are well formed and suit their attributes.
class plain_message {
 public:
  explicit plain_message(const _kp_LOG_log_entry_imp& entry) : entry_(entry) {}

  // The text of the message, or the name of ICU's status when ICU refuses it. `text` is the
  // template.
  icu::UnicodeString render(const icu::UnicodeString& text) {
    _kp_LOG_msg_token_list list;
    _kp_LOG_log_message::_tokenize_string(text, list);
    for (const _kp_LOG_msg_token* token = list.head; token != nullptr; token = token->next) {
      if (const auto* literal = dynamic_cast<const _kp_LOG_string_token*>(token)) {
        pattern_.append(literal->text);
      } else if (const auto* format = dynamic_cast<const _kp_LOG_fmt_spec_token*>(token)) {
        token = token->next;
        add(format->format, dynamic_cast<const _kp_LOG_arg_spec_token&>(*token).name.c_str());
      }
    }
    arguments_.resize(_kp_LOG_log_message::_get_number_of_attributes(list));
    return formatted();
  }

 private:
  icu::UnicodeString formatted() {
    UErrorCode status = U_ZERO_ERROR;
    icu::MessageFormat format(pattern_, status);
    if (U_FAILURE(status)) return u_errorName(status);
    icu::UnicodeString message;
    icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
    format.format(arguments_.data(), static_cast<int>(arguments_.size()), message, field, status);
    return U_FAILURE(status) ? icu::UnicodeString(u_errorName(status)) : message;
  }

  void add(char format, const char* name) {
    switch (format) {
      case 's':
        return append("{%u}", icu::Formattable(string_of(name)));
      case 'd':
      case 'u':
        return append("{%u,number,##########}", number_of(name));
      case 'f':
        return append("{%u,number}", number_of(name));
      case 'C':
        return append("{%u,number,currency}", number_of(name));
      case 'P':
        return append("{%u,number,percent}", number_of(name));
      case 'D':
        return append("{%u,date}", icu::Formattable(date_of(name), icu::Formattable::kIsDate));
      case 'T':
        return append("{%u,time}", icu::Formattable(date_of(name), icu::Formattable::kIsDate));
      default:
        return;
    }
  }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  void append(const char* piece, const icu::Formattable& argument) {
    char text[64];
    std::snprintf(text, sizeof text, piece, static_cast<unsigned>(arguments_.size()));
    pattern_.append(icu::UnicodeString(text));
    arguments_.push_back(argument);
  }
#pragma GCC diagnostic pop

  int type_of(const char* name) const {
    return entry_.get_definition()->get_attr_info_by_name(name)->get_type();
  }

  icu::UnicodeString string_of(const char* name) const {
    const char* code_page = kp_LOG_LogConfig::GetCodePage();
    const char* bytes = type_of(name) >= TypeMBChar32 && type_of(name) <= TypeMBChar2K
                            ? entry_.get_attrib_mbstr(name)
                            : entry_.get_attrib_str(name);
    return *code_page != '\0' ? icu::UnicodeString(bytes, code_page) : icu::UnicodeString(bytes);
  }

  icu::Formattable number_of(const char* name) const {
    if (type_of(name) == TypeFloat) return icu::Formattable(entry_.get_attrib_float8(name));
    return icu::Formattable(static_cast<int32_t>(entry_.get_attrib_as_4(name)));
  }

  double date_of(const char* name) const {
    const kp_Time time = std::string(name) == "TIMESTAMP" ? entry_.get_timestamp(false)
                                                          : entry_.get_attrib_time(name);
    std::tm fields{};
    fields.tm_year = time.get_year() - 1900;
    fields.tm_mon = time.get_month() - 1;
    fields.tm_mday = time.get_day();
    fields.tm_hour = time.get_hour();
    fields.tm_min = time.get_minute();
    fields.tm_sec = time.get_second();
    fields.tm_isdst = -1;
    return static_cast<double>(std::mktime(&fields)) * 1000.0;
  }

  const _kp_LOG_log_entry_imp& entry_;
  icu::UnicodeString pattern_;
  std::vector<icu::Formattable> arguments_;
};

#endif
