#include <gmock/gmock.h>
#include <pthread.h>

#include <new>
#include <type_traits>

#include "base/kp_exception.h"
#include "tests/support/failing.h"
#include "tests/support/message_tokens.h"
#include "tests/support/raised.h"

using testing::ElementsAre;
using testing::IsEmpty;

static const std::string no_percent_sign = "text:" + std::string(37, '\0');

// --- Types of tokens ----------------------------------------------------------------------------

TEST(MessageTokens, TypeValuesAreFixed) {
  EXPECT_EQ(_KP_STRING_TOKEN, 0);
  EXPECT_EQ(_KP_FMT_SPECIFIER_TOKEN, 1);
  EXPECT_EQ(_KP_ARG_SPECIFIER_TOKEN, 2);
}

TEST(MessageTokens, EachClassSaysItsType) {
  EXPECT_EQ(_kp_LOG_string_token(u"a").get_type(), _KP_STRING_TOKEN);
  EXPECT_EQ(_kp_LOG_kpString_token("a").get_type(), _KP_STRING_TOKEN);
  EXPECT_EQ(_kp_LOG_fmt_spec_token('d').get_type(), _KP_FMT_SPECIFIER_TOKEN);
  EXPECT_EQ(_kp_LOG_arg_spec_token("A").get_type(), _KP_ARG_SPECIFIER_TOKEN);
}

TEST(MessageTokens, TokensAndListsCannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<_kp_LOG_fmt_spec_token>);
  EXPECT_FALSE(std::is_copy_assignable_v<_kp_LOG_fmt_spec_token>);
  EXPECT_FALSE(std::is_copy_constructible_v<_kp_LOG_msg_token_list>);
}

TEST(MessageTokens, AListGrowsAtItsTail) {
  _kp_LOG_msg_token_list list;
  EXPECT_EQ(list.head, nullptr);
  EXPECT_EQ(list.tail, nullptr);
  auto* first = new _kp_LOG_fmt_spec_token('d');
  auto* second = new _kp_LOG_arg_spec_token("A");
  list.add_to_tail(first);
  EXPECT_EQ(list.head, first);
  EXPECT_EQ(list.tail, first);
  list.add_to_tail(second);
  EXPECT_EQ(list.head, first);
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(list.tail, second);
}

class counted_token : public _kp_LOG_msg_token {
 public:
  explicit counted_token(int& alive) : _kp_LOG_msg_token(_KP_STRING_TOKEN), alive_(alive) {
    ++alive_;
  }
  ~counted_token() override { --alive_; }

 private:
  int& alive_;
};

TEST(MessageTokens, DeletingTheFirstOfAChainDeletesTheChain) {
  int alive = 0;
  auto* first = new counted_token(alive);
  first->next = new counted_token(alive);
  first->next->next = new counted_token(alive);
  EXPECT_EQ(alive, 3);
  delete first;
  EXPECT_EQ(alive, 0);
}

// Runs f on a thread with a stack of that size.
static void run_on_small_stack(size_t size, void (*f)()) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
  pthread_t thread;
  auto start = [](void* function) -> void* {
    reinterpret_cast<void (*)()>(function)();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, reinterpret_cast<void*>(f)), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST(MessageTokens, AChainOfAMillionTokensIsDeletedOnASmallStack) {
  run_on_small_stack(65536, [] {
    _kp_LOG_msg_token_list list;
    for (int i = 0; i < 1000000; ++i) list.add_to_tail(new _kp_LOG_fmt_spec_token('d'));
    EXPECT_EQ(_kp_LOG_log_message::_get_number_of_attributes(list), 1000000U);
  });
}

TEST(MessageTokens, AMillionEscapesAreSplitAndDeletedOnASmallStack) {
  run_on_small_stack(65536, [] {
    std::string text;
    for (int i = 0; i < 1000000; ++i) text += "%%";
    _kp_LOG_msg_token_list bytes;
    _kp_LOG_log_message::_tokenize_kpString(
        kp_String(text.data(), static_cast<unsigned>(text.size())), bytes);
    EXPECT_NE(bytes.head, bytes.tail);
  });
}

