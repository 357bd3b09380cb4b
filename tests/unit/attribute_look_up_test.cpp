// Looking attributes up by name, beside a plain walk over the list.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "logging/log_definition.h"

static const _kp_LOG_attribute_entry* walk(_kp_LOG_attribute_entry** entries, unsigned count,
                                           const std::string& name) {
  for (unsigned i = 0; i < count; ++i)
    if (entries[i]->get_name() == name) return entries[i];
  return nullptr;
}

// Names of every length around the words in which they are compared, two of them with one hash,
// many that differ in one byte; of 16 bytes and more most have the hash of their neighbour.
static std::vector<std::string> names_to_draw_from(std::mt19937& random) {
  std::vector<std::string> names = {"", "A", "B", "Az", {'B', 'z' - 37}};
  while (names.size() < 400) {
    std::string name(1 + random() % 70, 'x');
    for (char& c : name)
      if (random() % 4 == 0) c = static_cast<char>(1 + random() % 255);
    names.push_back(name);
    name[random() % name.size()] = 'y';
    names.push_back(name);
  }
  return names;
}

struct drawn_names {
  explicit drawn_names(unsigned seed) : random(seed), names(names_to_draw_from(random)) {}

  const char* next() { return names[random() % names.size()].c_str(); }

  std::mt19937 random;
  std::vector<std::string> names;
};

TEST(AttributeLookUp, FindsWhatAWalkOverTheListFinds) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  drawn_names drawn(seed);
  _kp_LOG_attribute_list list;
  for (int step = 0; step < 3000; ++step) {
    const unsigned n = list.size(), kind = drawn.random() % 8;
    if (n == 0 || (n < 255 && kind < 5))
      list.append(std::make_unique<_kp_LOG_attribute_entry>(drawn.next(), nullptr, 1));
    else if (kind < 7)
      list.take(list.entries()[drawn.random() % n]);
    else
      list.entries()[drawn.random() % n]->set_name(drawn.next());
    for (int i = 0; i < 20; ++i) {
      const std::string name = drawn.next();
      ASSERT_EQ(list.find(_kp_LOG_name_key(name.c_str())), walk(list.entries(), list.size(), name))
          << name;
    }
  }
  list.clear();
}

TEST(AttributeLookUp, FindsTheGlobalOneThatAWalkOverTheListFinds) {
  using definition = _kp_LOG_log_definition;
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  drawn_names drawn(seed);
  definition::clear_global_attr_info();
  for (int step = 0; step < 600; ++step) {
    const unsigned n = definition::n_global_attr_entries, kind = drawn.random() % 8;
    if (n == 0 || (n < 255 && kind < 5))
      definition::add_global_attr_info(drawn.next(), 1);
    else if (kind < 7)
      definition::_remove_global_attr_by_ptr(definition::p_global_attr_entries[drawn.random() % n]);
    else
      definition::p_global_attr_entries[drawn.random() % n]->set_name(drawn.next());
    for (int i = 0; i < 20; ++i) {
      const std::string name = drawn.next();
      ASSERT_EQ(definition::_find_global_attr_entry_by_name(name.c_str()),
                walk(definition::p_global_attr_entries, definition::n_global_attr_entries, name))
          << name;
    }
  }
  definition::clear_global_attr_info();
}

TEST(AttributeLookUp, FindsEachOfAFullListAndNoOther) {
  _kp_LOG_log_definition def;
  const auto name = [](unsigned i) { return "ATTRIBUTE." + std::to_string(i); };
  for (unsigned i = 0; i < 255; ++i) def.add_attr_info(name(i).c_str(), 1, false, nullptr);
  for (unsigned i = 0; i < 255; ++i) {
    const auto* const found = def._find_attr_entry_by_name(name(i).c_str());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->get_name(), name(i));
  }
  for (unsigned i = 255; i < 2000; ++i)
    EXPECT_EQ(def._find_attr_entry_by_name(name(i).c_str()), nullptr);
}
