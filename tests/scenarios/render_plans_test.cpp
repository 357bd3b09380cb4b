// Plans that the process keeps: what they give is what ICU alone gives, whatever was rendered
// before and under whichever settings.
#include <gtest/gtest.h>
#include <malloc.h>
#include <unicode/ucnv.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kp_LOG.h"
#include "kp_LOG_RenderMessage.h"
#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "tests/support/catalog_folder.h"
#include "tests/support/icu_setting.h"
#include "tests/support/loaded_definitions.h"
#include "tests/support/message_entry.h"
#include "tests/support/plain_message.h"
#include "tests/support/raised.h"

// --- The direct road against ICU ----------------------------------------------------------------

// The text in the code page, converted as a whole by a converter of its own.
static std::string whole_in(const icu::UnicodeString& text, const char* code_page) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UConverter, decltype(&ucnv_close)> converter(
      ucnv_open(*code_page != '\0' ? code_page : nullptr, &status), &ucnv_close);
  EXPECT_TRUE(U_SUCCESS(status)) << code_page;
  std::string bytes(static_cast<size_t>(text.length()) * 8 + 64, '\0');
  const int size = ucnv_fromUChars(converter.get(), bytes.data(), static_cast<int>(bytes.size()),
                                   text.getBuffer(), text.length(), &status);
  EXPECT_TRUE(U_SUCCESS(status)) << code_page;
  bytes.resize(static_cast<size_t>(size));
  return bytes;
}

static std::string plainly_rendered(const _kp_LOG_log_entry_imp& entry, const std::string& text) {
  return whole_in(plain_message(entry).render(icu::UnicodeString::fromUTF8(text)),
                  kp_LOG_LogConfig::GetCodePage());
}

// Texts, templates and values of all kinds; what the bytes mean depends on the code page.
class random_event {
 public:
  explicit random_event(uint64_t seed) : random_(seed) {}

  size_t below(size_t limit) { return random_() % limit; }

  std::string template_text() {
    static const char* const literals[] = {
        " ",      "plain text ", "Größe: ", "日本 ",        "\U0001F30D",
        "don't ", "''",          "'{'",     "\u00AD\u200E", "\uFEFF"};
    static const char* const shown[] = {
        "%s%TEXT%", "%s%MBTEXT%", "%d%U1%",   "%d%S1%", "%d%U2%", "%d%S2%",   "%u%U4%",
        "%d%S4%",   "%f%REAL%",   "%P%REAL%", "%C%S4%", "%P%U2%", "%d%BOOL%", "%x%U4%"};
    std::string text;
    for (size_t i = 1 + below(6); i != 0; --i)
      text += std::string(literals[below(std::size(literals))]) + shown[below(std::size(shown))];
    return text;
  }

  void fill(_kp_LOG_log_entry_imp& entry) {
    // Bytes that are no text in the code page are let in.
    kp_LOG_LogConfig::SetICUEnabled(false);
    entry.add_attrib_str("TEXT", bytes().c_str(), true);
    entry.add_attrib_mbstr("MBTEXT", bytes().c_str(), true);
    kp_LOG_LogConfig::SetICUEnabled(true);
    entry.add_attrib_1u("U1", static_cast<unsigned char>(random_()));
    entry.add_attrib_1("S1", static_cast<char>(random_()));
    entry.add_attrib_2u("U2", static_cast<unsigned short>(random_()));
    entry.add_attrib_2("S2", static_cast<short>(random_()));
    entry.add_attrib_4u("U4", static_cast<unsigned>(random_()));
    entry.add_attrib_4("S4", static_cast<int>(random_()));
    entry.add_attrib_float8("REAL", static_cast<double>(static_cast<int>(random_())) / 1024.0);
  }

 private:
  std::string bytes() {
    static const char* const known[] = {"",
                                        "north",
                                        "a text of more than eight bytes",
                                        "Größe",
                                        "\xEF\xBB\xBFmarked",
                                        "\xF0\x9F\x8C\x8D\xED\xA0\x80",
                                        "\xE0\x80\x80 \xF4\x90\x80\x80 \xC3",
                                        "\x93\xfa\x96{",
                                        "\x1b$BF|\x1b(B",
                                        "~{VP~}"};
    if (below(3) != 0) return known[below(std::size(known))];
    std::string text;
    for (size_t i = below(20); i != 0; --i) text += static_cast<char>(1 + below(255));
    return text;
  }

