// The plans of the process, and how a thread finds the one that it needs.
#ifndef KP_LOG_LOGMSG_PLANS_H
#define KP_LOG_LOGMSG_PLANS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "logging/logmsg_choice.h"
#include "logging/logmsg_plan.h"

// The plan of a template, made when no thread has planned it yet. The process keeps some 2000 plans
// and 8 MiB, whichever is less; a long template is planned anew each time. Any thread. Raises
// KPX_memory_alloc, and what the tokenizers raise.
logmsg_plan_ref logmsg_find_plan(std::string_view text, logmsg_form form,
                                 const logmsg_setting& setting,
                                 const _kp_LOG_log_definition& definition);

// The same for a template in UTF-16, such as those of catalogs.
logmsg_plan_ref logmsg_find_unicode_plan(const icu::UnicodeString& text,
                                         const logmsg_setting& setting,
                                         const _kp_LOG_log_definition& definition);

// What tells a message's template, and what it means, from every other one.
struct logmsg_template_key {
  uint64_t message = 0;     // the identity of the message that the ID or the text is taken from
  uint64_t catalog = 0;     // of the catalog that its text is taken from; 0: its own text
  uint64_t attributes = 0;  // of the definition's attributes
  bool operator==(const logmsg_template_key& other) const noexcept = default;
};

// Of the text that the catalog with that identity, or for 0 the message itself, has.
inline logmsg_template_key logmsg_key_of(const logmsg_choice& choice, uint64_t catalog,
                                         const _kp_LOG_log_definition& definition) noexcept {
  return {catalog != 0 ? choice.id_identity : choice.text_identity, catalog,
          definition.attributes_identity()};
}

// The plans that a thread used last, found without a lock, and without looking at the template.
class logmsg_thread_plans {
 public:
  static logmsg_thread_plans& current();

  // Null when the thread has not kept it. Valid until the thread keeps another one.
  const logmsg_plan* find(const logmsg_template_key& key,
                          const logmsg_setting& setting) const noexcept {
    const slot& kept = slots_[key.message % slots_.size()];
    return kept.key == key && kept.plan->is_under(setting) ? kept.plan.get() : nullptr;
  }
  // Unless the template is long, or the plan large: of plans that the process has dropped since, a
  // thread alone keeps 256 times 16 KiB at most.
  void keep(const logmsg_template_key& key, const logmsg_plan_ref& plan) noexcept;

 private:
  struct slot {
    logmsg_template_key key;
    logmsg_plan_ref plan;  // none only where the message is 0
  };

  // Messages are numbered one after the other: as many as this never meet.
  std::array<slot, 256> slots_;
};

#endif
