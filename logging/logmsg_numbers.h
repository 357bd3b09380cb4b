// Numbers as ICU shows them in a locale, without asking ICU for each.
#ifndef KP_LOG_LOGMSG_NUMBERS_H
#define KP_LOG_LOGMSG_NUMBERS_H

#include <unicode/locid.h>
#include <unicode/numfmt.h>
#include <unicode/unistr.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "logging/logmsg_placeholder.h"

// What a number formatter of ICU writes with, and by which rules. Immutable.
struct logmsg_number_symbols {
  // Null when the formatter does more than these symbols and rules say, or shows any of a set of
  // sample values otherwise than they do. Raises KPX_memory_alloc.
  static std::shared_ptr<const logmsg_number_symbols> read(const icu::NumberFormat& format);

  std::array<icu::UnicodeString, 10> digits;
  icu::UnicodeString decimal_separator;
  icu::UnicodeString grouping_separator;
  // Each of these for positive and for negative values.
  std::array<icu::UnicodeString, 2> prefix;
  std::array<icu::UnicodeString, 2> suffix;
  std::array<icu::UnicodeString, 2> not_a_number;  // the whole text
  std::array<icu::UnicodeString, 2> infinity;      // the whole text

  unsigned percent_digits = 0;   // by how many digits the decimal point moves before it is shown
  unsigned fraction_digits = 0;  // at most; the rest is rounded half to even
  unsigned last_group = 0;    // digits of the group before the decimal separator; 0 without groups
  unsigned other_groups = 0;  // digits of the groups before that one

 private:
  bool take_rules(const icu::NumberFormat& format);
  void take_texts(const icu::NumberFormat& format);
  bool show_what_is_shown_by(const icu::NumberFormat& format) const;
};

// The symbols of the process for that kind of placeholder in that locale, read when first asked
// for. Null when such values have to be shown by ICU: always for what is no number, and for
// currencies. Any thread. Raises KPX_memory_alloc.
std::shared_ptr<const logmsg_number_symbols> logmsg_number_symbols_of(logmsg_kind kind,
                                                                      const icu::Locale& locale);

// A few units that are written at once.
template <class Unit>
struct logmsg_number_piece {
  static constexpr size_t room = 15;
  Unit units[room] = {};
  uint8_t size = 0;
};

// Symbols ready to be written, as UTF-16 (Unit is char16_t) or as the bytes of a code page (char).
// Immutable: any number of threads write with one style.
template <class Unit>
class logmsg_number_style {
 public:
  // Units that every number has room in, together with what is written beyond its end.
  static constexpr size_t room = 256;

  // Converts one symbol; false when it cannot. The code page must be one in which a text is
  // converted symbol by symbol, without states between them.
  using converter = std::function<bool(const icu::UnicodeString&, std::basic_string<Unit>&)>;

  // Null when a symbol is not converted or is too long. Raises KPX_memory_alloc.
  static std::unique_ptr<const logmsg_number_style> make(const logmsg_number_symbols& symbols,
                                                         const converter& convert);

  // Write the number at `at`, where there is room for `room` units, and return its end. What stands
  // behind the end is undefined.
  Unit* write(int value, Unit* at) const noexcept;
  // Null, with undefined units at `at`, when ICU has to be asked for that value: for one that is
  // large, and when the processor does not round to nearest.
  Unit* write(double value, Unit* at) const noexcept;

 private:
  using piece = logmsg_number_piece<Unit>;
  using text = std::basic_string<Unit>;
  struct decimal {
    uint64_t whole;
    unsigned fraction;  // of fraction_digits_ digits
  };

  bool take(const logmsg_number_symbols& symbols, const converter& convert);
  void take_rules(const logmsg_number_symbols& symbols);
  bool has_room() const;
  bool split(double magnitude, decimal& shown) const noexcept;
  Unit* put_whole(uint64_t value, Unit* at) const noexcept;
  Unit* put_groups(const char* digits, size_t count, Unit* at) const noexcept;
  Unit* put_fraction(unsigned fraction, Unit* at) const noexcept;
  Unit* put_digits(const char* digits, size_t count, Unit* at) const noexcept;

  std::array<piece, 10> digits_;
  piece decimal_separator_;
  piece grouping_separator_;
  std::array<piece, 2> prefix_;
  std::array<piece, 2> suffix_;
  std::array<text, 2> not_a_number_;
  std::array<text, 2> infinity_;
  bool has_ascii_digits_ = false;  // as bytes
  unsigned fraction_digits_ = 0;
  size_t last_group_ = 0;  // more digits than there are when there are no groups
  size_t other_groups_ = 0;
  uint64_t plain_below_ = 0;       // what is written by ASCII digits alone, without a group
  uint64_t whole_factor_ = 1;      // to shift a whole number by percent_digits
  unsigned fraction_factor_ = 1;   // 10 to the power of fraction_digits
  unsigned fraction_padding_ = 1;  // to shift a fraction of that many digits to the most there are
  double factor_ = 1.0;            // whole_factor_ and fraction_factor_
};

extern template class logmsg_number_style<char>;
extern template class logmsg_number_style<char16_t>;

// The style of UTF-16, and of UTF-8.
std::unique_ptr<const logmsg_number_style<char16_t>> logmsg_utf16_style(
    const logmsg_number_symbols& symbols);
std::unique_ptr<const logmsg_number_style<char>> logmsg_utf8_style(
    const logmsg_number_symbols& symbols);

#endif
