// What the headers that "kplog header" writes are made of: attribute values that know their types.
//
// Each class is a parameter type. It has no default, so that an attribute left out does not
// compile; it takes values of its own type, and of other types only where none of their values is
// lost; constants of any number type are compared with the range while compiling. The objects
// borrow the texts they are made from, and live no longer than the full expression that builds the
// entry. C++20 and later; in C++17 this header is empty.
#ifndef KP_LOG_EVENTVALUE_H
#define KP_LOG_EVENTVALUE_H

#if __cplusplus >= 202002L

#include <algorithm>
#include <array>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/kp_string.h"
#include "kp_LOG_AttributeKey.h"
#include "kp_LOG_AttributeType.h"
#include "kp_LOG_EntryFilter.h"
#include "kp_LOG_LogEntry.h"

// An attribute that a header names, with its number in its event's definition: made while
// compiling.
template <const auto& name, unsigned char number>
inline constexpr kp_LOG_AttributeKey kp_LOG_attribute_key{name, number};

// Whether every value of From is a value of To. A bool is no number, and no number is a bool.
template <class From, class To>
concept kp_LOG_keeps_value = (std::same_as<From, bool> ==
                              std::same_as<To, bool>)&&(requires(From from) {
  To{from};
} || (std::same_as<To, double> && std::integral<From> && sizeof(From) <= 4));

// A number type other than bool.
template <class T>
concept kp_LOG_number = std::is_arithmetic_v<T> && !std::same_as<T, bool>;

// What compilers name where a constant is not a value of its attribute's type: this cannot be
// called while compiling, and does not exist afterwards.
void kp_LOG_constant_does_not_fit_its_attribute();

// What compilers name where a variable has values that its attribute's type does not have.
template <class To, class From>
constexpr To kp_LOG_variable_needs_static_cast_to(const From& constant) {
  return static_cast<To>(constant);
}

// The size class of a string type, the longest text: in bytes (Char32 to Char2K), or in UTF-16 code
// units of the configured code page's text (MBChar32 to MBChar2K). 0 of other types.
constexpr std::size_t kp_LOG_longest_text(kp_AttributeType type) {
  constexpr std::size_t longest[] = {32, 64, 128, 256, 1024, 2048};
  return type >= TypeChar32 && type <= TypeMBChar2K ? longest[(type - TypeChar32) % 6] : 0;
}

// Adds numbers of all types to entries, by names and by keys.
class _kp_LOG_number_adder {
 public:
  static void add(kp_LOG_LogEntry& entry, const char* name, bool value) {
    entry.AddAttribBool(name, value);
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, std::uint8_t value) {
    entry.AddAttrib1u(name, value);
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, std::int8_t value) {
    entry.AddAttrib1(name, static_cast<char>(value));
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, std::uint16_t value) {
    entry.AddAttrib2u(name, value);
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, std::int16_t value) {
    entry.AddAttrib2(name, value);
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, std::uint32_t value) {
    entry.AddAttrib4u(name, value);
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, std::int32_t value) {
    entry.AddAttrib4(name, value);
  }
  static void add(kp_LOG_LogEntry& entry, const char* name, double value) {
    entry.AddAttribFloat8(name, value);
  }

  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, bool value) {
    entry.AddKeyedBool(key, value);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, std::uint8_t value) {
    entry.AddKeyed1u(key, value);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, std::int8_t value) {
    entry.AddKeyed1(key, static_cast<char>(value));
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, std::uint16_t value) {
    entry.AddKeyed2u(key, value);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, std::int16_t value) {
    entry.AddKeyed2(key, value);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, std::uint32_t value) {
    entry.AddKeyed4u(key, value);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, std::int32_t value) {
    entry.AddKeyed4(key, value);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, double value) {
    entry.AddKeyedFloat8(key, value);
  }
};

// A Bool, an integer, a Float.
template <class number>
class _kp_LOG_number_value {
 public:
  explicit constexpr _kp_LOG_number_value(number value) : value_(value) {}

  template <class From>
  static consteval number of_constant(const From& constant) {
    const auto value = kp_LOG_variable_needs_static_cast_to<number>(constant);
    if (static_cast<From>(value) != constant || (value < number{}) != (constant < From{}))
      kp_LOG_constant_does_not_fit_its_attribute();
    return value;
  }

