// The log writing of the example package_history, with messages that no history gives.
#include "history_text_logs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_folder.h"

constexpr history_day day{2026, 3, 2};
constexpr char first_log[] = "package_history.20260302.0001";

TEST(HistoryTextLogs, AMessageIsOneLineWhateverIsInIt) {
  const temp_folder folder;
  history_text_logs(folder.path(), 1000)
      .append(day, "a\nb\r\nc\x7F\td\x1B[0m" + std::string(1, '\0'));
  EXPECT_EQ(read_whole_file(folder.file(first_log)), "a b  c  d [0m \n");
}

TEST(HistoryTextLogs, AnEmptyMessageIsALineAndTextBeyondAsciiStaysAsItIs) {
  const temp_folder folder;
  history_text_logs logs(folder.path(), 1000);
  logs.append(day, "");
  logs.append(day, "茶 ä");
  EXPECT_EQ(read_whole_file(folder.file(first_log)), "\n茶 ä\n");
  EXPECT_EQ(read_text_logs(folder.path())[day].n_lines, 2U);
}

TEST(HistoryTextLogs, ALogMayFillTheWholeSizeAndNoByteMore) {
  const temp_folder folder;
  history_text_logs logs(folder.path(), 8);
  logs.append(day, "abc");
  logs.append(day, "def");
  logs.append(day, "");
  EXPECT_EQ(read_whole_file(folder.file(first_log)), "abc\ndef\n");
  EXPECT_EQ(read_text_logs(folder.path())[day].serials, (std::set<unsigned>{1, 2}));
}

TEST(HistoryTextLogs, TheLineAppendedLastCanBeTakenBackAndWritingGoesOn) {
  const temp_folder folder;
  history_text_logs logs(folder.path(), 1000);
  logs.append(day, "stays");
  logs.append(day, "goes");
  logs.take_back();
  EXPECT_EQ(read_whole_file(folder.file(first_log)), "stays\n");
  logs.append(day, "more");
  EXPECT_EQ(read_whole_file(folder.file(first_log)), "stays\nmore\n");
}

TEST(HistoryTextLogs, AnExistingLogThatIsTooBigAlreadyIsNotTouched) {
  const temp_folder folder;
  folder.write(first_log, "a long line\n");
  history_text_logs(folder.path(), 4).append(day, "b");
  EXPECT_EQ(read_whole_file(folder.file(first_log)), "a long line\n");
  EXPECT_EQ(read_whole_file(folder.file(text_log_name(day, 2))), "b\n");
}
