// Which lines of a journal are sent, where they stand, and that each is sent once.
#include "tools/ship/journal_queue.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <thread>

#include "recording/files/shared_file.h"
#include "recording/text/check_sum.h"
#include "tests/tools/ship/shipped_journal.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

// --- Records

TEST_F(ShippedJournal, RecordsTellWhereTheyStandAndWhatTheyAre) {
  write(one, stored_note("a", 5) + "\n\n" + R"({"event":"LINK_DOWN"})" + "\r\n" +
                 R"({"event":4711,"time":"0000-01-01T00:00:00+18:00"})" + "\n" +
                 R"({"event":"NOBODY"})" + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  ASSERT_TRUE(queue.fill());
  const auto records = queue.records();
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].text, stored_note("a", 5));
  EXPECT_EQ(records[0].line, 1u);
  EXPECT_EQ(records[0].digest, check_sum(stored_note("a", 5)));
  EXPECT_EQ(records[0].event, 1003u);
  EXPECT_EQ(records[0].level, 5u);
  EXPECT_EQ(records[0].time, 1794733376);
  EXPECT_EQ(records[1].text, R"({"event":"LINK_DOWN"})");
  EXPECT_EQ(records[1].line, 3u);
  EXPECT_EQ(records[1].event, 1002u);
  EXPECT_EQ(records[1].level, 3u);
  EXPECT_FALSE(records[1].time);
  EXPECT_FALSE(records[2].event);
  EXPECT_EQ(event_of_unknown(records[2].text), 4711u);
  EXPECT_EQ(records[2].time, -62167219200 - 18 * 3600);
  EXPECT_FALSE(records[3].event);
  EXPECT_EQ(event_of_unknown(records[3].text), 0u);
  EXPECT_EQ(queue.before().extent, line_extent{});
  EXPECT_EQ(queue.before().segment, one);
  EXPECT_EQ(queue.after().first, check_sum(stored_note("a", 5)));
  EXPECT_EQ(queue.after().extent.lines, 5u);
  EXPECT_EQ(queue.after().extent.bytes, fs::file_size(file(one)));
  queue.confirm(queue.after());
  EXPECT_FALSE(queue.fill());
}

TEST_F(ShippedJournal, LinesThatAreNoRecordsAreToldAndPassedOver) {
  write(one, stored_note("a") + "\nnot JSON\n" + "{\"event\":\"NOTE\",\"x\":1}\n\xff\n" +
                 std::string(3, '\0') + "\n" + stored_note("b") + "\n");
  send_anew();
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n" + stored_note("b") + "\n");
  EXPECT_THAT(bad_, ElementsAre("2: record-syntax", "3: record-key", "4: record-syntax",
                                "5: record-syntax"));
  bad_.clear();
  send_anew();
  EXPECT_THAT(bad_, IsEmpty()) << "they are behind the position";
}

TEST_F(ShippedJournal, ALineThatIsTooLongHoldsNobodyUp) {
  const std::string longest = stored_note(std::string(stored_record_size_limit / 2 - 200, 'x'));
  ASSERT_LE(longest.size(), stored_record_size_limit);
  const std::string too_long = stored_note(std::string(stored_record_size_limit, 'x'));
  write(one, stored_note("a") + "\n" + longest + "\n" + too_long + "\n" + stored_note("b") + "\n");
  send_anew();
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n" + longest + "\n" + stored_note("b") + "\n");
  EXPECT_THAT(bad_, ElementsAre("3: record-syntax"));
  EXPECT_EQ(engine_.confirmed().front().extent.bytes, fs::file_size(file(one)));
  compress(one);
  send_anew();
  EXPECT_EQ(engine_.repeated, 0u);
}

