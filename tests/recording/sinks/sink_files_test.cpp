// What sinks do when files are not as expected: changed by others, unfinished, no files at all, or
// on a full disk.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstring>

#include "tests/recording/files/failing_file_calls.h"
#include "tests/recording/sinks/lock_holder.h"
#include "tests/recording/sinks/sink_fixture.h"
#include "tools/report/outcome.h"

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

// --- Locks ---

static const std::string no_note = "kplog lock\n";

TEST_F(RecordSink, WaitsForTheLockAndSaysSo) {
  const auto sink = text();
  entries_.add(*sink, "m");
  lock_holder holder(file("app_lock"));
  sink_options options = options_;
  std::vector<std::string> told;
  options.waiting.report = [&](const std::string& note) {
    EXPECT_EQ(files().size(), 0U);
    told.push_back(note);
    holder.leave();
  };
  const auto waiting = make_record_sink("text:" + file("app"), options);
  EXPECT_THAT(told, ElementsAre("waiting for the lock " + file("app_lock") +
                                ", which another process holds"));
  write(*sink, {"n"});
  EXPECT_EQ(content("app.20261115.0001"), line("m") + line("n"));
}

TEST_F(RecordSink, AProcessThatIsToEndWaitsASecondAndGivesUp) {
  const auto sink = text();
  const lock_holder holder(file("app_lock"));
  sink_options options = options_;
  options.waiting.is_to_end = [] { return true; };
  EXPECT_EQ(raised_by<lock_given_up>([&] { make_record_sink("text:" + file("app"), options); }),
            "cannot take the lock " + file("app_lock") + ": another process holds it");
}

TEST_F(RecordSink, ALockThatBecomesFreeIsTakenByAProcessThatIsToEnd) {
  text();
  lock_holder holder(file("app_lock"));
  sink_options options = options_;
  options.waiting.is_to_end = [&] {
    holder.leave();
    return true;
  };
  make_record_sink("text:" + file("app"), options);
  EXPECT_EQ(content("app_lock"), no_note);
}

TEST_F(RecordSink, WhatStandsInALocksPlaceIsLeftAlone) {
  for (const std::string& bytes :
       {std::string("precious.bin"), std::string("kplog lock"), std::string("kplog lock "),
        std::string(1000, 'x'), std::string(1, '\0'), std::string("app.20261115.0001")}) {
    for (const char* sink : {"text:", "json:"}) {
      folder_.write("app_lock", bytes);
      folder_.write("precious.bin", "no end");
      EXPECT_EQ(raised_by<file_error>([&] { make(sink + file("app")); }),
                "cannot take the lock " + file("app_lock") +
                    ": it is no lock; a lock is empty or begins with \"kplog lock\"");
      EXPECT_EQ(content("app_lock"), bytes);
      EXPECT_EQ(content("precious.bin"), "no end");
    }
  }
}

TEST_F(RecordSink, AnEmptyFileBecomesALock) {
  folder_.write("app_lock", "");
  write(*text(), {"m"});
  EXPECT_EQ(content("app_lock"), no_note);
}

// Another run's, or what was left of one.
TEST_F(RecordSink, ALockIsNoOutput) {
  text();
  EXPECT_EQ(raised_by<file_error>([&] { make("json:" + file("app_lock")); }),
            "cannot append to " + file("app_lock") + ": it is a lock");
  EXPECT_EQ(content("app_lock"), no_note);
  EXPECT_FALSE(fs::exists(file("app_lock_lock")));
}

TEST_F(RecordSink, NoLockIsLeftWhereNothingCanBeWritten) {
  fs::create_directory(file("dir"));
  ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
  folder_.write("notes", "a line\nno end");
  const auto before = all_files_in(folder_.path());
  for (const char* name : {"dir", "pipe", "notes"})
    EXPECT_NE(raised_by<file_error>([&] { make("json:" + file(name)); }), "") << name;
  EXPECT_EQ(all_files_in(folder_.path()), before);
  EXPECT_EQ(raised_by<file_error>([&] { make("json:/dev/null"); }),
            "cannot append to /dev/null: it is not a regular file");
  EXPECT_FALSE(fs::exists("/dev/null_lock"));
}

// --- Compressed logs ---