  constexpr number value() const { return value_; }

  template <class Attribute>
  void add_to(kp_LOG_LogEntry& entry, const Attribute& attribute) const {
    _kp_LOG_number_adder::add(entry, attribute, value_);
  }

 private:
  number value_;
};

// A text. A literal that its size class cannot hold does not compile; any other
// text that is too long is refused or cut by the library, as SetActionAttrLenExceed says. A text
// ends at its first NUL. Entries refuse a null pointer; to text() it is an empty one.
template <kp_AttributeType type>
class _kp_LOG_text_value {
  static constexpr bool is_of_bytes = type <= TypeChar2K;
  template <class T>
  static constexpr bool is_text_pointer =
      std::is_pointer_v<T>&& std::convertible_to<T, const char*>;

 public:
  // What most code pages need for the longest text; those with escape sequences may need more.
  static constexpr std::size_t size_limit = kp_LOG_longest_text(type) * (is_of_bytes ? 1 : 4);

  // Copied while it is added, for the NUL that the library needs: to the stack, or, when it is
  // longer than most texts of its class, to the heap.
  constexpr _kp_LOG_text_value(std::string_view text)
      : text_(text.data()), size_(text.size()), is_terminated_(false) {}

  _kp_LOG_text_value(const std::string& text) : text_(text.c_str()) {}

  template <class Pointer>
  requires is_text_pointer<Pointer>
  constexpr _kp_LOG_text_value(const Pointer& text) : text_(text) {}

  template <std::size_t room>
  constexpr _kp_LOG_text_value(char (&buffer)[room]) : text_(buffer) {}

  constexpr std::string_view text() const {
    if (text_ == nullptr) return {};
    if (is_terminated_) return text_;
    const std::string_view given(text_, size_);
    return given.substr(0, given.find('\0'));
  }

  template <class Attribute>
  void add_to(kp_LOG_LogEntry& entry, const Attribute& attribute) const {
    if (is_terminated_) return add_text(entry, attribute, text_);
    if (size_ > size_limit)
      return add_text(entry, attribute, kp_String(text_, static_cast<unsigned>(size_)).c_str());
    std::array<char, size_limit + 1> copy;
    std::copy_n(text_, size_, copy.data());
    copy[size_] = '\0';
    add_text(entry, attribute, copy.data());
  }

 private:
  static void add_text(kp_LOG_LogEntry& entry, const char* attribute, const char* text) {
    if constexpr (is_of_bytes)
      entry.AddAttribStr(attribute, text);
    else
      entry.AddAttribMBStr(attribute, text);
  }
  static void add_text(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, const char* text) {
    if constexpr (is_of_bytes)
      entry.AddKeyedStr(key, text);
    else
      entry.AddKeyedMBStr(key, text);
  }

  const char* text_;
  std::size_t size_ = 0;  // of a text without a NUL behind it
  bool is_terminated_ = true;
};

// A date and time of day. A kp_Time is borrowed. A time of std::chrono's system_clock, in whatever
// units, is told in GMT, without its fraction of a second; one before year 0 or after year 65535
// as the nearest one.
class _kp_LOG_time_value {
 public:
  _kp_LOG_time_value(const kp_Time& time) : given_(&time), is_own_(false) {}

  template <class Duration>
  _kp_LOG_time_value(const std::chrono::time_point<std::chrono::system_clock, Duration>& moment)
      : own_(kp_Time::in_GMT(seconds_of(moment.time_since_epoch()))), is_own_(true) {}

  const kp_Time& time() const { return is_own_ ? own_ : *given_; }

  void add_to(kp_LOG_LogEntry& entry, const char* name) const { entry.AddAttribTime(name, time()); }
  void add_to(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key) const {
    entry.AddKeyedTime(key, time());
  }

 private:
  // Looked at as a floating-point number first, which no duration is too long for.
  template <class Duration>
  static long long seconds_of(const Duration& since_1970) {
    constexpr double first = -62167219200.0;  // 0000-01-01 00:00:00
    constexpr double last = 2005949145599.0;  // 65535-12-31 23:59:59
    const double about = std::chrono::duration<double>(since_1970).count();
    if (!(about > first)) return static_cast<long long>(first);
    if (!(about < last)) return static_cast<long long>(last);
    using seconds = std::chrono::duration<long long>;
    return std::chrono::floor<seconds>(since_1970).count();
  }

