// An entry whose template a test gives, rendered both ways.
#ifndef TESTS_SUPPORT_MESSAGE_ENTRY_H
#define TESTS_SUPPORT_MESSAGE_ENTRY_H

#include <optional>
#include <string>

#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "tests/support/loaded_definitions.h"

#include <unicode/unistr.h>

// While it lives, the process-wide definitions hold one kind of entry, ID 17, with an attribute of
// every type ("BOOL", "U1", "S1", "U2", "S2", "U4", "S4", "REAL", "TEXT", "MBTEXT", "DATE", "TIME",
// "STAMP", "GUID"), and its entry can be filled and rendered. The code page is UTF-8.
class message_entry {
 public:
  static ldf_entry definition(const std::string& default_text) {
    return {.id = 17,
            .msg_id = "M17",
            .msg_text = default_text,
            .attributes = {{"BOOL", TypeBool},
                           {"U1", TypeUInt1},
                           {"S1", TypeSInt1},
                           {"U2", TypeUInt2},
                           {"S2", TypeSInt2},
                           {"U4", TypeUInt4},
                           {"S4", TypeSInt4},
                           {"REAL", TypeFloat},
                           {"TEXT", TypeChar2K},
                           {"MBTEXT", TypeMBChar2K},
                           {"DATE", TypeDate},
                           {"TIME", TypeTime},
                           {"STAMP", TypeTimestamp},
                           {"GUID", TypeGUID}}};
  }

  explicit message_entry(const std::string& default_text = "")
      : message_entry(definition(default_text)) {}
  explicit message_entry(const ldf_entry& entry)
      : definitions_(ldf_file{.globals = ldf_builtin_fields(), .entries = {entry}}) {
    imp_.emplace(entry.id, 5U);
  }

  _kp_LOG_log_entry_imp* operator->() { return &*imp_; }
  _kp_LOG_log_entry_imp& operator*() { return *imp_; }

  // The same entry kind with another default text; attributes start anew.
  void use_template(const std::string& default_text) { use(definition(default_text)); }
  void use(const ldf_entry& entry) {
    definitions_.load(ldf_file{.globals = ldf_builtin_fields(), .entries = {entry}});
    imp_.emplace(entry.id, 5U);
  }

  // What the byte renderer gives.
  std::string bytes(bool use_default = false, unsigned index = 0) const {
    const kp_String text = _kp_LOG_log_message::get_kpString_message(*imp_, imp_->get_definition(),
                                                                     use_default, index);
    return {text.c_str(), text.length()};
  }
  // What the ICU renderer gives, in UTF-8.
  std::string unicode(bool use_default = false, unsigned index = 0) const {
    std::string utf8;
    _kp_LOG_log_message::get_message(*imp_, imp_->get_definition(), use_default, index)
        .toUTF8String(utf8);
    return utf8;
  }

 private:
  loaded_definitions definitions_;
  code_page_setting utf8_{"UTF-8"};
  std::optional<_kp_LOG_log_entry_imp> imp_;
};

// What a text that cannot be converted ends with, and its debug line.
inline const char* const not_converted =
    "_kp_LOG_log_message::get_readable_message:  MessageFormat::format() failed!";
inline const char* const conversion_line =
    "logging/logentry_i:N _kp_LOG_log_entry_imp::get_readable_message, fromUnicodeString error";

// What the error of a template begins with.
inline const std::string invalid_message =
    "<KPX_logging_invalid_message_string> _kp_LOG_log_message::get_message:  ";

// Makes `text` the entry's message, through either renderer.
inline void show(message_entry& entry, const std::string& text) {
  entry.use_template("%s%MBTEXT%");
  entry->add_attrib_mbstr("MBTEXT", text.c_str(), true);
}

#endif