TEST_F(RecordSink, SerialsOfCompressedLogsAreNotUsedAgain) {
  for (const char* name : {"app.20261115.0001.gz", "app.20261115.0002.zst", "app.20261115.0003x",
                           "app.20261115.0004", "app.20261114.0007.gz", "other.20261115.0009.gz"})
    folder_.write(name, "");
  const auto sink = text(",max-size=1");
  write(*sink, {"a"});
  EXPECT_EQ(content("app.20261115.0004"), line("a"));
  fs::rename(file("app.20261115.0004"), file("app.20261115.0004.gz"));
  write(*sink, {"b"});
  EXPECT_EQ(content("app.20261115.0005"), line("b"));
  // Another process went on meanwhile.
  folder_.write("app.20261115.0006.xz", "");
  write(*sink, {"c"});
  EXPECT_EQ(content("app.20261115.0007"), line("c"));
  // A log is left alone while it is being compressed.
  folder_.write("app.20261115.0007.gz", "");
  write(*text(), {"d"});
  EXPECT_EQ(content("app.20261115.0007"), line("c"));
  EXPECT_EQ(content("app.20261115.0008"), line("d"));
  EXPECT_FALSE(fs::exists(file("app.20261115.0001")));
}

// What a service appended to a log that it knows would be removed with it. Logs are compressed when
// they have been at rest.
TEST_F(RecordSink, ALogIsLeftAloneFromWhenItsCompressionBegins) {
  const auto sink = text();
  write(*sink, {"a"});
  write(*sink, {"b"});
  const std::string log = file("app.20261115.0001");
  fs::last_write_time(log, fs::last_write_time(log) - std::chrono::hours(1));
  folder_.write("app.20261115.0001.gz", "");
  write(*sink, {"c"});
  EXPECT_EQ(content("app.20261115.0001"), line("a") + line("b"));
  EXPECT_EQ(content("app.20261115.0002"), line("c"));
  // Somebody gave it up.
  fs::remove(file("app.20261115.0001.gz"));
  write(*sink, {"d"});
  EXPECT_EQ(content("app.20261115.0002"), line("c") + line("d"));
}

TEST_F(RecordSink, NoSerialIsLeftBehindACompressedLastOne) {
  folder_.write("app.20261115.9999.gz", "");
  const auto sink = text();
  entries_.add(*sink, "m");
  EXPECT_EQ(write_error(*sink), "no serial is left behind " + file("app.20261115.9999"));
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
  EXPECT_EQ(raised_by<file_error>([&] { make("json:" + file("a.json")); }),
            "cannot open " + file("a.json") + ": Too many levels of symbolic links");
  fs::create_symlink(file("precious"), file("other_lock"));
  EXPECT_EQ(raised_by<file_error>([&] { make("text:" + file("other")); }),
            "cannot open the lock " + file("other_lock") + ": Too many levels of symbolic links");
  EXPECT_EQ(content("precious"), "");
}

TEST_F(RecordSink, HardLinksAreLinks) {
  const auto log = text();
  const auto stored = make("json:" + file("a.json"));
  write(*log, {"m"});
  write(*stored, {"m"});
  const std::string had = content("a.json");
  for (const char* name : {"app.20261115.0001", "a.json"}) {
    fs::create_hard_link(file(name), file("other name"));
    record_sink& sink = name == std::string("a.json") ? *stored : *log;
    entries_.add(sink, "n");
    EXPECT_EQ(write_error(sink),
              "cannot append to " + file(name) + ": it has 2 names (hard links), and may have one");
    fs::remove(file("other name"));
  }
  EXPECT_EQ(content("app.20261115.0001"), line("m"));
  EXPECT_EQ(content("a.json"), had);
  log->write(false);
  EXPECT_EQ(content("app.20261115.0001"), line("m") + line("n"));

  folder_.write("precious", "");
  fs::create_hard_link(file("precious"), file("other_lock"));
  EXPECT_EQ(raised_by<file_error>([&] { make("text:" + file("other")); }),
            "cannot take the lock " + file("other_lock") +
                ": it has 2 names (hard links), and may have one");
  EXPECT_EQ(content("precious"), "");
}