  union {
    const kp_Time* given_;
    kp_Time own_;
  };
  bool is_own_;
};
static_assert(std::is_trivially_copyable_v<kp_Time>);

// The C++ type of a number type.
template <kp_AttributeType type>
struct kp_LOG_number_of;
template <>
struct kp_LOG_number_of<TypeBool> {
  using number = bool;
};
template <>
struct kp_LOG_number_of<TypeUInt1> {
  using number = std::uint8_t;
};
template <>
struct kp_LOG_number_of<TypeSInt1> {
  using number = std::int8_t;
};
template <>
struct kp_LOG_number_of<TypeUInt2> {
  using number = std::uint16_t;
};
template <>
struct kp_LOG_number_of<TypeSInt2> {
  using number = std::int16_t;
};
template <>
struct kp_LOG_number_of<TypeUInt4> {
  using number = std::uint32_t;
};
template <>
struct kp_LOG_number_of<TypeSInt4> {
  using number = std::int32_t;
};
template <>
struct kp_LOG_number_of<TypeFloat> {
  using number = double;
};

// What an event is given for the attribute `name`, which is of that type: a class for each family
// of types. Compilers name the class where a value is wrong or missing, and with it the attribute.
// Values are borrowed: use one in the expression that makes it. The headers that "kplog header"
// writes have a member of such a class for each attribute of an event.
//
//   type                     the attribute's
//   value(), text(), time()  the value: of numbers and enumerators (as a number), texts, times
//   add_to(entry, name)      adds it by a name or a key, with the errors of the operation
template <kp_AttributeType attribute_type, const auto& name>
class kp_LOG_EventNumber
    : public _kp_LOG_number_value<typename kp_LOG_number_of<attribute_type>::number> {
  using number = typename kp_LOG_number_of<attribute_type>::number;
  using holder = _kp_LOG_number_value<number>;

 public:
  static constexpr kp_AttributeType type = attribute_type;

  kp_LOG_EventNumber() = delete;  // the attribute is not given a value

  template <class From>
  requires kp_LOG_keeps_value<From, number>
  constexpr kp_LOG_EventNumber(From value) : holder(static_cast<number>(value)) {}

  // A constant of another number type. Compiles when the attribute's type can hold it.
  template <class From>
  requires(!kp_LOG_keeps_value<From, number> && kp_LOG_number<From> &&
           kp_LOG_number<number>) consteval kp_LOG_EventNumber(const From& constant)
      : holder(holder::of_constant(constant)) {}
};

// Of a selector attribute. Values that no message has take a static_cast.
template <kp_AttributeType attribute_type, const auto& name, class Enumeration>
class kp_LOG_EventEnumerator
    : public _kp_LOG_number_value<typename kp_LOG_number_of<attribute_type>::number> {
  using number = typename kp_LOG_number_of<attribute_type>::number;

 public:
  static constexpr kp_AttributeType type = attribute_type;

  kp_LOG_EventEnumerator() = delete;  // the attribute is not given a value
  constexpr kp_LOG_EventEnumerator(Enumeration value)
      : _kp_LOG_number_value<number>(static_cast<number>(value)) {}
};

template <kp_AttributeType attribute_type, const auto& name>
class kp_LOG_EventText : public _kp_LOG_text_value<attribute_type> {
  using holder = _kp_LOG_text_value<attribute_type>;

 public:
  static constexpr kp_AttributeType type = attribute_type;

  kp_LOG_EventText() = delete;  // the attribute is not given a value
  using holder::holder;

  template <std::size_t room>
  constexpr kp_LOG_EventText(const char (&literal)[room])
      : holder(static_cast<const char*>(literal)) {
    static_assert(room <= holder::size_limit + 1,
                  "the text is too long for the type of its attribute");
  }
};

template <kp_AttributeType attribute_type, const auto& name>
class kp_LOG_EventTime : public _kp_LOG_time_value {
 public:
  static constexpr kp_AttributeType type = attribute_type;

  kp_LOG_EventTime() = delete;  // the attribute is not given a value
  using _kp_LOG_time_value::_kp_LOG_time_value;
};

#endif
#endif