TEST_F(ShippedJournal, SaysHowLongALineMayBeByHowItBegins) {
  std::vector<std::string> texts;
  queue_rules telling = rules();
  telling.bad = [&texts](const record_line&, const record_error& error) {
    texts.push_back(error.text());
  };
  const std::string spaces(stored_record_size_limit + (size_t{4} << 20), ' ');
  write(one, stored_note("a") + "\n" + stored_note(spaces) + "\n{\"event\":1003," + spaces +
                 "\n{\"event\":1003," + spaces.substr(0, record_size_limit) + "\n");
  journal_queue queue({folder_.path(), "app"}, events(), telling);
  queue.begin({}, {});
  send(queue);
  EXPECT_THAT(texts, ElementsAre("the line is longer than 16777216 bytes",
                                 "the line is longer than 1048576 bytes",
                                 "the line is longer than 1048576 bytes"));
}

TEST_F(ShippedJournal, AFirstLineThatIsTooLongHoldsNobodyUp) {
  const std::string other = stored_note(std::string(stored_record_size_limit, 'y')) + "\n";
  const std::string first = stored_note(std::string(stored_record_size_limit, 'x')) + "\n";
  write(one, first + stored_note("a") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  send(queue);
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n");
  EXPECT_THAT(bad_, ElementsAre("1: record-syntax"));
  write(one, first + stored_note("a") + "\n" + stored_note("b") + "\n");
  send_more(queue);
  compress(one);
  send_anew();
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n" + stored_note("b") + "\n");
  EXPECT_EQ(engine_.repeated, 0u);
  write(two, other.substr(0, other.size() - 1));
  send_anew();
  EXPECT_EQ(engine_.positions.size(), 1u) << "its end has not come";
  write(two, other + stored_note("c") + "\n");
  send_anew();
  EXPECT_EQ(engine_.positions.size(), 2u);
  EXPECT_EQ(engine_.records.size(), 3u);
}

// --- What is there for good

TEST_F(ShippedJournal, ALineIsSentWhenItsEndHasCome) {
  write(one, stored_note("a") + "\n" + stored_note("b").substr(0, 20));
  journal_queue queue = this->queue();
  queue.begin({}, {});
  send(queue);
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n");
  write(one, stored_note("a") + "\n" + stored_note("b") + "\n");
  send_more(queue);
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n" + stored_note("b") + "\n");
  EXPECT_EQ(engine_.repeated, 0u);
}

TEST_F(ShippedJournal, ABatchOfAWriterThatDiedIsTakenBackBeforeAnythingIsSent) {
  write(one, stored_note("a") + "\n");
  const pid_t child = fork();
  if (child == 0) {
    append_batch batch(folder_.path(), "app", {.line_start = stored_record_start});
    batch.open(one);
    batch.append(stored_note("half").substr(0, 30));
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  send_anew();
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n");
}

TEST_F(ShippedJournal, WaitsForAFolderAndForSegments) {
  journal_queue queue({file("later"), "app"}, events(), {});
  queue.begin({}, {});
  EXPECT_THROW(queue.fill(), file_error);
  fs::create_directory(file("later"));
  queue.begin({}, {});
  EXPECT_FALSE(queue.fill());
  write("later/" + std::string(one), stored_note("a") + "\n");
  queue.look_around();
  while (!queue.fill()) queue.look_around();
  EXPECT_EQ(queue.records().front().text, stored_note("a"));
}

TEST_F(ShippedJournal, TellsWhatHappensWhileItWaits) {
  write(one, stored_note("a") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  send(queue);
  write(two, stored_note("b") + "\n");
  write("other.20261115.0001.jsonl", stored_note("not of this journal") + "\n");
  pollfd watched = queue.watched();
  ASSERT_EQ(poll(&watched, 1, 10'000), 1);
  queue.look_around();
  while (!queue.fill()) queue.look_around();
  EXPECT_EQ(queue.records().front().text, stored_note("b"));
  EXPECT_EQ(queue.before().segment, two);
}

// --- Once, whatever becomes of the segments

TEST_F(ShippedJournal, NothingIsSentTwiceWhenSegmentsAreCompressed) {
  write(one, stored_note("a") + "\n" + stored_note("b") + "\n");
  write(next_day, stored_note("c") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  send(queue);
  compress(one);
  send_more(queue);
  send_anew();
  EXPECT_EQ(engine_.repeated, 0u);
  EXPECT_EQ(engine_.records.size(), 3u);
  write(two, stored_note("d") + "\n");
  compress(two);
  send_more(queue);
  EXPECT_EQ(engine_.records.size(), 4u);
}

TEST_F(ShippedJournal, ASegmentOfTheSameNameWithOtherLinesIsSentFromItsBegin) {
  for (const bool is_compressed : {false, true}) {
    engine_ = {};
    fs::remove(file(std::string(one) + ".zst"));
    write(one, stored_note("a") + "\n" + stored_note("b") + "\n" + stored_note("c") + "\n");
    send_anew();
    // Restored from a backup, and written to since.
    write(one, stored_note("a") + "\n" + stored_note("other") + "\n" + stored_note("c") + "\n");
    if (is_compressed) compress(one);
    send_anew();
    EXPECT_EQ(engine_.records.size(), 4u);
    EXPECT_EQ(engine_.repeated, 2u);
    fs::remove(file(std::string(one) + ".zst"));
    // Of another machine of this name.
    write(one, stored_note("x") + "\n" + stored_note("b") + "\n");
    if (is_compressed) compress(one);
    send_anew();
    EXPECT_EQ(engine_.records.size(), 5u) << "the second is the same record at the same place";
    EXPECT_EQ(engine_.positions.size(), 2u) << "each has a position of its own";
  }
}

TEST_F(ShippedJournal, ASegmentThatWasCutShortIsHeldAgainstThePosition) {
  write(one, stored_note("a") + "\n" + stored_note("b") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  send(queue);
  write(one, stored_note("a") + "\n");
  send_more(queue);
  write(one, stored_note("a") + "\n" + stored_note("c") + "\n" + stored_note("d") + "\n");
  send_more(queue);
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n" + stored_note("b") + "\n" + stored_note("c") +
                                 "\n" + stored_note("d") + "\n");
}

TEST_F(ShippedJournal, WhatWasRemovedBeforeItWasSentIsGivenUpAndTold) {
  write(one, stored_note("a") + "\n");
  write(two, stored_note("b") + "\n" + stored_note("c") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  ASSERT_TRUE(queue.fill());
  engine_.take(queue);
  queue.confirm(engine_.store());
  fs::remove(file(two));
  fs::remove(file(one));
  send_more(queue);
  EXPECT_EQ(queue.state().given_up, 1u);
  EXPECT_FALSE(queue.state().is_given_up_exact) << "nothing told how many it had";
  ASSERT_EQ(told_.size(), 1u);
  EXPECT_THAT(told_.front(),
              HasSubstr(std::string(two) + " was removed before all of it was sent"));
}

TEST_F(ShippedJournal, WhatCameAndWentWhileNobodySentIsGivenUpAsItWasNoted) {
  write(next_day, stored_note("a") + "\n");
  write("app.sent.X.given_up", std::string(one) + " 40 0\n" + two + " ?\n");
  queue_rules noting = rules();
  noting.sent_name = "app.sent.X";
  journal_queue queue({folder_.path(), "app"}, events(), noting);
  queue.begin({}, {});
  send(queue);
  EXPECT_EQ(queue.state().given_up, 41u);
  EXPECT_FALSE(queue.state().is_given_up_exact);
  EXPECT_EQ(told_.size(), 2u);
  sent_positions told;
  queue.tell(told);
  EXPECT_TRUE(fs::exists(file("app.sent.X.given_up"))) << "until their sum is saved";
  queue.remove_counted_notes();
  EXPECT_FALSE(fs::exists(file("app.sent.X.given_up")));
}

// --- Batches on their way

TEST_F(ShippedJournal, BatchesOfASegmentAreMadeBehindThoseThatAreNotConfirmed) {
  const std::string large = stored_note(std::string(1 << 20, 'x')) + "\n";
  std::string lines;
  for (int i = 0; i < 9; ++i) lines += large;
  write(one, lines);
  write(two, stored_note("b") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  ASSERT_TRUE(queue.fill());
  const segment_position first = queue.after();
  engine_.take(queue);
  ASSERT_TRUE(queue.fill());
  EXPECT_EQ(queue.before().extent, first.extent);
  EXPECT_EQ(queue.records().front().line, first.extent.lines + 1);
  engine_.take(queue);
  while (queue.fill()) engine_.take(queue);
  EXPECT_EQ(engine_.on_its_way.back().after.segment, one) << "the next one waits for these";
  EXPECT_EQ(queue.state().waiting_bytes, lines.size() + stored_note("b").size() + 1);
  queue.confirm(engine_.store());
  EXPECT_FALSE(queue.fill());
  EXPECT_EQ(queue.state().waiting_bytes,
            lines.size() - first.extent.bytes + stored_note("b").size() + 1);
  while (!engine_.on_its_way.empty()) queue.confirm(engine_.store());
  send(queue);
  EXPECT_EQ(engine_.records.size(), 10u);
  EXPECT_EQ(engine_.repeated, 0u);
}

TEST(ShippedEvent, OfNoDefinitionsCountsByTheNumberThatIsToldFirst) {
  for (const auto& [record, event] : std::vector<std::pair<const char*, uint32_t>>{
           {R"({"version":"2.0","event":50,"name":"DISK_FULL"})", 50},
           {R"({"version":"\"event\":7,","event":4294967295})", UINT32_MAX},
           {R"({"event":4294967296})", 0},
           {R"({"event":99999999999,"name":"x"})", 0},
           {R"({"event":"50"})", 0},
           {R"({"event":"A","attributes":{"event":5}})", 0},
           {R"({"event":5)", 5},
           {"{}", 0}})
    EXPECT_EQ(event_of_unknown(record), event) << record;
}

// Before the engine says how far it is: by what the file beside the journal says of it.
TEST_F(ShippedJournal, WhatWaitsIsMeasuredBeforeTheEngineAnswers) {
  const std::string line = stored_note("a") + "\n";
  write(one, line + line);
  write(two, line);
  sent_positions known;
  known.segments[one].position.extent = {.lines = 1, .bytes = line.size()};
  journal_queue queue = this->queue();
  queue.measure(known);
  EXPECT_EQ(queue.state().waiting_bytes, 2 * line.size());
  EXPECT_EQ(queue.state().given_up, 0u);
  queue.begin({}, {});
  send(queue);
  EXPECT_EQ(engine_.records.size(), 3u);
  EXPECT_EQ(queue.state().waiting_bytes, 0u);
  write(one, line + line + line);
  queue.measure(known);
  EXPECT_EQ(queue.state().waiting_bytes, line.size()) << "what it confirmed is more";
}

TEST_F(ShippedJournal, BatchesThatWereLostOnTheirWayComeAgain) {
  const std::string large = stored_note(std::string(3 << 20, 'x')) + "\n";
  write(one, large + large + large + large);
  journal_queue queue = this->queue();
  queue.begin({}, {});
  while (queue.fill()) engine_.take(queue);
  ASSERT_EQ(engine_.on_its_way.size(), 4u);
  queue.confirm(engine_.store());
  engine_.on_its_way.clear();
  send_more(queue);
  EXPECT_EQ(engine_.records.size(), 4u);
  EXPECT_EQ(engine_.repeated, 0u);
}

TEST_F(ShippedJournal, ASegmentThatIsRemovedWhileItIsOnItsWayIsGivenUpWhenThatFails) {
  for (const bool fails : {false, true}) {
    engine_ = {};
    write(one, stored_note("a") + "\n");
    journal_queue queue = this->queue();
    queue.begin({}, {});
    ASSERT_TRUE(queue.fill());
    engine_.take(queue);
    fs::remove(file(one));
    queue.look_around();
    EXPECT_FALSE(queue.fill());
    if (!fails) queue.confirm(engine_.store());
    engine_.on_its_way.clear();
    send_more(queue);
    EXPECT_EQ(queue.state().given_up, fails ? 1u : 0u);
  }
}

TEST_F(ShippedJournal, WhatWasSentSinceItWasNotedIsNotGivenUp) {
  for (const auto& [note, given_up] : std::map<std::string, uint64_t>{
           {" 30 10\n", 0}, {" 31 10\n", 1}, {" 7 40\n", 7}, {" 7 45\n", 7}}) {
    SCOPED_TRACE(note);
    engine_ = {};
    std::string lines;
    for (int line = 0; line < 40; ++line) lines += stored_note(std::to_string(line)) + "\n";
    write(one, lines);
    queue_rules noting = rules();
    noting.sent_name = "app.sent.X";
    journal_queue queue({folder_.path(), "app"}, events(), noting);
    queue.begin({}, {});
    send(queue);
    fs::remove(file(one));
    write("app.sent.X.given_up", one + note);
    send_more(queue);
    EXPECT_EQ(queue.state().given_up, given_up);
    EXPECT_TRUE(queue.state().is_given_up_exact);
    fs::remove(file("app.sent.X.given_up"));
  }
}

TEST_F(ShippedJournal, ASegmentThatIsTruncatedWhileItIsOnItsWayIsSentFromItsBegin) {
  write(one, stored_note("a") + "\n" + stored_note("b") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  ASSERT_TRUE(queue.fill());
  engine_.take(queue);
  write(one, stored_note("c") + "\n");
  while (queue.fill()) queue.look_around();
  queue.confirm(engine_.store());
  const auto has_all = [this] { return engine_.records.size() == 3u; };
  for (int tries = 0; tries < 1000 && !has_all(); ++tries) {
    queue.look_around();
    send(queue);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(has_all());
}

TEST_F(ShippedJournal, WhatCannotBeReadBehindBatchesOnTheirWayStaysAFault) {
  std::string lines;
  std::mt19937 random(7);
  for (int i = 0; i < 60'000; ++i) lines += stored_note(std::to_string(random())) + "\n";
  const std::string frame = zstd_frame_of(lines);
  write(one + std::string(".zst"), frame.substr(0, frame.size() - frame.size() / 8));
  std::vector<std::string> faults;
  queue_rules told = rules();
  told.fail = [&faults](const std::string& text) { faults.push_back(text); };
  journal_queue queue({folder_.path(), "app"}, events(), told);
  queue.begin({}, {});
  while (queue.fill()) engine_.take(queue);
  while (!engine_.on_its_way.empty()) {
    queue.confirm(engine_.store());
    while (queue.fill()) engine_.take(queue);
  }
  EXPECT_GT(engine_.records.size(), 20'000u);
  EXPECT_EQ(faults.size(), 1u);
  EXPECT_TRUE(queue.has_unreadable());
}

// --- Behind a look, before its turn

TEST_F(ShippedJournal, WhatBecomesOfASegmentBeforeItsTurnIsSeen) {
  write(one, stored_note("a") + "\n");
  write(two, stored_note("b") + "\n");
  write(next_day, stored_note("c") + "\n");
  journal_queue queue = this->queue();
  queue.begin({}, {});
  ASSERT_TRUE(queue.fill());
  engine_.take(queue);
  queue.confirm(engine_.store());
  compress(two);
  fs::remove(file(next_day));
  send(queue);  // as a run does that sends once, and does not look around
  EXPECT_EQ(engine_.lines(), stored_note("a") + "\n" + stored_note("b") + "\n");
  ASSERT_EQ(told_.size(), 1u);
  EXPECT_THAT(told_.front(), HasSubstr(next_day));

  write(one, stored_note("d") + "\n");
  queue.begin(engine_.confirmed(), {});
  write("another", stored_note("e") + "\n");
  fs::rename(file("another"), file(one));
  send(queue);
  EXPECT_THAT(engine_.lines(), HasSubstr(stored_note("e")));
}

TEST_F(ShippedJournal, APositionThatCannotBeCountsForNothing) {
  write(one, stored_note("a") + "\n" + stored_note("b") + "\n");
  const uint64_t first = check_sum(stored_note("a"));
  for (const line_extent& odd :
       {line_extent{1, 10, 20, 0}, line_extent{1, UINT64_MAX, 20, 0}, line_extent{1, 0, 1, 0},
        line_extent{UINT64_MAX, UINT64_MAX / 2, 0, 0}}) {
    engine_ = {};
    journal_queue queue = this->queue();
    queue.begin({{one, first, odd}}, {});
    send(queue);
    EXPECT_EQ(engine_.records.size(), 2u) << odd.bytes;
    EXPECT_FALSE(queue.has_unreadable());
  }
}

TEST_F(ShippedJournal, ASumOfWhatWasGivenUpStaysTheLargestThereIs) {
  write(next_day, stored_note("a") + "\n");
  write("app.sent.X.given_up", std::string(one) + " 18446744073709551615 0\n" + two + " 5 0\n");
  queue_rules noting = rules();
  noting.sent_name = "app.sent.X";
  journal_queue queue({folder_.path(), "app"}, events(), noting);
  queue.begin({}, {});
  send(queue);
  EXPECT_EQ(queue.state().given_up, UINT64_MAX);
  EXPECT_FALSE(queue.state().is_given_up_exact);
}

// --- Any journal, any moment

static std::string random_line(std::mt19937& random) {
  const auto kind = random() % 20;
  if (kind == 0) return "";
  if (kind == 1) return "no record";
  const size_t size = kind == 2 ? random() % 300'000 : random() % 300;
  return stored_note(std::string(size, static_cast<char>('a' + random() % 26)));
}

TEST_F(ShippedJournal, RandomJournalsAreSentOnceThroughRestartsAndCompression) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::map<std::string, std::string> content;
  std::map<std::string, std::string> records;
  std::unique_ptr<journal_queue> queue;
  for (int step = 0; step < 300; ++step) {
    const std::string name = std::array{one, two, next_day}[random() % 3];
    if (!fs::exists(file(name + ".zst"))) {
      for (auto lines = random() % 40; lines > 0; --lines) {
        const std::string line = random_line(random);
        content[name] += line + "\n";
        if (line.starts_with("{")) records[name] += line + "\n";
      }
      write(name, content[name]);
      if (random() % 50 == 0) compress(name);
    }
    if (!queue || random() % 4 == 0)
      queue = std::make_unique<journal_queue>(journal_place{folder_.path(), "app", {}}, events(),
                                              rules());
    queue->begin(engine_.confirmed(), {});
    engine_.on_its_way.clear();
    for (auto turns = random() % 8; turns > 0; --turns) {
      if (queue->fill()) engine_.take(*queue);
      if (engine_.on_its_way.empty() || random() % 2 == 0) continue;
      const segment_position there = engine_.store();
      if (random() % 8 == 0) {
        queue.reset();
        break;
      }
      queue->confirm(there);
    }
  }
  engine_.on_its_way.clear();
  send_anew();
  std::string expected;
  for (const auto& [name, lines] : records) expected += lines;
  EXPECT_EQ(engine_.lines() == expected, true) << "seed " << seed;
  EXPECT_EQ(engine_.repeated, 0u);
}

// --- The file beside the journal

TEST_F(ShippedJournal, TheFileBesideTheJournalSaysWhatWasSentAndWhatWasThere) {
  write(one, stored_note("a") + "\n" + stored_note("b"));
  journal_queue queue = this->queue();
  queue.begin({}, {});
  send(queue);
  sent_positions told{.to = "postgresql://db/fleet", .host = "web \"1\""};
  queue.tell(told);
  const auto read = sent_positions_of(text_of(told));
  ASSERT_TRUE(read);
  EXPECT_EQ(text_of(*read), text_of(told));
  EXPECT_EQ(read->segments.at(one).position.extent.lines, 1u);
  EXPECT_EQ(read->segments.at(one).there, fs::file_size(file(one)));
  EXPECT_EQ(queue.state().waiting_bytes, stored_note("b").size());
}
