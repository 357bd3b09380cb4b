#include "logging/logmsg_bytes.h"

#include <langinfo.h>

#include <algorithm>
#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "base/kp_digits.h"
#include "logging/logentry_i_private.h"
#include "logging/logmsg.h"
#include "logging/logmsg_choice.h"
#include "logging/logmsg_plans.h"
#include "logging/raise.h"

// --- One rendering ---

class logmsg_bytes_writer {
 public:
  logmsg_bytes_writer(const _kp_LOG_log_entry_imp& entry, logmsg_text& message)
      : entry_(entry), message_(message) {}

  void show(const logmsg_placeholder& placeholder, kp_AttributeType type);

 private:
  static constexpr size_t buffer_text = 31;  // what the 32-byte buffer of old keeps of a text

  void show_string(const logmsg_placeholder& placeholder, kp_AttributeType type);
  void show_integer(const logmsg_placeholder& placeholder, kp_AttributeType type);
  void show_currency(const logmsg_placeholder& placeholder, kp_AttributeType type);
  void show_percent(const logmsg_placeholder& placeholder, kp_AttributeType type);
  void show_time(const logmsg_placeholder& placeholder);
  double real(const logmsg_placeholder& placeholder) const;

  template <class Text>
  void put_text(const Text& text);
  void put_integer(long long value);
  void put_fixed(double value);
  void put_radix(char* point);
  void repeat_last();

  // Marks what is appended from here on as the text of the buffer.
  void begin() noexcept { last_ = message_.size(); }
  void end() noexcept { last_size_ = std::min(message_.size() - last_, buffer_text); }

  const _kp_LOG_log_entry_imp& entry_;
  logmsg_text& message_;
  size_t last_ = 0;       // where the last formatted text stands in the message
  size_t last_size_ = 0;  // how much of it the buffer holds
};

void logmsg_bytes_writer::show(const logmsg_placeholder& placeholder, kp_AttributeType type) {
  if (placeholder.kind() == logmsg_kind::string) return show_string(placeholder, type);
  if (placeholder.kind() == logmsg_kind::nothing) return;
  if (type == TypeBool && placeholder.kind() == logmsg_kind::integer) return repeat_last();
  begin();
  switch (placeholder.kind()) {
    case logmsg_kind::integer:
      show_integer(placeholder, type);
      break;
    case logmsg_kind::floating:
      put_fixed(real(placeholder));
      break;
    case logmsg_kind::currency:
      show_currency(placeholder, type);
      break;
    case logmsg_kind::percent:
      show_percent(placeholder, type);
      break;
    default:
      show_time(placeholder);
  }
  end();
}

// Texts are ASCII as a rule; in any other a NUL may stand before the end.
template <class Text>
void logmsg_bytes_writer::put_text(const Text& text) {
  if (!message_.append_ascii(text.c_str(), text.length()))
    message_.append(std::string_view(text.c_str()));
}

void logmsg_bytes_writer::show_string(const logmsg_placeholder& placeholder,
                                      kp_AttributeType type) {
  const _kp_LOG_type_base* const held = placeholder.held_in(entry_, type);
  if (held == nullptr)
    message_.append(std::string_view(placeholder.string_of(entry_, type)));
  else if (type >= TypeMBChar32 && type <= TypeMBChar2K)
    put_text(kp_log_value_in<_kp_LOG_ustring>(*held));
  else
    put_text(kp_log_value_in<kp_String>(*held));
}

static long long held_integer(const _kp_LOG_type_base& held) noexcept {
  switch (held.get_type()) {
    case TypeUInt1:
      return kp_log_value_in<unsigned char>(held);
    case TypeSInt1:
      return kp_log_value_in<char>(held);
    case TypeUInt2:
      return kp_log_value_in<unsigned short>(held);
    case TypeSInt2:
      return kp_log_value_in<short>(held);
    case TypeUInt4:
      return kp_log_value_in<unsigned>(held);
    default:
      return kp_log_value_in<int>(held);
  }
}

static long long got_integer(const _kp_LOG_log_entry_imp& entry, const char* name,
                             kp_AttributeType type) {
  switch (type) {
    case TypeUInt1:
      return entry.get_attrib_1u(name);
    case TypeSInt1:
      return entry.get_attrib_1(name);
    case TypeUInt2:
      return entry.get_attrib_2u(name);
    case TypeSInt2:
      return entry.get_attrib_2(name);
    case TypeUInt4:
      return entry.get_attrib_4u(name);
    default:
      return entry.get_attrib_4(name);
  }
}

void logmsg_bytes_writer::show_integer(const logmsg_placeholder& placeholder,
                                       kp_AttributeType type) {
  const _kp_LOG_type_base* const held = placeholder.held_in(entry_, type);
  put_integer(held != nullptr ? held_integer(*held)
                              : got_integer(entry_, placeholder.name(), type));
}

double logmsg_bytes_writer::real(const logmsg_placeholder& placeholder) const {
  const _kp_LOG_type_base* const held = placeholder.held_in(entry_, TypeFloat);
  return held != nullptr ? kp_log_value_in<double>(*held)
                         : entry_.get_attrib_float8(placeholder.name());
}

void logmsg_bytes_writer::show_currency(const logmsg_placeholder& placeholder,
                                        kp_AttributeType type) {
  if (is_float_attribute(type)) {
    const double value = real(placeholder);
    message_.append('$');
    return put_fixed(std::fabs(value));
  }
  const long long value = entry_.get_attrib_as_4(placeholder.name());
  message_.append('$');
  put_integer(value < 0 ? -value : value);
}

