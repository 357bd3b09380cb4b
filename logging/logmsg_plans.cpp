#include "logging/logmsg_plans.h"

#include <functional>
#include <mutex>
#include <utility>

#include "logging/log_util_never_destroyed.h"
#include "logging/log_util_per_thread.h"
#include "logging/raise.h"

// --- The process's plans ---

// Plans, found by their template's text. Used under a lock.
class logmsg_known_plans {
 public:
  constexpr logmsg_known_plans() noexcept = default;

  // None when it is not known.
  logmsg_plan_ref find(size_t hash, std::string_view text, logmsg_form form,
                       const logmsg_setting& setting,
                       const _kp_LOG_log_definition& definition) const noexcept;
  // In place of an older one, and of as many others as there is no memory for.
  void keep(size_t hash, logmsg_plan_ref plan) noexcept;

 private:
  static constexpr size_t sets = 256;
  static constexpr size_t ways = 8;
  static constexpr size_t most_bytes = size_t{8} << 20;

  struct slot {
    size_t hash = 0;
    logmsg_plan_ref plan;
  };

  void drop(slot& dropped) noexcept;

  std::array<slot, sets * ways> slots_;
  size_t bytes_ = 0;         // of all plans
  size_t next_way_ = 0;      // of the set that takes a plan next
  size_t next_dropped_ = 0;  // when there is no memory
};

logmsg_plan_ref logmsg_known_plans::find(size_t hash, std::string_view text, logmsg_form form,
                                         const logmsg_setting& setting,
                                         const _kp_LOG_log_definition& definition) const noexcept {
  const slot* const set = &slots_[hash % sets * ways];
  for (const slot* kept = set; kept != set + ways; ++kept)
    if (kept->plan.get() != nullptr && kept->hash == hash &&
        kept->plan->is_for(text, form, setting, definition)) {
      return kept->plan;
    }
  return {};
}

void logmsg_known_plans::drop(slot& dropped) noexcept {
  if (dropped.plan.get() == nullptr) return;
  bytes_ -= dropped.plan->bytes();
  dropped.plan = {};
}

void logmsg_known_plans::keep(size_t hash, logmsg_plan_ref plan) noexcept {
  slot& taken = slots_[hash % sets * ways + next_way_++ % ways];
  drop(taken);
  bytes_ += plan->bytes();
  taken = {hash, std::move(plan)};
  while (bytes_ > most_bytes) drop(slots_[next_dropped_++ % slots_.size()]);
}

static constinit std::mutex plans_lock;  // a leaf: templates are planned outside it
static constinit kp_log_never_destroyed<logmsg_known_plans> known_plans;

logmsg_plan_ref logmsg_find_plan(std::string_view text, logmsg_form form,
                                 const logmsg_setting& setting,
                                 const _kp_LOG_log_definition& definition) {
  const size_t hash = std::hash<std::string_view>()(text);
  const auto known = [&] { return known_plans.value.find(hash, text, form, setting, definition); };
  {
    const std::lock_guard<std::mutex> hold(plans_lock);
    if (logmsg_plan_ref plan = known(); plan.get() != nullptr) return plan;
  }
  logmsg_plan_ref made(new logmsg_plan(text, form, setting, definition));
  if (made->is_long()) return made;
  const std::lock_guard<std::mutex> hold(plans_lock);
  if (logmsg_plan_ref plan = known(); plan.get() != nullptr) return plan;
  known_plans.value.keep(hash, made);
  return made;
}

logmsg_plan_ref logmsg_find_unicode_plan(const icu::UnicodeString& text,
                                         const logmsg_setting& setting,
                                         const _kp_LOG_log_definition& definition) {
  const auto* const bytes = reinterpret_cast<const char*>(text.getBuffer());
  return logmsg_find_plan({bytes, static_cast<size_t>(text.length()) * sizeof(char16_t)},
                          logmsg_form::catalog, setting, definition);
}

// --- A thread's plans ---

logmsg_thread_plans& logmsg_thread_plans::current() {
  return kp_per_thread<logmsg_thread_plans>::get();
}

void logmsg_thread_plans::keep(const logmsg_template_key& key,
                               const logmsg_plan_ref& plan) noexcept {
  constexpr size_t largest = 16384;
  if (!plan->is_long() && plan->bytes() <= largest)
    slots_[key.message % slots_.size()] = {key, plan};
}
