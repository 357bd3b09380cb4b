// logmsg_cache: the plans of the templates that a thread rendered last.
#ifndef KP_LOG_LOGMSG_CACHE_H
#define KP_LOG_LOGMSG_CACHE_H

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

// Keeps at most 128 plans, found by the template's text. Plan is made by Plan(text), and its
// is_for(text) tells whether it was made from exactly that text. A template of more than 16384
// units is planned anew each time. One object is used by one thread.
template <class Plan, class Unit>
class logmsg_cache {
 public:
  using text_view = std::basic_string_view<Unit>;

  // The plan of the template; valid until the next call.
  template <class Text>
  const Plan& find(const Text& text, text_view units) {
    const size_t hash = std::hash<text_view>()(units);
    std::array<slot, ways>& set = slots_[hash % sets];
    for (const slot& kept : set) {
      if (kept.plan && kept.hash == hash && kept.plan->is_for(text)) return *kept.plan;
    }
    slot& victim = units.size() > longest_kept ? unkept_ : set[next_++ % ways];
    victim.plan = std::make_unique<const Plan>(text);
    victim.hash = hash;
    return *victim.plan;
  }

 private:
  static constexpr size_t sets = 32;
  static constexpr size_t ways = 4;
  static constexpr size_t longest_kept = 16384;

  struct slot {
    size_t hash = 0;
    std::unique_ptr<const Plan> plan;
  };

  std::array<std::array<slot, ways>, sets> slots_;
  slot unkept_;  // the last plan of a long template
  size_t next_ = 0;
};

#endif