// --- Counting -----------------------------------------------------------------------------------

static unsigned placeholders_in(const char* text) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_kpString(text, list);
  return _kp_LOG_log_message::_get_number_of_attributes(list);
}

TEST(MessageTokens, PlaceholdersAreCountedByTheirFormatCharacters) {
  EXPECT_EQ(placeholders_in("%s%A% and %d%B%"), 2U);
  EXPECT_EQ(placeholders_in("no placeholder"), 0U);
  EXPECT_EQ(_kp_LOG_log_message::_get_number_of_attributes(_kp_LOG_msg_token_list()), 0U);
}

// --- The byte tokenizer -------------------------------------------------------------------------

TEST(ByteTokenizer, APlaceholderBetweenTexts) {
  EXPECT_THAT(byte_tokens("Port %d%PORT% open"),
              ElementsAre("text:Port ", "format:d", "name:PORT", "text: open"));
}

TEST(ByteTokenizer, TextWithoutPlaceholders) {
  EXPECT_THAT(byte_tokens("Started"), ElementsAre("text:Started"));
}

TEST(ByteTokenizer, AnEmptyTextAndATextWithoutABufferGiveNothing) {
  _kp_LOG_msg_token_list list;
  _kp_LOG_log_message::_tokenize_kpString(kp_String(), list);
  EXPECT_EQ(list.head, nullptr);
  EXPECT_THAT(byte_tokens(""), IsEmpty());
}

TEST(ByteTokenizer, AnEscapeDropsTheTextBeforeItAndLeaves37Nuls) {
  EXPECT_THAT(byte_tokens("100%% done"), ElementsAre(no_percent_sign, "text: done"));
}

TEST(ByteTokenizer, EscapesInARow) {
  EXPECT_THAT(byte_tokens("%%%%"), ElementsAre(no_percent_sign, no_percent_sign));
}

TEST(ByteTokenizer, ALonePercentSignAtTheEndOfTextIsRefused) {
  _kp_LOG_msg_token_list list;
  EXPECT_EQ(raised<KPX_index_out_of_bounds>(
                [&] { _kp_LOG_log_message::_tokenize_kpString("50%", list); }),
            "(null)");
  EXPECT_THAT(written_out(list), ElementsAre("text:50"));
}

TEST(ByteTokenizer, NothingButAPercentSignIsRefused) {
  EXPECT_EQ(raised<KPX_index_out_of_bounds>([] { byte_tokens("%"); }), "(null)");
}

TEST(ByteTokenizer, AFormatThatEndsInItsSecondPercentSignStopsAtOnce) {
  EXPECT_THAT(byte_tokens("%d%"), ElementsAre("format:d"));
  EXPECT_THAT(byte_tokens("abc%d%"), ElementsAre("text:abc", "format:d"));
}

TEST(ByteTokenizer, AFormatWithoutASecondPercentSignComesAgainAsText) {
  EXPECT_THAT(byte_tokens("%dPORT"), ElementsAre("format:d", "text:%dPORT"));
  EXPECT_THAT(byte_tokens("Port %d"), ElementsAre("text:Port ", "format:d", "text:Port %d"));
}

TEST(ByteTokenizer, ANameWithoutAClosingPercentSignIsText) {
  EXPECT_THAT(byte_tokens("a%d%PORT"), ElementsAre("text:a", "format:d", "text:PORT"));
}

TEST(ByteTokenizer, ANameThatEndsTheTemplate) {
  EXPECT_THAT(byte_tokens("a%d%PORT%"), ElementsAre("text:a", "format:d", "name:PORT"));
}

TEST(ByteTokenizer, CharactersBetweenFormatAndSecondPercentSignAreSkipped) {
  EXPECT_THAT(byte_tokens("%d 07,x%PORT%."), ElementsAre("format:d", "name:PORT", "text:."));
}

TEST(ByteTokenizer, APercentSignBehindTheFormatCharacterIsAnEscape) {
  // "%d%%" is a format, then an escape in the state behind the format character.
  EXPECT_THAT(byte_tokens("%d%%A%B%"), ElementsAre("format:d", no_percent_sign, "name:B"));
}

