// Definition files that somebody has damaged or made up: whatever their bytes, loading them gives a
// described error or a good definition, and takes no more memory than the file's size and 1 MiB.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "kp_LOG_errors.h"
#include "logging/ldf_load.h"
#include "tests/support/definition_errors.h"
#include "tests/support/ldf_bytes.h"
#include "tests/support/temp_folder.h"

// ---- memory: bytes in use through operator new, and their peak ----

static std::atomic<size_t> bytes_in_use{0}, peak_bytes{0};

static void* counted(void* block) noexcept {
  if (block == nullptr) return nullptr;
  const size_t now = bytes_in_use += malloc_usable_size(block);
  if (now > peak_bytes) peak_bytes = now;
  return block;
}

static void* counted_or_throw(size_t size) {
  void* const block = counted(std::malloc(size != 0 ? size : 1));
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

static void give_back(void* block) noexcept {
  if (block != nullptr) bytes_in_use -= malloc_usable_size(block);
  std::free(block);
}

void* operator new(size_t size) {
  return counted_or_throw(size);
}
void* operator new[](size_t size) {
  return counted_or_throw(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return counted(std::malloc(size != 0 ? size : 1));
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return counted(std::malloc(size != 0 ? size : 1));
}
void operator delete(void* block) noexcept {
  give_back(block);
}
void operator delete[](void* block) noexcept {
  give_back(block);
}
void operator delete(void* block, size_t) noexcept {
  give_back(block);
}
void operator delete[](void* block, size_t) noexcept {
  give_back(block);
}

// The most memory that `f` had in use at once, beyond what was in use before.
template <class F>
static size_t peak_of(F&& f) {
  const size_t before = bytes_in_use;
  peak_bytes = before;
  f();
  return peak_bytes - before;
}

// ---- files ----

// Runs `f`; an error that it raises must be a described one.
template <class F>
static bool succeeds(F&& f) {
  try {
    f();
    return true;
  } catch (const KPX_logging_invalid_definition& error) {
    EXPECT_TRUE(is_definition_content_error(error.what())) << error.what();
    return false;
  }
}

// Reads all that a definition offers.
static void use(const _kp_LOG_log_definition& def, unsigned id) {
  EXPECT_EQ(def.get_entry_id(), id);
  size_t length = std::string(def.get_log_version()).size();
  for (unsigned i = 0; i < def.get_n_attributes(); ++i) {
    const char *name = nullptr, *redirection = nullptr;
    unsigned char type = 0;
    def.get_attr_info_by_index(static_cast<unsigned char>(i), name, type, redirection);
    length += std::string(name).size();
    EXPECT_NE(def.get_attr_info_by_name(name), nullptr);
  }
  for (unsigned i = 0; i < def.get_n_selector_msgs(); ++i) {
    const auto* const message = def.get_selector_msg(static_cast<unsigned char>(i));
    EXPECT_NE(def.get_selector_msg_by_index(message->get_index()), nullptr);
    if (message->get_msg_text() != nullptr) length += std::string(message->get_msg_text()).size();
  }
  const auto* const selector = def.get_selector_attribute();
  EXPECT_TRUE(selector == nullptr ||
              def._find_attr_entry_by_name(selector->get_name()) == selector);
  EXPECT_LT(length, 1U << 20);
}

static void find_all(const _kp_LOG_log_definition_tbl& table) {
  for (const unsigned id : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 17U, 18U, 300U}) {
    const _kp_LOG_log_definition* found = nullptr;
    succeeds([&] { found = table.find_entry(id); });
    if (found != nullptr) use(*found, id);
  }
}

class HostileDefinitions : public testing::Test {
 protected:
  ~HostileDefinitions() override { _kp_LOG_log_definition::clear_global_attr_info(); }

  // Loads STD bytes and, if there are any, AUX bytes; finds every ID; within the limit of memory.
  void load(const std::string& std_bytes, const std::string& aux_bytes = "") {
    const std::string std_path = folder_.write("std.ldf", std_bytes);
    const std::string aux_path = aux_bytes.empty() ? "" : folder_.write("aux.ldf", aux_bytes);
    const size_t peak = peak_of([&] {
      _kp_LOG_log_definition_tbl table;
      succeeds([&] { table.set_precompiled_definition_file_path(std_path.c_str()); });
      if (!aux_path.empty())
        succeeds([&] { table.set_precompiled_aux_definition_file_path(aux_path.c_str()); });
      find_all(table);
    });
    EXPECT_LE(peak, std_bytes.size() + aux_bytes.size() + (1U << 20));
    _kp_LOG_log_definition::clear_global_attr_info();
  }

  temp_folder folder_;
};

static std::string std_bytes() {
  return ldf_file{.globals = {{"G", 6}},
                  .entries = {{.id = 17,
                               .second_word = 1,
                               .flags = 2,
                               .msg_id = "M17",
                               .msg_text = "paid by %sPAYER%",
                               .selector = "KIND",
                               .attributes = {{"KIND", 2}, {"PAYER", 9, "WHO"}},
                               .messages = {{1, 1, "S1", "by card"}, {2, 2, "", "in cash"}}},
                              {.id = 18, .msg_text = "eighteen"}}}
      .bytes();
}

static std::string aux_bytes() {
  return ldf_file{.log_version = "3.0",
                  .entries = {{.id = 17,
                               .msg_id = "A17",
                               .msg_text = "aux",
                               .selector = "KIND",
                               .attributes = {{"KIND", 4}, {"MORE", 1}},
                               .messages = {{3, 3, "S3", "three"}}},
                              {.id = 300, .attributes = {{"ONLY", 1}}}}}
      .bytes();
}

// Calls f with `bytes` with each single bit flipped in turn.
template <class F>
static void for_each_flip(std::string bytes, F&& f) {
  for (size_t i = 0; i < bytes.size() * 8; ++i) {
    const auto bit = static_cast<char>(1U << (i % 8));
    bytes[i / 8] = static_cast<char>(bytes[i / 8] ^ bit);
    f(bytes);
    bytes[i / 8] = static_cast<char>(bytes[i / 8] ^ bit);
  }
}

TEST_F(HostileDefinitions, EveryTruncationOfAnStdFile) {
  const std::string good = std_bytes();
  for (size_t length = 0; length < good.size(); ++length) load(good.substr(0, length));
}

TEST_F(HostileDefinitions, EveryTruncationOfAnAuxFile) {
  const std::string good = aux_bytes();
  for (size_t length = 1; length < good.size(); ++length) load(std_bytes(), good.substr(0, length));
}

TEST_F(HostileDefinitions, EveryFlippedBitOfAnStdFile) {
  for_each_flip(std_bytes(), [&](const std::string& bytes) { load(bytes, aux_bytes()); });
}

TEST_F(HostileDefinitions, EveryFlippedBitOfAnAuxFile) {
  for_each_flip(aux_bytes(), [&](const std::string& bytes) { load(std_bytes(), bytes); });
}

TEST_F(HostileDefinitions, EveryInt4OfAnStdFileAtItsMost) {
  const std::string good = std_bytes();
  for (const unsigned value : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU, 0x10000000U, 256U})
    for (size_t i = 0; i + 4 <= good.size(); ++i)
      load(std::string(good).replace(i, 4, ldf_int4(value)));
}

