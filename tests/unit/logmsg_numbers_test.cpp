// Numbers written without ICU, beside what ICU's message format shows for the same.
#include "logging/logmsg_numbers.h"

#include <gtest/gtest.h>
#include <unicode/decimfmt.h>
#include <unicode/msgfmt.h>

#include <cfenv>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "logging/icu_text.h"
#include "logging/logmsg_icu_pattern.h"

static constexpr logmsg_kind number_kinds[] = {logmsg_kind::integer, logmsg_kind::floating,
                                               logmsg_kind::percent};

// What a message pattern that is nothing but the number shows.
class shown_by_icu {
 public:
  shown_by_icu(logmsg_kind kind, const icu::Locale& locale)
      : format_(icu::UnicodeString(logmsg_pattern_of(kind)), locale, status_) {}

  icu::UnicodeString operator()(const icu::Formattable& value) {
    icu::UnicodeString text;
    icu::FieldPosition field(icu::FieldPosition::DONT_CARE);
    format_.format(&value, 1, text, field, status_);
    EXPECT_TRUE(U_SUCCESS(status_)) << u_errorName(status_);
    return text;
  }

 private:
  UErrorCode status_ = U_ZERO_ERROR;
  icu::MessageFormat format_;
};

static std::string in_utf8(const icu::UnicodeString& text) {
  std::string utf8;
  return text.toUTF8String(utf8);
}

static std::string number_text(int value) {
  return std::to_string(value);
}

static std::string number_text(double value) {
  char text[64];
  static_cast<void>(std::snprintf(text, sizeof text, "%a (%.17g)", value, value));
  return text;
}

// One kind of number in one locale, written without ICU and compared with what ICU shows.
class compared_numbers {
 public:
  compared_numbers(logmsg_kind kind, const icu::Locale& locale)
      : kind_(kind),
        locale_(locale),
        icu_(kind, locale),
        symbols_(logmsg_number_symbols_of(kind, locale)) {
    if (!symbols_) return;
    units_ = logmsg_utf16_style(*symbols_);
    bytes_ = logmsg_utf8_style(*symbols_);
  }

  bool is_served() const { return units_ && bytes_; }

  // Whether the value is written without ICU.
  template <class Value>
  bool is_written(Value value) {
    char16_t units[logmsg_number_style<char16_t>::room];
    const char16_t* const end = units_->write(value, units);
    char bytes[logmsg_number_style<char>::room];
    const char* const end_of_bytes = bytes_->write(value, bytes);
    EXPECT_EQ(end == nullptr, end_of_bytes == nullptr);
    if (end == nullptr || end_of_bytes == nullptr) return false;
    const std::string expected = in_utf8(icu_(value));
    EXPECT_EQ(in_utf8(icu::UnicodeString(units, static_cast<int>(end - units))), expected)
        << whereabouts(value);
    EXPECT_EQ(std::string(bytes, static_cast<size_t>(end_of_bytes - bytes)), expected)
        << whereabouts(value);
    return true;
  }

 private:
  template <class Value>
  std::string whereabouts(Value value) const {
    return in_utf8(logmsg_pattern_of(kind_)) + " of " + number_text(value) + " in " +
           locale_.getName();
  }

  logmsg_kind kind_;
  icu::Locale locale_;
  shown_by_icu icu_;
  std::shared_ptr<const logmsg_number_symbols> symbols_;
  std::unique_ptr<const logmsg_number_style<char16_t>> units_;
  std::unique_ptr<const logmsg_number_style<char>> bytes_;
};

// --- Values ---

static constexpr double quiet_nan = std::numeric_limits<double>::quiet_NaN();

static std::vector<int> boundary_integers() {
  std::vector<int> values = {INT_MIN, INT_MIN + 1, INT_MAX, 0, 1234567890};
  for (const long long base : {2, 10})
    for (long long power = 1; power <= INT_MAX; power *= base)
      for (const long long value : {power - 1, power, power + 1}) {
        if (value > INT_MAX) continue;
        values.push_back(static_cast<int>(value));
        values.push_back(static_cast<int>(-value));
      }
  return values;
}

