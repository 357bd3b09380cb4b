// Batches and counts, when the system refuses something.
#include <filesystem>

#include "recording/sinks/counter_writer.h"
#include "tests/recording/files/failing_file_calls.h"
#include "tests/recording/sinks/sink_fixture.h"
#include "tests/support/counter_folder.h"

namespace fs = std::filesystem;

#ifdef KP_FAULTS

// The file's name and content, of every file.
static std::map<std::string, std::string> contents_of(const std::string& folder) {
  std::map<std::string, std::string> contents;
  for (const std::string& name : files_in(folder))
    contents[name] = read_whole_file(folder + "/" + name);
  return contents;
}

static void put_back(const temp_folder& folder,
                     const std::map<std::string, std::string>& contents) {
  for (const std::string& name : all_files_in(folder.path()))
    if (!contents.contains(name)) fs::remove(folder.file(name));
  for (const auto& [name, content] : contents) folder.write(name, content);
}

// The actions of "CALL: cannot ACTION PATH: REASON", each once.
static std::set<std::string> actions_of(const std::set<std::string>& texts,
                                        const std::string& folder) {
  std::set<std::string> actions;
  for (const std::string& text : texts) {
    const size_t path = text.find(" " + folder);
    EXPECT_NE(path, std::string::npos) << text;
    EXPECT_TRUE(text.ends_with(": Input/output error")) << text;
    actions.insert(text.substr(0, path));
  }
  return actions;
}

class FailingSink : public RecordSink {
 protected:
  // Writes batches over two days and several files with every call failing in turn. A batch that
  // failed leaves the files as they were and can be written again.
  std::set<std::string> fail_each(const std::string& description) {
    const auto prepared = [&] {
      put_back(folder_, before_);
      return make(description);
    };
    auto sink = prepared();
    write(*sink, {"a"});
    before_ = contents_of(folder_.path());
    add_batch(*(sink = prepared()));
    const size_t size = sink->pending();
    sink->write(false);
    const std::map<std::string, std::string> after = contents_of(folder_.path());
    add_batch(*(sink = prepared()));
    const auto check = [&](const std::string& text) {
      if (!text.empty()) {
        EXPECT_EQ(contents_of(folder_.path()), before_) << text;
        EXPECT_EQ(sink->pending(), size) << text;
        sink->write(false);
      }
      EXPECT_EQ(contents_of(folder_.path()), after) << text;
      EXPECT_EQ(sink->pending(), 0U);
      add_batch(*(sink = prepared()));
    };
    return actions_of(for_each_failing_file_call(
                          1, [&] { sink->write(false); }, check),
                      folder_.path());
  }

 private:
  void add_batch(record_sink& sink) {
    for (const char* message : {"b", "c", "d"}) entries_.add(sink, message);
    entries_.add(sink, "e", "2026-11-14T17:02:56+08:00");
  }

  std::map<std::string, std::string> before_;
};

static const std::set<std::string> dated_actions = {"open: cannot open the folder",
                                                    "openat: cannot open the lock",
                                                    "fstat: cannot take the lock",
                                                    "flock: cannot take the lock",
                                                    "fstatat: cannot take the lock",
                                                    "pread: cannot take the lock",
                                                    "pwrite: cannot write the lock",
                                                    "ftruncate: cannot write the lock",
                                                    "openat: cannot read the folder",
                                                    "fdopendir: cannot read the folder",
                                                    "readdir: cannot read the folder",
                                                    "openat: cannot open",
                                                    "fstat: cannot open",
                                                    "pread: cannot append to",
                                                    "write: cannot write"};

TEST_F(FailingSink, ABatchOfTextIsTakenBackFromAllItsLogs) {
  EXPECT_EQ(fail_each("text:" + file("app") + ",max-size=" + std::to_string(2 * line("a").size())),
            dated_actions);
}

TEST_F(FailingSink, ABatchOfAJournalIsTakenBackFromAllItsSegments) {
  EXPECT_EQ(fail_each("journal:" + file("app") + ",max-size=300"), dated_actions);
}

