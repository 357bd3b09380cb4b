#include "logging/logmsg_bytes.h"

#include <langinfo.h>

#include <algorithm>
#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include "logging/log_util_per_thread.h"
#include "logging/logentry_i.h"
#include "logging/logmsg.h"
#include "logging/logmsg_cache.h"
#include "logging/logmsg_choice.h"
#include "logging/logmsg_placeholder.h"
#include "logging/raise.h"

// --- The plan of a template ---

// Literal text, and the placeholder that follows it.
struct logmsg_bytes_step {
  std::string before;
  logmsg_placeholder placeholder;
};

// Everything about a byte template that does not depend on the entry.
class logmsg_bytes_plan {
 public:
  explicit logmsg_bytes_plan(const kp_String& text);
  bool is_for(const kp_String& text) const noexcept { return text_ == text; }
  const std::vector<logmsg_bytes_step>& steps() const noexcept { return steps_; }
  const std::string& rest() const noexcept { return rest_; }

 private:
  const _kp_LOG_msg_token* take(const _kp_LOG_msg_token* token);

  kp_String text_;
  std::vector<logmsg_bytes_step> steps_;
  std::string rest_;  // literal text behind the last placeholder
};

logmsg_bytes_plan::logmsg_bytes_plan(const kp_String& text) : text_(text) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_kpString(text, list);
  for (const _kp_LOG_msg_token* token = list.head; token != nullptr;) token = take(token);
}

// Takes the token in, and for a format token the one behind it; returns the next.
const _kp_LOG_msg_token* logmsg_bytes_plan::take(const _kp_LOG_msg_token* token) {
  if (const auto* literal = dynamic_cast<const _kp_LOG_kpString_token*>(token)) {
    rest_ += literal->text.c_str();
  } else if (const auto* format = dynamic_cast<const _kp_LOG_fmt_spec_token*>(token)) {
    const _kp_LOG_msg_token* behind = token->next;
    steps_.push_back({std::move(rest_), logmsg_placeholder(*format, behind)});
    rest_.clear();
    return behind != nullptr ? behind->next : nullptr;
  }
  return token->next;
}

// --- One rendering ---

class logmsg_bytes_writer {
 public:
  logmsg_bytes_writer(const _kp_LOG_log_entry_imp& entry, std::string& message)
      : entry_(entry), message_(message) {}

  void show(const logmsg_placeholder& placeholder, kp_AttributeType type);

 private:
  // The largest value in "%f" has 309 digits, a radix character, 6 decimals and a sign.
  static constexpr size_t number_room = 352;
  static constexpr size_t buffer_text = 31;  // what the 32-byte buffer of old keeps of a text

  void show_integer(const char* name, kp_AttributeType type);
  void show_currency(const char* name, kp_AttributeType type);
  void show_percent(const char* name, kp_AttributeType type);
  void show_time(const logmsg_placeholder& placeholder);

  template <class Integer>
  void put_integer(const char* before, Integer value, const char* behind);
  void put_floating(const char* before, double value, const char* behind);
  void append_fixed(double value);
  void repeat_last();

  // Marks what is appended from here on as the text of the buffer.
  void begin() noexcept { last_ = message_.size(); }
  void end() noexcept { last_size_ = std::min(message_.size() - last_, buffer_text); }

  const _kp_LOG_log_entry_imp& entry_;
  std::string& message_;
  size_t last_ = 0;       // where the last formatted text stands in the message
  size_t last_size_ = 0;  // how much of it the buffer holds
};

void logmsg_bytes_writer::show(const logmsg_placeholder& placeholder, kp_AttributeType type) {
  switch (placeholder.kind()) {
    case logmsg_kind::string:
      message_ += placeholder.string_of(entry_, type);
      return;
    case logmsg_kind::integer:
      return show_integer(placeholder.name(), type);
    case logmsg_kind::floating:
      return put_floating("", entry_.get_attrib_float8(placeholder.name()), "");
    case logmsg_kind::currency:
      return show_currency(placeholder.name(), type);
    case logmsg_kind::percent:
      return show_percent(placeholder.name(), type);
    case logmsg_kind::date:
    case logmsg_kind::time:
      return show_time(placeholder);
    case logmsg_kind::nothing:
      return;
  }
}

