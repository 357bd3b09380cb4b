// The values of a message that ICU, or what stands for it, shows.
#ifndef KP_LOG_LOGMSG_ICU_VALUES_H
#define KP_LOG_LOGMSG_ICU_VALUES_H

#include <unicode/fmtable.h>

#include <array>

#include "logging/logmsg_dates.h"
#include "logging/logmsg_icu_pattern.h"
#include "logging/logmsg_plan.h"

class _kp_LOG_log_definition;
class _kp_LOG_log_entry_imp;

// The value of one argument. A text is the entry's.
struct logmsg_icu_value {
  enum class form { integer, floating, date, text };
  form form;
  union {
    int integer;
    double real;
    logmsg_clock clock;  // a date or time
    const char* text;
  };

  // `page` is the text's code page.
  icu::Formattable as_formattable(const char* page) const;
};

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
