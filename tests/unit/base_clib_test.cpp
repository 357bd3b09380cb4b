#include "base/kp_clib.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/failing.h"
#include "tests/support/temp_folder.h"

// ---- a stream whose calls to the system are scripted ----

// One call to the system after the other: the bytes it transfers, or the error it fails with.
struct scripted_call {
  std::string bytes;
  int error = 0;
};

struct scripted_stream {
  std::vector<scripted_call> calls;
  std::string written;
  size_t next = 0;
};

static ssize_t scripted_read(void* cookie, char* buffer, size_t size) {
  auto& script = *static_cast<scripted_stream*>(cookie);
  if (script.next == script.calls.size()) return 0;
  const scripted_call& call = script.calls[script.next++];
  errno = call.error;
  if (call.error != 0) return -1;
  const size_t length = std::min(size, call.bytes.size());
  std::copy_n(call.bytes.data(), length, buffer);
  return static_cast<ssize_t>(length);
}

static ssize_t scripted_write(void* cookie, const char* buffer, size_t size) {
  auto& script = *static_cast<scripted_stream*>(cookie);
  const bool scripted = script.next < script.calls.size();
  const int error = scripted ? script.calls[script.next++].error : 0;
  errno = error;
  if (error != 0) return 0;
  script.written.append(buffer, size);
  return static_cast<ssize_t>(size);
}

static kp_file open_script(scripted_stream& script, const char* mode) {
  return kp_file(fopencookie(&script, mode, {scripted_read, scripted_write, nullptr, nullptr}));
}

// ---- reading ----

TEST(FileReading, ReadsOnAfterASignalAtTheRightPlace) {
  scripted_stream script{{{"abc"}, {"", EINTR}, {"defg"}, {"", EINTR}, {"", EINTR}, {"h"}}, "", 0};
  const kp_file file = open_script(script, "r");
  char buffer[8];
  EXPECT_EQ(KP_fread(buffer, 4, 2, file.get()), 2U);
  EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
  EXPECT_EQ(KP_ferror(file.get()), 0);
}

TEST(FileReading, AnyOtherErrorIsFinal) {
  scripted_stream script{{{"abc"}, {"", EIO}, {"defg"}}, "", 0};
  const kp_file file = open_script(script, "r");
  char buffer[8];
  EXPECT_EQ(KP_fread(buffer, 1, 8, file.get()), 3U);
  EXPECT_EQ(errno, EIO);
  EXPECT_NE(KP_ferror(file.get()), 0);
  EXPECT_EQ(script.next, 2U);
}

TEST(FileReading, EndOfFileCountsWholeItemsOnly) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "1234567").c_str(), "rb"));
  char buffer[16];
  EXPECT_EQ(KP_fread(buffer, 4, 4, file.get()), 1U);
  EXPECT_NE(KP_feof(file.get()), 0);
  EXPECT_EQ(KP_ferror(file.get()), 0);
}

TEST(FileReading, NothingAskedForIsNothingRead) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "12").c_str(), "rb"));
  char byte = '#';
  EXPECT_EQ(KP_fread(&byte, 0, 5, file.get()), 0U);
  EXPECT_EQ(KP_fread(&byte, 5, 0, file.get()), 0U);
  EXPECT_EQ(KP_getc(file.get()), '1');
}

TEST(FileReading, MoreBytesThanThereAreNumbersForIsRefused) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "12").c_str(), "rb"));
  char byte = '#';
  EXPECT_EQ(KP_fread(&byte, SIZE_MAX, 2, file.get()), 0U);
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_EQ(KP_fwrite(&byte, 2, SIZE_MAX, file.get()), 0U);
  EXPECT_EQ(KP_getc(file.get()), '1');
}

TEST(FileReading, SeeksAndTells) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "abcdef").c_str(), "rb"));
  EXPECT_EQ(KP_fseek(file.get(), 4, SEEK_SET), 0);
  EXPECT_EQ(KP_getc(file.get()), 'e');
  EXPECT_EQ(KP_ftell(file.get()), 5);
  EXPECT_EQ(KP_fseek(file.get(), -1, SEEK_SET), -1);
}

// ---- writing ----

