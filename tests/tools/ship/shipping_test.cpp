// What a run sends and counts as given up, and what is left when it dies.
#include "tools/ship/shipping.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "recording/journal/upkeep.h"
#include "recording/text/check_sum.h"
#include "tests/support/ending.h"
#include "tests/support/failing.h"
#include "tests/tools/ship/shipped_journal.h"

using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

// Keeps what it has in a file, which outlives the process that sends. That has the lines of
// records and positions.
class engine_in_a_file : public ship_engine {
 public:
  explicit engine_in_a_file(std::string path) : path_(std::move(path)) {}

  std::optional<std::vector<segment_position>> positions(const journal_identity&) override {
    std::map<std::string, segment_position> all;
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);) {
      std::istringstream words(line);
      segment_position one;
      line_extent& extent = one.extent;
      if (words >> one.segment >> one.first >> extent.lines >> extent.bytes >> extent.last >>
          extent.digest)
        all[one.segment] = one;
    }
    std::vector<segment_position> last;
    for (const auto& [name, one] : all) last.push_back(one);
    return last;
  }
  void offer(const record_kit&) override {}
  store_result store(const ship_batch& batch) override {
    std::ofstream file(path_, std::ios::app);
    const auto& [segment, first, extent] = batch.after;
    for (const shipped_record& record : batch.records)
      file << "record " << segment << ":" << record.line << "\n";
    file << segment << " " << first << " " << extent.lines << " " << extent.bytes << " "
         << extent.last << " " << extent.digest << "\n";
    return {};
  }
  void tell(const journal_identity&, const journal_state& state) override { told = state; }

  std::vector<std::string> records() const {
    std::vector<std::string> all;
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);)
      if (line.starts_with("record ")) all.push_back(line.substr(7));
    return all;
  }

  std::optional<journal_state> told;

 private:
  std::string path_;
};

class Shipping : public ShippedJournal {
 protected:
  static constexpr const char* address = "nats://broker";

  static std::string notes(unsigned count) {
    std::string lines;
    for (unsigned number = 0; number < count; ++number)
      lines += stored_note(std::to_string(number)) + "\n";
    return lines;
  }
  std::string sent_name() const { return sent_positions_name("app", address, "web1"); }
  std::string noted() const { return file(sent_name() + ".given_up"); }
  sent_positions saved() const {
    return sent_positions_of(read_whole_file(file(sent_name()))).value_or(sent_positions{});
  }
  // A run of its own that sends all that there is; what the engine was told in the end.
  journal_state ship() {
    engine_in_a_file engine(outside_.file("engine"));
    std::ostringstream log;
    const report_options options;
    emit_report report(log, options, false);
    ship_tally tally;
    shipping run(engine, events(), {}, {folder_.path(), "app"}, {"web1", folder_.file("app")},
                 address, report, tally, {});
    while (run.step()) {
    }
    run.tell();
    log_ = log.str();
    return engine.told.value_or(journal_state{});
  }
  std::vector<std::string> records() const {
    return engine_in_a_file(outside_.file("engine")).records();
  }
  void keep_up(const journal_rules& rules) const {
    journal_upkeep all({folder_.path(), "app"}, rules);
    while (all.step().count() == 0) {
    }
  }
  void remove_all() const {
    for (const temp_folder* folder : {&folder_, &outside_})
      for (const auto& entry : fs::directory_iterator(folder->path())) fs::remove(entry.path());
  }

  temp_folder outside_;
  std::string log_;  // of the last run
};

TEST_F(Shipping, WhatWasGivenUpIsCountedAndItsNotesGo) {
  write(next_day, notes(3));
  write(sent_name() + ".given_up", std::string(one) + " 40 0\n" + two + " 2 0\n");
  EXPECT_EQ(ship().given_up, 42U);
  EXPECT_TRUE(saved().is_given_up_exact);
  EXPECT_FALSE(fs::exists(noted()));
  write(sent_name() + ".given_up", std::string(two) + " ?\n");
  const journal_state state = ship();
  EXPECT_EQ(state.given_up, 43U);
  EXPECT_FALSE(state.is_given_up_exact);
  EXPECT_EQ(ship().given_up, 43U);
  EXPECT_FALSE(fs::exists(noted()));
  EXPECT_EQ(saved().notes, counted_notes{});
}