TEST_F(HostileDefinitions, ALengthOfFourGibibytesInAFileOf132BytesTakesNoMemory) {
  std::string bytes = ldf_file{}.bytes().replace(40, 4, ldf_int4(1)) + ldf_int4(0xFFFFFFFF);
  ASSERT_EQ(bytes.size(), 132U);
  const std::string path = folder_.write("std.ldf", bytes);
  _kp_LOG_log_definition_tbl table;
  bool done = true;
  const size_t peak = peak_of(
      [&] { done = succeeds([&] { table.set_precompiled_definition_file_path(path.c_str()); }); });
  EXPECT_FALSE(done);
  EXPECT_LT(peak, 65536U);
}

TEST_F(HostileDefinitions, ATextOfEightMebibytesIsHeldOnce) {
  const std::string long_text(8U << 20, 'x');
  const std::string bytes = ldf_file{.entries = {{.id = 17, .msg_text = long_text}}}.bytes();
  const std::string path = folder_.write("std.ldf", bytes);
  const size_t peak = peak_of([&] {
    _kp_LOG_log_definition_tbl table;
    table.set_precompiled_definition_file_path(path.c_str());
    EXPECT_EQ(table.find_entry(17)->get_default_msg_text(), long_text);
  });
  EXPECT_LE(peak, bytes.size() + (1U << 20));
}

