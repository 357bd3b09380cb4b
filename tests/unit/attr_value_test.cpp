#include "logging/attr_value.h"

#include <gtest/gtest.h>
#include <unicode/unistr.h>
#include <unistd.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_slot.h"

static std::string itoa_text(auto value) {
  char buffer[16];
  memset(buffer, '?', sizeof buffer);
  my_itoa(buffer, value);
  EXPECT_EQ(buffer[strlen(buffer) + 1], '?') << "wrote behind the terminator";
  return buffer;
}

// What appending `value` to "x=" gives.
static std::string appended(const auto& value) {
  char buffer[512] = "x=";
  EXPECT_EQ(printf_out_attribute_value(buffer, value), buffer);
  return buffer;
}

// A stream to a new file, and what the file holds once the stream is closed.
class written_file {
 public:
  explicit written_file(const char* mode = "w+") : stream_(fopen(path().c_str(), mode)) {}
  ~written_file() {
    if (stream_ != nullptr) fclose(stream_);
  }
  written_file(const written_file&) = delete;
  written_file& operator=(const written_file&) = delete;

  std::string path() const { return folder_.file("values"); }
  FILE* stream() const { return stream_; }
  std::string close_and_read() {
    fclose(stream_);
    stream_ = nullptr;
    return read_whole_file(path());
  }

 private:
  temp_folder folder_;
  FILE* stream_;
};

// 2026-11-15 09:02:56 GMT, told in a zone eight hours ahead.
static kp_Time a_local_time() {
  kp_Time time(2026, 11, 15, 17, 2, 56);
  time.set_zone_bias(-480);
  time.set_daylight_flag(0);
  return time;
}

static const char* const a_local_time_text = "2026-11-15T09:02:56Z";

TEST(NumberText, UnsignedHasNoLeadingZeros) {
  EXPECT_EQ(itoa_text(0U), "0");
  EXPECT_EQ(itoa_text(7U), "7");
  EXPECT_EQ(itoa_text(10U), "10");
  EXPECT_EQ(itoa_text(4294967295U), "4294967295");
}

TEST(NumberText, SignedHasAMinusForNegativeValuesOnly) {
  EXPECT_EQ(itoa_text(0), "0");
  EXPECT_EQ(itoa_text(-1), "-1");
  EXPECT_EQ(itoa_text(-5), "-5");
  EXPECT_EQ(itoa_text(INT_MAX), "2147483647");
  EXPECT_EQ(itoa_text(INT_MIN), "-2147483648");
}

TEST(NumberText, AgreesWithPrintfOverEveryPowerOfTwo) {
  for (unsigned bit = 0; bit < 32; ++bit)
    for (const int offset : {-1, 0, 1}) {
      const unsigned value = (1U << bit) + static_cast<unsigned>(offset);
      EXPECT_EQ(itoa_text(value), std::to_string(value));
      EXPECT_EQ(itoa_text(static_cast<int>(value)), std::to_string(static_cast<int>(value)));
    }
}

TEST(BufferText, IsAppendedToWhatTheBufferHolds) {
  char buffer[32] = "x=";
  printf_out_attribute_value(buffer, -5);
  EXPECT_STREQ(buffer, "x=-5");
  printf_out_attribute_value(buffer, static_cast<unsigned char>(0));
  EXPECT_STREQ(buffer, "x=-50");
}

TEST(BufferText, OfIntegersIsDecimal) {
  EXPECT_EQ(appended(static_cast<unsigned char>(0)), "x=0");
  EXPECT_EQ(appended(static_cast<unsigned char>(255)), "x=255");
  EXPECT_EQ(appended(static_cast<char>(-128)), "x=-128");
  EXPECT_EQ(appended(static_cast<char>(127)), "x=127");
  EXPECT_EQ(appended('A'), "x=65");
  EXPECT_EQ(appended(static_cast<unsigned short>(65535)), "x=65535");
  EXPECT_EQ(appended(static_cast<short>(-32768)), "x=-32768");
  EXPECT_EQ(appended(4294967295U), "x=4294967295");
  EXPECT_EQ(appended(INT_MIN), "x=-2147483648");
}

