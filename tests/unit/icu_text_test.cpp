// Code pages: kept converters against fresh ones, over all that ICU has.
#include "logging/icu_text.h"

#include <gtest/gtest.h>
#include <unicode/ucnv.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

// --- The reference: a converter that is opened for each conversion -------------------------------

struct fresh_converter_closer {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using fresh_converter = std::unique_ptr<UConverter, fresh_converter_closer>;

static fresh_converter opened(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  fresh_converter converter(ucnv_open(name.c_str(), &status));
  EXPECT_TRUE(U_SUCCESS(status)) << name << ' ' << u_errorName(status);
  return converter;
}

static std::string encoded(const std::string& name, const std::u16string& text) {
  UErrorCode status = U_ZERO_ERROR;
  std::string bytes(text.size() * 16 + 64, '\0');
  const int size = ucnv_fromUChars(opened(name).get(), bytes.data(), static_cast<int>(bytes.size()),
                                   text.data(), static_cast<int>(text.size()), &status);
  EXPECT_TRUE(U_SUCCESS(status)) << name << ' ' << u_errorName(status);
  bytes.resize(static_cast<size_t>(size));
  return bytes;
}

static std::u16string decoded(const std::string& name, const std::string& bytes) {
  UErrorCode status = U_ZERO_ERROR;
  std::u16string text(bytes.size() * 8 + 64, u'\0');
  const int length = ucnv_toUChars(opened(name).get(), text.data(), static_cast<int>(text.size()),
                                   bytes.data(), static_cast<int>(bytes.size()), &status);
  EXPECT_TRUE(U_SUCCESS(status)) << name << ' ' << u_errorName(status);
  text.resize(static_cast<size_t>(length));
  return text;
}

// The first units of a text, a pair of surrogates whole or not at all.
static std::u16string first_units(const std::u16string& text, size_t units) {
  if (units >= text.size()) return text;
  const bool is_divided = units > 0 && U16_IS_LEAD(text[units - 1]) && U16_IS_TRAIL(text[units]);
  return text.substr(0, is_divided ? units - 1 : units);
}

// --- The library ---------------------------------------------------------------------------------

static icu::UnicodeString unicode(const std::u16string& text) {
  return {text.data(), static_cast<int>(text.size())};
}

static std::string kept_encoded(const std::string& name, const std::u16string& text) {
  std::string bytes;
  EXPECT_EQ(icu_text_encode(unicode(text), name.c_str(), bytes), icu_text_result::ok) << name;
  return bytes;
}

static std::u16string kept_decoded(const std::string& name, const std::string& bytes) {
  icu::UnicodeString text;
  EXPECT_EQ(icu_text_decode(bytes.c_str(), name.c_str(), text), icu_text_result::ok) << name;
  return {text.getBuffer(), static_cast<size_t>(text.length())};
}

static int kept_count(const std::string& name, const std::string& bytes, int most) {
  int units = -1;
  EXPECT_EQ(icu_text_count_units(bytes.c_str(), name.c_str(), most, units), icu_text_result::ok);
  return units;
}

static std::string kept_cut(const std::string& name, const std::string& bytes, int units) {
  std::string cut(bytes.size() * 16 + 64, '\0');
  int written = 0;
  EXPECT_EQ(icu_text_cut(bytes.c_str(), name.c_str(), units, cut.data(),
                         static_cast<int>(cut.size()), written),
            icu_text_result::ok)
      << name;
  cut.resize(static_cast<size_t>(written));
  return cut;
}

// --- Texts ---------------------------------------------------------------------------------------

class random_texts {
 public:
  explicit random_texts(unsigned seed) : random_(seed) {}

  size_t below(size_t limit) { return random_() % limit; }

  // Of one script or of all.
  std::u16string text() {
    std::u16string text;
    const size_t length = below(12);
    const size_t kind = below(5);
    for (size_t i = 0; i < length; ++i) append(text, kind < 4 ? kind : below(4));
    return text;
  }
  // Bytes that may stand for nothing; without NULs, which end a text.
  std::string bytes(std::string text) {
    if (below(3) == 0)
      for (size_t i = below(6); i > 0; --i)
        text.insert(below(text.size() + 1), 1, static_cast<char>(below(256)));
    std::erase(text, '\0');
    return text;
  }

