#include "logging/logmsg_icu.h"

#include <unicode/fieldpos.h>
#include <unicode/msgfmt.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/kp_clib.h"
#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/icu_text.h"
#include "logging/log_util_per_thread.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_cache.h"
#include "logging/logmsg_catalog.h"
#include "logging/logmsg_choice.h"
#include "logging/logmsg_icu_formats.h"
#include "logging/logmsg_icu_plan.h"
#include "logging/raise.h"

// --- The template ---

static icu::UnicodeString template_from(const logmsg_catalog& catalog,
                                        const logmsg_choice& choice) {
  if (choice.id == nullptr) {
    kp_log_raise<KPX_logging_invalid_definition>(
        "<KPX_logging_invalid_definition>  no default message");
  }
  return catalog.find(choice.id);
}

static icu::UnicodeString template_from(const char* text) {
  icu::UnicodeString units;
  // A default converter that ICU cannot open gives an empty template.
  if (text != nullptr) static_cast<void>(icu_text_decode(text, nullptr, units));
  return units;
}

// --- Values ---

// The value of one argument.
struct logmsg_icu_value {
  enum class form { text, integer, floating, date };
  form form = form::integer;
  int integer = 0;
  double real = 0.0;  // a floating value, or a date in milliseconds
  icu::UnicodeString text;

  icu::Formattable as_formattable() const;
};

icu::Formattable logmsg_icu_value::as_formattable() const {
  switch (form) {
    case form::text:
      return icu::Formattable(text);
    case form::floating:
      return icu::Formattable(real);
    case form::date:
      return icu::Formattable(real, icu::Formattable::kIsDate);
    case form::integer:
      break;
  }
  return icu::Formattable(integer);
}

static double milliseconds_of(const kp_Time& time) {
  std::tm fields{};
  fields.tm_year = time.get_year() - 1900;
  fields.tm_mon = time.get_month() - 1;
  fields.tm_mday = time.get_day();
  fields.tm_hour = time.get_hour();
  fields.tm_min = time.get_minute();
  fields.tm_sec = time.get_second();
  fields.tm_isdst = -1;
  return static_cast<double>(KP_mktime(&fields)) * 1000.0;
}

// A string in a code page that ICU does not know reads as the empty text.
static void read_string(const _kp_LOG_log_entry_imp& entry, const logmsg_placeholder& placeholder,
                        kp_AttributeType type, const char* code_page, icu::UnicodeString& text) {
  static_cast<void>(icu_text_decode(placeholder.string_of(entry, type), code_page, text));
}

static void read_value(const _kp_LOG_log_entry_imp& entry, const logmsg_placeholder& placeholder,
                       kp_AttributeType type, const char* code_page, logmsg_icu_value& value) {
  using form = enum logmsg_icu_value::form;
  if (placeholder.kind() == logmsg_kind::string) {
    value.form = form::text;
    read_string(entry, placeholder, type, code_page, value.text);
  } else if (is_time_attribute(type)) {
    value.form = form::date;
    value.real = milliseconds_of(placeholder.time_of(entry));
  } else if (is_float_attribute(type)) {
    value.form = form::floating;
    value.real = entry.get_attrib_float8(placeholder.name());
  } else {
    value.form = form::integer;
    value.integer = entry.get_attrib_as_4(placeholder.name());
  }
}

// The values of a plan's arguments, by their numbers.
using logmsg_icu_values = std::array<logmsg_icu_value, logmsg_icu_plan::most_arguments>;

// Resolves and reads the placeholders in their order, also those whose values nothing shows.
static void read_values(const _kp_LOG_log_entry_imp& entry,
                        const _kp_LOG_log_definition& definition, const logmsg_icu_plan& plan,
                        const char* code_page, logmsg_icu_values& values) {
  size_t number = 0;
  logmsg_icu_value surplus;
  for (const logmsg_icu_plan::step& step : plan.steps()) {
    const kp_AttributeType type = step.placeholder.resolve(definition);
    if (step.placeholder.kind() == logmsg_kind::nothing) continue;
    read_value(entry, step.placeholder, type, code_page,
               number < values.size() ? values[number] : surplus);
    ++number;
  }
}

// --- The direct road: text and values one after the other ---

static bool is_shown(UErrorCode status) {
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return U_SUCCESS(status);
}

static bool append_number(const icu::NumberFormat* format, const logmsg_icu_value& value,
                          icu::UnicodeString& message) {
  if (format == nullptr) return false;
  UErrorCode status = U_ZERO_ERROR;
  icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
  if (value.form == logmsg_icu_value::form::floating) {
    format->format(value.real, message, field, status);
  } else {
    format->format(value.integer, message, field, status);
  }
  return is_shown(status);
}

static bool append_date(const icu::DateFormat* format, double date, icu::UnicodeString& message) {
  if (format == nullptr) return false;
  const int before = message.length();
  UErrorCode status = U_ZERO_ERROR;
  format->format(date, message, nullptr, status);
  return is_shown(status) && message.length() != before;
}

// False when ICU has no formatter of that kind or shows nothing; the text is then not complete.
static bool append_value(logmsg_kind kind, const logmsg_icu_value& value,
                         logmsg_icu_formats& formats, icu::UnicodeString& message) {
  switch (value.form) {
    case logmsg_icu_value::form::text:
      message.append(value.text);
      return true;
    case logmsg_icu_value::form::date:
      return append_date(formats.date(kind), value.real, message);
    default:
      return append_number(formats.number(kind), value, message);
  }
}

