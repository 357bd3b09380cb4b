// How often a program is told of faults.
#include "recorder/fault_teller.h"

#include <gmock/gmock.h>

#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;
using kind = kp_LOG_RecorderFault;

TEST(FaultTeller, TellsOfEachKindOnceAMinute) {
  std::vector<std::string> told;
  const fault_teller::function on_fault = [&](kind of, const std::string& text) {
    told.push_back(std::to_string(static_cast<int>(of)) + " " + text);
  };
  fault_teller faults(on_fault);
  faults.begin();
  for (int turn = 0; turn < 3; ++turn) {
    faults.tell(kind::output, "full");
    faults.tell(kind::lost, "lost");
  }
  EXPECT_THAT(told, ElementsAre("1 full", "0 lost"));
}

TEST(FaultTeller, KeepsWhatComesBeforeTheThread) {
  std::vector<std::string> told;
  const fault_teller::function on_fault = [&](kind, const std::string& text) {
    told.push_back(text);
  };
  fault_teller faults(on_fault);
  faults.tell(kind::recovery, "one");
  faults.tell(kind::recovery, "two");
  EXPECT_THAT(told, IsEmpty());
  faults.begin();
  EXPECT_THAT(told, ElementsAre("one", "two"));
}

TEST(FaultTeller, DropsWhatTheProgramRaises) {
  const fault_teller::function on_fault = [](kind, const std::string&) {
    throw std::runtime_error("of the program");
  };
  fault_teller faults(on_fault);
  faults.begin();
  EXPECT_NO_THROW(faults.tell(kind::event, "one"));
  const fault_teller::function none;
  fault_teller silent(none);
  EXPECT_NO_THROW(silent.tell(kind::event, "one"));
}
