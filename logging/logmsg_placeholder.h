// The placeholders of a template, as both renderers see them.
#ifndef KP_LOG_LOGMSG_PLACEHOLDER_H
#define KP_LOG_LOGMSG_PLACEHOLDER_H

#include "base/kp_string.h"
#include "base/kp_time.h"
#include "kp_LOG_AttributeType.h"
#include "logging/logentry_i.h"
#include "logging/logmsg_token.h"

// What a placeholder shows.
enum class logmsg_kind { nothing, string, integer, floating, currency, percent, date, time };

// A format character and the attribute name behind it. Independent of entry and definition, so it
// may be kept and used again.
class logmsg_placeholder {
 public:
  // `behind` is the token after the format token, or null. A token of another kind is taken as if
  // it were a name; resolve() reports that.
  logmsg_placeholder(const _kp_LOG_fmt_spec_token& format, const _kp_LOG_msg_token* behind);

  logmsg_kind kind() const noexcept { return kind_; }
  const char* name() const noexcept { return name_.c_str(); }
  bool is_timestamp() const noexcept { return is_timestamp_; }  // the entry's own

  // The type of the named attribute. Reports the assertion
  // "p_token->get_type() == _KP_ARG_SPECIFIER_TOKEN" where no name stood behind the format
  // character. Raises KPX_logging_invalid_message_string
  // "<KPX_logging_invalid_message_string> _kp_LOG_log_message::get_message:  " followed by
  //   "unable to find attribute value for \"NAME\"!"
  //   "invalid format specifier for attribute \"NAME\"!"
  kp_AttributeType resolve(const _kp_LOG_log_definition& definition) const;

  // What resolve() gives and raises nothing for as long as the definition's attributes_identity()
  // is the same; TypeUnknown where that is not known.
  kp_AttributeType known_type(const _kp_LOG_log_definition& definition) const noexcept;

  // The named value where the entry holds it as one of that type, which resolve() gave; else, and
  // for a GUID, which no getter gives, null: the entry's getters then tell what is shown, or what
  // is wrong.
  const _kp_LOG_type_base* held_in(const _kp_LOG_log_entry_imp& entry,
                                   kp_AttributeType type) const noexcept {
    const auto* const held =
        entry._attributes().find(_kp_LOG_hashed_name(name_, name_hash_), name_chain_);
    const bool is_shown = held != nullptr && held->value->get_type() == type && type != TypeGUID;
    return is_shown ? held->value : nullptr;
  }
  // The named time: for "TIMESTAMP" the entry's own, in local time.
  kp_Time time_of(const _kp_LOG_log_entry_imp& entry) const;
  // The named string, multi-byte or plain; valid as long as the entry holds it.
  const char* string_of(const _kp_LOG_log_entry_imp& entry, kp_AttributeType type) const;

 private:
  kp_AttributeType type_in(const _kp_LOG_log_definition& definition) const;

  logmsg_kind kind_;
  bool has_name_token_;
  bool is_timestamp_;
  kp_AttributeType builtin_type_ = TypeUnknown;  // of a default information field, else unknown
  unsigned name_hash_;
  unsigned name_chain_;  // in an entry's store
  kp_String name_;
};

#endif