TEST(BufferText, OfBoolIsOneDigit) {
  EXPECT_EQ(appended(true), "x=1");
  EXPECT_EQ(appended(false), "x=0");
}

TEST(BufferText, OfDoubleHasSixDecimals) {
  EXPECT_EQ(appended(2.5), "x=2.500000");
  EXPECT_EQ(appended(-0.0), "x=-0.000000");
  EXPECT_EQ(appended(1e-7), "x=0.000000");
  EXPECT_EQ(appended(HUGE_VAL), "x=inf");
  EXPECT_EQ(appended(-DBL_MAX).size(), 2 + 317U);
}

TEST(BufferText, OfTextsIsTheTextUpToItsFirstNul) {
  char changeable[] = "def";
  EXPECT_EQ(appended(static_cast<const char*>("abc")), "x=abc");
  EXPECT_EQ(appended(static_cast<char*>(changeable)), "x=def");
  EXPECT_EQ(appended(kp_String("ghi")), "x=ghi");
  EXPECT_EQ(appended(kp_String("g\0i", 3)), "x=g");
  EXPECT_EQ(appended(_kp_LOG_ustring("\xE6\x97\xA5")), "x=\xE6\x97\xA5");
}

TEST(BufferText, OfNoTextIsEmpty) {
  EXPECT_EQ(appended(static_cast<const char*>(nullptr)), "x=");
  EXPECT_EQ(appended(static_cast<char*>(nullptr)), "x=");
  EXPECT_EQ(appended(kp_String()), "x=");
  EXPECT_EQ(appended(_kp_LOG_ustring()), "x=");
}

TEST(BufferText, OfATimeIsItsGmtForm) {
  const kp_Time time = a_local_time();
  EXPECT_EQ(appended(time), std::string("x=") + a_local_time_text);
  EXPECT_FALSE(time.is_GMT_time_mode());
  EXPECT_EQ(time.get_hour(), 17);
}

TEST(BufferText, OfAUnicodeStringIsNothingOnPurpose) {
  EXPECT_EQ(appended(icu::UnicodeString("abc")), "x=");
}

TEST(FileText, OfEveryValueTypeIsWrittenAtOnce) {
  written_file file;
  char changeable[] = "b";
  FILE* const to = file.stream();
  EXPECT_EQ(printf_attribute_value(to, "a"), 1);
  EXPECT_EQ(printf_attribute_value(to, static_cast<char*>(changeable)), 1);
  EXPECT_EQ(printf_attribute_value(to, true), 1);
  EXPECT_EQ(printf_attribute_value(to, false), 1);
  EXPECT_EQ(printf_attribute_value(to, static_cast<unsigned char>(255)), 3);
  EXPECT_EQ(printf_attribute_value(to, static_cast<char>(-128)), 4);
  EXPECT_EQ(printf_attribute_value(to, static_cast<unsigned short>(65535)), 5);
  EXPECT_EQ(printf_attribute_value(to, static_cast<short>(-7)), 2);
  EXPECT_EQ(printf_attribute_value(to, 42U), 2);
  EXPECT_EQ(printf_attribute_value(to, -42), 3);
  EXPECT_EQ(printf_attribute_value(to, kp_String("str")), 3);
  EXPECT_EQ(printf_attribute_value(to, a_local_time()), 20);
  EXPECT_EQ(printf_attribute_value(to, icu::UnicodeString("nothing")), 0);
  EXPECT_EQ(printf_attribute_value(to, _kp_LOG_ustring("mb")), 2);
  EXPECT_EQ(read_whole_file(file.path()),
            std::string("ab10255-12865535-742-42str") + a_local_time_text + "mb");
}

TEST(FileText, OfAStringHasItsWholeLength) {
  written_file file;
  EXPECT_EQ(printf_attribute_value(file.stream(), kp_String("a\0b", 3)), 3);
  EXPECT_EQ(file.close_and_read(), std::string("a\0b", 3));
}

