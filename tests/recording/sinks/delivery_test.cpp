// Events of a ring, which are in each output once whenever the process that writes them ends.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstddef>
#include <fstream>

#include "recording/files/delivery_note.h"
#include "tests/recording/files/failing_file_calls.h"
#include "tests/recording/sinks/test_recorder.h"
#include "tests/support/counter_folder.h"
#include "tests/support/ending.h"
#include "tests/support/failing.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

class Delivery : public testing::Test {
 protected:
  static constexpr uint64_t before = 3;  // events that are in the outputs
  static constexpr uint64_t all = 11;

  std::vector<const test_output*> outputs() const { return {&text_, &json_, &counts_, &journal_}; }
  // Nothing but the ring and the first events.
  void prepare(const test_output& output) {
    for (const std::string& name : all_files_in(folder_.path()))
      if (name != "ring") fs::remove(folder_.file(name));
    ring_.start()->set_delivered(output.number(), 0);
    output.deliver(before, false, report_);
  }
  void deliver(const test_output& output, bool synced = false) {
    output.deliver(all, synced, report_);
  }
  // Of outputs that were never interrupted.
  std::vector<std::string> events_of(const test_output& output, uint64_t last) {
    prepare(output);
    output.deliver(last, false, report_);
    return output.events();
  }
  uint64_t delivered(const test_output& output) const {
    return ring_.start()->delivered_in(output.number());
  }
  bool has_note(const test_output& output) const { return output.lock() != folder_lock::mark; }
  std::string file(const std::string& name) const { return folder_.file(name); }

  temp_folder folder_;
  test_ring ring_{folder_.file("ring")};
  std::vector<std::string> notes_;
  test_output::reporter report_ = [this](const std::string& note) { notes_.push_back(note); };
  test_text_output text_{folder_, ring_};
  test_json_output json_{folder_, ring_};
  test_count_output counts_{folder_, ring_};
  test_journal_output journal_{folder_, ring_};
};

#ifdef KP_FAULTS

// A delivery whose events are in the output, when the ring does not know it and the note is left.
class LeftDelivery : public Delivery {
 protected:
  void leave(const test_output& output) {
    prepare(output);
    const failing not_taken_away(kp_fault_call::ftruncate, 1, EIO);
    deliver(output);
    EXPECT_TRUE(has_note(output));
    ring_.start()->set_delivered(output.number(), before);
  }
  // Everything is left as it is but for the note, and this is told, once for each name.
  void expect_doubt(const test_output& output, const std::vector<std::string>& names,
                    const std::string& reason) {
    notes_.clear();
    const std::vector<std::string> events = output.events();
    output.settle(report_);
    EXPECT_FALSE(has_note(output));
    EXPECT_EQ(output.events(), events);
    std::vector<std::string> expected;
    for (const std::string& name : names)
      expected.push_back(file(name) + ": the events 4 to 11 of the recorder " +
                         std::string(32, 'a') + " may be there twice, or be missing: " + reason);
    EXPECT_EQ(notes_, expected);
  }
  void expect_unbelieved(const std::string& fault) {
    for (const test_output* output : outputs()) {
      leave(*output);
      spoil_();
      expect_doubt(*output, {"app"}, "the ring " + file("ring") + " " + fault);
      fs::remove(file("ring"));
      fs::rename(file("kept"), file("ring"));
    }
  }
  // What becomes of the ring's file, which is kept beside it.
  void spoil(const std::function<void()>& how) {
    spoil_ = [this, how] {
      fs::rename(file("ring"), file("kept"));
      how();
    };
  }
  // Writes a note as a delivery to these files would.
  void write_note(const std::vector<noted_file>& files) {
    delivery_note_lines lines(ring_.batch(0, before + 1, all));
    for (const noted_file& noted : files) lines.add(noted);
    folder_lock(folder_.path(), "app").add_to_note(lines.take(), false);
  }
  noted_file noted(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(file(name).c_str(), &status), 0) << name;
    return {.name = name,
            .device = status.st_dev,
            .inode = status.st_ino,
            .size = 0,
            .appended = 1000,
            .is_new = true};
  }

  std::function<void()> spoil_;
};

