#include "logging/logmsg_placeholder.h"

#include <cstring>
#include <string>

#include "base/kp_clib.h"
#include "kp_LOG_errors.h"
#include "logging/def_read.h"
#include "logging/logentry_i.h"
#include "logging/raise.h"

struct logmsg_format_row {
  char character;
  logmsg_kind kind;
};

static constexpr logmsg_format_row formats[] = {
    {'s', logmsg_kind::string},   {'d', logmsg_kind::integer},  {'u', logmsg_kind::integer},
    {'f', logmsg_kind::floating}, {'C', logmsg_kind::currency}, {'P', logmsg_kind::percent},
    {'D', logmsg_kind::date},     {'T', logmsg_kind::time},
};

static logmsg_kind kind_of(char character) {
  for (const logmsg_format_row& row : formats) {
    if (row.character == character) return row.kind;
  }
  return logmsg_kind::nothing;
}

static bool suits(logmsg_kind kind, kp_AttributeType type) {
  switch (kind) {
    case logmsg_kind::string:
      return is_unicode_string_attribute(type) || is_string_attribute(type);
    case logmsg_kind::integer:
      return is_integer_attribute(type);
    case logmsg_kind::floating:
      return is_float_attribute(type);
    case logmsg_kind::currency:
    case logmsg_kind::percent:
      return is_integer_attribute(type) || is_float_attribute(type);
    case logmsg_kind::date:
    case logmsg_kind::time:
      return is_time_attribute(type);
    case logmsg_kind::nothing:
      break;
  }
  return true;
}

static kp_String text_of(const _kp_LOG_msg_token* token) {
  if (const auto* name = dynamic_cast<const _kp_LOG_arg_spec_token*>(token)) return name->name;
  if (const auto* bytes = dynamic_cast<const _kp_LOG_kpString_token*>(token)) {
    return kp_String(bytes->text.c_str());
  }
  const auto* literal = dynamic_cast<const _kp_LOG_string_token*>(token);
  if (literal == nullptr) return kp_String("");
  std::string utf8;
  literal->text.toUTF8String(utf8);
  return kp_String(utf8.c_str());
}

logmsg_placeholder::logmsg_placeholder(const _kp_LOG_fmt_spec_token& format,
                                       const _kp_LOG_msg_token* behind)
    : kind_(kind_of(format.format)),
      has_name_token_(behind != nullptr && behind->get_type() == _KP_ARG_SPECIFIER_TOKEN),
      name_(text_of(behind)) {
  is_timestamp_ = std::strcmp(name(), "TIMESTAMP") == 0;
  if (!is_default_info_fields(name(), builtin_type_)) builtin_type_ = TypeUnknown;
  name_hash_ = my_hashcode(name());
  name_chain_ = _kp_LOG_attribute_store::chain_of(name_hash_);
}

[[noreturn]] static void raise_for(const char* what, const char* name) {
  kp_log_raise<KPX_logging_invalid_message_string>(
      {"<KPX_logging_invalid_message_string> _kp_LOG_log_message::get_message:  ", what, " \"",
       name, "\"!"});
}

kp_AttributeType logmsg_placeholder::type_in(const _kp_LOG_log_definition& definition) const {
  if (builtin_type_ != TypeUnknown) return builtin_type_;
  const _kp_LOG_attribute_entry* declared =
      definition.get_attr_info_by_name(_kp_LOG_name_key(name_.c_str(), name_.length()));
  if (declared == nullptr) raise_for("unable to find attribute value for", name());
  return static_cast<kp_AttributeType>(declared->get_type());
}

kp_AttributeType logmsg_placeholder::resolve(const _kp_LOG_log_definition& definition) const {
  if (!has_name_token_) {
    KP_assertion_violation("p_token->get_type() == _KP_ARG_SPECIFIER_TOKEN", "logging/logmsg",
                           __LINE__);
  }
  const kp_AttributeType type = type_in(definition);
  if (!suits(kind_, type)) raise_for("invalid format specifier for attribute", name());
  return type;
}

kp_AttributeType logmsg_placeholder::known_type(
    const _kp_LOG_log_definition& definition) const noexcept {
  kp_AttributeType type = builtin_type_;
  if (type == TypeUnknown) {
    const _kp_LOG_attribute_entry* const own = definition._find_attr_entry_by_name(name());
    if (own != nullptr) type = static_cast<kp_AttributeType>(own->get_type());
  }
  return has_name_token_ && suits(kind_, type) ? type : TypeUnknown;
}

kp_Time logmsg_placeholder::time_of(const _kp_LOG_log_entry_imp& entry) const {
  return is_timestamp_ ? entry.get_timestamp(false) : entry.get_attrib_time(name());
}

const char* logmsg_placeholder::string_of(const _kp_LOG_log_entry_imp& entry,
                                          kp_AttributeType type) const {
  return is_unicode_string_attribute(type) ? entry.get_attrib_mbstr(name())
                                           : entry.get_attrib_str(name());
}