TEST(FileText, OfNoTextWritesNothing) {
  written_file file;
  EXPECT_EQ(printf_attribute_value(file.stream(), static_cast<const char*>(nullptr)), 0);
  EXPECT_EQ(printf_attribute_value(file.stream(), kp_String()), 0);
  EXPECT_EQ(printf_attribute_value(file.stream(), _kp_LOG_ustring()), 0);
  EXPECT_EQ(file.close_and_read(), "");
}

TEST(FileText, GoesToTheEndOfTheFile) {
  written_file file;
  fputs("0123456789", file.stream());
  rewind(file.stream());
  EXPECT_EQ(printf_attribute_value(file.stream(), 42), 2);
  EXPECT_EQ(file.close_and_read(), "012345678942");
}

TEST(FileText, ComesBehindWhatTheStreamHasBuffered) {
  written_file file;
  fputs("buffered ", file.stream());
  EXPECT_EQ(printf_attribute_value(file.stream(), "direct"), 6);
  EXPECT_EQ(read_whole_file(file.path()), "buffered direct");
}

TEST(FileText, OfDoubleGoesThroughTheStreamsBuffer) {
  written_file file;
  fputs("0123456789", file.stream());
  fflush(file.stream());
  rewind(file.stream());
  EXPECT_EQ(printf_attribute_value(file.stream(), 2.5), 8);
  EXPECT_EQ(read_whole_file(file.path()), "0123456789");
  EXPECT_EQ(file.close_and_read(), "2.50000089");
}

TEST(FileText, ForANullStreamIsMeasuredOnly) {
  EXPECT_EQ(printf_attribute_value(nullptr, "abc"), 3);
  EXPECT_EQ(printf_attribute_value(nullptr, static_cast<char*>(nullptr)), 0);
  EXPECT_EQ(printf_attribute_value(nullptr, static_cast<unsigned char>(255)), 3);
  EXPECT_EQ(printf_attribute_value(nullptr, static_cast<char>(-1)), 2);
  EXPECT_EQ(printf_attribute_value(nullptr, static_cast<unsigned short>(1000)), 4);
  EXPECT_EQ(printf_attribute_value(nullptr, static_cast<short>(-1000)), 5);
  EXPECT_EQ(printf_attribute_value(nullptr, 4294967295U), 10);
  EXPECT_EQ(printf_attribute_value(nullptr, INT_MIN), 11);
  EXPECT_EQ(printf_attribute_value(nullptr, a_local_time()), 20);
  EXPECT_EQ(printf_attribute_value(nullptr, _kp_LOG_ustring("abcd")), 4);
  EXPECT_EQ(printf_attribute_value(nullptr, icu::UnicodeString("abc")), 0);
}

TEST(FileText, ForANullStreamHasNoCountOfBoolAndDouble) {
  EXPECT_EQ(printf_attribute_value(nullptr, true), 0);
  EXPECT_EQ(printf_attribute_value(nullptr, 2.5), -1);
}

TEST(FileText, ForAStreamWithoutADescriptorFails) {
  char memory[64] = "";
  FILE* const stream = fmemopen(memory, sizeof memory, "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(printf_attribute_value(stream, 42), -1);
  EXPECT_EQ(printf_attribute_value(stream, true), -1);
  EXPECT_EQ(printf_attribute_value(stream, 2.5), 8);
  fclose(stream);
  EXPECT_STREQ(memory, "2.500000");
}

TEST(FileText, ForAPipeFailsInTheSeek) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  FILE* const stream = fdopen(ends[1], "w");
  EXPECT_EQ(printf_attribute_value(stream, "lost"), -1);
  EXPECT_EQ(printf_attribute_value(stream, kp_String("lost")), -1);
  fclose(stream);
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), 0) << "something was written";
  close(ends[0]);
}