TEST(FileWriting, TriesAgainAfterASignalWhenNothingHasLeft) {
  scripted_stream script{{{"", EINTR}, {"", EINTR}, {""}}, "", 0};
  kp_file file = open_script(script, "w");
  setvbuf(file.get(), nullptr, _IONBF, 0);
  EXPECT_EQ(KP_fwrite("abcd", 2, 2, file.get()), 2U);
  EXPECT_EQ(KP_ferror(file.get()), 0);
  EXPECT_EQ(script.written, "abcd");
}

TEST(FileWriting, AnyOtherErrorIsFinal) {
  scripted_stream script{{{"", ENOSPC}, {""}}, "", 0};
  const kp_file file = open_script(script, "w");
  setvbuf(file.get(), nullptr, _IONBF, 0);
  EXPECT_EQ(KP_fwrite("abcd", 2, 2, file.get()), 0U);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_NE(KP_ferror(file.get()), 0);
}

// The C library drops what it had buffered when its own writing is interrupted; going on would
// leave a gap in the file.
TEST(FileWriting, SignalThatMayHaveCostBufferedBytesIsAnError) {
  scripted_stream script{{{"", EINTR}, {""}}, "", 0};
  const kp_file file = open_script(script, "w");
  char room[256];
  setvbuf(file.get(), room, _IOFBF, sizeof room);
  const std::string bytes(200, 'x');
  EXPECT_EQ(KP_fwrite(bytes.data(), 1, bytes.size(), file.get()), bytes.size());
  KP_fwrite(bytes.data(), 1, bytes.size(), file.get());
  EXPECT_NE(KP_ferror(file.get()), 0);
  EXPECT_EQ(script.next, 1U);
}

TEST(FileWriting, WritesFlushesAndClosesAFile) {
  const temp_folder folder;
  FILE* const file = KP_fopen(folder.file("f").c_str(), "wb");
  EXPECT_EQ(KP_fwrite("abcd", 4, 1, file), 1U);
  EXPECT_EQ(KP_fflush(file), 0);
  EXPECT_EQ(read_whole_file(folder.file("f")), "abcd");
  EXPECT_EQ(KP_fclose(file), 0);
}

TEST(FileWriting, FullDeviceShowsWhenFlushed) {
  const kp_file file(KP_fopen("/dev/full", "w"));
  EXPECT_EQ(KP_fwrite("abcd", 4, 1, file.get()), 1U);
  EXPECT_EQ(KP_fflush(file.get()), EOF);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(FileWriting, UnbufferedWriteReachesTheFile) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.file("f").c_str(), "wb"));
  EXPECT_EQ(KP_write(KP_fileno(file.get()), "abc", 3), 3);
  EXPECT_EQ(read_whole_file(folder.file("f")), "abc");
}

TEST(FileWriting, BytesAtAnOffsetLeaveThePositionAlone) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "abcdef").c_str(), "r+b"));
  const int descriptor = KP_fileno(file.get());
  char buffer[4] = {};
  EXPECT_EQ(KP_pwrite(descriptor, "XY", 2, 3), 2);
  EXPECT_EQ(KP_pread(descriptor, buffer, 3, 2), 3);
  EXPECT_STREQ(buffer, "cXY");
  EXPECT_EQ(KP_pread(descriptor, buffer, 3, 6), 0);
  EXPECT_EQ(KP_getc(file.get()), 'a');
}

// ---- opening ----

