// Setting up an entry from a variadic list, and copying entries.
#include <cstdarg>

#include "logging/logentry_i_private.h"

// --- Variadic list ------------------------------------------------------------------------------

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
    const _kp_LOG_attribute_entry* declared = _declared(_kp_LOG_hashed_name(name));
    if (declared == nullptr) {
      kp_log_raise_undeclared(
          name, entry_id_,
          kp_log_told("%s:%d _kp_LOG_log_entry_imp::add_attributes, attribute_name is invalid\n",
                      kp_log_entry_source, __LINE__));
    }
    add_next(*this, name, static_cast<kp_AttributeType>(declared->get_type()), arguments);
  }
}

// --- Copying ------------------------------------------------------------------------------------

// An entry that is assigned to itself is cleared, and that is meant.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): there is nothing to skip
_kp_LOG_log_entry_imp& _kp_LOG_log_entry_imp::operator=(const _kp_LOG_log_entry_imp& other) {
  _clear(true);
  _copy(other);
  return *this;
}

// Each value is read when its turn comes: an entry copied onto itself gets the level 0 to which
// setting its ID resets it.
void _kp_LOG_log_entry_imp::_copy(const _kp_LOG_log_entry_imp& src) {
  last_timezone_difference_ = src.last_timezone_difference_;
  last_daylight_flag_ = src.last_daylight_flag_;
  for (unsigned i = 0; i < std::size(text_slots_); ++i) text_slots_[i] = src.text_slots_[i];
  set_entry_id(src.entry_id_);
  set_log_level(src.log_level_);
  timestamp_ = src.timestamp_;
  version_text_ = src.version_text_;
  modified_ = src.modified_;
  cached_message_mode_ = src.cached_message_mode_;
  if (!src.modified_) {
    cached_message_ = src.cached_message_;
    cached_message_index_ = src.cached_message_index_;
  }
  _copy_attributes(src);
}

void _kp_LOG_log_entry_imp::_copy_attributes(const _kp_LOG_log_entry_imp& src) {
  _release_attributes();
  attributes_.set_size(src.attributes_.bucket_count());
  src.attributes_.for_each([this](const attribute_store::node& n) { _copy_attribute(n); });
}

void _kp_LOG_log_entry_imp::_copy_attribute(const attribute_store::node& source) {
  kp_log_with_class(source.value->get_type(), [&](auto value_class) {
    using datatype = typename decltype(value_class)::datatype;
    using value_type = typename decltype(value_class)::value_type;
    value_type value = kp_log_value_in<value_type>(*source.value);
    attribute_store::node& n = attributes_.insert(source.key, nullptr);
    n.value = new (n.room.bytes) datatype(std::move(value));
  });
}
