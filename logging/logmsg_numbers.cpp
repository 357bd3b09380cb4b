#include "logging/logmsg_numbers.h"

#include <unicode/dcfmtsym.h>
#include <unicode/decimfmt.h>

#include <algorithm>
#include <cfenv>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <vector>

#include "base/kp_digits.h"
#include "logging/logmsg_icu_formats.h"
#include "logging/raise.h"

using logmsg_icu_symbols = icu::DecimalFormatSymbols;

static uint64_t power_of_ten(unsigned exponent) {
  uint64_t power = 1;
  for (unsigned i = 0; i < exponent; ++i) power *= 10;
  return power;
}

// --- Reading the symbols ---

static constexpr unsigned most_fraction_digits = 6;
static constexpr unsigned most_group_digits = 9;

// The power of ten that the formatter multiplies by.
static bool percent_digits_of(const icu::DecimalFormat& format, unsigned& digits) {
  digits = format.getMultiplier() == 100 ? 2 : 0;
  return format.getMultiplier() == (digits == 2 ? 100 : 1) && format.getMultiplierScale() == 0;
}

static bool writes_plain_decimals(const icu::DecimalFormat& format) {
  return !format.isScientificNotation() && !format.areSignificantDigitsUsed() &&
         !format.isDecimalSeparatorAlwaysShown() && format.getFormatWidth() <= 0 &&
         format.getMinimumIntegerDigits() == 1 && format.getMaximumIntegerDigits() > 400 &&
         format.getMinimumFractionDigits() == 0 && format.getMinimumGroupingDigits() <= 1;
}

static bool rounds_half_to_even(const icu::DecimalFormat& format) {
  return format.getRoundingMode() == icu::DecimalFormat::kRoundHalfEven &&
         format.getRoundingIncrement() == 0.0;
}

bool logmsg_number_symbols::take_rules(const icu::NumberFormat& any_format) {
  const auto* format = dynamic_cast<const icu::DecimalFormat*>(&any_format);
  if (format == nullptr || !writes_plain_decimals(*format) || !rounds_half_to_even(*format) ||
      !percent_digits_of(*format, percent_digits)) {
    return false;
  }
  fraction_digits = static_cast<unsigned>(format->getMaximumFractionDigits());
  const bool has_groups = format->isGroupingUsed() && format->getGroupingSize() > 0;
  last_group = has_groups ? static_cast<unsigned>(format->getGroupingSize()) : 0;
  const int others = format->getSecondaryGroupingSize();
  other_groups = has_groups && others > 0 ? static_cast<unsigned>(others) : last_group;
  return fraction_digits <= most_fraction_digits && last_group <= most_group_digits &&
         other_groups <= most_group_digits;
}

static icu::UnicodeString shown_by(const icu::NumberFormat& format, double value) {
  icu::UnicodeString text;
  format.format(value, text);
  return text;
}

void logmsg_number_symbols::take_texts(const icu::NumberFormat& any_format) {
  const auto& format = dynamic_cast<const icu::DecimalFormat&>(any_format);
  const logmsg_icu_symbols& symbols = *format.getDecimalFormatSymbols();
  digits[0] = symbols.getSymbol(logmsg_icu_symbols::kZeroDigitSymbol);
  for (int i = 1; i < 10; ++i) {
    const int symbol = logmsg_icu_symbols::kOneDigitSymbol + i - 1;
    digits[static_cast<size_t>(i)] =
        symbols.getSymbol(static_cast<logmsg_icu_symbols::ENumberFormatSymbol>(symbol));
  }
  decimal_separator = symbols.getSymbol(logmsg_icu_symbols::kDecimalSeparatorSymbol);
  grouping_separator = symbols.getSymbol(logmsg_icu_symbols::kGroupingSeparatorSymbol);
  format.getPositivePrefix(prefix[0]);
  format.getPositiveSuffix(suffix[0]);
  format.getNegativePrefix(prefix[1]);
  format.getNegativeSuffix(suffix[1]);
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinite = std::numeric_limits<double>::infinity();
  not_a_number = {shown_by(format, nan), shown_by(format, -nan)};
  infinity = {shown_by(format, infinite), shown_by(format, -infinite)};
}

// Every digit, every group and where groups begin, rounding up, down and to even, the zeros before
// and behind a fraction, the limits of what is written without ICU.
static constexpr double sample_values[] = {
    0.0,     -0.0,       0.0005,          0.0015,
    0.015,   -0.00049,   1.0 / 3,         -2.0 / 3,
    0.125,   9.9996,     999.9995,        9999.99951,
    -1234.5, 12345.678,  999999.9996,     1e6,
    -1e8,    0.0000005,  1.0625,          7.25,
    0.1,     99999999.5, 1234567890.0625, 987654321.5,
    -2e9,    1.5e-300,   99999999999.0,   9007199254740991.0};
