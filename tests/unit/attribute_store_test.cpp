#include "logging/attribute_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/kp_hash.h"
#include "logging/def_read.h"
#include "tests/support/failing.h"

using store_t = _kp_LOG_attribute_store;
using number_t = _kp_LOG_datatype<int, TypeSInt4>;

static store_t::attribute& put(store_t& store, const std::string& name, int number) {
  store_t::attribute& held =
      store.find_or_insert(kp_String(name.c_str()), my_hashcode(name.c_str()));
  if (held.value != nullptr) store_t::destroy_value(held);
  held.value = new (held.room.bytes) number_t(number);
  return held;
}

static store_t::attribute* find(store_t& store, const std::string& name) {
  return store.find(_kp_LOG_hashed_name(name.c_str()));
}

using named_numbers = std::vector<std::pair<std::string, int>>;

static named_numbers content_of(const store_t& store) {
  named_numbers content;
  store.for_each([&](const store_t::attribute& held) {
    content.emplace_back(held.name.c_str(), static_cast<const number_t*>(held.value)->value);
  });
  return content;
}

// The chains as they are told: lists of names, new ones in front.
class chains_of_a_test {
 public:
  void put(const std::string& name, int number) {
    named_numbers& chain = chain_of(name);
    const auto held = find(chain, name);
    if (held != chain.end())
      held->second = number;
    else
      chain.insert(chain.begin(), {name, number});
  }
  bool remove(const std::string& name) {
    named_numbers& chain = chain_of(name);
    const auto held = find(chain, name);
    if (held == chain.end()) return false;
    chain.erase(held);
    return true;
  }
  named_numbers content() const {
    named_numbers all;
    for (const named_numbers& chain : chains_) all.insert(all.end(), chain.begin(), chain.end());
    return all;
  }

 private:
  static named_numbers::iterator find(named_numbers& chain, const std::string& name) {
    return std::find_if(chain.begin(), chain.end(),
                        [&](const auto& held) { return held.first == name; });
  }
  named_numbers& chain_of(const std::string& name) {
    return chains_[KP_hash(kp_String(name.c_str()), KP_recommended_hash_size(7))];
  }

  named_numbers chains_[7];
};

TEST(AttributeStore, AgreesWithChainsOverRandomOperations) {
  const auto seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const unsigned n_names : {5U, 8U, 9U, 60U, 600U}) {
    store_t store;
    chains_of_a_test expected;
    for (unsigned step = 0; step < 3000; ++step) {
      const auto number = static_cast<unsigned>(random() % n_names);
      const std::string name = std::string(number % 40, 'n') + std::to_string(number);
      if (random() % 3 == 0) {
        store_t::attribute* const held = find(store, name);
        ASSERT_EQ(held != nullptr, expected.remove(name));
        if (held != nullptr) store.remove(held);
      } else {
        put(store, name, static_cast<int>(step));
        expected.put(name, static_cast<int>(step));
      }
      if (random() % 500 == 0) {
        store.clear();
        expected = {};
      }
    }
    ASSERT_EQ(content_of(store), expected.content());
  }
}

TEST(AttributeStore, AttributesStayAtTheirAddress) {
  store_t store;
  std::map<std::string, store_t::attribute*> places;
  for (int i = 0; i < 255; ++i) {
    const std::string name = "A" + std::to_string(i);
    places[name] = &put(store, name, i);
  }
  for (int i = 0; i < 255; i += 2) {
    const std::string name = "A" + std::to_string(i);
    store.remove(find(store, name));
    places.erase(name);
  }
  for (int i = 0; i < 100; ++i) put(store, "B" + std::to_string(i), i);
  for (const auto& [name, place] : places) EXPECT_EQ(find(store, name), place) << name;
}

TEST(AttributeStore, EightPlacesNeedNoMemoryHoweverOftenTheyAreTaken) {
  EXPECT_EQ(for_each_failing_new([] {
              store_t store;
              for (int i = 0; i < 100; ++i) {
                put(store, "A" + std::to_string(i), i);
                if (i >= 7) store.remove(find(store, "A" + std::to_string(i - 7)));
              }
            }),
            0U);
}

TEST(AttributeStore, WithoutMemoryIsAsItWas) {
  const std::string long_name(100, 'n');
  for (const int n_held : {0, 8}) {
    store_t store;
    for (int i = 0; i < n_held; ++i) put(store, "A" + std::to_string(i), i);
    const named_numbers before = content_of(store);
    const kp_String name(long_name.c_str());
    const unsigned failures = for_each_failing_new(
        [&] {
          store_t::attribute& held = store.find_or_insert(name, my_hashcode(name.c_str()));
          held.value = new (held.room.bytes) number_t(7);
        },
        [&](const std::exception_ptr& outcome) {
          expect_memory_alloc(outcome);
          EXPECT_EQ(content_of(store), before);
        });
    EXPECT_EQ(failures, n_held == 0 ? 1U : 2U);  // the name; and a block of places
    EXPECT_NE(find(store, long_name), nullptr);
  }
}

TEST(AttributeStore, ValuesFromOutsideAreDestroyedAsWell) {
  store_t store;
  store_t::attribute& held = store.find_or_insert(kp_String("A"), my_hashcode("A"));
  held.value =
      new _kp_LOG_datatype<kp_String, TypeChar2K>(kp_String(std::string(100, 'x').c_str()));
  put(store, "A", 1);
  EXPECT_EQ(content_of(store), (named_numbers{{"A", 1}}));
}