void logmsg_bytes_writer::show_integer(const char* name, kp_AttributeType type) {
  switch (type) {
    case TypeUInt1:
      return put_integer("", unsigned{entry_.get_attrib_1u(name)}, "");
    case TypeSInt1:
      return put_integer("", int{entry_.get_attrib_1(name)}, "");
    case TypeUInt2:
      return put_integer("", unsigned{entry_.get_attrib_2u(name)}, "");
    case TypeSInt2:
      return put_integer("", int{entry_.get_attrib_2(name)}, "");
    case TypeUInt4:
      return put_integer("", entry_.get_attrib_4u(name), "");
    case TypeSInt4:
      return put_integer("", entry_.get_attrib_4(name), "");
    default:
      return repeat_last();  // a bool has no format of its own: the last text stands again, by
                             // contract
  }
}

void logmsg_bytes_writer::show_currency(const char* name, kp_AttributeType type) {
  if (is_float_attribute(type)) {
    return put_floating("$", std::fabs(entry_.get_attrib_float8(name)), "");
  }
  const int value = entry_.get_attrib_as_4(name);
  const unsigned bits = static_cast<unsigned>(value);
  put_integer("$", value < 0 ? 0U - bits : bits, "");
}

void logmsg_bytes_writer::show_percent(const char* name, kp_AttributeType type) {
  if (is_float_attribute(type)) {
    return put_floating("", entry_.get_attrib_float8(name) * 100.0, "%");
  }
  const unsigned product = static_cast<unsigned>(entry_.get_attrib_as_4(name)) * 100U;
  put_integer("", static_cast<int>(product), "%");
}

void logmsg_bytes_writer::show_time(const logmsg_placeholder& placeholder) {
  char text[32];
  const kp_Time time = placeholder.time_of(entry_);
  if (placeholder.kind() == logmsg_kind::date) {
    time.print_date_out(text, sizeof text);
  } else {
    time.print_time_out(text, sizeof text);
  }
  begin();
  message_ += text;
  end();
}

template <class Integer>
void logmsg_bytes_writer::put_integer(const char* before, Integer value, const char* behind) {
  char digits[16];
  const char* end_of_text = std::to_chars(digits, digits + sizeof digits, value).ptr;
  begin();
  message_.append(before).append(digits, static_cast<size_t>(end_of_text - digits)).append(behind);
  end();
}

void logmsg_bytes_writer::put_floating(const char* before, double value, const char* behind) {
  begin();
  message_ += before;
  append_fixed(value);
  message_ += behind;
  end();
}

// As "%f", in the radix character of the C library's locale.
void logmsg_bytes_writer::append_fixed(double value) {
  char text[number_room];
  if (!std::isfinite(value) || std::fegetround() != FE_TONEAREST) {
    static_cast<void>(std::snprintf(text, sizeof text, "%f", value));  // number_room holds any
    message_ += text;
    return;
  }
  const char* end_of_text =
      std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6).ptr;
  const std::string_view fixed(text, static_cast<size_t>(end_of_text - text));
  const size_t radix = fixed.size() - 7;
  message_.append(fixed.substr(0, radix));
  message_.append(nl_langinfo(RADIXCHAR)).append(fixed.substr(radix + 1));
}

void logmsg_bytes_writer::repeat_last() {
  const std::string text = message_.substr(last_, last_size_);
  begin();
  message_ += text;
  end();
}

static void render(const _kp_LOG_log_entry_imp& entry, const _kp_LOG_log_definition& definition,
                   const kp_String& text, std::string& message) {
  using cache = logmsg_cache<logmsg_bytes_plan, char>;
  const logmsg_bytes_plan& plan =
      kp_per_thread<cache>::get().find(text, {text.c_str(), text.length()});
  logmsg_bytes_writer writer(entry, message);
  for (const logmsg_bytes_step& step : plan.steps()) {
    message += step.before;
    writer.show(step.placeholder, step.placeholder.resolve(definition));
  }
  message += plan.rest();
}

void logmsg_render_bytes(const _kp_LOG_log_entry_imp& entry,
                         const _kp_LOG_log_definition* definition, bool use_default, unsigned index,
                         std::string& message) {
  kp_log_no_bad_alloc([&] {
    message.clear();
    const kp_String text =
        _kp_LOG_log_message::_get_message_kpString(entry, definition, use_default, index);
    render(entry, *definition, text, message);
  });
}

kp_String _kp_LOG_log_message::get_kpString_message(const _kp_LOG_log_entry_imp& entry,
                                                    const _kp_LOG_log_definition* definition,
                                                    bool use_default, unsigned index) {
  return kp_log_no_bad_alloc([&] {
    std::string message;
    logmsg_render_bytes(entry, definition, use_default, index, message);
    return kp_String(message.c_str(), kp_log_string_length(message.size()));
  });
}