  std::mt19937_64 random_;
};

static const char* const code_pages[] = {
    "UTF-8",      "utf8",         "ISO-8859-1", "US-ASCII",     "windows-1252", "IBM-1047",
    "Shift_JIS",  "GB18030",      "UTF-7",      "windows-1258", "KOI8-R",       "ISO-2022-JP",
    "HZ-GB-2312", "windows-1255", "SCSU",       "Big5-HKSCS",   "ibm-1390",     "CESU-8",
    "ISO-8859-7", "macintosh",    "UTF-16BE",   "EUC-JP",       "TIS-620",      ""};
static const char* const plan_locales[] = {"en_US", "de_CH", "ar_EG", "he_IL",      "hi_IN",
                                           "fa_IR", "sv_SE", "ja_JP", "ff_Adlm_GN", "my_MM"};

TEST(RenderPlans, GiveWhatIcuGivesForTheWhole) {
  const uint64_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_event random(seed);
  message_entry entry;
  for (int i = 0; i < 250; ++i) {
    const std::string text = random.template_text();
    entry.use_template(text);
    for (int j = 0; j < 4; ++j) {
      const code_page_setting code_page(code_pages[random.below(std::size(code_pages))]);
      const icu_locale_setting locale(plan_locales[random.below(std::size(plan_locales))]);
      random.fill(*entry);
      ASSERT_EQ(kp_LOG_RenderMessage(*entry), plainly_rendered(*entry, text))
          << text << " in " << kp_LOG_LogConfig::GetCodePage() << " and "
          << icu::Locale::getDefault().getName();
    }
  }
}

// Every character that a code page of single bytes has, one after the other and beside the others.
TEST(RenderPlans, KeepEveryByteThatComesBackAsItself) {
  const std::string text = "ä%s%MBTEXT%|%s%TEXT%";
  message_entry entry(text);
  for (const char* name : code_pages) {
    const code_page_setting code_page(name);
    for (unsigned first = 1; first < 256; first += 15) {
      std::string run;
      for (unsigned byte = first; byte < first + 15; ++byte) run += static_cast<char>(byte);
      kp_LOG_LogConfig::SetICUEnabled(false);
      entry->add_attrib_mbstr("MBTEXT", run.c_str(), false);
      entry->add_attrib_str("TEXT", run.substr(0, 1).c_str(), false);
      kp_LOG_LogConfig::SetICUEnabled(true);
      ASSERT_EQ(kp_LOG_RenderMessage(*entry), plainly_rendered(*entry, text)) << name << first;
    }
  }
}

// Halves of a surrogate pair that literal text and value put together.
TEST(RenderPlans, PutHalvesOfAPairTogetherAsIcuDoes) {
  catalog_folder folder;
  folder.add_source("root", "root{STRING_TABLE{M17{\"\\uD83C%s%MBTEXT%\"}}}");
  message_entry entry;
  kp_LOG_LogConfig::SetMessageCatalogPath(folder.path().c_str());
  entry->add_attrib_mbstr("MBTEXT", "x", true);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "\xEF\xBF\xBDx");
  kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
}

// --- The byte renderer --------------------------------------------------------------------------

TEST(RenderPlans, OfBytesShowRealsAsTheCLibraryDoes) {
  const uint64_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  message_entry entry("%f%REAL% ");
  std::vector<double> values = {
      0.0,   -0.0,   0.5,   5e-7,  1.5e-6,    2.5e-6, 1e12, 999999999999.9999995,
      -1e12, 5e-324, 1e-60, 1e308, 0.0000005, 1e-6,   NAN,  HUGE_VAL};
  for (int i = 0; i < 3000; ++i) {
    const int whole = static_cast<int>(random());
    values.push_back(std::ldexp(whole, -static_cast<int>(random() % 70)));
    values.push_back(whole / 1e6 + 5e-7);
  }
  for (const double value : values) {
    entry->add_attrib_float8("REAL", value);
    char expected[400];
    std::snprintf(expected, sizeof expected, "%f ", value);
    ASSERT_EQ(entry.bytes(), expected);
  }
}

// --- Settings that change between messages ------------------------------------------------------

