#include "logging/logmsg_icu.h"

#include <unicode/fieldpos.h>
#include <unicode/msgfmt.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "kp_LOG_LogConfig.h"
#include "kp_LOG_debug_log.h"
#include "kp_LOG_errors.h"
#include "logging/icu_text.h"
#include "logging/log_util_kept_text.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_catalog.h"
#include "logging/logmsg_choice.h"
#include "logging/logmsg_icu_formats.h"
#include "logging/logmsg_icu_values.h"
#include "logging/logmsg_plans.h"
#include "logging/raise.h"

// --- The plan ---

[[noreturn]] static void raise_no_default_message() {
  kp_log_raise<KPX_logging_invalid_definition>(
      "<KPX_logging_invalid_definition>  no default message");
}

static logmsg_plan_ref plan_from(const logmsg_catalog& catalog, const char* id,
                                 const logmsg_setting& setting,
                                 const _kp_LOG_log_definition& definition) {
  if (id == nullptr) raise_no_default_message();
  const icu::UnicodeString text = catalog.find(id);
  if (text.isBogus()) kp_log_raise_alloc();
  return logmsg_find_unicode_plan(text, setting, definition);
}

static logmsg_plan_ref plan_from(const char* text, const logmsg_setting& setting,
                                 const _kp_LOG_log_definition& definition) {
  return logmsg_find_plan(text != nullptr ? text : "", logmsg_form::text, setting, definition);
}

// Finds the plan of the message's template, and keeps it for the thread. The definition's
// attributes are those of the key, or newer.
static logmsg_plan_ref find_plan(const logmsg_choice& choice, const logmsg_setting& setting,
                                 const _kp_LOG_log_definition& definition, logmsg_texts texts,
                                 logmsg_thread_plans& known) {
  const auto catalog = texts == logmsg_texts::catalog ? logmsg_current_catalog() : nullptr;
  const logmsg_template_key key =
      logmsg_key_of(choice, catalog ? catalog->identity() : 0, definition);
  logmsg_plan_ref plan = catalog ? plan_from(*catalog, choice.id, setting, definition)
                                 : plan_from(choice.text, setting, definition);
  known.keep(key, plan);
  return plan;
}

// --- Writing: literal text and values, one after the other ---

// False when the message cannot be written like this; it is then not complete.
class logmsg_icu_writer {
 public:
  logmsg_icu_writer(const logmsg_plan& plan, logmsg_text& message)
      : plan_(plan), message_(message) {}

  bool write(const logmsg_icu_values& values);
  // The same with what the entry holds, without reading all of it first; false also where reading
  // might raise something.
  bool write_held(const _kp_LOG_log_entry_imp& entry);

 private:
  template <class Next>
  bool write_all(Next&& next);
  [[gnu::always_inline]] bool show(const logmsg_plan::step& step, const logmsg_icu_value& value);
  template <class Value>
  bool put(const logmsg_number_style<char>& style, Value value);
  bool show_text(std::string_view text);
  bool show_number(const icu::NumberFormat* format, const logmsg_icu_value& value);
  bool show_date(logmsg_kind kind, const logmsg_clock& clock);
  bool append(const icu::UnicodeString& units);

  const logmsg_plan& plan_;
  logmsg_text& message_;
  logmsg_dates* dates_ = nullptr;  // once the zones of this message are known
};

// `next` gives the value of each step that has one, or false.
template <class Next>
bool logmsg_icu_writer::write_all(Next&& next) {
  message_.clear();
  logmsg_literals literals(plan_);
  for (const logmsg_plan::step& step : plan_.steps()) {
    if (step.placeholder.kind() == logmsg_kind::nothing) continue;
    literals.append_before(step, message_);
    logmsg_icu_value value;
    if (!next(step, value) || (step.is_shown && !show(step, value))) return false;
  }
  literals.append_rest(message_);
  return true;
}

bool logmsg_icu_writer::write(const logmsg_icu_values& values) {
  size_t number = 0;
  return write_all([&](const logmsg_plan::step&, logmsg_icu_value& value) {
    value = values[number++];
    return true;
  });
}

bool logmsg_icu_writer::write_held(const _kp_LOG_log_entry_imp& entry) {
  if (!plan_.is_resolved()) return false;
  return write_all([&entry](const logmsg_plan::step& step, logmsg_icu_value& value) {
    if (step.placeholder.is_timestamp()) {
      value = logmsg_icu_value(entry.get_timestamp(false));
      return true;
    }
    const _kp_LOG_type_base* const held = step.placeholder.held_in(entry, step.type);
    if (held == nullptr) return false;
    value = logmsg_held_value(*held, step.type);
    return true;
  });
}

inline bool logmsg_icu_writer::show(const logmsg_plan::step& step, const logmsg_icu_value& value) {
  const logmsg_kind kind = step.placeholder.kind();
  switch (value.form) {
    case logmsg_icu_value::form::text:
      return show_text(value.text);
    case logmsg_icu_value::form::date:
      return show_date(kind, value.clock);
    case logmsg_icu_value::form::integer:
      if (step.style != nullptr && put(*step.style, value.integer)) return true;
      break;
    case logmsg_icu_value::form::floating:
      if (step.style != nullptr && put(*step.style, value.real)) return true;
      break;
  }
  return show_number(logmsg_icu_formats::in(plan_.locale()).number(kind), value);
}

template <class Value>
bool logmsg_icu_writer::put(const logmsg_number_style<char>& style, Value value) {
  char* const end = style.write(value, message_.room_for(logmsg_number_style<char>::room));
  if (end != nullptr) message_.end_at(end);
  return end != nullptr;
}

