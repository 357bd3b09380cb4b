// Recorders that die: whatever they took comes into the outputs, once. KPLOG_DEATHS tells how many
// die; 20 without it.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <thread>

#include "logging/counter_format.h"
#include "recording/ring/recovery.h"
#include "recording/sinks/counter_record.h"
#include "tests/command/command_run.h"
#include "tests/recorder/recorder_fixture.h"

using std::chrono::microseconds;

static constexpr unsigned threads = 4;
static constexpr uint32_t each_large = 16;  // one of so many events does not fit into a block

static unsigned deaths() {
  const char* const told = std::getenv("KPLOG_DEATHS");
  return told == nullptr ? 20 : static_cast<unsigned>(std::stoul(told));
}

// What a child and its parent both see.
struct shared_counts {
  std::array<std::atomic<uint32_t>, threads> recorded = {};  // of each thread
};

// An event as it stands in the stored form, large ones of which a parser would take its time for.
struct stored_line {
  // What stands behind `"NAME":`, up to the next comma or brace.
  std::string text(const std::string& name) const {
    const size_t at = line.find('"' + name + "\":");
    if (at == std::string::npos) return "";
    const size_t begin = at + name.size() + 3;
    return line.substr(begin, line.find_first_of(",}", begin) - begin);
  }
  uint32_t number(const std::string& name) const {
    return static_cast<uint32_t>(std::stoul(text(name)));
  }
  unsigned thread() const {
    const std::string first = text("FIRST");
    return first.empty() ? number("THREAD") : static_cast<unsigned>(std::stoul(first.substr(1)));
  }
  std::string message() const {
    const std::string quoted = text("message");
    return quoted.substr(1, quoted.size() - 2);
  }

  const std::string& line;
};

class RecorderDeath : public RecorderPlace {
 protected:
  RecorderDeath()
      : counts_(new (mmap(nullptr, sizeof(shared_counts), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0)) shared_counts) {}
  ~RecorderDeath() override { munmap(counts_, sizeof(shared_counts)); }

  kp_LOG_RecorderOptions small_options() const {
    kp_LOG_RecorderOptions small = options();
    small.count = folder_.file("shop");
    small.journal = folder_.file("kept") + ",max-size=32K,compress=zstd";
    small.ring_size = 512 << 10;
    return small;
  }

  static kp_LOG_Recorded record(kp_LOG_Recorder& log, uint32_t number, unsigned thread) {
    if (number % each_large != 0) return log.Record(shop::STEP{.NUMBER = number, .THREAD = thread});
    const std::string first = std::to_string(thread) + ' ' + std::string(number % 2000, 'x');
    const std::string filler(2000, 'y');
    return log.Record(
        shop::LARGE{.NUMBER = number, .FIRST = first, .SECOND = filler, .THIRD = filler});
  }

  // Records until the process is killed.
  [[noreturn]] void record_without_end() const {
    kp_LOG_RecorderOptions silent = small_options();
    silent.on_fault = {};  // of events that are lost, and recorded again
    kp_LOG_Recorder log(silent);
    std::vector<std::thread> all;
    for (unsigned thread = 0; thread < threads; ++thread)
      all.emplace_back([&, thread] {
        for (uint32_t number = counts_->recorded[thread] + 1;; ++number) {
          while (record(log, number, thread) != kp_LOG_Recorded::recorded) {
          }
          counts_->recorded[thread].store(number);
        }
      });
    for (std::thread& thread : all) thread.join();
    _exit(0);
  }

  template <class Life>
  static void live_and_be_killed_after(microseconds life, Life live) {
    const pid_t child = fork();
    if (child == 0) {
      live();
      _exit(0);
    }
    std::this_thread::sleep_for(life);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  recovered_events recover() const {
    recovery_rules rules;
    rules.fault = [](const std::string& text) { ADD_FAILURE() << text; };
    return recover_rings(folder_.file("shop"), rules);
  }

  // By what comes next to the place, whatever that is.
  void recover_by(unsigned way) const {
    if (way == 0) {
      kp_LOG_RecorderOptions told = small_options();
      told.on_fault = [](kp_LOG_RecorderFault, const std::string& text) {
        EXPECT_THAT(text, testing::EndsWith(" recovered"));
      };
      kp_LOG_Recorder next(told);
    } else if (way == 1) {
      const command_result emitted =
          run_kplog(folder_.path(), "emit --definitions " KPLOG_SHOP_DEFINITIONS
                                    " --to text:shop --to json:shop.jsonl --count shop --quiet "
                                    "</dev/null");
      EXPECT_EQ(emitted.status, 0) << emitted.err;
      EXPECT_THAT(emitted.err, testing::Not(testing::HasSubstr("twice")));
    } else {
      recover();
    }
  }

  // Every event that a thread was told is recorded stands in the stored form once, in its order;
  // the last that nobody was told of may be there as well. Sequences have no gaps.
  void read_stored_form() {
    std::array<uint32_t, threads> last = last_;
    std::map<std::string, uint64_t> sequences;
    for (const std::string& line : lines_of(read_whole_file(folder_.file("shop.jsonl")))) {
      const stored_line event{line};
      ASSERT_EQ(event.number("sequence"), ++sequences[event.text("recorder")]);
      messages_.push_back(event.message());
      if (event.number("event") == 0) continue;
      const unsigned thread = event.thread();
      ASSERT_LT(thread, threads);
      ASSERT_EQ(event.number("NUMBER"), ++last[thread]) << "of thread " << thread;
      ++counts_by_event_[event.number("event")];
    }
    for (unsigned thread = 0; thread < threads; ++thread) {
      EXPECT_GE(last[thread], counts_->recorded[thread]);
      EXPECT_LE(last[thread], counts_->recorded[thread] + 1);
      counts_->recorded[thread] = last[thread];
    }
    last_ = last;
  }

  void expect_all_once() {
    messages_.clear();
    counts_by_event_.clear();
    read_stored_form();
    EXPECT_TRUE(messages() == messages_) << "text logs and stored form have not the same events";
    EXPECT_TRUE(journal("kept") == read_whole_file(folder_.file("shop.jsonl")))
        << "the journal and the stored form have not the same events";
    std::map<uint32_t, uint64_t> counted;
    const std::string bytes = read_whole_file(folder_.file("shop.cnt"));
    for (size_t at = 0; at < bytes.size(); at += kp_counter_record_size) {
      const counted_entries record = counter_record_at(bytes, at);
      counted[record.id] += record.count;
    }
    EXPECT_EQ(counted, counts_by_event_);
    EXPECT_THAT(rings(), testing::IsEmpty());
  }

  void remove_outputs() const {
    for (const std::string& log : files_with("shop.2")) unlink(log.c_str());
    for (const std::string& segment : files_with("kept.2")) unlink(segment.c_str());
    unlink(folder_.file("shop.jsonl").c_str());
    unlink(folder_.file("shop.cnt").c_str());
  }

  shared_counts* counts_;
  std::array<uint32_t, threads> last_ = {};  // that the outputs had in the rounds before
  std::vector<std::string> messages_;        // of the stored form
  std::map<uint32_t, uint64_t> counts_by_event_;
};

TEST_F(RecorderDeath, LosesNothingAndWritesNothingTwice) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (unsigned round = 0; round < deaths() && !HasFailure(); ++round) {
    live_and_be_killed_after(microseconds(random() % 10000), [this] { record_without_end(); });
    for (auto again = random() % 3; again != 0; --again)
      live_and_be_killed_after(microseconds(random() % 8000), [this] { recover(); });
    recover_by(static_cast<unsigned>(random() % 3));
    expect_all_once();
    remove_outputs();
  }
}