TEST(FileText, ForAReadOnlyStreamFailsInTheWrite) {
  const temp_folder folder;
  FILE* const stream = fopen(folder.write("values", "kept").c_str(), "r");
  EXPECT_EQ(printf_attribute_value(stream, 42), -1);
  fclose(stream);
  EXPECT_EQ(read_whole_file(folder.file("values")), "kept");
}

#ifdef KP_FAULTS
TEST(FileText, ReturnsAShortWriteAsItIs) {
  written_file file;
  const failing short_write(kp_fault_call::write, 1, ENOSPC, 1, 2);
  EXPECT_EQ(printf_attribute_value(file.stream(), "abcdef"), 2);
  EXPECT_EQ(file.close_and_read(), "ab");
}

TEST(FileText, IsOneWriteAValue) {
  written_file file;
  const failing watch(kp_fault_call::write, 0, 0);
  printf_attribute_value(file.stream(), kp_String(std::string(9000, 'x').c_str()));
  printf_attribute_value(file.stream(), a_local_time());
  printf_attribute_value(file.stream(), 1);
  EXPECT_EQ(watch.calls_seen(), 3U);
}
#endif

// --- Typed values ---

template <class T>
static T value_of_a_test();
template <>
bool value_of_a_test() {
  return true;
}
template <>
unsigned char value_of_a_test() {
  return 200;
}
template <>
char value_of_a_test() {
  return -100;
}
template <>
unsigned short value_of_a_test() {
  return 60000;
}
template <>
short value_of_a_test() {
  return -30000;
}
template <>
unsigned value_of_a_test() {
  return 4000000000U;
}
template <>
int value_of_a_test() {
  return -2000000000;
}
template <>
double value_of_a_test() {
  return 2.5;
}
template <>
kp_String value_of_a_test() {
  return "a text of more than thirty-two bytes";
}
template <>
_kp_LOG_ustring value_of_a_test() {
  return _kp_LOG_ustring("\xE6\x97\xA5\xE6\x9C\xAC");
}
template <>
kp_Time value_of_a_test() {
  return a_local_time();
}

static std::string expected_text(int code) {
  static const std::map<int, std::string> numbers = {{TypeBool, "1"},
                                                     {TypeUInt1, "200"},
                                                     {TypeSInt1, "-100"},
                                                     {TypeUInt2, "60000"},
                                                     {TypeSInt2, "-30000"},
                                                     {TypeUInt4, "4000000000"},
                                                     {TypeSInt4, "-2000000000"},
                                                     {TypeFloat, "2.500000"}};
  if (numbers.count(code) == 1) return numbers.at(code);
  const auto type = static_cast<kp_AttributeType>(code);
  if (is_time_attribute(type)) return a_local_time_text;
  if (is_unicode_string_attribute(type)) return "\xE6\x97\xA5\xE6\x9C\xAC";
  return "a text of more than thirty-two bytes";
}

struct values_of_a_type {
  int code;
  std::unique_ptr<_kp_LOG_type_base> filled;
  std::unique_ptr<_kp_LOG_type_base> empty;
};

template <class T, unsigned char code>
static values_of_a_type values_of() {
  return {code, std::make_unique<_kp_LOG_datatype<T, code>>(value_of_a_test<T>()),
          std::make_unique<_kp_LOG_datatype<T, code>>()};
}

// One filled and one empty value of each of the 24 types.
static std::vector<values_of_a_type> values_of_every_type() {
  std::vector<values_of_a_type> all;
#define KP_LOG_TEST_VALUES(code, T) all.push_back(values_of<T, code>());
  KP_LOG_EACH_ATTRIBUTE_TYPE(KP_LOG_TEST_VALUES)
#undef KP_LOG_TEST_VALUES
  return all;
}

static std::string printed(const _kp_LOG_type_base& value) {
  char buffer[512] = "";
  EXPECT_EQ(value.print_out(buffer), buffer);
  return buffer;
}