static bool write_directly(const logmsg_icu_plan& plan, const logmsg_icu_values& values,
                           icu::UnicodeString& message) {
  logmsg_icu_formats& formats = logmsg_icu_formats::current();
  const logmsg_icu_value* value = values.data();
  for (const logmsg_icu_plan::step& step : plan.steps()) {
    const logmsg_kind kind = step.placeholder.kind();
    if (kind == logmsg_kind::nothing) continue;
    message.append(step.before);
    if (step.is_shown && !append_value(kind, *value, formats, message)) return false;
    ++value;
  }
  message.append(plan.rest());
  return true;
}

// --- The pattern road: ICU formats the whole pattern ---

[[noreturn]] static void refuse_pattern() {
  kp_log_raise<KPX_logging_internal_error>(
      "<KPX_logging_internal_error> _kp_LOG_log_message::get_message:  MessageFormat constructor "
      "failed! most caused by number of attribute in message txt more than 9. (now ICU only "
      "support "
      "0-9 tags)");
}

// The character buffer of a text, as far as its first zero byte: debug lines show it like this.
static const char* first_bytes_of(icu::UnicodeString& text) {
  const char16_t* units = text.getTerminatedBuffer();
  return units != nullptr ? reinterpret_cast<const char*>(units) : "";
}

static int low_bits_of(const void* pointer) {
  return static_cast<int>(reinterpret_cast<uintptr_t>(pointer));
}

[[noreturn]] static void report_failed_format(const logmsg_icu_plan& plan,
                                              const icu::Formattable* arguments,
                                              icu::UnicodeString& message, int field,
                                              UErrorCode status) {
  icu::UnicodeString pattern = plan.pattern();
  LogDebugMessage(3, "%s:%d _kp_LOG_log_message::get_message %s : %d : %d : %s : %d : %d \n",
                  "logging/logmsg", __LINE__, first_bytes_of(pattern), low_bits_of(arguments),
                  static_cast<int>(plan.steps().size()), first_bytes_of(message), field,
                  static_cast<int>(status));
  kp_log_raise<KPX_logging_internal_error>(
      "<KPX_logging_internal_error> _kp_LOG_log_message::get_message:  MessageFormat::format() "
      "failed!");
}

static void format_pattern(const logmsg_icu_plan& plan, const logmsg_icu_values& values,
                           icu::UnicodeString& message) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat format(plan.pattern(), status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  if (U_FAILURE(status)) refuse_pattern();
  std::array<icu::Formattable, logmsg_icu_plan::most_arguments> arguments;
  std::transform(values.begin(), values.end(), arguments.begin(),
                 [](const logmsg_icu_value& value) { return value.as_formattable(); });
  const size_t count = std::min(plan.steps().size(), arguments.size());
  icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
  message.remove();
  format.format(arguments.data(), static_cast<int>(count), message, field, status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  if (U_FAILURE(status)) {
    report_failed_format(plan, count != 0 ? arguments.data() : nullptr, message, field.getField(),
                         status);
  }
}

// --- Rendering ---

static void render(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition& definition,
                   const icu::UnicodeString& text, const char* code_page,
                   icu::UnicodeString& message) {
  using cache = logmsg_cache<logmsg_icu_plan, char16_t>;
  const std::u16string_view units(text.getBuffer(), static_cast<size_t>(text.length()));
  const logmsg_icu_plan& plan = kp_per_thread<cache>::get().find(text, units);
  logmsg_icu_values values;
  read_values(entry, definition, plan, code_page, values);
  if (plan.taken() == logmsg_icu_plan::road::refused) refuse_pattern();
  if (plan.taken() == logmsg_icu_plan::road::direct && write_directly(plan, values, message))
    return;
  format_pattern(plan, values, message);
}

void logmsg_render_icu(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition* definition,
                       bool use_default, unsigned index, const char* code_page,
                       icu::UnicodeString& message, logmsg_texts texts) {
  kp_log_no_bad_alloc([&] {
    message.remove();
    const logmsg_choice choice = logmsg_choose(entry, definition, use_default, index);
    const auto catalog = texts == logmsg_texts::catalog ? logmsg_current_catalog() : nullptr;
    const icu::UnicodeString text =
        catalog ? template_from(*catalog, choice) : template_from(choice.text);
    if (text.isBogus()) kp_log_raise_alloc();
    render(entry, *definition, text, code_page, message);
    if (message.isBogus()) kp_log_raise_alloc();
  });
}

icu::UnicodeString _kp_LOG_log_message::_render_template(const _kp_LOG_log_entry_imp& entry,
                                                         const icu::UnicodeString& text) {
  icu::UnicodeString message;
  kp_log_no_bad_alloc([&] { render(entry, *entry.get_definition(), text, "UTF-8", message); });
  return message;
}

icu::UnicodeString _kp_LOG_log_message::get_message(const _kp_LOG_log_entry_imp& entry,
                                                    const _kp_LOG_log_definition* definition,
                                                    bool use_default, unsigned index) {
  icu::UnicodeString message;
  logmsg_render_icu(entry, definition, use_default, index, kp_LOG_LogConfig::GetCodePage(),
                    message);
  return message;
}