void logmsg_bytes_writer::show_percent(const logmsg_placeholder& placeholder,
                                       kp_AttributeType type) {
  if (is_float_attribute(type)) {
    put_fixed(real(placeholder) * 100.0);
  } else {
    const unsigned product =
        static_cast<unsigned>(entry_.get_attrib_as_4(placeholder.name())) * 100U;
    put_integer(static_cast<int>(product));
  }
  message_.append('%');
}

void logmsg_bytes_writer::show_time(const logmsg_placeholder& placeholder) {
  char text[32];
  const kp_Time time = placeholder.time_of(entry_);
  if (placeholder.kind() == logmsg_kind::date)
    time.print_date_out(text, sizeof text);
  else
    time.print_time_out(text, sizeof text);
  message_.append(std::string_view(text));
}

// Of no more than 32 bits, and a sign.
void logmsg_bytes_writer::put_integer(long long value) {
  constexpr size_t room = 16;
  char* const at = message_.room_for(room);
  *at = '-';
  const bool is_negative = value < 0;
  const auto magnitude = static_cast<unsigned>(is_negative ? -value : value);
  char* const digits = at + (is_negative ? 1 : 0);
  message_.end_at(KP_put_decimal(uint32_t{magnitude}, digits));
}

// The millionths of a value, rounded to nearest and half to even; false for one that is large.
static bool millionths_of(double magnitude, uint64_t& millionths) {
  constexpr double most = 1e12;
  constexpr unsigned mantissa_bits = 52;
  constexpr unsigned bias = 1075;  // of the exponent of a mantissa that is a whole number
  if (!(magnitude < most) || std::fegetround() != FE_TONEAREST) return false;
  const auto bits = std::bit_cast<uint64_t>(magnitude);
  const unsigned shift = bias - static_cast<unsigned>(bits >> mantissa_bits);
  millionths = 0;
  if (shift > 120) return true;  // far less than half of one, and 0
  constexpr uint64_t implied = uint64_t{1} << mantissa_bits;
  __extension__ using wide = unsigned __int128;
  const wide product = static_cast<wide>((bits & (implied - 1)) | implied) * 1000000U;
  const wide half = static_cast<wide>(1) << (shift - 1);
  const wide rest = product & (2 * half - 1);
  millionths = static_cast<uint64_t>(product >> shift);
  if (rest > half || (rest == half && millionths % 2 != 0)) ++millionths;
  return true;
}

// As "%f", in the radix character of the C library's locale.
void logmsg_bytes_writer::put_fixed(double value) {
  // The largest value has 309 digits, a radix character, 6 decimals and a sign.
  constexpr size_t room = 352;
  char* const at = message_.room_for(room);
  uint64_t millionths = 0;
  if (!millionths_of(std::fabs(value), millionths))
    return message_.end_at(at + std::snprintf(at, room, "%f", value));
  *at = '-';
  char* const digits = at + (std::signbit(value) ? 1 : 0);
  char* const point = KP_put_decimal(millionths / 1000000, digits);
  const auto decimals = static_cast<uint32_t>(millionths % 1000000);
  message_.end_at(KP_put_four(decimals % 10000, KP_put_pair(decimals / 10000, point + 1)));
  put_radix(point);
}

// At its place, six digits before the end.
void logmsg_bytes_writer::put_radix(char* point) {
  const char* const radix = nl_langinfo(RADIXCHAR);
  if (radix[0] != '\0' && radix[1] == '\0') {
    *point = radix[0];
    return;
  }
  const std::string decimals(point + 1, 6);
  message_.end_at(point);
  message_.append(std::string_view(radix));
  message_.append(decimals);
}

// A bool has no format of its own: the last text stands again, by contract.
void logmsg_bytes_writer::repeat_last() {
  char text[buffer_text];
  std::memcpy(text, message_.data() + last_, last_size_);
  begin();
  message_.append(text, last_size_);
  end();
}

static void render(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition& definition,
                   const logmsg_plan& plan, logmsg_text& message) {
  logmsg_bytes_writer writer(entry, message);
  logmsg_literals literals(plan);
  for (const logmsg_plan::step& step : plan.steps()) {
    literals.append_before(step, message);
    const bool is_known = step.type != TypeUnknown;
    writer.show(step.placeholder, is_known ? step.type : step.placeholder.resolve(definition));
  }
  literals.append_rest(message);
}

void logmsg_render_bytes(const _kp_LOG_log_entry_imp& entry,
                         const _kp_LOG_log_definition* definition, bool use_default, unsigned index,
                         logmsg_text& message) {
  kp_log_no_bad_alloc([&] {
    const logmsg_choice choice = logmsg_choose(entry, definition, use_default, index);
    const logmsg_setting setting;
    const logmsg_template_key key = logmsg_key_of(choice, 0, *definition);
    logmsg_thread_plans& known = logmsg_thread_plans::current();
    if (const logmsg_plan* const plan = known.find(key, setting))
      return render(entry, *definition, *plan, message);
    const logmsg_plan_ref plan = logmsg_find_plan(choice.text != nullptr ? choice.text : "",
                                                  logmsg_form::bytes, setting, *definition);
    known.keep(key, plan);
    render(entry, *definition, *plan, message);
  });
}

kp_String _kp_LOG_log_message::get_kpString_message(const _kp_LOG_log_entry_imp& entry,
                                                    const _kp_LOG_log_definition* definition,
                                                    bool use_default, unsigned index) {
  return kp_log_no_bad_alloc([&] {
    logmsg_text message;
    logmsg_render_bytes(entry, definition, use_default, index, message);
    return kp_String(message.data(), kp_log_string_length(message.size()));
  });
}
