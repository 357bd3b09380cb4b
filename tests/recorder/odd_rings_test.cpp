// Recovery of rings that are damaged, copied, in use, or not one's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>

#include "kp_LOG_Recorder.h"
#include "recording/ring/recovery.h"
#include "tests/recorder/recovery_fixture.h"
#include "tests/support/failing.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RecoveryOfRings : public RecoveryPlace {};

TEST_F(RecoveryOfRings, PassesOverWhatIsDamaged) {
  die_with(200, folder_.path());
  const std::string ring = ring_in(folder_.path());
  std::string bytes = read_whole_file(ring);
  std::string damaged = bytes;
  for (size_t offset = ring_head_size; offset + ring_block_size <= damaged.size();
       offset += ring_block_size) {
    auto* const block = reinterpret_cast<block_head*>(damaged.data() + offset);
    if (block->used > 2000 && block->lane != 0) damaged[offset + 1000] ^= 1;
  }
  ASSERT_NE(damaged, bytes);
  folder_.write(fs::path(ring).filename().string(), damaged);
  const recovered_events found = recover(folder_.path());
  EXPECT_GT(found.damaged, 0u);
  EXPECT_GT(found.recovered, 10u);
  EXPECT_LT(found.recovered, 200u);
  EXPECT_EQ(text_lines(folder_.path()).size(), found.recovered + 1);
  EXPECT_THAT(told_, testing::Contains(HasSubstr(" passed over")));
}

// The ring's blocks of the lane that recorded, in the order of their serials.
static std::vector<block_head*> blocks_in(std::string& ring) {
  std::map<uint32_t, block_head*> blocks;
  for (size_t offset = ring_head_size; offset < ring.size(); offset += ring_block_size) {
    auto* const block = reinterpret_cast<block_head*>(ring.data() + offset);
    if (block->used != 0 && block->lane != 0) blocks[block->serial] = block;
  }
  std::vector<block_head*> sorted;
  for (const auto& [serial, block] : blocks) sorted.push_back(block);
  return sorted;
}

TEST_F(RecoveryOfRings, TakesTheRestOfAnEventForNoDamage) {
  die_with_large(3, folder_.path());
  const std::string ring = ring_in(folder_.path());
  std::string bytes = read_whole_file(ring);
  blocks_in(bytes)[0]->used = 0;  // as a process does that is killed when it gives them back
  folder_.write(fs::path(ring).filename().string(), bytes);
  const recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.damaged, 0u);
  EXPECT_EQ(found.recovered, 2u);
}

TEST_F(RecoveryOfRings, MakesNoEventOfPartsWithAGap) {
  die_with_large(3, folder_.path());
  const std::string ring = ring_in(folder_.path());
  std::string bytes = read_whole_file(ring);
  blocks_in(bytes)[1]->used = 0;
  folder_.write(fs::path(ring).filename().string(), bytes);
  const recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.damaged, 1u);
  EXPECT_EQ(found.recovered, 2u);
  for (const std::string& line : text_lines(folder_.path()))
    EXPECT_THAT(line, HasSubstr(" Large "));
}

TEST_F(RecoveryOfRings, DoesNotBelieveAHeadThatCannotBe) {
  die_with(5, folder_.path());
  const std::string ring = ring_in(folder_.path());
  const std::string bytes = read_whole_file(ring);
  std::string damaged = bytes;
  auto& head = *reinterpret_cast<ring_head*>(damaged.data());
  head.start.delivered[0] = head.assigned + 1;
  folder_.write(fs::path(ring).filename().string(), damaged);
  EXPECT_EQ(recover(folder_.path()).failures, 1u);
  EXPECT_THAT(told_.back(), HasSubstr("its head is damaged"));
  folder_.write(fs::path(ring).filename().string(), bytes);
  EXPECT_EQ(recover(folder_.path()).recovered, 5u);
}

