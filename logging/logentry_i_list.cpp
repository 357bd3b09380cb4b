// Setting up an entry from a variadic list.
#include <cstdarg>

#include "logging/logentry_i_private.h"

// A copy of a variadic list that functions can hand on by reference: a va_list itself may be an
// array.
struct entry_arguments {
  explicit entry_arguments(va_list args) noexcept { va_copy(list, args); }
  entry_arguments(const entry_arguments&) = delete;
  entry_arguments& operator=(const entry_arguments&) = delete;
  ~entry_arguments() { va_end(list); }

  // Arguments arrive promoted: these are the only types that are read.
  int next_int() noexcept { return va_arg(list, int); }
  unsigned next_unsigned() noexcept { return va_arg(list, unsigned); }
  double next_double() noexcept { return va_arg(list, double); }
  const char* next_text() noexcept { return va_arg(list, const char*); }

  va_list list;
};

static void add_unsigned(_kp_LOG_log_entry_imp& entry, const char* name, kp_AttributeType type,
                         entry_arguments& args) {
  if (type == TypeUInt1)
    entry.add_attrib_1u(name, static_cast<unsigned char>(args.next_int()));
  else if (type == TypeUInt2)
    entry.add_attrib_2u(name, static_cast<unsigned short>(args.next_int()));
  else
    entry.add_attrib_4u(name, args.next_unsigned());
}

static void add_signed(_kp_LOG_log_entry_imp& entry, const char* name, kp_AttributeType type,
                       entry_arguments& args) {
  const int value = args.next_int();
  if (type == TypeBool)
    entry.add_attrib_bool(name, value != 0);
  else if (type == TypeSInt1)
    entry.add_attrib_1(name, static_cast<char>(value));
  else if (type == TypeSInt2)
    entry.add_attrib_2(name, static_cast<short>(value));
  else
    entry.add_attrib_4(name, value);
}

static void add_time_text(_kp_LOG_log_entry_imp& entry, const char* name, const char* text) {
  kp_Time time;
  if (text == nullptr || !time.set_to_string_value(text)) kp_log_raise_invalid_argument();
  entry.add_attrib_time(name, time);
}

// Adds the next argument as a value of that type. A type of no family has no argument.
static void add_next(_kp_LOG_log_entry_imp& entry, const char* name, kp_AttributeType type,
                     entry_arguments& args) {
  if (is_string_attribute(type))
    entry.add_attrib_str(name, args.next_text(), true);
  else if (is_unicode_string_attribute(type))
    entry.add_attrib_mbstr(name, args.next_text(), true);
  else if (is_unsigned_integer_attribute(type))
    add_unsigned(entry, name, type, args);
  else if (is_signed_integer_attribute(type))
    add_signed(entry, name, type, args);
  else if (is_float_attribute(type))
    entry.add_attrib_float8(name, args.next_double());
  else if (is_time_attribute(type))
    add_time_text(entry, name, args.next_text());
}

void _kp_LOG_log_entry_imp::add_attributes(va_list args) {
  entry_arguments arguments(args);
  for (const char* name = arguments.next_text(); !kp_log_is_blank(name);
       name = arguments.next_text()) {
    const _kp_LOG_attribute_entry* declared = _declared(name);
    if (declared == nullptr) {
      kp_log_raise_undeclared(
          name, entry_id_,
          kp_log_told("%s:%d _kp_LOG_log_entry_imp::add_attributes, attribute_name is invalid\n",
                      kp_log_entry_source, __LINE__));
    }
    add_next(*this, name, static_cast<kp_AttributeType>(declared->get_type()), arguments);
  }
}