TEST_F(RecordSink, FoldersPipesAndDevicesAreNoFiles) {
  fs::create_directory(file("app.20261115.0001"));
  const auto sink = text();
  entries_.add(*sink, "m");
  EXPECT_EQ(write_error(*sink), "cannot open " + file("app.20261115.0001") + ": Is a directory");
  ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(raised_by<file_error>([&] { make("json:" + file("pipe")); }),
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
  static constexpr size_t size = size_t{17} << 20;
  folder_.write("app.20261115.0001", "a\n" + std::string(size, 'x'));
  const auto sink = text();
  entries_.add(*sink, "m");
  EXPECT_THAT(write_error(*sink), HasSubstr("are no line of this program's"));
  EXPECT_EQ(fs::file_size(file("app.20261115.0001")), size + 2);
}

TEST_F(RecordSink, ZerosOfAPowerCutAreCutOffAndReported) {
  const std::string start = "{\"version\":\"2.0\"}\n";
  for (const size_t size : {1U, 31U, 4096U, 65536U, 100000U})
    for (const std::string& before : {std::string(), start}) {
      for (const char* tail : {"", "{\"ver"}) {
        const std::string path = file("a.json");
        folder_.write("a.json", before + tail);
        fs::resize_file(path, fs::file_size(path) + size);
        notes_.clear();
        make("json:" + path);
        EXPECT_EQ(content("a.json"), before) << size << tail;
        const size_t cut = std::strlen(tail) + size;
        EXPECT_THAT(
            notes_,
            ElementsAre(path + (*tail == '\0'
                                    ? ": zeros behind the last line were cut off, " +
                                          std::to_string(cut) + " bytes"
                                    : ": an unfinished line and the zeros behind it were "
                                      "cut off, " +
                                          std::to_string(cut) + " bytes without an end of line")));
      }
    }
  folder_.write("app.20261115.0001", line("a") + "2026-11" + std::string(size_t{17} << 20, '\0'));
  write(*text(), {"b"});
  EXPECT_EQ(content("app.20261115.0001"), line("a") + line("b"));
}

// An archive, for example.
TEST_F(RecordSink, ZerosOfOtherProgramsAreLeftAlone) {
  for (const std::string& bytes : {std::string("a line\n") + std::string(512, '\0'),
                                   std::string("\0\1", 2) + std::string(512, '\0')}) {
    folder_.write("a.json", bytes);
    EXPECT_THAT(raised_by<file_error>([&] { make("json:" + file("a.json")); }),
                HasSubstr("are no line of this program's"));
    EXPECT_EQ(content("a.json"), bytes);
  }
}

TEST_F(RecordSink, TheNoteOfADeadProcessLeadsToItsUnfinishedLine) {
  folder_.write("app.20261114.0003", "old\nunfin");
  folder_.write("app.20261113.0001", "no end");
  folder_.write("app_lock", no_note + "app.20261114.0003");
  text();
  EXPECT_EQ(content("app.20261114.0003"), "old\n");
  EXPECT_EQ(content("app.20261113.0001"), "no end");
  EXPECT_EQ(content("app_lock"), no_note);
  EXPECT_EQ(notes_.size(), 1U);
}

// Whatever the lock says, logs of its own prefix are looked at and nothing else.
TEST_F(RecordSink, NotesThatLeadNowhere) {
  fs::create_directories(file("dir/app.20261115.0002"));
  for (const char* name : {"outside", "dir/precious.bin", "dir/app", "dir/other.20261115.0001",
                           "dir/app.20261115.0001.gz", "dir/linked"})
    folder_.write(name, "no end");
  fs::create_symlink("precious.bin", file("dir/app.20261115.0003"));
  fs::create_hard_link(file("dir/linked"), file("dir/app.20261115.0004"));
  for (const std::string& note :
       {std::string("../outside"), file("outside"), std::string("app.20261115.0002"),
        std::string("precious.bin"), std::string("app"), std::string("other.20261115.0001"),
        std::string("app.20261115.0001.gz"), std::string("app.20261115.0003"),
        std::string("app.20261115.0004"), std::string("app.20261115.0009"), std::string("\xFF"),
        std::string("."), std::string(17, '\0')}) {
    folder_.write("dir/app_lock", no_note + note);
    make("text:" + file("dir/app"));
    EXPECT_EQ(content("dir/app_lock"), no_note) << note;
  }
  for (const char* name : {"outside", "dir/precious.bin", "dir/app", "dir/other.20261115.0001",
                           "dir/app.20261115.0001.gz", "dir/linked"})
    EXPECT_EQ(content(name), "no end") << name;
}

TEST_F(RecordSink, ANoteIsGoneWhenItsBatchIsWritten) {
  const auto sink = text();
  write(*sink, {"m"});
  EXPECT_EQ(content("app_lock"), no_note);
}

// --- A full disk ---

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
  EXPECT_EQ(content("app_lock"), no_note);
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
