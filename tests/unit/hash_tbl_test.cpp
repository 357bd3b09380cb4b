#include "logging/hash_tbl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/failing.h"

using string_table = kp_MISC_hash_tbl<kp_String, int>;
using number_table = kp_MISC_hash_tbl<unsigned, int>;

static auto is_key(const char* name) {
  return [name](const kp_String& held) { return held.compare(name) == 0; };
}

static uint32_t hash_of(const std::string& text) {
  return KP_text_hash(text.data(), text.size());
}

template <class Table>
static std::vector<int> values_of(const Table& table) {
  std::vector<int> values;
  table.for_each([&](const auto& node) { values.push_back(node.value); });
  return values;
}

TEST(HashTable, WithoutBucketsFindsNothingAndHoldsNothing) {
  number_table table;
  EXPECT_EQ(table.bucket_count(), 0U);
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(table.find(7), nullptr);
  EXPECT_EQ(string_table().find_hashed(7, is_key("a")), nullptr);
  table.clear();
  EXPECT_TRUE(values_of(table).empty());
}

TEST(HashTable, WithoutBucketsIsSizedByTheFirstInsertion) {
  number_table numbers;
  numbers.insert(7, 70);
  EXPECT_EQ(numbers.bucket_count(), 3U);
  EXPECT_EQ(numbers.find(7)->value, 70);
  string_table strings;
  strings.insert_hashed(hash_of("a"), 1, "a");
  EXPECT_EQ(strings.bucket_count(), 3U);
  EXPECT_EQ(strings.find("a")->value, 1);
}

TEST(HashTable, HasTheRecommendedNumberOfBuckets) {
  for (const unsigned size : {0U, 1U, 3U, 4U, 7U, 8U, 23U, 5000U}) {
    const number_table table(size);
    EXPECT_EQ(table.bucket_count(), KP_recommended_hash_size(size)) << size;
  }
}

TEST(HashTable, SizedByItsBucketCountDoesNotGrow) {
  number_table table(23);
  const unsigned count = table.bucket_count();
  for (int i = 0; i < 10; ++i) table.set_size(table.bucket_count());
  EXPECT_EQ(table.bucket_count(), count);
}

TEST(HashTable, SizingForgetsEveryNode) {
  number_table table(3);
  for (unsigned key = 0; key < 20; ++key) table.insert(key, 0);
  for (const unsigned size : {3U, 23U, 7U, 0U}) {
    table.set_size(size);
    EXPECT_EQ(table.size(), 0U);
    EXPECT_EQ(table.find(4), nullptr);
    table.insert(4, 0);
  }
}

TEST(HashTable, ClearingKeepsTheBuckets) {
  number_table table(23);
  for (unsigned key = 0; key < 9000; ++key) table.insert(key, 0);
  const unsigned count = table.bucket_count();
  table.clear();
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(table.bucket_count(), count);
  EXPECT_EQ(table.find(17), nullptr);
  table.insert(17, 1);
  EXPECT_EQ(table.find(17)->value, 1);
}

// Three keys of one bucket.
static std::vector<unsigned> keys_of_one_chain(const number_table& table) {
  std::vector<unsigned> keys;
  for (unsigned key = 1; keys.size() < 3; ++key)
    if (KP_hash(key, table.bucket_count()) == 0) keys.push_back(key);
  return keys;
}

TEST(HashTable, NewNodesStandAtTheHeadOfTheirChain) {
  number_table table(3);
  const std::vector<unsigned> keys = keys_of_one_chain(table);
  for (int i = 0; i < 3; ++i) table.insert(keys[static_cast<size_t>(i)], i);
  EXPECT_EQ(values_of(table), (std::vector<int>{2, 1, 0}));
  EXPECT_EQ(table.find(keys[2])->previous, nullptr);
  EXPECT_EQ(table.find(keys[2])->next, table.find(keys[1]));
  EXPECT_EQ(table.find(keys[0])->previous, table.find(keys[1]));
  EXPECT_EQ(table.find(keys[0])->next, nullptr);
}

TEST(HashTable, NodesAreRemovedFromHeadMiddleAndEnd) {
  const std::vector<unsigned> keys = keys_of_one_chain(number_table(3));
  for (const unsigned removed : keys) {
    number_table table(3);
    std::vector<int> left;
    for (const unsigned key : keys) {
      table.insert(key, static_cast<int>(key));
      if (key != removed) left.insert(left.begin(), static_cast<int>(key));
    }
    table.remove(table.find(removed));
    EXPECT_EQ(values_of(table), left);
    EXPECT_EQ(table.find(removed), nullptr);
    EXPECT_EQ(table.size(), 2U);
  }
}

