// Random definition sources that compile.
#ifndef TESTS_COMMAND_RANDOM_DEFINITIONS_H
#define TESTS_COMMAND_RANDOM_DEFINITIONS_H

#include <map>
#include <random>
#include <string>
#include <vector>

// Makes sources of a few events each. IDs, names, indexes and values come from small pools, so that
// two sources often concern the same things, and sometimes do not.
class random_definitions {
 public:
  explicit random_definitions(unsigned seed) : random_(seed) {}

  std::string source();
  // A source to load beside the last one that source() made: its messages show attributes of that
  // one's events, and its events may select by theirs. It often repeats something and is refused.
  std::string auxiliary();

 private:
  // What an AUX event may name of an event.
  struct made_event {
    std::vector<std::string> placeholders;
    std::string selector;
  };

  size_t below(size_t bound);
  bool once_in(size_t n) { return below(n) == 0; }
  template <class T>
  const T& any_of(const std::vector<T>& pool) {
    return pool[below(pool.size())];
  }
  // `count` different numbers below `bound`.
  std::vector<size_t> some_of(size_t bound, size_t count);

  std::string set();
  std::string event(size_t id);
  std::string attributes(const std::vector<size_t>& names);
  std::string messages();
  std::string message();
  std::string text();

  std::mt19937 random_;
  std::map<size_t, made_event> made_;  // by source(), by their IDs
  bool is_auxiliary_ = false;
  made_event event_;  // that is being made; at first what its STD event has
};

#endif