// Powers, ties and limits, each with its neighbours among the doubles, positive and negative.
static std::vector<double> boundary_doubles() {
  std::vector<double> middles = {0.0,    5e-324, DBL_MIN, DBL_MAX, 1e15,   1e21,  0.625,
                                 2.0015, 1.0005, 9.9995,  99.995,  0.1,    0.3,   1e11 - 0.0005,
                                 1e14,   1e12,   1e13,    0.0375,  0.0105, 0.125, 123456.7895};
  for (int exponent = -8; exponent < 23; ++exponent)
    for (const int more : {-1, 0, 1}) middles.push_back(std::pow(10.0, exponent) + more);
  for (int exponent = -24; exponent < 70; ++exponent) middles.push_back(std::ldexp(1.0, exponent));
  for (int i = 0; i < 40; ++i) middles.push_back(i * 0.001 + 0.0005);
  for (int i = 0; i < 20; ++i) middles.push_back(i * 0.01 + 0.005);
  std::vector<double> values = {quiet_nan, HUGE_VAL};
  for (const double middle : middles)
    for (const double value :
         {std::nextafter(middle, -HUGE_VAL), middle, std::nextafter(middle, HUGE_VAL)})
      values.push_back(value);
  for (size_t i = 0, n = values.size(); i < n; ++i) values.push_back(-values[i]);
  return values;
}

class random_numbers {
 public:
  explicit random_numbers(unsigned seed) : random_(seed) {}

  int integer() { return static_cast<int>(random_() >> (32 + below(32))) * sign(); }

  // Numbers that people write, ties and what is next to them, any bits.
  double real() {
    const double few_digits = static_cast<double>(random_() >> (11 + below(53)));
    const double decimal = few_digits / std::pow(10.0, below(12)) * sign();
    switch (below(5)) {
      case 0:
        return decimal;
      case 1:
        return (std::floor(decimal) + 0.5) / std::pow(10.0, below(5));
      case 2:
        return std::nextafter((std::floor(decimal) + 0.5) / std::pow(10.0, below(5)),
                              sign() * HUGE_VAL);
      case 3:
        return std::ldexp(few_digits, -static_cast<int>(below(80))) * sign();
      default:
        return bits();
    }
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  int sign() { return below(2) == 0 ? 1 : -1; }
  double bits() {
    const uint64_t random = random_();
    double value = 0;
    std::memcpy(&value, &random, sizeof value);
    return value;
  }

  std::mt19937_64 random_;
};

// --- Every locale ---

static constexpr int shards = 12;

// A part of ICU's locales, so that the parts can be tested at once.
class MessageNumbersOfLocales : public testing::TestWithParam<int> {};

TEST_P(MessageNumbersOfLocales, AreThoseOfIcu) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_numbers random(seed);
  const std::vector<int> integers = boundary_integers();
  const std::vector<double> doubles = boundary_doubles();
  int count = 0;
  const icu::Locale* const locales = icu::Locale::getAvailableLocales(count);
  unsigned asked = 0;
  unsigned served = 0;
  for (int i = GetParam(); i < count; i += shards) {
    for (const logmsg_kind kind : number_kinds) {
      compared_numbers numbers(kind, locales[i]);
      ++asked;
      if (!numbers.is_served()) continue;
      ++served;
      for (const int value : integers) EXPECT_TRUE(numbers.is_written(value));
      for (const double value : doubles) numbers.is_written(value);
      for (int j = 0; j < 50; ++j) {
        numbers.is_written(random.real());
        EXPECT_TRUE(numbers.is_written(random.integer()));
      }
      ASSERT_FALSE(HasFailure());
    }
  }
  EXPECT_GT(asked, 150U);
  EXPECT_EQ(served, asked);
}

INSTANTIATE_TEST_SUITE_P(Parts, MessageNumbersOfLocales, testing::Range(0, shards));