TEST(HashTable, TheBucketOfAKeyIsItsHashModuloTheCount) {
  const string_table small(7);
  const string_table large(23);
  for (const std::string name : {"", "a", "SEVERITY_CODE", "an attribute of more than 16 bytes"}) {
    for (const string_table* table : {&small, &large}) {
      EXPECT_EQ(KP_hash(kp_String(name.c_str()), table->bucket_count()),
                hash_of(name) % table->bucket_count());
    }
  }
}

TEST(HashTable, HashedAndPlainOperationsMeetInOneBucket) {
  string_table table(7);
  for (int i = 0; i < 50; ++i) {
    const std::string name = "attribute number " + std::to_string(i);
    if (i % 2 == 0)
      table.insert(name.c_str(), i);
    else
      table.insert_hashed(hash_of(name), i, name.c_str());
    EXPECT_EQ(table.find(name.c_str()), table.find_hashed(hash_of(name), is_key(name.c_str())));
    EXPECT_EQ(table.find(name.c_str())->value, i);
  }
}

TEST(HashTable, AReadOnlyTableIsSearchedAlike) {
  string_table table(7);
  table.insert("a", 1);
  const string_table& view = table;
  EXPECT_EQ(view.find("a"), table.find("a"));
  EXPECT_EQ(view.find_hashed(hash_of("a"), is_key("a")), table.find("a"));
  EXPECT_EQ(view.find("b"), nullptr);
}

TEST(HashTable, ValuesMayBeChangedInPlace) {
  string_table table(7);
  table.insert("a", 1).value = 2;
  EXPECT_EQ(table.find("a")->value, 2);
}

TEST(HashTable, ANodeHoldsNoMoreThanItsLinksKeyAndValue) {
  struct plain_node {
    void* previous;
    void* next;
    unsigned key;
    int value;
  };
  EXPECT_EQ(sizeof(number_table::node), sizeof(plain_node));
}

TEST(HashTable, UpToSevenBucketsNeedNoMemory) {
  const failing_new fault(1, from_then_on);
  string_table table(7);
  table.set_size(3);
  table.set_size(7);
  EXPECT_FALSE(fault.met());
}

TEST(HashTable, WithoutMemoryForBucketsIsLeftEmptyAndUsable) {
  number_table table(3);
  table.insert(1, 10);
  EXPECT_EQ(for_each_failing_new([&] { table.set_size(23); },
                                 [&](const std::exception_ptr& outcome) {
                                   expect_memory_alloc(outcome);
                                   EXPECT_EQ(table.bucket_count(), 0U);
                                   EXPECT_EQ(table.find(1), nullptr);
                                   table.insert(2, 20);
                                   EXPECT_EQ(table.find(2)->value, 20);
                                 }),
            1U);
}

TEST(HashTable, WithoutMemoryForANodeKeepsTheOthers) {
  string_table table(7);
  table.insert("held", 1);
  const std::string name(100, 'n');
  const kp_String key(name.c_str());
  const auto failures_of_insertion = [&](string_table& into, unsigned held) {
    return for_each_failing_new([&] { into.insert(key, 2); },
                                [&](const std::exception_ptr& outcome) {
                                  expect_memory_alloc(outcome);
                                  EXPECT_EQ(into.size(), held);
                                  EXPECT_EQ(into.find(key), nullptr);
                                });
  };
  string_table empty(7);
  EXPECT_EQ(failures_of_insertion(empty, 0), 2U);  // a block of nodes, the key
  EXPECT_EQ(failures_of_insertion(table, 1), 1U);  // the key
  EXPECT_EQ(table.find("held")->value, 1);
  EXPECT_EQ(table.find(key)->value, 2);
}

TEST(HashTable, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<string_table>);
  EXPECT_FALSE(std::is_copy_assignable_v<string_table>);
  EXPECT_FALSE(std::is_move_constructible_v<string_table>);
}

TEST(HashTable, AgreesWithAMapOverRandomOperations) {
  std::mt19937 random(20261115);
  for (const unsigned size : {0U, 7U, 23U}) {
    number_table table(size);
    std::map<unsigned, int> expected;
    for (int step = 0; step < 20000; ++step) {
      const auto key = static_cast<unsigned>(random() % 300);
      auto* node = table.find(key);
      ASSERT_EQ(node != nullptr, expected.count(key) == 1);
      if (node == nullptr) {
        table.insert(key, step);
        expected[key] = step;
      } else if (random() % 2 == 0) {
        ASSERT_EQ(node->value, expected[key]);
        table.remove(node);
        expected.erase(key);
      }
      ASSERT_EQ(table.size(), expected.size());
    }
    std::vector<int> values = values_of(table);
    std::vector<int> wanted;
    for (const auto& [key, value] : expected) wanted.push_back(value);
    std::sort(values.begin(), values.end());
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(values, wanted);
  }
}