TEST(RenderPlans, FollowEverySetting) {
  const uint64_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_event random(seed);
  catalog_folder one;
  catalog_folder two;
  one.add_locale("root", {{"M17", "one %f%REAL%"}});
  two.add_locale("root", {{"M17", "zwei %s%MBTEXT%"}});
  const std::string own = "own %d%S4% ä %s%MBTEXT%";
  message_entry entry(own);
  random.fill(*entry);
  for (int i = 0; i < 300; ++i) {
    const size_t catalog = random.below(3);
    const std::string paths[] = {"", one.path(), two.path()};
    const std::string texts[] = {own, "one %f%REAL%", "zwei %s%MBTEXT%"};
    kp_LOG_LogConfig::SetMessageCatalogPath(catalog != 0 ? paths[catalog].c_str() : nullptr);
    const code_page_setting code_page(code_pages[random.below(std::size(code_pages))]);
    const icu_locale_setting locale(plan_locales[random.below(std::size(plan_locales))]);
    ASSERT_EQ(kp_LOG_RenderMessage(*entry), plainly_rendered(*entry, texts[catalog])) << i;
    kp_LOG_LogConfig::SetICUEnabled(false);
    ASSERT_TRUE(entry.bytes().starts_with("own ")) << i;
    kp_LOG_LogConfig::SetICUEnabled(true);
  }
  kp_LOG_LogConfig::SetMessageCatalogPath(nullptr);
}

TEST(RenderPlans, FollowASettingOfAnotherThread) {
  message_entry entry("%f%REAL% ä%d%S4%");
  entry->add_attrib_float8("REAL", 0.5);
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "0.5 ä0");
  const icu_locale_setting locale("en_US");
  std::thread([] {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("de_DE"), status);
    kp_LOG_LogConfig::SetCodePage("ISO-8859-1");
  }).join();
  EXPECT_EQ(kp_LOG_RenderMessage(*entry),
            "0,5 \xE4"
            "0");
  kp_LOG_LogConfig::SetCodePage("UTF-8");
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "0,5 ä0");
}

// --- Texts that change --------------------------------------------------------------------------

static std::string shown_by(const _kp_LOG_log_entry_imp& entry,
                            const _kp_LOG_log_definition& definition, unsigned index) {
  std::string utf8;
  _kp_LOG_log_message::get_message(entry, &definition, index == 0, index).toUTF8String(utf8);
  const kp_String bytes =
      _kp_LOG_log_message::get_kpString_message(entry, &definition, index == 0, index);
  return utf8 + "|" + bytes.c_str();
}

TEST(RenderPlans, FollowTheTextsOfADefinition) {
  message_entry entry;
  _kp_LOG_log_definition definition;
  definition.add_attr_info("S4", TypeSInt4, false, nullptr);
  definition.set_default_msg_text("one %d%S4%");
  EXPECT_EQ(shown_by(*entry, definition, 0), "one 0|one 0");
  definition.set_default_msg_text("two %d%S4%");
  EXPECT_EQ(shown_by(*entry, definition, 0), "two 0|two 0");
  definition.add_selector_msg(1, 10, nullptr, "first %d%S4%");
  EXPECT_EQ(shown_by(*entry, definition, 1), "first 0|first 0");
  definition.clear_attr_info();
  definition.add_attr_info("S4", TypeSInt4, false, nullptr);
  definition.add_selector_msg(1, 10, nullptr, "second %d%S4%");
  EXPECT_EQ(shown_by(*entry, definition, 1), "second 0|second 0");
  definition.set_default_msg_text(static_cast<const char*>(nullptr));
  EXPECT_EQ(shown_by(*entry, definition, 0), "|");
}

// Where one definition stood, or a text, another one soon stands.
TEST(RenderPlans, AreNotThoseOfWhatStoodThereBefore) {
  message_entry entry;
  for (int i = 0; i < 300; ++i) {
    const std::string number = std::to_string(i % 7);
    entry.use_template("text number " + number + " of a length %d%S4%");
    ASSERT_EQ(kp_LOG_RenderMessage(*entry), "text number " + number + " of a length 0");
    kp_LOG_LogConfig::SetICUEnabled(false);
    ASSERT_EQ(kp_LOG_RenderMessage(*entry), "text number " + number + " of a length 0");
    kp_LOG_LogConfig::SetICUEnabled(true);
    if (i % 3 == 0) kp_LOG_LogConfig::ClearDefinitions();
  }
}