TEST(TypedValue, ThereIsOneForEveryCode) {
  const auto all = values_of_every_type();
  ASSERT_EQ(all.size(), 24U);
  for (size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].code, static_cast<int>(i) + 1);
    EXPECT_EQ(all[i].filled->get_type(), all[i].code);
    EXPECT_EQ(all[i].empty->get_type(), all[i].code);
  }
}

TEST(TypedValue, PrintsItsTextToABuffer) {
  for (const auto& value : values_of_every_type())
    EXPECT_EQ(printed(*value.filled), expected_text(value.code)) << value.code;
}

TEST(TypedValue, PrintsItsTextToAFile) {
  for (const auto& value : values_of_every_type()) {
    written_file file;
    const std::string expected = expected_text(value.code);
    EXPECT_EQ(value.filled->print_type(file.stream()), static_cast<int>(expected.size()));
    EXPECT_EQ(file.close_and_read(), expected) << value.code;
  }
}

TEST(TypedValue, MadeWithoutAValueIsZero) {
  for (const auto& value : values_of_every_type()) {
    const auto type = static_cast<kp_AttributeType>(value.code);
    if (is_time_attribute(type)) continue;
    const char* expected = is_integer_attribute(type) ? "0"
                           : is_float_attribute(type) ? "0.000000"
                                                      : "";
    EXPECT_EQ(printed(*value.empty), expected) << value.code;
  }
}

TEST(TypedValue, TakesTheValueOfAnotherOfItsType) {
  for (const auto& value : values_of_every_type()) {
    value.empty->get_and_set(value.filled.get());
    EXPECT_EQ(printed(*value.empty), expected_text(value.code)) << value.code;
    EXPECT_EQ(printed(*value.filled), expected_text(value.code)) << value.code;
    EXPECT_EQ(value.empty->get_type(), value.code);
  }
}

TEST(TypedValue, TakesItsOwnValueWithoutHarm) {
  for (const auto& value : values_of_every_type()) {
    value.filled->get_and_set(value.filled.get());
    EXPECT_EQ(printed(*value.filled), expected_text(value.code)) << value.code;
  }
}

TEST(TypedValue, OfATextIsIndependentOfItsSource) {
  kp_String source("source");
  const _kp_LOG_datatype<kp_String, TypeGUID> value(source);
  source = "changed";
  EXPECT_STREQ(value.value.c_str(), "source");
}

TEST(TypedValue, WithoutMemoryForTheNewTextKeepsTheOldOne) {
  const std::string text(100, 'n');
  _kp_LOG_datatype<kp_String, TypeChar1K> fresh{kp_String(text.c_str())};
  _kp_LOG_datatype<kp_String, TypeChar1K> held{kp_String("held")};
  const auto check = [&](const std::exception_ptr& outcome) {
    expect_memory_alloc(outcome);
    EXPECT_EQ(printed(held), "held");
  };
  EXPECT_EQ(for_each_failing_new([&] { held.get_and_set(&fresh); }, check), 1U);
  EXPECT_EQ(printed(held), text);
}

TEST(TypedValue, PrintingNeedsNoMemory) {
  const auto all = values_of_every_type();
  written_file file;
  char buffer[512] = "";
  const failing_new fault(1, from_then_on);
  for (const auto& value : all) {
    buffer[0] = '\0';
    value.filled->print_out(buffer);
    value.filled->print_type(file.stream());
  }
  EXPECT_FALSE(fault.met());
}

#ifdef __x86_64__
// The destructor takes the first two slots.
TEST(TypedValue, HasItsOperationsInTheSlotsThatCallersAreBuiltAgainst) {
  EXPECT_TRUE(std::has_virtual_destructor_v<_kp_LOG_type_base>);
  EXPECT_EQ(virtual_slot(&_kp_LOG_type_base::print_type), 2U);
  EXPECT_EQ(virtual_slot(&_kp_LOG_type_base::print_out), 3U);
  EXPECT_EQ(virtual_slot(&_kp_LOG_type_base::get_and_set), 4U);
}
#endif