// What people write is written without ICU in the locales that most people use.
TEST(MessageNumbers, OfUsualSizeDoNotNeedIcu) {
  for (const char* name : {"en_US", "de_DE", "fr_FR", "ja_JP", "hi_IN", "ar_EG", "de_CH", "zh_CN",
                           "es_ES", "pt_BR", "ru_RU", "pl_PL", "sv_SE", "fa_IR", "bn_BD"}) {
    for (const logmsg_kind kind : number_kinds) {
      compared_numbers numbers(kind, name);
      ASSERT_TRUE(numbers.is_served()) << name;
      for (const double value : {0.0, -0.0, 0.625, 3.14159265358979, -1e-300, 9999999999.9995,
                                 1e11 / 3, 1e15, -9007199254740991.0, HUGE_VAL, -quiet_nan})
        EXPECT_TRUE(numbers.is_written(value)) << name << " " << value;
    }
  }
}

TEST(MessageNumbers, TooLargeToBeExactAreLeftToIcu) {
  compared_numbers numbers(logmsg_kind::floating, "en_US");
  for (const double value : {9007199254740992.0, 1e21, 1e300, -DBL_MAX, 1e14 + 0.5})
    EXPECT_FALSE(numbers.is_written(value)) << value;
}

TEST(MessageNumbers, ManyRandomOnesAreThoseOfIcu) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_numbers random(seed);
  for (const char* name : {"en_US", "hi_IN", "en_US_POSIX"}) {
    for (const logmsg_kind kind : {logmsg_kind::floating, logmsg_kind::percent}) {
      compared_numbers numbers(kind, name);
      int written = 0;
      for (int i = 0; i < 40000; ++i) written += numbers.is_written(random.real()) ? 1 : 0;
      EXPECT_GT(written, 20000);
      ASSERT_FALSE(HasFailure());
    }
  }
}

TEST(MessageNumbers, ALocaleMayAskForOtherDigits) {
  for (const char* name : {"en_US@numbers=hanidec", "en_US@numbers=thai", "ar_EG@numbers=latn",
                           "de_DE@numbers=adlm", "hi_IN@numbers=mathbold", "fr_FR@cf=account",
                           "zh_TW@numbers=native", "sw_KE@numbers=fullwide"}) {
    for (const logmsg_kind kind : number_kinds) {
      compared_numbers numbers(kind, name);
      ASSERT_TRUE(numbers.is_served()) << name;
      for (const int value : boundary_integers()) EXPECT_TRUE(numbers.is_written(value));
      for (const double value : boundary_doubles()) numbers.is_written(value);
    }
  }
}

// --- What is left to ICU ---

TEST(MessageNumbers, NumeralsThatAreNotDecimalAreLeftToIcu) {
  for (const char* name : {"en_US@numbers=roman", "zh_TW@numbers=hans", "he_IL@numbers=hebr"})
    EXPECT_EQ(logmsg_number_symbols_of(logmsg_kind::floating, name), nullptr) << name;
}

TEST(MessageNumbers, CurrenciesAndWhatIsNoNumberAreLeftToIcu) {
  for (const logmsg_kind kind : {logmsg_kind::currency, logmsg_kind::date, logmsg_kind::time,
                                 logmsg_kind::string, logmsg_kind::nothing})
    EXPECT_EQ(logmsg_number_symbols_of(kind, icu::Locale::getUS()), nullptr);
}

static icu::DecimalFormat with_pattern(const char* pattern) {
  UErrorCode status = U_ZERO_ERROR;
  icu::DecimalFormat format(pattern, icu::DecimalFormatSymbols(icu::Locale::getUS(), status),
                            status);
  EXPECT_TRUE(U_SUCCESS(status)) << pattern;
  return format;
}