TEST(RenderPlans, FollowAnAuxFileThatIsMerged) {
  const temp_folder folder;
  message_entry entry("std %d%S4%");
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "std 0");
  const ldf_file aux{
      .entries = {{.id = 17, .flags = 0x1, .msg_id = "A", .msg_text = "aux %d%S4%"}}};
  kp_LOG_LogConfig::SetAuxDefinitionPath(folder.write("aux.ldf", aux.bytes()).c_str());
  EXPECT_EQ(kp_LOG_RenderMessage(*entry), "aux 0");
}

// An attribute that the definition lost, or has as another type.
TEST(RenderPlans, FollowTheAttributesOfADefinition) {
  message_entry entry;
  entry->add_attrib_4("S4", 5);
  _kp_LOG_log_definition definition;
  definition.set_default_msg_text("a %d%S4%");
  definition.add_attr_info("S4", TypeSInt4, false, nullptr);
  EXPECT_EQ(shown_by(*entry, definition, 0), "a 5|a 5");
  definition.add_attr_info("S4", TypeFloat, false, nullptr);
  const auto show_it = [&] { shown_by(*entry, definition, 0); };
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>(show_it),
            invalid_message + "invalid format specifier for attribute \"S4\"!");
  definition._find_attr_entry_by_name("S4")->set_name("S5");
  EXPECT_EQ(raised<KPX_logging_invalid_message_string>(show_it),
            invalid_message + "unable to find attribute value for \"S4\"!");
  definition.add_attr_info("S4", TypeSInt4, false, nullptr);
  EXPECT_EQ(shown_by(*entry, definition, 0), "a 5|a 5");
}

// --- More templates than are kept ---------------------------------------------------------------

static icu::UnicodeString template_number(int n) {
  return icu::UnicodeString::fromUTF8("number " + std::to_string(n) + " %d%S4%");
}

TEST(RenderPlans, OfMoreTemplatesThanAreKept) {
  message_entry entry;
  entry->add_attrib_4("S4", 7);
  for (int round = 0; round < 2; ++round) {
    for (int n = 0; n < 3000; ++n) {
      std::string utf8;
      _kp_LOG_log_message::_render_template(*entry, template_number(n)).toUTF8String(utf8);
      ASSERT_EQ(utf8, "number " + std::to_string(n) + " 7");
    }
  }
}

TEST(RenderPlans, OfTemplatesThatAreTooLongToBeKept) {
  message_entry entry;
  for (const char* end : {"one ", "two ", "one "}) {
    const std::string text = std::string(40000, 'x') + end;
    entry.use_template(text + "%d%S4%");
    ASSERT_EQ(kp_LOG_RenderMessage(*entry), text + "0");
    ASSERT_EQ(entry.bytes(), text + "0");
  }
}

TEST(RenderPlans, OfManyLongTemplatesTakeABoundedMemory) {
  message_entry entry;
  const icu::UnicodeString piece(std::string(8000, 'x').c_str());
  for (int n = 0; n < 400; ++n) {
    const icu::UnicodeString text = template_number(n) + piece + "%d%S4%";
    ASSERT_EQ(_kp_LOG_log_message::_render_template(*entry, text).length(),
              text.length() - 2 * 6 + 2);
  }
}

// --- Buffers ------------------------------------------------------------------------------------

// What the buffer operation does with `size` bytes; "!" behind it where it writes beyond them, but
// for the NUL.
static std::string into(const _kp_LOG_log_entry_imp& entry, long size) {
  std::string buffer(5000, '#');
  const std::string text = entry.get_readable_message(buffer.data(), size, false, 0);
  const size_t written = text.size() + 1;
  return text + (buffer.find_first_not_of('#', written) != std::string::npos ? "!" : "");
}