TEST(ByteTokenizer, AnEscapeInsideANameDropsWhatStandsBeforeIt) {
  EXPECT_THAT(byte_tokens("%s%NA%%ME%"), ElementsAre("format:s", no_percent_sign, "name:ME"));
}

TEST(ByteTokenizer, AnEscapeThatEndsTheTemplate) {
  EXPECT_THAT(byte_tokens("ab%%"), ElementsAre(no_percent_sign));
}

TEST(ByteTokenizer, AnyByteIsAFormatCharacter) {
  EXPECT_THAT(byte_tokens("%\xff%A%"), ElementsAre("format:\xff", "name:A"));
}

TEST(ByteTokenizer, PlaceholdersSideBySideMeetInAnEscape) {
  _kp_LOG_msg_token_list list;
  EXPECT_EQ(raised<KPX_index_out_of_bounds>(
                [&] { _kp_LOG_log_message::_tokenize_kpString("%s%A%%d%B%", list); }),
            "(null)");
  EXPECT_THAT(written_out(list), ElementsAre("format:s", no_percent_sign, "name:d", "text:B"));
}

TEST(ByteTokenizer, BytesBehindANulAreReadAsWell) {
  EXPECT_THAT(byte_tokens(std::string("a\0%d%B%", 7)),
              ElementsAre(std::string("text:a\0", 7), "format:d", "name:B"));
}

// --- The Unicode tokenizer ----------------------------------------------------------------------

TEST(UnicodeTokenizer, TextBehindTheLastPlaceholderIsDropped) {
  EXPECT_THAT(unicode_tokens("Port %d%PORT% open"),
              ElementsAre("text:Port ", "format:d", "name:PORT"));
}

TEST(UnicodeTokenizer, TextWithoutAPercentSignGivesNothing) {
  EXPECT_THAT(unicode_tokens("Started"), IsEmpty());
  EXPECT_THAT(unicode_tokens(""), IsEmpty());
}

TEST(UnicodeTokenizer, AnEscapeLeavesThePercentSignOnly) {
  EXPECT_THAT(unicode_tokens("100%% done"), ElementsAre("text:%"));
}

TEST(UnicodeTokenizer, ALonePercentSignAtTheEndOfText) {
  EXPECT_THAT(unicode_tokens("50%"), ElementsAre("text:50", "format:\xff", "text:50%"));
}

TEST(UnicodeTokenizer, AFormatWithoutASecondPercentSign) {
  EXPECT_THAT(unicode_tokens("Port %d"), ElementsAre("text:Port ", "format:d", "text:Port %"));
}

TEST(UnicodeTokenizer, AFormatThatEndsInItsSecondPercentSign) {
  EXPECT_THAT(unicode_tokens("%d%"), ElementsAre("format:d"));
}

TEST(UnicodeTokenizer, ANameWithoutAClosingPercentSignIsDropped) {
  EXPECT_THAT(unicode_tokens("a%d%PORT"), ElementsAre("text:a", "format:d"));
}

TEST(UnicodeTokenizer, AnEmptyNameIsPassedOver) {
  // The two percent signs of an empty name are an escape; what follows is the name.
  EXPECT_THAT(unicode_tokens("%d%%%"), ElementsAre("format:d", "text:%"));
}

TEST(UnicodeTokenizer, PlaceholdersBetweenTexts) {
  EXPECT_THAT(unicode_tokens("%s%A% and %d%B%"),
              ElementsAre("format:s", "name:A", "text: and ", "format:d", "name:B"));
}

TEST(UnicodeTokenizer, TheFormatCharacterIsTheLowByteOfItsUnit) {
  EXPECT_THAT(unicode_tokens("%\u0464%A%"), ElementsAre("format:d", "name:A"));
}

TEST(UnicodeTokenizer, NamesAreUtf8) {
  EXPECT_THAT(unicode_tokens("%d%Größe%"), ElementsAre("format:d", "name:Größe"));
}