TEST_F(RecoveryOfRings, TakesNoCopyOfARing) {
  die_with(5, folder_.path());
  const std::string ring = ring_in(folder_.path());
  const std::string other_identity = ring.substr(0, ring.size() - 4) + "0000";
  fs::copy_file(ring, other_identity);
  fs::copy_file(ring, ring + ".bak");
  fs::copy_file(ring, folder_.file("shop.ring.saved.new"));
  const recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.recovered, 5u);
  EXPECT_EQ(found.failures, 3u);
  EXPECT_THAT(told_, testing::Contains(HasSubstr("it is a copy of another ring")));
  EXPECT_THAT(told_, testing::Contains(HasSubstr("its name is that of no ring")));
  EXPECT_TRUE(fs::exists(other_identity) && fs::exists(ring + ".bak") &&
              fs::exists(folder_.file("shop.ring.saved.new")));
  expect_all(5, folder_.path());
}

TEST_F(RecoveryOfRings, AllocatesAFileWithHoles) {
  die_with(5, folder_.path());
  const std::string ring = ring_in(folder_.path());
  const std::string bytes = read_whole_file(ring);
  fs::remove(ring);
  const int sparse = open(ring.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(ftruncate(sparse, static_cast<off_t>(bytes.size())), 0);
  for (size_t at = 0; at < bytes.size(); at += ring_block_size)
    if (bytes.find_first_not_of('\0', at) < at + ring_block_size) {
      ASSERT_EQ(pwrite(sparse, bytes.data() + at, ring_block_size, static_cast<off_t>(at)),
                static_cast<ssize_t>(ring_block_size));
    }
  close(sparse);
  {
    bool has_owner = false;
    const auto taken = ring_file::take(ring, has_owner);
    ASSERT_NE(taken, nullptr);
    struct stat status {};
    ASSERT_EQ(stat(ring.c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, status.st_size);
  }
  EXPECT_EQ(recover(folder_.path()).recovered, 5u);
}

TEST_F(RecoveryOfRings, GivesUpWhereALockIsHeld) {
  die_with(5, folder_.path());
  const std::string ring = ring_in(folder_.path());
  const folder_lock held(folder_.file("logs"), "shop");
  recovery_rules rules;
  rules.known_outputs = {folder_.file("logs/shop"), folder_.file("shop.jsonl"),
                         folder_.file("shop")};
  rules.fault = [this](const std::string& text) { told_.push_back(text); };
  rules.waiting.is_to_end = [] { return true; };
  EXPECT_EQ(recover_rings(folder_.file("shop"), rules).failures, 1u);
  EXPECT_THAT(told_, ElementsAre(testing::EndsWith("another process holds it")));
  EXPECT_TRUE(fs::exists(ring));
}

TEST_F(RecoveryOfRings, FollowsLinksToTheFolder) {
  const std::string place = folder_.file("place");
  fs::create_directory(place);
  fs::create_directory_symlink(place, folder_.file("link"));
  die_with(5, place);
  recovery_rules rules;
  rules.known_outputs = {folder_.file("link/logs/shop"), folder_.file("link/shop")};
  rules.fault = [](const std::string& text) { ADD_FAILURE() << text; };
  EXPECT_EQ(recover_rings(folder_.file("link/shop"), rules).recovered, 5u);
  expect_all(5, place);
}

TEST_F(RecoveryOfRings, IsDoneByWhatItsOwnProcessHasBecome) {
  const std::string place = folder_.file("shop");
  const pid_t child = fork();
  if (child == 0) {
    kp_LOG_RecorderOptions own = options();
    own.on_fault = {};
    own.json.clear();
    own.text = folder_.file("gone/shop");
    own.ring_folder = folder_.path();
    fs::create_directory(folder_.file("gone"));
    kp_LOG_Recorder log(own);
    fs::remove_all(folder_.file("gone"));
    log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 1u});
    log.Flush(std::chrono::milliseconds(50));
    fs::create_directory(folder_.file("gone"));
    execl(KPLOG_COMMAND, "kplog", "recover", "-q", place.c_str(), "--output", own.text.c_str(),
          nullptr);
    _exit(99);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(rings(), IsEmpty());
}

TEST_F(RecoveryOfRings, RefusesTheRingOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  die_with(5, folder_.path());
  const std::string ring = ring_in(folder_.path());
  ASSERT_EQ(chown(ring.c_str(), 12345, static_cast<gid_t>(-1)), 0);
  EXPECT_EQ(recover(folder_.path()).failures, 1u);
  EXPECT_THAT(told_.back(), HasSubstr("it belongs to another user"));
  EXPECT_TRUE(fs::exists(ring));
}

TEST_F(RecoveryOfRings, TakesNoRingFromWhoeverMakesIt) {
  const pid_t child = fork();
  if (child == 0) {
    const recovery_rules rules;
    for (;;) recover_rings(folder_.file("shop"), rules);
  }
  for (int turn = 0; turn < 100; ++turn) {
    kp_LOG_RecorderOptions small = options();
    small.ring_size = 512 << 10;
    kp_LOG_Recorder log(small);
    EXPECT_EQ(log.Record(shop::PLAIN{}), answer::recorded);
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(messages().size(), 100u);
}

// Gives the frames of a ring that was changed the sums that they should have.
static void mend_sums(std::string& ring) {
  for (block_head* const block : blocks_in(ring)) {
    auto* const frames = reinterpret_cast<unsigned char*>(block + 1);
    const uint32_t end = std::min<uint32_t>(block->used, ring_block_room);
    for (uint32_t at = 0; end - at >= sizeof(frame_head);) {
      auto& frame = *reinterpret_cast<frame_head*>(frames + at);
      if (frame.size % 8 != 0 || frame.size > end - at || frame.event_size > frame.size) break;
      if (frame.size < sizeof frame || frame.event_size > frame.size - sizeof frame) break;
      frame.sum = sum_of(*block, frame);
      at += frame.size;
    }
  }
}

static void record_everything(kp_LOG_Recorder& log) {
  const kp_Time time(2026, 11, 15, 17, 2, 56);
  log.Record(shop::EVERYTHING{.A_BOOL = true,
                              .A_BYTE = std::uint8_t{255},
                              .A_SIGNED_BYTE = std::int8_t{-128},
                              .A_SHORT = std::uint16_t{65535},
                              .A_SIGNED_SHORT = std::int16_t{-32768},
                              .AN_INTEGER = -1,
                              .A_DATE = time,
                              .A_TIME = time,
                              .A_STAMP = time});
}

TEST_F(RecoveryOfRings, BelievesNoTruthValueThatIsNeither) {
  const auto record = [](kp_LOG_Recorder& log) {
    record_everything(log);
    log.Record(shop::STEP{.NUMBER = 1u, .THREAD = 7u});
  };
  die_after(folder_.path(), record, lose_one);
  const std::string ring = ring_in(folder_.path());
  std::string bytes = read_whole_file(ring);
  // The values' numbers aside.
  const std::string values = {TypeBool, 1, '?', 0, TypeUInt1, '\xff'};
  const auto is_same = [](char held, char told) { return told == '?' || held == told; };
  const auto at = std::search(bytes.begin(), bytes.end(), values.begin(), values.end(), is_same);
  ASSERT_NE(at, bytes.end());
  at[1] = 65;
  mend_sums(bytes);
  folder_.write(fs::path(ring).filename().string(), bytes);
  const recovered_events found = recover(folder_.path());
  EXPECT_EQ(found.damaged, 1u);
  EXPECT_EQ(found.recovered, 1u);
}

TEST_F(RecoveryOfRings, ReadsWhateverARingHolds) {
  const char* const told = std::getenv("KPLOG_DAMAGES");
  const unsigned rounds = told == nullptr ? 60 : static_cast<unsigned>(std::stoul(told));
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto record = [](kp_LOG_Recorder& log) {
    const std::string text(2000, 'x');
    for (uint32_t number = 1; number <= 3; ++number) {
      log.Record(shop::STEP{.NUMBER = number, .THREAD = 7u});
      log.Record(shop::KEY_SET{.KEY = "\u20ac",
                               .OWNER = "zoe",
                               .BYTES = 17u,
                               .SHARE = 0.5,
                               .CHANGE = -3,
                               .OUTCOME = shop::entry_KEY_SET::OUTCOME_value::created});
      record_everything(log);
      log.Record(shop::LARGE{.NUMBER = number, .FIRST = text, .SECOND = text, .THIRD = text});
    }
  };
  die_after(folder_.path(), record, lose_one);
  const std::string ring = ring_in(folder_.path());
  const std::string sound = read_whole_file(ring);
  std::vector<size_t> filled;
  for (size_t at = 0; at < sound.size(); ++at)
    if (sound[at] != 0) filled.push_back(at);
  for (unsigned round = 0; round < rounds; ++round) {
    std::string bytes = sound;
    for (auto changes = random() % 4 + 1; changes != 0; --changes) {
      const size_t at = filled[random() % filled.size()];
      static constexpr std::array<uint64_t, 6> words = {0,          1,          UINT32_MAX,
                                                        UINT64_MAX, 1ULL << 63, 0x8000800080008000};
      const size_t size = std::min<size_t>(size_t{1} << random() % 4, bytes.size() - at);
      if (random() % 2 == 0)
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
      else
        std::memcpy(&bytes[at & ~size_t{7}], &words[random() % words.size()], size);
    }
    if (random() % 2 == 0) mend_sums(bytes);
    if (random() % 8 == 0) bytes.resize(random() % bytes.size());
    std::ofstream(ring, std::ios::binary) << bytes;
    const recovered_events found = recover(folder_.path());
    EXPECT_EQ(found.rings + found.failures > 0, true);
    EXPECT_EQ(fs::exists(ring), found.staying + found.failures > 0);
    fs::remove(ring);
  }
}

// ---- What a ring says that it is for ----

static ring_info told_info() {
  ring_info info;
  info.definitions = "/etc/shop/\xff\x80 \"events\".ldf";
  info.locale = "de_DE";
  info.text = "/var/log/shop/\n\u20ac";
  info.count = "/var/log/shop/count";
  info.journal = "/var/log/shop/\n,kept,keep=90d";
  info.max_size = UINT64_MAX;
  info.synced = true;
  info.pid = 4711;
  return info;
}

TEST(RingInfo, ComesBackFromItsText) {
  const std::string text = text_of(told_info());
  const std::optional<ring_info> read = ring_info_of(text);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(text_of(*read), text);
  EXPECT_EQ(read->definitions, told_info().definitions);
  EXPECT_EQ(read->text, told_info().text);
  EXPECT_EQ(read->journal, told_info().journal);
  EXPECT_EQ(read->max_size, UINT64_MAX);
  EXPECT_EQ(read->pid, 4711u);
  EXPECT_TRUE(read->synced);
}

TEST(RingInfo, OfBeforeThereWereJournalsHasNone) {
  std::string text = text_of(told_info());
  const size_t at = text.find(",\"journal\":");
  text.erase(at, text.find(",\"max_size\":") - at);
  const std::optional<ring_info> read = ring_info_of(text);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->journal, "");
  EXPECT_EQ(read->text, told_info().text);
}

TEST(RingInfo, PlaceIsThatOfTheFirstOutput) {
  ring_info info;
  EXPECT_EQ(info.place(), "");
  info.journal = "/a,b/journal,max-size=1K,keep=1d";
  EXPECT_EQ(info.place(), "/a,b/journal");
  info.count = "/count";
  EXPECT_EQ(info.place(), "/count");
  info.json = "/json";
  EXPECT_EQ(info.place(), "/json");
  info.text = "/text";
  EXPECT_EQ(info.place(), "/text");
  EXPECT_EQ(info.outputs(), (std::vector<std::string>{"/text", "/json", "/count", "/a,b/journal"}));
}

TEST(RingInfo, IsNoneOfOtherTexts) {
  const std::string text = text_of(told_info());
  for (size_t size = 0; size < text.size(); ++size)
    EXPECT_FALSE(ring_info_of(text.substr(0, size)).has_value()) << size;
  EXPECT_FALSE(ring_info_of("{}").has_value());
  EXPECT_FALSE(ring_info_of("[]").has_value());
}

TEST(RingInfo, RaisesLackOfMemory) {
  const auto expect_lack = [](const std::exception_ptr& outcome) {
    EXPECT_THROW(std::rethrow_exception(outcome), std::bad_alloc);
  };
  const auto there_and_back = [] { ASSERT_TRUE(ring_info_of(text_of(told_info())).has_value()); };
  EXPECT_GT(for_each_failing_new(there_and_back, expect_lack), 10u);
}