TEST_F(FailingSink, ABatchOfTheStoredFormIsTakenBack) {
  EXPECT_EQ(fail_each("json:" + file("app.json")),
            (std::set<std::string>{"open: cannot open the folder", "openat: cannot open the lock",
                                   "fstat: cannot take the lock", "flock: cannot take the lock",
                                   "fstatat: cannot take the lock", "pread: cannot take the lock",
                                   "openat: cannot open", "fstat: cannot open",
                                   "pread: cannot append to", "write: cannot write"}));
}

// --- Counts ---

class FailingCounts : public testing::Test {
 protected:
  static kp_Time day_of(unsigned short number) { return kp_Time(2026, 11, number, 12, 0, 0); }
  static std::string sound() {
    return counter_record(2026, 11, 15, 1, 1) + counter_record(0, 0, 0, 0, 0) +
           counter_record(2026, 11, 15, 2, 1);
  }

  temp_folder folder_;
};

// Three keys: one that is there, one for the free slot, one for the end.
TEST_F(FailingCounts, NothingIsLostOrCountedTwice) {
  const std::map<std::string, std::string> before = {{"c.cnt", sound()}};
  const std::string after = counter_record(2026, 11, 15, 1, 3) +
                            counter_record(2026, 11, 15, 3, 1) +
                            counter_record(2026, 11, 15, 2, 1) + counter_record(2026, 11, 16, 1, 1);
  std::unique_ptr<counter_writer> counts;
  const auto prepare = [&] {
    put_back(folder_, before);
    counts = std::make_unique<counter_writer>(folder_.file("c"));
    for (const uint32_t id : {1U, 1U, 3U}) counts->add(day_of(15), id);
    counts->add(day_of(16), 1);
  };
  prepare();
  const std::set<std::string> texts = for_each_failing_file_call(
      1, [&] { counts->write(true); },
      [&](const std::string& text) {
        if (!text.empty()) counts->write(false);
        EXPECT_EQ(read_whole_file(folder_.file("c.cnt")), after) << text;
        counts.reset();
        prepare();
      });
  EXPECT_EQ(actions_of(texts, folder_.path()),
            (std::set<std::string>{"flock: cannot take the lock", "fstatat: cannot take the lock",
                                   "pread: cannot take the lock", "pread: cannot count in",
                                   "pwrite: cannot count in", "fdatasync: cannot count in"}));
}

// The others' records are left where they are, and no part of one is left behind them.
TEST_F(FailingCounts, ARecordThatDoesNotFitIsNotTornOff) {
  for (size_t room = 0; room < 32; ++room) {
    folder_.write("c.cnt", counter_record(2026, 11, 15, 1, 1));
    counter_writer counts(folder_.file("c"));
    counts.add(day_of(16), 2);
    {
      const small_disk limit(32 + room);
      EXPECT_EQ(raised_by<file_error>([&] { counts.write(false); }),
                "cannot count in " + folder_.file("c.cnt") + ": File too large");
    }
    EXPECT_EQ(read_whole_file(folder_.file("c.cnt")), counter_record(2026, 11, 15, 1, 1)) << room;
    counts.write(false);
    EXPECT_EQ(read_whole_file(folder_.file("c.cnt")),
              counter_record(2026, 11, 15, 1, 1) + counter_record(2026, 11, 16, 2, 1));
  }
}

TEST_F(FailingCounts, AFailedStartLeavesTheFile) {
  folder_.write("c.cnt", sound());
  const std::set<std::string> texts = for_each_failing_file_call(
      1, [&] { counter_writer(folder_.file("c")); },
      [&](const std::string& text) {
        EXPECT_EQ(read_whole_file(folder_.file("c.cnt")), sound()) << text;
      });
  EXPECT_EQ(actions_of(texts, folder_.path()),
            (std::set<std::string>{"open: cannot open the folder", "openat: cannot open the lock",
                                   "fstat: cannot take the lock", "flock: cannot take the lock",
                                   "fstatat: cannot take the lock", "pread: cannot take the lock",
                                   "openat: cannot count in", "fstat: cannot count in",
                                   "pread: cannot count in"}));
}

#endif
