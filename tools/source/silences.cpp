#include "tools/source/silences.h"

#include "recording/text/words.h"

static bool is_of_rule(const silenced_rule& silenced, diagnostic_rule rule) {
  return silenced.code.value == rule->code;
}

bool advice_list::silence(const diagnostic& advice, const silences& list) {
  for (const silenced_rule& silenced : list) {
    if (!is_of_rule(silenced, advice.rule)) continue;
    used_.insert(&silenced);
    return true;
  }
  return false;
}

bool advice_list::silence_in_source(const diagnostic& advice) {
  for (const silenced_rule& silenced : set_.silenced) {
    const bool is_here = silenced.code.place.source == advice.place.source;
    if (!is_here || !is_of_rule(silenced, advice.rule)) continue;
    used_.insert(&silenced);
    return true;
  }
  return false;
}

void advice_list::add(const diagnostic& advice, const event_model* event,
                      const attribute_model* attribute) {
  const bool is_silenced = (attribute != nullptr && silence(advice, attribute->silenced)) ||
                           (event != nullptr && silence(advice, event->silenced)) ||
                           silence_in_source(advice);
  if (is_silenced)
    ++silenced_count_;
  else
    found_.add(advice);
}

void advice_list::for_each_list(const std::function<void(const silences&, const event_model*,
                                                         const attribute_model*)>& visit) const {
  for (const attribute_model& global : set_.globals) visit(global.silenced, nullptr, &global);
  for (const event_model& event : set_.events) {
    for (const attribute_model& attribute : event.attributes)
      visit(attribute.silenced, &event, &attribute);
    visit(event.silenced, &event, nullptr);
  }
  visit(set_.silenced, nullptr, nullptr);
}

void advice_list::add_unused_silences(const std::function<bool(diagnostic_rule)>& is_applied) {
  for_each_list(
      [&](const silences& list, const event_model* event, const attribute_model* attribute) {
        for (const silenced_rule& silenced : list) {
          const diagnostic_rule rule = rule_of_code(silenced.code.value);
          if (rule == "unused-silence"_rule || !is_applied(rule)) continue;
          if (used_.count(&silenced) == 0)
            add({"unused-silence"_rule, silenced.code.place,
                 "there is no finding of " + in_quotes(silenced.code.value) + " here"},
                event, attribute);
        }
      });
}
