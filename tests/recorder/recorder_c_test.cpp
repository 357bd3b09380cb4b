// The recorder for C: options and records as JSON.
#include <gmock/gmock.h>

#include "kp_LOG_RecorderC.h"
#include "tests/recorder/recorder_fixture.h"
#include "tests/support/failing.h"

using testing::ElementsAre;
using testing::HasSubstr;

class RecorderC : public RecorderPlace {
 protected:
  std::string options_with(const std::string& more = "") const {
    return R"({"definitions":")" KPLOG_SHOP_DEFINITIONS R"(","locale":"en","text":")" +
           folder_.file("shop") + R"(","json":")" + folder_.file("shop.jsonl") + "\"" + more + "}";
  }
};

TEST_F(RecorderC, RecordsAndWrites) {
  kp_LOG_recorder* const log = kp_LOG_recorder_open(options_with().c_str());
  ASSERT_NE(log, nullptr) << kp_LOG_recorder_error();
  EXPECT_EQ(kp_LOG_recorder_record(
                log, R"({"event":"STEP","level":4,"attributes":{"NUMBER":1,"THREAD":2}})"),
            0);
  EXPECT_EQ(kp_LOG_recorder_record(
                log, R"({"event":1003,"time":"2020-02-29T01:02:03Z","attributes":{"NUMBER":2}})"),
            0);
  EXPECT_EQ(kp_LOG_recorder_flush(log, 20000), 1);
  char counts[300];
  const int length = kp_LOG_recorder_statistics(log, counts, sizeof counts);
  EXPECT_EQ(static_cast<size_t>(length), std::string(counts).size());
  EXPECT_THAT(counts,
              testing::StartsWith(R"({"recorded":2,"rejected":0,"lost":{"full":0,"name":0,)"));
  char cut[8];
  EXPECT_EQ(kp_LOG_recorder_statistics(log, cut, sizeof cut), length);
  EXPECT_STREQ(cut, R"({"recor)");
  EXPECT_EQ(kp_LOG_recorder_statistics(log, nullptr, 0), length);
  kp_LOG_recorder_close(log);
  ASSERT_EQ(stored().size(), 2u);
  EXPECT_EQ(stored()[0]["level"], 4);
  EXPECT_EQ(stored()[1]["time"], "2020-02-29T01:02:03Z");
  EXPECT_EQ(stored()[1]["attributes"].dump(), R"({"NUMBER":2})");
}

TEST_F(RecorderC, SaysWhatIsWrongWithARecord) {
  kp_LOG_recorder* const log = kp_LOG_recorder_open(options_with().c_str());
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(kp_LOG_recorder_record(log, R"({"event":"STEPS"})"), 3);
  EXPECT_STREQ(kp_LOG_recorder_error(), "no event \"STEPS\"; did you mean \"STEP\"?");
  EXPECT_EQ(kp_LOG_recorder_record(log, R"({"event":"STEP","attributes":{"COLOUR":1}})"), 3);
  EXPECT_EQ(kp_LOG_recorder_record(log, R"({"event":"STEP","attributes":{"NUMBER":-1}})"), 4);
  EXPECT_THAT(kp_LOG_recorder_error(), HasSubstr("\"NUMBER\" is a UInt4"));
  for (const char* record : {"", "{", "[]", "\xFF", static_cast<const char*>(nullptr)})
    EXPECT_EQ(kp_LOG_recorder_record(log, record), 4);
  kp_LOG_recorder_close(log);
}

TEST_F(RecorderC, SaysWhatIsWrongWithOptions) {
  const auto fault_of = [](const std::string& options) {
    EXPECT_EQ(kp_LOG_recorder_open(options.c_str()), nullptr);
    return std::string(kp_LOG_recorder_error());
  };
  EXPECT_EQ(fault_of("x"), "kp_LOG_recorder_open: the options are no JSON object");
  EXPECT_EQ(fault_of(options_with(R"(,"ring_sise":1)")),
            "kp_LOG_recorder_open: there is no option \"ring_sise\"; did you mean \"ring_size\"?");
  EXPECT_EQ(fault_of(options_with(R"(,"synced":1)")),
            "kp_LOG_recorder_open: the option synced is true or false");
  EXPECT_EQ(fault_of(options_with(R"(,"wait":-1)")),
            "kp_LOG_recorder_open: the option wait is a whole number from 0");
  EXPECT_EQ(fault_of(options_with(R"(,"when_full":"drop")")),
            "kp_LOG_recorder_open: the option when_full is wait or lose");
  EXPECT_EQ(fault_of(R"({"definitions":1})"),
            "kp_LOG_recorder_open: the option definitions is a text");
  EXPECT_EQ(fault_of("{}"), "kp_LOG_Recorder: the option definitions is missing");
  EXPECT_EQ(kp_LOG_recorder_open(nullptr), nullptr);
}

TEST_F(RecorderC, OpensNoneWithoutMemory) {
  const std::string options = options_with(R"(,"when_full":"drop")");
  const unsigned failures =
      for_each_failing_new([&] { EXPECT_EQ(kp_LOG_recorder_open(options.c_str()), nullptr); },
                           [](const std::exception_ptr& outcome) { EXPECT_EQ(outcome, nullptr); });
  EXPECT_GT(failures, 5u);
}

TEST_F(RecorderC, TakesNoRecorderForAClosedOne) {
  EXPECT_EQ(kp_LOG_recorder_record(nullptr, "{}"), 7);
  EXPECT_EQ(kp_LOG_recorder_flush(nullptr, 1), 0);
  EXPECT_EQ(kp_LOG_recorder_statistics(nullptr, nullptr, 0), -1);
  kp_LOG_recorder_close(nullptr);
}
