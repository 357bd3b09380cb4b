#include "engines/nats/piece_sorter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "engines/nats/record_joiner.h"
#include "recording/files/file_error.h"
#include "tests/support/temp_folder.h"

using key_and_bytes = std::pair<std::string, std::string>;

static std::vector<key_and_bytes> sorted_by(piece_sorter& sorter) {
  std::vector<key_and_bytes> sorted;
  std::string_view key;
  std::string_view bytes;
  while (sorter.next(key, bytes)) sorted.emplace_back(key, bytes);
  return sorted;
}

// Of 20,000 pieces, some of them larger than the memory that there is.
static void expect_sorted(size_t memory, bool is_in_order) {
  std::mt19937 random(static_cast<unsigned>(memory));
  std::vector<key_and_bytes> pieces;
  for (unsigned i = 0; i < 20'000; ++i) {
    std::string key = std::to_string(is_in_order ? 100'000 + i : random() % 1'000'000);
    key.resize(20, '\0');
    std::string bytes(random() % 50, 'x');
    if (random() % 4000 == 0) bytes.resize(random() % 300'000, 'y');
    pieces.emplace_back(key + std::to_string(i), bytes);
  }
  piece_sorter sorter(memory);
  for (const auto& [key, bytes] : pieces) sorter.add(key, bytes);
  std::ranges::sort(pieces);
  EXPECT_TRUE(sorted_by(sorter) == pieces) << memory;
}

TEST(PieceSorter, SortsInMemoryAndInAFile) {
  const temp_folder folder;
  const environment_value temporary("TMPDIR", folder.path().c_str());
  for (const size_t memory : {size_t{1}, size_t{1000}, size_t{100'000}, size_t{100'000'000}}) {
    expect_sorted(memory, false);
    expect_sorted(memory, true);
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  piece_sorter none;
  EXPECT_TRUE(sorted_by(none).empty());
  const environment_value nowhere("TMPDIR", "/nowhere");
  piece_sorter sorter(1);
  sorter.add("a", "b");
  EXPECT_THROW(sorter.add("c", "d"), file_error);
}

TEST(PieceSorter, OrdersPlacesAsTheyAreCompared) {
  std::mt19937 random(5);
  const auto text = [&] {
    std::string made;
    for (size_t size = random() % 4; made.size() < size;)
      made += std::string_view("\0\1a\xFF", 4)[random() % 4];
    return made;
  };
  std::vector<record_place> places;
  for (int i = 0; i < 5'000; ++i)
    places.push_back({.journal = {text(), text()},
                      .segment = text(),
                      .line = random() % 3 * 255,
                      .digest = uint64_t{random()} << 32 | random()});
  std::vector<std::string> keys;
  for (const record_place& place : places) keys.push_back(sort_key_of(place, 1, 2));
  std::ranges::sort(places);
  std::ranges::sort(keys);
  for (size_t i = 0; i < places.size(); ++i) {
    EXPECT_TRUE(place_of_sort_key(keys[i]) == places[i]);
    EXPECT_EQ(piece_of_sort_key(keys[i]).number, 2U);
  }
}