TEST(OpenRegular, OpensAFileForReadingAndNotForChildren) {
  const temp_folder folder;
  const kp_file file(KP_open_regular(folder.write("f", "xy").c_str()));
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(KP_getc(file.get()), 'x');
  EXPECT_EQ(fcntl(KP_fileno(file.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(OpenRegular, FollowsALinkToAFile) {
  const temp_folder folder;
  std::filesystem::create_symlink(folder.write("f", "x"), folder.file("link"));
  EXPECT_NE(kp_file(KP_open_regular(folder.file("link").c_str())), nullptr);
}

TEST(OpenRegular, RefusesWhatIsNoRegularFileWithoutWaiting) {
  const temp_folder folder;
  ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
  EXPECT_EQ(KP_open_regular(folder.file("fifo").c_str()), nullptr);
  EXPECT_EQ(KP_open_regular(folder.path().c_str()), nullptr);
  EXPECT_EQ(KP_open_regular("/dev/null"), nullptr);
}

TEST(OpenRegular, MissingFileAndNullAreNull) {
  const temp_folder folder;
  EXPECT_EQ(KP_open_regular(folder.file("missing").c_str()), nullptr);
  EXPECT_EQ(KP_open_regular(""), nullptr);
  EXPECT_EQ(KP_open_regular(nullptr), nullptr);
}

TEST(OpenRegular, RefusalLeavesNoDescriptorOpen) {
  const temp_folder folder;
  const int before = dup(0);
  close(before);
  EXPECT_EQ(KP_open_regular(folder.path().c_str()), nullptr);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
}

// ---- paths and environment ----

TEST(Environment, VariableIsReadAndAMissingOneIsNull) {
  const environment_value variable("KP_CLIB_TEST_VARIABLE", "value");
  EXPECT_STREQ(KP_getenv("KP_CLIB_TEST_VARIABLE"), "value");
  EXPECT_EQ(KP_getenv("KP_CLIB_TEST_MISSING"), nullptr);
}

TEST(Paths, WorkingFolderNeedsRoomForItsName) {
  const temp_folder folder;
  const working_folder here(folder.path());
  char buffer[4096];
  EXPECT_EQ(KP_getcwd(buffer, sizeof buffer), buffer);
  EXPECT_EQ(std::filesystem::path(buffer), std::filesystem::canonical(folder.path()));
  EXPECT_EQ(KP_getcwd(buffer, 2), nullptr);
  EXPECT_EQ(errno, ERANGE);
}

TEST(Paths, StatusOfAFileByNameAndByDescriptor) {
  const temp_folder folder;
  const std::string path = folder.write("f", "12345");
  const kp_file file(KP_fopen(path.c_str(), "rb"));
  struct stat by_name = {};
  struct stat by_descriptor = {};
  EXPECT_EQ(KP_stat(path.c_str(), &by_name), 0);
  EXPECT_EQ(KP_fstat(KP_fileno(file.get()), &by_descriptor), 0);
  EXPECT_EQ(by_name.st_size, 5);
  EXPECT_EQ(by_name.st_ino, by_descriptor.st_ino);
  EXPECT_EQ(KP_access(path.c_str(), R_OK), 0);
  EXPECT_EQ(KP_access(folder.file("missing").c_str(), F_OK), -1);
}

// ---- numbers ----

TEST(DecimalText, DigitsUpToTheFirstOtherCharacter) {
  EXPECT_EQ(KP_strto4u("0"), 0U);
  EXPECT_EQ(KP_strto4u("12abc"), 12U);
  EXPECT_EQ(KP_strto4u("007"), 7U);
  EXPECT_EQ(KP_strto4u("4294967295"), 4294967295U);
}

TEST(DecimalText, NoDigitsAreZero) {
  for (const char* text : {"", "abc", "-1", "+1", " 1"}) EXPECT_EQ(KP_strto4u(text), 0U) << text;
  EXPECT_EQ(KP_strto4u(nullptr), 0U);
}

TEST(DecimalText, OverflowIsTheLargestNumber) {
  for (const char* text : {"4294967296", "9999999999", "18446744073709551617",
                           "100000000000000000000000000000000000000000000000"})
    EXPECT_EQ(KP_strto4u(text), 4294967295U) << text;
}

TEST(HexadecimalText, PrefixIsOptional) {
  EXPECT_EQ(KP_hexto4u("0x1F"), 31U);
  EXPECT_EQ(KP_hexto4u("0X1f"), 31U);
  EXPECT_EQ(KP_hexto4u("1fg"), 31U);
  EXPECT_EQ(KP_hexto4u("0xFFFFFFFF"), 4294967295U);
  EXPECT_EQ(KP_hexto4u("1x5"), 1U);
}

TEST(HexadecimalText, NoDigitsAreZeroAndOverflowIsTheLargestNumber) {
  for (const char* text : {"", "0x", "0xg", "x1", "-1", "0", "0x0x1"})
    EXPECT_EQ(KP_hexto4u(text), 0U) << text;
  EXPECT_EQ(KP_hexto4u(nullptr), 0U);
  EXPECT_EQ(KP_hexto4u("0x100000000"), 4294967295U);
  EXPECT_EQ(KP_hexto4u("ffffffffffffffffffffffff"), 4294967295U);
}

// ---- time and texts ----

TEST(ClockWrappers, AgreeWithTheCLibrary) {
  const environment_value zone("TZ", "Asia/Shanghai");
  const time_t moment = 1794733376;  // 2026-11-15T09:02:56Z
  struct tm local = {};
  ASSERT_EQ(KP_localtime_r(&moment, &local), &local);
  char buffer[32];
  EXPECT_EQ(KP_strftime(buffer, sizeof buffer, "%Y/%m/%d %H:%M:%S", &local), 19U);
  EXPECT_STREQ(buffer, "2026/11/15 17:02:56");
  EXPECT_EQ(KP_mktime(&local), moment);
  EXPECT_GE(KP_time(nullptr), moment - 365 * 86400);
}

TEST(TextWrappers, AgreeWithTheCLibrary) {
  EXPECT_EQ(KP_strlen("abc"), 3U);
  EXPECT_EQ(KP_strcmp("abc", "abc"), 0);
  EXPECT_LT(KP_strcmp("abc", "abd"), 0);
}

// ---- assertions ----

TEST(Assertion, IsOneLineOnStandardErrorAndReturns) {
  errno = ENOENT;
  testing::internal::CaptureStderr();
  KP_assertion_violation("p != 0", "logging/log_util", 47);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "logging/log_util:47: assertion failed: p != 0\n");
  EXPECT_EQ(errno, ENOENT);
}

TEST(Assertion, NullTextsAreNamedSo) {
  testing::internal::CaptureStderr();
  KP_assertion_violation(nullptr, nullptr, 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "(null):1: assertion failed: (null)\n");
}

// ---- fault hooks ----

#ifdef KP_FAULTS

TEST(Faults, OnlyTheChosenCallFails) {
  const temp_folder folder;
  const std::string path = folder.write("f", "x");
  const failing fault(kp_fault_call::fopen, 2, EMFILE);
  EXPECT_NE(kp_file(KP_fopen(path.c_str(), "rb")), nullptr);
  EXPECT_EQ(kp_file(KP_fopen(path.c_str(), "rb")), nullptr);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_NE(kp_file(KP_fopen(path.c_str(), "rb")), nullptr);
  EXPECT_EQ(fault.calls_seen(), 3U);
}

TEST(Faults, StickyFaultLastsToTheEndOfItsScope) {
  struct stat status = {};
  {
    const failing fault(kp_fault_call::stat, 2, EIO, from_then_on);
    EXPECT_EQ(KP_stat("/", &status), 0);
    EXPECT_EQ(KP_stat("/", &status), -1);
    EXPECT_EQ(KP_stat("/", &status), -1);
  }
  EXPECT_EQ(KP_stat("/", &status), 0);
}

TEST(Faults, ShortReadTransfersItsBytesAndMarksTheStream) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "abcdefgh").c_str(), "rb"));
  char buffer[8] = {};
  {
    const failing fault(kp_fault_call::fread, 1, EIO, 1, 3);
    EXPECT_EQ(KP_fread(buffer, 1, 8, file.get()), 3U);
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_NE(KP_ferror(file.get()), 0);
  EXPECT_EQ(std::string(buffer), "abc");
}

