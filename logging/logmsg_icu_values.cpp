#include "logging/logmsg_icu_values.h"

#include "logging/icu_text.h"

icu::Formattable logmsg_icu_value::as_formattable(const char* page) const {
  switch (form) {
    case form::text: {
      icu::UnicodeString units;  // a string in a code page that ICU does not know reads as empty
      static_cast<void>(icu_text_decode(text.data(), page, units));
      return icu::Formattable(units);
    }
    case form::floating:
      return icu::Formattable(real);
    case form::date:
      return icu::Formattable(clock.milliseconds(), icu::Formattable::kIsDate);
    case form::integer:
      break;
  }
  return icu::Formattable(integer);
}

static logmsg_icu_value read_value(const _kp_LOG_log_entry_imp& entry,
                                   const logmsg_placeholder& placeholder, kp_AttributeType type) {
  if (is_time_attribute(type)) return logmsg_icu_value(placeholder.time_of(entry));
  if (placeholder.kind() == logmsg_kind::string) {
    return logmsg_icu_value(std::string_view(placeholder.string_of(entry, type)));
  }
  if (is_float_attribute(type))
    return logmsg_icu_value(entry.get_attrib_float8(placeholder.name()));
  return logmsg_icu_value(entry.get_attrib_as_4(placeholder.name()));
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