TEST_F(LeftDelivery, WhoseNoteCannotBeTakenAwayIsDone) {
  for (const test_output* output : outputs()) {
    leave(*output);
    const std::vector<std::string> events = output->events();
    ring_.start()->set_delivered(output->number(), all);
    output->settle(report_);
    EXPECT_FALSE(has_note(*output));
    EXPECT_EQ(output->events(), events);
  }
  EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(LeftDelivery, IsTakenBackAndComesAgain) {
  for (const test_output* output : outputs()) {
    const std::vector<std::string> old_events = events_of(*output, before);
    leave(*output);
    const std::vector<std::string> all_events = output->events();
    output->settle(report_);
    EXPECT_EQ(output->events(), old_events);
    leave(*output);
    deliver(*output);
    EXPECT_EQ(output->events(), all_events);
  }
  EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(LeftDelivery, OfARingThatIsNotBelievedStaysAndIsTold) {
  spoil([] {});
  expect_unbelieved("is gone");
  spoil([&] { folder_.write("ring", "kplog ring 1\n"); });
  expect_unbelieved("is no ring");
  spoil([&] { folder_.write("ring", std::string(4096, 'x')); });
  expect_unbelieved("is no ring");
  spoil([&] { test_ring(file("ring"), 'b'); });
  expect_unbelieved("is another recorder's by now");
  spoil([&] { fs::create_symlink("kept", file("ring")); });
  expect_unbelieved("is no regular file");
  spoil([&] { fs::create_directory(file("ring")); });
  expect_unbelieved("is no regular file");
  spoil([&] { EXPECT_EQ(mkfifo(file("ring").c_str(), 0600), 0); });
  expect_unbelieved("is no regular file");
  spoil([&] { fs::create_hard_link(file("kept"), file("ring")); });
  expect_unbelieved("has other names");
  spoil([&] {
    fs::copy_file(file("kept"), file("ring"));
    ring_start* const start = ring_.start();
    const std::vector<uint64_t> gone_on(ring_start::outputs, before + 1);
    std::fstream(file("ring"))
        .seekp(offsetof(ring_start, delivered))
        .write(reinterpret_cast<const char*>(gone_on.data()), sizeof start->delivered);
  });
  expect_unbelieved("has gone on without them");
}

TEST_F(LeftDelivery, OfAnotherUsersRingIsNotBelieved) {
  const auto fault_of = [](const std::string& path) {
    return ask_ring(path, std::string(32, 'a'), 0).fault;
  };
  const bool is_administrator = geteuid() == 0;
  const std::string others = is_administrator ? ring_.path() : "/etc/passwd";
  ASSERT_TRUE(!is_administrator || chown(others.c_str(), 65534, 65534) == 0);
  EXPECT_EQ(fault_of(others), "is another user's");
}

TEST_F(LeftDelivery, AsksARingOfTheProcessInMemory) {
  own_rings::add(ring_.start(), ring_.path());
  EXPECT_EQ(ask_ring("", ring_.start()->identity(), 0).delivered, ring_.start()->delivered_in(0));
  // Another's identity does not open its file.
  EXPECT_EQ(ask_ring(ring_.path(), std::string(32, 'b'), 0).fault, "is another recorder's by now");
  leave(text_);
  fs::remove(ring_.path());
  text_.settle(report_);
  EXPECT_THAT(notes_, IsEmpty());
  own_rings::remove(ring_.start());
  EXPECT_EQ(ask_ring(ring_.path(), ring_.start()->identity(), 0).fault, "is gone");
  EXPECT_EQ(ask_ring("ring", ring_.start()->identity(), 0).fault, "has no absolute path");
}

TEST_F(LeftDelivery, ToAFileThatOthersChangedStaysAndIsTold) {
  const std::string path = file("app");
  leave(json_);
  fs::rename(path, file("moved"));
  expect_doubt(json_, {"app"}, "it was moved, removed or replaced");
  leave(json_);
  fs::copy_file(path, file("copy"));
  fs::rename(file("copy"), path);
  expect_doubt(json_, {"app"}, "it was moved, removed or replaced");
  leave(json_);
  fs::resize_file(path, 10);
  folder_.write("app", read_whole_file(path).substr(0, 10) + "\n");
  expect_doubt(json_, {"app"}, "it was cut short");
  leave(json_);
  std::ofstream(path, std::ios::app) << "{\"version\":\n";
  expect_doubt(json_, {"app"}, "others have written to it");
  leave(json_);
  std::string lines = read_whole_file(path);
  for (char& byte : lines)
    if (byte == '\n' && &byte != &lines.back()) byte = ' ';
  folder_.write("app", lines);
  expect_doubt(json_, {"app"}, "it was changed");
}

TEST_F(LeftDelivery, LeavesTheCountsThatOthersChanged) {
  const std::vector<std::string> old_events = events_of(counts_, before);
  leave(counts_);
  const std::string changed = counter_record(2026, 11, 14, 2, 77);
  std::string bytes = read_whole_file(file("app.cnt"));
  size_t at = 0;
  visit_counts(bytes, [&](const counted_entries& record, size_t offset) {
    if (record.id == 2 && record.day.day == 14) at = offset;
  });
  bytes.replace(at, changed.size(), changed);
  folder_.write("app.cnt", bytes);
  counts_.settle(report_);
  std::vector<std::string> expected = old_events;
  for (std::string& event : expected)
    if (event.starts_with("2026-11-14 2 ")) event = "2026-11-14 2 77";
  EXPECT_EQ(counts_.events(), expected);
  EXPECT_THAT(notes_, ElementsAre(testing::EndsWith("may be there twice, or be missing: it was "
                                                    "changed")));
}

TEST_F(LeftDelivery, IsSettledByWhoeverHasTheLockNext) {
  // Texts and counts of a name have one lock.
  const std::vector<std::string> texts = events_of(text_, before);
  leave(text_);
  counts_.settle(report_);
  EXPECT_EQ(text_.events(), texts);
  const std::vector<std::string> counts = events_of(counts_, before);
  leave(counts_);
  text_.settle(report_);
  EXPECT_EQ(counts_.events(), counts);
  EXPECT_FALSE(has_note(text_));
  EXPECT_THAT(notes_, IsEmpty());
  // So have the stored form and logs.
  leave(json_);
  text_.settle(report_);
  EXPECT_EQ(json_.events(), events_of(json_, before));
}

TEST_F(LeftDelivery, CountsCutAnUnfinishedLineOffBeforeTheyAreNoted) {
  prepare(counts_);
  folder_.write("app.20261115.0001", "line\nunfinish");
  folder_lock(folder_.path(), "app").write_note("app.20261115.0001");
  deliver(counts_);
  EXPECT_EQ(read_whole_file(file("app.20261115.0001")), "line\n");
  EXPECT_EQ(notes_.size(), 1U);
}

TEST_F(LeftDelivery, LeadsToFilesOfTheLockAlone) {
  prepare(text_);
  const std::vector<std::string> names = {"other", "other.20261115.0001", "app.txt", "app.cnt"};
  for (const std::string& name : names) folder_.write(name, "content\n");
  fs::create_symlink("other", file("app.20261117.0001"));
  fs::create_hard_link(file("app.txt"), file("app.20261118.0001"));
  fs::create_directory(file("app.20261119.0001"));
  EXPECT_EQ(mkfifo(file("app.20261120.0001").c_str(), 0600), 0);
  std::vector<noted_file> files;
  for (const std::string& name : names) files.push_back(noted(name));
  files.push_back(noted("app.20261117.0001"));
  for (const char* name : {"app.20261118.0001", "app.20261119.0001", "app.20261120.0001",
                           "app_lock", "../", "/etc/passwd", "", ".", "app.20261121.0001"}) {
    files.push_back(noted("other"));
    files.back().name = name;
  }
  files.push_back(noted("other"));
  files.back().name = fs::path(folder_.path()).filename().string() + "/other";
  files.push_back(noted("other"));
  files.back().replaced = {{0, "bad", "con"}};
  write_note(files);
  const std::string log = read_whole_file(file("app.20261115.0001"));
  text_.settle(report_);
  EXPECT_EQ(notes_.size(), files.size());
  EXPECT_EQ(read_whole_file(file("app.20261115.0001")), log);
  EXPECT_FALSE(has_note(text_));
  for (const std::string& name : names) EXPECT_EQ(read_whole_file(file(name)), "content\n") << name;
}

TEST_F(LeftDelivery, ThatIsDamagedStaysAndIsTold) {
  leave(text_);
  const std::string lock = text_.lock();
  const size_t second = lock.find('\n', folder_lock::mark.size()) + 1;
  std::string damaged = lock;
  damaged[second] = 'x';
  folder_.write("app_lock", damaged);
  expect_doubt(text_, {"app"}, "the ring " + ring_.path() + " is named by a damaged note");
  leave(text_);
  damaged = lock;
  damaged[folder_lock::mark.size() + 12] = 'x';
  folder_.write("app_lock", damaged);
  notes_.clear();
  text_.settle(report_);
  EXPECT_THAT(notes_, ElementsAre(file("app") + ": the note in its lock is damaged; events may be "
                                                "there twice, or be missing"));
}

TEST_F(LeftDelivery, OfWhichAnyCallFailsIsTakenBackOrDone) {
  for (const test_output* output : outputs()) {
    const std::vector<std::string> old_events = events_of(*output, before);
    const std::vector<std::string> all_events = events_of(*output, all);
    prepare(*output);
    for_each_failing_file_call(
        1, [&] { deliver(*output, output == &json_); },
        [&](const std::string& text) {
          EXPECT_EQ(delivered(*output), text.empty() ? all : before) << text;
          EXPECT_EQ(output->events(), text.empty() ? all_events : old_events) << text;
          deliver(*output);
          EXPECT_EQ(output->events(), all_events) << text;
          prepare(*output);
        });
    EXPECT_THAT(notes_, IsEmpty());
  }
}

TEST_F(LeftDelivery, IsSettledWhateverFailsBefore) {
  for (const test_output* output : outputs()) {
    const std::vector<std::string> old_events = events_of(*output, before);
    leave(*output);
    for_each_failing_file_call(
        1, [&] { output->settle(report_); },
        [&](const std::string& text) {
          output->settle(report_);
          EXPECT_EQ(output->events(), old_events) << text;
          leave(*output);
        });
    EXPECT_THAT(notes_, IsEmpty());
  }
}

#endif

TEST_F(Delivery, ThatDoesNotFitOnTheDiskIsTakenBack) {
  for (const test_output* output : outputs()) {
    const std::vector<std::string> old_events = events_of(*output, before);
    const std::vector<std::string> all_events = events_of(*output, all);
    for (rlim_t room = 0; room < 1500; room += 97) {
      prepare(*output);
      std::string error;
      {
        const small_disk limit(room);
        try {
          deliver(*output);
        } catch (const file_error& raised) {
          error = raised.what();
        }
      }
      EXPECT_EQ(delivered(*output), error.empty() ? all : before) << error;
      EXPECT_EQ(output->events(), error.empty() ? all_events : old_events) << error;
      deliver(*output);
      EXPECT_EQ(output->events(), all_events);
    }
  }
}

TEST_F(Delivery, IsInTheOutputAndToldToTheRing) {
  for (const test_output* output : outputs())
    for (const bool synced : {false, true}) {
      prepare(*output);
      EXPECT_EQ(delivered(*output), before);
      deliver(*output, synced);
      EXPECT_EQ(delivered(*output), all);
      EXPECT_EQ(output->lock(), folder_lock::mark);
    }
  EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(Delivery, OfNothingIsToldToTheRing) {
  make_record_sink("text:" + file("app"), {})->write(false, nullptr);
  const delivery of = ring_.batch(0, 1, 7);
  make_record_sink("text:" + file("app"), {})->write(true, &of);
  const delivery counted = ring_.batch(2, 1, 8);
  counter_writer(file("app")).write(false, &counted);
  EXPECT_EQ(delivered(text_), 7U);
  EXPECT_EQ(delivered(counts_), 8U);
}

#ifdef KP_FAULTS

struct ending_way {
  bool is_synced = false;
  bool is_store_lost = false;  // it ended just before it told the ring
  bool is_torn = false;        // and when the first lines, and the first of the note, were not out
};

static constexpr ending_way ending_ways[] = {
    {}, {.is_torn = true}, {.is_store_lost = true}, {.is_synced = true, .is_store_lost = true}};

class EndingDelivery : public Delivery {
 protected:
  // Prepares the output and ends a process at its n-th call while it delivers; false where it came
  // to its end.
  bool end_at(unsigned n, const test_output& output, const ending_way& way) {
    prepare(output);
    const bool is_ended = ends_at_call(n, [&] {
      const unsigned torn = way.is_torn ? 1 : 0;
      const failing torn_lines(kp_fault_call::write, torn, EINTR, 1, 30);
      const failing torn_note(kp_fault_call::pwrite, torn, EINTR, 1, 60);
      deliver(output, way.is_synced);
    });
    if (way.is_store_lost && has_note(output))
      ring_.start()->set_delivered(output.number(), before);
    return is_ended;
  }
  void expect_settled(const test_output& output, const std::vector<std::string>& old_events,
                      const std::vector<std::string>& all_events) {
    output.settle(report_);
    EXPECT_FALSE(has_note(output)) << output.lock();
    EXPECT_EQ(output.events(), delivered(output) == all ? all_events : old_events);
    deliver(output);
    EXPECT_EQ(output.events(), all_events);
    EXPECT_EQ(delivered(output), all);
    EXPECT_THAT(notes_, IsEmpty());
  }
  void end_at_each_call(const test_output& output) {
    const std::vector<std::string> old_events = events_of(output, before);
    const std::vector<std::string> all_events = events_of(output, all);
    for (const ending_way& way : ending_ways) {
      unsigned n = 1;
      while (end_at(n++, output, way)) expect_settled(output, old_events, all_events);
      EXPECT_EQ(output.events(), all_events);
      EXPECT_GT(n, 15U);
    }
  }
  // The first, a middle and the last call of a delivery at whose end a note is left.
  std::vector<unsigned> calls_with_notes(const test_output& output) {
    std::vector<unsigned> calls;
    for (unsigned n = 1; end_at(n, output, way_); ++n)
      if (has_note(output)) calls.push_back(n);
    EXPECT_GT(calls.size(), 1U);
    return {calls.front(), calls[calls.size() / 2], calls.back()};
  }
  // The settling ends at each of its calls as well.
  void end_twice(const test_output& output) {
    const std::vector<std::string> old_events = events_of(output, before);
    const std::vector<std::string> all_events = events_of(output, all);
    for (const unsigned n : calls_with_notes(output)) {
      end_at(n, output, way_);
      for (unsigned m = 1; ends_at_call(m, [&] { output.settle(report_); }); m += fault_step) {
        expect_settled(output, old_events, all_events);
        end_at(n, output, way_);
      }
    }
  }

  const ending_way way_ = {.is_store_lost = true};
};

TEST_F(EndingDelivery, AtAnyCallLeavesEveryTextOnce) {
  end_at_each_call(text_);
}

TEST_F(EndingDelivery, AtAnyCallLeavesEveryStoredFormOnce) {
  end_at_each_call(json_);
}

TEST_F(EndingDelivery, AtAnyCallLeavesEveryCountOnce) {
  end_at_each_call(counts_);
}

TEST_F(EndingDelivery, AtAnyCallLeavesEveryRecordOfAJournalOnce) {
  end_at_each_call(journal_);
}

TEST_F(EndingDelivery, TextIsSettledByAProcessThatEndsToo) {
  end_twice(text_);
}

TEST_F(EndingDelivery, TheStoredFormIsSettledByAProcessThatEndsToo) {
  end_twice(json_);
}

TEST_F(EndingDelivery, AJournalIsSettledByAProcessThatEndsToo) {
  end_twice(journal_);
}

TEST_F(EndingDelivery, CountsAreSettledByAProcessThatEndsToo) {
  end_twice(counts_);
}

#endif
