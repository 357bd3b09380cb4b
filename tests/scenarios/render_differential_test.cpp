// The ICU renderer against its plain form, over random templates, values, locales and code pages.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "kp_LOG_errors.h"
#include "tests/support/icu_setting.h"
#include "tests/support/message_entry.h"
#include "tests/support/plain_message.h"

static const char* const locales[] = {"en_US",
                                      "de_DE",
                                      "ja_JP",
                                      "ar_EG",
                                      "hi_IN",
                                      "de_CH",
                                      "fr_FR",
                                      "en_US@numbers=roman",
                                      "es_ES",
                                      "pl_PL",
                                      "bn_BD",
                                      "fa_IR@calendar=persian",
                                      "th_TH@calendar=buddhist;numbers=thai",
                                      "en_IN",
                                      "zh_TW@numbers=hans",
                                      "sv_SE",
                                      "en_US_POSIX",
                                      "gsw",
                                      "ne_NP",
                                      "ff_Adlm_GN"};

class random_message {
 public:
  explicit random_message(unsigned seed) : random_(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  double real() {
    switch (below(6)) {
      case 0:
        return static_cast<double>(static_cast<int>(below(2000001)) - 1000000) / 1000.0;
      case 1:
        return static_cast<double>(static_cast<int>(below(2000001)) - 1000000) / 2000.0;
      case 2:
        return static_cast<double>(static_cast<int64_t>(random_())) / 1e9;
      case 3:
        return std::ldexp(static_cast<double>(static_cast<int64_t>(random_())),
                          static_cast<int>(below(120)) - 100);
      case 4:
        return bits();
      default:
        return edges[below(std::size(edges))];
    }
  }

  int integer() {
    static const int ends[] = {0, 1, -1, 9, 10, 999, 1000, INT32_MAX, INT32_MIN};
    return below(2) == 0 ? ends[below(std::size(ends))] : static_cast<int>(random_());
  }

  std::string placeholder() {
    static const char* const all[] = {"%s%TEXT%",  "%s%MBTEXT%", "%d%U2%",   "%d%S4%",
                                      "%u%U4%",    "%d%BOOL%",   "%f%REAL%", "%C%REAL%",
                                      "%C%S4%",    "%P%REAL%",   "%P%S4%",   "%D%STAMP%",
                                      "%T%STAMP%", "%x%S4%",     "%D%DATE%", "%T%TIMESTAMP%"};
    return all[below(std::size(all))];
  }

  std::string literal() {
    static const char* const all[] = {" ",
                                      "text",
                                      "Größe: ",
                                      "日本",
                                      "'",
                                      "''",
                                      "'{'",
                                      "{",
                                      "}",
                                      "{0}",
                                      "{1,number,00.0}",
                                      "'{0}'",
                                      "{0,choice,0#none|1#one|1<many {1}}",
                                      "don't ",
                                      "#",
                                      "|",
                                      "{9}",
                                      "{10}",
                                      "{2,date,short}",
                                      "{name}",
                                      "It''s ",
                                      ", ",
                                      " %% ",
                                      "{0,plural,one{# file}other{# files}}",
                                      "{ 3 }"};
    return all[below(below(3) == 0 ? static_cast<unsigned>(std::size(all)) : 4)];
  }

  std::string whole() {
    std::string text;
    const unsigned pieces = 1 + below(7);
    for (unsigned i = 0; i < pieces; ++i) text += literal() + placeholder();
    return text + (below(2) == 0 ? literal() : "");
  }

  void fill(_kp_LOG_log_entry_imp& entry) {
    static const char* const texts[] = {"", "alice", "O'Brien {0}",
                                        "a somewhat longer text, 39 bytes"};
    static const char* const mbtexts[] = {"", "bob", "Größe", "東京 \xF0\x9F\x8C\x8D"};
    entry.add_attrib_str("TEXT", texts[below(4)], true);
    entry.add_attrib_mbstr("MBTEXT", mbtexts[below(4)], true);
    entry.add_attrib_2u("U2", static_cast<unsigned short>(random_()));
    entry.add_attrib_4("S4", integer());
    entry.add_attrib_4u("U4", static_cast<unsigned>(integer()));
    entry.add_attrib_float8("REAL", real());
    entry.add_attrib_time("STAMP", time());
    entry.add_attrib_time("DATE", time());
  }

 private:
  kp_Time time() {
    return {static_cast<int>(1950 + below(150)), static_cast<int>(1 + below(12)),
            static_cast<int>(1 + below(28)),     static_cast<int>(below(24)),
            static_cast<int>(below(60)),         static_cast<int>(below(60))};
  }

  double bits() {
    const uint64_t random = random_();
    double value = 0;
    std::memcpy(&value, &random, sizeof value);
    return value;
  }

  static constexpr double edges[] = {0.0,    -0.0,     0.5,       1e15,   -1e15,    1e16,
                                     9.9995, 0.0005,   1.0005,    2.0015, 999.9995, 1e300,
                                     5e-324, HUGE_VAL, -HUGE_VAL, NAN};
  std::mt19937_64 random_;
};

static const char* const constructor_failed =
    "<KPX_logging_internal_error> _kp_LOG_log_message::get_message:  MessageFormat constructor "
    "failed! most caused by number of attribute in message txt more than 9. (now ICU only support "
    "0-9 tags)";
static const char* const format_failed =
    "<KPX_logging_internal_error> _kp_LOG_log_message::get_message:  MessageFormat::format() "
    "failed!";

// The text, or the text of the error.
static std::string rendered(const message_entry& entry) {
  try {
    return entry.unicode();
  } catch (const KPX_logging_internal_error& error) {
    return error.what();
  }
}

static std::string expected(message_entry& entry, const std::string& text) {
  std::string utf8;
  plain_message(*entry).render(icu::UnicodeString::fromUTF8(text)).toUTF8String(utf8);
  return utf8;
}

// "{10}" is refused here, and ICU alone would show it.
static bool agrees(const std::string& text, const std::string& shown, const std::string& plain) {
  if (shown == plain) return true;
  if (shown == constructor_failed) {
    return plain.starts_with("U_") || text.find("{10}") != std::string::npos;
  }
  return shown == format_failed && plain.starts_with("U_");
}

TEST(RenderDifferential, RandomMessagesInManyLocales) {
  message_entry entry;
  for (unsigned seed = 0; seed < 250; ++seed) {
    random_message message(seed);
    const std::string text = message.whole();
    entry.use_template(text);
    for (unsigned i = 0; i < 4; ++i) {
      const icu_locale_setting locale(locales[message.below(std::size(locales))]);
      message.fill(*entry);
      const std::string shown = rendered(entry);
      const std::string plain = expected(entry, text);
      ASSERT_TRUE(agrees(text, shown, plain))
          << text << "\nin " << icu::Locale::getDefault().getName() << "\nshown " << shown
          << "\nplain " << plain;
    }
  }
}

// Every kind of value on its own, many values in each locale.
TEST(RenderDifferential, RandomValuesOfEveryKind) {
  const std::string text = "%d%S4%|%f%REAL%|%C%REAL%|%P%REAL%|%C%U4%|%P%S4%";
  message_entry entry(text);
  random_message message(99);
  for (const char* name : locales) {
    const icu_locale_setting locale(name);
    for (int i = 0; i < 60; ++i) {
      message.fill(*entry);
      ASSERT_EQ(rendered(entry), expected(entry, text)) << name;
    }
  }
}

TEST(RenderDifferential, TimesFollowTheDefaultTimeZoneAtOnce) {
  const std::string text = "%D%STAMP% %T%STAMP%";
  message_entry entry(text);
  entry->add_attrib_time("STAMP", kp_Time(2026, 7, 15, 23, 30, 0));
  for (const char* zone : {"America/New_York", "Asia/Tokyo", "America/New_York", "UTC",
                           "Pacific/Kiritimati", "GMT+3", "Etc/Unknown"}) {
    const icu_zone_setting setting(zone);
    EXPECT_EQ(rendered(entry), expected(entry, text)) << zone;
  }
}

TEST(RenderDifferential, StringsInEveryCodePage) {
  const std::string text = "[%s%MBTEXT%] %s%TEXT%";
  for (const char* code_page :
       {"UTF-8", "ISO-8859-1", "Shift_JIS", "GB18030", "IBM-1047", "ISO-2022-JP", "windows-1252",
        "UTF-16BE", "no-such-code-page", ""}) {
    message_entry entry(text);
    kp_LOG_LogConfig::SetICUEnabled(
        false);  // the bytes below are no text in some of the code pages
    entry->add_attrib_str("TEXT", "plain \x80\xff\x81 bytes", true);
    entry->add_attrib_mbstr("MBTEXT", "\x93\xfa\x96{ Gr\xc3\xb6 \x1b$BF| \xff", true);
    kp_LOG_LogConfig::SetICUEnabled(true);
    const code_page_setting setting(code_page);
    EXPECT_EQ(rendered(entry), expected(entry, text)) << code_page;
  }
}