static constexpr int sample_integers[] = {0,     7,       -1,         10,        -999,
                                          -1000, 1234567, 2147483647, INT32_MIN, 98765};

template <class Value>
static bool shows_the_same(const icu::NumberFormat& format,
                           const logmsg_number_style<char16_t>& style, Value value) {
  icu::UnicodeString expected;
  format.format(value, expected);
  char16_t text[logmsg_number_style<char16_t>::room];
  const char16_t* const end = style.write(value, text);
  return end == nullptr ||
         expected == icu::UnicodeString(false, text, static_cast<int>(end - text));
}

bool logmsg_number_symbols::show_what_is_shown_by(const icu::NumberFormat& format) const {
  const auto style = logmsg_utf16_style(*this);
  if (!style) return false;
  return std::all_of(std::begin(sample_values), std::end(sample_values),
                     [&](double value) { return shows_the_same(format, *style, value); }) &&
         std::all_of(std::begin(sample_integers), std::end(sample_integers),
                     [&](int value) { return shows_the_same(format, *style, value); });
}

std::shared_ptr<const logmsg_number_symbols> logmsg_number_symbols::read(
    const icu::NumberFormat& format) {
  return kp_log_no_bad_alloc([&]() -> std::shared_ptr<const logmsg_number_symbols> {
    const auto symbols = std::make_shared<logmsg_number_symbols>();
    if (!symbols->take_rules(format)) return nullptr;
    symbols->take_texts(format);
    return symbols->show_what_is_shown_by(format) ? symbols : nullptr;
  });
}

// --- Making a style ---

template <class Unit>
static bool take_piece(const icu::UnicodeString& symbol,
                       const typename logmsg_number_style<Unit>::converter& convert,
                       logmsg_number_piece<Unit>& piece) {
  std::basic_string<Unit> units;
  if (!convert(symbol, units) || units.size() > logmsg_number_piece<Unit>::room) return false;
  std::copy(units.begin(), units.end(), piece.units);
  piece.size = static_cast<uint8_t>(units.size());
  return true;
}

template <class Unit>
bool logmsg_number_style<Unit>::take(const logmsg_number_symbols& symbols,
                                     const converter& convert) {
  const auto is_taken = [&](const icu::UnicodeString& symbol, piece& taken) {
    return take_piece<Unit>(symbol, convert, taken);
  };
  for (size_t i = 0; i < digits_.size(); ++i)
    if (!is_taken(symbols.digits[i], digits_[i])) return false;
  for (size_t sign = 0; sign < 2; ++sign) {
    if (!is_taken(symbols.prefix[sign], prefix_[sign]) ||
        !is_taken(symbols.suffix[sign], suffix_[sign]) ||
        !convert(symbols.not_a_number[sign], not_a_number_[sign]) ||
        !convert(symbols.infinity[sign], infinity_[sign])) {
      return false;
    }
  }
  return is_taken(symbols.decimal_separator, decimal_separator_) &&
         is_taken(symbols.grouping_separator, grouping_separator_);
}

template <class Unit>
void logmsg_number_style<Unit>::take_rules(const logmsg_number_symbols& symbols) {
  has_ascii_digits_ = sizeof(Unit) == 1;
  for (size_t i = 0; i < digits_.size(); ++i) {
    const piece& digit = digits_[i];
    if (digit.size != 1 || digit.units[0] != static_cast<Unit>('0' + i)) has_ascii_digits_ = false;
  }
  const bool has_groups = symbols.last_group != 0;
  last_group_ = has_groups ? symbols.last_group : std::numeric_limits<size_t>::max();
  other_groups_ = symbols.other_groups;
  fraction_digits_ = symbols.fraction_digits;
  fraction_factor_ = static_cast<unsigned>(power_of_ten(fraction_digits_));
  whole_factor_ = power_of_ten(symbols.percent_digits);
  fraction_padding_ = static_cast<unsigned>(power_of_ten(most_fraction_digits - fraction_digits_));
  factor_ = static_cast<double>(fraction_factor_ * whole_factor_);
  constexpr uint64_t below_32_bits = uint64_t{1} << 32U;
  if (has_ascii_digits_)
    plain_below_ =
        last_group_ < 10 ? power_of_ten(static_cast<unsigned>(last_group_)) : below_32_bits;
}

static constexpr unsigned most_whole_digits = std::numeric_limits<uint64_t>::digits10 + 1;

