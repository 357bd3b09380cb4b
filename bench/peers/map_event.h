// What a program without the library would write: an event as a map from name to value, checked
// against a map of declared types.
#ifndef BENCH_PEERS_MAP_EVENT_H
#define BENCH_PEERS_MAP_EVENT_H

#include <absl/container/flat_hash_map.h>
#include <absl/hash/hash.h>
#include <absl/strings/string_view.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>

using peer_value = std::variant<std::string, uint16_t, double, int32_t, uint32_t>;

// An attribute's declared type: the place of its alternative in peer_value, and the longest text.
struct peer_declaration {
  size_t type;
  size_t limit;
};

// Look names up without making strings of them, each with the hash of its own library.
struct peer_std_hash {
  using is_transparent = void;
  size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
};
struct peer_absl_hash {
  using is_transparent = void;
  size_t operator()(std::string_view name) const {
    return absl::Hash<absl::string_view>()(absl::string_view(name.data(), name.size()));
  }
};

template <class T>
using peer_std_map = std::unordered_map<std::string, T, peer_std_hash, std::equal_to<>>;
template <class T>
using peer_absl_map = absl::flat_hash_map<std::string, T, peer_absl_hash, std::equal_to<>>;

// One event. `Map` is one of the two above.
template <template <class> class Map>
class peer_event {
 public:
  using declarations = Map<peer_declaration>;

  explicit peer_event(const declarations& declared)
      : declared_(declared), made_at_(std::chrono::system_clock::now()) {}

  void add(std::string_view name, std::string_view text) {
    if (text.size() > declaration_of(name, 0).limit) throw std::length_error("too long");
    values_.insert_or_assign(std::string(name), peer_value(std::string(text)));
  }
  template <class T>
  void add(std::string_view name, T value) {
    declaration_of(name, peer_value(value).index());
    values_.insert_or_assign(std::string(name), peer_value(value));
  }

  const peer_value& get(std::string_view name) const { return values_.find(name)->second; }
  template <class Visitor>
  void for_each(Visitor&& visitor) const {
    for (const auto& [name, value] : values_) visitor(name, value);
  }
  std::chrono::system_clock::time_point made_at() const { return made_at_; }

 private:
  const peer_declaration& declaration_of(std::string_view name, size_t type) const {
    const auto found = declared_.find(name);
    if (found == declared_.end()) throw std::invalid_argument("not declared");
    if (found->second.type != type) throw std::invalid_argument("another type");
    return found->second;
  }

  const declarations& declared_;
  std::chrono::system_clock::time_point made_at_;
  Map<peer_value> values_;
};

#endif
