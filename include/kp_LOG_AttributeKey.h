// kp_LOG_AttributeKey: an attribute as a program knows it while it is compiled.
#ifndef KP_LOG_ATTRIBUTEKEY_H
#define KP_LOG_ATTRIBUTEKEY_H

#include <cstddef>
#include <cstdint>

#include "base/kp_hash.h"

// An attribute's name, and its number among those that its kind of event declares, from 0 in the
// order of their declaration. Attributes are added by it (kp_LOG_LogEntry) as they are by their
// names alone, with the same checks, errors and outcome, and sooner: as a constant it brings the
// name's hash along, and where the definition has the name at that number nothing is searched. A
// number that is not the name's in the definitions that are loaded, which may be newer than the
// program, is no error: the name counts.
//
//   static constexpr kp_LOG_AttributeKey port("PORT", 2);
//   entry.AddAttrib2u(port, 51413);
//
// The headers that "kplog header" writes use keys throughout. The name is not copied, and must live
// as long as the key. Keys never change; any thread may use one.
class kp_LOG_AttributeKey {
 public:
  // A null name counts as "", which no attribute has.
  constexpr kp_LOG_AttributeKey(const char* name, unsigned char number) noexcept
      : name_(name != nullptr ? name : ""),
        length_(length_of(name_)),
        hash_(KP_text_hash(name_, length_)),
        number_(number) {}

  constexpr const char* name() const noexcept { return name_; }
  constexpr std::size_t length() const noexcept { return length_; }
  constexpr std::uint32_t hash() const noexcept { return hash_; }  // KP_text_hash of the name
  constexpr unsigned char number() const noexcept { return number_; }

 private:
  static constexpr std::size_t length_of(const char* text) noexcept {
    std::size_t length = 0;
    while (text[length] != '\0') ++length;
    return length;
  }

  const char* name_;
  std::size_t length_;
  std::uint32_t hash_;
  unsigned char number_;
};

#endif