// A file of 8 MiB with 128 records, each of which begins in the default text of the one before it.
// Every text claims all the rest of the file, and ends at a NUL in the next record's head.
static std::string overlapping_bytes() {
  constexpr unsigned n = 128, size = 8U << 20, step = 32, first = 128 + 8 * n;
  std::string mapping, body(size, 'x');
  body.replace(size - 12, 12, std::string(12, '\0'));
  for (unsigned i = 0; i < n; ++i) {
    mapping += ldf_int4(i) + ldf_int4(first + step * i);
    const std::string head = ldf_int4(i) + ldf_int4(1) + ldf_int4(1) + ldf_int4(0) +
                             ldf_int4(size - 12 - (step * i + 20));
    body.replace(step * i, head.size(), head);
  }
  body[step * n] = '\0';  // the last text is short as well
  std::string header = ldf_file{}.bytes();
  header.replace(48, 4, ldf_int4(n)).replace(56, 4, ldf_int4(128));
  return header + mapping + body;
}

TEST_F(HostileDefinitions, ShortTextsThatClaimTheWholeFileHoldNoMoreThanTheyAre) {
  const std::string path = folder_.write("std.ldf", overlapping_bytes());
  _kp_LOG_log_definition_tbl table;
  const size_t before = bytes_in_use;
  table.set_precompiled_definition_file_path(path.c_str());
  for (unsigned id = 0; id < 128; ++id) {
    const auto* const found = table.find_entry(id);
    ASSERT_NE(found, nullptr);
    EXPECT_LE(std::string(found->get_default_msg_text()).size(), 16U);
  }
  EXPECT_EQ(table.n_entry_definitions_cached, 128U);
  EXPECT_LT(bytes_in_use - before, 1U << 20);
}

TEST_F(HostileDefinitions, ATextWithoutANulIsHeldOnce) {
  const std::string long_text(8U << 20, 'x');
  std::string bytes = ldf_file{.entries = {{.id = 17, .msg_text = long_text}}}.bytes();
  bytes[bytes.find("xxxx") + long_text.size()] = 'x';
  const std::string path = folder_.write("std.ldf", bytes);
  const size_t peak = peak_of([&] {
    _kp_LOG_log_definition_tbl table;
    table.set_precompiled_definition_file_path(path.c_str());
    const std::string_view text = table.find_entry(17)->get_default_msg_text();
    EXPECT_EQ(text.size(), long_text.size() + 1);
    EXPECT_EQ(text.substr(1), long_text);
  });
  EXPECT_LE(peak, bytes.size() + (1U << 20));
}

TEST_F(HostileDefinitions, RecordsThatAllOverlapAreEachReadAsTheyStand) {
  // 64 IDs whose records all lie at one place: all but its own are corrupted.
  const std::string good = std_bytes();
  std::string mapping;
  for (unsigned id = 0; id < 64; ++id) mapping += ldf_int4(id) + ldf_int4(200);
  std::string bytes = good;
  bytes.replace(48, 4, ldf_int4(64));
  bytes.replace(56, 4, ldf_int4(static_cast<unsigned>(good.size())));
  load(bytes + mapping);
}