TEST(MessageNumbers, OtherRulesThanTheUsualAreLeftToIcu) {
  EXPECT_NE(logmsg_number_symbols::read(with_pattern("#,##0.###")), nullptr);
  for (const char* pattern : {"0.###E0", "@@#", "00.###", "#,##0.0##", "*x#,##0.###", "#,##0.05",
                              "#,##0.###\u2030", "#,##0.#######"})
    EXPECT_EQ(logmsg_number_symbols::read(with_pattern(pattern)), nullptr) << pattern;
  icu::DecimalFormat rounding_up = with_pattern("#,##0.###");
  rounding_up.setRoundingMode(icu::DecimalFormat::kRoundUp);
  EXPECT_EQ(logmsg_number_symbols::read(rounding_up), nullptr);
  icu::DecimalFormat grouping_late = with_pattern("#,##0.###");
  grouping_late.setMinimumGroupingDigits(2);
  EXPECT_EQ(logmsg_number_symbols::read(grouping_late), nullptr);
  icu::DecimalFormat showing_plus = with_pattern("+#,##0.###;-#,##0.###");
  EXPECT_NE(logmsg_number_symbols::read(showing_plus), nullptr);
  showing_plus.setDecimalSeparatorAlwaysShown(true);
  EXPECT_EQ(logmsg_number_symbols::read(showing_plus), nullptr);
}

TEST(MessageNumbers, WithoutRoundingToNearestIcuIsAsked) {
  const auto symbols = logmsg_number_symbols_of(logmsg_kind::floating, icu::Locale::getUS());
  const auto style = logmsg_utf8_style(*symbols);
  char text[logmsg_number_style<char>::room];
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    const char* const end = style->write(0.5, text);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(end, nullptr);
  }
  EXPECT_NE(style->write(0.5, text), nullptr);
}

// --- Code pages ---

TEST(MessageNumbers, InACodePageAreWhatTheWholeTextIsInIt) {
  for (const char* code_page :
       {"UTF-8", "ISO-8859-1", "windows-1252", "Shift_JIS", "GB18030", "IBM-1047"}) {
    for (const char* name : {"en_US", "fr_FR", "ar_EG", "de_CH"}) {
      const auto symbols = logmsg_number_symbols_of(logmsg_kind::floating, name);
      const auto style = logmsg_number_style<char>::make(
          *symbols, [=](const icu::UnicodeString& symbol, std::string& bytes) {
            return icu_text_encode(symbol, code_page, bytes) == icu_text_result::ok;
          });
      ASSERT_NE(style, nullptr);
      shown_by_icu icu(logmsg_kind::floating, name);
      for (const double value : {0.0, -1234567.125, quiet_nan, -HUGE_VAL}) {
        char text[logmsg_number_style<char>::room];
        const char* const end = style->write(value, text);
        ASSERT_NE(end, nullptr);
        std::string expected;
        ASSERT_EQ(icu_text_encode(icu(value), code_page, expected), icu_text_result::ok);
        EXPECT_EQ(std::string(text, static_cast<size_t>(end - text)), expected)
            << code_page << " " << name;
      }
    }
  }
}

TEST(MessageNumbers, ThereIsNoStyleOfASymbolThatIsNotConverted) {
  const auto symbols = logmsg_number_symbols_of(logmsg_kind::floating, icu::Locale::getUS());
  const auto refusing = [](const icu::UnicodeString& symbol, std::string& bytes) {
    symbol.toUTF8String(bytes);
    return bytes != ",";
  };
  EXPECT_EQ(logmsg_number_style<char>::make(*symbols, refusing), nullptr);
  const auto too_long = [](const icu::UnicodeString& symbol, std::string& bytes) {
    symbol.toUTF8String(bytes);
    if (bytes == ".") bytes = "a decimal point.";
    return true;
  };
  EXPECT_EQ(logmsg_number_style<char>::make(*symbols, too_long), nullptr);
}

TEST(MessageNumbers, SymbolsAreReadOnceForAllThreads) {
  const auto first = logmsg_number_symbols_of(logmsg_kind::percent, icu::Locale::getFrance());
  std::thread([&] {
    EXPECT_EQ(logmsg_number_symbols_of(logmsg_kind::percent, icu::Locale::getFrance()), first);
  }).join();
}