TEST(RenderPlans, FillABufferToItsLastByte) {
  for (const char* const text : {"ä %s%MBTEXT% %d%S4%", "{0} %s%MBTEXT% %d%S4%", "%s%MBTEXT%"}) {
    message_entry entry(text);
    for (const size_t length : {0U, 7U, 990U, 1001U, 2040U}) {
      entry->add_attrib_mbstr("MBTEXT", std::string(length, 'v').c_str(), true);
      const std::string message = kp_LOG_RenderMessage(*entry);
      const auto size = static_cast<long>(message.size());
      EXPECT_EQ(into(*entry, size), message);
      EXPECT_EQ(into(*entry, size + 1), message);
      for (const long too_small : {size - 1, size / 2, -1L}) {
        if (too_small == size) continue;
        EXPECT_EQ(raised<KPX_logging_internal_error>([&] { into(*entry, too_small); }),
                  not_converted);
      }
    }
  }
}

TEST(RenderPlans, OfAnEmptyMessageFillABufferOfNoBytes) {
  message_entry entry("no placeholder");
  EXPECT_EQ(into(*entry, 0), "");
  EXPECT_EQ(raised<KPX_logging_internal_error>(
                [&] { entry->get_readable_message(nullptr, 10, false, 0); }),
            not_converted);
}

TEST(RenderPlans, LeaveTheBufferWhereAMessageIsRefused) {
  message_entry entry("a literal text %d%S4% %d%NOBODY%");
  for (const bool icu : {true, false}) {
    kp_LOG_LogConfig::SetICUEnabled(icu);
    char buffer[64] = "untouched";
    EXPECT_THROW(entry->get_readable_message(buffer, 60, false, 0),
                 KPX_logging_invalid_message_string);
    EXPECT_STREQ(buffer, "untouched");
  }
  kp_LOG_LogConfig::SetICUEnabled(true);
}

// --- Threads ------------------------------------------------------------------------------------

#ifndef KP_SANITIZED

// With one arena for all threads, what is allocated.
static size_t allocated() {
  return mallinfo2().uordblks;
}

static void in_a_thread(const std::function<void()>& work) {
  std::thread(work).join();
}

static void render_all(const _kp_LOG_log_entry_imp& entry) {
  char buffer[256];
  entry.get_readable_message(buffer, 255, false, 0);
  kp_LOG_RenderMessage(entry);
  kp_LOG_LogConfig::SetICUEnabled(false);
  entry.get_readable_message(buffer, 255, false, 0);
  kp_LOG_LogConfig::SetICUEnabled(true);
}

TEST(RenderPlansOfThreads, AreSharedAndGivenBack) {
  mallopt(M_ARENA_MAX, 1);
  message_entry entry("ä %s%MBTEXT% %d%S4% %f%REAL% %P%REAL% %u%U4%");
  entry->add_attrib_mbstr("MBTEXT", "Größe", true);
  render_all(*entry);
  size_t taken = 0;
  const auto first_message = [&] {
    const size_t before = allocated();
    render_all(*entry);
    taken = allocated() - before;
  };
  in_a_thread(first_message);
  EXPECT_LE(taken, size_t{20} << 10);
  const size_t before = allocated();
  for (int i = 0; i < 20; ++i) in_a_thread(first_message);
  EXPECT_LE(allocated(), before + 1024);
}

#endif

// --- What no getter gives -----------------------------------------------------------------------

TEST(RenderPlans, ShowNoGuidThatAnEntryHolds) {
  const loaded_definitions definitions(
      {.entries = {{.id = 17, .msg_text = "%s%G%", .attributes = {{"G", TypeGUID}}}}});
  kp_LOG_LogEntry entry(17, 0);
  entry._get_imp()._add_attribute("G", new _kp_LOG_datatype<kp_String, TypeGUID>(kp_String("0a")));
  for (const bool icu : {true, false}) {
    kp_LOG_LogConfig::SetICUEnabled(icu);
    EXPECT_THROW(kp_LOG_RenderMessage(entry), KPX_logging_attribute_type_mismatch) << icu;
  }
  kp_LOG_LogConfig::SetICUEnabled(true);
}

// ICU says that it found no memory for the pattern of such a locale.
TEST(RenderPlans, OfADateThatIcuMakesNoFormatterForGoToThePattern) {
  const loaded_definitions definitions({.entries = {{.id = 17, .msg_text = "at %D%TIMESTAMP%"}}});
  const icu_locale_setting locale("en@numbers=abcd");
  const kp_LOG_LogEntry entry(17, 0);
  EXPECT_EQ(raised<KPX_memory_alloc>([&] { kp_LOG_RenderMessage(entry); }), "(null)");
}
