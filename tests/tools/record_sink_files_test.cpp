// What sinks do when files are not as expected: changed by others, unfinished, no files at all, or
// on a full disk.
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <thread>

#include "tests/tools/record_sink_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

// --- Files that change under a running sink ---

TEST_F(RecordSink, ARenamedLogIsLeftAlone) {
  const auto sink = text();
  write(*sink, {"a"});
  fs::rename(file("app.20261115.0001"), file("rotated"));
  write(*sink, {"b"});
  EXPECT_EQ(content("rotated"), line("a"));
  EXPECT_EQ(content("app.20261115.0001"), line("b"));
}

TEST_F(RecordSink, ALogThatRotationReplacedByAnEmptyOneIsWrittenTo) {
  const auto sink = text();
  write(*sink, {"a"});
  fs::rename(file("app.20261115.0001"), file("rotated"));
  folder_.write("app.20261115.0001", "");
  write(*sink, {"b"});
  EXPECT_EQ(content("rotated"), line("a"));
  EXPECT_EQ(content("app.20261115.0001"), line("b"));
}

TEST_F(RecordSink, ALogThatWasCutAfterCopyingGrowsFromItsStart) {
  const auto sink = text();
  write(*sink, {"a", "b"});
  fs::resize_file(file("app.20261115.0001"), 0);
  write(*sink, {"c"});
  EXPECT_EQ(content("app.20261115.0001"), line("c"));
}

TEST_F(RecordSink, ARemovedLogIsMadeAgain) {
  const auto sink = text(",max-size=1");
  write(*sink, {"a", "b"});
  fs::remove(file("app.20261115.0002"));
  write(*sink, {"c"});
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001", "app.20261115.0002"));
  EXPECT_EQ(content("app.20261115.0002"), line("c"));
  for (const std::string& name : files()) fs::remove(file(name));
  write(*sink, {"d"});
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001"));
}

TEST_F(RecordSink, ARemovedLockIsMadeAgain) {
  const auto sink = text();
  write(*sink, {"a"});
  fs::remove(file("app_lock"));
  write(*sink, {"b"});
  EXPECT_TRUE(fs::exists(file("app_lock")));
  EXPECT_EQ(content("app.20261115.0001"), line("a") + line("b"));
}

TEST_F(RecordSink, ALostFolderIsNamedAndItsBatchKept) {
  fs::create_directory(file("logs"));
  const auto sink = make("text:" + file("logs/app"));
  fs::rename(file("logs"), file("gone"));
  entries_.add(*sink, "m");
  EXPECT_EQ(write_error(*sink),
            "cannot open the folder " + file("logs") + ": No such file or directory");
  EXPECT_EQ(sink->pending(), line("m").size());
  fs::create_directory(file("logs"));
  sink->write(false);
  EXPECT_EQ(content("logs/app.20261115.0001"), line("m"));
}