template <class Unit>
bool logmsg_number_style<Unit>::has_room() const {
  size_t digit = 0;
  for (const piece& each : digits_) digit = std::max(digit, size_t{each.size});
  size_t longest = (most_whole_digits + most_fraction_digits) * digit;
  longest += most_whole_digits * size_t{grouping_separator_.size} + decimal_separator_.size;
  for (size_t sign = 0; sign < 2; ++sign)
    longest = std::max({longest, not_a_number_[sign].size(), infinity_[sign].size()});
  return longest + 4 * piece::room < room;
}

template <class Unit>
std::unique_ptr<const logmsg_number_style<Unit>> logmsg_number_style<Unit>::make(
    const logmsg_number_symbols& symbols, const converter& convert) {
  return kp_log_no_bad_alloc([&]() -> std::unique_ptr<const logmsg_number_style> {
    auto made = std::make_unique<logmsg_number_style>();
    if (!made->take(symbols, convert)) return nullptr;
    made->take_rules(symbols);
    if (!made->has_room()) return nullptr;
    return made;
  });
}

std::unique_ptr<const logmsg_number_style<char16_t>> logmsg_utf16_style(
    const logmsg_number_symbols& symbols) {
  return logmsg_number_style<char16_t>::make(
      symbols, [](const icu::UnicodeString& symbol, std::u16string& units) {
        units.assign(symbol.getBuffer(), static_cast<size_t>(symbol.length()));
        return !symbol.isBogus();
      });
}

std::unique_ptr<const logmsg_number_style<char>> logmsg_utf8_style(
    const logmsg_number_symbols& symbols) {
  return logmsg_number_style<char>::make(symbols,
                                         [](const icu::UnicodeString& symbol, std::string& bytes) {
                                           symbol.toUTF8String(bytes);
                                           return !symbol.isBogus();
                                         });
}

// --- Writing ---

// All of a piece, whatever its size, is copied at once.
template <class Unit>
static Unit* put_piece(const logmsg_number_piece<Unit>& piece, Unit* at) noexcept {
  std::memcpy(at, &piece, sizeof piece);
  return at + piece.size;
}

template <class Unit>
static Unit* put_text(const std::basic_string<Unit>& text, Unit* at) noexcept {
  return std::copy(text.begin(), text.end(), at);
}

template <class Unit>
Unit* logmsg_number_style<Unit>::put_digits(const char* digits, size_t count,
                                            Unit* at) const noexcept {
  if constexpr (sizeof(Unit) == 1) {
    if (has_ascii_digits_) {
      std::memcpy(at, digits, most_whole_digits);
      return at + count;
    }
  }
  for (size_t i = 0; i < count; ++i)
    at = put_piece(digits_[static_cast<size_t>(digits[i] - '0')], at);
  return at;
}

// The groups before the last one are of equal size, but for the first, which may be shorter.
template <class Unit>
Unit* logmsg_number_style<Unit>::put_groups(const char* digits, size_t count,
                                            Unit* at) const noexcept {
  size_t before = count - last_group_;
  for (size_t group = (before - 1) % other_groups_ + 1; before != 0; group = other_groups_) {
    at = put_piece(grouping_separator_, put_digits(digits, group, at));
    digits += group;
    before -= group;
  }
  return put_digits(digits, last_group_, at);
}

template <class Unit>
Unit* logmsg_number_style<Unit>::put_whole(uint64_t value, Unit* at) const noexcept {
  if constexpr (sizeof(Unit) == 1) {
    if (value < plain_below_) return KP_put_decimal(static_cast<uint32_t>(value), at);
  }
  char digits[2 * most_whole_digits];  // put_digits() reads beyond the last one
  const auto count = static_cast<size_t>(KP_put_decimal(value, digits) - digits);
  return count > last_group_ ? put_groups(digits, count, at) : put_digits(digits, count, at);
}

template <class Unit>
Unit* logmsg_number_style<Unit>::put_fraction(unsigned fraction, Unit* at) const noexcept {
  at = put_piece(decimal_separator_, at);
  char digits[most_fraction_digits + most_whole_digits];  // likewise
  fraction *= fraction_padding_;
  KP_put_pair(fraction % 100, KP_put_four(fraction / 100, digits));
  size_t count = fraction_digits_;
  while (digits[count - 1] == '0') --count;
  return put_digits(digits, count, at);
}

template <class Unit>
Unit* logmsg_number_style<Unit>::write(int value, Unit* at) const noexcept {
  const bool negative = value < 0;
  const uint64_t magnitude =
      negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  at = put_piece(prefix_[negative ? 1 : 0], at);
  at = put_whole(magnitude * whole_factor_, at);
  return put_piece(suffix_[negative ? 1 : 0], at);
}