TEST(Faults, InterruptedReadIsReadOn) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "abcdefgh").c_str(), "rb"));
  const failing fault(kp_fault_call::fread, 1, EINTR, 1, 3);
  char buffer[8] = {};
  EXPECT_EQ(KP_fread(buffer, 4, 2, file.get()), 2U);
  EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
  EXPECT_EQ(KP_ferror(file.get()), 0);
  EXPECT_EQ(fault.calls_seen(), 2U);
}

TEST(Faults, ShortWriteTransfersItsBytes) {
  const temp_folder folder;
  kp_file file(KP_fopen(folder.file("f").c_str(), "wb"));
  const failing fault(kp_fault_call::fwrite, 1, ENOSPC, 1, 3);
  EXPECT_EQ(KP_fwrite("abcdefgh", 1, 8, file.get()), 3U);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_NE(KP_ferror(file.get()), 0);
  file.reset();
  EXPECT_EQ(read_whole_file(folder.file("f")), "abc");
}

TEST(Faults, UnbufferedWriteFailsOrIsShort) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.file("f").c_str(), "wb"));
  {
    const failing fault(kp_fault_call::write, 1, ENOSPC);
    EXPECT_EQ(KP_write(KP_fileno(file.get()), "abc", 3), -1);
    EXPECT_EQ(errno, ENOSPC);
  }
  const failing fault(kp_fault_call::write, 1, 0, 1, 2);
  EXPECT_EQ(KP_write(KP_fileno(file.get()), "abc", 3), 2);
  EXPECT_EQ(read_whole_file(folder.file("f")), "ab");
}