static std::string refused_name(const std::string& utf8) {
  return raised<KPX_logging_internal_error>([&] { unicode_tokens("%d%" + utf8 + "%"); });
}

TEST(UnicodeTokenizer, ANameOfTwoThreeByteCharactersFillsItsRoomExactly) {
  EXPECT_THAT(unicode_tokens("%d%名%"), ElementsAre("format:d", "name:名"));
  EXPECT_THAT(unicode_tokens("%d%名前%"), ElementsAre("format:d", "name:名前"));
}

TEST(UnicodeTokenizer, ANameOfThreeThreeByteCharactersIsRefused) {
  EXPECT_EQ(refused_name("名前名"),
            "<KPX_logging_internal_error>_kp_LOG_log_message::_tokenize_string:  "
            "UnicodeConverter::fromUnicodeString() failed!");
}

TEST(UnicodeTokenizer, ANameThatMixesWidthsFitsInTwoBytesPerUnit) {
  EXPECT_THAT(unicode_tokens("%d%NAME名前%"), ElementsAre("format:d", "name:NAME名前"));
}

TEST(UnicodeTokenizer, ALoneSurrogateInANameBecomesTheReplacementCharacter) {
  _kp_LOG_msg_token_list list;
  const char16_t text[] = {u'%', u'd', u'%', 0xD800, u'%'};
  _kp_LOG_log_message::_tokenize_string(icu::UnicodeString(text, 5), list);
  EXPECT_THAT(written_out(list), ElementsAre("format:d", "name:\xEF\xBF\xBD"));
}

// --- Both ---------------------------------------------------------------------------------------

template <class Text>
static std::string reported_for_second_use(void (*tokenize)(const Text&, _kp_LOG_msg_token_list&),
                                           _kp_LOG_msg_token_list& list) {
  tokenize(Text("%d%A%"), list);
  testing::internal::CaptureStderr();
  tokenize(Text("%s%B%"), list);
  return testing::internal::GetCapturedStderr();
}

TEST(MessageTokens, ASecondUseOfAListIsReportedAndStartsAnew) {
  _kp_LOG_msg_token_list bytes;
  EXPECT_THAT(reported_for_second_use<kp_String>(_kp_LOG_log_message::_tokenize_kpString, bytes),
              testing::HasSubstr("list.head == nullptr"));
  EXPECT_THAT(written_out(bytes), ElementsAre("format:s", "name:B"));
  _kp_LOG_msg_token_list units;
  EXPECT_THAT(
      reported_for_second_use<icu::UnicodeString>(_kp_LOG_log_message::_tokenize_string, units),
      testing::HasSubstr("list.head == nullptr"));
  EXPECT_THAT(written_out(units), ElementsAre("format:s", "name:B"));
}

TEST(MessageTokens, StormsOfPercentSignsAreSplitInLinearSpace) {
  for (unsigned length = 1; length <= 64; ++length) {
    const std::string storm(length, '%');
    EXPECT_LE(unicode_tokens(storm).size(), length + 1);
    if (length % 2 == 0) {
      EXPECT_LE(byte_tokens(storm).size(), length);
    } else {
      EXPECT_EQ(raised<KPX_index_out_of_bounds>([&] { byte_tokens(storm); }), "(null)");
    }
  }
}

static std::string refused_without_memory() {
  const failing_icu no_memory(1, from_then_on);
  return raised<KPX_logging_internal_error>([] { unicode_tokens(""); });
}

TEST(UnicodeTokenizer, AConverterThatCouldNotBeMadeStays) {
  EXPECT_EQ(refused_without_memory(),
            "<KPX_logging_internal_error> _kp_LOG_log_message::_tokenize_string:  "
            "UnicodeConverter constructor failed!");
  EXPECT_THAT(unicode_tokens("%d% no name"), ElementsAre("format:d"));
  EXPECT_EQ(refused_name("NAME"),
            "<KPX_logging_internal_error>_kp_LOG_log_message::_tokenize_string:  "
            "UnicodeConverter::fromUnicodeString() failed!");
}