TEST_F(RecordSink, WaitsForTheLock) {
  const auto sink = text();
  entries_.add(*sink, "m");
  const int lock = open(file("app_lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  std::thread writer([&] { sink->write(false); });
  const auto is_waiting = [] {
    return read_whole_file("/proc/locks").find("-> FLOCK") != std::string::npos;
  };
  while (!is_waiting()) std::this_thread::yield();
  EXPECT_EQ(files().size(), 0U);
  close(lock);
  writer.join();
  EXPECT_EQ(content("app.20261115.0001"), line("m"));
}

// --- Things that are no logs ---

TEST_F(RecordSink, LinksAreNotFollowed) {
  folder_.write("precious", "");
  fs::create_symlink(file("precious"), file("app.20261115.0001"));
  const auto sink = text();
  entries_.add(*sink, "m");
  EXPECT_EQ(write_error(*sink),
            "cannot open " + file("app.20261115.0001") + ": Too many levels of symbolic links");
  fs::create_symlink(file("precious"), file("a.json"));
  EXPECT_EQ(raised_by<sink_error>([&] { make("json:" + file("a.json")); }),
            "cannot open " + file("a.json") + ": Too many levels of symbolic links");
  fs::create_symlink(file("precious"), file("other_lock"));
  EXPECT_EQ(raised_by<sink_error>([&] { make("text:" + file("other")); }),
            "cannot open the lock " + file("other_lock") + ": Too many levels of symbolic links");
  EXPECT_EQ(content("precious"), "");
}

TEST_F(RecordSink, FoldersPipesAndDevicesAreNoFiles) {
  fs::create_directory(file("app.20261115.0001"));
  const auto sink = text();
  entries_.add(*sink, "m");
  EXPECT_EQ(write_error(*sink), "cannot open " + file("app.20261115.0001") + ": Is a directory");
  ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(raised_by<sink_error>([&] { make("json:" + file("pipe")); }),
            "cannot append to " + file("pipe") + ": it is not a regular file");
}

// --- Unfinished lines ---

TEST_F(RecordSink, AnUnfinishedLineIsCutOffAndReported) {
  folder_.write("app.20261115.0001", line("a") + "2026-11-15T17:0");
  const auto sink = text();
  write(*sink, {"b"});
  EXPECT_EQ(content("app.20261115.0001"), line("a") + line("b"));
  EXPECT_THAT(notes_, ElementsAre(file("app.20261115.0001") +
                                  ": an unfinished line was cut off, 15 bytes without an end of "
                                  "line"));
}

TEST_F(RecordSink, ALogThatIsNothingButAnUnfinishedLine) {
  folder_.write("app.20261115.0001", "2");
  const auto sink = text();
  write(*sink, {"b"});
  EXPECT_EQ(content("app.20261115.0001"), line("b"));
}

TEST_F(RecordSink, UnfinishedLinesOfAnyLengthAreFound) {
  for (const size_t size : {65534U, 65535U, 65536U, 65537U, 131072U, 200000U}) {
    folder_.write("app.20261115.0001", "a\n" + std::string(size, 'x'));
    const auto sink = text();
    write(*sink, {"b"});
    EXPECT_EQ(content("app.20261115.0001"), "a\n" + line("b")) << size;
  }
}

TEST_F(RecordSink, WhatIsTooLongForALineIsLeftAlone) {
  folder_.write("app.20261115.0001", "a\n");
  fs::resize_file(file("app.20261115.0001"), size_t{17} << 20);
  const auto sink = text();
  entries_.add(*sink, "m");
  EXPECT_THAT(write_error(*sink), HasSubstr("are no line of this program's"));
  EXPECT_EQ(fs::file_size(file("app.20261115.0001")), size_t{17} << 20);
}

TEST_F(RecordSink, TheNoteOfADeadProcessLeadsToItsUnfinishedLine) {
  folder_.write("app.20261114.0003", "old\nunfin");
  folder_.write("app.20261113.0001", "no end");
  folder_.write("app_lock", "app.20261114.0003");
  text();
  EXPECT_EQ(content("app.20261114.0003"), "old\n");
  EXPECT_EQ(content("app.20261113.0001"), "no end");
  EXPECT_EQ(content("app_lock"), "");
  EXPECT_EQ(notes_.size(), 1U);
}

TEST_F(RecordSink, NotesThatLeadNowhere) {
  fs::create_directory(file("dir"));
  folder_.write("outside", "no end");
  for (const char* note : {"../outside", "/etc/passwd", "dir", "none", "\xFF", "."}) {
    folder_.write("dir/app_lock", note);
    make("text:" + file("dir/app"));
    EXPECT_EQ(content("dir/app_lock"), "") << note;
  }
  EXPECT_EQ(content("outside"), "no end");
}

TEST_F(RecordSink, ANoteIsGoneWhenItsBatchIsWritten) {
  const auto sink = text();
  write(*sink, {"m"});
  EXPECT_EQ(content("app_lock"), "");
}

// --- A full disk ---

// A limit of the size of files, which stands for a full disk, for a scope.
class small_disk {
 public:
  explicit small_disk(rlim_t bytes) : signal_before_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const struct rlimit limit = {bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~small_disk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_before_);
  }
  small_disk(const small_disk&) = delete;
  small_disk& operator=(const small_disk&) = delete;

 private:
  struct rlimit before_ {};
  void (*signal_before_)(int);
};

TEST_F(RecordSink, WhatDoesNotFitIsTakenBackAndCanBeWrittenLater) {
  const auto sink = text();
  write(*sink, {"a"});
  const std::string before = content("app.20261115.0001");
  entries_.add(*sink, std::string(100, 'b'));
  {
    const small_disk limit(before.size() + 50);
    EXPECT_EQ(write_error(*sink), "cannot write " + file("app.20261115.0001") + ": File too large");
  }
  EXPECT_EQ(content("app.20261115.0001"), before);
  EXPECT_EQ(content("app_lock"), "");
  sink->write(false);
  EXPECT_EQ(content("app.20261115.0001"), before + line(std::string(100, 'b')));
}

TEST_F(RecordSink, ABatchOfSeveralFilesIsTakenBackFromAllOfThem) {
  const size_t size = line("a").size();
  const auto sink = text(",max-size=" + std::to_string(2 * size));
  write(*sink, {"a"});
  for (const char* message : {"b", "c", "d"}) entries_.add(*sink, message);
  entries_.add(*sink, "e", "2026-11-14T17:02:56+08:00");
  entries_.add(*sink, std::string(4 * size, 'x'));
  {
    const small_disk limit(3 * size);
    EXPECT_EQ(write_error(*sink), "cannot write " + file("app.20261115.0003") + ": File too large");
  }
  EXPECT_THAT(files(), ElementsAre("app.20261115.0001"));
  EXPECT_EQ(content("app.20261115.0001"), line("a"));
  sink->write(false);
  EXPECT_EQ(content("app.20261115.0001"), line("a") + line("b"));
  EXPECT_EQ(content("app.20261115.0002"), line("c") + line("d"));
  EXPECT_EQ(files().size(), 4U);
}
