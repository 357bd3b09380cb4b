// The advice on a set of sources: it goes to the diagnostics, unless the source silences it.
#ifndef TOOLS_SOURCE_SILENCES_H
#define TOOLS_SOURCE_SILENCES_H

#include <functional>
#include <unordered_set>

#include "recording/definitions/model.h"
#include "recording/report/diagnostics.h"

class advice_list {
 public:
  advice_list(const definition_set& set, diagnostic_list& found) : set_(set), found_(found) {}

  // Advice on the set, on an event, or on an attribute (of an event, or a global one). The
  // attribute, the event and the source may silence it.
  void add(const diagnostic& advice, const event_model* event = nullptr,
           const attribute_model* attribute = nullptr);

  // Advice on silences that had nothing to silence, of the rules that were looked into.
  void add_unused_silences(const std::function<bool(diagnostic_rule)>& is_applied);

  size_t silenced_count() const { return silenced_count_; }

 private:
  using silences = std::vector<silenced_rule>;

  bool silence(const diagnostic& advice, const silences& list);
  bool silence_in_source(const diagnostic& advice);
  // Every list of silences, with the event and the attribute that it stands at.
  void for_each_list(const std::function<void(const silences&, const event_model*,
                                              const attribute_model*)>& visit) const;

  const definition_set& set_;
  diagnostic_list& found_;
  std::unordered_set<const silenced_rule*> used_;
  size_t silenced_count_ = 0;
};

#endif
