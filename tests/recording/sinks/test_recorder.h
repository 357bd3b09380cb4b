// A recorder as far as its outputs can tell: a ring's file, numbered events, batches of them.
#ifndef TESTS_RECORDING_SINKS_TEST_RECORDER_H
#define TESTS_RECORDING_SINKS_TEST_RECORDER_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "recording/files/ring_start.h"
#include "recording/sinks/counter_writer.h"
#include "tests/recording/sinks/sink_entries.h"

// The file of a ring, mapped as its owner has it: a child of fork shares it.
class test_ring {
 public:
  explicit test_ring(const std::string& path, char digit = 'a') : path_(path) {
    const open_descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_EQ(ftruncate(file.get(), 4096), 0);
    void* const memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    EXPECT_NE(memory, MAP_FAILED);
    start_ = static_cast<ring_start*>(memory);
    ring_start::begin.copy(start_->mark, sizeof start_->mark);
    std::fill(std::begin(start_->recorder), std::end(start_->recorder), digit);
  }
  ~test_ring() { munmap(start_, 4096); }
  test_ring(const test_ring&) = delete;
  test_ring& operator=(const test_ring&) = delete;

  ring_start* start() const { return start_; }
  const std::string& path() const { return path_; }
  delivery batch(unsigned output, uint64_t first, uint64_t last) const {
    return {start_, path_, output, first, last};
  }

 private:
  std::string path_;
  ring_start* start_ = nullptr;
};

// Events 1, 2, ... of the ring, on their way into one output in a folder.
class test_output {
 public:
  using reporter = std::function<void(const std::string& note)>;

  test_output(const temp_folder& folder, const test_ring& ring, unsigned number)
      : folder_(folder), ring_(ring), number_(number) {}
  virtual ~test_output() = default;

  // As the recorder, or who follows it, does: all that the ring has behind what is delivered.
  void deliver(uint64_t last, bool synced, const reporter& report) const {
    const uint64_t first = ring_.start()->delivered_in(number_) + 1;
    if (first <= last) write(ring_.batch(number_, first, last), synced, report);
  }
  // Takes the lock and does nothing.
  virtual void settle(const reporter& report) const = 0;
  // The events that are in the output, in an order of its own.
  virtual std::vector<std::string> events() const = 0;

  unsigned number() const { return number_; }
  std::string lock() const { return read_whole_file(folder_.file(lock_name())); }
  virtual std::string lock_name() const = 0;

 protected:
  virtual void write(const delivery& of, bool synced, const reporter& report) const = 0;

  const temp_folder& folder_;
  const test_ring& ring_;

 private:
  unsigned number_;
};

// Two lines in a log, over two days.
class test_text_output : public test_output {
 public:
  test_text_output(const temp_folder& folder, const test_ring& ring, unsigned number = 0)
      : test_output(folder, ring, number) {}

  void settle(const reporter& report) const override { static_cast<void>(make(report)); }
  std::vector<std::string> events() const override {
    std::vector<std::string> events;
    for (const std::string& name : files_in(folder_.path()))
      if (name.starts_with("app.2026"))
        for (const std::string& line : lines_of(folder_.file(name)))
          events.push_back(line.substr(std::min(line_start.size(), line.size())));
    std::sort(events.begin(), events.end());
    return events;
  }
  std::string lock_name() const override { return "app_lock"; }

 protected:
  virtual std::unique_ptr<record_sink> make(const reporter& report) const {
    return make_record_sink("text:" + folder_.file("app") + ",max-size=80",
                            {.set_version = "2.0", .code_page = "", .report = report});
  }

 private:
  void write(const delivery& of, bool synced, const reporter& report) const override {
    const auto sink = make(report);
    for (uint64_t event = of.first; event <= of.last; ++event)
      entries_.add(*sink, "event " + std::to_string(event),
                   event % 3 == 0 ? "2026-11-14T17:02:56+08:00" : "2026-11-15T17:02:56+08:00");
    sink->write(synced, &of);
  }

  sink_entries entries_;
};

// From where it is told in a line of the stored form; half a line is told as it is.
inline std::string event_in(const std::string& line) {
  const size_t event = line.ends_with('}') ? line.find("event ") : std::string::npos;
  return event == std::string::npos ? line : line.substr(event);
}

class test_json_output : public test_text_output {
 public:
  test_json_output(const temp_folder& folder, const test_ring& ring)
      : test_text_output(folder, ring, 1) {}

  std::vector<std::string> events() const override {
    std::vector<std::string> events;
    for (const std::string& line : lines_of(folder_.file("app"))) events.push_back(event_in(line));
    std::sort(events.begin(), events.end());
    return events;
  }

 protected:
  std::unique_ptr<record_sink> make(const reporter& report) const override {
    return make_record_sink("json:" + folder_.file("app"),
                            {.set_version = "2.0", .code_page = "", .report = report});
  }
};

// Two records in a segment, over two days.
class test_journal_output : public test_text_output {
 public:
  test_journal_output(const temp_folder& folder, const test_ring& ring)
      : test_text_output(folder, ring, 3) {}

  std::vector<std::string> events() const override {
    std::vector<std::string> events;
    for (const std::string& name : files_in(folder_.path()))
      if (name.starts_with("app.2026"))
        for (const std::string& line : lines_of(folder_.file(name)))
          events.push_back(event_in(line));
    std::sort(events.begin(), events.end());
    return events;
  }

 protected:
  std::unique_ptr<record_sink> make(const reporter& report) const override {
    return make_record_sink("journal:" + folder_.file("app") + ",max-size=300",
                            {.set_version = "2.0", .code_page = "", .report = report});
  }
};

// Some of the keys are there before, one slot is free.
class test_count_output : public test_output {
 public:
  test_count_output(const temp_folder& folder, const test_ring& ring)
      : test_output(folder, ring, 2) {}

  void settle(const reporter& report) const override {
    counter_writer(folder_.file("app"), {}, report);
  }
  // "DAY ID COUNT"
  std::vector<std::string> events() const override {
    std::vector<std::string> events;
    visit_counts(read_whole_file(folder_.file("app.cnt")),
                 [&](const counted_entries& record, size_t) {
                   events.push_back(day_text(record.day) + " " + std::to_string(record.id) + " " +
                                    std::to_string(record.count));
                 });
    std::sort(events.begin(), events.end());
    return events;
  }
  std::string lock_name() const override { return "app_lock"; }

 private:
  void write(const delivery& of, bool synced, const reporter& report) const override {
    counter_writer counts(folder_.file("app"), {}, report);
    for (uint64_t event = of.first; event <= of.last; ++event)
      counts.add(kp_Time(2026, 11, static_cast<unsigned short>(14 + event / 5 % 2), 12, 0, 0),
                 static_cast<uint32_t>(event % 4));
    counts.write(synced, &of);
  }
};

#endif
