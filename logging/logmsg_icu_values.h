// The values of a message that ICU, or what stands for it, shows.
#ifndef KP_LOG_LOGMSG_ICU_VALUES_H
#define KP_LOG_LOGMSG_ICU_VALUES_H

#include <unicode/fmtable.h>

#include <array>
#include <string_view>

#include "logging/logentry_i_private.h"
#include "logging/logmsg_dates.h"
#include "logging/logmsg_icu_pattern.h"
#include "logging/logmsg_plan.h"

// The value of one argument. A text is the entry's.
struct logmsg_icu_value {
  enum class form { integer, floating, date, text };

  logmsg_icu_value() noexcept : logmsg_icu_value(0) {}
  explicit logmsg_icu_value(int value) noexcept : form(form::integer), integer(value) {}
  explicit logmsg_icu_value(double value) noexcept : form(form::floating), real(value) {}
  explicit logmsg_icu_value(std::string_view value) noexcept : form(form::text), text(value) {}
  explicit logmsg_icu_value(const kp_Time& time) noexcept : form(form::date), clock(time) {}

  // `page` is the text's code page.
  icu::Formattable as_formattable(const char* page) const;

  form form;
  union {
    int integer;
    double real;
    logmsg_clock clock;     // a date or time
    std::string_view text;  // a NUL ends it, and may stand inside as well
  };
};

template <class Text>
std::string_view logmsg_held_text(const _kp_LOG_type_base& held) noexcept {
  const Text& text = kp_log_value_in<Text>(held);
  return {text.c_str(), text.length()};
}

// What is shown of a held value of that type: what the entry's getters give.
inline logmsg_icu_value logmsg_held_value(const _kp_LOG_type_base& held, kp_AttributeType type) {
  using value = logmsg_icu_value;
  switch (type) {
    case TypeBool:
      return value(0);
    case TypeUInt1:
      return value(int{kp_log_value_in<unsigned char>(held)});
    case TypeSInt1:
      return value(int{static_cast<signed char>(kp_log_value_in<char>(held))});
    case TypeUInt2:
      return value(int{kp_log_value_in<unsigned short>(held)});
    case TypeSInt2:
      return value(int{kp_log_value_in<short>(held)});
    case TypeUInt4:
      return value(static_cast<int>(kp_log_value_in<unsigned>(held)));
    case TypeSInt4:
      return value(kp_log_value_in<int>(held));
    case TypeFloat:
      return value(kp_log_value_in<double>(held));
    case TypeDate:
    case TypeTime:
    case TypeTimestamp:
      return value(kp_log_value_in<kp_Time>(held));
    case TypeMBChar32:
    case TypeMBChar64:
    case TypeMBChar128:
    case TypeMBChar256:
    case TypeMBChar1K:
    case TypeMBChar2K:
      return value(logmsg_held_text<_kp_LOG_ustring>(held));
    default:
      return value(logmsg_held_text<kp_String>(held));
  }
}

// The values of a plan's arguments, by their numbers.
struct logmsg_icu_values {
  // Resolves and reads the placeholders in their order, also those whose values nothing shows.
  // Raises what resolving and the entry's getters raise.
  void read(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition& definition,
            const logmsg_plan& plan);

  const logmsg_icu_value& operator[](size_t number) const noexcept { return values[number]; }

  std::array<logmsg_icu_value, logmsg_most_arguments> values;  // as many as there are
  size_t count;
};

#endif