TEST(Faults, BytesAtAnOffsetFailAreShortOrAreBegunAgainAfterASignal) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "abcdef").c_str(), "r+b"));
  const int descriptor = KP_fileno(file.get());
  char buffer[4] = {};
  {
    const failing read_fault(kp_fault_call::pread, 1, EIO);
    const failing write_fault(kp_fault_call::pwrite, 1, ENOSPC, 1, 2);
    EXPECT_EQ(KP_pread(descriptor, buffer, 3, 0), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(KP_pwrite(descriptor, "XYZ", 3, 0), 2);
  }
  const failing interrupted(kp_fault_call::pread, 1, EINTR);
  EXPECT_EQ(KP_pread(descriptor, buffer, 3, 0), 3);
  EXPECT_STREQ(buffer, "XYc");
  EXPECT_EQ(interrupted.calls_seen(), 2U);
}

TEST(Faults, FailingCloseClosesAllTheSame) {
  const temp_folder folder;
  FILE* const file = KP_fopen(folder.write("f", "x").c_str(), "rb");
  const int descriptor = KP_fileno(file);
  const failing fault(kp_fault_call::fclose, 1, EIO);
  EXPECT_EQ(KP_fclose(file), EOF);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST(Faults, FailingGetcMarksTheStreamUntilItIsClosed) {
  const temp_folder folder;
  kp_file file(KP_fopen(folder.write("f", "x").c_str(), "rb"));
  const failing fault(kp_fault_call::getc, 1, EIO);
  EXPECT_EQ(KP_getc(file.get()), EOF);
  EXPECT_EQ(KP_feof(file.get()), 0);
  EXPECT_NE(KP_ferror(file.get()), 0);
  EXPECT_EQ(KP_getc(file.get()), 'x');
}

TEST(Faults, EveryStepOfOpeningARegularFileMayFail) {
  const temp_folder folder;
  const std::string path = folder.write("f", "x");
  for (auto call : {kp_fault_call::open, kp_fault_call::fstat, kp_fault_call::fdopen}) {
    const int before = dup(0);
    close(before);
    const failing fault(call, 1, EMFILE);
    EXPECT_EQ(KP_open_regular(path.c_str()), nullptr);
    EXPECT_EQ(errno, EMFILE);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
  }
}

TEST(Faults, ReadFromADescriptorFailsOrIsShort) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "abc").c_str(), "rb"));
  char buffer[4] = {};
  {
    const failing fault(kp_fault_call::read, 1, EIO);
    EXPECT_EQ(KP_read(KP_fileno(file.get()), buffer, 3), -1);
    EXPECT_EQ(errno, EIO);
  }
  const failing fault(kp_fault_call::read, 1, 0, 1, 2);
  EXPECT_EQ(KP_read(KP_fileno(file.get()), buffer, 3), 2);
  EXPECT_STREQ(buffer, "ab");
}