bool logmsg_icu_writer::show_text(std::string_view text) {
  const icu_text_copying& copying = plan_.copying();
  if (copying.keeps_ascii() && message_.append_ascii(text.data(), text.size())) return true;
  const std::string_view shown(text.data());
  if (copying.keeps(shown)) {
    message_.append(shown);
    return true;
  }
  icu::UnicodeString units;  // a string in a code page that ICU does not know reads as empty
  static_cast<void>(icu_text_decode(shown.data(), plan_.input(), units));
  return append(units);
}

static bool is_shown(UErrorCode status) {
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  return U_SUCCESS(status);
}

bool logmsg_icu_writer::show_number(const icu::NumberFormat* format,
                                    const logmsg_icu_value& value) {
  if (format == nullptr) return false;
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString units;
  icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
  if (value.form == logmsg_icu_value::form::floating)
    format->format(value.real, units, field, status);
  else
    format->format(value.integer, units, field, status);
  return is_shown(status) && append(units);
}

bool logmsg_icu_writer::show_date(logmsg_kind kind, const logmsg_clock& clock) {
  if (dates_ == nullptr) {
    dates_ = &logmsg_dates::current();
    dates_->follow_zones();
  }
  const std::string_view text = dates_->shown({kind, &plan_.locale(), plan_.page()}, clock);
  if (text.data() == nullptr) return false;
  message_.append(text);
  return true;
}

bool logmsg_icu_writer::append(const icu::UnicodeString& units) {
  if (units.isBogus()) kp_log_raise_alloc();
  if (!icu_text_is_well_formed(units)) return false;
  std::string bytes;
  if (icu_text_encode(units, plan_.page(), bytes) != icu_text_result::ok) return false;
  message_.append(bytes);
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

[[noreturn]] static void report_failed_format(const logmsg_plan& plan,
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

static icu::UnicodeString formatted_pattern(const logmsg_plan& plan,
                                            const logmsg_icu_values& values) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::MessageFormat format(plan.pattern(), plan.locale(), status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  if (U_FAILURE(status)) refuse_pattern();
  std::array<icu::Formattable, logmsg_most_arguments> arguments;
  for (size_t i = 0; i < values.count; ++i) arguments[i] = values[i].as_formattable(plan.input());
  const size_t count = std::min(plan.steps().size(), arguments.size());
  icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
  icu::UnicodeString message;
  format.format(arguments.data(), static_cast<int>(count), message, field, status);
  if (status == U_MEMORY_ALLOCATION_ERROR) kp_log_raise_alloc();
  if (U_FAILURE(status)) {
    report_failed_format(plan, count != 0 ? arguments.data() : nullptr, message, field.getField(),
                         status);
  }
  return message;
}

// --- Rendering ---

static icu::UnicodeString units_of(const logmsg_text& utf8) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int>(utf8.size())));
}

// By reading all values first, so that what is raised, and what ICU has to format, comes in order.
static void render_in_order(const _kp_LOG_log_entry_imp& entry,
                            const _kp_LOG_log_definition& definition, const logmsg_plan& plan,
                            logmsg_icu_writer& writer, logmsg_message& message) {
  logmsg_icu_values values;
  values.read(entry, definition, plan);
  if (plan.taken() == logmsg_road::refused) refuse_pattern();
  if (plan.taken() == logmsg_road::direct && writer.write(values)) return;
  message.units = formatted_pattern(plan, values);
}

static void render(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition& definition,
                   const logmsg_plan& plan, logmsg_message& message) {
  logmsg_icu_writer writer(plan, message.bytes);
  if (plan.taken() != logmsg_road::direct || !writer.write_held(entry))
    render_in_order(entry, definition, plan, writer, message);
  if (!message.units && plan.is_converted_whole()) message.units = units_of(message.bytes);
  if (message.units && message.units->isBogus()) kp_log_raise_alloc();
}

void logmsg_render_icu(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition* definition,
                       bool use_default, unsigned index, const logmsg_pages& pages,
                       logmsg_message& message, logmsg_texts texts) {
  kp_log_no_bad_alloc([&] {
    const logmsg_choice choice = logmsg_choose(entry, definition, use_default, index);
    const logmsg_setting setting(pages.input, pages.output);
    const uint64_t catalog = texts == logmsg_texts::catalog ? logmsg_current_catalog_identity() : 0;
    logmsg_thread_plans& known = logmsg_thread_plans::current();
    const logmsg_template_key key = logmsg_key_of(choice, catalog, *definition);
    if (const logmsg_plan* const plan = known.find(key, setting))
      return render(entry, *definition, *plan, message);
    render(entry, *definition, *find_plan(choice, setting, *definition, texts, known), message);
  });
}

// --- As UTF-16 ---

icu::UnicodeString _kp_LOG_log_message::_render_template(const _kp_LOG_log_entry_imp& entry,
                                                         const icu::UnicodeString& text) {
  logmsg_message message;
  return kp_log_no_bad_alloc([&] {
    const logmsg_setting setting(kp_log_kept_text("UTF-8"), nullptr);
    const _kp_LOG_log_definition& definition = *entry.get_definition();
    render(entry, definition, *logmsg_find_unicode_plan(text, setting, definition), message);
    return *message.units;
  });
}

icu::UnicodeString _kp_LOG_log_message::get_message(const _kp_LOG_log_entry_imp& entry,
                                                    const _kp_LOG_log_definition* definition,
                                                    bool use_default, unsigned index) {
  logmsg_message message;
  logmsg_render_icu(entry, definition, use_default, index,
                    {kp_LOG_LogConfig::GetCodePage(), nullptr}, message);
  return *message.units;
}
