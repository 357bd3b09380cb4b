// key_store: keys and their values, shared by the threads of all clients.
#ifndef KEY_STORE_H
#define KEY_STORE_H

#include <charconv>
#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "key_value_events.h"

// None where the text is no number, or one of more than 32 bits.
inline std::optional<std::int32_t> number_of(const std::string& text) {
  std::int32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

class key_store {
 public:
  events::OUTCOME set(const std::string& key, std::string value) {
    const std::lock_guard lock(mutex_);
    const bool was_there = look_up(key) == events::LOOKUP::found;
    entries_[key] = {std::move(value), never};
    return was_there ? events::OUTCOME::replaced : events::OUTCOME::created;
  }

  std::pair<events::LOOKUP, std::string> get(const std::string& key) {
    const std::lock_guard lock(mutex_);
    const events::LOOKUP lookup = look_up(key);
    return {lookup, lookup == events::LOOKUP::found ? entries_[key].value : ""};
  }

  events::LOOKUP remove(const std::string& key) {
    const std::lock_guard lock(mutex_);
    const events::LOOKUP lookup = look_up(key);
    entries_.erase(key);
    return lookup;
  }

  events::LOOKUP expire(const std::string& key, std::chrono::seconds after) {
    const std::lock_guard lock(mutex_);
    const events::LOOKUP lookup = look_up(key);
    if (lookup == events::LOOKUP::found) entries_[key].end = clock::now() + after;
    return lookup;
  }

  // The value and one more, 1 for a new key. None where the value is no number, or the greatest.
  std::optional<std::int32_t> increment(const std::string& key) {
    const std::lock_guard lock(mutex_);
    if (look_up(key) != events::LOOKUP::found) entries_[key].value = "0";
    std::string& value = entries_[key].value;
    const auto number = number_of(value);
    if (!number || *number == std::numeric_limits<std::int32_t>::max()) return std::nullopt;
    value = std::to_string(*number + 1);
    return *number + 1;
  }

  std::int32_t size() {
    const std::lock_guard lock(mutex_);
    return static_cast<std::int32_t>(entries_.size());
  }

 private:
  using clock = std::chrono::steady_clock;
  static constexpr clock::time_point never = clock::time_point::max();
  struct entry {
    std::string value;
    clock::time_point end = never;
  };

  // A key whose time is over is told once, and gone then.
  events::LOOKUP look_up(const std::string& key) {
    const auto found = entries_.find(key);
    if (found == entries_.end()) return events::LOOKUP::missing;
    if (clock::now() < found->second.end) return events::LOOKUP::found;
    entries_.erase(found);
    return events::LOOKUP::expired;
  }

  std::mutex mutex_;
  std::unordered_map<std::string, entry> entries_;
};

#endif