TEST(Faults, FailingCloseOfADescriptorClosesItAllTheSame) {
  const int descriptor = KP_open("/dev/null", O_RDONLY | O_CLOEXEC);
  const failing fault(kp_fault_call::close, 1, EIO);
  EXPECT_EQ(KP_close(descriptor), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

// The call, which would do nothing bad, fails with the errno wanted and returns `failed`.
template <class Call, class Result>
static void expect_failure(kp_fault_call kind, Call call, Result failed) {
  const failing fault(kind, 1, ENOTTY);
  EXPECT_EQ(call(), failed) << static_cast<int>(kind);
  EXPECT_EQ(errno, ENOTTY) << static_cast<int>(kind);
  EXPECT_EQ(fault.calls_seen(), 1U) << static_cast<int>(kind);
}

TEST(Faults, EveryOtherKindFailsAsItsFunctionDoes) {
  const temp_folder folder;
  const kp_file file(KP_fopen(folder.write("f", "x").c_str(), "rb"));
  const time_t moment = 0;
  struct tm fields = {};
  struct stat status = {};
  char buffer[64] = "XXXXXX";
  using kind = kp_fault_call;
  expect_failure(
      kind::fseek, [&] { return KP_fseek(file.get(), 0, SEEK_SET); }, -1);
  expect_failure(
      kind::ftell, [&] { return KP_ftell(file.get()); }, -1);
  expect_failure(
      kind::fflush, [&] { return KP_fflush(file.get()); }, EOF);
  expect_failure(
      kind::access, [] { return KP_access("/", F_OK); }, -1);
  expect_failure(
      kind::getcwd, [&] { return KP_getcwd(buffer, sizeof buffer) != nullptr; }, false);
  expect_failure(
      kind::localtime_r, [&] { return KP_localtime_r(&moment, &fields) != nullptr; }, false);
  expect_failure(
      kind::mktime, [&] { return KP_mktime(&fields); }, -1);
  expect_failure(
      kind::strftime, [&] { return KP_strftime(buffer, sizeof buffer, "%Y", &fields); }, 0U);
  expect_failure(
      kind::open, [] { return KP_open("/", O_RDONLY); }, -1);
  expect_failure(
      kind::openat, [] { return KP_openat(AT_FDCWD, "/", O_RDONLY); }, -1);
  expect_failure(
      kind::ftruncate, [] { return KP_ftruncate(-1, 0); }, -1);
  expect_failure(
      kind::fsync, [] { return KP_fsync(-1); }, -1);
  expect_failure(
      kind::fdatasync, [] { return KP_fdatasync(-1); }, -1);
  expect_failure(
      kind::flock, [] { return KP_flock(-1, LOCK_UN); }, -1);
  expect_failure(
      kind::fchmod, [] { return KP_fchmod(-1, 0); }, -1);
  expect_failure(
      kind::chmod, [] { return KP_chmod("", 0); }, -1);
  expect_failure(
      kind::stat, [&] { return KP_stat("/", &status); }, -1);
  expect_failure(
      kind::lstat, [&] { return KP_lstat("/", &status); }, -1);
  expect_failure(
      kind::fstat, [&] { return KP_fstat(0, &status); }, -1);
  expect_failure(
      kind::fstatat, [&] { return KP_fstatat(AT_FDCWD, "/", &status, 0); }, -1);
  expect_failure(
      kind::readlink, [&] { return KP_readlink("/", buffer, sizeof buffer); }, -1);
  expect_failure(
      kind::rename, [] { return KP_rename("", ""); }, -1);
  expect_failure(
      kind::unlink, [] { return KP_unlink(""); }, -1);
  expect_failure(
      kind::unlinkat, [] { return KP_unlinkat(AT_FDCWD, "", 0); }, -1);
  expect_failure(
      kind::mkostemp, [&] { return KP_mkostemp(buffer, 0); }, -1);
  expect_failure(
      kind::mkdtemp, [&] { return KP_mkdtemp(buffer) != nullptr; }, false);
  expect_failure(
      kind::mkdir, [] { return KP_mkdir("", 0); }, -1);
  expect_failure(
      kind::fdopendir, [] { return KP_fdopendir(-1) != nullptr; }, false);
  expect_failure(
      kind::readdir, [] { return KP_readdir(nullptr) != nullptr; }, false);
  expect_failure(
      kind::bind, [] { return KP_bind(-1, nullptr, 0); }, -1);
  expect_failure(
      kind::listen, [] { return KP_listen(-1, 0); }, -1);
}

#endif
