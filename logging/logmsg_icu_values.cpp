#include "logging/logmsg_icu_values.h"

#include "logging/icu_text.h"
#include "logging/logentry_i_private.h"

using logmsg_value_form = enum logmsg_icu_value::form;

icu::Formattable logmsg_icu_value::as_formattable(const char* page) const {
  switch (form) {
    case logmsg_value_form::text: {
      icu::UnicodeString units;  // a string in a code page that ICU does not know reads as empty
      static_cast<void>(icu_text_decode(text, page, units));
      return icu::Formattable(units);
    }
    case logmsg_value_form::floating:
      return icu::Formattable(real);
    case logmsg_value_form::date:
      return icu::Formattable(clock.milliseconds(), icu::Formattable::kIsDate);
    case logmsg_value_form::integer:
      break;
  }
  return icu::Formattable(integer);
}

static logmsg_icu_value value_of(int integer) noexcept {
  logmsg_icu_value value;
  value.form = logmsg_value_form::integer;
  value.integer = integer;
  return value;
}

static logmsg_icu_value value_of(double real) noexcept {
  logmsg_icu_value value;
  value.form = logmsg_value_form::floating;
  value.real = real;
  return value;
}

static logmsg_icu_value value_of(const char* text) noexcept {
  logmsg_icu_value value;
  value.form = logmsg_value_form::text;
  value.text = text;
  return value;
}

static logmsg_icu_value value_of(const kp_Time& time) {
  logmsg_icu_value value;
  value.form = logmsg_value_form::date;
  value.clock = logmsg_clock(time);
  return value;
}

// What the entry holds, as the getters below give it.
static logmsg_icu_value held_value(const _kp_LOG_type_base& held, kp_AttributeType type) {
  switch (type) {
    case TypeBool:
      return value_of(0);
    case TypeUInt1:
      return value_of(int{kp_log_value_in<unsigned char>(held)});
    case TypeSInt1:
      return value_of(int{static_cast<signed char>(kp_log_value_in<char>(held))});
    case TypeUInt2:
      return value_of(int{kp_log_value_in<unsigned short>(held)});
    case TypeSInt2:
      return value_of(int{kp_log_value_in<short>(held)});
    case TypeUInt4:
      return value_of(static_cast<int>(kp_log_value_in<unsigned>(held)));
    case TypeSInt4:
      return value_of(kp_log_value_in<int>(held));
    case TypeFloat:
      return value_of(kp_log_value_in<double>(held));
    default:
      break;
  }
  if (is_unicode_string_attribute(type))
    return value_of(kp_log_value_in<_kp_LOG_ustring>(held).c_str());
  return value_of(kp_log_value_in<kp_String>(held).c_str());
}

static logmsg_icu_value got_value(const _kp_LOG_log_entry_imp& entry,
                                  const logmsg_placeholder& placeholder, kp_AttributeType type) {
  if (placeholder.kind() == logmsg_kind::string)
    return value_of(placeholder.string_of(entry, type));
  if (is_float_attribute(type)) return value_of(entry.get_attrib_float8(placeholder.name()));
  return value_of(entry.get_attrib_as_4(placeholder.name()));
}

static logmsg_icu_value read_value(const _kp_LOG_log_entry_imp& entry,
                                   const logmsg_placeholder& placeholder, kp_AttributeType type) {
  if (is_time_attribute(type)) return value_of(placeholder.time_of(entry));
  const _kp_LOG_type_base* const held = placeholder.held_in(entry, type);
  return held != nullptr ? held_value(*held, type) : got_value(entry, placeholder, type);
}

void logmsg_icu_values::read(const _kp_LOG_log_entry_imp& entry,
                             const _kp_LOG_log_definition& definition, const logmsg_plan& plan) {
  count = 0;
  for (const logmsg_plan::step& step : plan.steps()) {
    const kp_AttributeType type = step.placeholder.resolve(definition);
    if (step.placeholder.kind() == logmsg_kind::nothing) continue;
    const logmsg_icu_value value = read_value(entry, step.placeholder, type);
    if (count < values.size()) values[count++] = value;
  }
}
