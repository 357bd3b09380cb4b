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
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/kp_string.h"
#include "kp_LOG_AttributeKey.h"
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

// Where a constant is not a value of its attribute's type, compilers name this function: it cannot
// be called while compiling, and does not exist afterwards.
void kp_LOG_constant_does_not_fit_its_attribute();

// The value of a Bool, of an integer, of a Float, or of an enumeration that stands for an integer.
template <class T>
class kp_LOG_EventNumber {
 public:
  template <class From>
  requires kp_LOG_keeps_value<From, T>
  constexpr kp_LOG_EventNumber(From value) : value_(static_cast<T>(value)) {}

  // A constant. Compiles when the attribute's type can hold it.
  template <class From>
  requires(!kp_LOG_keeps_value<From, T> && kp_LOG_number<From> &&
           kp_LOG_number<T>) consteval kp_LOG_EventNumber(From constant)
      : value_(static_cast<T>(constant)) {
    if (static_cast<From>(value_) != constant || (value_ < T{}) != (constant < From{}))
      kp_LOG_constant_does_not_fit_its_attribute();
  }

  void add_to(kp_LOG_LogEntry& entry, const char* name) const { add(entry, name, value_); }
  void add_to(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key) const {
    add(entry, key, value_);
  }

 private:
  template <class Attribute, class E>
  requires std::is_enum_v<E>
  static void add(kp_LOG_LogEntry& entry, const Attribute& name, E value) {
    add(entry, name, static_cast<std::underlying_type_t<E>>(value));
  }
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

  T value_;
};

// What a string type measures its texts in.
enum class kp_LOG_text_unit {
  byte,      // Char32 to Char2K
  character  // MBChar32 to MBChar2K: UTF-16 code units of the configured code page's text
};

// The value of a string attribute. A literal that its size class cannot hold does not compile; any
// other text that is too long is refused or cut by the library, as SetActionAttrLenExceed says.
// A text ends at its first NUL.
template <kp_LOG_text_unit unit, std::size_t limit>
class kp_LOG_EventText {
  // What most code pages need for `limit` units; those with escape sequences may need more.
  static constexpr std::size_t size_limit = unit == kp_LOG_text_unit::byte ? limit : 4 * limit;

  template <class T>
  static constexpr bool is_text_pointer =
      std::is_pointer_v<T>&& std::convertible_to<T, const char*>;

 public:
  // Copied while it is added, for the NUL that the library needs: to the stack, or, when it is
  // longer than most texts of its class, to the heap.
  constexpr kp_LOG_EventText(std::string_view text)
      : text_(text.data()), size_(text.size()), is_terminated_(false) {}

  kp_LOG_EventText(const std::string& text) : text_(text.c_str()) {}

  template <class Pointer>
  requires is_text_pointer<Pointer>
  constexpr kp_LOG_EventText(const Pointer& text) : text_(text) {}

  template <std::size_t room>
  constexpr kp_LOG_EventText(const char (&literal)[room]) : text_(literal) {
    static_assert(room <= size_limit + 1, "the text is too long for the type of its attribute");
  }

  template <std::size_t room>
  constexpr kp_LOG_EventText(char (&buffer)[room]) : text_(buffer) {}

  void add_to(kp_LOG_LogEntry& entry, const char* name) const { add_text(entry, name); }
  void add_to(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key) const {
    add_text(entry, key);
  }

 private:
  template <class Attribute>
  void add_text(kp_LOG_LogEntry& entry, const Attribute& name) const {
    if (is_terminated_) return add(entry, name, text_);
    if (size_ > size_limit)
      return add(entry, name, kp_String(text_, static_cast<unsigned>(size_)).c_str());
    std::array<char, size_limit + 1> copy;
    std::copy_n(text_, size_, copy.data());
    copy[size_] = '\0';
    add(entry, name, copy.data());
  }

  static void add(kp_LOG_LogEntry& entry, const char* name, const char* text) {
    if constexpr (unit == kp_LOG_text_unit::byte)
      entry.AddAttribStr(name, text);
    else
      entry.AddAttribMBStr(name, text);
  }
  static void add(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key, const char* text) {
    if constexpr (unit == kp_LOG_text_unit::byte)
      entry.AddKeyedStr(key, text);
    else
      entry.AddKeyedMBStr(key, text);
  }

  const char* text_;
  std::size_t size_ = 0;  // of a text without a NUL behind it
  bool is_terminated_ = true;
};

// The value of a Date, Time or Timestamp.
class kp_LOG_EventTime {
 public:
  kp_LOG_EventTime(const kp_Time& time) : time_(&time) {}

  void add_to(kp_LOG_LogEntry& entry, const char* name) const { entry.AddAttribTime(name, *time_); }
  void add_to(kp_LOG_LogEntry& entry, const kp_LOG_AttributeKey& key) const {
    entry.AddKeyedTime(key, *time_);
  }

 private:
  const kp_Time* time_;
};

#endif
#endif