TEST_F(Shipping, AFileOfPositionsThatIsDamagedCountsForNothingAndIsTold) {
  write(next_day, notes(3));
  ship();
  EXPECT_THAT(log_, IsEmpty());
  const std::string good = read_whole_file(file(sent_name()));
  write(sent_name(), good.substr(0, good.size() / 2));
  ship();
  EXPECT_EQ(log_, "kplog: " + file(sent_name()) + " is damaged: what it said is not known\n");
  EXPECT_EQ(read_whole_file(file(sent_name())), good);
  ship();
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(Shipping, WhatIsNoFileOfPositionsIsRefusedAtOnce) {
  write(next_day, notes(3));
  const std::string path = file(sent_name());
  const auto error = [this] {
    try {
      ship();
    } catch (const file_error& fault) {
      return std::string(fault.what());
    }
    return std::string();
  };
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_THAT(error(), HasSubstr(path + ": it is no regular file"));
  fs::remove(path);
  outside_.write("precious", "mine");
  fs::create_symlink(outside_.file("precious"), path);
  EXPECT_THAT(error(), HasSubstr(path));
  EXPECT_EQ(read_whole_file(outside_.file("precious")), "mine");
  fs::remove(path);
  write(sent_name(), "");
  fs::resize_file(path, (uintmax_t{64} << 20) + 1);
  EXPECT_THAT(error(), HasSubstr(path + ": it has more than 64 MiB"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(Shipping, NotesThatAreInTheSavedSumAreNotCountedAgain) {
  const std::string counted = std::string(one) + " 40 0\n";
  write(next_day, notes(3));
  write(sent_name() + ".given_up", counted);
  ship();
  sent_positions before = saved();
  before.notes = {counted.size(), check_sum(counted)};
  write(sent_name(), text_of(before));
  write(sent_name() + ".given_up", counted);
  EXPECT_EQ(ship().given_up, 40U) << "as a death before they were removed leaves it";
  EXPECT_FALSE(fs::exists(noted()));
  write(sent_name(), text_of(before));
  write(sent_name() + ".given_up", counted + two + " 2 0\n");
  EXPECT_EQ(ship().given_up, 42U) << "others were noted meanwhile";
  write(sent_name(), text_of(before));
  write(sent_name() + ".given_up", std::string(two) + " 3 0\n");
  EXPECT_EQ(ship().given_up, 43U) << "the notes were removed, and others came";
}

TEST_F(Shipping, ANoteThatWasCutShortTellsNothing) {
  write(next_day, notes(3));
  write(sent_name() + ".given_up", std::string(one) + " 40 0\n" + two + " 2 0");
  EXPECT_EQ(ship().given_up, 40U);
  write(sent_name() + ".given_up", "app.2026\n" + std::string(one) + "\n" + one + " -1 0\n" + one +
                                       " 1\n" + one + " 1 -1\n" + one + " 1 0 \n \n\n");
  EXPECT_EQ(ship().given_up, 40U);
  EXPECT_FALSE(fs::exists(noted()));
}

TEST_F(Shipping, ANoteBehindOneThatWasCutShortIsWhole) {
  write(one, notes(4));
  write(two, notes(5));
  write(next_day, notes(3));
  keep_up({});
  write(sent_name(), text_of({.to = address, .host = "web1"}));
  write(sent_name() + ".given_up", "app.20261114.0001.jsonl 7 0\napp.20261114.00");
  keep_up({.keep_size = 1});
  EXPECT_EQ(read_whole_file(noted()),
            "app.20261114.0001.jsonl 7 0\n" + std::string(one) + " 4 0\n" + two + " 5 0\n");
  EXPECT_EQ(ship().given_up, 16U);
}

#ifdef KP_FAULTS

TEST_F(Shipping, WheneverARunDiesWhatWasGivenUpIsCountedOnce) {
  bool is_ended = true;
  for (unsigned call = 1; is_ended; call += fault_step) {
    SCOPED_TRACE(call);
    remove_all();
    write(one, notes(50));
    ship();
    const sent_positions before = saved();
    ASSERT_EQ(before.segments.at(one).position.extent.lines, 50U);
    fs::remove(file(one));
    write(next_day, notes(3));
    write(sent_name() + ".given_up", std::string(one) + " 40 50\n" + two + " 2 0\n");
    is_ended = ends_at_call(call, [this] { ship(); });
    const journal_state state = ship();
    EXPECT_EQ(state.given_up, 42U);
    EXPECT_TRUE(state.is_given_up_exact);
    EXPECT_EQ(saved().given_up, 42U);
    EXPECT_FALSE(fs::exists(noted()));
    EXPECT_EQ(ship().given_up, 42U);
    EXPECT_EQ(records().size(), 53U);
  }
}

TEST_F(Shipping, WheneverTheUpkeepDiesEachRecordIsSentOrGivenUp) {
  bool is_ended = true;
  for (unsigned call = 1; is_ended; call += fault_step) {
    for (const bool is_sent_between : {false, true}) {
      SCOPED_TRACE(std::to_string(call) + (is_sent_between ? ", sent between" : ""));
      remove_all();
      write(one, notes(40));
      write(two, notes(30));
      write(next_day, notes(3));
      keep_up({});
      write(sent_name(), text_of({.to = address, .host = "web1"}));
      is_ended = ends_at_call(call, [this] { keep_up({.keep_size = 1}); });
      if (is_sent_between) ship();
      keep_up({.keep_size = 1});
      EXPECT_FALSE(fs::exists(file(one)));
      const journal_state state = ship();
      EXPECT_EQ(records().size() + state.given_up, 73U);
      EXPECT_TRUE(state.is_given_up_exact);
      EXPECT_TRUE(is_sent_between || state.given_up == 70U) << state.given_up;
    }
  }
}

#endif