 private:
  void append(std::u16string& text, size_t kind) {
    static constexpr char32_t first[] = {0x20, 0xA0, 0x2E80, 0x1};
    static constexpr char32_t count[] = {0x5F, 0x560, 0x7000, 0x10FFFE};
    const auto scalar = static_cast<char32_t>(first[kind] + below(count[kind]));
    if (U_IS_SURROGATE(scalar)) return;
    if (scalar > 0xFFFF) text += static_cast<char16_t>(U16_LEAD(scalar));
    text += static_cast<char16_t>(scalar > 0xFFFF ? U16_TRAIL(scalar) : scalar);
  }

  std::mt19937 random_;
};

static std::vector<std::string> all_code_pages() {
  std::vector<std::string> names;
  for (int i = 0; i < ucnv_countAvailable(); ++i) names.emplace_back(ucnv_getAvailableName(i));
  return names;
}

// Every conversion twice, among other conversions of the same code page.
static void expect_equal_to_fresh(const std::string& name, random_texts& random) {
  for (int i = 0; i < 10; ++i) {
    const std::u16string text = random.text();
    const std::string bytes = encoded(name, text);
    const std::string some_bytes = random.bytes(bytes);
    const std::u16string units = decoded(name, some_bytes);
    const size_t most = random.below(units.size() + 2);
    const std::string cut = encoded(name, first_units(units, most));
    for (int twice = 0; twice < 2; ++twice) {
      ASSERT_EQ(kept_encoded(name, text), bytes) << name;
      ASSERT_EQ(kept_decoded(name, some_bytes), units) << name;
      ASSERT_EQ(kept_count(name, some_bytes, static_cast<int>(most)),
                static_cast<int>(std::min(units.size(), most + 1)))
          << name;
      ASSERT_EQ(kept_cut(name, some_bytes, static_cast<int>(most)), cut) << name;
    }
  }
}

TEST(IcuText, InEveryCodePageEqualConversionsGiveEqualResults) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_texts random(seed);
  const std::vector<std::string> names = all_code_pages();
  ASSERT_GT(names.size(), 200U);
  for (const std::string& name : names) expect_equal_to_fresh(name, random);
}

TEST(IcuText, CompoundTextForgetsTheCharacterSetOfTheTextBefore) {
  const std::string name = "x11-compound-text";
  const std::string greek = kept_encoded(name, u"\u03B1\u03B2");
  EXPECT_EQ(greek, "\x1B\x2D\x46\xE1\xE2");
  EXPECT_EQ(kept_encoded(name, u"\u03B1\u03B2"), greek);
  EXPECT_EQ(kept_encoded(name, u"\u00E4"), "\xE4");
  EXPECT_EQ(kept_decoded(name, greek), u"\u03B1\u03B2");
  EXPECT_EQ(kept_decoded(name, "\xE4"), u"\u00E4");
}

TEST(IcuText, ATextIsCountedToOneMoreThanTheMost) {
  for (const int most : {0, 1, 2, 3, 4}) {
    EXPECT_EQ(kept_count("UTF-8", "abc", most), std::min(3, most + 1));
    EXPECT_EQ(kept_count("UTF-8",
                         "a\xC3\xA4"
                         "b",
                         most),
              std::min(3, most + 1));
    EXPECT_EQ(kept_count("ISO-2022-JP", "a\x1B$B4A\x1B(Bb", most), std::min(3, most + 1));
  }
}

// ICU tells too small a size of some texts in these.
TEST(IcuText, IsWrittenWholeWhereIcuTellsTooSmallASize) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (const std::string name : {"LMBCS-1", "LMBCS-11", "x11-compound-text"}) {
    for (int i = 0; i < 300; ++i) {
      std::u16string text(1 + random() % 120, u'\0');
      for (char16_t& unit : text) unit = static_cast<char16_t>(0x20 + random() % 0x3000);
      ASSERT_EQ(kept_encoded(name, text), encoded(name, text)) << name;
    }
  }
}
