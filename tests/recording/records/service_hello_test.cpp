// Hellos of a service's clients, and what these are answered.
#include "recording/records/service_hello.h"

#include <gmock/gmock.h>

#include <new>
#include <stdexcept>

#include "tests/support/failing.h"

static const std::string longest_name(255, 'n');

static std::string fault_of_hello(const std::string& line) {
  try {
    read_hello(line);
    return "";
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(ServiceHello, IsAnObjectWithKplogAsItsFirstKey) {
  for (const char* line : {R"({"kplog":1,"client":"a"})", " \t{ \t\"kplog\"", R"({"kplog":[)"})
    EXPECT_TRUE(is_hello(line)) << line;
  for (const char* line : {"", "{", R"({"client":"a","kplog":1})", R"({"event":"kplog"})",
                           R"(["kplog"])", R"("kplog")", R"({"kplogs":1})"})
    EXPECT_FALSE(is_hello(line)) << line;
}

TEST(ServiceHello, IsReadAsItIsWritten) {
  for (const service_hello& hello :
       {service_hello{.client = "a\"b\\c\n\xC3\xA4"}, service_hello{.client = longest_name},
        service_hello{.client = "a", .first = 1},
        service_hello{.client = "a", .first = record_number_limit - 1},
        service_hello{.asks_status = true}}) {
    const service_hello read = read_hello(hello_line(hello));
    EXPECT_EQ(read.client, hello.client);
    EXPECT_EQ(read.first, hello.first);
    EXPECT_EQ(read.asks_status, hello.asks_status);
  }
}

TEST(ServiceHello, ThatIsWrongIsToldWhy) {
  const std::string form = "a hello is {\"kplog\":1,\"client\":\"NAME\"}, and may tell \"first\"";
  const std::string version = "this service speaks version 1: {\"kplog\":1,...}";
  const std::string name = "\"client\" is a text of 1 to 255 bytes, without a NUL";
  const std::string first = "\"first\" is a whole number from 1 to 4611686018427387903";
  EXPECT_EQ(fault_of_hello(R"({"kplog":1)"), form);
  EXPECT_EQ(fault_of_hello(R"({"kplog":1})"), form);
  EXPECT_EQ(fault_of_hello(R"({"kplog":1,"client":"a","last":1})"), form);
  EXPECT_EQ(fault_of_hello(R"({"kplog":1,"client":"a","client":"a"})"), form);
  EXPECT_EQ(fault_of_hello(R"({"kplog":1,"client":"a","status":true})"), form);
  EXPECT_EQ(fault_of_hello(R"({"kplog":1,"status":false})"), "\"status\" is true");
  for (const char* other : {"2", "0", "1.0", "\"1\"", "null"})
    EXPECT_EQ(fault_of_hello(std::string(R"({"kplog":)") + other + R"(,"client":"a"})"), version);
  for (const std::string& wrong : {std::string(R"("")"), std::string("7"), std::string("null"),
                                   std::string(R"("a\u0000b")"), '"' + longest_name + "n\""})
    EXPECT_EQ(fault_of_hello(R"({"kplog":1,"client":)" + wrong + "}"), name) << wrong;
  for (const char* wrong : {"0", "-1", "1.5", "\"1\"", "4611686018427387904"})
    EXPECT_EQ(fault_of_hello(std::string(R"({"kplog":1,"client":"a","first":)") + wrong + "}"),
              first)
        << wrong;
}

// What there is no memory to read is no fault of the client, nor of the service.
static void expect_bad_alloc(const std::exception_ptr& outcome) {
  ASSERT_NE(outcome, nullptr);
  EXPECT_THROW(std::rethrow_exception(outcome), std::bad_alloc);
}

TEST(ServiceHello, ThatThereIsNoMemoryToReadIsNotWrong) {
  const std::string line = R"({"kplog":1,"client":")" + longest_name + "\"}";
  EXPECT_GT(for_each_failing_new([&line] { read_hello(line); }, expect_bad_alloc), 2U);
}

TEST(ServiceAnswer, IsReadAsItIsWritten) {
  EXPECT_EQ(read_answer(acknowledgement_line(7))->acknowledged, 7U);
  const auto bad = read_answer(refusal_line(8, "record-value", "\"a\"\n"));
  EXPECT_EQ(bad->bad, 8U);
  EXPECT_EQ(bad->code, "record-value");
  EXPECT_EQ(bad->text, "\"a\"\n");
  EXPECT_EQ(read_answer(error_line("no"))->text, "no");
  for (const char* other : {"", "{}", "[]", "{\"ack\":-1}", "{\"ack\":", "{\"error\":1}"})
    EXPECT_FALSE(read_answer(other)) << other;
}

TEST(ServiceAnswer, ThatThereIsNoMemoryToReadIsNotUnknown) {
  const std::string line = refusal_line(8, "record-value", longest_name);
  EXPECT_GT(for_each_failing_new([&line] { EXPECT_TRUE(read_answer(line)); }, expect_bad_alloc),
            2U);
}