// ICU rounds the shortest decimal number that reads as the value. `below` is one of the two numbers
// next to it, and `middle` what is half way to the other, read as a double. A decimal number of up
// to 15 digits reads as the value only if it is the shortest; so the shortest is in the middle
// where value and middle are equal, and otherwise on the side of the middle on which the value is.
template <class Unit>
bool logmsg_number_style<Unit>::split(double magnitude, decimal& shown) const noexcept {
  constexpr double below_15_digits = 1e14;
  constexpr double exact_integers = 9007199254740992.0;  // they have no shorter decimal number
  const double scaled = magnitude * factor_;
  if (scaled < below_15_digits - 1) {
    const auto below = static_cast<int64_t>(scaled);
    const double middle = static_cast<double>(10 * below + 5) / (10 * factor_);
    const bool up = magnitude > middle || (magnitude == middle && below % 2 != 0);
    const uint64_t rounded = static_cast<uint64_t>(below) + (up ? 1 : 0);
    shown.whole = rounded / fraction_factor_;
    shown.fraction = static_cast<unsigned>(rounded - shown.whole * fraction_factor_);
    return true;
  }
  if (magnitude >= exact_integers || std::trunc(magnitude) != magnitude) return false;
  shown = {static_cast<uint64_t>(magnitude) * whole_factor_, 0};
  return true;
}

static bool rounds_to_nearest() noexcept {
  return FLT_EVAL_METHOD == 0 && std::fegetround() == FE_TONEAREST;
}

template <class Unit>
Unit* logmsg_number_style<Unit>::write(double value, Unit* at) const noexcept {
  const size_t sign = std::signbit(value) ? 1 : 0;
  if (std::isnan(value)) return put_text(not_a_number_[sign], at);
  if (std::isinf(value)) return put_text(infinity_[sign], at);
  decimal shown{};
  if (!rounds_to_nearest() || !split(std::fabs(value), shown)) return nullptr;
  at = put_piece(prefix_[sign], at);
  at = put_whole(shown.whole, at);
  if (shown.fraction != 0) at = put_fraction(shown.fraction, at);
  return put_piece(suffix_[sign], at);
}

template class logmsg_number_style<char>;
template class logmsg_number_style<char16_t>;

// --- The symbols of the process ---

// The symbols that were asked for last. A kind without symbols in a locale is remembered as well.
class logmsg_known_symbols {
 public:
  struct row {
    logmsg_kind kind;
    icu::Locale locale;
    std::shared_ptr<const logmsg_number_symbols> symbols;
  };

  // False when that kind in that locale is not among them.
  bool find(logmsg_kind kind, const icu::Locale& locale,
            std::shared_ptr<const logmsg_number_symbols>& symbols) const {
    const std::lock_guard<std::mutex> hold(lock_);
    const auto found = std::find_if(rows_.begin(), rows_.end(), [&](const row& known) {
      return known.kind == kind && known.locale == locale;
    });
    if (found == rows_.end()) return false;
    symbols = found->symbols;
    return true;
  }

  void keep(row&& known) {
    const std::lock_guard<std::mutex> hold(lock_);
    if (rows_.size() < most)
      rows_.push_back(std::move(known));
    else
      std::swap(rows_[next_++ % most], known);
  }

 private:
  static constexpr size_t most = 64;

  mutable std::mutex lock_;  // a leaf
  std::vector<row> rows_;
  size_t next_ = 0;  // the row that was kept longest ago
};

static bool is_plain_number(logmsg_kind kind) {
  return kind == logmsg_kind::integer || kind == logmsg_kind::floating ||
         kind == logmsg_kind::percent;
}

std::shared_ptr<const logmsg_number_symbols> logmsg_number_symbols_of(logmsg_kind kind,
                                                                      const icu::Locale& locale) {
  if (!is_plain_number(kind)) return nullptr;
  return kp_log_no_bad_alloc([&] {
    static logmsg_known_symbols& all = *new logmsg_known_symbols;  // to the end of the process
    std::shared_ptr<const logmsg_number_symbols> symbols;
    if (all.find(kind, locale, symbols)) return symbols;
    const std::unique_ptr<icu::Format> format = logmsg_make_icu_format(kind, locale);
    const auto* numbers = dynamic_cast<const icu::NumberFormat*>(format.get());
    if (numbers != nullptr) symbols = logmsg_number_symbols::read(*numbers);
    logmsg_known_symbols::row known{kind, locale, symbols};
    if (!known.locale.isBogus()) all.keep(std::move(known));
    return symbols;
  });
}
